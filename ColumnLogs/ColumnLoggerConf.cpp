// Loading the monitoring configuration: OUTPUT_PATH, LINE_WAIT_CNT and the
// LOG01_ .. LOG19_ entries with their line patterns and column rules.
#include <cstdarg>
#include <cstdlib>
#include <cstring>

#include "ColumnLogger.h"
#include "CommonConst.h"
#include "CommonFunc.h"
#include "ConfVocabulary.h"
#include "NString.h"
#include "OmniLog.h"

namespace {

// A refused entry or key is named on stderr and in the diagnostic log.
void fReportRejected(int l_nIndx, const char* l_pstrSuffix, const char* l_pstrFormat, ...)
    __attribute__((format(printf, 3, 4)));
void fReportRejected(int l_nIndx, const char* l_pstrSuffix, const char* l_pstrFormat, ...) {
  char l_strReason[512] = {0};
  va_list l_vaArgs;
  va_start(l_vaArgs, l_pstrFormat);
  vsnprintf(l_strReason, sizeof(l_strReason), l_pstrFormat, l_vaArgs);
  va_end(l_vaArgs);
  fprintf(stderr, "LOG%02d_%s rejected: %s\n", l_nIndx, l_pstrSuffix, l_strReason);
  fgLogRecord(LOG_GRADE_INFO, LOG_CODE_GATHER, "LOG%02d_%s rejected: %s", l_nIndx, l_pstrSuffix, l_strReason);
}

// Cuts `l_pstrEntry` at `l_pstrSep` into at most `l_nMax` fields; returns
// how many were found. Writes NULs into the entry.
int fSplitFields(char* l_pstrEntry, char* l_pstrSep, char** l_ppstrFields, int l_nMax) {
  char* l_pstrSave = nullptr;
  int l_nCount = 0;
  for (char* l_pstrField = Nstrstrtok(l_pstrEntry, l_pstrSep, &l_pstrSave); l_pstrField != nullptr && l_nCount < l_nMax;
       l_pstrField = Nstrstrtok(nullptr, l_pstrSep, &l_pstrSave)) {
    l_ppstrFields[l_nCount++] = l_pstrField;
  }
  return l_nCount;
}

// Walks the entries of a rule or threshold value divided by `l_pstrSep`,
// stopping at the end or at the first empty entry, and calls `fOnEntry`
// with each entry's fields (cut at `l_pstrFieldSep`) and their count. Stops
// early when fOnEntry returns false. Writes NULs into the value.
template <typename F>
void fWalkEntries(char* l_pstrValue, char* l_pstrSep, char* l_pstrFieldSep, int l_nMaxFields, F fOnEntry) {
  char* l_pstrSave = nullptr;
  for (char* l_pstrEntry = Nstrstrtok(l_pstrValue, l_pstrSep, &l_pstrSave); l_pstrEntry != nullptr && *l_pstrEntry != '\0';
       l_pstrEntry = Nstrstrtok(nullptr, l_pstrSep, &l_pstrSave)) {
    char* l_vpstrFields[NUMBER_FIELDS] = {nullptr};
    const int l_nFound = fSplitFields(l_pstrEntry, l_pstrFieldSep, l_vpstrFields, l_nMaxFields);
    if (!fOnEntry(l_vpstrFields, l_nFound)) return;
  }
}

int fToInt(const char* l_pstrText) { return static_cast<int>(strtol(l_pstrText, nullptr, 10)); }

}  // namespace

int CColumnLogger::fPatternCheck(char* l_pstrPattern, char* l_pstrMsg) {
  if (l_pstrMsg != nullptr) l_pstrMsg[0] = '\0';
  if (l_pstrPattern == nullptr || strlen(l_pstrPattern) > PATTERN_VALUE_MAX) return -1;
  return 0;
}

