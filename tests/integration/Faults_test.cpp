// Faults and bad input: the agent keeps running through file system faults
// and hostile input, says what went wrong, and once the fault is repaired
// goes on without losing what it promises to keep.
#include <fcntl.h>
#include <grp.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <ctime>
#include <functional>
#include <iostream>
#include <memory>
#include <string>
#include <vector>

#include "AgentConfig.h"
#include "ColumnLogger.h"
#include "TestSupport.h"

namespace {

using testsupport::AgentProcess;
using testsupport::AppendFile;
using testsupport::FileExists;
using testsupport::ListDir;
using testsupport::PollFor;
using testsupport::ReadFile;
using testsupport::Readable;
using testsupport::Sep;
using testsupport::TempDir;
using testsupport::WatchEntry;
using testsupport::WriteFile;

std::string Repeat(const std::string& piece, size_t times) {
  std::string out;
  for (size_t i = 0; i < times; ++i) out += piece;
  return out;
}

// Rule values handed to fAddLogInfo directly are not bounded by the loader:
// a malformed entry past the first 511 characters must refuse the value as
// a whole, not reach the registration walk with a missing field.
TEST(ColumnLoggerBadInput, OverlongRuleValueIsRefusedWhole) {
  struct Case {
    const char* name;
    std::string seclog, number, text, date;
  };
  const std::string null = "NULL";
  const Case cases[] = {
      {"seclog", Repeat("1{~}2{|}", 70) + "3", null, null, null},
      {"number", null, Repeat("3{~}2{~}90{~}1{~}{~}{|}", 24) + "4{~}1", null, null},
      {"text", null, null, Repeat("2{~}1{~}FAIL{~}1{|}", 40) + "2{~}1", null},
      {"date", null, null, null, Repeat("1{~}hh:mm:ss{|}", 40) + "2"},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    CColumnLogger logger;
    std::string name = "/tmp/app.log", pattern = "NULL", unused = "NULL", delimitor = Sep(",{~}NULL");
    std::string seclog = Sep(c.seclog), number = Sep(c.number), text = Sep(c.text), date = Sep(c.date);
    ASSERT_GT(seclog.size() + number.size() + text.size() + date.size(), 512u + 11u);
    testing::internal::CaptureStderr();
    const int result = logger.fAddLogInfo(1, name.data(), 1, 2, pattern.data(), unused.data(), unused.data(), 0, 0,
                                          unused.data(), unused.data(), unused.data(), unused.data(), seclog.data(),
                                          delimitor.data(), number.data(), text.data(), date.data());
    const std::string err = testing::internal::GetCapturedStderr();
    EXPECT_EQ(result, -1);
    EXPECT_NE(err.find("rejected: value of"), std::string::npos) << err;
    EXPECT_EQ(logger.m_pclLogFileList->fGetNode(1), nullptr);
    EXPECT_EQ(logger.m_pclNumPatternList->fGetHeadNode(), nullptr);
  }
}

// ---- the agent against file system faults ----

constexpr int kWaitMs = 10000;
constexpr uid_t kNobody = 65534;  // user and group "nobody" / "nogroup"

bool RunningAsRoot() { return geteuid() == 0; }
bool NobodyCanRunAgent();

// A case whose fault is a file mode needs the agent to run as user nobody
// when the tests run as root: skipped (with a note) when nobody cannot.
bool SkipUnprivileged(bool unprivileged, const char* name) {
  if (!unprivileged || !RunningAsRoot() || NobodyCanRunAgent()) return false;
  std::cout << "[ SKIPPED  ] " << name << ": user nobody cannot reach " << testsupport::AgentBinary() << "\n";
  return true;
}

// Drops to user and group nobody in a child process about to exec.
bool BecomeNobody() { return setgroups(0, nullptr) == 0 && setgid(kNobody) == 0 && setuid(kNobody) == 0; }

// Whether user nobody may run the agent binary (every directory above it
// must let it through).
bool NobodyCanRunAgent() {
  const pid_t pid = fork();
  if (pid == 0) _exit(BecomeNobody() && access(testsupport::AgentBinary().c_str(), X_OK) == 0 ? 0 : 1);
  int status = 0;
  return pid > 0 && waitpid(pid, &status, 0) == pid && WIFEXITED(status) && WEXITSTATUS(status) == 0;
}

// The agent run as user nobody. Root opens and writes files whatever their
// mode, so faults made with file modes need the agent to be someone else
// when the tests run as root.
class NobodyAgentProcess {
 public:
  NobodyAgentProcess(const std::string& workdir, const std::string& config) : m_errPath(workdir + "/.agent.err") {
    const std::string binary = testsupport::AgentBinary();
    m_pid = fork();
    if (m_pid == 0) {
      const int err = open(m_errPath.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
      const int null = open("/dev/null", O_RDWR);
      if (chdir(workdir.c_str()) != 0 || err < 0 || null < 0) _exit(127);
      dup2(null, 0);
      dup2(null, 1);
      dup2(err, 2);
      if (!BecomeNobody()) _exit(127);
      execl(binary.c_str(), binary.c_str(), config.c_str(), static_cast<char*>(nullptr));
      _exit(127);
    }
  }
  ~NobodyAgentProcess() {
    if (m_pid > 0 && !m_reaped) {
      kill(m_pid, SIGKILL);
      waitpid(m_pid, nullptr, 0);
    }
  }
  NobodyAgentProcess(const NobodyAgentProcess&) = delete;
  NobodyAgentProcess& operator=(const NobodyAgentProcess&) = delete;

  // As AgentProcess::Wait: the exit status, -1 while it runs, -2 after a signal.
  int Wait(int ms) {
    if (m_pid <= 0) return -2;
    PollFor([&] {
      if (!m_reaped && waitpid(m_pid, &m_status, WNOHANG) == m_pid) m_reaped = true;
      return m_reaped;
    }, ms);
    if (!m_reaped) return -1;
    return WIFEXITED(m_status) ? WEXITSTATUS(m_status) : -2;
  }
  std::string Stderr() const { return ReadFile(m_errPath); }

 private:
  std::string m_errPath;
  pid_t m_pid = -1;
  int m_status = 0;
  bool m_reaped = false;
};

// A working directory with logs/, out/ and log/, a configuration, the agent,
// and what it reports: handed-off events, diagnostic records, standard error.
class FaultAgent {
 public:
  FaultAgent() {
    mkdir(Path("logs").c_str(), 0755);
    mkdir(Path("out").c_str(), 0755);
    mkdir(Path("log").c_str(), 0755);
  }
  std::string Path(const std::string& name) const { return m_dir.file(name); }
  // Writes logs/app.log and returns its path.
  std::string AppLog(const std::string& content = "a,b,91\n") const {
    EXPECT_TRUE(WriteFile(Path("logs/app.log"), content));
    return Path("logs/app.log");
  }

