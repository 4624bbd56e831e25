// Column rule evaluation of the gatherer: one line is cut into numbered
// columns and the numeric, text and date rules of its watched log are applied
// to each column; the date columns then feed the process-wide lines-per-second
// check.
//
// Hot path: runs for every column of every evaluated line against every rule
// of every watched log. Nothing here allocates or formats unless a rule fires
// (the one exception is a column buffer smaller than the line, which the gather
// cycle never hands over); the column text is cut once into the reused column
// buffer and every rule reads it in place.
#include <climits>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <iterator>
#include <memory>
#include <new>

#include "ColumnLogger.h"
#include "CommonConst.h"
#include "CommonFunc.h"
#include "ConfVocabulary.h"
#include "EventFormat.h"
#include "StrPattern.h"

namespace {

// Messages of numeric rules are short: two numbers of at most 42 characters
// ("%.2f" of the largest float) and an operator.
constexpr size_t NUM_MESSAGE_SIZE = 160;
// Text rule messages hold the column: most fit here, longer ones go to the heap.
constexpr size_t CHAR_MESSAGE_STACK_SIZE = 2048;
// Line-rate event: at most 255 characters of date text plus fixed parts.
constexpr size_t LINE_RATE_EVENT_SIZE = 512;

// Whether `value <op> threshold` holds for a numeric comparison code (1..6).
template <typename T>
bool fCompareFires(int l_nCompareNum, T l_tValue, T l_tThreshold) {
  switch (l_nCompareNum) {
    case NUM_COMPARE_GT: return l_tValue > l_tThreshold;
    case NUM_COMPARE_GE: return l_tValue >= l_tThreshold;
    case NUM_COMPARE_LT: return l_tValue < l_tThreshold;
    case NUM_COMPARE_LE: return l_tValue <= l_tThreshold;
    case NUM_COMPARE_EQ: return l_tValue == l_tThreshold;
    case NUM_COMPARE_NE: return l_tValue != l_tThreshold;
    default: return false;
  }
}

// One of the 52 ASCII letters (locale-independent on purpose: a value text
// with a letter is a unit or a word, not a number).
bool fIsAsciiLetter(char l_chChar) {
  const unsigned char l_uchLower = static_cast<unsigned char>(l_chChar) | 0x20;
  return l_uchLower >= 'a' && l_uchLower <= 'z';
}

// A blank as strtol and strtod skip it in the "C" locale.
bool fIsBlank(char l_chChar) { return l_chChar == ' ' || (l_chChar >= '\t' && l_chChar <= '\r'); }
bool fIsDigit(char l_chChar) { return l_chChar >= '0' && l_chChar <= '9'; }

// First occurrence of the non-empty `l_pstrNeedle` in `l_pstrText`, as strstr
// finds it; `*l_ppstrAfter` receives the end of the match. Columns and the
// texts around numbers are short, where a plain scan beats the set-up of the
// library's vectorised search.
char* fFindShort(char* l_pstrText, const char* l_pstrNeedle, char** l_ppstrAfter) {
  const char l_chFirst = l_pstrNeedle[0];
  for (char* l_pstrPos = l_pstrText; *l_pstrPos != '\0'; ++l_pstrPos) {
    if (*l_pstrPos != l_chFirst) continue;
    size_t l_nLen = 1;
    while (l_pstrNeedle[l_nLen] != '\0' && l_pstrPos[l_nLen] == l_pstrNeedle[l_nLen]) ++l_nLen;
    if (l_pstrNeedle[l_nLen] == '\0') {
      *l_ppstrAfter = l_pstrPos + l_nLen;
      return l_pstrPos;
    }
    if (l_pstrPos[l_nLen] == '\0') return nullptr;  // the text ends inside a partial match
  }
  return nullptr;
}

// The number at the start of [l_pstrBegin, l_pstrEnd) as strtol with base 10
// reads it (blanks, a sign, digits; no digits give 0), saturated at the
// 32-bit limits as strtol saturates at its own.
int fParseInt(const char* l_pstrBegin, const char* l_pstrEnd) {
  const char* l_pstrPos = l_pstrBegin;
  while (l_pstrPos < l_pstrEnd && fIsBlank(*l_pstrPos)) ++l_pstrPos;
  bool l_bNegative = false;
  if (l_pstrPos < l_pstrEnd && (*l_pstrPos == '+' || *l_pstrPos == '-')) l_bNegative = *l_pstrPos++ == '-';
  unsigned long long l_ullMagnitude = 0;
  for (; l_pstrPos < l_pstrEnd && fIsDigit(*l_pstrPos); ++l_pstrPos) {
    // Past 2^32 the result is saturated anyway: stop growing, keep reading.
    if (l_ullMagnitude <= 0xFFFFFFFFULL) l_ullMagnitude = l_ullMagnitude * 10 + static_cast<unsigned>(*l_pstrPos - '0');
  }
  if (l_bNegative) return l_ullMagnitude >= 2147483648ULL ? INT_MIN : -static_cast<int>(l_ullMagnitude);
  return l_ullMagnitude > static_cast<unsigned long long>(INT_MAX) ? INT_MAX : static_cast<int>(l_ullMagnitude);
}

// The number at the start of [l_pstrBegin, l_pstrEnd) as strtod reads it,
// narrowed to single precision. The text holds no letter (the caller has
// refused those), so it is blanks, a sign, digits and at most one point:
// up to 15 significant digits and 22 decimals the value is an exact integer
// divided by an exact power of ten, which IEEE division rounds correctly, as
// strtod does. Longer texts go to strtod itself (over a NUL put at the end
// for the call and taken away again).
float fParseFloat(char* l_pstrBegin, char* l_pstrEnd) {
  static constexpr double kPow10[] = {1e0,  1e1,  1e2,  1e3,  1e4,  1e5,  1e6,  1e7,  1e8,  1e9,  1e10, 1e11,
                                      1e12, 1e13, 1e14, 1e15, 1e16, 1e17, 1e18, 1e19, 1e20, 1e21, 1e22};
  const char* l_pstrPos = l_pstrBegin;
  while (l_pstrPos < l_pstrEnd && fIsBlank(*l_pstrPos)) ++l_pstrPos;
  bool l_bNegative = false;
  if (l_pstrPos < l_pstrEnd && (*l_pstrPos == '+' || *l_pstrPos == '-')) l_bNegative = *l_pstrPos++ == '-';
  unsigned long long l_ullMantissa = 0;
  int l_nSignificant = 0;
  int l_nDecimals = 0;
  bool l_bDigits = false;
  bool l_bPoint = false;
  for (; l_pstrPos < l_pstrEnd; ++l_pstrPos) {
    if (*l_pstrPos == '.' && !l_bPoint) {
      l_bPoint = true;
      continue;
    }
    if (!fIsDigit(*l_pstrPos)) break;
    l_bDigits = true;
    if (l_bPoint) ++l_nDecimals;
    if (l_ullMantissa == 0 && *l_pstrPos == '0') continue;  // leading zeros add nothing
    if (++l_nSignificant > 15) break;
    l_ullMantissa = l_ullMantissa * 10 + static_cast<unsigned>(*l_pstrPos - '0');
  }
  if (!l_bDigits) return 0.0f;  // no conversion: strtod gives +0, even after a '-'
  if (l_nSignificant <= 15 && l_nDecimals <= 22) {
    const double l_dValue = static_cast<double>(l_ullMantissa) / kPow10[l_nDecimals];
    return static_cast<float>(l_bNegative ? -l_dValue : l_dValue);
  }
  const char l_chSaved = *l_pstrEnd;
  *l_pstrEnd = '\0';
  const float l_fValue = static_cast<float>(strtod(l_pstrBegin, nullptr));
  *l_pstrEnd = l_chSaved;
  return l_fValue;
}

// Appends `l_pstrSrc` to the NUL-terminated text in `l_pstrDst` (a buffer of
// `l_nSize` bytes) as far as it fits; the rest is not stored.
void fAppendBounded(char* l_pstrDst, size_t l_nSize, const char* l_pstrSrc) {
  const size_t l_nUsed = strnlen(l_pstrDst, l_nSize - 1);
  const size_t l_nRoom = l_nSize - 1 - l_nUsed;
  const size_t l_nCopy = strnlen(l_pstrSrc, l_nRoom);
  memcpy(l_pstrDst + l_nUsed, l_pstrSrc, l_nCopy);
  l_pstrDst[l_nUsed + l_nCopy] = '\0';
}

// The three passes follow the registries' links rather than their cursors
// (one load a rule instead of a load and a store through the registry);
// fLeaveCursorsAtEnd then leaves each cursor where a cursor walk ends.

// Each registry's cursor as a full walk (fMoveFirst, fMoveNext until null)
// leaves it: past the last rule.
void fLeaveCursorsAtEnd(CColumnLogger& l_clLogger) {
  if (l_clLogger.m_pclNumPatternList != nullptr) {
    l_clLogger.m_pclNumPatternList->fMoveLast();
    l_clLogger.m_pclNumPatternList->fMoveNext();
  }
  if (l_clLogger.m_pclCharPatternList != nullptr) {
    l_clLogger.m_pclCharPatternList->fMoveLast();
    l_clLogger.m_pclCharPatternList->fMoveNext();
  }
  if (l_clLogger.m_pclDatePatternList != nullptr) {
    l_clLogger.m_pclDatePatternList->fMoveLast();
    l_clLogger.m_pclDatePatternList->fMoveNext();
  }
}

// The rules of one watched log in one registry, in registry order: the
// turn's gathered array when there is one, otherwise the whole registry with
// the other logs' rules passed over.
template <typename Rec>
class CLogRules {
 public:
  static CLogRules fGathered(Rec* const* l_ppstRules, int l_nCount) {
    CLogRules l_clRules;
    l_clRules.m_bGathered = true;
    l_clRules.m_ppstRules = l_ppstRules;
    l_clRules.m_nCount = l_nCount;
    return l_clRules;
  }
  template <typename List>
  static CLogRules fRegistry(List* l_pclList, int l_nIndx) {
    CLogRules l_clRules;
    l_clRules.m_pstHead = l_pclList != nullptr ? l_pclList->fGetHeadNode() : nullptr;
    l_clRules.m_nIndx = l_nIndx;
    return l_clRules;
  }
  template <typename Visit>
  void fEach(Visit l_fVisit) const {
    if (m_bGathered) {
      for (int i = 0; i < m_nCount; ++i) l_fVisit(m_ppstRules[i]);
      return;
    }
    for (Rec* l_pstRule = m_pstHead; l_pstRule != nullptr; l_pstRule = l_pstRule->m_pstNext)
      if (l_pstRule->m_nIndex == m_nIndx) l_fVisit(l_pstRule);
  }