int CColumnLogger::fLoadConfInfo() {
  fgLogRecord(LOG_GRADE_INFO, LOG_CODE_GATHER, "fLoadConfInfo start");
  if (m_pclConfManager == nullptr) return 0;

  // The two global keys are required: without them the agent would write its
  // events to an unintended place, so it refuses to start.
  char* l_pstrOutPath = m_pclConfManager->fGetOpt(const_cast<char*>(KEY_OUTPUT_PATH));
  char* l_pstrWaitCnt = m_pclConfManager->fGetOpt(const_cast<char*>(KEY_LINE_WAIT_CNT));
  const struct {
    const char* m_pstrKey;
    const char* m_pstrValue;
    size_t m_nMaxLen;
  } l_vstGlobals[] = {{KEY_OUTPUT_PATH, l_pstrOutPath, OUTPUT_PATH_MAX}, {KEY_LINE_WAIT_CNT, l_pstrWaitCnt, LINE_WAIT_CNT_MAX}};
  for (const auto& l_stGlobal : l_vstGlobals) {
    if (l_stGlobal.m_pstrValue == nullptr) {
      fprintf(stderr, "%s is NULL\n", l_stGlobal.m_pstrKey);
      fgLogRecord(LOG_GRADE_INFO, LOG_CODE_GATHER, "%s is NULL", l_stGlobal.m_pstrKey);
      return 0;
    }
    const size_t l_nLen = strlen(l_stGlobal.m_pstrValue);
    if (l_nLen > l_stGlobal.m_nMaxLen) {
      fprintf(stderr, "%s is too long (%zu characters, at most %zu)\n", l_stGlobal.m_pstrKey, l_nLen,
              l_stGlobal.m_nMaxLen);
      fgLogRecord(LOG_GRADE_INFO, LOG_CODE_GATHER, "%s is too long (%zu characters, at most %zu)", l_stGlobal.m_pstrKey,
                  l_nLen, l_stGlobal.m_nMaxLen);
      return 0;
    }
  }
  memset(m_strOutPutPath, 0, sizeof(m_strOutPutPath));
  fgStrCopy(m_strOutPutPath, sizeof(m_strOutPutPath), l_pstrOutPath);
  m_nLineWaitTime = fToInt(l_pstrWaitCnt);

  for (int l_nIndx = 1; l_nIndx <= MAX_WATCHED_LOGS; ++l_nIndx) {
    char* l_vpstrValues[ENTRY_KEY_COUNT] = {nullptr};
    bool l_bComplete = true;
    for (int l_nKey = 0; l_nKey < ENTRY_KEY_COUNT && l_bComplete; ++l_nKey) {
      char l_strKey[ENTRY_KEY_SIZE];
      fgEntryKey(l_strKey, sizeof(l_strKey), l_nIndx, ENTRY_KEYS[l_nKey].m_pstrSuffix);
      l_vpstrValues[l_nKey] = m_pclConfManager->fGetOpt(l_strKey);
      l_bComplete = l_vpstrValues[l_nKey] != nullptr;
    }
    if (!l_bComplete) continue;  // an incomplete entry is skipped without a message

    bool l_bFits = true;
    for (int l_nKey = 0; l_nKey < ENTRY_KEY_COUNT && l_bFits; ++l_nKey) {
      const size_t l_nLen = strlen(l_vpstrValues[l_nKey]);
      if (ENTRY_KEYS[l_nKey].m_nMaxLen > 0 && l_nLen > ENTRY_KEYS[l_nKey].m_nMaxLen) {
        fReportRejected(l_nIndx, ENTRY_KEYS[l_nKey].m_pstrSuffix, "value of %zu characters, at most %zu",
                        l_nLen, ENTRY_KEYS[l_nKey].m_nMaxLen);
        l_bFits = false;
      }
    }
    if (!l_bFits) continue;

    // Private copies: registration writes NULs into them.
    char l_strName[512], l_strSecLog[128], l_strDelimitor[32], l_strNumber[512], l_strChar[512], l_strDate[512];
    char l_strPattern[2048];
    fgStrCopy(l_strName, sizeof(l_strName), l_vpstrValues[KEY_NAME]);
    fgStrCopy(l_strSecLog, sizeof(l_strSecLog), l_vpstrValues[KEY_SECLOG]);
    fgStrCopy(l_strDelimitor, sizeof(l_strDelimitor), l_vpstrValues[KEY_DELIMITOR]);
    fgStrCopy(l_strNumber, sizeof(l_strNumber), l_vpstrValues[KEY_NUMBER]);
    fgStrCopy(l_strChar, sizeof(l_strChar), l_vpstrValues[KEY_CHAR]);
    fgStrCopy(l_strDate, sizeof(l_strDate), l_vpstrValues[KEY_DATE]);
    fgStrCopy(l_strPattern, sizeof(l_strPattern), l_vpstrValues[KEY_PATTERN]);
    const int l_nLogType = fToInt(l_vpstrValues[KEY_TYPE]);
    const char l_chCreateType = static_cast<char>(strtol(l_vpstrValues[KEY_CHECK_TYPE], nullptr, 10) & 0xFF);

    if (g_nPrint == 1) {
      fprintf(stderr,
              "Index:%d, LogFileName:%s, CreateType:%d, LogType:%d, LogFaultPattern:%s, Start-Pattern:%s, "
              "End-Pattern:%s, All-Pattern-Check:%d, SkipTime:%d, SkipPattern:%s, Exec:%s, SaveFormat:%s, "
              "SaveFile:%s\n",
              l_nIndx, l_strName, static_cast<int>(l_chCreateType), l_nLogType, l_strPattern, VALUE_NONE,
              VALUE_NONE, 0, 0, VALUE_NONE, VALUE_NONE, VALUE_NONE, VALUE_NONE);
    }
    char l_strNull[TINY_BUF_SIZE];  // the unused arguments
    fgStrCopy(l_strNull, sizeof(l_strNull), VALUE_NONE);
    fAddLogInfo(l_nIndx, l_strName, l_chCreateType, l_nLogType, l_strPattern, l_strNull, l_strNull, 0, 0, l_strNull,
                l_strNull, l_strNull, l_strNull, l_strSecLog, l_strDelimitor, l_strNumber, l_strChar, l_strDate);
  }

  fgLogRecord(LOG_GRADE_INFO, LOG_CODE_GATHER, "fLoadConfInfo end");
  return 1;
}