  // Starts the agent; `logDir` and `outDir` name the LOG_PATH and
  // OUTPUT_PATH directories inside the working directory. With
  // `unprivileged` the agent runs as user nobody when the tests run as root,
  // and the working directory, logs/, out/ and log/ are opened up to it.
  void Start(const std::vector<WatchEntry>& entries, const std::string& logDir = "log",
             const std::string& outDir = "out", bool unprivileged = false) {
    std::string config = "LOG_PATH=" + Path(logDir) + "/\nLOG_MODE=NORMAL\nLOG_VALIDDAY=7\nOUTPUT_PATH=" +
                         Path(outDir) + "/\nLINE_WAIT_CNT=10\n";
    for (const auto& e : entries) config += testsupport::EntryLines(e);
    ASSERT_TRUE(WriteFile(Path("agent.conf"), config));
    m_logDir = logDir;
    m_outDir = outDir;
    if (unprivileged && RunningAsRoot()) {
      for (const char* name : {"", "logs", "out", "log"}) {
        struct stat st;
        // Only directories whose mode the test has not set itself.
        if (stat(Path(name).c_str(), &st) == 0 && (st.st_mode & 07777) == 0755) chmod(Path(name).c_str(), 0777);
      }
      chmod(m_dir.path().c_str(), 0777);
      m_nobody = std::make_unique<NobodyAgentProcess>(m_dir.path(), "agent.conf");
    } else {
      m_agent = std::make_unique<AgentProcess>(m_dir.path(), std::vector<std::string>{"agent.conf"});
    }
  }

