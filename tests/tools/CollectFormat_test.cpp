// The collector's JSON and syslog texts: always valid, one line, every field readable back as the bytes it held.
#include "CollectFormat.h"
#include "CollectTestSupport.h"

namespace {

// A strict reader of the flat objects the collector writes: strings, whole numbers, true, false. Empty on any fault.
Fields ParseJson(const std::string& text) {
  Fields fields;
  size_t at = 0;
  auto fail = [&] { return Fields{{"!", "invalid at " + std::to_string(at)}}; };
  auto string = [&](std::string* out) {
    if (text[at++] != '"') return false;
    while (at < text.size() && text[at] != '"') {
      const unsigned char c = text[at++];
      if (c < 0x20) return false;
      if (c != '\\') { *out += static_cast<char>(c); continue; }
      const char e = text[at++];
      const std::string simple = "\"\\/bfnrt", value = "\"\\/\b\f\n\r\t";
      if (simple.find(e) != std::string::npos) { *out += value[simple.find(e)]; continue; }
      if (e != 'u' || at + 4 > text.size()) return false;
      const unsigned code = std::stoul(text.substr(at, 4), nullptr, 16);
      at += 4;
      if (code < 0x80) *out += static_cast<char>(code);
      else if (code < 0x800) *out += static_cast<char>(0xC0 | code >> 6), *out += static_cast<char>(0x80 | (code & 63));
      else *out += static_cast<char>(0xE0 | code >> 12), *out += static_cast<char>(0x80 | ((code >> 6) & 63)),
           *out += static_cast<char>(0x80 | (code & 63));
    }
    return at++ < text.size();
  };
  if (text.empty() || text[at++] != '{') return fail();
  while (at < text.size() && text[at] != '}') {
    std::string key, value;
    if ((!fields.empty() && text[at++] != ',') || !string(&key) || text[at++] != ':') return fail();
    if (text[at] == '"') {
      if (!string(&value)) return fail();
    } else {
      while (at < text.size() && strchr("-0123456789truefals", text[at]) != nullptr) value += text[at++];
      if (value.empty()) return fail();
    }
    if (!fields.emplace(key, value).second) return fail();  // a repeated key would be a forged one
  }
  return at + 2 == text.size() && text.substr(at) == "}\n" ? fields : fail();
}

std::string FromBase64(const std::string& text) {
  const std::string alphabet = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
  std::string out;
  unsigned bits = 0, count = 0;
  for (const char c : text) {
    if (c == '=') break;
    bits = bits << 6 | static_cast<unsigned>(alphabet.find(c)), count += 6;
    if (count >= 8) out += static_cast<char>((bits >> (count - 8)) & 0xFF), count -= 8;
  }
  return out;
}

ST_COLLECT_EVENT Event(int kind, const std::string& value, const std::string& threshold, const std::string& line) {
  ST_COLLECT_EVENT e;
  e.m_nParsed = 1, e.m_nEntry = 3, e.m_nKind = kind, e.m_nLevel = 2, e.m_nColumn = kind == EVENT_KIND_RATE ? 0 : 4;
  e.m_strValue = value, e.m_strOp = "!=", e.m_strThreshold = threshold;
  (kind == EVENT_KIND_RATE ? e.m_strDates : e.m_strLine) = line;
  e.m_strRaw = "raw:" + line;
  return e;
}
}  // namespace

