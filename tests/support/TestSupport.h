// Helpers shared by the test binaries: temporary directories, whole-file I/O,
// the readable separator notation, and running the real agent as a child.
#pragma once

#include <sys/types.h>

#include <ctime>

#include <functional>
#include <string>
#include <vector>

namespace testsupport {

// A fresh directory under /tmp, removed with everything in it on destruction.
class TempDir {
 public:
  TempDir();
  ~TempDir();
  TempDir(const TempDir&) = delete;
  TempDir& operator=(const TempDir&) = delete;

  const std::string& path() const { return m_path; }
  // path() + "/" + name
  std::string file(const std::string& name) const;

 private:
  std::string m_path;
};

std::string ReadFile(const std::string& path);
bool WriteFile(const std::string& path, const std::string& content);
bool AppendFile(const std::string& path, const std::string& content);
bool FileExists(const std::string& path);
// Names in a directory, "." and ".." left out, sorted.
std::vector<std::string> ListDir(const std::string& path);

// "{~}" -> 03 1F 7E and "{|}" -> 03 1F 7C; the reverse for Readable().
std::string Sep(const std::string& readable);
std::string Readable(const std::string& bytes);

// A calendar moment as a struct tm (no time zone applied), for the pure
// functions that take one.
inline struct tm CalendarTime(int year, int month, int day, int hour, int minute, int second) {
  struct tm t = {};
  t.tm_year = year - 1900;
  t.tm_mon = month - 1;
  t.tm_mday = day;
  t.tm_hour = hour;
  t.tm_min = minute;
  t.tm_sec = second;
  return t;
}

// Polls `done` every 20 ms until it holds or `timeout_ms` has passed.
bool PollFor(const std::function<bool()>& done, int timeout_ms);

// The agent started as a child process in `workdir` with `args`; standard
// error (and output) go to files that can be read while it runs.
class AgentProcess {
 public:
  AgentProcess(const std::string& workdir, const std::vector<std::string>& args);
  ~AgentProcess();  // kills the child if it still runs
  AgentProcess(const AgentProcess&) = delete;
  AgentProcess& operator=(const AgentProcess&) = delete;

  pid_t pid() const { return m_pid; }
  // Waits up to timeout_ms for the exit; returns the exit status, or -1 when
  // it still runs (or ended by a signal: then -2).
  int Wait(int timeout_ms);
  void Kill();
  std::string Stderr() const;
  std::string Stdout() const;

 private:
  pid_t m_pid = -1;
  std::string m_errPath;
  std::string m_outPath;
  int m_status = -1;
  bool m_reaped = false;
};

// Path of the agent executable built with the tests.
std::string AgentBinary();
// Directory of the bundled real log samples.
std::string RealLogsDir();

}  // namespace testsupport