 private:
  bool m_bGathered = false;
  Rec* const* m_ppstRules = nullptr;
  int m_nCount = 0;
  Rec* m_pstHead = nullptr;
  int m_nIndx = 0;
};

// The three passes of one column, in this order:
// - numeric: within a run of consecutive rules for this column the first
//   rule that fires ends the run; a rule of the same watched log for another
//   column between them starts a new run;
// - text: every rule of this column, no early stop;
// - date: every date rule of this column records it.
void fColumnPasses(CColumnLogger& l_clLogger, const CLogRules<ST_NUM_PATTERN_LIST>& l_clNum,
                   const CLogRules<ST_CHAR_PATTERN_LIST>& l_clChar, const CLogRules<ST_DATE_PATTERN_LIST>& l_clDate,
                   int l_nColumn, char* l_pstrColumn) {
  l_clNum.fEach([&](ST_NUM_PATTERN_LIST* l_pstRule) {
    if (l_pstRule->m_nComumnNum != l_nColumn) {
      m_nNumFaFoundFlag = 0;
    } else if (m_nNumFaFoundFlag != 1) {
      l_clLogger.fColumnFaultSearchNum(l_pstRule, l_pstrColumn);
    }
  });
  l_clChar.fEach([&](ST_CHAR_PATTERN_LIST* l_pstRule) {
    if (l_pstRule->m_nComumnNum == l_nColumn) l_clLogger.fColumnFaultSearchChar(l_pstRule, l_pstrColumn);
  });
  l_clDate.fEach([&](ST_DATE_PATTERN_LIST* l_pstRule) {
    if (l_pstRule->m_nComumnNum == l_nColumn) l_clLogger.fColumnFaultSearchDate(l_pstRule, l_pstrColumn);
  });
}

}  // namespace

