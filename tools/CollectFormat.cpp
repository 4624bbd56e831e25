#include "CollectFormat.h"

#include <algorithm>
#include <cstdio>
#include <cstring>

namespace {

// The readable summary in MSG is bounded: the full texts are in the fields.
constexpr size_t COLLECT_SUMMARY_MAX = 1024;

// Length of the valid UTF-8 sequence at l_pstrText (shortest form, no
// surrogates, at most U+10FFFF), or 0 when the byte there does not start one.
size_t fUtf8Length(const unsigned char* l_pstrText, size_t l_nLeft) {
  const unsigned char l_uchLead = l_pstrText[0];
  if (l_uchLead < 0x80) return 1;
  size_t l_nLen = 0;
  unsigned char l_uchLow = 0x80;
  unsigned char l_uchHigh = 0xBF;
  if (l_uchLead >= 0xC2 && l_uchLead <= 0xDF) {
    l_nLen = 2;
  } else if (l_uchLead >= 0xE0 && l_uchLead <= 0xEF) {
    l_nLen = 3;
    if (l_uchLead == 0xE0) l_uchLow = 0xA0;
    if (l_uchLead == 0xED) l_uchHigh = 0x9F;
  } else if (l_uchLead >= 0xF0 && l_uchLead <= 0xF4) {
    l_nLen = 4;
    if (l_uchLead == 0xF0) l_uchLow = 0x90;
    if (l_uchLead == 0xF4) l_uchHigh = 0x8F;
  } else {
    return 0;
  }
  if (l_nLeft < l_nLen) return 0;
  if (l_pstrText[1] < l_uchLow || l_pstrText[1] > l_uchHigh) return 0;
  for (size_t l_nAt = 2; l_nAt < l_nLen; ++l_nAt) {
    if (l_pstrText[l_nAt] < 0x80 || l_pstrText[l_nAt] > 0xBF) return 0;
  }
  return l_nLen;
}


// The syslog escapes: `l_pstrSpecial` are the characters that get a
// backslash; control bytes, DEL and bytes outside valid UTF-8 become \xNN.
// Runs of printable ASCII without special characters are copied whole.
void fSyslogAppend(std::string* l_pstrOut, const std::string& l_strText, const char* l_pstrSpecial, size_t l_nMax,
                   bool* l_pbCut) {
  const size_t l_nStart = l_pstrOut->size();
  const size_t l_nLimit = l_nMax > std::string::npos - l_nStart ? std::string::npos : l_nStart + l_nMax;
  const unsigned char* l_pstrBytes = reinterpret_cast<const unsigned char*>(l_strText.data());
  const size_t l_nSize = l_strText.size();
  size_t l_nAt = 0;
  while (l_nAt < l_nSize) {
    size_t l_nRun = l_nAt;
    while (l_nRun < l_nSize && l_pstrBytes[l_nRun] >= 0x20 && l_pstrBytes[l_nRun] < 0x7F &&
           strchr(l_pstrSpecial, l_pstrBytes[l_nRun]) == nullptr) {
      ++l_nRun;
    }
    if (l_nRun > l_nAt) {
      const size_t l_nRoom = l_nLimit - l_pstrOut->size();
      if (l_nRun - l_nAt > l_nRoom) {
        l_pstrOut->append(l_strText, l_nAt, l_nRoom);
        if (l_pbCut != nullptr) *l_pbCut = true;
        return;
      }
      l_pstrOut->append(l_strText, l_nAt, l_nRun - l_nAt);
      l_nAt = l_nRun;
      continue;
    }
    const unsigned char l_uchByte = l_pstrBytes[l_nAt];
    size_t l_nLen = fUtf8Length(l_pstrBytes + l_nAt, l_nSize - l_nAt);
    char l_strUnit[8];
    size_t l_nUnit = 0;
    if (l_nLen == 0 || l_uchByte < 0x20 || l_uchByte == 0x7F) {
      l_nUnit = static_cast<size_t>(snprintf(l_strUnit, sizeof(l_strUnit), "\\x%02X", l_uchByte));
      l_nLen = 1;
    } else if (l_nLen == 1) {
      l_strUnit[0] = '\\';
      l_strUnit[1] = static_cast<char>(l_uchByte);
      l_nUnit = 2;
    } else {
      memcpy(l_strUnit, l_pstrBytes + l_nAt, l_nLen);
      l_nUnit = l_nLen;
    }
    if (l_pstrOut->size() + l_nUnit > l_nLimit) {
      if (l_pbCut != nullptr) *l_pbCut = true;
      return;
    }
    l_pstrOut->append(l_strUnit, l_nUnit);
    l_nAt += l_nLen;
  }
}

void fJsonAppend(std::string* l_pstrOut, const std::string& l_strText, bool* l_pbReplaced);

void fJsonField(std::string* l_pstrOut, const char* l_pstrKey, const std::string& l_strValue, bool* l_pbReplaced) {
  *l_pstrOut += ",\"";
  *l_pstrOut += l_pstrKey;
  *l_pstrOut += "\":";
  fJsonAppend(l_pstrOut, l_strValue, l_pbReplaced);
}

std::string fTimeOf(const ST_COLLECT_ORIGIN& l_stOrigin) {
  return l_stOrigin.m_strTime.empty() ? fgTimeRfc3339(l_stOrigin.m_tTime) : l_stOrigin.m_strTime;
}

void fJsonNumber(std::string* l_pstrOut, const char* l_pstrKey, int l_nValue) {
  *l_pstrOut += ",\"";
  *l_pstrOut += l_pstrKey;
  *l_pstrOut += "\":" + std::to_string(l_nValue);
}

// The readable part of a message: what the event says, without the log line.
std::string fSummary(const ST_COLLECT_EVENT& l_stEvent) {
  if (l_stEvent.m_nKind == EVENT_KIND_RATE) {
    return "LOG" + std::to_string(l_stEvent.m_nEntry) + " level " + std::to_string(l_stEvent.m_nLevel) +
           ": log count[" + l_stEvent.m_strValue + "] >= [" + l_stEvent.m_strThreshold + "]";
  }
  return "LOG" + std::to_string(l_stEvent.m_nEntry) + " level " + std::to_string(l_stEvent.m_nLevel) + ": COLUMN[" +
         std::to_string(l_stEvent.m_nColumn) + "] Value[" + l_stEvent.m_strValue + "] " + l_stEvent.m_strOp + " " +
         l_stEvent.m_strThreshold;
}

// ' NAME="VALUE"', the value escaped and cut to at most `l_nMax` bytes.
void fSdParam(std::string* l_pstrOut, const char* l_pstrName, const std::string& l_strValue,
              size_t l_nMax = std::string::npos, bool* l_pbCut = nullptr) {
  *l_pstrOut += ' ';
  *l_pstrOut += l_pstrName;
  *l_pstrOut += "=\"";
  fSyslogAppend(l_pstrOut, l_strValue, "\"\\]", l_nMax, l_pbCut);
  *l_pstrOut += '"';
}

// RFC 5424 HOSTNAME: 1 to 255 printable US-ASCII characters.
std::string fHeaderWord(const std::string& l_strText, size_t l_nMax) {
  std::string l_strOut;
  for (const char l_chChar : l_strText) {
    if (l_chChar > 32 && l_chChar < 127 && l_strOut.size() < l_nMax) l_strOut += l_chChar;
  }
  return l_strOut.empty() ? "-" : l_strOut;
}

}  // namespace

