// replay CONFIG LOGFILE [ENTRY]: one gather turn of the chosen entries over a
// whole file, through the agent's own line filter and column evaluation,
// without the read throttle. Events are written by the agent's own event
// output into a temporary file, which is then shown.
#include <fnmatch.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <string>
#include <vector>

#include "ColumnLogger.h"
#include "ColumnTool.h"
#include "CommonConst.h"
#include "CommonFunc.h"
#include "Notation.h"

namespace {

const char* const REPLAY_USAGE =
    "usage: ColumnTool replay [--raw] [--all] CONFIG LOGFILE [ENTRY]\n"
    "  ENTRY   1 to 19, 03 or LOG03; without it, the entries whose name resolves to LOGFILE now\n"
    "  --raw   the exact bytes the agent would write (separators as bytes)\n"
    "  --all   evaluate every line (no ceiling of 100 events per log as in one gather cycle)\n";

// realpath() as a string; empty when the path does not resolve.
std::string fRealPath(const std::string& l_strPath) {
  std::unique_ptr<char, decltype(&free)> l_pstrReal(realpath(l_strPath.c_str(), nullptr), free);
  return l_pstrReal != nullptr ? std::string(l_pstrReal.get()) : std::string();
}

// Whether the entry's configured name, resolved now as the gather cycle
// resolves it, names `l_strRealLog`: the dated name itself, or for create
// type 0 a name matching the wildcard pattern in the same directory.
bool fWatches(CColumnLogger& l_clLogger, ST_LOGFILE_INFO* l_pstLog, const std::string& l_strRealLog) {
  char l_strResolved[NAME_BUF_SIZE] = {0};
  if (l_clLogger.fLogFileNameConvert(l_pstLog->m_strLogFile, l_pstLog->m_chCreateType, l_strResolved) != 1) return false;
  if (l_pstLog->m_chCreateType != 0) return fRealPath(l_strResolved) == l_strRealLog;
  const std::string l_strResolvedPath = l_strResolved;
  const size_t l_nSlash = l_strResolvedPath.rfind('/');
  const size_t l_nLogSlash = l_strRealLog.rfind('/');
  if (l_nSlash == std::string::npos || l_nLogSlash == std::string::npos) return false;
  const std::string l_strName = l_strRealLog.substr(l_nLogSlash + 1);
  if (l_strName.empty() || l_strName[0] == '.') return false;
  return fRealPath(l_strResolvedPath.substr(0, l_nSlash + 1)) == l_strRealLog.substr(0, l_nLogSlash == 0 ? 1 : l_nLogSlash) &&
         fnmatch(l_strResolvedPath.substr(l_nSlash + 1).c_str(), l_strName.c_str(), 0) == 0;
}

// "3", "03" or "LOG03"; 0 when it is none of them.
int fParseEntry(const char* l_pstrText) {
  if (strncmp(l_pstrText, "LOG", 3) == 0) l_pstrText += 3;
  if (*l_pstrText == '\0') return 0;
  char* l_pstrEnd = nullptr;
  const long l_lIndx = strtol(l_pstrText, &l_pstrEnd, 10);
  if (*l_pstrEnd != '\0' || l_lIndx < 1 || l_lIndx > MAX_WATCHED_LOGS) return 0;
  return static_cast<int>(l_lIndx);
}

// The temporary event file, removed on every way out.
class TempEventFile {
 public:
  TempEventFile() {
    const char* l_pstrDir = getenv("TMPDIR");
    m_strPath = std::string(l_pstrDir != nullptr && *l_pstrDir != '\0' ? l_pstrDir : "/tmp") + "/ColumnTool-replay-XXXXXX";
    const int l_nFd = mkstemp(&m_strPath[0]);
    if (l_nFd < 0) {
      m_strPath.clear();
      return;
    }
    close(l_nFd);
  }
  ~TempEventFile() {
    if (!m_strPath.empty()) unlink(m_strPath.c_str());
  }
  TempEventFile(const TempEventFile&) = delete;
  TempEventFile& operator=(const TempEventFile&) = delete;
  const std::string& Path() const { return m_strPath; }

 private:
  std::string m_strPath;
};

}  // namespace