  // The handed-off events, oldest first, in readable notation.
  std::string Events() const {
    std::string all;
    for (const auto& name : ListDir(Path(m_outDir)))
      if (name.rfind("out_", 0) == 0) all += Readable(ReadFile(Path(m_outDir + "/" + name)));
    return all;
  }
  size_t EventCount() const {
    const std::string events = Events();
    return static_cast<size_t>(std::count(events.begin(), events.end(), '\n'));
  }
  bool WaitForEvents(size_t lines, int ms = kWaitMs) const {
    return PollFor([&] { return EventCount() >= lines; }, ms);
  }
  // All diagnostic records so far (every file of the day, rotated ones too).
  std::string Diag() const {
    std::string all;
    for (const auto& name : ListDir(Path(m_logDir))) all += ReadFile(Path(m_logDir + "/" + name));
    return all;
  }
  bool WaitForDiag(const std::string& text, int ms = kWaitMs) const {
    return PollFor([&] { return Diag().find(text) != std::string::npos; }, ms);
  }
  // Waits until `cycles` more gather cycles have ended.
  bool WaitForCycles(int cycles, int ms = kWaitMs) const {
    const size_t start = Count(Diag(), "LogGather end");
    return PollFor([&] { return Count(Diag(), "LogGather end") >= start + static_cast<size_t>(cycles); }, ms);
  }
  // Ends the agent, as a kill or a reboot would.
  void Stop() {
    m_agent.reset();
    m_nobody.reset();
  }
  bool Running() { return Wait(0) == -1; }
  int Wait(int ms) { return m_nobody ? m_nobody->Wait(ms) : m_agent ? m_agent->Wait(ms) : -2; }
  std::string Stderr() const { return m_nobody ? m_nobody->Stderr() : m_agent ? m_agent->Stderr() : ""; }

  static size_t Count(const std::string& text, const std::string& what) {
    size_t n = 0;
    for (size_t at = text.find(what); at != std::string::npos; at = text.find(what, at + what.size())) ++n;
    return n;
  }

