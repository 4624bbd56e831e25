// Names and commands of the event files, and the formatters at their limits.
// The messages and event lines themselves are checked byte for byte through
// the evaluation (ColumnEval_test).
#include "EventFormat.h"

#include <gtest/gtest.h>

#include <cstring>
#include <string>

#include "TestSupport.h"

using testsupport::Sep;

namespace {

TEST(EventFormat, EventFileNameAndCloseOutCommand) {
  const struct Case { std::string outPath; struct tm time; std::string name, command; } cases[] = {
      {"/data/evt/", testsupport::CalendarTime(2022, 6, 27, 10, 11, 12), "/data/evt/ing_20220627-101112",
       "mv /data/evt/ing_20220627-101112 /data/evt/out_20220627-101112 > /dev/null 2>&1"},
      // Without the final '/' the file lands next to the directory.
      {"/data/evt", testsupport::CalendarTime(2022, 6, 27, 10, 11, 12), "/data/evting_20220627-101112",
       "mv /data/evting_20220627-101112 /data/evtout_20220627-101112 > /dev/null 2>&1"},
      {"", testsupport::CalendarTime(1999, 1, 2, 3, 4, 5), "ing_19990102-030405",
       "mv ing_19990102-030405 out_19990102-030405 > /dev/null 2>&1"},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.outPath);
    char name[512], command[512];
    EXPECT_EQ(fgMakeEventFileName(name, sizeof(name), c.outPath.c_str(), &c.time), 1);
    EXPECT_EQ(std::string(name), c.name);
    EXPECT_EQ(fgMakeCloseOutCommand(command, sizeof(command), name, c.outPath.c_str(), &c.time), 1);
    EXPECT_EQ(std::string(command), c.command);
  }
}

// A name that does not fit is never used cut: the buffer comes back empty.
TEST(EventFormat, NameOrCommandThatDoesNotFit) {
  const struct tm t = testsupport::CalendarTime(2022, 6, 27, 10, 11, 12);
  const size_t nameLen = strlen("/p/ing_20220627-101112");
  for (size_t size : {nameLen + 1, nameLen}) {
    SCOPED_TRACE(size);
    std::string buf(size, 'x');
    EXPECT_EQ(fgMakeEventFileName(&buf[0], size, "/p/", &t), size > nameLen ? 1 : 0);
    EXPECT_EQ(strlen(buf.c_str()), size > nameLen ? nameLen : 0u);
  }
  const std::string fitting(240, 'd');
  char name[512], command[512];
  ASSERT_EQ(fgMakeEventFileName(name, sizeof(name), fitting.c_str(), &t), 1);
  EXPECT_EQ(fgMakeCloseOutCommand(command, sizeof(command), name, fitting.c_str(), &t), 0);  // two paths: too long
  EXPECT_STREQ(command, "");
  EXPECT_EQ(fgMakeEventFileName(name, sizeof(name), nullptr, &t), -1);
  EXPECT_EQ(fgMakeCloseOutCommand(command, sizeof(command), nullptr, "p", &t), -1);
}

// The extreme values fit the evaluation's fixed buffers.
TEST(EventFormat, MessagesAtTheirLimits) {
  char buf[512];
  EXPECT_EQ(fgFormatIntMessage(buf, sizeof(buf), 3, -2147483647 - 1, -7), 23);
  EXPECT_STREQ(buf, "Value[-2147483648] < -7");
  EXPECT_LT(fgFormatFloatMessage(buf, sizeof(buf), 4, -3.4028235e38f, -3.4028235e38f), 160);
  const std::string longestDate(255, '9');
  EXPECT_LT(fgFormatLineRateEvent(buf, sizeof(buf), -2147483647 - 1, 4, longestDate.c_str(), -2147483647 - 1,
                                  -2147483647 - 1),
            512);
  EXPECT_EQ(fgFormatIntMessage(buf, sizeof(buf), 7, 1, 1), -1);  // unknown compare
}

// Texts longer than the stack buffer are formatted again, whole, on the heap.
TEST(EventFormat, FormatFullNeverCuts) {
  const size_t fixedPart = 39;  // the line without its ORIGINAL_MSG text
  for (size_t lineLength : {63 - fixedPart, 64 - fixedPart, size_t{100 * 1024}}) {
    SCOPED_TRACE(lineLength);
    const std::string line(lineLength, 'z');
    const std::string expected = "1|1" + Sep("{|}") + "0" + Sep("{|}") + "COLUMN[1] msg, ORIGINAL_MSG:" + line + "\n";
    char stack[64];
    std::unique_ptr<char[]> heap;
    long len = 0;
    const char* text = fgFormatFull(stack, sizeof(stack), heap, &len, [&](char* buf, size_t size) {
      return fgFormatRuleEvent(buf, size, 1, 1, 0, 1, "msg", line.c_str());
    });
    ASSERT_NE(text, nullptr);
    EXPECT_EQ(text != stack, expected.size() >= sizeof(stack));
    EXPECT_EQ(len, static_cast<long>(expected.size()));
    EXPECT_TRUE(std::string(text, static_cast<size_t>(len)) == expected);
  }
  char stack[8];
  std::unique_ptr<char[]> heap;
  EXPECT_EQ(fgFormatFull(stack, sizeof(stack), heap, nullptr,
                         [](char* buf, size_t size) { return fgFormatCharMessage(buf, size, 9, "a", "b"); }),
            nullptr);
}

}  // namespace
