// STATUS_FILE and `ColumnTool status`: the agent's counters against what replay finds in the same real log, the
// table and its warnings, the last write at a stop signal, and a log that outruns the read budget.
#include <csignal>

#include "TestSupport.h"

// The value of one sample line of the status file ("name{labels} value"), -1 when it is not there.
double Sample(const std::string& text, const std::string& nameAndLabels) {
  const size_t at = text.find("\n" + nameAndLabels + " ");
  return at == std::string::npos ? -1 : std::stod(text.substr(at + nameAndLabels.size() + 2));
}

TEST(AgentStatus, CountersAgreeWithReplayAndTheTableWarns) {
  AgentDir dir;
  const std::string log = dir.Path("logs/apache.log");
  ASSERT_TRUE(WriteFile(log, ReadFile(COLUMNLOGS_SOURCE_DIR "/tests/data/real-logs/Apache_2k.log")));
  // Every line evaluated; "[error]" lines fire (595 of them: the ceiling passes lines over), lines ending in
  // "state 6" fire a pattern rule, and 3 lines in one second a line-rate event.
  WatchEntry apache{1, log, "]{~}NULL", "NULL", "2{~}3{~} [error{~}1{|}3{~}2{~}state 6${~}3",
                    "1{~}[www mmm dd hh:mm:ss yyyy", "NULL", "3{~}3"};
  WatchEntry missing = CpuRule(2, dir.Path("logs/missing.log"));
  missing.secLog = "3{~}3";
  dir.Start({apache, missing}, "log", "out", false, "STATUS_FILE=" + dir.Path("agent.prom") + "\n");
  ASSERT_TRUE(dir.WaitForCycles(2));
  ASSERT_TRUE(dir.Agent().Signal(SIGTERM));
  EXPECT_EQ(dir.Agent().Wait(10000), 0) << "a stop signal ends the agent after a last write";
  EXPECT_TRUE(dir.WaitForDiag("stop requested: status file written, agent ends"));
  const std::string status = ReadFile(dir.Path("agent.prom"));

  const RunResult replay = Tool({"replay", "--raw", dir.Path("agent.conf"), log, "1"});
  ASSERT_EQ(replay.status, 0) << replay.err;
  const std::string labels = "entry=\"01\",file=\"" + log + "\"";
  const struct { const char* kind; const char* prefix; } kinds[] = {
      {"numeric", "\n1|1"}, {"text", "\n1|2"}, {"line_rate", "\n1|4"}};
  for (const auto& k : kinds) {
    SCOPED_TRACE(k.kind);
    const double events = Sample(status, "columnlogs_entry_events_total{" + labels + ",kind=\"" + k.kind + "\"}");
    EXPECT_EQ(events, Count("\n" + replay.out, k.prefix));
    EXPECT_EQ(events, Count("\n" + ReadAll(dir.Path("out"), "out_"), k.prefix));
  }
  EXPECT_GT(Count(replay.out, "\n1|4"), 0u);
  EXPECT_EQ(Sample(status, "columnlogs_entry_lines_read_total{" + labels + "}"), 1999);  // the last line is unfinished
  EXPECT_EQ(Sample(status, "columnlogs_entry_lines_matched_total{" + labels + "}"), 1999);
  EXPECT_GT(Sample(status, "columnlogs_entry_lines_passed_over_total{" + labels + "}"), 1000);
  const std::string text = ReadFile(log);  // after a quiet cycle only the unfinished last line is behind
  EXPECT_EQ(Sample(status, "columnlogs_entry_bytes_behind{" + labels + "}"), text.size() - text.rfind('\n') - 1);
  EXPECT_EQ(Sample(status, "columnlogs_entry_file_missing{entry=\"02\",file=\"" + dir.Path("logs/missing.log") + "\"}"), 1);

  const RunResult table = Tool({"status", dir.Path("agent.conf")});
  EXPECT_EQ(table.status, 1) << table.out;
  for (const std::string& text : {"LOG01 " + log, std::string("LOG02: file missing since "),
                                  std::string("LOG01: events passed over by the ceiling"), std::string("spool 1 of 200")})
    EXPECT_NE(table.out.find(text), std::string::npos) << text << "\n" << table.out;
  EXPECT_EQ(Tool({"status", dir.Path("logs/apache.log")}).status, 2);  // no STATUS_FILE there
}

// A writer faster than the read budget (800 pieces, then 200 ms): the turn never ends, and the status file, kept
// from the read pauses, shows the bytes behind growing.
TEST(AgentStatus, BytesBehindGrowWhenTheWriterOutrunsTheReadBudget) {
  AgentDir dir;
  std::string burst;
  for (int i = 0; i < 5000; ++i) burst += "a,b,1\n";
  const std::string log = dir.AppLog(burst + burst + burst + burst);
  dir.Start({CpuRule(1, log)}, "log", "out", false, "STATUS_FILE=" + dir.Path("agent.prom") + "\n");
  const std::string falling = "columnlogs_entry_falling_behind{entry=\"01\",file=\"" + log + "\"}";
  double behind = 0;
  const bool fell = PollFor([&] {
    EXPECT_TRUE(AppendFile(log, burst));  // 5,000 lines every 20 ms: far beyond 4,000 a second
    const std::string status = ReadFile(dir.Path("agent.prom"));
    behind = Sample(status, "columnlogs_entry_bytes_behind{entry=\"01\",file=\"" + log + "\"}");
    return Sample(status, falling) == 1;
  }, 20000);
  EXPECT_TRUE(fell) << ReadFile(dir.Path("agent.prom"));
  EXPECT_GT(behind, 100000);
  EXPECT_GT(Sample(ReadFile(dir.Path("agent.prom")), "columnlogs_read_pauses_total"), 10);
}