void CColumnLogger::fUseRulePlans(bool l_bUse) {
  for (int i = 0; i < m_nRulePlans; ++i) m_vstRulePlans[i] = ST_RULE_PLAN();
  m_nRulePlans = 0;
  m_bRulePlans = l_bUse;
}

namespace {

// Gathers the rules of watched log `l_nIndx` from one registry, in order,
// into a new array; notes their columns. False when memory is short.
template <typename Rec, typename List>
bool fGatherPlanRules(List* l_pclList, int l_nIndx, std::unique_ptr<Rec*[]>& l_ppstRules, int& l_nCount,
                      uint64_t& l_ulColumns, bool& l_bFar) {
  l_nCount = 0;
  if (l_pclList == nullptr) return true;
  int l_nTotal = 0;
  for (Rec* l_pstRule = l_pclList->fGetHeadNode(); l_pstRule != nullptr; l_pstRule = l_pstRule->m_pstNext)
    if (l_pstRule->m_nIndex == l_nIndx) ++l_nTotal;
  if (l_nTotal == 0) return true;
  l_ppstRules.reset(new (std::nothrow) Rec*[l_nTotal]);
  if (!l_ppstRules) return false;
  for (Rec* l_pstRule = l_pclList->fGetHeadNode(); l_pstRule != nullptr && l_nCount < l_nTotal;
       l_pstRule = l_pstRule->m_pstNext) {
    if (l_pstRule->m_nIndex != l_nIndx) continue;
    l_ppstRules[l_nCount++] = l_pstRule;
    const int l_nColumn = l_pstRule->m_nComumnNum;
    if (l_nColumn >= 1 && l_nColumn <= 64)
      l_ulColumns |= uint64_t{1} << (l_nColumn - 1);
    else
      l_bFar = true;
  }
  return true;
}

}  // namespace

