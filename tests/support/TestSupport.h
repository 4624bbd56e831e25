// The one header of the test binaries: the common includes and the shared helpers.
#pragma once

#include <fcntl.h>
#include <grp.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstring>
#include <ctime>
#include <filesystem>
#include <fstream>
#include <functional>
#include <iostream>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "OmniLog.h"

namespace testsupport {

inline std::vector<std::string> ListDir(const std::string& path) {  // sorted, without "." and ".."
  std::vector<std::string> names;
  std::error_code error;  // an unreadable or missing directory lists nothing
  for (const auto& entry : std::filesystem::directory_iterator(path, error)) names.push_back(entry.path().filename());
  std::sort(names.begin(), names.end());
  return names;
}

inline void RemoveTree(const std::string& path) {  // a directory is opened up first: a test may have closed it
  struct stat st;
  if (lstat(path.c_str(), &st) == 0 && S_ISDIR(st.st_mode)) {
    chmod(path.c_str(), 0700);
    for (const auto& name : ListDir(path)) RemoveTree(path + "/" + name);
  }
  remove(path.c_str());
}

// A fresh directory under /tmp, removed with everything in it on destruction.
class TempDir {
 public:
  TempDir() { EXPECT_NE(mkdtemp(&m_path[0]), nullptr); }
  ~TempDir() { RemoveTree(m_path); }
  TempDir(const TempDir&) = delete;
  const std::string& path() const { return m_path; }
  std::string file(const std::string& name) const { return m_path + "/" + name; }

