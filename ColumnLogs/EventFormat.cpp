#include "EventFormat.h"

#include <cstdio>

#include "CommonConst.h"
#include "ConfVocabulary.h"

namespace {

// 1 when snprintf's result says the whole text fit, otherwise 0 with the
// buffer emptied (a cut file name or command must never be used).
int fFitOrEmpty(char* buf, size_t size, int written) {
  if (written >= 0 && static_cast<size_t>(written) < size) return 1;
  if (size > 0) buf[0] = '\0';
  return 0;
}

}  // namespace

int fgMakeEventFileName(char* buf, size_t size, const char* outPath, const struct tm* t) {
  if (buf == nullptr || outPath == nullptr || t == nullptr) return -1;
  const int l_nWritten = snprintf(buf, size, "%sing_%04d%02d%02d-%02d%02d%02d", outPath, t->tm_year + 1900,
                                  t->tm_mon + 1, t->tm_mday, t->tm_hour, t->tm_min, t->tm_sec);
  return fFitOrEmpty(buf, size, l_nWritten);
}

int fgMakeCloseOutCommand(char* buf, size_t size, const char* eventFileName, const char* outPath,
                          const struct tm* t) {
  if (buf == nullptr || eventFileName == nullptr || outPath == nullptr || t == nullptr) return -1;
  const int l_nWritten =
      snprintf(buf, size, "mv %s %sout_%04d%02d%02d-%02d%02d%02d > /dev/null 2>&1", eventFileName, outPath,
               t->tm_year + 1900, t->tm_mon + 1, t->tm_mday, t->tm_hour, t->tm_min, t->tm_sec);
  return fFitOrEmpty(buf, size, l_nWritten);
}

const char* fgCompareOperatorText(int compareNum) {
  switch (compareNum) {
    case NUM_COMPARE_GT: return ">";
    case NUM_COMPARE_GE: return ">=";
    case NUM_COMPARE_LT: return "<";
    case NUM_COMPARE_LE: return "<=";
    case NUM_COMPARE_EQ: return "==";
    case NUM_COMPARE_NE: return "!=";
    default: return nullptr;
  }
}

long fgFormatIntMessage(char* buf, size_t size, int compareNum, int value, int threshold) {
  const char* l_pstrOp = fgCompareOperatorText(compareNum);
  if (buf == nullptr || l_pstrOp == nullptr) return -1;
  return snprintf(buf, size, "Value[%d] %s %d", value, l_pstrOp, threshold);
}

long fgFormatFloatMessage(char* buf, size_t size, int compareNum, float value, float threshold) {
  const char* l_pstrOp = fgCompareOperatorText(compareNum);
  if (buf == nullptr || l_pstrOp == nullptr) return -1;
  return snprintf(buf, size, "Value[%.2f] %s %.2f", static_cast<double>(value), l_pstrOp,
                  static_cast<double>(threshold));
}

long fgFormatCharMessage(char* buf, size_t size, int compareNum, const char* column, const char* pattern) {
  if (buf == nullptr || column == nullptr || pattern == nullptr) return -1;
  // A pattern rule (3) reports with the same text as a "differs" rule (2).
  const char* l_pstrFormat = nullptr;
  if (compareNum == CHAR_COMPARE_EQUAL) {
    l_pstrFormat = "Value[%s] == %s";
  } else if (compareNum == CHAR_COMPARE_DIFFER || compareNum == CHAR_COMPARE_PATTERN) {
    l_pstrFormat = "Value[%s] != %s";
  } else {
    return -1;
  }
  return snprintf(buf, size, l_pstrFormat, column, pattern);
}

long fgFormatRuleEvent(char* buf, size_t size, int index, int type, int faultLevel, int column, const char* msg,
                       const char* line) {
  if (buf == nullptr || msg == nullptr || line == nullptr) return -1;
  return snprintf(buf, size, "%d%s%d%s%d%sCOLUMN[%d] %s, ORIGINAL_MSG:%s\n", index, "|", type, SEP_BAR, faultLevel,
                  SEP_BAR, column, msg, line);
}

long fgFormatLineRateEvent(char* buf, size_t size, int index, int level, const char* dateText, int count,
                           int threshold) {
  if (buf == nullptr || dateText == nullptr) return -1;
  return snprintf(buf, size, "%d%s%d%s%d%s%s log count[%d] >= [%d]\n", index, "|", EVENT_TYPE_LINE_RATE, SEP_BAR,
                  level, SEP_BAR, dateText, count, threshold);
}
