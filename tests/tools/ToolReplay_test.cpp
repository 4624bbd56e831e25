// ColumnTool replay writes the agent's event bytes for the same configuration and log.
#include "TestSupport.h"

TEST(ColumnToolReplay, RawEventsEqualWhatTheAgentWritesForTheSameFile) {
  // HealthApp: '|'-separated; two entries on the same file form one group sharing one read and one event ceiling.
  const WatchEntry steps{1, "", "|{~}NULL", "4{~}1{~}3780{~}1{~}onStandStepChanged {~}", "4{~}2{~}fail{~}3", "NULL",
                         "1{|}onStandStepChanged{~}2{|}fail"};
  const WatchEntry components{2, "", "|{~}NULL", "3{~}0{~}30002312{~}5{~}NULL{~}NULL", "2{~}3{~}Step_LSC{~}1"};
  // Zookeeper: blank-separated with a time column feeding the line-rate check.
  const WatchEntry zoo{3, "", " {~}NULL", "NULL", "4{~}4{~}ERROR{~}1{|}4{~}2{~}WARN{~}1",
                       "1{~}YYYY-MM-DD{|}2{~}hh:mm:ss,SSS", "NULL", "1{~}3{|}3{~}10"};
  // Apache: columns end at ']' or '['; a pattern rule behind a line pattern, a handful of events.
  const WatchEntry apache{1, "", "]{~}[", "NULL", "5{~}2{~}(find child)&(NOT:mod_jk){~}3", "NULL", "1{|}(jk2_init)"};
  // `ceiling`: more than 100 events for one log in the cycle.
  const struct { const char* log; std::vector<WatchEntry> entries; bool ceiling; } cases[] = {
      {"HealthApp_2k.log", {steps, components}, true}, {"Zookeeper_2k.log", {zoo}, true},
      {"Apache_2k.log", {apache}, false}};
  for (const auto& c : cases) {
    SCOPED_TRACE(c.log);
    AgentDir agent;
    const std::string log = agent.AppLog(ReadFile(std::string(COLUMNLOGS_SOURCE_DIR "/tests/data/real-logs/") + c.log));
    const std::string conf = agent.Path("agent.conf");
    std::vector<WatchEntry> entries = c.entries;
    for (WatchEntry& e : entries) e.name = log;
    agent.Start(entries);
    ASSERT_TRUE(PollFor([&] { return !agent.OutFiles().empty(); }, 20000)) << agent.Stderr();
    const std::string events = ReadFile(agent.Path("out/" + agent.OutFiles()[0]));
    ASSERT_GT(Count(events, "\n"), 0u);

    const RunResult raw = Tool({"replay", "--raw", conf, log});
    EXPECT_EQ(raw.status, 0) << raw.err;
    EXPECT_EQ(raw.out, events) << raw.err;
    EXPECT_EQ(raw.err.find("later lines were not evaluated") != std::string::npos, c.ceiling) << raw.err;
    const RunResult readable = Tool({"replay", conf, log});
    EXPECT_EQ(readable.status, 0);
    EXPECT_EQ(readable.out, Readable(events));
    // Without the per-cycle ceiling every passing line is evaluated; the first events are the same.
    const RunResult all = Tool({"replay", "--raw", "--all", conf, log});
    EXPECT_EQ(all.status, 0);
    EXPECT_EQ(all.out.compare(0, events.size(), events), 0);
    EXPECT_EQ(all.out.size() > events.size(), c.ceiling);
  }
}

TEST(ColumnToolReplay, NamedOrMatchingEntryReplaysOnlyItsOwnRules) {
  TempDir dir;
  const std::string log = dir.file("app.log"), conf = dir.file("agent.conf");
  const WatchEntry numbers{4, dir.file("other.log"), ",{~}NULL", "2{~}2{~}90{~}1{~}{~}"};
  const WatchEntry texts{7, dir.file("other.log"), ",{~}NULL", "NULL", "3{~}3{~}FAIL{~}1"};
  WatchEntry dated{9, dir.file("app_[YYYY].log"), ",{~}NULL", "2{~}2{~}90{~}1{~}{~}"};
  dated.checkType = 0;
  ASSERT_TRUE(WriteFile(log, "a,95,FAIL\nb,10,OK\nc,99,FAIL\npartial,99,FAIL") &&
              WriteFile(dir.file("app_2024.log"), "x,95\n"));
  ASSERT_TRUE(WriteFile(conf, GlobalLines(dir.path()) + EntryLines(numbers) + EntryLines(texts) + EntryLines(dated)));

  const RunResult r = Tool({"replay", conf, log, "LOG04"});
  EXPECT_EQ(r.status, 0) << r.err;
  // The unfinished last line waits for its end, as in the agent.
  EXPECT_EQ(r.out,
            "4|1{|}2{|}COLUMN[2] Value[95] > 90, ORIGINAL_MSG:a,95,FAIL\n"
            "4|1{|}2{|}COLUMN[2] Value[99] > 90, ORIGINAL_MSG:c,99,FAIL\n");
  EXPECT_NE(r.err.find("3 complete lines"), std::string::npos) << r.err;
  const RunResult other = Tool({"replay", conf, log, "7"});
  EXPECT_EQ(Count(other.out, "\n"), 2u);
  EXPECT_NE(other.out.find("7|2{|}3{|}COLUMN[3] Value[FAIL] == FAIL, ORIGINAL_MSG:a,95,FAIL\n"), std::string::npos);
  // A wildcard entry is chosen by the file it matches.
  EXPECT_EQ(Tool({"replay", conf, dir.file("app_2024.log")}).out,
            "9|1{|}2{|}COLUMN[2] Value[95] > 90, ORIGINAL_MSG:x,95\n");
  // No entry watches app.log and several are loaded: the tool asks for one.
  const RunResult unnamed = Tool({"replay", conf, log});
  EXPECT_EQ(unnamed.status, 2);
  EXPECT_NE(unnamed.err.find("name one"), std::string::npos) << unnamed.err;
  EXPECT_NE(unnamed.err.find("LOG07"), std::string::npos);
  const RunResult missing = Tool({"replay", conf, log, "5"});
  EXPECT_EQ(missing.status, 1);
  EXPECT_NE(missing.err.find("LOG05 is not loaded"), std::string::npos) << missing.err;
  EXPECT_EQ(Tool({"replay", conf, log, "20"}).status + Tool({"replay", conf, dir.path(), "4"}).status, 4);
}