 private:
  std::string m_path = "/tmp/columnlogs_test_XXXXXX";
};

inline std::string ReadFile(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  return {std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
}
inline bool WriteFile(const std::string& path, const std::string& content) { return !!(std::ofstream(path) << content); }
inline bool AppendFile(const std::string& path, const std::string& content) {
  return !!(std::ofstream(path, std::ios::app) << content);
}
inline bool FileExists(const std::string& path) { struct stat st; return lstat(path.c_str(), &st) == 0; }  // or link
inline mode_t FileMode(const std::string& path) {  // type and permission bits, 0 when there is no such file
  struct stat st;
  return stat(path.c_str(), &st) == 0 ? st.st_mode & (S_IFMT | 07777) : 0;
}
inline mode_t Umask() { const mode_t mask = umask(0); umask(mask); return mask; }  // the process's file mask
inline std::string ReadAll(const std::string& dir, const std::string& prefix = "") {  // those files in name order
  std::string all;
  for (const auto& name : ListDir(dir))
    if (name.rfind(prefix, 0) == 0) all += ReadFile(dir + "/" + name);
  return all;
}
inline size_t Count(const std::string& text, const std::string& what) {
  size_t n = 0;
  for (size_t at = text.find(what); at != std::string::npos; at = text.find(what, at + what.size())) ++n;
  return n;
}

inline char* Text(const std::string& text) { return const_cast<char*>(text.c_str()); }  // for the C interfaces
inline std::string ReplaceAll(std::string text, const std::string& from, const std::string& to) {
  for (size_t at = text.find(from); at != std::string::npos; at = text.find(from, at + to.size()))
    text.replace(at, from.size(), to);
  return text;
}
inline std::string Sep(const std::string& readable) {  // "{~}" -> 03 1F 7E, "{|}" -> 03 1F 7C; Readable() back
  return ReplaceAll(ReplaceAll(readable, "{~}", "\x03\x1f\x7e"), "{|}", "\x03\x1f\x7c");
}
inline std::string Readable(const std::string& bytes) {
  return ReplaceAll(ReplaceAll(bytes, "\x03\x1f\x7e", "{~}"), "\x03\x1f\x7c", "{|}");
}

// What `call` writes to standard error, with console tracing (g_nPrint) at `print` meanwhile.
inline std::string StderrOf(const std::function<void()>& call, int print = 0) {
  g_nPrint = print;
  testing::internal::CaptureStderr();
  call();
  g_nPrint = 0;
  return testing::internal::GetCapturedStderr();
}
inline struct tm CalendarTime(int year, int month, int day, int hour, int minute, int second) {  // no time zone
  struct tm t = {};
  t.tm_year = year - 1900, t.tm_mon = month - 1, t.tm_mday = day, t.tm_hour = hour, t.tm_min = minute;
  t.tm_sec = second;
  return t;
}
inline std::string TimeText(const char* format, time_t when = time(nullptr)) {  // local time, as strftime puts it
  struct tm local;
  char text[64];
  strftime(text, sizeof(text), format, localtime_r(&when, &local));
  return text;
}
inline bool PollFor(const std::function<bool()>& done, int timeout_ms) {  // every 20 ms
  const auto deadline = std::chrono::steady_clock::now() + std::chrono::milliseconds(timeout_ms);
  for (; !done(); std::this_thread::sleep_for(std::chrono::milliseconds(20)))
    if (std::chrono::steady_clock::now() >= deadline) return false;
  return true;
}

constexpr uid_t kNobody = 65534;  // user and group "nobody" / "nogroup"
inline bool BecomeNobody() { return setgroups(0, nullptr) == 0 && setgid(kNobody) == 0 && setuid(kNobody) == 0; }
inline int ExitStatus(int status) { return WIFEXITED(status) ? WEXITSTATUS(status) : -2; }

inline pid_t Spawn(const std::vector<std::string>& argv, const std::string& cwd, const std::string& in,
                   const std::string& out, const std::string& err, bool asNobody) {  // standard in, out, err on these
  const pid_t pid = fork();
  if (pid != 0) return pid;
  const int fds[] = {open(in.c_str(), O_RDONLY), open(out.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644),
                     open(err.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644)};
  for (int fd = 0; fd < 3; ++fd)
    if (fds[fd] < 0 || dup2(fds[fd], fd) < 0) _exit(126);
  if ((!cwd.empty() && chdir(cwd.c_str()) != 0) || (asNobody && !BecomeNobody())) _exit(126);
  std::vector<char*> args;
  for (const auto& a : argv) args.push_back(const_cast<char*>(a.c_str()));
  args.push_back(nullptr);
  execv(args[0], args.data());
  _exit(127);
}

// A finished child: exit status (-2 after a signal, -1 when it could not run) and output.
struct RunResult { int status = -1; std::string out, err; };
inline RunResult RunProgram(const std::vector<std::string>& argv, const std::string& input = "",
                            const std::string& cwd = "") {
  TempDir io;
  RunResult result;
  EXPECT_TRUE(WriteFile(io.file("in"), input));
  const pid_t pid = Spawn(argv, cwd, io.file("in"), io.file("out"), io.file("err"), false);
  int status = 0;
  if (pid < 0 || waitpid(pid, &status, 0) != pid) return result;
  return {ExitStatus(status), ReadFile(io.file("out")), ReadFile(io.file("err"))};
}
inline RunResult Tool(std::vector<std::string> args, const std::string& input = "") {  // the companion tool
  args.insert(args.begin(), std::string(COLUMNLOGS_BINARY_DIR) + "/bin/ColumnTool");
  return RunProgram(args, input);
}
inline bool NobodyCanRunAgent() {  // every directory above the binary must let user nobody through
  const pid_t pid = fork();
  if (pid == 0) _exit(BecomeNobody() && access(COLUMNLOGS_BIN, X_OK) == 0 ? 0 : 1);
  int status = 0;
  return pid > 0 && waitpid(pid, &status, 0) == pid && ExitStatus(status) == 0;
}

// The agent as a child in `workdir`; `asNobody`: as user nobody (file modes bind root's children only so).
// A file-mode fault needs the agent to run as nobody under root: skipped, with a note, if nobody cannot.
inline bool SkipUnprivileged(bool unprivileged, const char* name) {
  if (!unprivileged || geteuid() != 0 || NobodyCanRunAgent()) return false;
  std::cout << "[ SKIPPED  ] " << name << ": user nobody cannot reach " << COLUMNLOGS_BIN << "\n";
  return true;
}

class AgentProcess {
 public:
  AgentProcess(const std::string& workdir, const std::vector<std::string>& args, bool asNobody = false) {
    static int counter = 0;
    const std::string stem = workdir + "/.agent_" + std::to_string(getpid()) + "_" + std::to_string(counter++);
    m_errPath = stem + ".err", m_outPath = stem + ".out";
    std::vector<std::string> argv = {COLUMNLOGS_BIN};
    argv.insert(argv.end(), args.begin(), args.end());
    m_pid = Spawn(argv, workdir, "/dev/null", m_outPath, m_errPath, asNobody);
  }
  ~AgentProcess() {  // kills the child if it still runs
    if (m_pid > 0 && !m_reaped) kill(m_pid, SIGKILL), waitpid(m_pid, &m_status, 0);
    unlink(m_errPath.c_str()), unlink(m_outPath.c_str());
  }
  AgentProcess(const AgentProcess&) = delete;
  int Wait(int timeout_ms) {  // the exit status, -1 while it runs, -2 after a signal
    if (m_pid <= 0) return -2;
    PollFor([&] { return m_reaped || (m_reaped = waitpid(m_pid, &m_status, WNOHANG) == m_pid); }, timeout_ms);
    return m_reaped ? ExitStatus(m_status) : -1;
  }
  std::string Stderr() const { return ReadFile(m_errPath); }
  std::string Stdout() const { return ReadFile(m_outPath); }
  bool Signal(int sig) const { return m_pid > 0 && !m_reaped && kill(m_pid, sig) == 0; }
  bool HoldsDeletedFile() const {  // an open descriptor of the agent names a deleted file
    const std::string fds = "/proc/" + std::to_string(m_pid) + "/fd";
    for (const auto& name : ListDir(fds)) {
      char target[4096] = {0};
      const ssize_t len = readlink((fds + "/" + name).c_str(), target, sizeof(target) - 1);
      if (len > 10 && std::string(target, len).rfind(" (deleted)") == static_cast<size_t>(len) - 10) return true;
    }
    return false;
  }

 private:
  pid_t m_pid = -1;
  std::string m_errPath, m_outPath;
  int m_status = 0;
  bool m_reaped = false;
};

// One LOGnn_ entry of an agent configuration, values in readable notation; the rules come first after the name.
struct WatchEntry {
  int index = 1;
  std::string name, delimitor = ",{~}NULL", number = "NULL", text = "NULL", date = "NULL", pattern = "NULL";
  std::string secLog = "NULL";
  int type = 2;       // 0 end, 1 whole file, 2 start
  int checkType = 1;  // 0 wildcard, else dated
};
inline std::string EntryLines(const WatchEntry& e) {  // with the separator bytes
  const std::string p = std::string(e.index < 10 ? "LOG0" : "LOG") + std::to_string(e.index) + "_";
  std::string lines;
  for (const auto& [key, value] : std::vector<std::pair<const char*, std::string>>{
           {"NAME", e.name}, {"TYPE", std::to_string(e.type)}, {"CHECK_TYPE", std::to_string(e.checkType)},
           {"SECLOG_LEVEL_CNT", e.secLog}, {"DELIMITOR", e.delimitor}, {"NUMBER_PATTERN", e.number},
           {"CHAR_PATTERN", e.text}, {"DATE_PATTERN", e.date}, {"PATTERN", e.pattern}})
    lines += p + key + "=" + value + "\n";
  return Sep(lines);
}
// The global keys: diagnostic log in <dir>/<logDir>/, events in <dir>/<outDir>/.
inline std::string GlobalLines(const std::string& dir, const std::string& mode = "DEBUG",
                               const std::string& logDir = "log", const std::string& outDir = "out") {
  return "LOG_PATH=" + dir + "/" + logDir + "/\nLOG_MODE=" + mode + "\nLOG_VALIDDAY=7\nOUTPUT_PATH=" + dir + "/" +
         outDir + "/\nLINE_WAIT_CNT=10\n";
}
inline WatchEntry CpuRule(int index, const std::string& name, int type = 2) {  // column 3 > 90 ("x,y,NN" lines)
  WatchEntry e{index, name, ",{~}NULL", "3{~}2{~}90{~}1{~}{~}"};
  e.type = type;
  return e;
}
inline std::string CpuEvent(int index, const std::string& line) {  // CpuRule's event for `line`, readable
  const size_t third = line.find(',', line.find(',') + 1) + 1;
  const std::string value = line.substr(third, line.find(',', third) - third);
  return std::to_string(index) + "|1{|}2{|}COLUMN[3] Value[" + value + "] > 90, ORIGINAL_MSG:" + line + "\n";
}

// A directory with logs/, out/ and log/, the agent, and what it reports: events, diagnostic records, standard error.
class AgentDir {
 public:
  AgentDir() {
    for (const char* sub : {"logs", "out", "log"}) EXPECT_EQ(mkdir(Path(sub).c_str(), 0755), 0) << sub;
  }
  std::string Path(const std::string& name) const { return m_dir.file(name); }
  const std::string& Dir() const { return m_dir.path(); }
  std::string AppLog(const std::string& content = "a,b,91\n") const {  // writes logs/app.log, returns its path
    EXPECT_TRUE(WriteFile(Path("logs/app.log"), content));
    return Path("logs/app.log");
  }
  void Start(const std::vector<WatchEntry>& entries, const std::string& logDir = "log",
             const std::string& outDir = "out", bool unprivileged = false,  // as nobody if `unprivileged` under root
             const std::string& extraKeys = "") {
    std::string config = GlobalLines(Dir(), "NORMAL", logDir, outDir) + extraKeys;
    for (const auto& e : entries) config += EntryLines(e);
    EXPECT_TRUE(WriteFile(Path("agent.conf"), config));
    m_logDir = logDir, m_outDir = outDir;
    const bool asNobody = unprivileged && geteuid() == 0;
    if (asNobody) {  // opened up to nobody: only the directories whose mode the test has not set itself
      struct stat st;
      for (const char* name : {"logs", "out", "log"})
        if (stat(Path(name).c_str(), &st) == 0 && (st.st_mode & 07777) == 0755) chmod(Path(name).c_str(), 0777);
      chmod(Dir().c_str(), 0777);
    }
    m_agent = std::make_unique<AgentProcess>(Dir(), std::vector<std::string>{"agent.conf"}, asNobody);
  }
  std::vector<std::string> OutFiles() const {
    std::vector<std::string> outs;
    for (const auto& name : ListDir(Path(m_outDir)))
      if (name.rfind("out_", 0) == 0) outs.push_back(name);
    return outs;
  }
  std::string Events() const { return Readable(ReadAll(Path(m_outDir), "out_")); }  // oldest first
  size_t EventCount() const { return Count(Events(), "\n"); }
  bool WaitForEvents(size_t lines, int ms = 10000) const { return PollFor([&] { return EventCount() >= lines; }, ms); }
  std::string SettledEvents(size_t lines, int ms = 10000) const {  // once `lines` came and one more cycle ended
    WaitForEvents(lines, ms);
    WaitForCycles(1);
    return Events();
  }
  std::string Diag() const { return ReadAll(Path(m_logDir)); }  // every diagnostic record so far
  bool WaitForDiag(const std::string& text, int ms = 10000) const {
    return PollFor([&] { return Diag().find(text) != std::string::npos; }, ms);
  }
  bool WaitForCycles(int cycles, int ms = 10000) const {  // more gather cycles ended
    const size_t start = Count(Diag(), "LogGather end");
    return PollFor([&] { return Count(Diag(), "LogGather end") >= start + static_cast<size_t>(cycles); }, ms);
  }
  void Stop() { m_agent.reset(); }  // as a kill or a reboot would
  AgentProcess& Agent() { return *m_agent; }
  bool Running() { return m_agent && m_agent->Wait(0) == -1; }
  std::string Stderr() const { return m_agent ? m_agent->Stderr() : ""; }

 private:
  TempDir m_dir;
  std::string m_logDir = "log", m_outDir = "out";
  std::unique_ptr<AgentProcess> m_agent;
};

}  // namespace testsupport
using namespace testsupport;  // the test binaries name the helpers unqualified
