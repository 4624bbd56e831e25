// The agent end to end: growing watched logs in a temporary directory, the
// event files it hands off, and what it must not lose.
#include <sys/stat.h>
#include <sys/time.h>
#include <unistd.h>
#include <utime.h>

#include <algorithm>
#include <memory>

#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "AgentConfig.h"
#include "TestSupport.h"

namespace {

using testsupport::AgentProcess;
using testsupport::AppendFile;
using testsupport::ListDir;
using testsupport::PollFor;
using testsupport::ReadFile;
using testsupport::Readable;
using testsupport::TempDir;
using testsupport::WatchEntry;
using testsupport::WriteFile;

constexpr int kWaitMs = 8000;

// A working directory with out/ and log/, a configuration and the agent.
class Agent {
 public:
  Agent() {
    mkdir(m_dir.file("out").c_str(), 0755);
    mkdir(m_dir.file("log").c_str(), 0755);
    mkdir(m_dir.file("logs").c_str(), 0755);
  }
  void Start(const std::vector<WatchEntry>& entries) {
    std::string config = testsupport::GlobalLines(m_dir.path(), "NORMAL");
    for (const auto& e : entries) config += testsupport::EntryLines(e);
    ASSERT_TRUE(WriteFile(m_dir.file("agent.conf"), config));
    m_agent = std::make_unique<AgentProcess>(m_dir.path(), std::vector<std::string>{"agent.conf"});
  }
  std::string Path(const std::string& name) const { return m_dir.file(name); }

  // The handed-off event files, oldest first.
  std::vector<std::string> OutFiles() const {
    std::vector<std::string> outs;
    for (const auto& name : ListDir(m_dir.file("out")))
      if (name.rfind("out_", 0) == 0) outs.push_back(name);
    return outs;
  }
  // All handed-off events, in readable notation.
  std::string Events() const {
    std::string all;
    for (const auto& name : OutFiles()) all += Readable(ReadFile(m_dir.file("out/" + name)));
    return all;
  }
  bool WaitForEvents(size_t lines, int ms = kWaitMs) const {
    return PollFor([&] {
      const std::string events = Events();
      return std::count(events.begin(), events.end(), '\n') >= static_cast<long>(lines);
    }, ms);
  }
  std::string Stderr() const { return m_agent ? m_agent->Stderr() : ""; }

 private:
  TempDir m_dir;
  std::unique_ptr<AgentProcess> m_agent;
};

WatchEntry CpuRule(int index, const std::string& name, int type) {
  WatchEntry e;
  e.index = index;
  e.name = name;
  e.type = type;
  e.number = "3{~}2{~}90{~}1{~}{~}";
  return e;
}

TEST(Gather, RuleEventReachesTheCollectorByteExact) {
  Agent real;
  ASSERT_TRUE(WriteFile(real.Path("logs/app.log"), "a,b,95\na,b,50\n"));
  real.Start({CpuRule(1, real.Path("logs/app.log"), 2)});
  ASSERT_TRUE(real.WaitForEvents(1));
  const auto outs = real.OutFiles();
  ASSERT_EQ(outs.size(), 1u);
  EXPECT_EQ(ReadFile(real.Path("out/" + outs[0])),
            std::string("1|1\x03\x1f\x7c") + "2\x03\x1f\x7c" + "COLUMN[3] Value[95] > 90, ORIGINAL_MSG:a,b,95\n");
  EXPECT_EQ(outs[0].size(), std::string("out_20220627-101112").size());
}

TEST(Gather, UnfinishedLastLineIsEvaluatedWholeOnceCompleted) {
  Agent real;
  ASSERT_TRUE(WriteFile(real.Path("logs/app.log"), "x,y,91\nx,y,9"));
  real.Start({CpuRule(1, real.Path("logs/app.log"), 2)});
  ASSERT_TRUE(real.WaitForEvents(1));
  AppendFile(real.Path("logs/app.log"), "9\n");
  ASSERT_TRUE(real.WaitForEvents(2));
  EXPECT_EQ(real.Events(),
            "1|1{|}2{|}COLUMN[3] Value[91] > 90, ORIGINAL_MSG:x,y,91\n"
            "1|1{|}2{|}COLUMN[3] Value[99] > 90, ORIGINAL_MSG:x,y,99\n");
}

// A cycle's events are held and written together: far more than the holding
// buffer (32 KB), and one line longer than all of it, still arrive whole and
// in line order.
TEST(Gather, EventsBeyondTheHoldingBufferArriveWholeAndInOrder) {
  Agent real;
  std::string log;
  std::string expected;
  for (int i = 0; i < 61; ++i) {
    const std::string line = "r" + std::to_string(i) + std::string(i == 30 ? 40000 : 1500, 'x') + ",b,95";
    log += line + "\n";
    expected += "1|1{|}2{|}COLUMN[3] Value[95] > 90, ORIGINAL_MSG:" + line + "\n";
  }
  ASSERT_TRUE(WriteFile(real.Path("logs/app.log"), log));
  real.Start({CpuRule(1, real.Path("logs/app.log"), 2)});
  ASSERT_TRUE(real.WaitForEvents(61));
  EXPECT_EQ(real.Events(), expected);
  EXPECT_EQ(real.OutFiles().size(), 1u);
}

// Log type 0 skips what the file holds at the first look; type 2 reads it.
TEST(Gather, LogTypesDecideWhereReadingStarts) {
  struct Case {
    int type;
    std::string expected;
  };
  const Case cases[] = {
      {0, "1|1{|}2{|}COLUMN[3] Value[97] > 90, ORIGINAL_MSG:new,line,97\n"},
      {2,
       "1|1{|}2{|}COLUMN[3] Value[95] > 90, ORIGINAL_MSG:old,line,95\n"
       "1|1{|}2{|}COLUMN[3] Value[97] > 90, ORIGINAL_MSG:new,line,97\n"},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.type);
    Agent agent;
    WatchEntry e = CpuRule(1, agent.Path("logs/app.log"), c.type);
    ASSERT_TRUE(WriteFile(agent.Path("logs/app.log"), "old,line,95\n"));
    agent.Start({e});
    // The first cycle has run once the agent wrote its heartbeat and one more second passed.
    ASSERT_TRUE(PollFor([&] { return testsupport::FileExists(agent.Path("LoggerAlive")); }, kWaitMs));
    usleep(1500000);
    AppendFile(agent.Path("logs/app.log"), "new,line,97\n");
    ASSERT_TRUE(agent.WaitForEvents(c.type == 0 ? 1 : 2));
    usleep(1200000);
    EXPECT_EQ(agent.Events(), c.expected);
  }
}