 private:
  TempDir m_dir;
  std::string m_logDir = "log";
  std::string m_outDir = "out";
  std::unique_ptr<AgentProcess> m_agent;
  std::unique_ptr<NobodyAgentProcess> m_nobody;
};

// Column 3 above 90 fires (level 2); lines "x,y,NN".
WatchEntry CpuRule(int index, const std::string& name) {
  WatchEntry e;
  e.index = index;
  e.name = name;
  e.type = 2;
  e.number = "3{~}2{~}90{~}1{~}{~}";
  return e;
}

// The event of CpuRule for `line`, whose third column holds the number.
std::string CpuEvent(int index, const std::string& line) {
  const size_t third = line.find(',', line.find(',') + 1) + 1;
  const std::string value = line.substr(third, line.find(',', third) - third);
  return std::to_string(index) + "|1{|}2{|}COLUMN[3] Value[" + value + "] > 90, ORIGINAL_MSG:" + line + "\n";
}

// The file behind the name changes under the agent. A file shorter than the
// saved offset is read again from its start; the bytes of a longer
// replacement up to the old offset are taken as already read. A file that is
// gone or cannot be opened is skipped with a record every cycle, and what was
// appended to it meanwhile is read once it opens again (root reads files
// whatever their mode, so that case runs the agent as user nobody). Lines
// appended after the change are read once.
TEST(Faults, WatchedFileChangedOrUnreadableUnderTheAgent) {
  const std::string first = "a,b,91,padding-padding-padding-padding";
  using Change = std::function<void(const std::string& path)>;
  const auto replace = [](const std::string& path, const std::string& content) {
    ASSERT_TRUE(WriteFile(path + ".new", content));
    ASSERT_EQ(rename((path + ".new").c_str(), path.c_str()), 0);
  };
  const Change moveAway = [](const std::string& path) {
    ASSERT_EQ(rename(path.c_str(), (path + ".real").c_str()), 0);
    ASSERT_TRUE(AppendFile(path + ".real", "c,d,92\n"));
  };
  const Change moveBack = [](const std::string& path) {
    ASSERT_EQ(rename((path + ".real").c_str(), path.c_str()), 0);
  };
  struct Case {
    const char* name;
    bool unprivileged;  // the fault is a file mode: root must not run the agent
    std::string error;  // text of the "log file open fail" record; "" = none
    Change fault, repair;
  };
  const Case cases[] = {
      {"deleted, then created again", false, "",
       [](const std::string& path) {
         unlink(path.c_str());
         ASSERT_TRUE(WriteFile(path, "c,d,92\n"));
       }, nullptr},
      {"truncated, then appended to", false, "",
       [](const std::string& path) {
         ASSERT_EQ(truncate(path.c_str(), 0), 0);
         ASSERT_TRUE(AppendFile(path, "c,d,92\n"));
       }, nullptr},
      {"replaced by a shorter file", false, "", [&](const std::string& path) { replace(path, "c,d,92\n"); }, nullptr},
      {"replaced by a longer file", false, "",
       [&](const std::string& path) {  // its first line has the old length: skipped as read
         replace(path, std::string(first.size(), 'h') + "\nc,d,92\n");
       }, nullptr},
      {"deleted (moved away)", false, "No such file or directory", moveAway, moveBack},
      {"write-only mode", true, "Permission denied",
       [](const std::string& path) {
         ASSERT_EQ(chmod(path.c_str(), 0200), 0);
         ASSERT_TRUE(AppendFile(path, "c,d,92\n"));
       },
       [](const std::string& path) { ASSERT_EQ(chmod(path.c_str(), 0644), 0); }},
      // Only the mode changes, after a turn found the file quiet: a turn
      // that goes by the file's status must still see the new mode.
      {"made unreadable while quiet", true, "Permission denied",
       [](const std::string& path) {
         usleep(2500000);
         ASSERT_EQ(chmod(path.c_str(), 0200), 0);
       },
       [](const std::string& path) {
         ASSERT_EQ(chmod(path.c_str(), 0644), 0);
         ASSERT_TRUE(AppendFile(path, "c,d,92\n"));
       }},
      {"symbolic link loop", false, "Too many levels of symbolic links",
       [&](const std::string& path) {
         moveAway(path);
         ASSERT_EQ(symlink(path.c_str(), path.c_str()), 0);
       }, moveBack},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    if (SkipUnprivileged(c.unprivileged, c.name)) continue;
    FaultAgent agent;
    const std::string path = agent.AppLog(first + "\n");
    agent.Start({CpuRule(1, path)}, "log", "out", c.unprivileged);
    ASSERT_TRUE(agent.WaitForEvents(1));
    c.fault(path);
    if (!c.error.empty()) {
      const std::string record = " " + path + " log file open fail : " + c.error;
      ASSERT_TRUE(agent.WaitForDiag(record)) << agent.Diag();
      ASSERT_TRUE(agent.WaitForCycles(2));
      EXPECT_GE(FaultAgent::Count(agent.Diag(), record), 2u) << "reported every cycle";
      EXPECT_EQ(agent.EventCount(), 1u);
      EXPECT_TRUE(agent.Running());
      c.repair(path);
    }
    ASSERT_TRUE(agent.WaitForEvents(2));
    ASSERT_TRUE(AppendFile(path, "e,f,93\n"));
    ASSERT_TRUE(agent.WaitForEvents(3));
    ASSERT_TRUE(agent.WaitForCycles(1));
    EXPECT_EQ(agent.Events(), CpuEvent(1, first) + CpuEvent(1, "c,d,92") + CpuEvent(1, "e,f,93"));
    EXPECT_TRUE(agent.Running());
  }
}

// Only regular files are read. A FIFO under a watched name must not stop the
// agent (an open for reading would wait for a writer forever), and a
// directory is refused rather than read as an empty file; the other logs go on.
TEST(Faults, WatchedNameThatIsNoRegularFileIsRefusedAndTheOthersGoOn) {
  FaultAgent agent;
  const std::string fifo = agent.Path("logs/fifo.log");
  const std::string dir = agent.Path("logs/dir.log");
  const std::string good = agent.Path("logs/good.log");
  ASSERT_EQ(mkfifo(fifo.c_str(), 0644), 0);
  ASSERT_EQ(mkdir(dir.c_str(), 0755), 0);
  ASSERT_TRUE(WriteFile(good, "a,b,91\n"));
  agent.Start({CpuRule(1, fifo), CpuRule(2, dir), CpuRule(3, good)});
  ASSERT_TRUE(agent.WaitForEvents(1));
  ASSERT_TRUE(PollFor([&] { return FileExists(agent.Path("LoggerAlive")); }, kWaitMs));
  ASSERT_TRUE(agent.WaitForDiag("[21] " + dir + " log file open fail : Is a directory"));
  ASSERT_TRUE(agent.WaitForDiag("[29] " + fifo + " log file open fail : Illegal seek"));
  // Repaired: a regular file takes the directory's place and is read whole.
  ASSERT_EQ(rmdir(dir.c_str()), 0);
  ASSERT_TRUE(WriteFile(dir, "c,d,92\n"));
  ASSERT_TRUE(AppendFile(good, "e,f,93\n"));
  ASSERT_TRUE(agent.WaitForEvents(3));
  ASSERT_TRUE(agent.WaitForCycles(1));
  const std::string events = agent.Events();
  EXPECT_NE(events.find(CpuEvent(2, "c,d,92")), std::string::npos) << events;
  EXPECT_NE(events.find(CpuEvent(3, "e,f,93")), std::string::npos) << events;
  EXPECT_EQ(agent.EventCount(), 3u);
}

// Offsets live in memory only. After a restart a log of type 0 starts at the
// end of its file (what was written while the agent was down is skipped) and
// a log of type 2 at its start (its lines fire again).
TEST(Faults, RestartForgetsTheOffsets) {
  FaultAgent agent;
  const std::string from_end = agent.Path("logs/type0.log");
  const std::string from_start = agent.Path("logs/type2.log");
  ASSERT_TRUE(WriteFile(from_end, ""));
  ASSERT_TRUE(WriteFile(from_start, ""));
  WatchEntry type0 = CpuRule(1, from_end);
  type0.type = 0;
  const WatchEntry type2 = CpuRule(2, from_start);
  agent.Start({type0, type2});
  ASSERT_TRUE(agent.WaitForCycles(1));
  ASSERT_TRUE(AppendFile(from_end, "a,b,91\n"));
  ASSERT_TRUE(AppendFile(from_start, "c,d,92\n"));
  ASSERT_TRUE(agent.WaitForEvents(2));
  agent.Stop();
  ASSERT_TRUE(AppendFile(from_end, "e,f,93\n"));  // written while the agent is down
  agent.Start({type0, type2});
  ASSERT_TRUE(agent.WaitForEvents(3));
  ASSERT_TRUE(AppendFile(from_end, "g,h,94\n"));
  ASSERT_TRUE(agent.WaitForEvents(4));
  ASSERT_TRUE(agent.WaitForCycles(1));
  const std::string events = agent.Events();
  EXPECT_EQ(FaultAgent::Count(events, CpuEvent(2, "c,d,92")), 2u) << events;
  EXPECT_EQ(FaultAgent::Count(events, CpuEvent(1, "a,b,91")), 1u) << events;
  EXPECT_EQ(FaultAgent::Count(events, CpuEvent(1, "g,h,94")), 1u) << events;
  EXPECT_EQ(events.find("e,f,93"), std::string::npos) << events;
  EXPECT_EQ(agent.EventCount(), 4u);
}

// Event file names have whole seconds. An "out_" file that still waits for
// the collector under the name of this second (left by an agent that ran a
// moment ago, or by a clock set back) is never replaced by a hand-off: the
// cycle waits for a second whose name is free, and nothing is lost.
TEST(Faults, HandOffNeverReplacesAWaitingEventFile) {
  FaultAgent agent;
  const std::string path = agent.AppLog();
  const time_t now = time(nullptr);
  std::vector<std::string> waiting;
  for (time_t t = now - 1; t <= now + 3; ++t) {
    struct tm local;
    localtime_r(&t, &local);
    char name[64];
    strftime(name, sizeof(name), "out_%Y%m%d-%H%M%S", &local);
    waiting.push_back(name);
    ASSERT_TRUE(WriteFile(agent.Path(std::string("out/") + name), std::string("waiting ") + name + "\n"));
  }
  agent.Start({CpuRule(1, path)});
  ASSERT_TRUE(agent.WaitForEvents(waiting.size() + 1));
  for (const std::string& name : waiting)
    EXPECT_EQ(ReadFile(agent.Path("out/" + name)), "waiting " + name + "\n");
  EXPECT_NE(agent.Events().find(CpuEvent(1, "a,b,91")), std::string::npos);
  EXPECT_NE(agent.Diag().find(" not collected yet, cycle skipped : File exists"), std::string::npos);
}

// A directory the agent writes to is missing, a file or read-only. Without
// its output directory events are dropped (and counted, so the per-log
// ceiling still holds); without its diagnostic log directory the logger says
// so on standard error and the agent works on. Once repaired, events and
// records arrive again.
TEST(Faults, OutputOrDiagnosticDirectoryFaultUntilRepaired) {
  using Change = std::function<void(const std::string& dir)>;
  const Change none = [](const std::string&) {};
  const Change makeDir = [](const std::string& dir) { ASSERT_EQ(mkdir(dir.c_str(), 0755), 0); };
  const Change readOnly = [](const std::string& dir) { ASSERT_EQ(chmod(dir.c_str(), 0555), 0); };
  const Change writable = [](const std::string& dir) { ASSERT_EQ(chmod(dir.c_str(), 0777), 0); };
  struct Case {
    const char* name;
    bool output;        // the output directory, else the diagnostic log directory
    bool unprivileged;  // the fault is a file mode: root must not run the agent
    std::string dir, error;
    Change fault, repair;
  };
  const Case cases[] = {
      {"output directory missing", true, false, "missing", "Old Event Count = -1", none, makeDir},
      {"output directory read-only", true, true, "out", "", readOnly, writable},
      {"log directory missing", false, false, "diag", "No such file or directory", none, makeDir},
      {"a file in place of the log directory", false, false, "diag", "Not a directory",
       [](const std::string& dir) { ASSERT_TRUE(WriteFile(dir, "")); },
       [&](const std::string& dir) {
         ASSERT_EQ(unlink(dir.c_str()), 0);
         makeDir(dir);
       }},
      {"log directory read-only", false, true, "diag", "Permission denied",
       [](const std::string& dir) { ASSERT_EQ(mkdir(dir.c_str(), 0555), 0); }, writable},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    if (SkipUnprivileged(c.unprivileged, c.name)) continue;
    FaultAgent agent;
    const std::string path = agent.AppLog(), dir = agent.Path(c.dir);
    c.fault(dir);
    agent.Start({CpuRule(1, path)}, c.output ? "log" : c.dir, c.output ? c.dir : "out", c.unprivileged);
    if (c.output) {
      ASSERT_TRUE(agent.WaitForDiag(c.error));
      ASSERT_TRUE(agent.WaitForDiag("log count = 1, fault count = 1"));
      ASSERT_TRUE(agent.WaitForCycles(1));
      EXPECT_TRUE(ListDir(dir).empty());
    } else {
      ASSERT_TRUE(agent.WaitForEvents(1));
      ASSERT_TRUE(PollFor([&] {
        const std::string err = agent.Stderr();
        return err.find(dir + "/") != std::string::npos &&
               err.find("_SER.log log file open failed : " + c.error + "\n") != std::string::npos;
      }, kWaitMs)) << agent.Stderr();
    }
    EXPECT_TRUE(agent.Running());
    c.repair(dir);
    ASSERT_TRUE(AppendFile(path, "c,d,92\n"));
    ASSERT_TRUE(agent.WaitForEvents(c.output ? 1 : 2));
    ASSERT_TRUE(agent.WaitForCycles(1));
    EXPECT_EQ(agent.Events(), (c.output ? "" : CpuEvent(1, "a,b,91")) + CpuEvent(1, "c,d,92"));
    if (c.output) {
      EXPECT_EQ(ListDir(dir).size(), 1u) << "no ing_ file left behind";
    }
  }
}

// The hand-off runs "mv" through the shell with OUTPUT_PATH unquoted: a path
// the shell would split or interpret is refused at start-up instead of
// leaving every event file behind as "ing_".
TEST(Faults, OutputPathTheShellWouldInterpretIsRefusedAtStartUp) {
  for (const std::string& name : {std::string("out dir"), std::string("out;x"), std::string("out$HOME")}) {
    SCOPED_TRACE(name);
    FaultAgent agent;
    ASSERT_EQ(mkdir(agent.Path(name).c_str(), 0755), 0);
    agent.Start({CpuRule(1, agent.AppLog())}, "log", name);
    EXPECT_EQ(agent.Wait(10000), 0);
    EXPECT_EQ(agent.Stderr(),
              "OUTPUT_PATH holds characters the shell would interpret : " + agent.Path(name) + "/\n");
    EXPECT_TRUE(ListDir(agent.Path(name)).empty());
  }
}

// 200 waiting entries of any kind stop the cycles; the lines wait in their
// files and are all read, once each, when one entry goes.
TEST(Faults, FullOutputDirectoryDelaysWithoutLosingLines) {
  FaultAgent agent;
  const std::string path = agent.AppLog();
  for (int i = 0; i < 150; ++i) ASSERT_TRUE(WriteFile(agent.Path("out/out_waiting_" + std::to_string(i)), ""));
  for (int i = 0; i < 40; ++i) ASSERT_EQ(mkdir(agent.Path("out/dir_" + std::to_string(i)).c_str(), 0755), 0);
  for (int i = 0; i < 10; ++i) ASSERT_TRUE(WriteFile(agent.Path("out/.hidden_" + std::to_string(i)), ""));
  agent.Start({CpuRule(1, path)});
  ASSERT_TRUE(agent.WaitForDiag("Old Event Count = 200"));
  ASSERT_TRUE(AppendFile(path, "c,d,92\n"));
  ASSERT_TRUE(PollFor([&] { return FaultAgent::Count(agent.Diag(), "Old Event Count = 200") >= 3; }, kWaitMs));
  EXPECT_EQ(agent.Diag().find("LogGather end"), std::string::npos);
  EXPECT_EQ(agent.EventCount(), 0u);
  ASSERT_EQ(unlink(agent.Path("out/.hidden_0").c_str()), 0);
  // Both lines are read in the one cycle that runs; its event file makes
  // 200 entries again.
  ASSERT_TRUE(agent.WaitForEvents(2));
  EXPECT_EQ(agent.Events(), CpuEvent(1, "a,b,91") + CpuEvent(1, "c,d,92"));
}

// A lock file left by a process that is gone delays the start by about ten
// seconds; then the agent takes the lock over, reads its configuration,
// removes the lock and works as usual.
TEST(Faults, StaleConfigurationLockDelaysTheStartOnly) {
  FaultAgent agent;
  ASSERT_TRUE(WriteFile(agent.Path("agent.conf_lock"), "999999"));
  agent.Start({CpuRule(1, agent.AppLog())});
  EXPECT_FALSE(PollFor([&] { return FileExists(agent.Path("LoggerAlive")); }, 5000));
  EXPECT_TRUE(agent.Running());
  ASSERT_TRUE(agent.WaitForEvents(1, 25000));
  // The heartbeat follows the first cycle, whose event is already there.
  EXPECT_TRUE(PollFor([&] { return FileExists(agent.Path("LoggerAlive")); }, kWaitMs));
  EXPECT_FALSE(FileExists(agent.Path("agent.conf_lock")));
  EXPECT_EQ(agent.Events(), CpuEvent(1, "a,b,91"));
}

// Hostile lines: a 10 MB line is collected whole and quoted whole in its
// event, and the line after it is evaluated as usual; in a line made of
// delimiters only every column is empty and still numbered.
TEST(Faults, HugeAndDelimiterOnlyLinesAreEvaluatedWhole) {
  const std::string big = "big,FIRE," + std::string(10 * 1024 * 1024, 'x');
  const std::string commas(100000, ','), blanks = std::string(50000, ' ') + std::string(50000, '\t');
  // Column 3 and column 99999 below 5.
  const std::string below5 = "3{~}1{~}5{~}3{~}{~}{|}99999{~}1{~}5{~}3{~}{~}";
  const auto empty = [](const std::string& line) {
    return "1|1{|}1{|}COLUMN[3] Value[0] < 5, ORIGINAL_MSG:" + line + "\n" +
           "1|1{|}1{|}COLUMN[99999] Value[0] < 5, ORIGINAL_MSG:" + line + "\n";
  };
  struct Case {
    const char* name;
    std::string content, delimitor, number, text, expected;
  };
  const Case cases[] = {
      {"10 MB line", big + "\nc,d,92\n", ",{~}NULL", "3{~}2{~}90{~}1{~}{~}", "2{~}3{~}FIRE{~}1",
       "1|2{|}3{|}COLUMN[2] Value[FIRE] == FIRE, ORIGINAL_MSG:" + big + "\n" + CpuEvent(1, "c,d,92")},
      {"one delimiter only", commas + "\n", ",{~}NULL", below5, "NULL", empty(commas)},
      {"two delimiters only", blanks + "\n", " {~}\t", below5, "NULL", empty(blanks)},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    FaultAgent agent;
    WatchEntry e = CpuRule(1, agent.AppLog(c.content));
    e.delimitor = c.delimitor;
    e.number = c.number;
    e.text = c.text;
    agent.Start({e});
    ASSERT_TRUE(agent.WaitForEvents(2, 90000));
    ASSERT_TRUE(agent.WaitForCycles(1));
    const std::string events = agent.Events();
    EXPECT_TRUE(events == c.expected) << "events of " << events.size() << " bytes, " << c.expected.size()
                                      << " expected";
    EXPECT_EQ(agent.Stderr().find("LINE READ COUNT OVER[801] SLEEP...\n") != std::string::npos,
              c.content.size() > 801 * 255);
  }
}

}  // namespace