namespace {

// The multi-part values of an entry and the shape of their entries.
enum EN_RULE_VALUE { VALUE_SECLOG, VALUE_NUMBER, VALUE_CHAR, VALUE_DATE };
const struct {
  const char* m_pstrSuffix;
  int m_nFields;
} RULE_VALUES[] = {{ENTRY_KEYS[KEY_SECLOG].m_pstrSuffix, SECLOG_FIELDS},
                   {ENTRY_KEYS[KEY_NUMBER].m_pstrSuffix, NUMBER_FIELDS},
                   {ENTRY_KEYS[KEY_CHAR].m_pstrSuffix, CHAR_FIELDS},
                   {ENTRY_KEYS[KEY_DATE].m_pstrSuffix, DATE_FIELDS}};

// Checks the shape of one multi-part value before anything of the entry is
// registered, so that an entry is either taken whole or refused whole: every
// entry has all its fields, fault levels are 0 to 4, and the texts around a
// numeric value fit their 64-byte buffers. Works on a copy; false (after the
// report) when the value is refused.
bool fCheckRuleValue(int l_nIndx, EN_RULE_VALUE l_enKind, const char* l_pstrValue, char* l_pstrSep,
                     char* l_pstrFieldSep) {
  if (strcmp(l_pstrValue, VALUE_NONE) == 0) return true;
  const char* l_pstrSuffix = RULE_VALUES[l_enKind].m_pstrSuffix;
  const int l_nFields = RULE_VALUES[l_enKind].m_nFields;
  char l_strCopy[512];
  // A value longer than the copy would be checked only in part while the
  // registration walks it whole; fLoadConfInfo never passes one, direct
  // callers of fAddLogInfo may.
  if (fgStrCopy(l_strCopy, sizeof(l_strCopy), l_pstrValue) != 1) {
    fReportRejected(l_nIndx, l_pstrSuffix, "value of %zu characters, at most %zu", strlen(l_pstrValue),
                    sizeof(l_strCopy) - 1);
    return false;
  }
  bool l_bGood = true;
  int l_nEntry = 0;
  fWalkEntries(l_strCopy, l_pstrSep, l_pstrFieldSep, l_nFields, [&](char** l_ppstrFields, int l_nFound) {
    ++l_nEntry;
    if (l_nFound < l_nFields) {
      fReportRejected(l_nIndx, l_pstrSuffix, "entry %d has %d field(s), %d needed", l_nEntry, l_nFound, l_nFields);
      l_bGood = false;
    } else if (l_enKind == VALUE_SECLOG) {
      const int l_nLevel = fToInt(l_ppstrFields[0]);
      if (l_nLevel < 0 || l_nLevel >= FAULT_LEVELS) {
        fReportRejected(l_nIndx, l_pstrSuffix, "entry %d has fault level %d, outside 0 to 4", l_nEntry, l_nLevel);
        l_bGood = false;
      }
    } else if (l_enKind == VALUE_NUMBER) {
      for (int l_nField = 4; l_nField < NUMBER_FIELDS && l_bGood; ++l_nField) {
        if (strlen(l_ppstrFields[l_nField]) > RULE_TEXT_MAX) {
          fReportRejected(l_nIndx, l_pstrSuffix, "entry %d field %d longer than %zu characters", l_nEntry,
                          l_nField + 1, RULE_TEXT_MAX);
          l_bGood = false;
        }
      }
    }
    return l_bGood;
  });
  return l_bGood;
}

}  // namespace

