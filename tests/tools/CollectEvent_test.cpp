// The event line parser of the collector, against lines made by the agent's own formatter.
#include "CollectEvent.h"
#include "EventFormat.h"
#include "TestSupport.h"

namespace {
std::string RuleEvent(int index, int type, int level, int column, const std::string& msg, const std::string& line) {
  std::unique_ptr<char[]> heap;
  char stack[64];
  long len = 0;
  const char* text = fgFormatFull(stack, sizeof(stack), heap, &len, [&](char* buf, size_t size) {
    return fgFormatRuleEvent(buf, size, index, type, level, column, msg.c_str(), line.c_str());
  });
  return std::string(text, static_cast<size_t>(len));
}
}  // namespace

// Every field comes back as the agent wrote it, whatever bytes the log line holds; a line
// made to look like an event can neither move a field nor add one.
TEST(CollectEvent, ParsesAgentLinesWhateverTheLogLineHolds) {
  const std::string binary = "a,\x01\x7f\xff\xfe\x03\x1f\x7c|x\r,95";
  const std::string imitation = "x, ORIGINAL_MSG:1|1" + Sep("{|}4{|}") + "COLUMN[9] Value[1] > 0, ORIGINAL_MSG:fake";
  const struct { const char* name; int type, column; std::string msg, line, value, op, threshold; } cases[] = {
      {"numeric", 1, 3, "Value[95] > 90", "a,b,95", "95", ">", "90"},
      {"decimal, negative", 1, 12, "Value[-1.50] <= -0.25", "t=-1.5", "-1.50", "<=", "-0.25"},
      {"binary line", 1, 3, "Value[95] != 90", binary, "95", "!=", "90"},
      {"numeric, line imitates an event", 1, 1, "Value[1] == 1", imitation, "1", "==", "1"},
      {"text equal", 2, 2, "Value[FAIL] == FAIL", "a,FAIL,b", "FAIL", "==", "FAIL"},
      {"text with brackets, quotes, backslashes", 2, 1, "Value[a\"b\\c] != x]y", "a\"b\\c,z", "a\"b\\c", "!=",
       "x]y"},
      {"text, line imitates the marker", 2, 1, "Value[GET] != POST", "GET;q, ORIGINAL_MSG:z", "GET", "!=", "POST"},
      {"empty column and text", 2, 4, "Value[] != ", ",,,", "", "!=", ""},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    const std::string raw = RuleEvent(7, c.type, 3, c.column, c.msg, c.line);
    ST_COLLECT_EVENT e;
    ASSERT_EQ(fgParseEventLine(raw.data(), raw.size(), &e), 1) << Readable(raw);
    EXPECT_EQ(std::make_tuple(e.m_nParsed, e.m_nEntry, e.m_nKind, e.m_nLevel, e.m_nColumn),
              std::make_tuple(1, 7, c.type, 3, c.column));
    EXPECT_EQ(std::make_tuple(e.m_strValue, e.m_strOp, e.m_strThreshold, e.m_strLine),
              std::make_tuple(c.value, c.op, c.threshold, c.line));
    EXPECT_EQ(e.m_strRaw + "\n", raw);
  }
  for (const std::string dates : {"", "10:11:12 ", "d\x03\x1f\x7c log count[1] >= [2] "}) {
    char buf[256];
    const long len = fgFormatLineRateEvent(buf, sizeof(buf), 19, 4, dates.c_str(), 120, 100);
    ST_COLLECT_EVENT e;
    ASSERT_EQ(fgParseEventLine(buf, static_cast<size_t>(len), &e), 1) << Readable(buf);
    EXPECT_EQ(std::make_tuple(e.m_nEntry, e.m_nKind, e.m_nLevel, e.m_strValue, e.m_strOp, e.m_strThreshold),
              std::make_tuple(19, 4, 4, std::string("120"), std::string(">="), std::string("100")));
    EXPECT_EQ(e.m_strDates + (dates.empty() ? "" : " "), dates);
  }
}

// A line without the layout, or one whose text part reads two ways, is kept whole, unparsed.
TEST(CollectEvent, LinesThatDoNotParseAreKeptWhole) {
  // Text events that read two ways: the column text occurs after either marker.
  const std::string twoReadings = RuleEvent(1, 2, 1, 1, "Value[k] != v", "k] != v, ORIGINAL_MSG:k");
  const std::string markerInLine = RuleEvent(1, 2, 1, 2, "Value[GET] != POST", "q, ORIGINAL_MSG:z;GET");
  const std::string cases[] = {
      "",
      "garbage",
      Sep("1|1{|}2{|}COLUMN[3] Value[95] > 90"),  // no ORIGINAL_MSG
      Sep("1|3{|}2{|}COLUMN[3] Value[95] > 90, ORIGINAL_MSG:x"),  // unknown type
      Sep("1|1{|}2{|}COLUMN[3] Value[9x] > 90, ORIGINAL_MSG:x"),  // not a number
      Sep("99999999999|1{|}2{|}COLUMN[3] Value[9] > 9, ORIGINAL_MSG:x"),  // beyond int
      Sep("1|4{|}2{|}10:11:12  log count[3] >= [3] trailing"),
      Sep("1|4{|}2{|}10:11:12 log count[3] >= [3]"),  // a date text ends with its blank
      Sep("01|1{|}2{|}COLUMN[3] Value[95] > 90, ORIGINAL_MSG:x"),  // "%d" writes no leading zero
      Sep("1|1{|}-0{|}COLUMN[3] Value[95] > 90, ORIGINAL_MSG:x"),
      std::string("1|1\0\x1f\x7c" "2", 6),
      twoReadings,
      markerInLine,
  };
  for (const std::string& raw : cases) {
    SCOPED_TRACE(Readable(raw));
    ST_COLLECT_EVENT e;
    EXPECT_EQ(fgParseEventLine(raw.data(), raw.size(), &e), 0);
    EXPECT_EQ(e.m_nParsed, 0);
    EXPECT_EQ(e.m_strRaw + (raw.empty() || raw.back() != '\n' ? "" : "\n"), raw);
  }
  EXPECT_EQ(fgParseEventLine(nullptr, 0, nullptr), -1);
}
