#include "LogFileName.h"

#include <cstdio>
#include <cstring>

#include "ConfVocabulary.h"

namespace {

enum EN_DATE_FIELD { FIELD_YEAR4, FIELD_YEAR2, FIELD_MONTH2, FIELD_MONTH_HEX, FIELD_DAY, FIELD_HOUR, FIELD_MINUTE,
                     FIELD_SECOND };

struct ST_DATE_TOKEN {
  const char* m_pstrToken;
  int m_nUnit;                 // 1 year .. 6 second
  EN_DATE_FIELD m_enField;
  const char* m_pstrWildcard;  // same width as the value
};

// Tried in this order at every position inside a bracket group.
const ST_DATE_TOKEN DATE_TOKENS[] = {
    {"YYYY", 1, FIELD_YEAR4, "????"}, {"YY", 1, FIELD_YEAR2, "??"},    {"MM", 2, FIELD_MONTH2, "??"},
    {"M", 2, FIELD_MONTH_HEX, "?"},   {"DD", 3, FIELD_DAY, "??"},      {"hh", 4, FIELD_HOUR, "??"},
    {"mm", 5, FIELD_MINUTE, "??"},    {"ss", 6, FIELD_SECOND, "??"},
};

const ST_DATE_TOKEN* fMatchToken(const char* l_pstrAt, const char* l_pstrEnd) {
  for (const ST_DATE_TOKEN& l_stToken : DATE_TOKENS) {
    const size_t l_nLen = strlen(l_stToken.m_pstrToken);
    if (static_cast<size_t>(l_pstrEnd - l_pstrAt) >= l_nLen && memcmp(l_pstrAt, l_stToken.m_pstrToken, l_nLen) == 0)
      return &l_stToken;
  }
  return nullptr;
}

void fFormatField(EN_DATE_FIELD l_enField, const struct tm* l_pstTime, char* l_pstrOut, size_t l_nSize) {
  switch (l_enField) {
    case FIELD_YEAR4: snprintf(l_pstrOut, l_nSize, "%04d", l_pstTime->tm_year + 1900); break;
    case FIELD_YEAR2: snprintf(l_pstrOut, l_nSize, "%02d", (l_pstTime->tm_year + 1900) % 100); break;
    case FIELD_MONTH2: snprintf(l_pstrOut, l_nSize, "%02d", l_pstTime->tm_mon + 1); break;
    case FIELD_MONTH_HEX: snprintf(l_pstrOut, l_nSize, "%X", (l_pstTime->tm_mon + 1) & 0xF); break;
    case FIELD_DAY: snprintf(l_pstrOut, l_nSize, "%02d", l_pstTime->tm_mday); break;
    case FIELD_HOUR: snprintf(l_pstrOut, l_nSize, "%02d", l_pstTime->tm_hour); break;
    case FIELD_MINUTE: snprintf(l_pstrOut, l_nSize, "%02d", l_pstTime->tm_min); break;
    case FIELD_SECOND: snprintf(l_pstrOut, l_nSize, "%02d", l_pstTime->tm_sec); break;
  }
}

// Walks a name: onText(start, length) for text outside brackets and
// onToken(token) for every date token. Returns LOGNAME_OK or a negative code;
// stops at the first negative result of a callback.
template <typename FText, typename FToken>
int fWalkName(const char* l_pstrName, FText onText, FToken onToken) {
  const char* l_pstrAt = l_pstrName;
  while (*l_pstrAt != '\0') {
    const char* l_pstrOpen = strchr(l_pstrAt, '[');
    if (l_pstrOpen == nullptr) return onText(l_pstrAt, strlen(l_pstrAt));
    int l_nResult = onText(l_pstrAt, static_cast<size_t>(l_pstrOpen - l_pstrAt));
    if (l_nResult < 0) return l_nResult;
    const char* l_pstrClose = strchr(l_pstrOpen + 1, ']');
    if (l_pstrClose == nullptr) return LOGNAME_NO_CLOSE;
    for (const char* l_pstrTok = l_pstrOpen + 1; l_pstrTok < l_pstrClose;) {
      const ST_DATE_TOKEN* l_pstToken = fMatchToken(l_pstrTok, l_pstrClose);
      if (l_pstToken == nullptr) return LOGNAME_BAD_TOKEN;
      l_nResult = onToken(*l_pstToken);
      if (l_nResult < 0) return l_nResult;
      l_pstrTok += strlen(l_pstToken->m_pstrToken);
    }
    l_pstrAt = l_pstrClose + 1;
  }
  return LOGNAME_OK;
}

}  // namespace

int fgExpandLogFileName(const char* l_pstrName, char l_chCreateType, const struct tm* l_pstTime, char* l_pstrOut,
                        size_t l_nSize) {
  if (l_pstrOut == nullptr || l_nSize == 0) return LOGNAME_TOO_LONG;
  l_pstrOut[0] = '\0';
  if (l_pstrName == nullptr) return LOGNAME_OK;
  size_t l_nUsed = 0;
  auto fAppend = [&](const char* l_pstrText, size_t l_nLen) {
    if (l_nUsed + l_nLen >= l_nSize) return LOGNAME_TOO_LONG;
    memcpy(l_pstrOut + l_nUsed, l_pstrText, l_nLen);
    l_nUsed += l_nLen;
    l_pstrOut[l_nUsed] = '\0';
    return LOGNAME_OK;
  };
  return fWalkName(l_pstrName, fAppend, [&](const ST_DATE_TOKEN& l_stToken) {
    if (l_chCreateType == CREATE_TYPE_WILDCARD) return fAppend(l_stToken.m_pstrWildcard, strlen(l_stToken.m_pstrWildcard));
    char l_strValue[16];
    fFormatField(l_stToken.m_enField, l_pstTime, l_strValue, sizeof(l_strValue));
    return fAppend(l_strValue, strlen(l_strValue));
  });
}

int fgLogFileNameUnit(const char* l_pstrName) {
  if (l_pstrName == nullptr) return 0;
  int l_nUnit = 0;
  const int l_nResult = fWalkName(
      l_pstrName, [](const char*, size_t) { return LOGNAME_OK; },
      [&](const ST_DATE_TOKEN& l_stToken) {
        if (l_stToken.m_nUnit > l_nUnit) l_nUnit = l_stToken.m_nUnit;
        return LOGNAME_OK;
      });
  return l_nResult < 0 ? l_nResult : l_nUnit;
}