int CColumnLogger::fAddLogInfo(int l_nIndx, char* l_pstrLogFileName, char l_chCreateType, int l_nLogType,
                               char* l_pstrLogFaultPattern, char* /*l_pstrStartPattern*/, char* /*l_pstrEndPattern*/,
                               int /*l_nAllPatternCheck*/, int /*l_nSkipTime*/, char* /*l_pstrSkipPattern*/,
                               char* /*l_pstrExec*/, char* /*l_pstrSaveFormat*/, char* /*l_pstrSaveFile*/,
                               char* l_pstrSecLogLevelCnt, char* l_pstrDelimitor, char* l_pstrNumPattern,
                               char* l_pstrCharPattern, char* l_pstrDatePattern) {
  char* const l_pstrTilde = m_vstrSplit[0];
  char* const l_pstrBar = m_vstrSplit[1];

  char l_strMsg[2048] = {0};
  const int l_nCheck = fPatternCheck(l_pstrLogFaultPattern, l_strMsg);
  if (l_nCheck < 0) {
    fprintf(stderr, "add log failed : pattern syntax error(error no : %d, %s)\n", l_nCheck, l_strMsg);
    fgLogRecord(LOG_GRADE_INFO, LOG_CODE_GATHER, "add log failed : pattern syntax error(error no : %d, %s)", l_nCheck,
                l_strMsg);
    return l_nCheck;
  }
  if (l_pstrLogFileName == nullptr || l_pstrSecLogLevelCnt == nullptr || l_pstrDelimitor == nullptr ||
      l_pstrNumPattern == nullptr || l_pstrCharPattern == nullptr || l_pstrDatePattern == nullptr) {
    return -1;
  }
  if (!fCheckRuleValue(l_nIndx, VALUE_SECLOG, l_pstrSecLogLevelCnt, l_pstrBar, l_pstrTilde) ||
      !fCheckRuleValue(l_nIndx, VALUE_NUMBER, l_pstrNumPattern, l_pstrBar, l_pstrTilde) ||
      !fCheckRuleValue(l_nIndx, VALUE_CHAR, l_pstrCharPattern, l_pstrBar, l_pstrTilde) ||
      !fCheckRuleValue(l_nIndx, VALUE_DATE, l_pstrDatePattern, l_pstrBar, l_pstrTilde)) {
    return -1;
  }

  if (m_pclLogFileList->fAddLogFile(l_nIndx, l_pstrLogFileName, l_chCreateType, l_nLogType) != 1) return -1;

  for (int& l_nThreshold : m_nCntFaultArray) l_nThreshold = -1;
  int l_nLastLevel = 0;
  int l_nLastCount = 0;
  if (strcmp(l_pstrSecLogLevelCnt, VALUE_NONE) != 0) {
    fWalkEntries(l_pstrSecLogLevelCnt, l_pstrBar, l_pstrTilde, SECLOG_FIELDS, [&](char** l_ppstrFields, int) {
      l_nLastLevel = fToInt(l_ppstrFields[0]);
      l_nLastCount = fToInt(l_ppstrFields[1]);
      fgLogRecord(LOG_GRADE_INFO, LOG_CODE_GATHER, "Cnt FaultLevel[%d][%d]", l_nLastLevel, l_nLastCount);
      m_nCntFaultArray[l_nLastLevel] = l_nLastCount;
      return true;
    });
  }

  if (m_pclLogFileList->fAddLogPattern(l_nIndx, l_pstrLogFaultPattern, l_nLastLevel, l_nLastCount, l_pstrDelimitor) !=
      1) {
    m_pclLogFileList->fDelLogFile(l_nIndx);
    fgLogRecord(LOG_GRADE_INFO, LOG_CODE_GATHER, "add log pattern failed : pattern syntax error(error : %s)",
                l_pstrLogFaultPattern);
    return -1;
  }
  if (g_nPrint == 1) fprintf(stderr, "add log pattern success!!\n");
  fgLogRecord(LOG_GRADE_INFO, LOG_CODE_GATHER, "Delimitor[%s]", l_pstrDelimitor);

  // Whole or nothing: a rule that cannot be registered (memory exhausted)
  // takes the entry's watched log and every rule already registered with it.
  if (fRegisterNumRules(l_nIndx, l_pstrNumPattern) != RESULT_OK ||
      fRegisterCharRules(l_nIndx, l_pstrCharPattern) != RESULT_OK ||
      fRegisterDateRules(l_nIndx, l_pstrDatePattern) != RESULT_OK) {
    m_pclNumPatternList->fDelLinkedList(l_nIndx);
    m_pclCharPatternList->fDelLinkedList(l_nIndx);
    m_pclDatePatternList->fDelLinkedList(l_nIndx);
    m_pclLogFileList->fDelLogFile(l_nIndx);
    return -1;
  }
  return 0;
}

