// Names and commands of the event files, and a formatter at its limit (event lines: see the evaluation tests).
#include "EventFormat.h"
#include "TestSupport.h"

// The event file name and its hand-off command; one that does not fit is never used cut: the buffer comes back empty.
TEST(EventFormat, EventFileNameAndCloseOutCommand) {
  const std::string d240(240, 'd');
  const struct { std::string outPath; int year, result; std::string name, command; } cases[] = {
      {"/data/evt/", 2022, 1, "/data/evt/ing_20220627-101112",
       "mv /data/evt/ing_20220627-101112 /data/evt/out_20220627-101112 > /dev/null 2>&1"},
      // Without the final '/' the file lands next to the directory.
      {"/data/evt", 1999, 1, "/data/evting_19990627-101112",
       "mv /data/evting_19990627-101112 /data/evtout_19990627-101112 > /dev/null 2>&1"},
      {"", 2022, 1, "ing_20220627-101112", "mv ing_20220627-101112 out_20220627-101112 > /dev/null 2>&1"},
      {d240, 2022, 0, d240 + "ing_20220627-101112", ""},  // two paths: the command is too long
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.outPath.substr(0, 20));
    const struct tm t = CalendarTime(c.year, 6, 27, 10, 11, 12);
    char name[512], command[512];
    EXPECT_EQ(fgMakeEventFileName(name, sizeof(name), c.outPath.c_str(), &t), 1);
    EXPECT_EQ(std::string(name), c.name);
    EXPECT_EQ(fgMakeCloseOutCommand(command, sizeof(command), name, c.outPath.c_str(), &t), c.result);
    EXPECT_EQ(std::string(command), c.command);
  }
  const struct tm t = CalendarTime(2022, 6, 27, 10, 11, 12);
  const size_t nameLen = strlen("/p/ing_20220627-101112");
  for (size_t size : {nameLen + 1, nameLen}) {
    std::string buf(size, 'x');
    EXPECT_EQ(fgMakeEventFileName(&buf[0], size, "/p/", &t), size > nameLen ? 1 : 0) << size;
    EXPECT_EQ(strlen(buf.c_str()), size > nameLen ? nameLen : 0u) << size;
  }
  char name[512];
  EXPECT_EQ(fgMakeEventFileName(name, sizeof(name), nullptr, &t), -1);
  EXPECT_EQ(fgMakeCloseOutCommand(name, sizeof(name), nullptr, "p", &t), -1);
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
}