const CColumnLogger::ST_RULE_PLAN* CColumnLogger::fRulePlan(int l_nIndx) {
  for (int i = 0; i < m_nRulePlans; ++i)
    if (m_vstRulePlans[i].m_nIndx == l_nIndx) return &m_vstRulePlans[i];
  if (m_nRulePlans == RULE_PLAN_SLOTS) return nullptr;
  ST_RULE_PLAN& l_stPlan = m_vstRulePlans[m_nRulePlans];
  l_stPlan = ST_RULE_PLAN();
  l_stPlan.m_nIndx = l_nIndx;
  if (!fGatherPlanRules(m_pclNumPatternList, l_nIndx, l_stPlan.m_ppstNum, l_stPlan.m_nNum, l_stPlan.m_ulColumns,
                        l_stPlan.m_bFarColumns) ||
      !fGatherPlanRules(m_pclCharPatternList, l_nIndx, l_stPlan.m_ppstChar, l_stPlan.m_nChar, l_stPlan.m_ulColumns,
                        l_stPlan.m_bFarColumns) ||
      !fGatherPlanRules(m_pclDatePatternList, l_nIndx, l_stPlan.m_ppstDate, l_stPlan.m_nDate, l_stPlan.m_ulColumns,
                        l_stPlan.m_bFarColumns)) {
    l_stPlan = ST_RULE_PLAN();
    return nullptr;
  }
  ++m_nRulePlans;
  return &l_stPlan;
}

