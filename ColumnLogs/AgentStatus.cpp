// The status file: counters of the gather cycle and the state of every entry
// in the Prometheus text exposition format, replaced atomically.
#include "AgentStatus.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <charconv>
#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <vector>

#include "ColumnLogger.h"
#include "CommonFunc.h"
#include "OmniLog.h"

CAgentStatus* g_pclAgentStatus = nullptr;

namespace {

// Readable by the monitoring system's user whatever the agent's umask.
constexpr mode_t STATUS_FILE_MODE = 0644;

const char* const KIND_LABELS[STATUS_KINDS] = {",kind=\"numeric\"", ",kind=\"text\"", ",kind=\"line_rate\""};
const char* const DEFER_LABELS[DEFER_REASONS] = {",reason=\"ceiling\"", ",reason=\"write_failed\""};

// Length of the UTF-8 sequence starting at `l_pstrText[l_nPos]`, 0 when it is not valid.
size_t fUtf8Length(const std::string& l_strText, size_t l_nPos) {
  const unsigned char l_ucLead = static_cast<unsigned char>(l_strText[l_nPos]);
  size_t l_nLen = 0;
  unsigned l_uMin = 0;
  if (l_ucLead < 0x80) return 1;
  if ((l_ucLead & 0xE0) == 0xC0) l_nLen = 2, l_uMin = 0x80;
  else if ((l_ucLead & 0xF0) == 0xE0) l_nLen = 3, l_uMin = 0x800;
  else if ((l_ucLead & 0xF8) == 0xF0) l_nLen = 4, l_uMin = 0x10000;
  else return 0;
  if (l_nPos + l_nLen > l_strText.size()) return 0;
  unsigned l_uCode = l_ucLead & (0x7F >> l_nLen);
  for (size_t l_nByte = 1; l_nByte < l_nLen; ++l_nByte) {
    const unsigned char l_ucNext = static_cast<unsigned char>(l_strText[l_nPos + l_nByte]);
    if ((l_ucNext & 0xC0) != 0x80) return 0;
    l_uCode = (l_uCode << 6) | (l_ucNext & 0x3F);
  }
  if (l_uCode < l_uMin || l_uCode > 0x10FFFF || (l_uCode >= 0xD800 && l_uCode <= 0xDFFF)) return 0;
  return l_nLen;
}

// Appends one formatted piece to the file's text.
void fAdd(std::string& l_strOut, const char* l_pstrFormat, ...) __attribute__((format(printf, 2, 3)));
void fAdd(std::string& l_strOut, const char* l_pstrFormat, ...) {
  char l_strBuf[1024];
  va_list l_vaArgs;
  va_start(l_vaArgs, l_pstrFormat);
  const int l_nLen = vsnprintf(l_strBuf, sizeof(l_strBuf), l_pstrFormat, l_vaArgs);
  va_end(l_vaArgs);
  if (l_nLen > 0) l_strOut.append(l_strBuf, std::min(static_cast<size_t>(l_nLen), sizeof(l_strBuf) - 1));
}

// One sample line: name{labels[,extra]} value.
template <typename T>
void fSample(std::string& l_strOut, const char* l_pstrName, const std::string& l_strLabels, const char* l_pstrExtra,
             T l_tValue) {
  char l_strNumber[24];
  const auto l_stResult = std::to_chars(l_strNumber, l_strNumber + sizeof(l_strNumber), l_tValue);
  l_strOut += l_pstrName;
  l_strOut += '{';
  l_strOut += l_strLabels;
  l_strOut += l_pstrExtra;
  l_strOut += "} ";
  l_strOut.append(l_strNumber, l_stResult.ptr);
  l_strOut += '\n';
}

void fHeader(std::string& l_strOut, const char* l_pstrName, const char* l_pstrType, const char* l_pstrHelp) {
  fAdd(l_strOut, "# HELP %s %s\n# TYPE %s %s\n", l_pstrName, l_pstrHelp, l_pstrName, l_pstrType);
}

// What an entry's name means now: the dated name, or for a wildcard name the
// file its last turn read (the pattern itself before any match).
std::string fResolvedName(CColumnLogger& l_clLogger, ST_LOGFILE_INFO* l_pstLog) {
  if (l_pstLog->m_chCreateType == 0 && l_pstLog->m_strLogingFile[0] != '\0') return l_pstLog->m_strLogingFile;
  char l_strName[NAME_BUF_SIZE] = {0};
  if (l_clLogger.fLogFileNameConvert(l_pstLog->m_strLogFile, l_pstLog->m_chCreateType, l_strName) != 1)
    return l_pstLog->m_strLogFile;
  return l_strName;
}


}  // namespace

