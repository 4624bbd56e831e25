// ColumnTool replay against the agent itself: the same configuration and the
// same real log, read by the agent (log type 2, whole file in its first
// cycle) and by replay; the event bytes must be identical.
#include <sys/stat.h>

#include <algorithm>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "AgentConfig.h"
#include "TestSupport.h"
#include "ToolRun.h"

namespace {

using testsupport::AgentProcess;
using testsupport::ListDir;
using testsupport::PollFor;
using testsupport::ReadFile;
using testsupport::Readable;
using testsupport::TempDir;
using testsupport::WatchEntry;
using testsupport::WriteFile;

constexpr int kAgentWaitMs = 20000;

struct ReplayCase {
  const char* name;
  const char* log;  // file in the real-log samples
  std::vector<WatchEntry> entries;  // names are filled in with the copy's path
  bool ceiling;     // more than 100 events for one log in the cycle
};

std::vector<ReplayCase> Cases() {
  // HealthApp: '|'-separated. Two entries on the same file form one group
  // that shares one read and one event ceiling.
  WatchEntry steps;
  steps.index = 1;
  steps.delimitor = "|{~}NULL";
  steps.number = "4{~}1{~}3780{~}1{~}onStandStepChanged {~}";
  steps.text = "4{~}2{~}fail{~}3";
  steps.pattern = "1{|}onStandStepChanged{~}2{|}fail";
  WatchEntry components = steps;
  components.index = 2;
  components.number = "3{~}0{~}30002312{~}5{~}NULL{~}NULL";
  components.text = "2{~}3{~}Step_LSC{~}1";
  components.pattern = "NULL";

  // Zookeeper: blank-separated with a time column feeding the line-rate check.
  WatchEntry zoo;
  zoo.index = 3;
  zoo.delimitor = " {~}NULL";
  zoo.secLog = "1{~}3{|}3{~}10";
  zoo.text = "4{~}4{~}ERROR{~}1{|}4{~}2{~}WARN{~}1";
  zoo.date = "1{~}YYYY-MM-DD{|}2{~}hh:mm:ss,SSS";
  zoo.pattern = "NULL";

  // Apache: columns end at ']' or '['; a pattern rule on the message column
  // behind a line pattern, a handful of events.
  WatchEntry apache;
  apache.index = 1;
  apache.delimitor = "]{~}[";
  apache.text = "5{~}2{~}(find child)&(NOT:mod_jk){~}3";
  apache.pattern = "1{|}(jk2_init)";

  return {{"HealthApp group of two entries", "HealthApp_2k.log", {steps, components}, true},
          {"Zookeeper with date columns and line rate", "Zookeeper_2k.log", {zoo}, true},
          {"Apache with a pattern rule", "Apache_2k.log", {apache}, false}};
}

// Runs the agent until it has handed off its first event file and returns the
// bytes of that file: its first cycle reads the whole file (log type 2).
std::string AgentEvents(const std::string& dir, const std::string& config) {
  WriteFile(dir + "/agent.conf", config);
  AgentProcess agent(dir, {"agent.conf"});
  std::string out_name;
  const bool handed_off = PollFor([&] {
    for (const auto& name : ListDir(dir + "/out")) {
      if (name.rfind("out_", 0) == 0) out_name = name;
    }
    return !out_name.empty();
  }, kAgentWaitMs);
  agent.Kill();
  EXPECT_TRUE(handed_off) << agent.Stderr();
  return out_name.empty() ? std::string() : ReadFile(dir + "/out/" + out_name);
}

long Lines(const std::string& text) { return static_cast<long>(std::count(text.begin(), text.end(), '\n')); }

TEST(ColumnToolReplay, RawEventsEqualWhatTheAgentWritesForTheSameFile) {
  for (const ReplayCase& c : Cases()) {
    SCOPED_TRACE(c.name);
    TempDir dir;
    mkdir(dir.file("out").c_str(), 0755);
    mkdir(dir.file("log").c_str(), 0755);
    const std::string log = dir.file(c.log);
    ASSERT_TRUE(WriteFile(log, ReadFile(testsupport::RealLogsDir() + "/" + c.log)));
    std::string config = testsupport::GlobalLines(dir.path(), "NORMAL");
    for (WatchEntry e : c.entries) {
      e.name = log;
      e.type = 2;
      config += testsupport::EntryLines(e);
    }

    const std::string agent = AgentEvents(dir.path(), config);
    ASSERT_GT(Lines(agent), 0);

    const toolrun::Result raw = toolrun::Tool({"replay", "--raw", dir.file("agent.conf"), log});
    EXPECT_EQ(raw.status, 0) << raw.err;
    EXPECT_EQ(raw.out, agent) << raw.err;

    const toolrun::Result readable = toolrun::Tool({"replay", dir.file("agent.conf"), log});
    EXPECT_EQ(readable.status, 0);
    EXPECT_EQ(readable.out, Readable(agent));
    EXPECT_EQ(readable.out.find('\x03'), std::string::npos);

    // Without the per-cycle ceiling every passing line is evaluated.
    const toolrun::Result all = toolrun::Tool({"replay", "--raw", "--all", dir.file("agent.conf"), log});
    EXPECT_EQ(all.status, 0);
    EXPECT_EQ(raw.err.find("later lines were not evaluated") != std::string::npos, c.ceiling) << raw.err;
    if (c.ceiling) {
      EXPECT_GT(Lines(all.out), Lines(agent));
      EXPECT_EQ(all.out.compare(0, agent.size(), agent), 0) << "the first events are the same";
    } else {
      EXPECT_EQ(all.out, agent);
    }
  }
}

TEST(ColumnToolReplay, NamedEntryReplaysOnlyItsOwnRules) {
  TempDir dir;
  mkdir(dir.file("out").c_str(), 0755);
  const std::string log = dir.file("app.log");
  WriteFile(log, "a,95,FAIL\nb,10,OK\nc,99,FAIL\npartial,99,FAIL");
  WatchEntry numbers;
  numbers.index = 4;
  numbers.name = dir.file("other.log");
  numbers.number = "2{~}2{~}90{~}1{~}{~}";
  WatchEntry texts = numbers;
  texts.index = 7;
  texts.number = "NULL";
  texts.text = "3{~}3{~}FAIL{~}1";
  WriteFile(dir.file("agent.conf"),
            testsupport::GlobalLines(dir.path()) + testsupport::EntryLines(numbers) + testsupport::EntryLines(texts));

  const toolrun::Result r = toolrun::Tool({"replay", dir.file("agent.conf"), log, "LOG04"});
  EXPECT_EQ(r.status, 0) << r.err;
  // The unfinished last line waits for its end, as in the agent.
  EXPECT_EQ(r.out,
            "4|1{|}2{|}COLUMN[2] Value[95] > 90, ORIGINAL_MSG:a,95,FAIL\n"
            "4|1{|}2{|}COLUMN[2] Value[99] > 90, ORIGINAL_MSG:c,99,FAIL\n");
  EXPECT_NE(r.err.find("3 complete lines"), std::string::npos) << r.err;

  const toolrun::Result other = toolrun::Tool({"replay", dir.file("agent.conf"), log, "7"});
  EXPECT_EQ(Lines(other.out), 2);
  EXPECT_NE(other.out.find("7|2{|}3{|}COLUMN[3] Value[FAIL] == FAIL, ORIGINAL_MSG:a,95,FAIL"), std::string::npos);

  // No entry watches app.log and two are loaded: the tool asks for one.
  const toolrun::Result unnamed = toolrun::Tool({"replay", dir.file("agent.conf"), log});
  EXPECT_EQ(unnamed.status, 2);
  EXPECT_NE(unnamed.err.find("name one"), std::string::npos) << unnamed.err;
  EXPECT_NE(unnamed.err.find("LOG07"), std::string::npos);

  const toolrun::Result missing = toolrun::Tool({"replay", dir.file("agent.conf"), log, "5"});
  EXPECT_EQ(missing.status, 1);
  EXPECT_NE(missing.err.find("LOG05 is not loaded"), std::string::npos) << missing.err;
  EXPECT_EQ(toolrun::Tool({"replay", dir.file("agent.conf"), log, "20"}).status, 2);
  EXPECT_EQ(toolrun::Tool({"replay", dir.file("agent.conf"), dir.path(), "4"}).status, 2);
  EXPECT_EQ(toolrun::Tool({"replay", dir.file("agent.conf"), dir.file("none.log"), "4"}).status, 2);
}

TEST(ColumnToolReplay, WildcardEntryIsChosenByTheFileItMatches) {
  TempDir dir;
  mkdir(dir.file("out").c_str(), 0755);
  WriteFile(dir.file("app_2024.log"), "x,95\n");
  WatchEntry dated;
  dated.index = 1;
  dated.name = dir.file("app_[YYYY].log");
  dated.checkType = 0;
  dated.number = "2{~}1{~}90{~}1{~}{~}";
  WatchEntry other = dated;
  other.index = 2;
  other.name = dir.file("other.log");
  WriteFile(dir.file("agent.conf"),
            testsupport::GlobalLines(dir.path()) + testsupport::EntryLines(dated) + testsupport::EntryLines(other));
  const toolrun::Result r = toolrun::Tool({"replay", dir.file("agent.conf"), dir.file("app_2024.log")});
  EXPECT_EQ(r.status, 0) << r.err;
  EXPECT_EQ(r.out, "1|1{|}1{|}COLUMN[2] Value[95] > 90, ORIGINAL_MSG:x,95\n");
}

}  // namespace