int fgSyslogSeverity(const ST_COLLECT_EVENT& l_stEvent) {
  if (l_stEvent.m_nParsed != 1) return 4;
  if (l_stEvent.m_nLevel <= 0) return 5;
  if (l_stEvent.m_nLevel >= 4) return 1;
  return 5 - l_stEvent.m_nLevel;
}

std::string fgTimeRfc3339(time_t l_tTime) {
  struct tm l_stLocal;
  if (localtime_r(&l_tTime, &l_stLocal) == nullptr) return "-";
  char l_strTime[64];
  const long l_lOffset = l_stLocal.tm_gmtoff / 60;
  const long l_lAbs = l_lOffset < 0 ? -l_lOffset : l_lOffset;
  snprintf(l_strTime, sizeof(l_strTime), "%04d-%02d-%02dT%02d:%02d:%02d%c%02ld:%02ld", l_stLocal.tm_year + 1900,
           l_stLocal.tm_mon + 1, l_stLocal.tm_mday, l_stLocal.tm_hour, l_stLocal.tm_min, l_stLocal.tm_sec,
           l_lOffset < 0 ? '-' : '+', l_lAbs / 60, l_lAbs % 60);
  return l_strTime;
}

int fgEventFileTime(const std::string& l_strName, time_t* l_ptTime) {
  if (l_ptTime == nullptr || l_strName.size() != 19 || (l_strName.compare(0, 4, "out_") != 0 &&
                                                         l_strName.compare(0, 4, "ing_") != 0)) {
    return 0;
  }
  struct tm l_stTime = {};
  char l_chDash = 0;
  char l_chEnd = 0;
  if (sscanf(l_strName.c_str() + 4, "%4d%2d%2d%c%2d%2d%2d%c", &l_stTime.tm_year, &l_stTime.tm_mon, &l_stTime.tm_mday,
             &l_chDash, &l_stTime.tm_hour, &l_stTime.tm_min, &l_stTime.tm_sec, &l_chEnd) != 7 ||
      l_chDash != '-') {
    return 0;
  }
  l_stTime.tm_year -= 1900;
  l_stTime.tm_mon -= 1;
  l_stTime.tm_isdst = -1;
  const time_t l_tTime = mktime(&l_stTime);
  if (l_tTime == static_cast<time_t>(-1)) return 0;
  *l_ptTime = l_tTime;
  return 1;
}