namespace {

// Registers every entry of a rule value (entries at `l_pstrSep`, fields at
// `l_pstrFieldSep`) through `fAddRule`, which returns true when it stored the
// entry's rule. "NULL" is only recorded ("<l_pstrName> -> NULL"). 1 when
// every rule was stored; -1, after naming the entry's key, at the first that
// was not.
template <typename F>
int fRegisterEach(int l_nIndx, char* l_pstrValue, char* l_pstrSep, char* l_pstrFieldSep, EN_ENTRY_KEY l_enKey,
                  const char* l_pstrName, int l_nFields, F fAddRule) {
  if (strcmp(l_pstrValue, VALUE_NONE) == 0) {
    fgLogRecord(LOG_GRADE_INFO, LOG_CODE_GATHER, "%s -> NULL", l_pstrName);
    return RESULT_OK;
  }
  int l_nResult = RESULT_OK;
  fWalkEntries(l_pstrValue, l_pstrSep, l_pstrFieldSep, l_nFields, [&](char** l_ppstrFields, int) {
    if (fAddRule(l_ppstrFields)) return true;
    fReportRejected(l_nIndx, ENTRY_KEYS[l_enKey].m_pstrSuffix, "rule not registered (memory exhausted)");
    l_nResult = RESULT_FAIL;
    return false;
  });
  return l_nResult;
}

}  // namespace

