// check CONFIG: loads the configuration with the agent's own loader and
// reports, for the logging and output keys and for every entry LOG01 to
// LOG19, what the agent will do with it and why.
//
// Errors (exit status 1) are what makes the agent end at start-up, skip or
// reject an entry, or keep an entry that can never work (a line or text
// pattern that did not compile, a name with an invalid date token).
// Warnings leave the status at 0.
#include <sys/stat.h>
#include <unistd.h>

#include <cctype>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <map>
#include <set>
#include <string>
#include <vector>

#include "CollectTarget.h"
#include "ColumnLogger.h"
#include "ColumnTool.h"
#include "CommonConst.h"
#include "CommonFunc.h"
#include "ConfVocabulary.h"
#include "DeferEvents.h"
#include "LogFollower.h"
#include "EventFormat.h"
#include "Notation.h"

namespace {

class Report {
 public:
  void Line(const char* l_pstrFormat, ...) __attribute__((format(printf, 2, 3))) {
    va_list l_vaArgs;
    va_start(l_vaArgs, l_pstrFormat);
    vprintf(l_pstrFormat, l_vaArgs);
    va_end(l_vaArgs);
    printf("\n");
  }
  void Error(const char* l_pstrFormat, ...) __attribute__((format(printf, 2, 3))) {
    va_list l_vaArgs;
    va_start(l_vaArgs, l_pstrFormat);
    VError(l_pstrFormat, l_vaArgs);
    va_end(l_vaArgs);
  }
  // An error that ends the agent at start-up: the only kind, with no entry
  // loaded, that `check --start` fails on.
  void StartError(const char* l_pstrFormat, ...) __attribute__((format(printf, 2, 3))) {
    va_list l_vaArgs;
    va_start(l_vaArgs, l_pstrFormat);
    VError(l_pstrFormat, l_vaArgs);
    va_end(l_vaArgs);
    ++m_nStartErrors;
  }
  void Warning(const char* l_pstrFormat, ...) __attribute__((format(printf, 2, 3))) {
    va_list l_vaArgs;
    va_start(l_vaArgs, l_pstrFormat);
    printf("  warning: ");
    vprintf(l_pstrFormat, l_vaArgs);
    va_end(l_vaArgs);
    printf("\n");
    ++m_nWarnings;
  }
  int m_nErrors = 0;
  int m_nStartErrors = 0;
  int m_nWarnings = 0;