int fgToolReplay(int argc, char** argv) {
  bool l_bRaw = false;
  bool l_bAll = false;
  std::vector<const char*> l_vpstrArgs;
  for (int l_nArg = 1; l_nArg < argc; ++l_nArg) {
    if (strcmp(argv[l_nArg], "--raw") == 0) {
      l_bRaw = true;
    } else if (strcmp(argv[l_nArg], "--all") == 0) {
      l_bAll = true;
    } else {
      l_vpstrArgs.push_back(argv[l_nArg]);
    }
  }
  if (l_vpstrArgs.size() < 2 || l_vpstrArgs.size() > 3) {
    fprintf(stderr, "%s", REPLAY_USAGE);
    return TOOL_EXIT_USAGE;
  }
  const char* l_pstrConfig = l_vpstrArgs[0];
  const std::string l_strLogFile = l_vpstrArgs[1];
  int l_nEntry = 0;
  if (l_vpstrArgs.size() == 3 && (l_nEntry = fParseEntry(l_vpstrArgs[2])) == 0) {
    fprintf(stderr, "ColumnTool replay: [%s] is not an entry number 1 to 19\n", l_vpstrArgs[2]);
    return TOOL_EXIT_USAGE;
  }

  CColumnLogger l_clLogger;
  const ST_TOOL_LOAD l_stLoad = fgToolLoad(l_clLogger, l_pstrConfig);
  fputs(l_stLoad.m_strStderr.c_str(), stderr);  // rejected entries, as the agent reports them
  if (l_clLogger.m_pclConfManager == nullptr) {
    fprintf(stderr, "ColumnTool replay: cannot read [%s]\n", l_pstrConfig);
    return TOOL_EXIT_USAGE;
  }
  if (l_stLoad.m_nLoadResult != 1) {
    fprintf(stderr, "ColumnTool replay: the agent would end at start-up with [%s] (ColumnTool check tells why)\n",
            l_pstrConfig);
    return TOOL_EXIT_PROBLEMS;
  }
  const std::string l_strRealLog = fRealPath(l_strLogFile);
  if (l_strRealLog.empty() || access(l_strLogFile.c_str(), R_OK) != 0) {
    fprintf(stderr, "ColumnTool replay: cannot read [%s] : %s\n", l_strLogFile.c_str(), strerror(errno));
    return TOOL_EXIT_USAGE;
  }
  struct stat l_stLog;
  if (stat(l_strLogFile.c_str(), &l_stLog) != 0 || !S_ISREG(l_stLog.st_mode)) {
    fprintf(stderr, "ColumnTool replay: [%s] is not a regular file\n", l_strLogFile.c_str());
    return TOOL_EXIT_USAGE;
  }
  if (l_strLogFile.size() >= static_cast<size_t>(NAME_BUF_SIZE)) {
    fprintf(stderr, "ColumnTool replay: path [%s] is longer than %d characters\n", l_strLogFile.c_str(),
            NAME_BUF_SIZE - 1);
    return TOOL_EXIT_USAGE;
  }

  // Choose the entries: the one named, or those that watch LOGFILE now.
  CLogFileList* l_pclLogs = l_clLogger.m_pclLogFileList;
  std::vector<ST_LOGFILE_INFO*> l_vpstAll;
  l_pclLogs->fMoveFirst();
  while (ST_LOGFILE_INFO* l_pstLog = l_pclLogs->fMoveNext()) l_vpstAll.push_back(l_pstLog);
  std::vector<ST_LOGFILE_INFO*> l_vpstChosen;
  if (l_nEntry != 0) {
    ST_LOGFILE_INFO* l_pstLog = l_pclLogs->fGetNode(l_nEntry);
    if (l_pstLog == nullptr) {
      fprintf(stderr, "ColumnTool replay: LOG%02d is not loaded (ColumnTool check %s tells why)\n", l_nEntry,
              l_pstrConfig);
      return TOOL_EXIT_PROBLEMS;
    }
    l_vpstChosen.push_back(l_pstLog);
  } else {
    for (ST_LOGFILE_INFO* l_pstLog : l_vpstAll) {
      if (fWatches(l_clLogger, l_pstLog, l_strRealLog)) l_vpstChosen.push_back(l_pstLog);
    }
    if (l_vpstChosen.empty() && l_vpstAll.size() == 1) l_vpstChosen.push_back(l_vpstAll[0]);
    if (l_vpstChosen.empty()) {
      fprintf(stderr, "ColumnTool replay: no loaded entry watches [%s] now; name one:\n", l_strLogFile.c_str());
      for (ST_LOGFILE_INFO* l_pstLog : l_vpstAll) {
        fprintf(stderr, "  LOG%02d %s\n", l_pstLog->m_nIndx, fgShowText(l_pstLog->m_strLogFile).c_str());
      }
      return TOOL_EXIT_USAGE;
    }
  }

  TempEventFile l_clEvents;
  if (l_clEvents.Path().empty() ||
      fgStrCopy(l_clLogger.m_strOutPutFileName, sizeof(l_clLogger.m_strOutPutFileName), l_clEvents.Path().c_str()) != 1) {
    fprintf(stderr, "ColumnTool replay: cannot create a temporary event file : %s\n", strerror(errno));
    return TOOL_EXIT_PROBLEMS;
  }

  // Only the chosen entries take part: the others count as already served.
  l_pclLogs->fInitGatherFlag();
  for (ST_LOGFILE_INFO* l_pstLog : l_vpstAll) l_pstLog->m_nGatherFlag = 1;
  for (ST_LOGFILE_INFO* l_pstLog : l_vpstChosen) l_pstLog->m_nGatherFlag = 0;
  char l_strOpenName[NAME_BUF_SIZE] = {0};
  fgStrCopy(l_strOpenName, sizeof(l_strOpenName), l_strLogFile.c_str());
  long l_lLines = 0;
  bool l_bCeiling = false;
  std::string l_strNames;
  for (ST_LOGFILE_INFO* l_pstLog : l_vpstAll) {
    if (l_pstLog->m_nGatherFlag != 0) continue;
    FILE* l_pstFd = fopen(l_strLogFile.c_str(), "re");
    if (l_pstFd == nullptr) {
      fprintf(stderr, "ColumnTool replay: cannot open [%s] : %s\n", l_strLogFile.c_str(), strerror(errno));
      return TOOL_EXIT_USAGE;
    }
    const long l_lTurn = l_clLogger.fReplayTurn(l_pstLog, l_pstFd, l_strOpenName, l_bAll ? 1 : 0);
    fclose(l_pstFd);
    if (l_lTurn < 0) {
      fprintf(stderr, "ColumnTool replay: out of memory while reading [%s]\n", l_strLogFile.c_str());
      return TOOL_EXIT_PROBLEMS;
    }
    l_lLines = l_lTurn;
    l_bCeiling = l_bCeiling || l_clLogger.m_nFaultSendIncrease > l_clLogger.m_nFaultSendLimit;
  }
  for (ST_LOGFILE_INFO* l_pstLog : l_vpstChosen) {
    char l_strName[16];
    snprintf(l_strName, sizeof(l_strName), "%sLOG%02d", l_strNames.empty() ? "" : ", ", l_pstLog->m_nIndx);
    l_strNames += l_strName;
  }

  std::string l_strEvents;
  {
    FILE* l_pstFd = fopen(l_clEvents.Path().c_str(), "rbe");
    if (l_pstFd == nullptr) {
      fprintf(stderr, "ColumnTool replay: cannot read back [%s] : %s\n", l_clEvents.Path().c_str(), strerror(errno));
      return TOOL_EXIT_PROBLEMS;
    }
    char l_strBuf[65536];
    size_t l_nRead = 0;
    while ((l_nRead = fread(l_strBuf, 1, sizeof(l_strBuf), l_pstFd)) > 0) l_strEvents.append(l_strBuf, l_nRead);
    fclose(l_pstFd);
  }
  const std::string l_strShown = l_bRaw ? l_strEvents : fgDecodeSeparators(l_strEvents);
  if (fwrite(l_strShown.data(), 1, l_strShown.size(), stdout) != l_strShown.size() || fflush(stdout) != 0) {
    return TOOL_EXIT_PROBLEMS;
  }
  long l_lEventCount = 0;
  for (const char l_chChar : l_strEvents) l_lEventCount += l_chChar == '\n' ? 1 : 0;
  fprintf(stderr, "replay: %ld complete line%s of %s through %s: %ld event%s\n", l_lLines, l_lLines == 1 ? "" : "s",
          l_strLogFile.c_str(), l_strNames.c_str(), l_lEventCount, l_lEventCount == 1 ? "" : "s");
  if (l_bCeiling) {
    fprintf(stderr, "replay: more than %d events for one log: later lines were not evaluated, as in one gather "
                    "cycle (--all evaluates every line)\n",
            l_clLogger.m_nFaultSendLimit);
  }
  return TOOL_EXIT_OK;
}