int CColumnLogger::fRegisterNumRules(int l_nIndx, char* l_pstrValue) {
  return fRegisterEach(
      l_nIndx, l_pstrValue, m_vstrSplit[1], m_vstrSplit[0], KEY_NUMBER, "NumPattern", NUMBER_FIELDS,
      [&](char** l_ppstrFields) {
        const int l_nColumn = fToInt(l_ppstrFields[0]);
        const int l_nLevel = fToInt(l_ppstrFields[1]);
        const int l_nValue = fToInt(l_ppstrFields[2]);
        const float l_fValue = static_cast<float>(strtod(l_ppstrFields[2], nullptr));
        const int l_nDecide = strchr(l_ppstrFields[2], '.') != nullptr ? NUM_DECIDE_FLOAT : NUM_DECIDE_INT;
        const int l_nCompare = fToInt(l_ppstrFields[3]);
        char l_strExt1[64], l_strExt2[64];
        fgStrCopy(l_strExt1, sizeof(l_strExt1), l_ppstrFields[4]);
        fgStrCopy(l_strExt2, sizeof(l_strExt2), l_ppstrFields[5]);
        fgLogRecord(LOG_GRADE_INFO, LOG_CODE_GATHER, "NumPattern [%d][%d][%d][%d][%d][%s][%s]", l_nIndx, l_nColumn,
                    l_nLevel, l_nValue, l_nCompare, l_strExt1, l_strExt2);
        return m_pclNumPatternList->fAddLinkedList(l_nIndx, l_nColumn, l_nLevel, l_nDecide, l_nValue, l_fValue,
                                                   l_nCompare, l_strExt1, l_strExt2) == RESULT_OK;
      });
}

int CColumnLogger::fRegisterCharRules(int l_nIndx, char* l_pstrValue) {
  return fRegisterEach(l_nIndx, l_pstrValue, m_vstrSplit[1], m_vstrSplit[0], KEY_CHAR, "CharPattern", CHAR_FIELDS,
                       [&](char** l_ppstrFields) {
                         const int l_nColumn = fToInt(l_ppstrFields[0]);
                         const int l_nLevel = fToInt(l_ppstrFields[1]);
                         const int l_nCompare = fToInt(l_ppstrFields[3]);
                         char l_strText[512];
                         fgStrCopy(l_strText, sizeof(l_strText), l_ppstrFields[2]);
                         fgLogRecord(LOG_GRADE_INFO, LOG_CODE_GATHER, "CharPattern [%d][%d][%d][%d][%s]", l_nIndx,
                                     l_nColumn, l_nLevel, l_nCompare, l_strText);
                         // A pattern that does not compile is kept (the rule never fires), as for
                         // line patterns; only a rule that cannot be stored fails the entry.
                         return m_pclCharPatternList->fAddLinkedList(l_nIndx, l_nColumn, l_nLevel, l_nCompare,
                                                                     l_strText) == RESULT_OK &&
                                (l_nCompare != CHAR_COMPARE_PATTERN ||
                                 m_pclCharPatternList->fAddPatternLinkedList(l_nIndx, l_strText) != RESULT_FAIL);
                       });
}

int CColumnLogger::fRegisterDateRules(int l_nIndx, char* l_pstrValue) {
  return fRegisterEach(l_nIndx, l_pstrValue, m_vstrSplit[1], m_vstrSplit[0], KEY_DATE, "DatePattern", DATE_FIELDS,
                       [&](char** l_ppstrFields) {
                         const int l_nColumn = fToInt(l_ppstrFields[0]);
                         char l_strLayout[512];
                         fgStrCopy(l_strLayout, sizeof(l_strLayout), l_ppstrFields[1]);
                         fgLogRecord(LOG_GRADE_INFO, LOG_CODE_GATHER, "DatePattern [%d][%d][%s]", l_nIndx, l_nColumn,
                                     l_strLayout);
                         return m_pclDatePatternList->fAddLinkedList(l_nIndx, l_nColumn, l_strLayout) == RESULT_OK;
                       });
}
