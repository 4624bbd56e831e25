// Faults and bad input: the agent keeps running through file system faults
// and hostile input, says what went wrong, and once the fault is repaired
// goes on without losing what it promises to keep.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "ColumnLogger.h"
#include "TestSupport.h"

namespace {

using testsupport::Sep;

std::vector<char> Text(const std::string& text) {
  std::vector<char> buf(text.begin(), text.end());
  buf.push_back('\0');
  return buf;
}

std::string Repeat(const std::string& piece, size_t times) {
  std::string out;
  for (size_t i = 0; i < times; ++i) out += piece;
  return out;
}

// Rule values handed to fAddLogInfo directly are not bounded by the loader:
// a malformed entry past the first 511 characters must refuse the value as
// a whole, not reach the registration walk with a missing field.
TEST(ColumnLoggerBadInput, OverlongRuleValueIsRefusedWhole) {
  struct Case {
    const char* name;
    std::string seclog, number, text, date;
  };
  const std::string null = "NULL";
  const Case cases[] = {
      {"seclog", Repeat("1{~}2{|}", 70) + "3", null, null, null},
      {"number", null, Repeat("3{~}2{~}90{~}1{~}{~}{|}", 24) + "4{~}1", null, null},
      {"text", null, null, Repeat("2{~}1{~}FAIL{~}1{|}", 40) + "2{~}1", null},
      {"date", null, null, null, Repeat("1{~}hh:mm:ss{|}", 40) + "2"},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    CColumnLogger logger;
    std::vector<char> name = Text("/tmp/app.log"), pattern = Text("NULL"), unused = Text("NULL");
    std::vector<char> seclog = Text(Sep(c.seclog)), delimitor = Text(Sep(",{~}NULL"));
    std::vector<char> number = Text(Sep(c.number)), text = Text(Sep(c.text)), date = Text(Sep(c.date));
    ASSERT_GT(seclog.size() + number.size() + text.size() + date.size(), 512u + 15u);
    testing::internal::CaptureStderr();
    const int result = logger.fAddLogInfo(1, name.data(), 1, 2, pattern.data(), unused.data(), unused.data(), 0, 0,
                                          unused.data(), unused.data(), unused.data(), unused.data(), seclog.data(),
                                          delimitor.data(), number.data(), text.data(), date.data());
    const std::string err = testing::internal::GetCapturedStderr();
    EXPECT_EQ(result, -1);
    EXPECT_NE(err.find("rejected: value of"), std::string::npos) << err;
    EXPECT_EQ(logger.m_pclLogFileList->fGetNode(1), nullptr);
    EXPECT_EQ(logger.m_pclNumPatternList->fGetHeadNode(), nullptr);
  }
}

}  // namespace
