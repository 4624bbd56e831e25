// ColumnTool encode / decode (the readable separator notation) and events (the waiting event files).

#include "TestSupport.h"

// Encoding turns exactly "{~}" and "{|}" into the separator bytes; anything else stays.
TEST(ColumnToolNotation, EncodeAndDecodeAreExactInverses) {
  for (const std::string readable : {"", "{~}{|}{~}", "{{~}}", "{~ {| ~} |} {}", "a|b~c", "a\x03\x1f{~}\r\x01\n",
                                     "1|1{|}2{|}COLUMN[3] Value[95] > 90, ORIGINAL_MSG:a,b,95\n"}) {
    SCOPED_TRACE(readable);
    const std::string bytes = Sep(readable);
    const RunResult encoded = Tool({"encode"}, readable), decoded = Tool({"decode"}, bytes);
    EXPECT_EQ(encoded.status + decoded.status, 0);
    EXPECT_EQ(encoded.out, bytes);
    EXPECT_EQ(decoded.out, readable);
  }
}

TEST(ColumnToolNotation, FileArgumentsAndInPlaceRewrite) {
  TempDir dir;
  const std::string conf = dir.file("agent.conf");
  // Saved with CRLF line ends: encoding drops the carriage returns of the line ends only.
  ASSERT_TRUE(WriteFile(conf, "LOG01_DELIMITOR=,{~}NULL\r\nLOG01_PATTERN=1{|}ERROR{~}NULL\r\n"));
  EXPECT_EQ(Tool({"encode", conf, dir.file("bytes.conf")}).status, 0);
  EXPECT_EQ(ReadFile(dir.file("bytes.conf")), Sep("LOG01_DELIMITOR=,{~}NULL\nLOG01_PATTERN=1{|}ERROR{~}NULL\n"));
  // The same file as input and output: read whole first, then rewritten.
  EXPECT_EQ(Tool({"encode", conf, conf}).status, 0);
  EXPECT_EQ(ReadFile(conf), ReadFile(dir.file("bytes.conf")));
  EXPECT_EQ(Tool({"decode", conf, "-"}).out, "LOG01_DELIMITOR=,{~}NULL\nLOG01_PATTERN=1{|}ERROR{~}NULL\n");

  const RunResult missing = Tool({"decode", dir.file("none")});
  EXPECT_EQ(missing.status, 2);
  EXPECT_NE(missing.err.find("cannot open"), std::string::npos);
  EXPECT_EQ(Tool({"encode", conf, dir.file("no/such/dir/out")}).status, 1);
  EXPECT_EQ(Tool({"encode", "a", "b", "c"}).status + Tool({"frobnicate"}).status, 4);
}

TEST(ColumnToolEvents, ListsWaitingFilesOldestFirstInReadableForm) {
  TempDir dir;
  const std::string newer = Sep("2|2{|}3{|}COLUMN[7] Value[FAIL] == FAIL, ORIGINAL_MSG:x,FAIL\n"
                                "2|4{|}1{|}10:00:05  log count[12] >= [10]\nno event layout\n");
  const std::string older = Sep("1|1{|}2{|}COLUMN[3] Value[95] > 90, ORIGINAL_MSG:a,b,95\n");
  for (const auto& [name, text] : {std::make_pair("out_20240102-000000", newer), {"out_20240101-235959", older},
                                   {"ing_20240102-000001", older}, {"foreign.txt", "not an event file\n"}})
    ASSERT_TRUE(WriteFile(dir.file(name), text));

  const RunResult r = Tool({"events", dir.path()});
  EXPECT_EQ(r.status, 0) << r.err;
  EXPECT_EQ(r.out,
            "== out_20240101-235959 (1 event)\n"
            "1|1{|}2{|}COLUMN[3] Value[95] > 90, ORIGINAL_MSG:a,b,95\n"
            "== out_20240102-000000 (3 events)\n"
            "2|2{|}3{|}COLUMN[7] Value[FAIL] == FAIL, ORIGINAL_MSG:x,FAIL\n"
            "2|4{|}1{|}10:00:05  log count[12] >= [10]\n"
            "no event layout\n"
            "2 out_ files waiting, 4 events; 4 entries in " + dir.path() + "/ (gathering pauses at 200)\n"
            "1 line without the event layout: the collector delivers them whole, marked unparsed\n"
            "ing_20240102-000001: still being written, or left by a failed hand-off\n");

  const RunResult raw = Tool({"events", "--raw", dir.path() + "/"});
  EXPECT_EQ(raw.out, older + newer);
  EXPECT_NE(raw.err.find("2 out_ files waiting"), std::string::npos);

  EXPECT_EQ(Tool({"events", dir.file("none")}).status, 2);
}