int fgReplaceStatusFile(const std::string& l_strPath, const std::string& l_strText) {
  return fgReplaceFile(l_strPath.c_str(), l_strText.data(), l_strText.size(), STATUS_FILE_MODE, false);
}

std::string fgCollectStatusPath(const std::string& l_strAgentPath) {
  const std::string l_strEnd = ".prom";
  if (l_strAgentPath.size() > l_strEnd.size() &&
      l_strAgentPath.compare(l_strAgentPath.size() - l_strEnd.size(), l_strEnd.size(), l_strEnd) == 0)
    return l_strAgentPath.substr(0, l_strAgentPath.size() - l_strEnd.size()) + "-collect" + l_strEnd;
  return l_strAgentPath + "-collect.prom";
}

std::string fgPromLabelValue(const std::string& l_strText) {
  std::string l_strOut;
  l_strOut.reserve(l_strText.size());
  for (size_t l_nPos = 0; l_nPos < l_strText.size();) {
    const char l_chChar = l_strText[l_nPos];
    if (l_chChar == '\\' || l_chChar == '"') {
      l_strOut += '\\', l_strOut += l_chChar, ++l_nPos;
    } else if (l_chChar == '\n') {
      l_strOut += "\\n", ++l_nPos;
    } else if (const size_t l_nLen = fUtf8Length(l_strText, l_nPos)) {
      l_strOut.append(l_strText, l_nPos, l_nLen), l_nPos += l_nLen;
    } else {
      l_strOut += "\xEF\xBF\xBD", ++l_nPos;
    }
  }
  return l_strOut;
}

CAgentStatus::CAgentStatus(const char* l_pstrPath, time_t l_tStart) : m_strPath(l_pstrPath), m_tStart(l_tStart) {
  // The first minute is measured from the start, when every count was 0.
  for (ST_ENTRY_COUNTS& l_stCounts : m_vstEntries) {
    l_stCounts.m_vstHistory[0].m_tAt = l_tStart;
    l_stCounts.m_nHistory = 1;
  }
}

std::vector<CAgentStatus::ST_ROW> CAgentStatus::fRows(CColumnLogger& l_clLogger, time_t l_tNow) {
  std::vector<ST_ROW> l_vstRows;
  // By entry number, which is registry order, without the registry's cursor.
  for (int l_nIndx = 1; l_nIndx <= MAX_WATCHED_LOGS; ++l_nIndx) {
    ST_LOGFILE_INFO* l_pstLog = l_clLogger.m_pclLogFileList->fGetNode(l_nIndx);
    if (l_pstLog == nullptr) continue;
    ST_ENTRY_COUNTS& l_stCounts = m_vstEntries[l_pstLog->m_nIndx];
    ST_ROW l_stRow{};
    l_stRow.m_nIndx = l_pstLog->m_nIndx;
    const std::string l_strFile = fResolvedName(l_clLogger, l_pstLog);
    char l_strEntry[8];
    snprintf(l_strEntry, sizeof(l_strEntry), "%02d", l_pstLog->m_nIndx);
    l_stRow.m_strLabels = std::string("entry=\"") + l_strEntry + "\",file=\"" + fgPromLabelValue(l_strFile) + "\"";
    struct stat l_stStat;
    l_stRow.m_bMissing = stat(l_strFile.c_str(), &l_stStat) != 0 || !S_ISREG(l_stStat.st_mode);
    if (l_stRow.m_bMissing) {
      if (l_stCounts.m_tMissingSince == 0) l_stCounts.m_tMissingSince = l_tNow;
    } else {
      l_stCounts.m_tMissingSince = 0;
      l_stRow.m_llSize = static_cast<long long>(l_stStat.st_size);
      // A file the entry has not read yet (a new name) is behind by all of it.
      const bool l_bSameFile = strcmp(l_strFile.c_str(), l_pstLog->m_strLogingFile) == 0;
      const long long l_llOffset = l_bSameFile ? l_pstLog->m_lOffSet : 0;
      l_stRow.m_llBehind = l_stRow.m_llSize > l_llOffset ? l_stRow.m_llSize - l_llOffset : 0;
    }
    l_stRow.m_bFalling = l_stRow.m_llBehind > 0 && l_stCounts.m_llPrevBehind > 0 &&
                         l_stRow.m_llBehind > l_stCounts.m_llPrevBehind;
    l_stCounts.m_llPrevBehind = l_stRow.m_llBehind;
    l_stRow.m_lLastTurn = l_pstLog->m_lLastGatherTime;

    // The last minute, from the oldest snapshot not older than a minute.
    uint64_t l_ulEvents = 0;
    for (uint64_t l_ulKind : l_stCounts.m_vulEvents) l_ulEvents += l_ulKind;
    int l_nKeep = 0;
    for (int l_nAt = 0; l_nAt < l_stCounts.m_nHistory; ++l_nAt) {
      if (l_tNow - l_stCounts.m_vstHistory[l_nAt].m_tAt > MINUTE || l_tNow < l_stCounts.m_vstHistory[l_nAt].m_tAt) continue;
      l_stCounts.m_vstHistory[l_nKeep++] = l_stCounts.m_vstHistory[l_nAt];
    }
    if (l_nKeep > 0) {
      const auto& l_stOldest = l_stCounts.m_vstHistory[0];
      l_stRow.m_ulEventsMinute = l_ulEvents - l_stOldest.m_ulEvents;
      l_stRow.m_ulPassedOverMinute = l_stCounts.m_ulLinesPassedOver - l_stOldest.m_ulPassedOver;
      if (l_tNow > l_stOldest.m_tAt) {
        l_stRow.m_dRate = static_cast<double>(l_stCounts.m_ulBytesRead - l_stOldest.m_ulBytes) /
                          static_cast<double>(l_tNow - l_stOldest.m_tAt);
      }
    } else {
      l_stRow.m_ulEventsMinute = l_ulEvents;
      l_stRow.m_ulPassedOverMinute = l_stCounts.m_ulLinesPassedOver;
    }
    if (l_nKeep == HISTORY) {
      for (int l_nAt = 1; l_nAt < HISTORY; ++l_nAt) l_stCounts.m_vstHistory[l_nAt - 1] = l_stCounts.m_vstHistory[l_nAt];
      --l_nKeep;
    }
    l_stCounts.m_vstHistory[l_nKeep] = {l_tNow, l_ulEvents, l_stCounts.m_ulLinesPassedOver, l_stCounts.m_ulBytesRead};
    l_stCounts.m_nHistory = l_nKeep + 1;
    l_vstRows.push_back(l_stRow);
  }
  return l_vstRows;
}