int CColumnLogger::fColumnIndexFind(int l_nIndx, int l_nSecLogCntFaultLevel, int l_nSecLogCount) {
  // Only the watched log decides the evaluation; the line-rate thresholds are
  // the process-wide m_nCntFaultArray.
  (void)l_nSecLogCntFaultLevel;
  (void)l_nSecLogCount;

  m_strLogDate[0] = '\0';
  m_strPatternLogDate[0] = '\0';

  char* l_pstrLine = fgCurrentLine();
  if (l_pstrLine != nullptr) {
    // The line is copied once into the column buffer and cut there in place:
    // each delimiter becomes the NUL that ends its column, so every rule
    // reads exactly its column and nothing is copied per column. In a gather
    // cycle or a replay turn CCycleBuffers keeps the column buffer longer
    // than the line; a direct caller may hand over a smaller one, and this
    // line then gets a buffer of its own rather than being cut short or
    // written past the end.
    const size_t l_nLen = strlen(l_pstrLine);
    const size_t l_nNeed = l_nLen + 2;  // the line, a stop delimiter and a NUL
    char* l_pstrColumns = m_pstrOriginalBuf;
    std::unique_ptr<char[]> l_pstrOwnColumns;
    if (l_pstrColumns == nullptr || m_lOriginalBufSize < 0 || static_cast<size_t>(m_lOriginalBufSize) < l_nNeed) {
      l_pstrOwnColumns.reset(new (std::nothrow) char[l_nNeed]);
      l_pstrColumns = l_pstrOwnColumns.get();
    }
    if (l_pstrColumns == nullptr) return RESULT_OK;  // no memory: the line cannot be cut
    memcpy(l_pstrColumns, l_pstrLine, l_nLen);
    // The line holds no NUL before its end, so the scan stops at a delimiter
    // or at this stop delimiter after the last column (a NUL delimiter stops
    // at the NUL after it: the whole line is one column).
    l_pstrColumns[l_nLen] = m_chDilimitor1;
    l_pstrColumns[l_nLen + 1] = '\0';

    const ST_RULE_PLAN* l_pstPlan = m_bRulePlans ? fRulePlan(l_nIndx) : nullptr;
    using NumRules = CLogRules<ST_NUM_PATTERN_LIST>;
    using CharRules = CLogRules<ST_CHAR_PATTERN_LIST>;
    using DateRules = CLogRules<ST_DATE_PATTERN_LIST>;
    const NumRules l_clNum = l_pstPlan != nullptr ? NumRules::fGathered(l_pstPlan->m_ppstNum.get(), l_pstPlan->m_nNum)
                                                  : NumRules::fRegistry(m_pclNumPatternList, l_nIndx);
    const CharRules l_clChar = l_pstPlan != nullptr
                                   ? CharRules::fGathered(l_pstPlan->m_ppstChar.get(), l_pstPlan->m_nChar)
                                   : CharRules::fRegistry(m_pclCharPatternList, l_nIndx);
    const DateRules l_clDate = l_pstPlan != nullptr
                                   ? DateRules::fGathered(l_pstPlan->m_ppstDate.get(), l_pstPlan->m_nDate)
                                   : DateRules::fRegistry(m_pclDatePatternList, l_nIndx);
    const char l_chDelim1 = m_chDilimitor1;
    const char l_chDelim2 = m_nTokFlag == 2 ? m_chDilimitor2 : m_chDilimitor1;
    char* const l_pstrEnd = l_pstrColumns + l_nLen;
    int l_nColumn = 0;
    for (char* l_pstrPos = l_pstrColumns; l_pstrPos < l_pstrEnd; ++l_pstrPos) {
      char* const l_pstrColumn = l_pstrPos;
      if (l_chDelim1 == l_chDelim2) {
        while (*l_pstrPos != l_chDelim1) ++l_pstrPos;
      } else {
        while (*l_pstrPos != l_chDelim1 && *l_pstrPos != l_chDelim2) ++l_pstrPos;
      }
      *l_pstrPos = '\0';
      l_nColumn++;
      m_nNumFaFoundFlag = 0;
      // With the turn's rules at hand, a column without a rule of this log
      // is passed over at once.
      if (l_pstPlan != nullptr && !(l_nColumn <= 64 ? ((l_pstPlan->m_ulColumns >> (l_nColumn - 1)) & 1) != 0
                                                   : l_pstPlan->m_bFarColumns))
        continue;
      fColumnPasses(*this, l_clNum, l_clChar, l_clDate, l_nColumn, l_pstrColumn);
    }
    if (l_nColumn > 0) fLeaveCursorsAtEnd(*this);
  }

  fLineRateCheck(l_nIndx);
  return RESULT_OK;
}

