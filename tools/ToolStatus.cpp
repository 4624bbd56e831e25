// status [CONFIG]: the agent's status file (STATUS_FILE of CONFIG) as a table
// a person reads at a glance, with plain warnings; exit status 1 while a
// warning stands, so it serves as a health check.
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <map>
#include <string>
#include <vector>

#include "ColumnLogger.h"
#include "ColumnTool.h"
#include "CommonConst.h"
#include "ConfVocabulary.h"

namespace {

// Warnings for a spool this full, and for a status file this old (the agent
// writes it every ten seconds).
constexpr double SPOOL_WARN_SHARE = 0.9;
constexpr long STALE_SECONDS = 30;
const char* const DEFAULT_CONFIG = "/opt/columnlogs/etc/columnlogs.conf";

// One sample line: name{labels} value.
struct ST_SAMPLE {
  std::string m_strName;
  std::map<std::string, std::string> m_mapLabels;
  double m_dValue = 0;
};

// Parses `{a="x",b="y"}` from `l_nPos` (at the brace); false on a malformed set.
bool fParseLabels(const std::string& l_strLine, size_t* l_pnPos, std::map<std::string, std::string>* l_pmapOut) {
  size_t l_nPos = *l_pnPos + 1;
  while (l_nPos < l_strLine.size() && l_strLine[l_nPos] != '}') {
    const size_t l_nEq = l_strLine.find('=', l_nPos);
    if (l_nEq == std::string::npos || l_nEq + 1 >= l_strLine.size() || l_strLine[l_nEq + 1] != '"') return false;
    const std::string l_strKey = l_strLine.substr(l_nPos, l_nEq - l_nPos);
    std::string l_strValue;
    l_nPos = l_nEq + 2;
    for (; l_nPos < l_strLine.size() && l_strLine[l_nPos] != '"'; ++l_nPos) {
      if (l_strLine[l_nPos] == '\\' && l_nPos + 1 < l_strLine.size()) {
        const char l_chNext = l_strLine[++l_nPos];
        l_strValue += l_chNext == 'n' ? '\n' : l_chNext;
      } else {
        l_strValue += l_strLine[l_nPos];
      }
    }
    if (l_nPos >= l_strLine.size()) return false;
    (*l_pmapOut)[l_strKey] = l_strValue;
    ++l_nPos;
    if (l_nPos < l_strLine.size() && l_strLine[l_nPos] == ',') ++l_nPos;
  }
  if (l_nPos >= l_strLine.size()) return false;
  *l_pnPos = l_nPos + 1;
  return true;
}

bool fParseSample(const std::string& l_strLine, ST_SAMPLE* l_pstOut) {
  size_t l_nPos = l_strLine.find_first_of("{ ");
  if (l_nPos == std::string::npos || l_nPos == 0) return false;
  l_pstOut->m_strName = l_strLine.substr(0, l_nPos);
  if (l_strLine[l_nPos] == '{' && !fParseLabels(l_strLine, &l_nPos, &l_pstOut->m_mapLabels)) return false;
  char* l_pstrEnd = nullptr;
  l_pstOut->m_dValue = strtod(l_strLine.c_str() + l_nPos, &l_pstrEnd);
  return l_pstrEnd != l_strLine.c_str() + l_nPos;
}

std::string fTimeText(time_t l_tTime) {
  struct tm l_stTm;
  localtime_r(&l_tTime, &l_stTm);
  char l_strBuf[32];
  strftime(l_strBuf, sizeof(l_strBuf), "%Y-%m-%d %H:%M:%S", &l_stTm);
  return l_strBuf;
}

std::string fBytesText(double l_dBytes) {
  char l_strBuf[32];
  if (l_dBytes < 10 * 1024) snprintf(l_strBuf, sizeof(l_strBuf), "%.0f B", l_dBytes);
  else if (l_dBytes < 10 * 1024 * 1024) snprintf(l_strBuf, sizeof(l_strBuf), "%.0f KiB", l_dBytes / 1024);
  else snprintf(l_strBuf, sizeof(l_strBuf), "%.0f MiB", l_dBytes / (1024 * 1024));
  return l_strBuf;
}

// The configuration beside the tool in an installed tree (bin/../etc/), else
// the package's.
std::string fDefaultConfig() {
  char l_strExe[NAME_BUF_SIZE] = {0};
  const ssize_t l_nLen = readlink("/proc/self/exe", l_strExe, sizeof(l_strExe) - 1);
  if (l_nLen > 0) {
    std::string l_strPath(l_strExe, static_cast<size_t>(l_nLen));
    const size_t l_nSlash = l_strPath.rfind("/bin/");
    if (l_nSlash != std::string::npos) {
      const std::string l_strConf = l_strPath.substr(0, l_nSlash) + "/etc/columnlogs.conf";
      if (access(l_strConf.c_str(), R_OK) == 0) return l_strConf;
    }
  }
  return DEFAULT_CONFIG;
}

struct ST_ENTRY_ROW {
  std::string m_strFile;
  std::map<std::string, double> m_mapValues;  // metric name (less "columnlogs_entry_") -> value
  double m_dEvents = 0;                       // all kinds, since the start
};

}  // namespace

