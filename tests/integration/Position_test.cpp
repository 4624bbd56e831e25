// POSITION_FILE: a restart goes on where the last run stopped; a record that no longer fits is dropped with its
// reason, and the entry takes its first look.
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <csignal>

#include "TestSupport.h"

std::string Line(int seq) { return "a," + std::to_string(seq) + ",95"; }
std::string Events(std::initializer_list<int> seqs) {
  std::string events;
  for (const int seq : seqs) events += CpuEvent(1, Line(seq));
  return events;
}
// Stops the agent as `signal` does and waits for it.
void StopWith(AgentDir& agent, int signal) {
  ASSERT_TRUE(agent.Agent().Signal(signal));
  EXPECT_EQ(agent.Agent().Wait(10000), signal == SIGTERM ? 0 : -2);
}

// Line 1 before the stop, line 2 while the agent is down, line 3 after the restart.
TEST(PositionFile, RestartGoesOnWhereTheLastRunStopped) {
  const struct { const char* name; bool key; int type, signal; std::string events; } cases[] = {
      {"type 0, SIGTERM", true, 0, SIGTERM, Events({1, 2, 3})},
      {"type 0, SIGKILL (saved after every cycle)", true, 0, SIGKILL, Events({1, 2, 3})},
      {"type 2: nothing read again", true, 2, SIGTERM, Events({1, 2, 3})},
      {"type 0 without the key: the first look skips line 2", false, 0, SIGKILL, Events({1, 3})},
      {"type 2 without the key: the first look reads line 1 again", false, 2, SIGKILL, Events({1, 1, 2, 3})},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    AgentDir agent;
    const std::string log = agent.AppLog("a,0,10\n"), keys = c.key ? "POSITION_FILE=" + agent.Path("positions") + "\n" : "";
    agent.Start({CpuRule(1, log, c.type)}, "log", "out", false, keys);
    ASSERT_TRUE(agent.WaitForCycles(1));
    ASSERT_TRUE(AppendFile(log, Line(1) + "\n"));
    ASSERT_TRUE(agent.WaitForEvents(1));
    ASSERT_TRUE(agent.WaitForCycles(1));
    StopWith(agent, c.signal);
    ASSERT_TRUE(AppendFile(log, Line(2) + "\n"));
    agent.Start({CpuRule(1, log, c.type)}, "log", "out", false, keys);
    ASSERT_TRUE(agent.WaitForCycles(2));
    ASSERT_TRUE(AppendFile(log, Line(3) + "\n"));
    EXPECT_EQ(agent.SettledEvents(Count(c.events, "\n")), c.events);
    EXPECT_EQ(agent.Diag().find("LOG01 resumes at offset ") != std::string::npos, c.key) << agent.Diag();
  }
}

// What happens to the file or the configuration between two runs decides whether the record still fits.
TEST(PositionFile, RecordThatNoLongerFitsIsDroppedWithItsReason) {
  using Change = std::function<void(AgentDir&, const std::string& log, WatchEntry&)>;
  const struct { const char* name; Change change; std::string record; } cases[] = {
      {"malformed position file",
       [](AgentDir& a, auto&, auto&) { ASSERT_TRUE(WriteFile(a.Path("positions"), "garbage\n")); },
       "position file not used (its first line is not"},
      {"file replaced under the name",
       [](AgentDir&, const std::string& log, auto&) {
         ASSERT_TRUE(WriteFile(log + ".new", "b,0,10\nb,0,11\n"));
         ASSERT_EQ(rename((log + ".new").c_str(), log.c_str()), 0);
       },
       "LOG01 position dropped: another file has its name now"},
      {"file rewritten in place (same inode, other first bytes)",
       [](AgentDir&, const std::string& log, auto&) {
         ASSERT_EQ(truncate(log.c_str(), 0), 0);
         ASSERT_TRUE(AppendFile(log, "b,0,10\nb,0,11\n"));
       },
       "LOG01 position dropped: its first bytes changed"},
      {"entry configured with another type", [](AgentDir&, auto&, WatchEntry& e) { e.type = 2; },
       "LOG01 position dropped: its name or types changed in the configuration"},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    AgentDir agent;
    const std::string log = agent.AppLog("a,0,10\n"), keys = "POSITION_FILE=" + agent.Path("positions") + "\n";
    WatchEntry entry = CpuRule(1, log, 0);
    agent.Start({entry}, "log", "out", false, keys);
    ASSERT_TRUE(agent.WaitForCycles(2));
    StopWith(agent, SIGTERM);
    ASSERT_NO_FATAL_FAILURE(c.change(agent, log, entry));
    agent.Start({entry}, "log", "out", false, keys);
    ASSERT_TRUE(agent.WaitForDiag(c.record)) << agent.Diag();
    ASSERT_TRUE(agent.WaitForCycles(1));
    ASSERT_TRUE(AppendFile(log, Line(4) + "\n"));  // the first look done, the entry reads on
    EXPECT_NE(agent.SettledEvents(1).find(CpuEvent(1, Line(4))), std::string::npos);
  }
}

