// The agent runs on through file system faults and hostile input, says what went wrong, and once repaired goes on.
#include <cerrno>
#include <iostream>

#include "TestSupport.h"

using Change = std::function<void(const std::string& path)>;
#define SETUP(ok) ASSERT_TRUE(ok) << #ok << ": " << strerror(errno)  // a failed set-up call is no agent outcome

// A changed file is read on from the right place; one gone or unreadable is reported every cycle, read once back.
TEST(Faults, WatchedFileChangedOrUnreadableUnderTheAgent) {
  const std::string first = "a,b,91,padding-padding-padding-padding";
  const Change readable = [](auto& p) { SETUP(chmod(p.c_str(), 0644) == 0); };
  const struct { const char* name; bool unprivileged; std::string error; Change fault, repair; } cases[] = {
      {"deleted, then created again", false, "",
       [](auto& p) { SETUP(unlink(p.c_str()) == 0 && WriteFile(p, "c,d,92\n")); }, nullptr},
      {"truncated, then appended to", false, "",
       [](auto& p) { SETUP(truncate(p.c_str(), 0) == 0 && AppendFile(p, "c,d,92\n")); }, nullptr},
      {"replaced by a longer file", false, "",  // its first line has the old length: skipped as read
       [&](auto& p) { SETUP(WriteFile(p + ".new", std::string(first.size(), 'h') + "\nc,d,92\n") &&
                            rename((p + ".new").c_str(), p.c_str()) == 0); }, nullptr},
      {"deleted (moved away)", false, "No such file or directory",
       [](auto& p) { SETUP(rename(p.c_str(), (p + ".x").c_str()) == 0 && AppendFile(p + ".x", "c,d,92\n")); },
       [](auto& p) { SETUP(rename((p + ".x").c_str(), p.c_str()) == 0); }},
      {"write-only mode", true, "Permission denied",
       [](auto& p) { SETUP(chmod(p.c_str(), 0200) == 0 && AppendFile(p, "c,d,92\n")); }, readable},
      // Only the mode changes, after a turn found the file quiet: a turn going by the file's status sees it.
      {"made unreadable while quiet", true, "Permission denied",
       [](auto& p) { usleep(2500000); SETUP(chmod(p.c_str(), 0200) == 0); },
       [&](auto& p) { readable(p); SETUP(AppendFile(p, "c,d,92\n")); }},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    if (SkipUnprivileged(c.unprivileged, c.name)) continue;
    AgentDir agent;
    const std::string path = agent.AppLog(first + "\n");
    agent.Start({CpuRule(1, path)}, "log", "out", c.unprivileged);
    ASSERT_TRUE(agent.WaitForEvents(1));
    ASSERT_NO_FATAL_FAILURE(c.fault(path));
    if (!c.error.empty()) {
      const std::string record = " " + path + " log file open fail : " + c.error;
      ASSERT_TRUE(agent.WaitForDiag(record)) << agent.Diag();
      ASSERT_TRUE(agent.WaitForCycles(2));
      EXPECT_GE(Count(agent.Diag(), record), 2u) << "reported every cycle";
      EXPECT_EQ(agent.EventCount(), 1u);
      ASSERT_NO_FATAL_FAILURE(c.repair(path));
    }
    ASSERT_TRUE(agent.WaitForEvents(2));
    ASSERT_TRUE(AppendFile(path, "e,f,93\n"));
    EXPECT_EQ(agent.SettledEvents(3), CpuEvent(1, first) + CpuEvent(1, "c,d,92") + CpuEvent(1, "e,f,93"));
    EXPECT_TRUE(agent.Running());
  }
}

// A FIFO (an open would wait for a writer forever) or a directory is refused; the other logs go on.
TEST(Faults, WatchedNameThatIsNoRegularFileIsRefusedAndTheOthersGoOn) {
  AgentDir agent;
  const std::string fifo = agent.Path("logs/fifo.log"), dir = agent.Path("logs/dir.log");
  const std::string good = agent.AppLog();
  SETUP(mkfifo(fifo.c_str(), 0644) == 0 && mkdir(dir.c_str(), 0755) == 0);
  agent.Start({CpuRule(1, fifo), CpuRule(2, dir), CpuRule(3, good)});
  ASSERT_TRUE(agent.WaitForEvents(1));
  ASSERT_TRUE(PollFor([&] { return FileExists(agent.Path("LoggerAlive")); }, 10000));
  ASSERT_TRUE(agent.WaitForDiag("[21] " + dir + " log file open fail : Is a directory"));
  ASSERT_TRUE(agent.WaitForDiag("[29] " + fifo + " log file open fail : Illegal seek"));
  // Repaired: a regular file takes the directory's place and is read whole.
  SETUP(rmdir(dir.c_str()) == 0 && WriteFile(dir, "c,d,92\n") && AppendFile(good, "e,f,93\n"));
  EXPECT_EQ(agent.SettledEvents(3), CpuEvent(3, "a,b,91") + CpuEvent(2, "c,d,92") + CpuEvent(3, "e,f,93"));
}