 private:
  void VError(const char* l_pstrFormat, va_list l_vaArgs) {
    printf("  error: ");
    vprintf(l_pstrFormat, l_vaArgs);
    printf("\n");
    ++m_nErrors;
  }
};

std::string fKey(int l_nIndx, const char* l_pstrSuffix) {
  char l_strKey[ENTRY_KEY_SIZE];
  fgEntryKey(l_strKey, sizeof(l_strKey), l_nIndx, l_pstrSuffix);
  return l_strKey;
}

const char* fGetOpt(CConfManager* l_pclStore, const std::string& l_strKey) {
  return l_pclStore->fGetOpt(const_cast<char*>(l_strKey.c_str()));
}

std::string fQuote(const char* l_pstrText) { return "\"" + fgShowText(l_pstrText) + "\""; }

// A delimiter character as an operator reads it.
std::string fCharName(char l_chChar) {
  if (l_chChar == ' ') return "blank";
  if (l_chChar == '\t') return "tab";
  if (l_chChar == '\0') return "none";
  return "'" + fgShowText(std::string(1, l_chChar)) + "'";
}

// The directory a path prefix writes into: the prefix itself when it ends
// with "/", otherwise the part up to its last "/" ("." without one).
std::string fPrefixDirectory(const std::string& l_strPrefix) {
  if (!l_strPrefix.empty() && l_strPrefix.back() == '/') return l_strPrefix;
  const size_t l_nSlash = l_strPrefix.rfind('/');
  if (l_nSlash == std::string::npos) return ".";
  return l_nSlash == 0 ? "/" : l_strPrefix.substr(0, l_nSlash);
}

bool fIsWritableDirectory(const std::string& l_strDir) {
  struct stat l_stStat;
  return stat(l_strDir.c_str(), &l_stStat) == 0 && S_ISDIR(l_stStat.st_mode) && access(l_strDir.c_str(), W_OK) == 0;
}

// Characters of OUTPUT_PATH that the shell would take as syntax in the
// unquoted hand-off command, by the agent's own rule (fgShellWord).
std::string fShellCharacters(const std::string& l_strText) {
  std::set<char> l_setFound;
  for (const char l_chChar : l_strText) {
    const char l_strOne[2] = {l_chChar, '\0'};
    if (fgShellWord(l_strOne) == 1) continue;
    l_setFound.insert(l_chChar);
  }
  std::string l_strList;
  for (const char l_chChar : l_setFound) {
    if (!l_strList.empty()) l_strList += ", ";
    l_strList += fCharName(l_chChar);
  }
  return l_strList;
}

void fCheckLogging(CConfManager* l_pclStore, Report& l_clReport) {
  const char* l_pstrLogPath = fGetOpt(l_pclStore, KEY_LOG_PATH);
  const char* l_pstrValidDay = fGetOpt(l_pclStore, KEY_LOG_VALIDDAY);
  const char* l_pstrLogMode = fGetOpt(l_pclStore, KEY_LOG_MODE);
  const char* l_pstrPrint = fGetOpt(l_pclStore, KEY_PRINT);

  if (l_pstrLogPath == nullptr) {
    l_clReport.Line("LOG_PATH      missing");
    l_clReport.StartError("LOG_PATH is missing: the agent ends at start-up with status 0 and no message");
  } else {
    l_clReport.Line("LOG_PATH      %s  (diagnostic log files %sYYYYMMDD_SER.log)", fQuote(l_pstrLogPath).c_str(),
                    fgShowText(l_pstrLogPath).c_str());
    const std::string l_strPath = l_pstrLogPath;
    if (l_strPath.empty() || l_strPath.back() != '/') {
      l_clReport.Warning("LOG_PATH does not end with \"/\": the file names are appended to it, so the log files go "
                         "beside the directory rather than into it");
    }
    if (!fIsWritableDirectory(fPrefixDirectory(l_strPath))) {
      l_clReport.Warning("directory %s of LOG_PATH does not exist or is not writable by this user: the diagnostic "
                         "log cannot be written",
                         fQuote(fPrefixDirectory(l_strPath).c_str()).c_str());
    }
  }
  if (l_pstrValidDay == nullptr) {
    l_clReport.Line("LOG_VALIDDAY  missing");
    l_clReport.StartError("LOG_VALIDDAY is missing: the agent prints \"LOG_VALIDDAY is NULL\" and ends at start-up");
  } else {
    const long l_lDays = fgValidDays(l_pstrValidDay);
    l_clReport.Line("LOG_VALIDDAY  %s  (log files kept %ld day%s)", fQuote(l_pstrValidDay).c_str(), l_lDays,
                    l_lDays == 1 ? "" : "s");
  }
  if (l_pstrLogMode == nullptr) {
    l_clReport.Line("LOG_MODE      missing");
    l_clReport.StartError("LOG_MODE is missing: the agent prints \"LOG_MODE is NULL\" and ends at start-up");
  } else if (fgLogModeOfWord(l_pstrLogMode) != 0) {
    l_clReport.Line("LOG_MODE      %s", fQuote(l_pstrLogMode).c_str());
  } else {
    l_clReport.Line("LOG_MODE      %s  (no diagnostic log)", fQuote(l_pstrLogMode).c_str());
    l_clReport.Warning("LOG_MODE is not DEBUG, NORMAL or ERROR (exactly, in capitals): the agent runs without a "
                       "diagnostic log");
  }
  const bool l_bTrace = l_pstrPrint != nullptr && strcmp(l_pstrPrint, PRINT_ON) == 0;
  l_clReport.Line("PRINT         %s  (console trace %s)", l_pstrPrint == nullptr ? "missing" : fQuote(l_pstrPrint).c_str(),
                  l_bTrace ? "on standard error" : "off");
}

void fCheckOutput(CColumnLogger& l_clLogger, const ST_TOOL_LOAD& l_stLoad, Report& l_clReport) {
  CConfManager* l_pclStore = l_clLogger.m_pclConfManager;
  const char* l_pstrOutPath = fGetOpt(l_pclStore, KEY_OUTPUT_PATH);
  const char* l_pstrWaitCnt = fGetOpt(l_pclStore, KEY_LINE_WAIT_CNT);
  l_clReport.Line("LINE_WAIT_CNT %s", l_pstrWaitCnt == nullptr ? "missing" : fQuote(l_pstrWaitCnt).c_str());
  if (l_pstrOutPath == nullptr) {
    l_clReport.Line("OUTPUT_PATH   missing");
  } else {
    l_clReport.Line("OUTPUT_PATH   %s", fQuote(l_pstrOutPath).c_str());
  }
  if (l_stLoad.m_nLoadResult != 1) {
    // The loader names the key on standard error ("... is NULL", "... is too long").
    std::string l_strReason = l_stLoad.m_strStderr;
    while (!l_strReason.empty() && l_strReason.back() == '\n') l_strReason.pop_back();
    l_clReport.StartError("%s: the agent ends at start-up",
                     l_strReason.empty() ? "the monitoring keys were refused" : fgShowText(l_strReason).c_str());
    return;
  }

  const std::string l_strOut = l_clLogger.m_strOutPutPath;
  const time_t l_tNow = time(nullptr);
  struct tm l_stNow;
  localtime_r(&l_tNow, &l_stNow);
  char l_strEventFile[NAME_BUF_SIZE];
  char l_strCommand[NAME_BUF_SIZE];
  const int l_nNameOk = fgMakeEventFileName(l_strEventFile, sizeof(l_strEventFile), l_clLogger.m_strOutPutPath, &l_stNow);
  const int l_nCommandOk = l_nNameOk == 1 ? fgMakeCloseOutCommand(l_strCommand, sizeof(l_strCommand), l_strEventFile,
                                                                  l_clLogger.m_strOutPutPath, &l_stNow)
                                          : 0;
  if (l_nNameOk != 1 || l_nCommandOk != 1) {
    l_clReport.Error("OUTPUT_PATH is too long for the event file name or the hand-off command (512 bytes each): "
                     "events are never handed off");
  } else {
    l_clReport.Line("  event file  %s", fgShowText(l_strEventFile).c_str());
    l_clReport.Line("  hand-off    %s", fgShowText(l_strCommand).c_str());
  }
  if (l_strOut.empty() || l_strOut.back() != '/') {
    l_clReport.Warning("OUTPUT_PATH does not end with \"/\": event files are named %sing_..., beside the directory "
                       "rather than in it, while the 200-entry limit is counted inside it",
                       fgShowText(l_strOut).c_str());
  }
  const std::string l_strShell = fShellCharacters(l_strOut);
  if (!l_strShell.empty()) {
    l_clReport.Warning("OUTPUT_PATH holds characters that the shell interprets in the unquoted hand-off command "
                       "(%s): should the agent's own rename to out_ fail, the command is not run and the event file "
                       "stays under its ing_ name",
                       l_strShell.c_str());
  }
  const std::string l_strDir = fPrefixDirectory(l_strOut);
  if (!fIsWritableDirectory(l_strDir)) {
    l_clReport.Error("directory %s of OUTPUT_PATH does not exist or is not writable by this user: events are "
                     "dropped",
                       fQuote(l_strDir.c_str()).c_str());
  }
  const int l_nWaiting = l_clLogger.fCheckLimitFile();
  if (l_nWaiting >= 0) {
    l_clReport.Line("  waiting     %d entr%s in the output directory (gathering pauses at %d)", l_nWaiting,
                    l_nWaiting == 1 ? "y" : "ies", OUTPUT_BACKLOG_LIMIT);
    if (l_nWaiting >= OUTPUT_BACKLOG_LIMIT) {
      l_clReport.Warning("%d entries wait in the output directory: no gather cycle runs until the collector "
                         "takes some",
                         l_nWaiting);
    }
  }
}

// STATUS_FILE and POSITION_FILE: optional files that are replaced through a
// temporary file beside them, so their directory must be writable.
struct ST_OPTIONAL_FILE {
  const char* m_pstrKey;
  const char* m_pstrUnset;    // what the agent does without the key
  const char* m_pstrUse;      // what the file is for
  const char* m_pstrExample;  // a file name
  const char* m_pstrLoss;     // what a file that cannot be written costs
};
const ST_OPTIONAL_FILE OPTIONAL_FILES[] = {
    {KEY_STATUS_FILE, "no status file",
     "health figures every 10 s, Prometheus text format; ColumnTool status reads it", "columnlogs.prom",
     "the status file cannot be written"},
    {KEY_POSITION_FILE, "read positions in memory only: a restart takes each log type's first look",
     "read positions saved after every cycle that moved one; a restart goes on from them", "positions",
     "positions cannot be saved, and a restart takes the first look"},
};

void fCheckOptionalFiles(CConfManager* l_pclStore, Report& l_clReport) {
  for (const ST_OPTIONAL_FILE& l_stFile : OPTIONAL_FILES) {
    const char* l_pstrPath = fGetOpt(l_pclStore, l_stFile.m_pstrKey);
    if (l_pstrPath == nullptr || l_pstrPath[0] == '\0') {
      l_clReport.Line("%-13s not set  (%s)", l_stFile.m_pstrKey, l_stFile.m_pstrUnset);
      continue;
    }
    l_clReport.Line("%-13s %s  (%s)", l_stFile.m_pstrKey, fQuote(l_pstrPath).c_str(), l_stFile.m_pstrUse);
    const std::string l_strDir = fPrefixDirectory(l_pstrPath);
    if (std::string(l_pstrPath).back() == '/') {
      l_clReport.Warning("%s names a directory: give it a file name (e.g. %s)", l_stFile.m_pstrKey,
                         l_stFile.m_pstrExample);
    } else if (!fIsWritableDirectory(l_strDir)) {
      l_clReport.Warning("directory %s of %s does not exist or is not writable by this user: %s",
                         fQuote(l_strDir.c_str()).c_str(), l_stFile.m_pstrKey, l_stFile.m_pstrLoss);
    }
  }
}

// DEFER_EVENTS and FOLLOW_ROTATION: "1" turns them on; anything else leaves them off.
struct ST_SWITCH {
  const char* m_pstrKey;
  const char* m_pstrOn;   // the value that turns it on
  const char* m_pstrWith;  // what the agent does with it
  const char* m_pstrWithout;
  const char* m_pstrWhat;  // the capability, in the warning for another value
};
const ST_SWITCH SWITCHES[] = {
    {KEY_DEFER_EVENTS, DEFER_EVENTS_ON,
     "lines past the 100-event ceiling of a turn, and lines whose events cannot be written, wait for the next cycle",
     "lines past the 100-event ceiling of a turn are passed over; events that cannot be written are dropped",
     "deferral"},
    {KEY_FOLLOW_ROTATION, FOLLOW_ROTATION_ON,
     "a log's file is held until it is read to its end: after a rename, copytruncate, a new dated or wildcard file "
     "or a deletion, the rest of the previous file is read first, then the new file from its start",
     "a log's file is the one its name means at each cycle: lines appended to a rotated file after the last cycle "
     "are not read",
     "following"},
};

void fCheckSwitches(CConfManager* l_pclStore, Report& l_clReport) {
  for (const ST_SWITCH& l_stSwitch : SWITCHES) {
    const char* l_pstrValue = fGetOpt(l_pclStore, l_stSwitch.m_pstrKey);
    const bool l_bOn = l_pstrValue != nullptr && strcmp(l_pstrValue, l_stSwitch.m_pstrOn) == 0;
    l_clReport.Line("%-13s %s  (%s)", l_stSwitch.m_pstrKey, l_pstrValue == nullptr ? "not set" : fQuote(l_pstrValue).c_str(),
                    l_bOn ? l_stSwitch.m_pstrWith : l_stSwitch.m_pstrWithout);
    if (l_pstrValue != nullptr && !l_bOn)
      l_clReport.Warning("%s is not \"%s\": %s stays off", l_stSwitch.m_pstrKey, l_stSwitch.m_pstrOn, l_stSwitch.m_pstrWhat);
  }
}

const char* fLogTypeText(int l_nLogType) {
  switch (l_nLogType) {
    case LOG_TYPE_FROM_END: return "log type 0: first look starts at the end, then reads what is appended";
    case LOG_TYPE_WHOLE_FILE: return "log type 1: the whole file is read in every cycle";
    case LOG_TYPE_FROM_START: return "log type 2: first look starts at the start, then reads what is appended";
    default: return "log type not 0, 1 or 2";
  }
}

const char* fDateUnitText(int l_nUnit) {
  static const char* const UNITS[] = {"none", "year", "month", "day", "hour", "minute", "second"};
  return l_nUnit >= 0 && l_nUnit <= 6 ? UNITS[l_nUnit] : "invalid";
}

void fCheckName(CColumnLogger& l_clLogger, ST_LOGFILE_INFO* l_pstLog, Report& l_clReport) {
  const int l_nCreateType = static_cast<unsigned char>(l_pstLog->m_chCreateType);
  l_clReport.Line("  name        %s", fQuote(l_pstLog->m_strLogFile).c_str());
  l_clReport.Line("              create type %d: %s; %s", l_nCreateType,
                  l_nCreateType == CREATE_TYPE_WILDCARD ? "date tokens become \"?\" wildcards and the newest match is read"
                                     : "date tokens become the current date and time",
                  fLogTypeText(l_pstLog->m_nLogType));
  if (l_pstLog->m_nLogType < 0 || l_pstLog->m_nLogType > 2) {
    l_clReport.Warning("log type %d is not 0, 1 or 2", l_pstLog->m_nLogType);
  }
  const int l_nUnit = l_clLogger.fLogFileNameCheck(l_pstLog->m_strLogFile);
  char l_strResolved[NAME_BUF_SIZE] = {0};
  if (l_nUnit < 0 || l_clLogger.fLogFileNameConvert(l_pstLog->m_strLogFile, l_pstLog->m_chCreateType, l_strResolved) != 1) {
    l_clReport.Error("the name has an invalid date token or an unclosed \"[\" (tokens YYYY YY MM M DD hh mm ss, "
                     "nothing else inside brackets, e.g. [YYYY]-[MM]-[DD]): the entry never reads a file");
    return;
  }
  if (l_nUnit > 0) l_clReport.Line("              the name changes every %s", fDateUnitText(l_nUnit));
  if (l_pstLog->m_strLogFile[0] != '/') {
    l_clReport.Warning("the name is relative: the agent resolves it from its working directory");
  }
  if (l_nCreateType == 0) {
    char l_strChosen[NAME_BUF_SIZE] = {0};
    fgStrCopy(l_strChosen, sizeof(l_strChosen), l_strResolved);
    FILE* l_pstFd = nullptr;
    if (l_clLogger.fLogFileOpen(l_strChosen, &l_pstFd) == 1) {
      fclose(l_pstFd);
      l_clReport.Line("  reads now   %s  (newest match of %s)", fgShowText(l_strChosen).c_str(),
                      fQuote(l_strResolved).c_str());
    } else {
      l_clReport.Line("  reads now   nothing: no readable file matches %s yet", fQuote(l_strResolved).c_str());
    }
    return;
  }
  struct stat l_stStat;
  if (stat(l_strResolved, &l_stStat) != 0) {
    l_clReport.Line("  reads now   %s  (does not exist yet: the entry waits for it)", fgShowText(l_strResolved).c_str());
  } else if (access(l_strResolved, R_OK) != 0) {
    l_clReport.Line("  reads now   %s  (exists, not readable by this user)", fgShowText(l_strResolved).c_str());
  } else {
    l_clReport.Line("  reads now   %s  (exists, %lld bytes)", fgShowText(l_strResolved).c_str(),
                    static_cast<long long>(l_stStat.st_size));
  }
}

void fCheckLinePatterns(CColumnLogger& l_clLogger, ST_LOGFILE_INFO* l_pstLog, const char* l_pstrRawValue,
                        Report& l_clReport) {
  // The delimiters as the gather cycle sets them up: a turn over an empty
  // stream does exactly that and reads nothing.
  FILE* l_pstEmpty = fopen("/dev/null", "re");
  if (l_pstEmpty != nullptr) {
    char l_strNoName[] = "/dev/null";
    l_clLogger.fReplayTurn(l_pstLog, l_pstEmpty, l_strNoName, 0);
    fclose(l_pstEmpty);
    if (l_clLogger.m_nTokFlag == 2) {
      l_clReport.Line("  delimiter   %s  (columns end at %s or %s)", fQuote(l_pstLog->m_strDelimitor).c_str(),
                      fCharName(m_chDilimitor1).c_str(), fCharName(m_chDilimitor2).c_str());
    } else {
      l_clReport.Line("  delimiter   %s  (columns end at %s)", fQuote(l_pstLog->m_strDelimitor).c_str(),
                      fCharName(m_chDilimitor1).c_str());
    }
    if (m_chDilimitor1 == '\0') l_clReport.Warning("no delimiter character: every line is one column");
  }

  int l_nStored = 0;
  for (int l_nSlot = 0; l_nSlot < MAX_LINE_PATTERNS; ++l_nSlot) {
    const char* l_pstrText = l_pstLog->m_vstrLogPattern[l_nSlot];
    if (l_pstrText[0] == '\0') break;
    ++l_nStored;
    std::string l_strGrade;
    if (l_pstLog->m_vnFaultGrade[l_nSlot] != PATTERN_NO_GRADE) {
      l_strGrade = " (grade " + std::to_string(l_pstLog->m_vnFaultGrade[l_nSlot]) + ")";
    }
    if (strcmp(l_pstrText, VALUE_NONE) == 0) {
      l_clReport.Line("  line pattern %d%s: NULL  (every line passes)", l_nSlot + 1, l_strGrade.c_str());
      continue;
    }
    l_clReport.Line("  line pattern %d%s: %s", l_nSlot + 1, l_strGrade.c_str(), fQuote(l_pstrText).c_str());
    if (l_pstLog->m_vpclStrPattern[l_nSlot] == nullptr) {
      l_clReport.Error("line pattern %d did not compile (unbalanced parentheses or beyond the pattern limits): it "
                       "never matches",
                       l_nSlot + 1);
    }
  }
  if (l_nStored == 0) {
    l_clReport.Warning("no line pattern: no line of this log is evaluated (write NULL to evaluate every line)");
  }
  // Five slots: further entries of the value are dropped by the registry.
  const std::string l_strRaw = l_pstrRawValue != nullptr ? l_pstrRawValue : "";
  size_t l_nEntries = 1;
  for (size_t l_nPos = l_strRaw.find(SEP_TILDE); l_nPos != std::string::npos; l_nPos = l_strRaw.find(SEP_TILDE, l_nPos + SEP_LEN))
    ++l_nEntries;
  if (l_nStored == MAX_LINE_PATTERNS && l_nEntries > static_cast<size_t>(MAX_LINE_PATTERNS)) {
    l_clReport.Warning("more than %d line patterns: only the first %d take effect", MAX_LINE_PATTERNS,
                       MAX_LINE_PATTERNS);
  }
}

std::string fNumberValueText(const ST_NUM_PATTERN_LIST* l_pstRule) {
  if (l_pstRule->m_strExt1[0] == '\0') return "the whole column";
  std::string l_strText = "the text after " + fQuote(l_pstRule->m_strExt1);
  if (l_pstRule->m_strExt2[0] != '\0') l_strText += " up to " + fQuote(l_pstRule->m_strExt2);
  l_strText += " (the whole column when " + fQuote(l_pstRule->m_strExt1) + " is absent)";
  return l_strText;
}

void fCheckRules(CColumnLogger& l_clLogger, int l_nIndx, Report& l_clReport) {
  CNumPatternList* l_pclNum = l_clLogger.m_pclNumPatternList;
  for (ST_NUM_PATTERN_LIST* l_pstRule = l_pclNum->fGetHeadNode(); l_pstRule != nullptr; l_pstRule = l_pstRule->m_pstNext) {
    if (l_pstRule->m_nIndex != l_nIndx) continue;
    const char* l_pstrOperator = fgCompareOperatorText(l_pstRule->m_nCompareNum);
    char l_strThreshold[64];
    if (l_pstRule->m_nFaultDecide == NUM_DECIDE_INT) {
      snprintf(l_strThreshold, sizeof(l_strThreshold), "%d (whole numbers)", l_pstRule->m_nFaultValue);
    } else {
      snprintf(l_strThreshold, sizeof(l_strThreshold), "%.2f (decimal)", static_cast<double>(l_pstRule->m_fFaultValue));
    }
    l_clReport.Line("  number rule column %d, level %d: event when value %s %s; value is %s", l_pstRule->m_nComumnNum,
                    l_pstRule->m_nFaultLevel, l_pstrOperator != nullptr ? l_pstrOperator : "?", l_strThreshold,
                    fNumberValueText(l_pstRule).c_str());
    if (l_pstrOperator == nullptr) {
      l_clReport.Warning("comparison code %d is not 1 to 6: this rule never fires", l_pstRule->m_nCompareNum);
    }
    if (l_pstRule->m_nComumnNum < 1) l_clReport.Warning("columns count from 1: this rule never fires");
  }
  CCharPatternList* l_pclChar = l_clLogger.m_pclCharPatternList;
  for (ST_CHAR_PATTERN_LIST* l_pstRule = l_pclChar->fGetHeadNode(); l_pstRule != nullptr; l_pstRule = l_pstRule->m_pstNext) {
    if (l_pstRule->m_nIndex != l_nIndx) continue;
    const std::string l_strText = fQuote(l_pstRule->m_strFaultPattern);
    switch (l_pstRule->m_nCompareNum) {
      case CHAR_COMPARE_EQUAL:
        l_clReport.Line("  text rule column %d, level %d: event when the column is %s", l_pstRule->m_nComumnNum,
                        l_pstRule->m_nFaultLevel, l_strText.c_str());
        break;
      case CHAR_COMPARE_DIFFER:
        l_clReport.Line("  text rule column %d, level %d: event when the column is not %s", l_pstRule->m_nComumnNum,
                        l_pstRule->m_nFaultLevel, l_strText.c_str());
        break;
      case CHAR_COMPARE_PATTERN:
        l_clReport.Line("  text rule column %d, level %d: event when the column matches the pattern %s",
                        l_pstRule->m_nComumnNum, l_pstRule->m_nFaultLevel, l_strText.c_str());
        if (l_pstRule->m_vpclStrPattern[0] == nullptr) {
          l_clReport.Error("the pattern of this text rule did not compile: the rule never fires");
        }
        break;
      default:
        l_clReport.Line("  text rule column %d, level %d: comparison code %d with %s", l_pstRule->m_nComumnNum,
                        l_pstRule->m_nFaultLevel, l_pstRule->m_nCompareNum, l_strText.c_str());
        l_clReport.Warning("comparison code %d is not 1, 2 or 3: this rule never fires", l_pstRule->m_nCompareNum);
        break;
    }
    if (l_pstRule->m_nComumnNum < 1) l_clReport.Warning("columns count from 1: this rule never fires");
  }
  CDatePatternList* l_pclDate = l_clLogger.m_pclDatePatternList;
  for (ST_DATE_PATTERN_LIST* l_pstRule = l_pclDate->fGetHeadNode(); l_pstRule != nullptr; l_pstRule = l_pstRule->m_pstNext) {
    if (l_pstRule->m_nIndex != l_nIndx) continue;
    const char* l_pstrSeconds = strstr(l_pstRule->m_strDatePattern, "ss");
    if (l_pstrSeconds != nullptr) {
      const long l_lAt = static_cast<long>(l_pstrSeconds - l_pstRule->m_strDatePattern) + 1;
      l_clReport.Line("  date rule   column %d: layout %s, seconds at characters %ld-%ld", l_pstRule->m_nComumnNum,
                      fQuote(l_pstRule->m_strDatePattern).c_str(), l_lAt, l_lAt + 1);
    } else {
      l_clReport.Line("  date rule   column %d: layout %s, without \"ss\"", l_pstRule->m_nComumnNum,
                      fQuote(l_pstRule->m_strDatePattern).c_str());
    }
  }
}

// Entry nn as the agent sees it: not configured, skipped, rejected or
// loaded. Returns 1 when the entry was skipped or rejected.
int fCheckEntry(CColumnLogger& l_clLogger, int l_nIndx, const std::vector<std::string>& l_vstrLoaderLines,
                Report& l_clReport) {
  CConfManager* l_pclStore = l_clLogger.m_pclConfManager;
  const char* l_vpstrValues[ENTRY_KEY_COUNT];
  std::string l_strMissing;
  int l_nPresent = 0;
  for (int l_nKey = 0; l_nKey < ENTRY_KEY_COUNT; ++l_nKey) {
    l_vpstrValues[l_nKey] = fGetOpt(l_pclStore, fKey(l_nIndx, ENTRY_KEYS[l_nKey].m_pstrSuffix));
    if (l_vpstrValues[l_nKey] != nullptr) {
      ++l_nPresent;
    } else {
      l_strMissing += (l_strMissing.empty() ? "" : ", ") + fKey(l_nIndx, ENTRY_KEYS[l_nKey].m_pstrSuffix);
    }
  }
  if (l_nPresent == 0) {
    l_clReport.Line("LOG%02d not configured", l_nIndx);
    return 0;
  }
  if (l_nPresent < ENTRY_KEY_COUNT) {
    l_clReport.Line("LOG%02d skipped: %s missing (an entry needs all nine keys; the agent skips it without a message)",
                    l_nIndx, l_strMissing.c_str());
    return 1;
  }
  ST_LOGFILE_INFO* l_pstLog = l_clLogger.m_pclLogFileList->fGetNode(l_nIndx);
  if (l_pstLog == nullptr) {
    char l_strPrefix[16];
    snprintf(l_strPrefix, sizeof(l_strPrefix), "LOG%02d_", l_nIndx);
    int l_nReasons = 0;
    for (const std::string& l_strLine : l_vstrLoaderLines) {
      if (l_strLine.rfind(l_strPrefix, 0) != 0) continue;
      l_clReport.Line("LOG%02d rejected: %s", l_nIndx, fgShowText(l_strLine).c_str());
      ++l_nReasons;
    }
    if (l_nReasons == 0) l_clReport.Line("LOG%02d rejected by the loader", l_nIndx);
    for (int l_nKey = 0; l_nKey < ENTRY_KEY_COUNT; ++l_nKey) {
      if (!fgHasSeparatorMistake(l_vpstrValues[l_nKey])) continue;
      l_clReport.Line("  hint: %s holds \"{~}\", \"{|}\" or a plain \"~\": write the separators with ColumnTool encode",
                      fKey(l_nIndx, ENTRY_KEYS[l_nKey].m_pstrSuffix).c_str());
      break;
    }
    return 1;
  }

  l_clReport.Line("LOG%02d loaded", l_nIndx);
  fCheckName(l_clLogger, l_pstLog, l_clReport);
  fCheckLinePatterns(l_clLogger, l_pstLog, l_vpstrValues[KEY_PATTERN], l_clReport);
  fCheckRules(l_clLogger, l_nIndx, l_clReport);
  l_clReport.Line("  line rate   %s", fQuote(l_vpstrValues[3]).c_str());
  return 0;
}

// The lines-per-second thresholds are one set for the whole process: after
// loading they hold the pairs of the last loaded entry.
void fCheckLineRate(CColumnLogger& l_clLogger, Report& l_clReport) {
  std::vector<ST_LOGFILE_INFO*> l_vpstLogs;
  l_clLogger.m_pclLogFileList->fMoveFirst();
  while (ST_LOGFILE_INFO* l_pstLog = l_clLogger.m_pclLogFileList->fMoveNext()) l_vpstLogs.push_back(l_pstLog);
  if (l_vpstLogs.empty()) return;
  ST_LOGFILE_INFO* const l_pstLast = l_vpstLogs.back();
  std::string l_strInForce;
  for (int l_nLevel = FAULT_LEVELS - 1; l_nLevel >= 0; --l_nLevel) {
    if (m_nCntFaultArray[l_nLevel] == -1) continue;
    if (!l_strInForce.empty()) l_strInForce += ", ";
    l_strInForce += "level " + std::to_string(l_nLevel) + " at " + std::to_string(m_nCntFaultArray[l_nLevel]);
  }
  const std::string l_strLastKey = fKey(l_pstLast->m_nIndx, "SECLOG_LEVEL_CNT");
  l_clReport.Line("line rate (all evaluated lines of all entries together): %s  (from %s, the last loaded entry)",
                  l_strInForce.empty() ? "no threshold" : (l_strInForce + " lines in one second").c_str(),
                  l_strLastKey.c_str());
  const char* l_pstrLastValue = fGetOpt(l_clLogger.m_pclConfManager, l_strLastKey);
  for (ST_LOGFILE_INFO* l_pstLog : l_vpstLogs) {
    if (l_pstLog == l_pstLast) continue;
    const std::string l_strKey = fKey(l_pstLog->m_nIndx, "SECLOG_LEVEL_CNT");
    const char* l_pstrValue = fGetOpt(l_clLogger.m_pclConfManager, l_strKey);
    if (l_pstrValue == nullptr || strcmp(l_pstrValue, VALUE_NONE) == 0) continue;
    if (l_pstrLastValue != nullptr && strcmp(l_pstrValue, l_pstrLastValue) == 0) continue;
    l_clReport.Warning("%s is not in force: only the thresholds of the last loaded entry (%s) count", l_strKey.c_str(),
                       l_strLastKey.c_str());
  }
  if (l_strInForce.empty()) return;
  // Lines of an entry without date rules all carry the time key 0, so they
  // count as one second of their own, whatever their real time.
  std::string l_strUndated;
  for (ST_LOGFILE_INFO* l_pstLog : l_vpstLogs) {
    bool l_bDated = false;
    CDatePatternList* l_pclDate = l_clLogger.m_pclDatePatternList;
    for (ST_DATE_PATTERN_LIST* l_pstRule = l_pclDate->fGetHeadNode(); l_pstRule != nullptr && !l_bDated;
         l_pstRule = l_pstRule->m_pstNext) {
      l_bDated = l_pstRule->m_nIndex == l_pstLog->m_nIndx;
    }
    if (l_bDated) continue;
    char l_strName[8];
    snprintf(l_strName, sizeof(l_strName), "LOG%02d", l_pstLog->m_nIndx);
    l_strUndated += (l_strUndated.empty() ? "" : ", ") + std::string(l_strName);
  }
  if (!l_strUndated.empty()) {
    l_clReport.Warning("line-rate thresholds are in force but %s ha%s no date column: the lines of entries without "
                       "date columns all count as one second (time key 0), whatever their real time",
                       l_strUndated.c_str(), l_strUndated.size() > 5 ? "ve" : "s");
  }
}

// The collector's destination (ColumnTool collect); the agent ignores the key.
void fCheckCollectTo(CConfManager* l_pclStore, Report& l_clReport) {
  const char* l_pstrTo = fGetOpt(l_pclStore, COLLECT_TO_KEY);
  std::string l_strReason;
  if (l_pstrTo == nullptr) {
    l_clReport.Line("COLLECT_TO    missing  (the collector sends to %s)", COLLECT_TO_DEFAULT);
  } else if (fgParseCollectTo(l_pstrTo, nullptr, &l_strReason) == 1) {
    l_clReport.Line("COLLECT_TO    %s", fQuote(l_pstrTo).c_str());
  } else {
    l_clReport.Line("COLLECT_TO    %s", fQuote(l_pstrTo).c_str());
    l_clReport.Error("COLLECT_TO is not a destination: %s; the collector does not start", l_strReason.c_str());
  }
}

// Keys the agent never reads, duplicates, and values that still hold the
// readable notation or a carriage return.
void fCheckKeys(CConfManager* l_pclStore, Report& l_clReport) {
  std::map<std::string, int> l_mapSeen;
  const int l_nCount = l_pclStore->fGetOptCount();
  bool l_bHeader = false;
  auto l_fHeader = [&] {
    if (!l_bHeader) l_clReport.Line("keys");
    l_bHeader = true;
  };
  for (int l_nPos = 1; l_nPos <= l_nCount; ++l_nPos) {
    const char* l_pstrKey = l_pclStore->fGetKey(l_nPos);
    const char* l_pstrValue = l_pclStore->fGetOpt(l_nPos);
    if (l_pstrKey == nullptr) continue;
    const std::string l_strKey = l_pstrKey;
    if (++l_mapSeen[l_strKey] == 2) {
      l_fHeader();
      l_clReport.Warning("key %s appears more than once: the first one counts", fQuote(l_pstrKey).c_str());
    }
    bool l_bKnown = false;
    for (const char* l_pstrGlobal : GLOBAL_KEYS) l_bKnown = l_bKnown || l_strKey == l_pstrGlobal;
    int l_nIndx = 0;
    char l_strSuffix[64] = {0};
    if (!l_bKnown && sscanf(l_pstrKey, "LOG%2d_%63s", &l_nIndx, l_strSuffix) == 2 && isdigit(static_cast<unsigned char>(l_pstrKey[3])) &&
        isdigit(static_cast<unsigned char>(l_pstrKey[4]))) {
      bool l_bSuffix = false;
      for (const ST_ENTRY_KEY& l_stEntryKey : ENTRY_KEYS)
        l_bSuffix = l_bSuffix || l_strKey == fKey(l_nIndx, l_stEntryKey.m_pstrSuffix);
      if (l_bSuffix && (l_nIndx < 1 || l_nIndx > MAX_WATCHED_LOGS)) {
        l_fHeader();
        l_clReport.Warning("key %s is never read: entries run from LOG01 to LOG19", fQuote(l_pstrKey).c_str());
        continue;
      }
      l_bKnown = l_bSuffix;
    }
    if (!l_bKnown) {
      l_fHeader();
      l_clReport.Warning("key %s is not one the agent reads", fQuote(l_pstrKey).c_str());
      continue;
    }
    if (l_pstrValue == nullptr) continue;
    const std::string l_strValue = l_pstrValue;
    if (fgHasReadableNotation(l_strValue)) {
      l_fHeader();
      l_clReport.Warning("value of %s holds the readable notation {~} or {|}: the agent needs the separator bytes "
                         "(ColumnTool encode)",
                         l_pstrKey);
    }
    if (l_strValue.find('\r') != std::string::npos) {
      l_fHeader();
      l_clReport.Warning("value of %s holds a carriage return (a file with CRLF line ends?): it is part of the value",
                         l_pstrKey);
    }
  }
}

std::vector<std::string> fSplitLines(const std::string& l_strText) {
  std::vector<std::string> l_vstrLines;
  size_t l_nStart = 0;
  while (l_nStart < l_strText.size()) {
    size_t l_nEnd = l_strText.find('\n', l_nStart);
    if (l_nEnd == std::string::npos) l_nEnd = l_strText.size();
    l_vstrLines.push_back(l_strText.substr(l_nStart, l_nEnd - l_nStart));
    l_nStart = l_nEnd + 1;
  }
  return l_vstrLines;
}

}  // namespace

