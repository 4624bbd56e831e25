// ColumnTool encode / decode (the readable separator notation, both ways)
// and events (the waiting event files of an output directory).
#include <string>

#include <gtest/gtest.h>

#include "TestSupport.h"

namespace {

using namespace testsupport;

const std::string T = "\x03\x1f\x7e";  // tilde separator
const std::string B = "\x03\x1f\x7c";  // bar separator

const struct {
  const char* name;
  std::string readable, bytes;
} kNotation[] = {
    {"empty", "", ""},
    {"rule value", "4{~}2{~}90.5{~}1{~}={~}%{|}7{~}3{~}0{~}6{~}NULL{~}NULL",
     "4" + T + "2" + T + "90.5" + T + "1" + T + "=" + T + "%" + B + "7" + T + "3" + T + "0" + T + "6" + T + "NULL" + T +
         "NULL"},
    {"separators side by side", "{~}{|}{~}", T + B + T},
    {"braces around a separator", "{{~}}", "{" + T + "}"},
    {"incomplete notation stays", "{~ {| ~} |} {}", "{~ {| ~} |} {}"},
    {"plain bar and tilde stay", "a|b~c", "a|b~c"},
    {"event line with line end", "1|1{|}2{|}COLUMN[3] Value[95] > 90, ORIGINAL_MSG:a,b,95\n",
     "1|1" + B + "2" + B + "COLUMN[3] Value[95] > 90, ORIGINAL_MSG:a,b,95\n"},
    {"other control bytes stay", "a\x03\x1f{~}\x01\r\n", "a\x03\x1f" + T + "\x01\r\n"},
};

TEST(ColumnToolNotation, EncodeAndDecodeAreExactInverses) {
  for (const auto& c : kNotation) {
    SCOPED_TRACE(c.name);
    const RunResult encoded = Tool({"encode"}, c.readable);
    EXPECT_EQ(encoded.status, 0);
    EXPECT_EQ(encoded.out, c.bytes);
    const RunResult decoded = Tool({"decode"}, c.bytes);
    EXPECT_EQ(decoded.status, 0);
    EXPECT_EQ(decoded.out, c.readable);
  }
}

TEST(ColumnToolNotation, FileArgumentsAndInPlaceRewrite) {
  TempDir dir;
  const std::string conf = dir.file("agent.conf");
  ASSERT_TRUE(WriteFile(conf, "LOG01_DELIMITOR=,{~}NULL\nLOG01_PATTERN=1{|}ERROR{~}NULL\n"));
  EXPECT_EQ(Tool({"encode", conf, dir.file("bytes.conf")}).status, 0);
  EXPECT_EQ(ReadFile(dir.file("bytes.conf")), "LOG01_DELIMITOR=," + T + "NULL\nLOG01_PATTERN=1" + B + "ERROR" + T + "NULL\n");
  // The same file as input and output: read whole first, then rewritten.
  EXPECT_EQ(Tool({"encode", conf, conf}).status, 0);
  EXPECT_EQ(ReadFile(conf), ReadFile(dir.file("bytes.conf")));
  EXPECT_EQ(Tool({"decode", conf, "-"}).out, "LOG01_DELIMITOR=,{~}NULL\nLOG01_PATTERN=1{|}ERROR{~}NULL\n");

  const RunResult missing = Tool({"decode", dir.file("none")});
  EXPECT_EQ(missing.status, 2);
  EXPECT_NE(missing.err.find("cannot open"), std::string::npos);
  EXPECT_EQ(Tool({"encode", conf, dir.file("no/such/dir/out")}).status, 1);
  EXPECT_EQ(Tool({"encode", "a", "b", "c"}).status, 2);
  EXPECT_EQ(Tool({"frobnicate"}).status, 2);
}

TEST(ColumnToolEvents, ListsWaitingFilesOldestFirstInReadableForm) {
  TempDir dir;
  const std::string newer = "2|2" + B + "3" + B + "COLUMN[7] Value[FAIL] == FAIL, ORIGINAL_MSG:x,FAIL\n" + "2|4" + B +
                            "1" + B + "10:00:05  log count[12] >= [10]\n";
  const std::string older = "1|1" + B + "2" + B + "COLUMN[3] Value[95] > 90, ORIGINAL_MSG:a,b,95\n";
  WriteFile(dir.file("out_20240102-000000"), newer);
  WriteFile(dir.file("out_20240101-235959"), older);
  WriteFile(dir.file("ing_20240102-000001"), older);
  WriteFile(dir.file("foreign.txt"), "not an event file\n");

  const RunResult r = Tool({"events", dir.path()});
  EXPECT_EQ(r.status, 0) << r.err;
  EXPECT_EQ(r.out,
            "== out_20240101-235959 (1 event)\n"
            "1|1{|}2{|}COLUMN[3] Value[95] > 90, ORIGINAL_MSG:a,b,95\n"
            "== out_20240102-000000 (2 events)\n"
            "2|2{|}3{|}COLUMN[7] Value[FAIL] == FAIL, ORIGINAL_MSG:x,FAIL\n"
            "2|4{|}1{|}10:00:05  log count[12] >= [10]\n"
            "2 out_ files waiting, 3 events; 4 entries in " + dir.path() + "/ (gathering pauses at 200)\n"
            "ing_20240102-000001: still being written, or left by a failed hand-off\n");

  const RunResult raw = Tool({"events", "--raw", dir.path() + "/"});
  EXPECT_EQ(raw.out, older + newer);
  EXPECT_NE(raw.err.find("2 out_ files waiting"), std::string::npos);

  EXPECT_EQ(Tool({"events", dir.file("none")}).status, 2);
}

}  // namespace