// The value text is read in place, between two pointers into the column:
// nothing is copied and the column stays as later rules must read it.
int CColumnLogger::fColumnFaultSearchNum(ST_NUM_PATTERN_LIST* l_pstNumPatternList, char* l_pstrColumnP) {
  if (l_pstNumPatternList == nullptr || l_pstrColumnP == nullptr) return RESULT_FAIL;
  ST_NUM_PATTERN_LIST* l_pstRule = l_pstNumPatternList;

  // 1. Value text [l_pstrValue, l_pstrEnd); l_pstrEnd stays null when the
  // value runs to the end of the column.
  char* l_pstrValue = l_pstrColumnP;
  char* l_pstrEnd = nullptr;
  if (l_pstRule->m_strExt1[0] != '\0' && fFindShort(l_pstrColumnP, l_pstRule->m_strExt1, &l_pstrValue) != nullptr &&
      l_pstRule->m_strExt2[0] != '\0') {
    char* l_pstrAfter = nullptr;
    l_pstrEnd = fFindShort(l_pstrValue, l_pstRule->m_strExt2, &l_pstrAfter);
  }

  // 2. A letter anywhere in the value text: the rule does not apply. The
  // same scan finds the end of a value that runs to the end of the column.
  char* l_pstrScan = l_pstrValue;
  for (; l_pstrEnd != nullptr ? l_pstrScan < l_pstrEnd : *l_pstrScan != '\0'; ++l_pstrScan) {
    if (fIsAsciiLetter(*l_pstrScan)) return RESULT_FAIL;
  }
  l_pstrEnd = l_pstrScan;

  // 3. Parse from the start of the value text, bounded by its end: as a
  // 32-bit integer for an integer rule, as a single-precision number
  // otherwise (only the number the rule compares is needed).
  const bool l_bInteger = l_pstRule->m_nFaultDecide == NUM_DECIDE_INT;
  const int l_nValue = l_bInteger ? fParseInt(l_pstrValue, l_pstrEnd) : 0;
  const float l_fValue = l_bInteger ? 0.0f : fParseFloat(l_pstrValue, l_pstrEnd);

  // 4./5. Compare; format the message only when the rule fires.
  char l_strMsg[NUM_MESSAGE_SIZE];
  if (l_bInteger) {
    if (!fCompareFires(l_pstRule->m_nCompareNum, l_nValue, l_pstRule->m_nFaultValue)) return RESULT_OK;
    fgFormatIntMessage(l_strMsg, sizeof(l_strMsg), l_pstRule->m_nCompareNum, l_nValue, l_pstRule->m_nFaultValue);
  } else {
    if (!fCompareFires(l_pstRule->m_nCompareNum, l_fValue, l_pstRule->m_fFaultValue)) return RESULT_OK;
    fgFormatFloatMessage(l_strMsg, sizeof(l_strMsg), l_pstRule->m_nCompareNum, l_fValue, l_pstRule->m_fFaultValue);
  }

  // 6. Event, then end the run of rules for this column.
  fMakeOutFile(l_pstRule, EVENT_TYPE_NUMBER, l_strMsg);
  m_nNumFaFoundFlag = 1;
  return RESULT_OK;
}

int CColumnLogger::fColumnFaultSearchChar(ST_CHAR_PATTERN_LIST* l_pstCharPatternList, char* l_pstrColumnP) {
  if (l_pstCharPatternList == nullptr || l_pstrColumnP == nullptr) return RESULT_FAIL;
  ST_CHAR_PATTERN_LIST* l_pstRule = l_pstCharPatternList;

  bool l_bFires = false;
  switch (l_pstRule->m_nCompareNum) {
    case CHAR_COMPARE_EQUAL: l_bFires = strcmp(l_pstrColumnP, l_pstRule->m_strFaultPattern) == 0; break;
    case CHAR_COMPARE_DIFFER: l_bFires = strcmp(l_pstrColumnP, l_pstRule->m_strFaultPattern) != 0; break;
    case CHAR_COMPARE_PATTERN: l_bFires = fPattCompforChar(l_pstRule, 0, l_pstrColumnP) == 1; break;
    default: break;
  }
  if (!l_bFires) return RESULT_OK;

  // The message quotes the whole column, however long it is.
  char l_strStack[CHAR_MESSAGE_STACK_SIZE];
  std::unique_ptr<char[]> l_pstrHeap;
  char* l_pstrMsg =
      fgFormatFull(l_strStack, sizeof(l_strStack), l_pstrHeap, nullptr, [&](char* l_pstrBuf, size_t l_nSize) {
        return fgFormatCharMessage(l_pstrBuf, l_nSize, l_pstRule->m_nCompareNum, l_pstrColumnP,
                                   l_pstRule->m_strFaultPattern);
      });
  // Without memory for the message the event is still counted (fMakeOutFile
  // with a null message advances the counters and writes nothing).
  fMakeOutFile(l_pstRule, EVENT_TYPE_CHAR, l_pstrMsg);
  return RESULT_OK;
}

