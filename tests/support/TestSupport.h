// The one header of the test binaries: the common includes and the shared helpers (temporary
// directories, files, the readable separator notation, configuration entries, the agent and the tool).
#pragma once

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstring>
#include <ctime>
#include <functional>
#include <memory>
#include <string>
#include <vector>

namespace testsupport {

// A fresh directory under /tmp, removed with everything in it on destruction.
class TempDir {
 public:
  TempDir();
  ~TempDir();
  TempDir(const TempDir&) = delete;
  const std::string& path() const { return m_path; }
  std::string file(const std::string& name) const { return m_path + "/" + name; }

 private:
  std::string m_path;
};

std::string ReadFile(const std::string& path);
bool WriteFile(const std::string& path, const std::string& content);
bool AppendFile(const std::string& path, const std::string& content);
bool FileExists(const std::string& path);  // also a dangling link
inline mode_t Umask() { const mode_t mask = umask(0); umask(mask); return mask; }  // the process's file mask
std::vector<std::string> ListDir(const std::string& path);  // sorted, without "." and ".."
// The files in `dir` whose names start with `prefix`, concatenated in name order.
std::string ReadAll(const std::string& dir, const std::string& prefix = "");
size_t Count(const std::string& text, const std::string& what);

// "{~}" -> 03 1F 7E and "{|}" -> 03 1F 7C; Readable() the other way.
std::string Sep(const std::string& readable);
std::string Readable(const std::string& bytes);

// What `call` writes to standard error, with console tracing (g_nPrint) at `print` meanwhile.
std::string StderrOf(const std::function<void()>& call, int print = 0);
struct tm CalendarTime(int year, int month, int day, int hour, int minute, int second);  // no time zone applied
bool PollFor(const std::function<bool()>& done, int timeout_ms);  // every 20 ms

std::string AgentBinary();
// A finished child: exit status (-2 after a signal, -1 when it could not run) and output.
struct RunResult { int status = -1; std::string out, err; };
RunResult RunProgram(const std::vector<std::string>& argv, const std::string& input = "", const std::string& cwd = "");
RunResult Tool(std::vector<std::string> args, const std::string& input = "");  // the companion tool
// Whether user nobody may run the agent binary (every directory above it must let it through).
bool NobodyCanRunAgent();

// The agent as a child in `workdir`; `asNobody`: as user nobody (file modes bind root's children only so).
class AgentProcess {
 public:
  AgentProcess(const std::string& workdir, const std::vector<std::string>& args, bool asNobody = false);
  ~AgentProcess();  // kills the child if it still runs
  AgentProcess(const AgentProcess&) = delete;
  int Wait(int timeout_ms);  // the exit status, -1 while it runs, -2 after a signal
  std::string Stderr() const { return ReadFile(m_errPath); }

 private:
  pid_t m_pid = -1;
  std::string m_errPath, m_outPath;
  int m_status = 0;
  bool m_reaped = false;
};

// One LOGnn_ entry of an agent configuration, values in readable notation.
struct WatchEntry {
  int index = 1;
  std::string name;
  int type = 2;       // 0 end, 1 whole file, 2 start
  int checkType = 1;  // 0 wildcard, else dated
  std::string secLog = "NULL", delimitor = ",{~}NULL", number = "NULL", text = "NULL", date = "NULL", pattern = "NULL";
};
std::string EntryLines(const WatchEntry& e);  // with the separator bytes
// The global keys: diagnostic log in <dir>/<logDir>/, events in <dir>/<outDir>/.
std::string GlobalLines(const std::string& dir, const std::string& mode = "DEBUG", const std::string& logDir = "log",
                        const std::string& outDir = "out");
// Column 3 above 90 fires at level 2 ("x,y,NN" lines), and its event for `line` (readable).
WatchEntry CpuRule(int index, const std::string& name, int type = 2);
std::string CpuEvent(int index, const std::string& line);

// A working directory with logs/, out/ and log/, a configuration, the agent,
// and what it reports: handed-off events, diagnostic records, standard error.
class AgentDir {
 public:
  AgentDir();
  std::string Path(const std::string& name) const { return m_dir.file(name); }
  const std::string& Dir() const { return m_dir.path(); }
  std::string AppLog(const std::string& content = "a,b,91\n") const;  // writes logs/app.log, returns its path
  // Writes the configuration and starts the agent (as nobody with `unprivileged` when run as root).
  void Start(const std::vector<WatchEntry>& entries, const std::string& logDir = "log",
             const std::string& outDir = "out", bool unprivileged = false);
  std::vector<std::string> OutFiles() const;
  std::string Events() const { return Readable(ReadAll(Path(m_outDir), "out_")); }  // oldest first
  size_t EventCount() const { return Count(Events(), "\n"); }
  bool WaitForEvents(size_t lines, int ms = 10000) const { return PollFor([&] { return EventCount() >= lines; }, ms); }
  std::string SettledEvents(size_t lines, int ms = 10000) const;  // once `lines` came and one more cycle ended
  std::string Diag() const { return ReadAll(Path(m_logDir)); }  // every diagnostic record so far
  bool WaitForDiag(const std::string& text, int ms = 10000) const {
    return PollFor([&] { return Diag().find(text) != std::string::npos; }, ms);
  }
  bool WaitForCycles(int cycles, int ms = 10000) const;  // more gather cycles ended
  void Stop() { m_agent.reset(); }  // as a kill or a reboot would
  int Wait(int ms) { return m_agent ? m_agent->Wait(ms) : -2; }
  bool Running() { return Wait(0) == -1; }
  std::string Stderr() const { return m_agent ? m_agent->Stderr() : ""; }

 private:
  TempDir m_dir;
  std::string m_logDir = "log", m_outDir = "out";
  std::unique_ptr<AgentProcess> m_agent;
};

}  // namespace testsupport
