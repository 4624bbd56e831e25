// The agent as a newcomer starts it: a hand-written configuration in an empty
// directory, the real executable, its exit status and standard error.
#include <sys/stat.h>

#include <ctime>
#include <string>

#include <gtest/gtest.h>

#include "AgentConfig.h"
#include "TestSupport.h"

namespace {

using testsupport::AgentProcess;
using testsupport::FileExists;
using testsupport::PollFor;
using testsupport::ReadFile;
using testsupport::TempDir;
using testsupport::WriteFile;

std::string Today() {
  time_t now = time(nullptr);
  struct tm t;
  localtime_r(&now, &t);
  char buf[16];
  strftime(buf, sizeof(buf), "%Y%m%d", &t);
  return buf;
}

TEST(StartUp, FailuresEndWithTheirStatusAndMessage) {
  struct Case {
    const char* name;
    std::string config;  // empty: no configuration file at all
    int status;
    std::string err;
  };
  const std::string out = "OUTPUT_PATH=./\nLINE_WAIT_CNT=1\n";
  const Case cases[] = {
      {"missing file", "", 0, ""},
      {"no LOG_PATH", "LOG_MODE=DEBUG\nLOG_VALIDDAY=3\n" + out, 0, ""},
      {"no LOG_VALIDDAY", "LOG_PATH=./\nLOG_MODE=DEBUG\n" + out, 0, "LOG_VALIDDAY is NULL\n"},
      {"no LOG_MODE", "LOG_PATH=./\nLOG_VALIDDAY=3\n" + out, 0, "LOG_MODE is NULL\n"},
      {"neither", "LOG_PATH=./\n" + out, 0, "LOG_VALIDDAY is NULL\n"},
      {"no OUTPUT_PATH", "LOG_PATH=./\nLOG_MODE=NOLOG\nLOG_VALIDDAY=3\nLINE_WAIT_CNT=1\n", 0, "OUTPUT_PATH is NULL\n"},
      {"no LINE_WAIT_CNT", "LOG_PATH=./\nLOG_MODE=NOLOG\nLOG_VALIDDAY=3\nOUTPUT_PATH=./\n", 0,
       "LINE_WAIT_CNT is NULL\n"},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    TempDir dir;
    if (!c.config.empty()) {
      ASSERT_TRUE(WriteFile(dir.file("agent.conf"), c.config));
    }
    AgentProcess agent(dir.path(), {"agent.conf"});
    EXPECT_EQ(agent.Wait(15000), c.status);
    EXPECT_EQ(agent.Stderr(), c.err);
    EXPECT_FALSE(FileExists(dir.file("agent.conf_lock")));
  }
}

TEST(StartUp, BadCommandLineGetsOneLineAndNonZeroStatus) {
  TempDir dir;
  struct Case {
    const char* name;
    std::vector<std::string> args;
  };
  const Case cases[] = {{"no argument", {}}, {"empty argument", {""}}, {"256 characters", {std::string(256, 'c')}}};
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    AgentProcess agent(dir.path(), c.args);
    const int status = agent.Wait(5000);
    EXPECT_GT(status, 0);
    const std::string err = agent.Stderr();
    EXPECT_FALSE(err.empty());
    EXPECT_EQ(err.find('\n'), err.size() - 1) << err;
  }
  // 255 characters is still a path the agent accepts (the file is missing: status 0, silent).
  std::string longest;
  for (int i = 0; i < 121; ++i) longest += "./";
  longest += "missing1.conf";
  ASSERT_EQ(longest.size(), 255u);
  AgentProcess agent(dir.path(), {longest});
  EXPECT_EQ(agent.Wait(5000), 0);
  EXPECT_EQ(agent.Stderr(), "");
}

TEST(StartUp, HeartbeatIsRecreatedEmptyReadOnlyAndRefreshed) {
  TempDir dir;
  mkdir(dir.file("out").c_str(), 0755);
  ASSERT_TRUE(WriteFile(dir.file("agent.conf"), testsupport::GlobalLines(dir.path(), "NOLOG")));
  // An old heartbeat with other permissions and content is replaced.
  ASSERT_TRUE(WriteFile(dir.file("LoggerAlive"), "stale"));
  chmod(dir.file("LoggerAlive").c_str(), 0644);
  struct stat before;
  ASSERT_EQ(stat(dir.file("LoggerAlive").c_str(), &before), 0);

  AgentProcess agent(dir.path(), {"agent.conf"});
  struct stat first;
  ASSERT_TRUE(PollFor([&] { return stat(dir.file("LoggerAlive").c_str(), &first) == 0 && first.st_size == 0; }, 5000));
  const mode_t umask_now = umask(0);
  umask(umask_now);
  EXPECT_EQ(first.st_mode & 0777, 0444 & ~umask_now);

  // More than ten seconds later the file is made anew.
  struct stat later;
  ASSERT_TRUE(PollFor([&] {
    return stat(dir.file("LoggerAlive").c_str(), &later) == 0 && later.st_mtime > first.st_mtime + 10;
  }, 20000));
  EXPECT_EQ(later.st_size, 0);
  EXPECT_EQ(agent.Wait(0), -1) << "the agent keeps running";
}

TEST(StartUp, FirstDiagnosticRecordsGoToTheDaysFile) {
  TempDir dir;
  mkdir(dir.file("out").c_str(), 0755);
  mkdir(dir.file("log").c_str(), 0755);
  ASSERT_TRUE(WriteFile(dir.file("agent.conf"), testsupport::GlobalLines(dir.path(), "DEBUG")));
  AgentProcess agent(dir.path(), {"agent.conf"});
  const std::string log = dir.file("log/" + Today() + "_SER.log");
  ASSERT_TRUE(PollFor([&] { return ReadFile(log).find("LogGather end") != std::string::npos; }, 5000));
  const std::string text = ReadFile(log);
  // "[HHMMSS][INFO][LOG]message", in this order.
  const char* expected[] = {"fLoadConfInfo start", "fLoadConfInfo end", "LogGather start", "Old Event Count = 0",
                            "LogGather end"};
  size_t at = 0;
  for (const char* message : expected) {
    SCOPED_TRACE(message);
    const size_t found = text.find(std::string("[INFO][LOG]") + message + "\n", at);
    ASSERT_NE(found, std::string::npos) << text;
    ASSERT_GE(found, 8u);
    EXPECT_EQ(text[found - 8], '[');
    EXPECT_EQ(text.substr(found - 1, 1), "]");
    at = found;
  }
  EXPECT_EQ(agent.Stderr(), "");
}

TEST(StartUp, PrintOnEchoesRecordsToStandardError) {
  TempDir dir;
  mkdir(dir.file("out").c_str(), 0755);
  mkdir(dir.file("log").c_str(), 0755);
  ASSERT_TRUE(WriteFile(dir.file("agent.conf"), testsupport::GlobalLines(dir.path(), "ERROR") + "PRINT=ON\n"));
  AgentProcess agent(dir.path(), {"agent.conf"});
  ASSERT_TRUE(PollFor([&] { return agent.Stderr().find("[INFO][LOG]LogGather end\n") != std::string::npos; }, 5000));
}

}  // namespace