int CColumnLogger::fColumnFaultSearchDate(ST_DATE_PATTERN_LIST* l_pstDatePatternList, char* l_pstrColumnP) {
  if (l_pstDatePatternList == nullptr || l_pstrColumnP == nullptr) return RESULT_FAIL;
  fAppendBounded(m_strPatternLogDate, sizeof(m_strPatternLogDate), l_pstDatePatternList->m_strDatePattern);
  fAppendBounded(m_strPatternLogDate, sizeof(m_strPatternLogDate), " ");
  fAppendBounded(m_strLogDate, sizeof(m_strLogDate), l_pstrColumnP);
  fAppendBounded(m_strLogDate, sizeof(m_strLogDate), " ");
  return RESULT_OK;
}

// The date layout marks the two seconds digits with "ss"; the same offset in
// the date text holds them. Offsets past the stored date text read as empty.
// Runs for every evaluated line, mostly with no date rule at all (both texts
// empty, time key 0): hence the short scan and the two-character reading.
int CColumnLogger::fConvertDateToInt() {
  char* l_pstrAfter = nullptr;
  const char* l_pstrSeconds = fFindShort(m_strPatternLogDate, "ss", &l_pstrAfter);
  const size_t l_nOffset = l_pstrSeconds != nullptr ? static_cast<size_t>(l_pstrSeconds - m_strPatternLogDate)
                                                     : strnlen(m_strPatternLogDate, sizeof(m_strPatternLogDate));
  const size_t l_nDateLen = strnlen(m_strLogDate, sizeof(m_strLogDate));
  char l_strTwo[2] = {0, 0};
  size_t l_nTwo = 0;
  if (l_nOffset < l_nDateLen) l_strTwo[l_nTwo++] = m_strLogDate[l_nOffset];
  if (l_nOffset + 1 < l_nDateLen) l_strTwo[l_nTwo++] = m_strLogDate[l_nOffset + 1];
  m_nNewTime = fParseInt(l_strTwo, l_strTwo + l_nTwo);  // as strtol with base 10 reads them
  return RESULT_OK;
}

int CColumnLogger::fPattCompforChar(ST_CHAR_PATTERN_LIST* l_pstCharPatternList, int l_nPatternIndex,
                                    char* l_pstrString) {
  if (l_pstCharPatternList == nullptr || l_nPatternIndex < 0 ||
      static_cast<size_t>(l_nPatternIndex) >= std::size(l_pstCharPatternList->m_vpclStrPattern))
    return RESULT_FAIL;
  CStrPattern* l_pclPattern = l_pstCharPatternList->m_vpclStrPattern[l_nPatternIndex];
  if (l_pclPattern == nullptr) return RESULT_FAIL;
  if (l_pstrString == nullptr) return RESULT_REFUSED;
  return l_pclPattern->fPatternEx(l_pstrString) == 1 ? RESULT_OK : RESULT_REFUSED;
}

// The second named by m_nOldTime ends when a line carries another time key;
// its line count is then held against the thresholds from level 4 down, and
// the highest level reached gets one event.
void CColumnLogger::fLineRateCheck(int l_nIndx) {
  // A line without date columns (both texts empty) has the time key 0, as
  // fConvertDateToInt would read it.
  if (m_strPatternLogDate[0] == '\0' && m_strLogDate[0] == '\0')
    m_nNewTime = 0;
  else
    fConvertDateToInt();
  if (m_nNewTime == m_nOldTime) {
    m_nSameTimeCnt++;
  } else {
    for (int l_nLevel = FAULT_LEVELS - 1; l_nLevel >= 0; --l_nLevel) {
      const int l_nThreshold = m_nCntFaultArray[l_nLevel];
      if (l_nThreshold == -1) continue;  // no threshold for this level
      if (l_nThreshold <= m_nSameTimeCnt) {
        char l_strEvent[LINE_RATE_EVENT_SIZE];
        fgFormatLineRateEvent(l_strEvent, sizeof(l_strEvent), l_nIndx, l_nLevel, m_strOldLogDate, m_nSameTimeCnt,
                              l_nThreshold);
        fMakeOutFile(l_strEvent);
        break;
      }
    }
    m_nSameTimeCnt = 1;
  }
  m_nOldTime = m_nNewTime;
  if (m_strLogDate[0] == '\0')
    m_strOldLogDate[0] = '\0';
  else
    fgStrCopy(m_strOldLogDate, sizeof(m_strOldLogDate), m_strLogDate);
}