uint64_t CAgentStatus::fSignature(const std::vector<ST_ROW>& l_vstRows) const {
  uint64_t l_ulHash = 1469598103934665603ULL;  // FNV-1a over the figures
  auto l_fMix = [&](uint64_t l_ulValue) {
    for (int l_nByte = 0; l_nByte < 8; ++l_nByte, l_ulValue >>= 8) l_ulHash = (l_ulHash ^ (l_ulValue & 0xFF)) * 1099511628211ULL;
  };
  for (const ST_ROW& l_stRow : l_vstRows) {
    for (const char l_chChar : l_stRow.m_strLabels) l_fMix(static_cast<unsigned char>(l_chChar));
    const ST_ENTRY_COUNTS& l_stCounts = m_vstEntries[l_stRow.m_nIndx];
    for (uint64_t l_ulValue : {static_cast<uint64_t>(l_stRow.m_llSize), static_cast<uint64_t>(l_stRow.m_llBehind),
                               static_cast<uint64_t>(l_stRow.m_dRate), l_stRow.m_ulEventsMinute,
                               l_stRow.m_ulPassedOverMinute, static_cast<uint64_t>(l_stRow.m_bMissing),
                               static_cast<uint64_t>(l_stRow.m_bFalling), l_stCounts.m_ulLinesRead,
                               l_stCounts.m_ulLinesMatched, l_stCounts.m_ulLinesPassedOver, l_stCounts.m_ulLinesDeferred})
      l_fMix(l_ulValue);
    for (uint64_t l_ulValue : l_stCounts.m_vulEvents) l_fMix(l_ulValue);
    for (uint64_t l_ulValue : l_stCounts.m_vulDeferred) l_fMix(l_ulValue);
  }
  for (uint64_t l_ulValue : {m_ulSkippedSpool, m_ulSkippedTaken, static_cast<uint64_t>(m_nSpool), m_ulReadPauses,
                             m_ulWriteFailures, m_ulHandOffFailures})
    l_fMix(l_ulValue);
  return l_ulHash;
}