std::string fgJsonText(const std::string& l_strText, bool* l_pbReplaced) {
  std::string l_strOut;
  fJsonAppend(&l_strOut, l_strText, l_pbReplaced);
  return l_strOut;
}

namespace {

// Appends the quoted JSON string; runs of bytes that need no escape are
// copied whole.
void fJsonAppend(std::string* l_pstrOut, const std::string& l_strText, bool* l_pbReplaced) {
  *l_pstrOut += '"';
  const unsigned char* l_pstrBytes = reinterpret_cast<const unsigned char*>(l_strText.data());
  const size_t l_nSize = l_strText.size();
  size_t l_nAt = 0;
  while (l_nAt < l_nSize) {
    size_t l_nRun = l_nAt;
    while (l_nRun < l_nSize && l_pstrBytes[l_nRun] >= 0x20 && l_pstrBytes[l_nRun] < 0x7F && l_pstrBytes[l_nRun] != '"' &&
           l_pstrBytes[l_nRun] != '\\') {
      ++l_nRun;
    }
    l_pstrOut->append(l_strText, l_nAt, l_nRun - l_nAt);
    l_nAt = l_nRun;
    if (l_nAt == l_nSize) break;
    const unsigned char l_uchByte = l_pstrBytes[l_nAt];
    const size_t l_nLen = fUtf8Length(l_pstrBytes + l_nAt, l_nSize - l_nAt);
    if (l_nLen == 0) {
      *l_pstrOut += "\\uFFFD";
      if (l_pbReplaced != nullptr) *l_pbReplaced = true;
      ++l_nAt;
      continue;
    }
    switch (l_uchByte) {
      case '"': *l_pstrOut += "\\\""; break;
      case '\\': *l_pstrOut += "\\\\"; break;
      case '\n': *l_pstrOut += "\\n"; break;
      case '\r': *l_pstrOut += "\\r"; break;
      case '\t': *l_pstrOut += "\\t"; break;
      default:
        if (l_uchByte < 0x20 || l_uchByte == 0x7F) {
          char l_strHex[8];
          snprintf(l_strHex, sizeof(l_strHex), "\\u%04X", l_uchByte);
          *l_pstrOut += l_strHex;
        } else {
          l_pstrOut->append(l_strText, l_nAt, l_nLen);
        }
    }
    l_nAt += l_nLen;
  }
  *l_pstrOut += '"';
}

}  // namespace

