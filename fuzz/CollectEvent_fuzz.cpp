// The collector's event line parser and its two output formats on arbitrary
// bytes. Beyond "no crash": a line that parses is given back byte for byte by
// the agent's own formatter from the parsed fields; the JSON object is one
// line of valid UTF-8 without control bytes; the syslog message has no control
// byte and keeps to its length bound.
#include <algorithm>
#include <cstdint>
#include <cstring>
#include <memory>
#include <string>

#include "CollectEvent.h"
#include "CollectFormat.h"
#include "EventFormat.h"
#include "FuzzSupport.h"

namespace {

bool ValidUtf8(const std::string& text) {
  for (size_t at = 0; at < text.size();) {
    const unsigned char c = static_cast<unsigned char>(text[at]);
    const size_t len = c < 0x80 ? 1 : (c >> 5) == 6 ? 2 : (c >> 4) == 14 ? 3 : (c >> 3) == 30 ? 4 : 0;
    if (len == 0 || at + len > text.size() || (len == 2 && c < 0xC2)) return false;
    for (size_t i = 1; i < len; ++i) {
      if ((static_cast<unsigned char>(text[at + i]) & 0xC0) != 0x80) return false;
    }
    at += len;
  }
  return true;
}

std::string Reformatted(const ST_COLLECT_EVENT& e) {
  char buf[512];
  std::unique_ptr<char[]> heap;
  long len = 0;
  const char* text = nullptr;
  if (e.m_nKind == EVENT_KIND_RATE) {
    const std::string dates = e.m_bDated ? e.m_strDates + " " : "";
    text = fgFormatFull(buf, sizeof(buf), heap, &len, [&](char* b, size_t n) {
      return fgFormatLineRateEvent(b, n, e.m_nEntry, e.m_nLevel, dates.c_str(), std::stoi(e.m_strValue),
                                   std::stoi(e.m_strThreshold));
    });
  } else {
    const std::string msg = "Value[" + e.m_strValue + "] " + e.m_strOp + " " + e.m_strThreshold;
    text = fgFormatFull(buf, sizeof(buf), heap, &len, [&](char* b, size_t n) {
      return fgFormatRuleEvent(b, n, e.m_nEntry, e.m_nKind, e.m_nLevel, e.m_nColumn, msg.c_str(), e.m_strLine.c_str());
    });
  }
  FUZZ_CHECK(text != nullptr);
  return std::string(text, static_cast<size_t>(len));
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  const std::string line(reinterpret_cast<const char*>(data), size);
  ST_COLLECT_EVENT e;
  const int parsed = fgParseEventLine(line.data(), line.size(), &e);
  FUZZ_CHECK(parsed == 0 || parsed == 1);
  // The agent's lines hold no NUL (its formatter stops at one) and one line end.
  if (parsed == 1 && line.find('\0') == std::string::npos && std::count(line.begin(), line.end(), '\n') <= 1) {
    FUZZ_CHECK(Reformatted(e) == e.m_strRaw + "\n");
  }
  ST_COLLECT_ORIGIN origin;
  origin.m_strHost = "h";
  origin.m_strFile = "out_20240315-101112";
  const std::string json = fgFormatJsonEvent(e, origin);
  FUZZ_CHECK(json.size() >= 3 && json.front() == '{' && json.compare(json.size() - 2, 2, "}\n") == 0);
  for (size_t at = 0; at + 1 < json.size(); ++at) FUZZ_CHECK(static_cast<unsigned char>(json[at]) >= 0x20);
  FUZZ_CHECK(ValidUtf8(json));
  const std::string message = fgFormatSyslogEvent(e, origin, 2048);
  FUZZ_CHECK(message.size() <= 2048);
  for (const char c : message) FUZZ_CHECK(static_cast<unsigned char>(c) >= 0x20 && c != 0x7F);
  FUZZ_CHECK(ValidUtf8(message));
  return 0;
}
