// Health figures of a running agent, for the monitoring system an operator
// already runs: counted while gather cycles run and written, every ten
// seconds and at a clean stop, to the file that the configuration key
// STATUS_FILE names, in the Prometheus text exposition format (the format of
// node_exporter's textfile collector).
//
// The object exists only when STATUS_FILE is set: `g_pclAgentStatus` is null
// otherwise, and every counting point of the gather cycle is one test of that
// pointer, so an agent without the key counts nothing and writes nothing.
// Single-threaded, like the gather cycle that feeds it.
#pragma once

#include <sys/types.h>

#include <cstdint>
#include <ctime>
#include <string>
#include <vector>

#include "CommonConst.h"

class CColumnLogger;

// Kinds of events, by the type field of the event line (1, 2 and 4).
enum EN_EVENT_KIND { STATUS_KIND_NUMERIC = 0, STATUS_KIND_TEXT = 1, STATUS_KIND_LINE_RATE = 2, STATUS_KINDS = 3 };
// Why a turn left lines for the next cycle (DEFER_EVENTS).
enum EN_DEFER_REASON { DEFER_CEILING = 0, DEFER_WRITE_FAILED = 1, DEFER_REASONS = 2 };

class CAgentStatus {
 public:
  // `l_pstrPath` is the status file; `l_tStart` the agent's start time.
  CAgentStatus(const char* l_pstrPath, time_t l_tStart);

  // A gather cycle ran, with `l_nSpool` entries waiting in the output directory.
  void fCycleRun(int l_nSpool) { ++m_ulCycles, m_nSpool = l_nSpool; }
  // A cycle was skipped: the spool held `l_nSpool` entries (200 or more).
  void fCycleSkippedSpool(int l_nSpool) { ++m_ulSkippedSpool, m_nSpool = l_nSpool; }
  // A cycle was skipped because its out_ name still waits for the collector.
  void fCycleSkippedTaken() { ++m_ulSkippedTaken; }
  // A whole line of `l_lBytes` bytes (line end included) was read for entry `l_nIndx`.
  void fLineRead(int l_nIndx, long l_lBytes) {
    if (!fValid(l_nIndx)) return;
    ++m_vstEntries[l_nIndx].m_ulLinesRead;
    m_vstEntries[l_nIndx].m_ulBytesRead += static_cast<uint64_t>(l_lBytes);
  }
  // A line of entry `l_nIndx` passed its line patterns and is evaluated;
  // events counted from here on belong to that entry.
  void fLineEvaluated(int l_nIndx) {
    if (!fValid(l_nIndx)) return;
    ++m_vstEntries[l_nIndx].m_ulLinesMatched;
    m_nCurrent = l_nIndx;
  }
  // A line of entry `l_nIndx` passed its line patterns but was not evaluated:
  // the turn had already written more than 100 events.
  void fLinePassedOver(int l_nIndx) {
    if (!fValid(l_nIndx)) return;
    ++m_vstEntries[l_nIndx].m_ulLinesMatched;
    ++m_vstEntries[l_nIndx].m_ulLinesPassedOver;
  }
  // An event of `l_nKind` fired for the entry of the line being evaluated.
  void fEvent(EN_EVENT_KIND l_enKind) {
    if (fValid(m_nCurrent)) ++m_vstEntries[m_nCurrent].m_vulEvents[l_enKind];
  }
  // A turn of entry `l_nIndx` stopped early and left lines for the next cycle.
  void fDeferred(int l_nIndx, EN_DEFER_REASON l_enReason) {
    if (fValid(l_nIndx)) ++m_vstEntries[l_nIndx].m_vulDeferred[l_enReason];
  }
  // A line of entry `l_nIndx` that an earlier turn left for a later cycle was reached.
  void fLineDeferred(int l_nIndx) {
    if (fValid(l_nIndx)) ++m_vstEntries[l_nIndx].m_ulLinesDeferred;
  }
  void fReadPause() { ++m_ulReadPauses; }
  void fWriteFailure() { ++m_ulWriteFailures; }
  void fHandOffFailure() { ++m_ulHandOffFailures; }

  // True when the last write is ten seconds old or more.
  bool fDue(time_t l_tNow) const { return l_tNow - m_tLastWrite >= HEARTBEAT_SECONDS || l_tNow < m_tLastWrite; }
  // Replaces the status file atomically (a temporary file beside it, written
  // whole, then renamed over it) with the figures of now: the counters and,
  // for every entry of `l_clLogger`'s registry, the file it resolves to, its
  // size and the bytes not read yet. 1 written; -1 failed, with one
  // diagnostic record per change from written to failed and back (not one
  // per try). Does not move the registry's cursor. When no figure changed
  // (cycles run and times aside) the file is written again only once a
  // minute and its modification time renewed in between.
  // `l_bWhole`: write the whole file whatever changed (the last write at a stop).
  int fWrite(CColumnLogger& l_clLogger, time_t l_tNow, bool l_bWhole = false);