int fgToolCheck(int argc, char** argv) {
  // --start: the same report, but only a configuration with which the agent
  // ends at start-up or watches nothing fails (a service's start check).
  const bool l_bStart = argc == 3 && strcmp(argv[1], "--start") == 0;
  if (argc != 2 && !l_bStart) {
    fprintf(stderr, "usage: ColumnTool check [--start] CONFIG\n");
    return TOOL_EXIT_USAGE;
  }
  const char* l_pstrPath = argv[argc - 1];
  CColumnLogger l_clLogger;
  const ST_TOOL_LOAD l_stLoad = fgToolLoad(l_clLogger, l_pstrPath);
  if (l_clLogger.m_pclConfManager == nullptr) {
    fprintf(stderr, "ColumnTool check: cannot read [%s] (missing, unreadable, or its lock file %s_lock cannot be "
                    "created beside it)\n%s",
            l_pstrPath, l_pstrPath, l_stLoad.m_strStderr.c_str());
    return TOOL_EXIT_USAGE;
  }

  Report l_clReport;
  l_clReport.Line("configuration %s", l_pstrPath);
  if (strlen(l_pstrPath) > CONF_PATH_MAX) {
    l_clReport.StartError("the path is longer than %zu characters: the agent refuses it", CONF_PATH_MAX);
  }
  fCheckLogging(l_clLogger.m_pclConfManager, l_clReport);
  fCheckOutput(l_clLogger, l_stLoad, l_clReport);
  fCheckOptionalFiles(l_clLogger.m_pclConfManager, l_clReport);
  fCheckSwitches(l_clLogger.m_pclConfManager, l_clReport);
  fCheckCollectTo(l_clLogger.m_pclConfManager, l_clReport);

  int l_nSkipped = 0;
  int l_nLoaded = 0;
  if (l_stLoad.m_nLoadResult == 1) {
    const std::vector<std::string> l_vstrLoaderLines = fSplitLines(l_stLoad.m_strStderr);
    for (int l_nIndx = 1; l_nIndx <= MAX_WATCHED_LOGS; ++l_nIndx) {
      l_nSkipped += fCheckEntry(l_clLogger, l_nIndx, l_vstrLoaderLines, l_clReport);
    }
    l_nLoaded = static_cast<int>(l_clLogger.m_pclLogFileList->fGetLogFileCount());
    fCheckLineRate(l_clLogger, l_clReport);
  } else {
    l_clReport.Line("entries not loaded: the agent ends at start-up before it reads them");
  }
  fCheckKeys(l_clLogger.m_pclConfManager, l_clReport);

  l_clReport.Line("summary: %d entr%s loaded, %d skipped or rejected; %d error%s, %d warning%s", l_nLoaded,
                  l_nLoaded == 1 ? "y" : "ies", l_nSkipped, l_clReport.m_nErrors, l_clReport.m_nErrors == 1 ? "" : "s",
                  l_clReport.m_nWarnings, l_clReport.m_nWarnings == 1 ? "" : "s");
  if (l_bStart) {
    if (l_clReport.m_nStartErrors == 0 && l_nLoaded > 0) return TOOL_EXIT_OK;
    fprintf(stderr, "ColumnTool check: %s: not starting the agent\n",
            l_clReport.m_nStartErrors > 0 ? "the agent would end at start-up" : "the agent would watch no entry");
    return TOOL_EXIT_PROBLEMS;
  }
  return (l_nSkipped > 0 || l_clReport.m_nErrors > 0) ? TOOL_EXIT_PROBLEMS : TOOL_EXIT_OK;
}