int fgToolStatus(int argc, char** argv) {
  if (argc > 2) {
    fprintf(stderr, "usage: ColumnTool status [CONFIG]\n");
    return TOOL_EXIT_USAGE;
  }
  const std::string l_strConfig = argc == 2 ? argv[1] : fDefaultConfig();
  CColumnLogger l_clLogger;
  fgToolLoad(l_clLogger, l_strConfig.c_str());
  if (l_clLogger.m_pclConfManager == nullptr) {
    fprintf(stderr, "ColumnTool status: cannot read [%s]\n", l_strConfig.c_str());
    return TOOL_EXIT_USAGE;
  }
  const char* l_pstrStatus = l_clLogger.m_pclConfManager->fGetOpt(const_cast<char*>(KEY_STATUS_FILE));
  if (l_pstrStatus == nullptr || l_pstrStatus[0] == '\0') {
    fprintf(stderr, "ColumnTool status: [%s] sets no STATUS_FILE: the agent keeps no status file\n",
            l_strConfig.c_str());
    return TOOL_EXIT_USAGE;
  }
  FILE* l_pstFd = fopen(l_pstrStatus, "re");
  if (l_pstFd == nullptr) {
    fprintf(stderr, "ColumnTool status: cannot read the status file [%s] : %s (is the agent running?)\n",
            l_pstrStatus, strerror(errno));
    return TOOL_EXIT_USAGE;
  }
  std::map<std::string, ST_ENTRY_ROW> l_mapEntries;  // by entry number "01".."19"
  std::map<std::string, double> l_mapAgent;          // agent-wide samples, labels folded into the name
  std::string l_strVersion = "?";
  int l_nBad = 0;
  char l_strLine[8192];
  while (fgets(l_strLine, sizeof(l_strLine), l_pstFd) != nullptr) {
    std::string l_strText = l_strLine;
    if (!l_strText.empty() && l_strText.back() == '\n') l_strText.pop_back();
    if (l_strText.empty() || l_strText[0] == '#') continue;
    ST_SAMPLE l_stSample;
    if (!fParseSample(l_strText, &l_stSample)) {
      ++l_nBad;
      continue;
    }
    const auto l_itEntry = l_stSample.m_mapLabels.find("entry");
    if (l_itEntry != l_stSample.m_mapLabels.end()) {
      ST_ENTRY_ROW& l_stRow = l_mapEntries[l_itEntry->second];
      l_stRow.m_strFile = l_stSample.m_mapLabels["file"];
      const std::string l_strShort = l_stSample.m_strName.substr(strlen("columnlogs_entry_"));
      if (l_strShort == "events_total") l_stRow.m_dEvents += l_stSample.m_dValue;
      else l_stRow.m_mapValues[l_strShort] = l_stSample.m_dValue;
      continue;
    }
    if (l_stSample.m_strName == "columnlogs_build_info") l_strVersion = l_stSample.m_mapLabels["version"];
    std::string l_strName = l_stSample.m_strName;
    for (const auto& [l_strLabel, l_strValue] : l_stSample.m_mapLabels) l_strName += ":" + l_strValue;
    l_mapAgent[l_strName] = l_stSample.m_dValue;
  }
  fclose(l_pstFd);

  const time_t l_tNow = time(nullptr);
  // A quiet agent renews the file's modification time instead of writing it again.
  time_t l_tWritten = static_cast<time_t>(l_mapAgent["columnlogs_status_time_seconds"]);
  struct stat l_stStatus;
  if (stat(l_pstrStatus, &l_stStatus) == 0 && l_stStatus.st_mtime > l_tWritten) l_tWritten = l_stStatus.st_mtime;
  printf("status file %s, written %ld s ago; agent %s running since %s\n", l_pstrStatus,
         static_cast<long>(l_tNow - l_tWritten), l_strVersion.c_str(),
         fTimeText(static_cast<time_t>(l_mapAgent["columnlogs_start_time_seconds"])).c_str());
  int l_nWidth = 4;  // the file column fits the longest name
  for (const auto& l_itEntry : l_mapEntries) l_nWidth = std::max(l_nWidth, static_cast<int>(l_itEntry.second.m_strFile.size()));
  printf("%-5s %-*s %10s %12s %10s %s\n", "ENTRY", l_nWidth, "FILE", "BEHIND", "BEHIND (s)", "EVENTS/MIN", "LAST TURN");
  std::vector<std::string> l_vstrWarnings;
  for (auto& [l_strEntry, l_stRow] : l_mapEntries) {
    auto& l_mapV = l_stRow.m_mapValues;
    const bool l_bMissing = l_mapV["file_missing"] != 0;
    const double l_dBehind = l_mapV["bytes_behind"];
    const double l_dRate = l_mapV["read_bytes_per_second"];
    char l_strSeconds[32];
    if (l_bMissing) snprintf(l_strSeconds, sizeof(l_strSeconds), "-");
    else if (l_dBehind <= 0) snprintf(l_strSeconds, sizeof(l_strSeconds), "0");
    else if (l_dRate <= 0) snprintf(l_strSeconds, sizeof(l_strSeconds), "not reading");
    else snprintf(l_strSeconds, sizeof(l_strSeconds), "%.0f", l_dBehind / l_dRate);
    const double l_dTurn = l_mapV["last_turn_timestamp_seconds"];
    char l_strTurn[32];
    if (l_dTurn <= 0) snprintf(l_strTurn, sizeof(l_strTurn), "never");
    else snprintf(l_strTurn, sizeof(l_strTurn), "%ld s ago", static_cast<long>(l_tNow - static_cast<time_t>(l_dTurn)));
    printf("%-5s %-*s %10s %12s %10.0f %s\n", ("LOG" + l_strEntry).c_str(), l_nWidth, l_stRow.m_strFile.c_str(),
           l_bMissing ? "missing" : fBytesText(l_dBehind).c_str(), l_strSeconds, l_mapV["events_last_minute"], l_strTurn);
    const std::string l_strWho = "LOG" + l_strEntry + ": ";
    if (l_mapV["falling_behind"] != 0) {
      l_vstrWarnings.push_back(l_strWho + "falls behind: the log grows faster than the read budget (" +
                               fBytesText(l_dBehind) + " behind)");
    }
    if (l_bMissing) {
      l_vstrWarnings.push_back(l_strWho + "file missing since " +
                               fTimeText(static_cast<time_t>(l_mapV["file_missing_since_timestamp_seconds"])));
    }
    if (l_mapV["lines_passed_over_last_minute"] > 0) {
      l_vstrWarnings.push_back(l_strWho + "events passed over by the ceiling (" +
                               std::to_string(static_cast<long>(l_mapV["lines_passed_over_last_minute"])) +
                               " lines in the last minute not evaluated)");
    }
  }
  const int l_nSpool = static_cast<int>(l_mapAgent["columnlogs_spool_entries"]);
  const int l_nLimit = l_mapAgent.count("columnlogs_spool_limit") ? static_cast<int>(l_mapAgent["columnlogs_spool_limit"])
                                                                   : OUTPUT_BACKLOG_LIMIT;
  printf("spool %d of %d entries; cycles %.0f, skipped %.0f (spool full) and %.0f (out_ name taken); read pauses %.0f\n",
         l_nSpool, l_nLimit, l_mapAgent["columnlogs_cycles_total"], l_mapAgent["columnlogs_cycles_skipped_total:spool_full"],
         l_mapAgent["columnlogs_cycles_skipped_total:out_name_taken"], l_mapAgent["columnlogs_read_pauses_total"]);
  if (l_nSpool >= static_cast<int>(SPOOL_WARN_SHARE * l_nLimit)) {
    l_vstrWarnings.push_back("spool at " + std::to_string(l_nSpool) + " of " + std::to_string(l_nLimit) +
                             (l_nSpool >= l_nLimit ? ": gathering has stopped until the collector takes some"
                                                   : ": gathering stops at " + std::to_string(l_nLimit)));
  }
  if (l_mapAgent["columnlogs_event_write_failures_total"] > 0) {
    l_vstrWarnings.push_back("event writes failed " +
                             std::to_string(static_cast<long>(l_mapAgent["columnlogs_event_write_failures_total"])) +
                             " times since the start: check the output directory");
  }
  if (l_mapAgent["columnlogs_handoff_failures_total"] > 0) {
    l_vstrWarnings.push_back("hand-offs failed " +
                             std::to_string(static_cast<long>(l_mapAgent["columnlogs_handoff_failures_total"])) +
                             " times since the start: ing_ files stay behind");
  }
  if (l_tNow - l_tWritten > STALE_SECONDS) {
    l_vstrWarnings.push_back("the status file is " + std::to_string(static_cast<long>(l_tNow - l_tWritten)) +
                             " s old: the agent is not running, or a cycle is stuck");
  }
  if (l_nBad > 0) l_vstrWarnings.push_back(std::to_string(l_nBad) + " line(s) of the status file could not be read");
  if (l_vstrWarnings.empty()) {
    printf("no warnings\n");
    return TOOL_EXIT_OK;
  }
  printf("warnings:\n");
  for (const std::string& l_strWarning : l_vstrWarnings) printf("  %s\n", l_strWarning.c_str());
  return TOOL_EXIT_PROBLEMS;
}