std::string CAgentStatus::fFormat(const std::vector<ST_ROW>& l_vstRows, time_t l_tNow) {

  // Built by appends (no formatting per line): this runs every ten seconds.
  std::string l_strOut;
  l_strOut.reserve(32768);
  auto l_fGauge = [&](const char* l_pstrName, const char* l_pstrHelp, auto l_fValue) {
    fHeader(l_strOut, l_pstrName, "gauge", l_pstrHelp);
    for (const ST_ROW& l_stRow : l_vstRows) fSample(l_strOut, l_pstrName, l_stRow.m_strLabels, "", l_fValue(l_stRow));
  };
  auto l_fCounter = [&](const char* l_pstrName, const char* l_pstrHelp, uint64_t ST_ENTRY_COUNTS::*l_pulField) {
    fHeader(l_strOut, l_pstrName, "counter", l_pstrHelp);
    for (const ST_ROW& l_stRow : l_vstRows)
      fSample(l_strOut, l_pstrName, l_stRow.m_strLabels, "", m_vstEntries[l_stRow.m_nIndx].*l_pulField);
  };
  using R = const ST_ROW&;
  l_fGauge("columnlogs_entry_bytes_behind", "Bytes of the watched file not read yet (its size less the entry's offset).",
           [](R r) { return r.m_llBehind; });
  l_fGauge("columnlogs_entry_file_size_bytes", "Size of the watched file (0 while it is missing).",
           [](R r) { return r.m_llSize; });
  fHeader(l_strOut, "columnlogs_entry_read_bytes_per_second", "gauge", "Bytes read per second over the last minute.");
  for (R r : l_vstRows) {
    char l_strRate[32];
    snprintf(l_strRate, sizeof(l_strRate), "%.1f", r.m_dRate);
    l_strOut += "columnlogs_entry_read_bytes_per_second{" + r.m_strLabels + "} " + l_strRate + "\n";
  }
  l_fGauge("columnlogs_entry_falling_behind",
           "1 when the bytes behind grew since the last report: the log grows faster than the read budget.",
           [](R r) { return r.m_bFalling ? 1LL : 0LL; });
  l_fCounter("columnlogs_entry_lines_read_total", "Whole lines read from the watched file.", &ST_ENTRY_COUNTS::m_ulLinesRead);
  l_fCounter("columnlogs_entry_bytes_read_total", "Bytes of the whole lines read, line ends included.",
             &ST_ENTRY_COUNTS::m_ulBytesRead);
  l_fCounter("columnlogs_entry_lines_matched_total", "Lines that passed the entry's line patterns.",
             &ST_ENTRY_COUNTS::m_ulLinesMatched);
  l_fCounter("columnlogs_entry_lines_passed_over_total",
             "Lines that passed the line patterns but were not evaluated: the turn had written more than 100 events.",
             &ST_ENTRY_COUNTS::m_ulLinesPassedOver);
  fHeader(l_strOut, "columnlogs_entry_events_total", "counter", "Events fired, by kind (numeric, text and line-rate rules).");
  for (R r : l_vstRows) {
    for (int l_nKind = 0; l_nKind < STATUS_KINDS; ++l_nKind) {
      fSample(l_strOut, "columnlogs_entry_events_total", r.m_strLabels, KIND_LABELS[l_nKind],
              m_vstEntries[r.m_nIndx].m_vulEvents[l_nKind]);
    }
  }
  fHeader(l_strOut, "columnlogs_entry_deferred_turns_total", "counter",
          "Turns that stopped early and left the rest of the log for the next cycle (DEFER_EVENTS): at the event "
          "ceiling, or because events could not be written.");
  for (R r : l_vstRows) {
    for (int l_nReason = 0; l_nReason < DEFER_REASONS; ++l_nReason) {
      fSample(l_strOut, "columnlogs_entry_deferred_turns_total", r.m_strLabels, DEFER_LABELS[l_nReason],
              m_vstEntries[r.m_nIndx].m_vulDeferred[l_nReason]);
    }
  }
  l_fCounter("columnlogs_entry_deferred_lines_total",
             "Lines that a turn stopped early left for a later cycle (DEFER_EVENTS), counted when a later turn reads "
             "them: delayed, not lost.",
             &ST_ENTRY_COUNTS::m_ulLinesDeferred);
  l_fGauge("columnlogs_entry_events_last_minute", "Events fired in the last minute.",
           [](R r) { return r.m_ulEventsMinute; });
  l_fGauge("columnlogs_entry_lines_passed_over_last_minute", "Lines passed over by the event ceiling in the last minute.",
           [](R r) { return r.m_ulPassedOverMinute; });
  l_fGauge("columnlogs_entry_last_turn_timestamp_seconds", "Time of the entry's last turn (0: none yet).",
           [](R r) { return static_cast<long long>(r.m_lLastTurn); });
  l_fGauge("columnlogs_entry_file_missing", "1 while the file the entry names is missing (the entry waits for it).",
           [](R r) { return r.m_bMissing ? 1LL : 0LL; });
  l_fGauge("columnlogs_entry_file_missing_since_timestamp_seconds", "Since when the file is missing (0: it is there).",
           [&](R r) { return static_cast<long long>(m_vstEntries[r.m_nIndx].m_tMissingSince); });

  fHeader(l_strOut, "columnlogs_cycles_total", "counter", "Gather cycles run.");
  fAdd(l_strOut, "columnlogs_cycles_total %llu\n", static_cast<unsigned long long>(m_ulCycles));
  fHeader(l_strOut, "columnlogs_cycles_skipped_total", "counter",
          "Gather cycles skipped: the spool held 200 entries, or the cycle's out_ name still waited for the collector.");
  fAdd(l_strOut, "columnlogs_cycles_skipped_total{reason=\"spool_full\"} %llu\n", static_cast<unsigned long long>(m_ulSkippedSpool));
  fAdd(l_strOut, "columnlogs_cycles_skipped_total{reason=\"out_name_taken\"} %llu\n", static_cast<unsigned long long>(m_ulSkippedTaken));
  fHeader(l_strOut, "columnlogs_spool_entries", "gauge", "Entries in the output directory at the last cycle's start.");
  fAdd(l_strOut, "columnlogs_spool_entries %d\n", m_nSpool);
  fHeader(l_strOut, "columnlogs_spool_limit", "gauge", "Entries in the output directory at which no cycle runs.");
  fAdd(l_strOut, "columnlogs_spool_limit %d\n", OUTPUT_BACKLOG_LIMIT);
  fHeader(l_strOut, "columnlogs_read_pauses_total", "counter", "Pauses of 200 ms after 800 pieces read in one turn.");
  fAdd(l_strOut, "columnlogs_read_pauses_total %llu\n", static_cast<unsigned long long>(m_ulReadPauses));
  fHeader(l_strOut, "columnlogs_event_write_failures_total", "counter", "Writes of events to the event file that failed.");
  fAdd(l_strOut, "columnlogs_event_write_failures_total %llu\n", static_cast<unsigned long long>(m_ulWriteFailures));
  fHeader(l_strOut, "columnlogs_handoff_failures_total", "counter", "Renames of an ing_ file to its out_ name that failed.");
  fAdd(l_strOut, "columnlogs_handoff_failures_total %llu\n", static_cast<unsigned long long>(m_ulHandOffFailures));
  fHeader(l_strOut, "columnlogs_start_time_seconds", "gauge", "Start time of the agent.");
  fAdd(l_strOut, "columnlogs_start_time_seconds %ld\n", static_cast<long>(m_tStart));
  fHeader(l_strOut, "columnlogs_status_time_seconds", "gauge", "Time this file was written.");
  fAdd(l_strOut, "columnlogs_status_time_seconds %ld\n", static_cast<long>(l_tNow));
  fHeader(l_strOut, "columnlogs_build_info", "gauge", "Version of the agent.");
  fAdd(l_strOut, "columnlogs_build_info{version=\"%s\"} 1\n", COLUMNLOGS_VERSION);
  return l_strOut;
}