 private:
  // Snapshots of the last minute for "events in the last minute" and the
  // recent read rate: one per write, oldest dropped after 60 s.
  static constexpr int HISTORY = 8;
  static constexpr int MINUTE = 60;

  struct ST_ENTRY_COUNTS {
    uint64_t m_ulLinesRead = 0;        // whole lines read (empty ones included)
    uint64_t m_ulBytesRead = 0;        // bytes of those lines, line ends included
    uint64_t m_ulLinesMatched = 0;     // lines that passed the line patterns
    uint64_t m_ulLinesPassedOver = 0;  // of those, lines not evaluated (event ceiling)
    uint64_t m_vulEvents[STATUS_KINDS] = {};
    uint64_t m_vulDeferred[DEFER_REASONS] = {};  // turns stopped early, by reason
    uint64_t m_ulLinesDeferred = 0;              // lines those turns left, reached later
    // Previous write: bytes behind, for "falls behind".
    long long m_llPrevBehind = -1;
    time_t m_tMissingSince = 0;  // 0: the file is there
    struct {
      time_t m_tAt = 0;
      uint64_t m_ulEvents = 0;
      uint64_t m_ulPassedOver = 0;
      uint64_t m_ulBytes = 0;
    } m_vstHistory[HISTORY];
    int m_nHistory = 0;
  };

  static bool fValid(int l_nIndx) { return l_nIndx >= 1 && l_nIndx <= MAX_WATCHED_LOGS; }

  // One entry's line of figures at a write.
  struct ST_ROW {
    int m_nIndx = 0;
    std::string m_strLabels;  // entry="03",file="..."
    long long m_llSize = 0, m_llBehind = 0;
    double m_dRate = 0;
    uint64_t m_ulEventsMinute = 0, m_ulPassedOverMinute = 0;
    long m_lLastTurn = 0;
    bool m_bMissing = false, m_bFalling = false;
  };
  // The entries' figures now (a status query of each file), with the
  // last-minute history moved on.
  std::vector<ST_ROW> fRows(CColumnLogger& l_clLogger, time_t l_tNow);
  std::string fFormat(const std::vector<ST_ROW>& l_vstRows, time_t l_tNow);
  // A hash of every figure but the clock-like ones (cycles run, times).
  uint64_t fSignature(const std::vector<ST_ROW>& l_vstRows) const;

  // A file whose figures did not change is written again after this long.
  static constexpr int UNCHANGED_REWRITE_SECONDS = 60;
  uint64_t m_ulLastSignature = 0;
  time_t m_tLastFull = 0;  // time of the last write of the whole file

  std::string m_strPath;
  time_t m_tStart;
  time_t m_tLastWrite = 0;
  bool m_bFailing = false;  // the last write failed (its record is written)
  int m_nCurrent = 0;       // entry of the line being evaluated
  int m_nSpool = 0;
  uint64_t m_ulCycles = 0;
  uint64_t m_ulSkippedSpool = 0;
  uint64_t m_ulSkippedTaken = 0;
  uint64_t m_ulReadPauses = 0;
  uint64_t m_ulWriteFailures = 0;
  uint64_t m_ulHandOffFailures = 0;
  ST_ENTRY_COUNTS m_vstEntries[MAX_WATCHED_LOGS + 1];
};

// The agent's status object; null unless STATUS_FILE is set. Owned by the
// entry (ColumnStart), which creates it after the configuration is loaded.
extern CAgentStatus* g_pclAgentStatus;

// Replaces `l_strPath` with `l_strText` atomically: a temporary file
// "<path>.tmp" beside it, written whole with mode 0644 (readable by the
// monitoring system's user whatever the umask), renamed over it. 1 done; -1
// failed, errno set, the temporary file removed.
int fgReplaceStatusFile(const std::string& l_strPath, const std::string& l_strText);

// The collector's status file beside the agent's: "-collect" before the
// ".prom" ending of `l_strAgentPath` ("/x/columnlogs.prom" ->
// "/x/columnlogs-collect.prom"), or "-collect.prom" appended.
std::string fgCollectStatusPath(const std::string& l_strAgentPath);

// A label value of the text format: backslash, double quote and line feed
// escaped, and every byte that is not part of valid UTF-8 replaced by U+FFFD,
// so that any file name gives a valid line.
std::string fgPromLabelValue(const std::string& l_strText);