// Offsets live in memory only: after a restart a log of type 0 starts at the end, one of type 2 at the start.
TEST(Faults, RestartForgetsTheOffsets) {
  AgentDir agent;
  const std::string fromEnd = agent.Path("logs/type0.log"), fromStart = agent.Path("logs/type2.log");
  ASSERT_TRUE(WriteFile(fromEnd, "") && WriteFile(fromStart, ""));
  const std::vector<WatchEntry> entries = {CpuRule(1, fromEnd, 0), CpuRule(2, fromStart, 2)};
  agent.Start(entries);
  ASSERT_TRUE(agent.WaitForCycles(1));
  ASSERT_TRUE(AppendFile(fromEnd, "a,b,91\n") && AppendFile(fromStart, "c,d,92\n"));
  ASSERT_TRUE(agent.WaitForEvents(2));
  agent.Stop();
  ASSERT_TRUE(AppendFile(fromEnd, "e,f,93\n"));  // written while the agent is down
  agent.Start(entries);
  ASSERT_TRUE(agent.WaitForEvents(3));
  ASSERT_TRUE(AppendFile(fromEnd, "g,h,94\n"));
  EXPECT_EQ(agent.SettledEvents(4),
            CpuEvent(1, "a,b,91") + CpuEvent(2, "c,d,92") + CpuEvent(2, "c,d,92") + CpuEvent(1, "g,h,94"));
}

// An "out_" file still waiting under this second's name (a restart, a clock set back) is never replaced.
TEST(Faults, HandOffNeverReplacesAWaitingEventFile) {
  AgentDir agent;
  std::vector<std::string> waiting;
  for (time_t t = time(nullptr) - 1, end = t + 4; t <= end; ++t) {
    waiting.push_back(TimeText("out_%Y%m%d-%H%M%S", t));
    ASSERT_TRUE(WriteFile(agent.Path("out/") + waiting.back(), "waiting " + waiting.back() + "\n"));
  }
  agent.Start({CpuRule(1, agent.AppLog())});
  ASSERT_TRUE(agent.WaitForEvents(waiting.size() + 1));
  for (const std::string& name : waiting) EXPECT_EQ(ReadFile(agent.Path("out/" + name)), "waiting " + name + "\n");
  EXPECT_NE(agent.Events().find(CpuEvent(1, "a,b,91")), std::string::npos);
  EXPECT_NE(agent.Diag().find(" not collected yet, cycle skipped : File exists"), std::string::npos);
}

// Without its output directory events are dropped, without the diagnostic one records; the agent works on.
TEST(Faults, OutputOrDiagnosticDirectoryFaultUntilRepaired) {
  const struct { const char* name; bool output; std::string dir, error; } cases[] = {  // output: else diagnostic
      {"output directory missing", true, "missing", "Old Event Count = -1"},
      {"output directory read-only", true, "out", ""},  // a mode: the agent runs as nobody
      {"log directory missing", false, "diag", "No such file or directory"},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    const bool readOnly = c.dir == "out";
    if (SkipUnprivileged(readOnly, c.name)) continue;
    AgentDir agent;
    const std::string path = agent.AppLog(), dir = agent.Path(c.dir);
    ASSERT_EQ(readOnly ? chmod(dir.c_str(), 0555) : 0, 0);
    agent.Start({CpuRule(1, path)}, c.output ? "log" : c.dir, c.output ? c.dir : "out", readOnly);
    if (c.output) {
      ASSERT_TRUE(agent.WaitForDiag(c.error));
      ASSERT_TRUE(agent.WaitForDiag("log count = 1, fault count = 1"));
      ASSERT_TRUE(agent.WaitForCycles(1));
      EXPECT_TRUE(ListDir(dir).empty());
    } else {
      ASSERT_TRUE(agent.WaitForEvents(1));
      const std::string err = dir + "/", reason = "_SER.log log file open failed : " + c.error + "\n";
      ASSERT_TRUE(PollFor([&] {
        return agent.Stderr().find(err) != std::string::npos && agent.Stderr().find(reason) != std::string::npos;
      }, 10000)) << agent.Stderr();
    }
    EXPECT_TRUE(agent.Running());
    ASSERT_EQ(readOnly ? chmod(dir.c_str(), 0777) : mkdir(dir.c_str(), 0755), 0);
    ASSERT_TRUE(AppendFile(path, "c,d,92\n"));
    EXPECT_EQ(agent.SettledEvents(c.output ? 1 : 2),
              (c.output ? "" : CpuEvent(1, "a,b,91")) + CpuEvent(1, "c,d,92"));
    EXPECT_EQ(ListDir(dir).size(), 1u) << "no ing_ file (or one diagnostic file) in " << dir;
  }
}