// A rotation between two cycles (FOLLOW_ROTATION) or while the agent is down (POSITION_FILE): line 2 is appended
// to the file before it rotates, line 3 to the file the name means afterwards; neither is lost or read twice.
TEST(FollowRotation, FileReadBeforeTheRotationIsReadToItsEndFirst) {
  using Rotate = std::function<void(const std::string& dir, AgentDir&)>;  // dir: the logs directory, with a slash
  const Rotate rename_rotation = [](const std::string& dir, AgentDir&) {
    ASSERT_TRUE(AppendFile(dir + "app.log", Line(2) + "\n"));
    ASSERT_EQ(rename((dir + "app.log").c_str(), (dir + "app.log.1").c_str()), 0);
    ASSERT_TRUE(WriteFile(dir + "app.log", Line(3) + "\n"));
  };
  const Rotate copytruncate = [](const std::string& dir, AgentDir&) {
    ASSERT_TRUE(AppendFile(dir + "app.log", Line(2) + "\n"));
    ASSERT_TRUE(WriteFile(dir + "app.log.1", ReadFile(dir + "app.log")));
    ASSERT_EQ(truncate((dir + "app.log").c_str(), 0), 0);
    ASSERT_TRUE(AppendFile(dir + "app.log", Line(3) + "\n"));
  };
  const struct { const char* name; const char* file; int checkType; bool restart; Rotate rotate; } cases[] = {
      {"rename and create", "app.log", 1, false, rename_rotation},
      {"copytruncate", "app.log", 1, false, copytruncate},
      {"a newer wildcard match", "app*.log", 0, false,
       [](const std::string& dir, AgentDir&) {
         ASSERT_TRUE(AppendFile(dir + "app.log", Line(2) + "\n"));
         const struct timespec past[2] = {{time(nullptr) - 60, 0}, {time(nullptr) - 60, 0}};
         ASSERT_EQ(utimensat(AT_FDCWD, (dir + "app.log").c_str(), past, 0), 0);
         ASSERT_TRUE(WriteFile(dir + "app2.log", Line(3) + "\n"));
       }},
      {"deleted, then created again", "app.log", 1, false,
       [](const std::string& dir, AgentDir&) {
         ASSERT_TRUE(AppendFile(dir + "app.log", Line(2) + "\n"));
         ASSERT_EQ(unlink((dir + "app.log").c_str()), 0);
         usleep(2500 * 1000);  // more than a cycle without the name
         ASSERT_TRUE(WriteFile(dir + "app.log", Line(3) + "\n"));
       }},
      {"deleted and created again empty", "app.log", 1, false,
       [](const std::string& dir, AgentDir& agent) {
         ASSERT_TRUE(AppendFile(dir + "app.log", Line(2) + "\n"));
         ASSERT_EQ(unlink((dir + "app.log").c_str()), 0);
         ASSERT_TRUE(WriteFile(dir + "app.log", ""));
         ASSERT_TRUE(agent.WaitForCycles(2));  // the deleted file is let go once read, the new one still empty
         EXPECT_FALSE(agent.Agent().HoldsDeletedFile());
         ASSERT_TRUE(AppendFile(dir + "app.log", Line(3) + "\n"));
       }},
      {"renamed while the agent was down", "app.log", 1, true, rename_rotation},
      {"copytruncate while the agent was down", "app.log", 1, true, copytruncate},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    AgentDir agent;
    agent.AppLog("a,0,10\n");
    const std::string dir = agent.Path("logs/");
    const std::string keys = c.restart ? "POSITION_FILE=" + agent.Path("positions") + "\n" : "FOLLOW_ROTATION=1\n";
    WatchEntry entry = CpuRule(1, dir + c.file, 0);
    entry.checkType = c.checkType;
    agent.Start({entry}, "log", "out", false, keys);
    ASSERT_TRUE(agent.WaitForCycles(1));
    ASSERT_TRUE(AppendFile(dir + "app.log", Line(1) + "\n"));
    ASSERT_TRUE(agent.WaitForEvents(1));
    ASSERT_TRUE(agent.WaitForCycles(1));
    if (c.restart) StopWith(agent, SIGTERM);
    ASSERT_NO_FATAL_FAILURE(c.rotate(dir, agent));
    if (c.restart) agent.Start({entry}, "log", "out", false, keys);
    EXPECT_EQ(agent.SettledEvents(3), Events({1, 2, 3})) << agent.Diag();
  }
}
