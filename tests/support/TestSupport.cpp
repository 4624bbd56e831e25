#include "TestSupport.h"

#include <fcntl.h>
#include <grp.h>
#include <signal.h>
#include <sys/wait.h>

#include <algorithm>
#include <chrono>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <thread>

#include "OmniLog.h"

namespace testsupport {

namespace {

void RemoveTree(const std::string& path) {  // a directory is opened up first: a test may have closed it
  struct stat st;
  if (lstat(path.c_str(), &st) == 0 && S_ISDIR(st.st_mode)) {
    chmod(path.c_str(), 0700);
    for (const auto& name : ListDir(path)) RemoveTree(path + "/" + name);
  }
  remove(path.c_str());
}

std::string ReplaceAll(std::string text, const std::string& from, const std::string& to) {
  for (size_t at = text.find(from); at != std::string::npos; at = text.find(from, at + to.size()))
    text.replace(at, from.size(), to);
  return text;
}

constexpr uid_t kNobody = 65534;  // user and group "nobody" / "nogroup"
bool BecomeNobody() { return setgroups(0, nullptr) == 0 && setgid(kNobody) == 0 && setuid(kNobody) == 0; }

// Starts argv[0] with standard input, output and error on these files.
pid_t Spawn(const std::vector<std::string>& argv, const std::string& cwd, const std::string& in,
            const std::string& out, const std::string& err, bool asNobody) {
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

int ExitStatus(int status) { return WIFEXITED(status) ? WEXITSTATUS(status) : -2; }

}  // namespace

TempDir::TempDir() {
  char templ[] = "/tmp/columnlogs_test_XXXXXX";
  EXPECT_NE(mkdtemp(templ), nullptr);
  m_path = templ;
}
TempDir::~TempDir() { RemoveTree(m_path); }

std::string ReadFile(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  return {std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
}

bool WriteFile(const std::string& path, const std::string& content) { return !!(std::ofstream(path) << content); }
bool AppendFile(const std::string& path, const std::string& content) {
  return !!(std::ofstream(path, std::ios::app) << content);
}
bool FileExists(const std::string& path) {
  struct stat st;
  return lstat(path.c_str(), &st) == 0;
}

std::vector<std::string> ListDir(const std::string& path) {
  std::vector<std::string> names;
  std::error_code error;  // an unreadable or missing directory lists nothing
  for (const auto& entry : std::filesystem::directory_iterator(path, error)) names.push_back(entry.path().filename());
  std::sort(names.begin(), names.end());
  return names;
}

std::string ReadAll(const std::string& dir, const std::string& prefix) {
  std::string all;
  for (const auto& name : ListDir(dir))
    if (name.rfind(prefix, 0) == 0) all += ReadFile(dir + "/" + name);
  return all;
}

size_t Count(const std::string& text, const std::string& what) {
  size_t n = 0;
  for (size_t at = text.find(what); at != std::string::npos; at = text.find(what, at + what.size())) ++n;
  return n;
}

std::string Sep(const std::string& readable) {
  return ReplaceAll(ReplaceAll(readable, "{~}", "\x03\x1f\x7e"), "{|}", "\x03\x1f\x7c");
}
std::string Readable(const std::string& bytes) {
  return ReplaceAll(ReplaceAll(bytes, "\x03\x1f\x7e", "{~}"), "\x03\x1f\x7c", "{|}");
}

std::string StderrOf(const std::function<void()>& call, int print) {
  g_nPrint = print;
  testing::internal::CaptureStderr();
  call();
  g_nPrint = 0;
  return testing::internal::GetCapturedStderr();
}

struct tm CalendarTime(int year, int month, int day, int hour, int minute, int second) {
  struct tm t = {};
  t.tm_year = year - 1900, t.tm_mon = month - 1, t.tm_mday = day, t.tm_hour = hour, t.tm_min = minute;
  t.tm_sec = second;
  return t;
}

bool PollFor(const std::function<bool()>& done, int timeout_ms) {
  const auto deadline = std::chrono::steady_clock::now() + std::chrono::milliseconds(timeout_ms);
  while (!done()) {
    if (std::chrono::steady_clock::now() >= deadline) return false;
    std::this_thread::sleep_for(std::chrono::milliseconds(20));
  }
  return true;
}

std::string AgentBinary() { return COLUMNLOGS_BIN; }

RunResult RunProgram(const std::vector<std::string>& argv, const std::string& input, const std::string& cwd) {
  TempDir io;
  RunResult result;
  WriteFile(io.file("in"), input);
  const pid_t pid = Spawn(argv, cwd, io.file("in"), io.file("out"), io.file("err"), false);
  int status = 0;
  if (pid < 0 || waitpid(pid, &status, 0) != pid) return result;
  result.status = ExitStatus(status);
  result.out = ReadFile(io.file("out"));
  result.err = ReadFile(io.file("err"));
  return result;
}

RunResult Tool(std::vector<std::string> args, const std::string& input) {
  args.insert(args.begin(), std::string(COLUMNLOGS_BINARY_DIR) + "/bin/ColumnTool");
  return RunProgram(args, input);
}

bool NobodyCanRunAgent() {
  const pid_t pid = fork();
  if (pid == 0) _exit(BecomeNobody() && access(AgentBinary().c_str(), X_OK) == 0 ? 0 : 1);
  int status = 0;
  return pid > 0 && waitpid(pid, &status, 0) == pid && ExitStatus(status) == 0;
}

AgentProcess::AgentProcess(const std::string& workdir, const std::vector<std::string>& args, bool asNobody) {
  static int counter = 0;
  const std::string stem = workdir + "/.agent_" + std::to_string(getpid()) + "_" + std::to_string(counter++);
  m_errPath = stem + ".err";
  m_outPath = stem + ".out";
  std::vector<std::string> argv = {AgentBinary()};
  argv.insert(argv.end(), args.begin(), args.end());
  m_pid = Spawn(argv, workdir, "/dev/null", m_outPath, m_errPath, asNobody);
}

AgentProcess::~AgentProcess() {
  if (m_pid > 0 && !m_reaped) {
    kill(m_pid, SIGKILL);
    waitpid(m_pid, &m_status, 0);
  }
  unlink(m_errPath.c_str());
  unlink(m_outPath.c_str());
}

int AgentProcess::Wait(int timeout_ms) {
  if (m_pid <= 0) return -2;
  PollFor([&] { return m_reaped || (m_reaped = waitpid(m_pid, &m_status, WNOHANG) == m_pid); }, timeout_ms);
  return m_reaped ? ExitStatus(m_status) : -1;
}

std::string EntryLines(const WatchEntry& e) {
  const std::string p = std::string(e.index < 10 ? "LOG0" : "LOG") + std::to_string(e.index) + "_";
  std::string lines;
  for (const auto& [key, value] : std::vector<std::pair<const char*, std::string>>{
           {"NAME", e.name}, {"TYPE", std::to_string(e.type)}, {"CHECK_TYPE", std::to_string(e.checkType)},
           {"SECLOG_LEVEL_CNT", e.secLog}, {"DELIMITOR", e.delimitor}, {"NUMBER_PATTERN", e.number},
           {"CHAR_PATTERN", e.text}, {"DATE_PATTERN", e.date}, {"PATTERN", e.pattern}})
    lines += p + key + "=" + value + "\n";
  return Sep(lines);
}

std::string GlobalLines(const std::string& dir, const std::string& mode, const std::string& logDir,
                        const std::string& outDir) {
  return "LOG_PATH=" + dir + "/" + logDir + "/\nLOG_MODE=" + mode + "\nLOG_VALIDDAY=7\nOUTPUT_PATH=" + dir + "/" +
         outDir + "/\nLINE_WAIT_CNT=10\n";
}

WatchEntry CpuRule(int index, const std::string& name, int type) {
  WatchEntry e{index, name, type};
  e.number = "3{~}2{~}90{~}1{~}{~}";
  return e;
}

std::string CpuEvent(int index, const std::string& line) {
  const size_t third = line.find(',', line.find(',') + 1) + 1;
  const std::string value = line.substr(third, line.find(',', third) - third);
  return std::to_string(index) + "|1{|}2{|}COLUMN[3] Value[" + value + "] > 90, ORIGINAL_MSG:" + line + "\n";
}

AgentDir::AgentDir() {
  for (const char* sub : {"logs", "out", "log"}) EXPECT_EQ(mkdir(Path(sub).c_str(), 0755), 0) << sub;
}

std::string AgentDir::AppLog(const std::string& content) const {
  EXPECT_TRUE(WriteFile(Path("logs/app.log"), content));
  return Path("logs/app.log");
}

void AgentDir::Start(const std::vector<WatchEntry>& entries, const std::string& logDir, const std::string& outDir,
                     bool unprivileged) {
  std::string config = GlobalLines(Dir(), "NORMAL", logDir, outDir);
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

std::vector<std::string> AgentDir::OutFiles() const {
  std::vector<std::string> outs;
  for (const auto& name : ListDir(Path(m_outDir)))
    if (name.rfind("out_", 0) == 0) outs.push_back(name);
  return outs;
}

std::string AgentDir::SettledEvents(size_t lines, int ms) const {
  WaitForEvents(lines, ms);
  WaitForCycles(1);
  return Events();
}
bool AgentDir::WaitForCycles(int cycles, int ms) const {
  const size_t start = Count(Diag(), "LogGather end");
  return PollFor([&] { return Count(Diag(), "LogGather end") >= start + static_cast<size_t>(cycles); }, ms);
}

}  // namespace testsupport