int CAgentStatus::fWrite(CColumnLogger& l_clLogger, time_t l_tNow, bool l_bWhole) {
  m_tLastWrite = l_tNow;
  const std::vector<ST_ROW> l_vstRows = fRows(l_clLogger, l_tNow);
  // Unchanged figures (the clock-like ones aside: cycles run, turn and write
  // times) are not written again within a minute: the file's modification
  // time is renewed instead, which is what a rename of a new file would cost
  // a quiet agent many times over.
  const uint64_t l_ulSignature = fSignature(l_vstRows);
  if (!l_bWhole && !m_bFailing && l_ulSignature == m_ulLastSignature && l_tNow >= m_tLastFull &&
      l_tNow - m_tLastFull < UNCHANGED_REWRITE_SECONDS && utimensat(AT_FDCWD, m_strPath.c_str(), nullptr, 0) == 0)
    return RESULT_OK;
  m_ulLastSignature = l_ulSignature;
  m_tLastFull = l_tNow;
  const std::string l_strText = fFormat(l_vstRows, l_tNow);
  bool l_bOk = fgReplaceStatusFile(m_strPath, l_strText) == RESULT_OK;
  if (!l_bOk) {
    const int l_nErrno = errno;
    if (!m_bFailing) {
      fgLogErrno(LOG_GRADE_INFO, LOG_CODE_GATHER, l_nErrno, "%s status file write failed", m_strPath.c_str());
    }
    m_bFailing = true;
    return RESULT_FAIL;
  }
  if (m_bFailing) fgLogRecord(LOG_GRADE_INFO, LOG_CODE_GATHER, "%s status file written again", m_strPath.c_str());
  m_bFailing = false;
  return RESULT_OK;
}
