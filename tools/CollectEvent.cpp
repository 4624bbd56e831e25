#include "CollectEvent.h"

#include <climits>
#include <cstring>
#include <vector>

#include "CommonConst.h"

namespace {

constexpr char ORIGINAL_MARK[] = ", ORIGINAL_MSG:";
constexpr size_t ORIGINAL_MARK_LEN = sizeof(ORIGINAL_MARK) - 1;
constexpr char RATE_MARK[] = " log count[";
// A text event with more candidate places than this is not worth the search:
// it is delivered unparsed.
constexpr size_t MAX_READING_PLACES = 16;

// A decimal int as "%d" writes it, starting at *l_pnAt; moves *l_pnAt past it.
bool fReadInt(const std::string& l_strText, size_t* l_pnAt, int* l_pnValue) {
  size_t l_nAt = *l_pnAt;
  const bool l_bNegative = l_nAt < l_strText.size() && l_strText[l_nAt] == '-';
  if (l_bNegative) ++l_nAt;
  const size_t l_nDigits = l_nAt;
  // "%d" writes no leading zero and no "-0".
  if (l_nAt + 1 < l_strText.size() && l_strText[l_nAt] == '0' &&
      (l_bNegative || (l_strText[l_nAt + 1] >= '0' && l_strText[l_nAt + 1] <= '9'))) {
    return false;
  }
  if (l_bNegative && l_nAt < l_strText.size() && l_strText[l_nAt] == '0') return false;
  long long l_llValue = 0;
  while (l_nAt < l_strText.size() && l_strText[l_nAt] >= '0' && l_strText[l_nAt] <= '9') {
    l_llValue = l_llValue * 10 + (l_strText[l_nAt] - '0');
    if (l_llValue > static_cast<long long>(INT_MAX) + 1) return false;
    ++l_nAt;
  }
  if (l_nAt == l_nDigits) return false;
  if (l_bNegative) l_llValue = -l_llValue;
  if (l_llValue > INT_MAX || l_llValue < INT_MIN) return false;
  *l_pnValue = static_cast<int>(l_llValue);
  *l_pnAt = l_nAt;
  return true;
}

bool fReadText(const std::string& l_strText, size_t* l_pnAt, const char* l_pstrWhat) {
  const size_t l_nLen = strlen(l_pstrWhat);
  if (l_strText.compare(*l_pnAt, l_nLen, l_pstrWhat) != 0) return false;
  *l_pnAt += l_nLen;
  return true;
}

// A number as "%d" or "%.2f" prints it (inf and nan included).
bool fIsPrintedNumber(const std::string& l_strText) {
  if (l_strText.empty()) return false;
  for (const char l_chChar : l_strText) {
    if (strchr("-0123456789.infa", l_chChar) == nullptr) return false;
  }
  return true;
}

bool fIsNumericOp(const std::string& l_strOp) {
  return l_strOp == ">" || l_strOp == ">=" || l_strOp == "<" || l_strOp == "<=" || l_strOp == "==" ||
         l_strOp == "!=";
}

std::vector<size_t> fFindAll(const std::string& l_strText, const char* l_pstrWhat, size_t l_nFrom, size_t l_nEnd) {
  std::vector<size_t> l_vnAt;
  const size_t l_nLen = strlen(l_pstrWhat);
  for (size_t l_nAt = l_strText.find(l_pstrWhat, l_nFrom); l_nAt != std::string::npos && l_nAt + l_nLen <= l_nEnd;
       l_nAt = l_strText.find(l_pstrWhat, l_nAt + 1)) {
    l_vnAt.push_back(l_nAt);
    if (l_vnAt.size() > MAX_READING_PLACES) break;
  }
  return l_vnAt;
}

// "Value[" NUMBER "] " OP " " NUMBER, ", ORIGINAL_MSG:" at its first place.
bool fParseNumeric(const std::string& l_strRaw, size_t l_nAt, ST_COLLECT_EVENT* l_pstEvent) {
  const size_t l_nMark = l_strRaw.find(ORIGINAL_MARK, l_nAt);
  if (l_nMark == std::string::npos || !fReadText(l_strRaw, &l_nAt, "Value[")) return false;
  const std::string l_strMsg = l_strRaw.substr(l_nAt, l_nMark - l_nAt);
  const size_t l_nClose = l_strMsg.find("] ");
  if (l_nClose == std::string::npos) return false;
  const size_t l_nOpEnd = l_strMsg.find(' ', l_nClose + 2);
  if (l_nOpEnd == std::string::npos) return false;
  l_pstEvent->m_strValue = l_strMsg.substr(0, l_nClose);
  l_pstEvent->m_strOp = l_strMsg.substr(l_nClose + 2, l_nOpEnd - l_nClose - 2);
  l_pstEvent->m_strThreshold = l_strMsg.substr(l_nOpEnd + 1);
  l_pstEvent->m_strLine = l_strRaw.substr(l_nMark + ORIGINAL_MARK_LEN);
  return fIsPrintedNumber(l_pstEvent->m_strValue) && fIsNumericOp(l_pstEvent->m_strOp) &&
         fIsPrintedNumber(l_pstEvent->m_strThreshold);
}

// "Value[" COLUMN-TEXT "] " ("==" | "!=") " " TEXT: exactly one reading.
bool fParseText(const std::string& l_strRaw, size_t l_nAt, ST_COLLECT_EVENT* l_pstEvent) {
  if (!fReadText(l_strRaw, &l_nAt, "Value[")) return false;
  const std::vector<size_t> l_vnMarks = fFindAll(l_strRaw, ORIGINAL_MARK, l_nAt, l_strRaw.size());
  const std::vector<size_t> l_vnEqual = fFindAll(l_strRaw, "] == ", l_nAt, l_strRaw.size());
  const std::vector<size_t> l_vnDiffer = fFindAll(l_strRaw, "] != ", l_nAt, l_strRaw.size());
  if (l_vnMarks.size() > MAX_READING_PLACES || l_vnEqual.size() + l_vnDiffer.size() > MAX_READING_PLACES) return false;
  int l_nReadings = 0;
  for (const size_t l_nMark : l_vnMarks) {
    const size_t l_nLineAt = l_nMark + ORIGINAL_MARK_LEN;
    for (const std::vector<size_t>* l_pvnOps : {&l_vnEqual, &l_vnDiffer}) {
      for (const size_t l_nOp : *l_pvnOps) {
        if (l_nOp + 5 > l_nMark) continue;
        const std::string l_strColumn = l_strRaw.substr(l_nAt, l_nOp - l_nAt);
        if (l_strRaw.find(l_strColumn, l_nLineAt) == std::string::npos) continue;
        if (++l_nReadings > 1) return false;
        l_pstEvent->m_strValue = l_strColumn;
        l_pstEvent->m_strOp = l_strRaw.substr(l_nOp + 2, 2);
        l_pstEvent->m_strThreshold = l_strRaw.substr(l_nOp + 5, l_nMark - l_nOp - 5);
        l_pstEvent->m_strLine = l_strRaw.substr(l_nLineAt);
      }
    }
  }
  return l_nReadings == 1;
}

// DATES " log count[" N "] >= [" N "]", read from the end.
bool fParseRate(const std::string& l_strRaw, size_t l_nAt, ST_COLLECT_EVENT* l_pstEvent) {
  const size_t l_nMark = l_strRaw.rfind(RATE_MARK);
  if (l_nMark == std::string::npos || l_nMark < l_nAt) return false;
  size_t l_nTail = l_nMark + strlen(RATE_MARK);
  int l_nCount = 0;
  int l_nThreshold = 0;
  if (!fReadInt(l_strRaw, &l_nTail, &l_nCount) || !fReadText(l_strRaw, &l_nTail, "] >= [") ||
      !fReadInt(l_strRaw, &l_nTail, &l_nThreshold) || !fReadText(l_strRaw, &l_nTail, "]") ||
      l_nTail != l_strRaw.size()) {
    return false;
  }
  l_pstEvent->m_strValue = std::to_string(l_nCount);
  l_pstEvent->m_strOp = ">=";
  l_pstEvent->m_strThreshold = std::to_string(l_nThreshold);
  // The date text is empty or ends with the blank that follows each date column.
  l_pstEvent->m_strDates = l_strRaw.substr(l_nAt, l_nMark - l_nAt);
  l_pstEvent->m_bDated = !l_pstEvent->m_strDates.empty();
  if (!l_pstEvent->m_bDated) return true;
  if (l_pstEvent->m_strDates.back() != ' ') return false;
  l_pstEvent->m_strDates.pop_back();
  return true;
}

bool fParse(const std::string& l_strRaw, ST_COLLECT_EVENT* l_pstEvent) {
  size_t l_nAt = 0;
  if (!fReadInt(l_strRaw, &l_nAt, &l_pstEvent->m_nEntry) || !fReadText(l_strRaw, &l_nAt, "|") ||
      !fReadInt(l_strRaw, &l_nAt, &l_pstEvent->m_nKind) || !fReadText(l_strRaw, &l_nAt, SEP_BAR) ||
      !fReadInt(l_strRaw, &l_nAt, &l_pstEvent->m_nLevel) || !fReadText(l_strRaw, &l_nAt, SEP_BAR)) {
    return false;
  }
  if (l_pstEvent->m_nKind == EVENT_KIND_RATE) return fParseRate(l_strRaw, l_nAt, l_pstEvent);
  if (!fReadText(l_strRaw, &l_nAt, "COLUMN[") || !fReadInt(l_strRaw, &l_nAt, &l_pstEvent->m_nColumn) ||
      !fReadText(l_strRaw, &l_nAt, "] ")) {
    return false;
  }
  if (l_pstEvent->m_nKind == EVENT_KIND_NUMERIC) return fParseNumeric(l_strRaw, l_nAt, l_pstEvent);
  if (l_pstEvent->m_nKind == EVENT_KIND_TEXT) return fParseText(l_strRaw, l_nAt, l_pstEvent);
  return false;
}

}  // namespace

int fgParseEventLine(const char* l_pstrLine, size_t l_nLen, ST_COLLECT_EVENT* l_pstEvent) {
  if (l_pstrLine == nullptr || l_pstEvent == nullptr) return RESULT_FAIL;
  if (l_nLen > 0 && l_pstrLine[l_nLen - 1] == '\n') --l_nLen;
  *l_pstEvent = ST_COLLECT_EVENT();
  l_pstEvent->m_strRaw.assign(l_pstrLine, l_nLen);
  ST_COLLECT_EVENT l_stFields;
  if (!fParse(l_pstEvent->m_strRaw, &l_stFields)) return RESULT_REFUSED;
  l_stFields.m_strRaw.swap(l_pstEvent->m_strRaw);
  *l_pstEvent = std::move(l_stFields);
  l_pstEvent->m_nParsed = 1;
  return RESULT_OK;
}

const char* fgEventKindName(int l_nKind) {
  switch (l_nKind) {
    case EVENT_KIND_NUMERIC: return "numeric";
    case EVENT_KIND_TEXT: return "text";
    case EVENT_KIND_RATE: return "rate";
    default: return "unparsed";
  }
}