// 200 waiting entries of any kind stop the cycles; the lines wait and are read once each when one entry goes.
TEST(Faults, FullOutputDirectoryDelaysWithoutLosingLines) {
  AgentDir agent;
  const std::string path = agent.AppLog();
  for (int i = 0; i < 150; ++i) ASSERT_TRUE(WriteFile(agent.Path("out/out_waiting_" + std::to_string(i)), ""));
  for (int i = 0; i < 40; ++i) ASSERT_EQ(mkdir(agent.Path("out/dir_" + std::to_string(i)).c_str(), 0755), 0);
  for (int i = 0; i < 10; ++i) ASSERT_TRUE(WriteFile(agent.Path("out/.hidden_" + std::to_string(i)), ""));
  agent.Start({CpuRule(1, path)});
  ASSERT_TRUE(agent.WaitForDiag("Old Event Count = 200"));
  ASSERT_TRUE(AppendFile(path, "c,d,92\n"));
  ASSERT_TRUE(PollFor([&] { return Count(agent.Diag(), "Old Event Count = 200") >= 3; }, 10000));
  EXPECT_EQ(agent.Diag().find("LogGather end"), std::string::npos);
  EXPECT_EQ(agent.EventCount(), 0u);
  ASSERT_EQ(unlink(agent.Path("out/.hidden_0").c_str()), 0);
  // Both lines are read in the one cycle that runs; its event file makes 200 entries again.
  EXPECT_EQ(agent.SettledEvents(2), CpuEvent(1, "a,b,91") + CpuEvent(1, "c,d,92"));
}

// A 10 MB line is quoted whole; in a line of delimiters only every column is empty and still numbered.
TEST(Faults, HugeAndDelimiterOnlyLinesAreEvaluatedWhole) {
  const std::string big = "big,FIRE," + std::string(10 * 1024 * 1024, 'x');
  const std::string commas(100000, ','), blanks = std::string(50000, ' ') + std::string(50000, '\t');
  const std::string below5 = "3{~}1{~}5{~}3{~}{~}{|}99999{~}1{~}5{~}3{~}{~}";  // columns 3 and 99999 below 5
  const auto empty = [](const std::string& line) {
    return "1|1{|}1{|}COLUMN[3] Value[0] < 5, ORIGINAL_MSG:" + line + "\n" +
           "1|1{|}1{|}COLUMN[99999] Value[0] < 5, ORIGINAL_MSG:" + line + "\n";
  };
  const struct { const char* name; std::string content, delimitor, number, text, expected; } cases[] = {
      {"10 MB line", big + "\nc,d,92\n", ",{~}NULL", "3{~}2{~}90{~}1{~}{~}", "2{~}3{~}FIRE{~}1",
       "1|2{|}3{|}COLUMN[2] Value[FIRE] == FIRE, ORIGINAL_MSG:" + big + "\n" + CpuEvent(1, "c,d,92")},
      {"one delimiter only", commas + "\n", ",{~}NULL", below5, "NULL", empty(commas)},
      {"two delimiters only", blanks + "\n", " {~}\t", below5, "NULL", empty(blanks)},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    AgentDir agent;
    agent.Start({{1, agent.AppLog(c.content), c.delimitor, c.number, c.text}});
    const std::string events = agent.SettledEvents(2, 90000);
    EXPECT_TRUE(events == c.expected) << "events of " << events.size() << " bytes, " << c.expected.size() << " expected";
    EXPECT_EQ(agent.Stderr().find("LINE READ COUNT OVER[801] SLEEP...\n") != std::string::npos,
              c.content.size() > 801 * 255);
  }
}
