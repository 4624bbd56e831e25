#include "TestSupport.h"

#include <dirent.h>
#include <fcntl.h>
#include <signal.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <sstream>
#include <thread>

namespace testsupport {

namespace {

void RemoveTree(const std::string& path) {
  struct stat st;
  if (lstat(path.c_str(), &st) != 0) return;
  if (S_ISDIR(st.st_mode)) {
    chmod(path.c_str(), 0700);
    if (DIR* dir = opendir(path.c_str())) {
      while (struct dirent* ent = readdir(dir)) {
        if (strcmp(ent->d_name, ".") == 0 || strcmp(ent->d_name, "..") == 0) continue;
        RemoveTree(path + "/" + ent->d_name);
      }
      closedir(dir);
    }
    rmdir(path.c_str());
  } else {
    unlink(path.c_str());
  }
}

}  // namespace

TempDir::TempDir() {
  char templ[] = "/tmp/columnlogs_test_XXXXXX";
  const char* made = mkdtemp(templ);
  m_path = made ? made : "/tmp";
}

TempDir::~TempDir() {
  if (m_path != "/tmp") RemoveTree(m_path);
}

std::string TempDir::file(const std::string& name) const { return m_path + "/" + name; }

std::string ReadFile(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  std::ostringstream ss;
  ss << in.rdbuf();
  return ss.str();
}

bool WriteFile(const std::string& path, const std::string& content) {
  std::ofstream out(path, std::ios::binary | std::ios::trunc);
  out << content;
  return static_cast<bool>(out);
}

bool AppendFile(const std::string& path, const std::string& content) {
  std::ofstream out(path, std::ios::binary | std::ios::app);
  out << content;
  return static_cast<bool>(out);
}

bool FileExists(const std::string& path) {
  struct stat st;
  return lstat(path.c_str(), &st) == 0;
}

std::vector<std::string> ListDir(const std::string& path) {
  std::vector<std::string> names;
  if (DIR* dir = opendir(path.c_str())) {
    while (struct dirent* ent = readdir(dir)) {
      if (strcmp(ent->d_name, ".") == 0 || strcmp(ent->d_name, "..") == 0) continue;
      names.emplace_back(ent->d_name);
    }
    closedir(dir);
  }
  std::sort(names.begin(), names.end());
  return names;
}

std::string Sep(const std::string& readable) {
  std::string out;
  for (size_t i = 0; i < readable.size();) {
    if (readable.compare(i, 3, "{~}") == 0) {
      out += "\x03\x1f\x7e";
      i += 3;
    } else if (readable.compare(i, 3, "{|}") == 0) {
      out += "\x03\x1f\x7c";
      i += 3;
    } else {
      out += readable[i++];
    }
  }
  return out;
}

std::string Readable(const std::string& bytes) {
  std::string out;
  for (size_t i = 0; i < bytes.size();) {
    if (bytes.compare(i, 3, "\x03\x1f\x7e") == 0) {
      out += "{~}";
      i += 3;
    } else if (bytes.compare(i, 3, "\x03\x1f\x7c") == 0) {
      out += "{|}";
      i += 3;
    } else {
      out += bytes[i++];
    }
  }
  return out;
}

bool PollFor(const std::function<bool()>& done, int timeout_ms) {
  const auto deadline = std::chrono::steady_clock::now() + std::chrono::milliseconds(timeout_ms);
  while (true) {
    if (done()) return true;
    if (std::chrono::steady_clock::now() >= deadline) return false;
    std::this_thread::sleep_for(std::chrono::milliseconds(20));
  }
}

AgentProcess::AgentProcess(const std::string& workdir, const std::vector<std::string>& args) {
  static int counter = 0;
  const std::string stem = workdir + "/.agent_" + std::to_string(getpid()) + "_" + std::to_string(counter++);
  m_errPath = stem + ".err";
  m_outPath = stem + ".out";
  std::vector<std::string> argv_store;
  argv_store.push_back(AgentBinary());
  argv_store.insert(argv_store.end(), args.begin(), args.end());
  m_pid = fork();
  if (m_pid == 0) {
    if (chdir(workdir.c_str()) != 0) _exit(127);
    int err = open(m_errPath.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
    int out = open(m_outPath.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
    if (err < 0 || out < 0) _exit(127);
    dup2(err, 2);
    dup2(out, 1);
    int devnull = open("/dev/null", O_RDONLY);
    if (devnull >= 0) dup2(devnull, 0);
    std::vector<char*> argv;
    for (auto& a : argv_store) argv.push_back(const_cast<char*>(a.c_str()));
    argv.push_back(nullptr);
    execv(argv[0], argv.data());
    _exit(127);
  }
}

AgentProcess::~AgentProcess() {
  Kill();
  unlink(m_errPath.c_str());
  unlink(m_outPath.c_str());
}

int AgentProcess::Wait(int timeout_ms) {
  if (m_pid <= 0) return -2;
  if (!m_reaped) {
    PollFor([&] {
      int status = 0;
      pid_t r = waitpid(m_pid, &status, WNOHANG);
      if (r == m_pid) {
        m_reaped = true;
        m_status = status;
        return true;
      }
      return false;
    }, timeout_ms);
  }
  if (!m_reaped) return -1;
  return WIFEXITED(m_status) ? WEXITSTATUS(m_status) : -2;
}

void AgentProcess::Kill() {
  if (m_pid > 0 && !m_reaped) {
    kill(m_pid, SIGKILL);
    int status = 0;
    waitpid(m_pid, &status, 0);
    m_reaped = true;
    m_status = status;
  }
}

std::string AgentProcess::Stderr() const { return ReadFile(m_errPath); }
std::string AgentProcess::Stdout() const { return ReadFile(m_outPath); }

std::string AgentBinary() { return COLUMNLOGS_BIN; }

std::string RealLogsDir() { return std::string(COLUMNLOGS_SOURCE_DIR) + "/tests/data/real-logs"; }

}  // namespace testsupport