TEST(Gather, WholeFileTypeRereadsEveryCycle) {
  Agent agent;
  WatchEntry e = CpuRule(1, agent.Path("logs/app.log"), 1);
  ASSERT_TRUE(WriteFile(agent.Path("logs/app.log"), "a,b,93\n"));
  agent.Start({e});
  // The file does not change, yet every cycle reads it whole again.
  ASSERT_TRUE(agent.WaitForEvents(3));
  EXPECT_GE(agent.OutFiles().size(), 3u);
}

TEST(Gather, TruncatedFileIsReadAgainFromItsStart) {
  Agent agent;
  WatchEntry e = CpuRule(1, agent.Path("logs/app.log"), 2);
  ASSERT_TRUE(WriteFile(agent.Path("logs/app.log"), std::string(2000, 'z') + "\nlong,line,95\n"));
  agent.Start({e});
  ASSERT_TRUE(agent.WaitForEvents(1));
  ASSERT_TRUE(WriteFile(agent.Path("logs/app.log"), "s,t,96\n"));
  ASSERT_TRUE(agent.WaitForEvents(2));
  EXPECT_NE(agent.Events().find("ORIGINAL_MSG:s,t,96\n"), std::string::npos);
}

TEST(Gather, WildcardReadsTheNewestVisibleMatch) {
  Agent agent;
  WatchEntry e = CpuRule(1, agent.Path("logs/app_[YYYYMMDD].log"), 2);
  e.checkType = 0;
  const struct {
    const char* name;
    const char* line;
    time_t age;
  } files[] = {{"app_20240101.log", "old,file,91\n", 300},
               {"app_20240102.log", "new,file,92\n", 100},
               {".app_20240103.log", "hidden,file,93\n", 0},
               {"other_20240104.log", "other,file,94\n", 0}};
  const time_t now = time(nullptr);
  for (const auto& f : files) {
    ASSERT_TRUE(WriteFile(agent.Path(std::string("logs/") + f.name), f.line));
    struct utimbuf times = {now - f.age, now - f.age};
    utime(agent.Path(std::string("logs/") + f.name).c_str(), &times);
  }
  agent.Start({e});
  ASSERT_TRUE(agent.WaitForEvents(1));
  usleep(1500000);
  EXPECT_EQ(agent.Events(), "1|1{|}2{|}COLUMN[3] Value[92] > 90, ORIGINAL_MSG:new,file,92\n");
}

// The seconds token changes the file every second; each file is read from its start when it becomes current.
TEST(Gather, DatedNameFollowsTheClock) {
  Agent agent;
  WatchEntry e = CpuRule(1, agent.Path("logs/app_[ss].log"), 2);
  for (int s = 0; s < 61; ++s) {
    char name[32], line[32];
    snprintf(name, sizeof(name), "logs/app_%02d.log", s);
    snprintf(line, sizeof(line), "%02d,s,95\n", s);
    ASSERT_TRUE(WriteFile(agent.Path(name), line));
  }
  agent.Start({e});
  ASSERT_TRUE(agent.WaitForEvents(3));
  const std::string events = agent.Events();
  std::vector<std::string> seconds;
  for (size_t at = events.find("ORIGINAL_MSG:"); at != std::string::npos; at = events.find("ORIGINAL_MSG:", at + 1))
    seconds.push_back(events.substr(at + 13, 2));
  std::vector<std::string> unique = seconds;
  std::sort(unique.begin(), unique.end());
  unique.erase(std::unique(unique.begin(), unique.end()), unique.end());
  EXPECT_EQ(unique.size(), seconds.size()) << "every file is read once: " << events;
}

