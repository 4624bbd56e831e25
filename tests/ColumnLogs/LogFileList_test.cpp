// The registry of watched logs: records, their line patterns and delimiter.
#include <gmock/gmock.h>

#include "LogFileList.h"
#include "StrPattern.h"
#include "TestSupport.h"

void Register(CLogFileList& list, const std::vector<int>& indexes) {  // /var/log/app<n>.log for each, in order
  for (int indx : indexes) {
    std::string name = "/var/log/app" + std::to_string(indx) + ".log";
    ASSERT_EQ(list.fAddLogFile(indx, Text(name), 1, 2), 1);
  }
}

// Records stay in registration order; a second record for an entry and a name that would be cut are refused.
TEST(CLogFileList, RegistrationAndLookups) {
  CLogFileList list;
  Register(list, {1, 5, 2});
  std::string other = "other.log", fits(511, 'a'), tooLong(512, 'b'), name1 = "/var/log/app1.log";
  EXPECT_EQ(list.fAddLogFile(5, Text(other), 0, 0), 0);
  EXPECT_EQ(list.fAddLogFile(7, Text(tooLong), 0, 0), -1);
  EXPECT_THAT(list.fGetErrorMsg(), testing::HasSubstr("too long"));
  EXPECT_EQ(list.fAddLogFile(8, nullptr, 0, 0), -1);
  EXPECT_EQ(list.fAddLogFile(6, Text(fits), 0, 0), 1);
  std::vector<int> order;
  for (list.fMoveFirst(); ST_LOGFILE_INFO* info = list.fMoveNext();) order.push_back(info->m_nIndx);
  EXPECT_EQ(order, (std::vector<int>{1, 5, 2, 6}));
  EXPECT_EQ(std::string(list.fGetLogFile(4)), fits);  // positions count from 1
  for (int position : {0, 5}) EXPECT_EQ(list.fGetLogFile(position), nullptr) << position;
  EXPECT_EQ(list.fGetLogFileIndx(Text(name1)), 1);
  EXPECT_EQ(list.fGetLogFileIndx(Text(other)), 0);

  // Removal releases the record's compiled patterns (checked by the leak sanitizer build).
  std::string value = "error";
  list.fAddLogPattern(5, Text(value), 0, 0, nullptr);
  EXPECT_EQ(list.fDelLogFile(5), 1);
  EXPECT_EQ(list.fDelLogFile(5), 0);
  EXPECT_EQ(list.fClearLogFile(), 3);
}

// Every value replaces all five slots; a pattern of 2047 characters still compiles (gaps keep its pieces short).
TEST(CLogFileList, PatternSlotFilling) {
  std::string p2047 = "^", p2048(2048, 'q');
  for (int i = 0; i < 4; ++i) p2047 += std::string(400, 'p') + ".*";
  p2047 += std::string(437, 'p') + "$";
  // The texts and grades of slots 0.., the rest empty; values in readable notation.
  const struct { std::string value; int result; std::vector<std::string> texts; std::vector<int> grades; } cases[] = {
      {"1{|}ERROR{~}2{|}WARN", 1, {"ERROR", "WARN"}, {1, 2}},
      {"7{|}{~}3{|}X{~}", 1, {"X"}, {3}},  // a grade without pattern, an empty entry: no slot
      {"a{~}b{~}c{~}d{~}e{~}f", 1, {"a", "b", "c", "d", "e"}, {-1, -1, -1, -1, -1}},
      {"A{~}" + p2048 + "{~}B", 0, {"A", "B"}, {-1, -1}},
      {p2047, 1, {p2047}, {-1}},
      {"x{|}A{~}{|}B", 1, {"A", "B"}, {0, 0}},  // non-numeric or empty grade: 0
      {"1{|}a{|}b", 1, {"a{|}b"}, {1}},          // only the first bar divides
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.value.substr(0, 40));
    CLogFileList list;
    Register(list, {4});
    std::string earlier = Sep("1{|}o{~}2{|}p{~}3{|}q{~}4{|}r{~}5{|}s"), value = Sep(c.value);
    ASSERT_EQ(list.fAddLogPattern(4, Text(earlier), 0, 0, nullptr), 1);
    EXPECT_EQ(list.fAddLogPattern(4, Text(value), 0, 0, nullptr), c.result);
    const ST_LOGFILE_INFO* info = list.fGetNode(4);
    for (size_t slot = 0; slot < PATTERN_SLOT_CNT; ++slot) {
      const bool used = slot < c.texts.size();
      EXPECT_EQ(info->m_vstrLogPattern[slot], used ? Sep(c.texts[slot]) : "") << slot;
      EXPECT_EQ(info->m_vnFaultGrade[slot], used ? c.grades[slot] : -1) << slot;
      EXPECT_EQ(info->m_vpclStrPattern[slot] != nullptr, used) << slot;
    }
  }
}

// A text that does not compile is kept uncompiled; the delimiter keeps 31 characters; slots past five are refused.
TEST(CLogFileList, PatternSettingsAndSlotBounds) {
  CLogFileList list;
  Register(list, {1});
  std::string bad = "(a", longDelimitor(40, ';'), line = "disk error 5", good = Sep("error{~}^WARN");
  ASSERT_EQ(list.fAddLogPattern(1, Text(bad), 0, 0, Text(longDelimitor)), 1);
  ST_LOGFILE_INFO* info = list.fGetNode(1);
  EXPECT_STREQ(info->m_vstrLogPattern[0], "(a");
  EXPECT_EQ(info->m_vpclStrPattern[0], nullptr);
  EXPECT_EQ(std::string(info->m_strDelimitor), std::string(31, ';'));
  ASSERT_EQ(list.fAddLogPattern(1, Text(good), 0, 0, nullptr), 1);
  EXPECT_STREQ(info->m_strDelimitor, "");
  EXPECT_EQ(info->m_vpclStrPattern[0]->fPatternEx(Text(line)), 1);
  EXPECT_EQ(info->m_vpclStrPattern[1]->fPatternEx(Text(line)), 0);
  EXPECT_EQ(list.fAddLogPattern(9, Text(good), 0, 0, nullptr), -1);
  EXPECT_EQ(list.fPatternComp(info, 5, Text(good)), 0);
}

// The console trace comes before the logger's echo; values past 225 characters are quoted up to 226 and "...".
TEST(CLogFileList, NoStorablePatternIsReported) {
  TempDir dir;
  std::string name = "unit", path = dir.path() + "/";
  COmniLog logger(COmniLog::LOG_MODE_ERROR, Text(name), 2);
  logger.fSetLogPath(Text(path));
  const std::string prefix = "Log pattern add fail : ", g222(222, 'g'), g223(223, 'g');
  g_pclOmniLog = &logger;
  for (const auto& c : {std::make_pair(g222, ""), std::make_pair(g223, "...")}) {
    CLogFileList list;
    Register(list, {1});
    std::string value = c.first + Sep("{|}");
    EXPECT_THAT(StderrOf([&] { EXPECT_EQ(list.fAddLogPattern(1, Text(value), 0, 0, nullptr), 1); }, 1),
                testing::StartsWith(prefix + value + "\n"));
    EXPECT_EQ(list.fGetErrorMsg(), prefix + value + c.second);
  }
  g_pclOmniLog = nullptr;
  EXPECT_THAT(ReadAll(dir.path()), testing::HasSubstr("[INFO][LLB]" + prefix + g222 + Sep("{|}") + "\n"));
}
