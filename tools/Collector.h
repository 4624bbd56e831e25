// ColumnTool collect CONFIG: ships the agent's event files to COLLECT_TO and
// keeps the event directory (OUTPUT_PATH) empty.
//
// Delivery is at least once:
//  - a file is removed only after every line of it was delivered (jsonl:
//    written and fsync'ed; tcp: acknowledged by the peer; udp and unix: sent);
//  - when the destination fails part-way through a file, the delivered lines
//    are taken out of it (the rest is written to a temporary file that is
//    renamed over it), so a retry sends only what was not delivered;
//  - SIGTERM or SIGINT ends the collector between two files (or during a
//    retry pause): nothing is sent twice. After SIGKILL the file in progress
//    is sent again whole, at most.
// While the destination is down the files stay, the collector retries after
// 1, 2, 4, ... up to 30 seconds, and writes one line on standard error when
// it goes down and one when it is back (not one per try).
// New files are noticed through inotify (a poll every second where inotify
// is not available); the directory is also listed once a minute.
#pragma once

#include <csignal>
#include <ctime>
#include <memory>
#include <string>
#include <vector>

#include "CollectEvent.h"
#include "CollectSpool.h"
#include "CollectTarget.h"

// Longest pause between two tries while the destination is down.
constexpr int COLLECT_RETRY_MAX_SECONDS = 30;
// The directory is listed at least this often, whatever inotify says.
constexpr int COLLECT_RESCAN_SECONDS = 60;

// What one run has done so far (for the end line and the tests' reading).
struct ST_COLLECT_COUNTS {
  long m_lFiles = 0;     // event files delivered and removed
  long m_lEvents = 0;    // lines delivered
  long m_lUnparsed = 0;  // of them, delivered unparsed
  long m_lRetries = 0;   // tries that found the destination down
};

// The collector's own status file (the configuration's STATUS_FILE with
// "-collect" before ".prom"), in the agent's format: events and files
// delivered, retries, the destination up or down, the waiting files and the
// age of the oldest. Written at most every ten seconds and at a stop.
constexpr int COLLECT_STATUS_SECONDS = 10;

class CCollector {
 public:
  // `l_strDir` is OUTPUT_PATH (ending with "/"); the target is owned.
  CCollector(const std::string& l_strDir, std::unique_ptr<CCollectTarget> l_pclTarget, const std::string& l_strTo);
  ~CCollector();
  CCollector(const CCollector&) = delete;
  CCollector& operator=(const CCollector&) = delete;

  // Runs until SIGTERM or SIGINT. Returns 0.
  int fRun();
  // Keep a status file at `l_strPath` (empty: none).
  void fSetStatusFile(const std::string& l_strPath) { m_strStatusFile = l_strPath; }
  // Writes the status file now. 1 written, -1 failed (one message per change).
  int fWriteStatus(time_t l_tNow);

  // Collects what is due now, once: every file the plan takes, until the
  // destination fails. Returns 1 when all were delivered, -1 when the
  // destination failed, 0 when the directory cannot be listed.
  int fCollectOnce();

  const ST_COLLECT_COUNTS& fCounts() const { return m_stCounts; }

 private:
  int fCollectFile(const std::string& l_strName);
  int fKeepRest(const std::string& l_strName, const std::string& l_strText, size_t l_nRestAt);
  void fWait(int l_nSeconds);
  void fWatch();
  void fNote(const char* l_pstrFormat, ...) __attribute__((format(printf, 2, 3)));

  std::string m_strDir;
  std::string m_strTo;
  std::unique_ptr<CCollectTarget> m_pclTarget;
  std::string m_strHost;
  ST_COLLECT_COUNTS m_stCounts;
  int m_nInotify = -1;
  int m_nWatch = -1;
  bool m_bDown = false;        // the destination failed at the last try
  bool m_bSpoolGone = false;   // the directory could not be listed at the last try
  time_t m_tDownSince = 0;
  int m_nRetrySeconds = 1;
  int m_nForeign = 0;          // entries left alone, as last reported
  time_t m_tRecheck = 0;       // when a waiting "ing_" file is due
  std::vector<std::string> m_vstrUnreadable;  // event files reported as unreadable
  std::vector<std::string> m_vstrStuck;       // delivered files that could not be removed
  std::string m_strText;  // the file being collected; kept between files so its pages stay mapped
  std::string m_strStatusFile;
  time_t m_tStatusWritten = 0;
  bool m_bStatusFailing = false;
  size_t m_nWaiting = 0;       // event files the last plan took
  time_t m_tOldestWaiting = 0; // modification time of the oldest of them (0: none)
};

// The subcommand: reads OUTPUT_PATH and COLLECT_TO from CONFIG and runs.
int fgToolCollect(int argc, char** argv);