std::string fgBase64(const std::string& l_strBytes) {
  static const char ALPHABET[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
  std::string l_strOut;
  size_t l_nAt = 0;
  for (; l_nAt + 2 < l_strBytes.size(); l_nAt += 3) {
    const unsigned l_uGroup = (static_cast<unsigned char>(l_strBytes[l_nAt]) << 16) |
                              (static_cast<unsigned char>(l_strBytes[l_nAt + 1]) << 8) |
                              static_cast<unsigned char>(l_strBytes[l_nAt + 2]);
    for (int l_nShift = 18; l_nShift >= 0; l_nShift -= 6) l_strOut += ALPHABET[(l_uGroup >> l_nShift) & 63];
  }
  const size_t l_nLeft = l_strBytes.size() - l_nAt;
  if (l_nLeft > 0) {
    unsigned l_uGroup = static_cast<unsigned char>(l_strBytes[l_nAt]) << 16;
    if (l_nLeft == 2) l_uGroup |= static_cast<unsigned char>(l_strBytes[l_nAt + 1]) << 8;
    l_strOut += ALPHABET[(l_uGroup >> 18) & 63];
    l_strOut += ALPHABET[(l_uGroup >> 12) & 63];
    l_strOut += l_nLeft == 2 ? ALPHABET[(l_uGroup >> 6) & 63] : '=';
    l_strOut += '=';
  }
  return l_strOut;
}

std::string fgFormatJsonEvent(const ST_COLLECT_EVENT& l_stEvent, const ST_COLLECT_ORIGIN& l_stOrigin) {
  bool l_bReplaced = false;
  std::string l_strOut;
  l_strOut.reserve(2 * l_stEvent.m_strRaw.size() + 256);
  l_strOut += "{\"time\":\"";
  l_strOut += fTimeOf(l_stOrigin);
  l_strOut += '"';
  fJsonField(&l_strOut, "host", l_stOrigin.m_strHost, &l_bReplaced);
  fJsonField(&l_strOut, "file", l_stOrigin.m_strFile, &l_bReplaced);
  if (l_stEvent.m_nParsed != 1) {
    l_strOut += ",\"parsed\":false";
    fJsonField(&l_strOut, "message", l_stEvent.m_strRaw, &l_bReplaced);
  } else {
    l_strOut += ",\"parsed\":true";
    fJsonNumber(&l_strOut, "entry", l_stEvent.m_nEntry);
    l_strOut += ",\"kind\":\"" + std::string(fgEventKindName(l_stEvent.m_nKind)) + "\"";
    fJsonNumber(&l_strOut, "level", l_stEvent.m_nLevel);
    if (l_stEvent.m_nKind != EVENT_KIND_RATE) fJsonNumber(&l_strOut, "column", l_stEvent.m_nColumn);
    fJsonField(&l_strOut, "value", l_stEvent.m_strValue, &l_bReplaced);
    fJsonField(&l_strOut, "op", l_stEvent.m_strOp, &l_bReplaced);
    fJsonField(&l_strOut, l_stEvent.m_nKind == EVENT_KIND_TEXT ? "text" : "threshold", l_stEvent.m_strThreshold,
               &l_bReplaced);
    if (l_stEvent.m_nKind == EVENT_KIND_RATE) {
      fJsonField(&l_strOut, "dates", l_stEvent.m_strDates, &l_bReplaced);
    } else {
      fJsonField(&l_strOut, "line", l_stEvent.m_strLine, &l_bReplaced);
    }
  }
  if (l_bReplaced) l_strOut += ",\"raw_base64\":\"" + fgBase64(l_stEvent.m_strRaw) + "\"";
  return l_strOut + "}\n";
}

std::string fgFormatSyslogEvent(const ST_COLLECT_EVENT& l_stEvent, const ST_COLLECT_ORIGIN& l_stOrigin,
                                size_t l_nMaxLen) {
  const int l_nPri = COLLECT_FACILITY * 8 + fgSyslogSeverity(l_stEvent);
  std::string l_strOut;
  l_strOut.reserve(2 * l_stEvent.m_strRaw.size() + 256);
  l_strOut += '<';
  l_strOut += std::to_string(l_nPri);
  l_strOut += ">1 ";
  l_strOut += fTimeOf(l_stOrigin);
  l_strOut += ' ';
  l_strOut += fHeaderWord(l_stOrigin.m_strHost, 255);
  l_strOut += ' ';
  l_strOut += COLLECT_APP_NAME;
  l_strOut += ' ';
  l_strOut += std::to_string(l_stOrigin.m_nPid);
  l_strOut += ' ';
  l_strOut += fgEventKindName(l_stEvent.m_nKind);
  l_strOut += " [";
  l_strOut += COLLECT_SD_ID;
  fSdParam(&l_strOut, "file", l_stOrigin.m_strFile);
  // Room kept for ' truncated="1"' and the end of the element.
  constexpr size_t l_nTail = 15 + 2;
  bool l_bCut = false;
  if (l_stEvent.m_nParsed != 1) {
    l_strOut += " parsed=\"0\"";
    std::string l_strMsg;
    const size_t l_nFixed = l_strOut.size() + l_nTail;
    fSyslogAppend(&l_strMsg, l_stEvent.m_strRaw, "\\", l_nMaxLen > l_nFixed ? l_nMaxLen - l_nFixed : 0, &l_bCut);
    if (l_bCut) l_strOut += " truncated=\"1\"";
    l_strOut += "] ";
    return l_strOut + l_strMsg;
  }
  fSdParam(&l_strOut, "entry", std::to_string(l_stEvent.m_nEntry));
  fSdParam(&l_strOut, "kind", fgEventKindName(l_stEvent.m_nKind));
  fSdParam(&l_strOut, "level", std::to_string(l_stEvent.m_nLevel));
  if (l_stEvent.m_nKind != EVENT_KIND_RATE) fSdParam(&l_strOut, "column", std::to_string(l_stEvent.m_nColumn));
  // The texts from the log (value, text, summary, line) share what is left:
  // a sixth each at most for the first three, the rest for the line.
  constexpr size_t l_nNames = 64;  // their names, quotes and ' op=">="'
  const size_t l_nRoom = l_nMaxLen > l_strOut.size() + l_nTail + l_nNames ? l_nMaxLen - l_strOut.size() - l_nTail - l_nNames : 0;
  const size_t l_nShare = std::min(l_nRoom / 6, COLLECT_SUMMARY_MAX);
  fSdParam(&l_strOut, "value", l_stEvent.m_strValue, l_nShare, &l_bCut);
  fSdParam(&l_strOut, "op", l_stEvent.m_strOp);
  fSdParam(&l_strOut, l_stEvent.m_nKind == EVENT_KIND_TEXT ? "text" : "threshold", l_stEvent.m_strThreshold, l_nShare,
           &l_bCut);
  std::string l_strMsg = "] ";
  fSyslogAppend(&l_strMsg, fSummary(l_stEvent), "\\", l_nShare, nullptr);
  const bool l_bRate = l_stEvent.m_nKind == EVENT_KIND_RATE;
  l_strOut += l_bRate ? " dates=\"" : " line=\"";
  const size_t l_nFixed = l_strOut.size() + 1 + l_nTail + l_strMsg.size();
  fSyslogAppend(&l_strOut, l_bRate ? l_stEvent.m_strDates : l_stEvent.m_strLine, "\"\\]",
                l_nMaxLen > l_nFixed ? l_nMaxLen - l_nFixed : 0, &l_bCut);
  l_strOut += '"';
  if (l_bCut) l_strOut += " truncated=\"1\"";
  return l_strOut + l_strMsg;
}