TEST(CollectFormat, EveryFieldSurvivesAnyBytesInJsonAndSyslog) {
  const std::string nasty[] = {
      "plain line",
      "quote \" backslash \\ bracket ] brace } comma , colon :",
      std::string("nul \0 bel \x07 esc \x1b del \x7f tab \t cr \r lf \n", 40),
      "separators \x03\x1f\x7c and \x03\x1f\x7e",
      "utf-8 \xc3\xa9 \xf0\x9d\x84\x9e \xe2\x82\xac",
      "not utf-8 \xff \xc3 \xed\xa0\x80 \xf4\x90\x80\x80 \xc0\xaf",
      "\", \"kind\":\"forged\", \"x\":\"",
      "\"] [other@1 a=\"b\"] forged",
  };
  ST_COLLECT_ORIGIN origin;
  origin.m_strHost = "host-1", origin.m_strFile = "out_20240315-101112", origin.m_tTime = 1710497472;
  origin.m_nPid = 42;
  for (const std::string& text : nasty) {
    for (const int kind : {EVENT_KIND_NUMERIC, EVENT_KIND_TEXT, EVENT_KIND_RATE, 0}) {
      SCOPED_TRACE(Readable(text) + " kind " + std::to_string(kind));
      ST_COLLECT_EVENT e = Event(kind, text.substr(0, 9), text, text);
      if (kind == 0) e = ST_COLLECT_EVENT(), e.m_strRaw = text;
      const std::string textKey = kind == EVENT_KIND_TEXT ? "text" : "threshold";
      const std::string lineKey = kind == EVENT_KIND_RATE ? "dates" : "line";

      const Fields json = ParseJson(fgFormatJsonEvent(e, origin));
      ASSERT_EQ(json.count("!"), 0u) << fgFormatJsonEvent(e, origin);
      const bool exact = json.count("raw_base64") == 0;
      if (!exact) { EXPECT_EQ(FromBase64(json.at("raw_base64")), e.m_strRaw); }
      EXPECT_EQ(json.at("file"), origin.m_strFile);
      if (kind == 0) {
        EXPECT_EQ(json.at("parsed"), "false");
        if (exact) { EXPECT_EQ(json.at("message"), text); }
      } else {
        EXPECT_EQ(json.at("kind"), fgEventKindName(kind));
        EXPECT_EQ(json.count("column"), kind == EVENT_KIND_RATE ? 0u : 1u);
        if (exact) {
          EXPECT_EQ(std::make_tuple(json.at("value"), json.at(textKey), json.at(lineKey)),
                    std::make_tuple(e.m_strValue, text, text));
        }
      }

      const std::string message = fgFormatSyslogEvent(e, origin, 100000);
      EXPECT_TRUE(std::none_of(message.begin(), message.end(), [](char c) { return (c >= 0 && c < 0x20) || c == 0x7f; }));
      EXPECT_EQ(message.find("<" + std::to_string(8 + fgSyslogSeverity(e)) + ">1 2024-03-15T"), 0u) << message;
      EXPECT_NE(message.find(" host-1 columnlogs 42 " + std::string(fgEventKindName(kind)) + " [columnlogs@32473 "),
                std::string::npos) << message;
      const Fields sd = ParseSd(message);
      ASSERT_EQ(sd.count("!"), 0u) << message;
      if (kind == 0) {
        EXPECT_EQ(std::make_tuple(sd.at("parsed"), sd.at("MSG")), std::make_tuple(std::string("0"), text));
      } else {
        EXPECT_EQ(std::make_tuple(sd.at("entry"), sd.at("kind"), sd.at("level"), sd.at("value"), sd.at("op")),
                  std::make_tuple(std::string("3"), std::string(fgEventKindName(kind)), std::string("2"),
                                  e.m_strValue, std::string("!=")));
        EXPECT_EQ(std::make_tuple(sd.at(textKey), sd.at(lineKey)), std::make_tuple(text, text));
      }
    }
  }
}

TEST(CollectFormat, SeverityFollowsTheLevelAndLongMessagesAreCutWhole) {
  const struct { int parsed, level, severity; } levels[] = {{1, -3, 5}, {1, 0, 5}, {1, 1, 4}, {1, 2, 3}, {1, 3, 2},
                                                           {1, 4, 1}, {1, 9, 1}, {0, 2, 4}};
  for (const auto& l : levels) {
    ST_COLLECT_EVENT e;
    e.m_nParsed = l.parsed, e.m_nLevel = l.level;
    EXPECT_EQ(fgSyslogSeverity(e), l.severity) << l.parsed << " " << l.level;
  }
  ST_COLLECT_ORIGIN origin;
  for (const int kind : {EVENT_KIND_NUMERIC, 0}) {
    ST_COLLECT_EVENT e = Event(kind, "1", "2", std::string(5000, '\xff'));
    if (kind == 0) e.m_nParsed = 0, e.m_strRaw = e.m_strLine;
    const std::string message = fgFormatSyslogEvent(e, origin, 2000);
    EXPECT_LE(message.size(), 2000u);
    EXPECT_GT(message.size(), 1900u);
    const Fields sd = ParseSd(message);
    EXPECT_EQ(sd.at("truncated"), "1");
    const std::string& cut = kind == 0 ? sd.at("MSG") : sd.at("line");
    EXPECT_EQ(cut, std::string(cut.size(), '\xff'));  // whole \xFF escapes only
  }
  time_t t = 0;
  EXPECT_EQ(fgEventFileTime("out_20240315-101112", &t), 1);
  EXPECT_EQ(fgTimeRfc3339(t).substr(0, 19), "2024-03-15T10:11:12");
  for (const char* bad : {"out_2024031-101112", "xyz_20240315-101112", "out_20240315x101112"})
    EXPECT_EQ(fgEventFileTime(bad, &t), 0) << bad;
}
