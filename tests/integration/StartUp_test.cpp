// The agent as a newcomer starts it: a hand-written configuration, its exit status and standard error.

#include "TestSupport.h"

TEST(StartUp, FailuresEndWithTheirStatusAndMessage) {
  const std::string logs = "LOG_PATH=./\nLOG_MODE=NOLOG\nLOG_VALIDDAY=3\n", out = "OUTPUT_PATH=./\nLINE_WAIT_CNT=1\n";
  const struct { const char* name; std::string config, err; } cases[] = {  // no config: no file at all
      {"missing file", "", ""}, {"no LOG_PATH", "LOG_MODE=DEBUG\nLOG_VALIDDAY=3\n" + out, ""},
      {"no LOG_VALIDDAY", "LOG_PATH=./\nLOG_MODE=DEBUG\n" + out, "LOG_VALIDDAY is NULL\n"},
      {"no LOG_MODE", "LOG_PATH=./\nLOG_VALIDDAY=3\n" + out, "LOG_MODE is NULL\n"},
      {"no OUTPUT_PATH", logs + "LINE_WAIT_CNT=1\n", "OUTPUT_PATH is NULL\n"},
      {"no LINE_WAIT_CNT", logs + "OUTPUT_PATH=./\n", "LINE_WAIT_CNT is NULL\n"},
      {"LINE_WAIT_CNT too long", logs + "OUTPUT_PATH=./\nLINE_WAIT_CNT=" + std::string(64, '1') + "\n",
       "LINE_WAIT_CNT is too long (64 characters, at most 63)\n"},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    TempDir dir;
    ASSERT_TRUE(c.config.empty() || WriteFile(dir.file("agent.conf"), c.config));
    AgentProcess agent(dir.path(), {"agent.conf"});
    EXPECT_EQ(agent.Wait(15000), 0);
    EXPECT_EQ(agent.Stderr(), c.err);
    EXPECT_FALSE(FileExists(dir.file("agent.conf_lock")));
  }
}

// A bad argument gets one line and a non-zero status.
TEST(StartUp, BadCommandLineGetsOneLineAndNonZeroStatus) {
  TempDir dir;
  for (const std::vector<std::string>& args : {std::vector<std::string>{}, {""}, {std::string(256, 'c')}}) {
    SCOPED_TRACE(args.size());
    AgentProcess agent(dir.path(), args);
    EXPECT_GT(agent.Wait(5000), 0);
    const std::string err = agent.Stderr();
    EXPECT_TRUE(!err.empty() && err.find('\n') == err.size() - 1) << err;
  }
  std::string longest = "missing1.conf";  // 255 characters: accepted (missing: status 0, silent)
  while (longest.size() < 255) longest = "./" + longest;
  // The options are answered on standard output, never taken for a path.
  for (const auto& [arg, out] : std::vector<std::pair<std::string, std::string>>{
           {"--help", "usage: "}, {"--version", "ColumnLogs 1."}, {longest, ""}}) {
    SCOPED_TRACE(arg.substr(0, 20));
    AgentProcess agent(dir.path(), {arg});
    EXPECT_EQ(agent.Wait(5000), 0);
    EXPECT_NE(agent.Stdout().find(out), std::string::npos) << agent.Stdout();
    EXPECT_EQ(agent.Stderr(), "");
  }
}

// The first records go to the day's file in order, echoed with PRINT=ON; the heartbeat is renewed, empty, read-only.
TEST(StartUp, FirstRecordsAndTheHeartbeat) {
  AgentDir dir;
  ASSERT_TRUE(WriteFile(dir.Path("agent.conf"), GlobalLines(dir.Dir(), "DEBUG") + "PRINT=ON\n"));
  ASSERT_TRUE(WriteFile(dir.Path("LoggerAlive"), "stale"));  // replaced, mode and content
  AgentProcess agent(dir.Dir(), {"agent.conf"});
  struct stat first, later;
  ASSERT_TRUE(PollFor([&] { return stat(dir.Path("LoggerAlive").c_str(), &first) == 0 && first.st_size == 0; }, 5000));
  EXPECT_EQ(first.st_mode & 0777, 0444 & ~Umask());
  const std::string log = dir.Path("log/" + TimeText("%Y%m%d") + "_SER.log");
  ASSERT_TRUE(PollFor([&] { return ReadFile(log).find("LogGather end") != std::string::npos; }, 5000));
  const std::string text = ReadFile(log);
  size_t at = 0;
  for (const char* message :
       {"fLoadConfInfo start", "fLoadConfInfo end", "LogGather start", "Old Event Count = 0", "LogGather end"}) {
    SCOPED_TRACE(message);
    at = text.find(std::string("][INFO][LOG]") + message + "\n", at);
    ASSERT_NE(at, std::string::npos) << text;
    EXPECT_TRUE(at >= 7 && text[at - 7] == '[') << text;
  }
  EXPECT_NE(agent.Stderr().find("[INFO][LOG]LogGather end\n"), std::string::npos) << agent.Stderr();
  ASSERT_TRUE(PollFor([&] {
    return stat(dir.Path("LoggerAlive").c_str(), &later) == 0 && later.st_mtime > first.st_mtime + 10;
  }, 20000));
  EXPECT_EQ(later.st_size, 0);
  EXPECT_EQ(agent.Wait(0), -1) << "the agent keeps running";
}