TEST(Gather, EntriesSharingAFileReadItOnceAndBothEvaluate) {
  Agent agent;
  WatchEntry a = CpuRule(3, agent.Path("logs/shared.log"), 2);
  WatchEntry b = a;
  b.index = 7;
  b.number = "NULL";
  b.text = "2{~}4{~}FAIL{~}1";
  ASSERT_TRUE(WriteFile(agent.Path("logs/shared.log"), "x,FAIL,95\n"));
  agent.Start({a, b});
  ASSERT_TRUE(agent.WaitForEvents(2));
  usleep(1500000);
  EXPECT_EQ(agent.Events(),
            "3|1{|}2{|}COLUMN[3] Value[95] > 90, ORIGINAL_MSG:x,FAIL,95\n"
            "7|2{|}4{|}COLUMN[2] Value[FAIL] == FAIL, ORIGINAL_MSG:x,FAIL,95\n");
  EXPECT_EQ(agent.OutFiles().size(), 1u);
}

TEST(Gather, OneEventFileHoldsTheEventsOfSeveralLogs) {
  Agent agent;
  WatchEntry a = CpuRule(1, agent.Path("logs/a.log"), 2);
  WatchEntry b = CpuRule(2, agent.Path("logs/b.log"), 2);
  ASSERT_TRUE(WriteFile(agent.Path("logs/a.log"), "a,a,91\n"));
  ASSERT_TRUE(WriteFile(agent.Path("logs/b.log"), "b,b,92\n"));
  agent.Start({a, b});
  ASSERT_TRUE(agent.WaitForEvents(2));
  const auto outs = agent.OutFiles();
  ASSERT_EQ(outs.size(), 1u);
  EXPECT_EQ(agent.Events(),
            "1|1{|}2{|}COLUMN[3] Value[91] > 90, ORIGINAL_MSG:a,a,91\n"
            "2|1{|}2{|}COLUMN[3] Value[92] > 90, ORIGINAL_MSG:b,b,92\n");
}

TEST(Gather, BackPressureDelaysWithoutLosingLines) {
  Agent agent;
  WatchEntry e = CpuRule(1, agent.Path("logs/app.log"), 2);
  for (int i = 0; i < 200; ++i) ASSERT_TRUE(WriteFile(agent.Path("out/waiting_" + std::to_string(i)), ""));
  ASSERT_TRUE(WriteFile(agent.Path("logs/app.log"), "a,b,91\n"));
  agent.Start({e});
  ASSERT_TRUE(PollFor([&] { return testsupport::FileExists(agent.Path("LoggerAlive")); }, kWaitMs));
  AppendFile(agent.Path("logs/app.log"), "a,b,92\n");
  usleep(2500000);
  EXPECT_TRUE(agent.OutFiles().empty());
  unlink(agent.Path("out/waiting_0").c_str());
  ASSERT_TRUE(agent.WaitForEvents(2));
  EXPECT_EQ(agent.Events(),
            "1|1{|}2{|}COLUMN[3] Value[91] > 90, ORIGINAL_MSG:a,b,91\n"
            "1|1{|}2{|}COLUMN[3] Value[92] > 90, ORIGINAL_MSG:a,b,92\n");
}

}  // namespace

namespace {

// The delimiters come from the log whose turn it is; a value without the
// tilde separator names a single delimiter.
TEST(Gather, DelimiterSpecificationsCutColumns) {
  struct Case {
    const char* name;
    std::string delimitor;
    std::string line;
    std::string event;
  };
  const Case cases[] = {
      {"single, no separator", ";", "a;b;95", "COLUMN[3] Value[95] > 90, ORIGINAL_MSG:a;b;95"},
      {"single with NULL", ";{~}NULL", "a;b;96", "COLUMN[3] Value[96] > 90, ORIGINAL_MSG:a;b;96"},
      {"tab or blank", "\t{~} ", "a\tb 97", "COLUMN[3] Value[97] > 90, ORIGINAL_MSG:a\tb 97"},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    Agent agent;
    WatchEntry e = CpuRule(1, agent.Path("logs/app.log"), 2);
    e.delimitor = c.delimitor;
    ASSERT_TRUE(WriteFile(agent.Path("logs/app.log"), c.line + "\n"));
    agent.Start({e});
    ASSERT_TRUE(agent.WaitForEvents(1));
    EXPECT_EQ(agent.Events(), "1|1{|}2{|}" + c.event + "\n");
  }
}

}  // namespace
