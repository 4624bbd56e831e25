// The logger tests' fake clock and installation: working directory <tmp>/root/work, scripts in <tmp>/utils/
// ("../../utils/..."), their answer in <tmp>/root/aproc/shell, logs in <tmp>/logs/.
#pragma once

#include <atomic>

#include "TestSupport.h"

namespace omnilogtest {

inline std::atomic<long long> g_llFakeNow{0};  // read by the writer thread too
inline time_t FakeClock() { return static_cast<time_t>(g_llFakeNow.load()); }

// Local time of the given calendar moment, whatever the time zone.
inline time_t LocalTime(int year, int month, int day, int hour, int minute = 0, int second = 0) {
  struct tm tmv = testsupport::CalendarTime(year, month, day, hour, minute, second);
  tmv.tm_isdst = -1;
  return mktime(&tmv);
}
inline void SetNow(int year, int month, int day, int hour, int minute, int second) {
  g_llFakeNow.store(static_cast<long long>(LocalTime(year, month, day, hour, minute, second)));
}

// Runs the test body inside the layout above, with the project's scripts, at 15 March 2024 14:30:05.
class LoggerLayout : public ::testing::Test {
 protected:
  void SetUp() override {
    m_oldCwd = std::filesystem::current_path();
    for (const char* dir : {"/utils", "/utils/ETC", "/utils/INSTALL", "/root", "/root/work", "/logs"})
      ASSERT_EQ(mkdir((m_tmp.path() + dir).c_str(), 0755), 0) << dir;
    ASSERT_EQ(chdir((m_tmp.path() + "/root/work").c_str()), 0);
    for (const char* script : {"ETC/ShCmd", "INSTALL/recentlogfile.sh"}) InstallScript(script);
    SetNow(2024, 3, 15, 14, 30, 5);
  }
  void TearDown() override {
    ASSERT_EQ(chdir(m_oldCwd.c_str()), 0);
    unsetenv("OMNILOG_LOG_PATH");
  }
  std::string LogDir() const { return m_tmp.path() + "/logs/"; }  // with the trailing "/"
  std::string LogFile(const std::string& name) const { return LogDir() + name; }
  std::string SubDir(const std::string& name) const {
    const std::string dir = LogDir() + name + "/";
    EXPECT_EQ(mkdir(dir.c_str(), 0755), 0) << dir;
    return dir;
  }
  // Installs a script under utils/: the project's own (text empty; SetUp installs them all) or a stand-in.
  void InstallScript(const std::string& relative, const std::string& text = "") {
    const std::string target = m_tmp.path() + "/utils/" + relative;
    const std::string source = std::string(COLUMNLOGS_SOURCE_DIR) + "/utils/" + relative;
    ASSERT_TRUE(testsupport::WriteFile(target, text.empty() ? testsupport::ReadFile(source) : text)) << target;
    ASSERT_EQ(chmod(target.c_str(), 0755), 0);
  }
  static int Shell(const std::string& command) {  // its exit status, run from the working directory
    const int raw = system(command.c_str());
    return WIFEXITED(raw) ? WEXITSTATUS(raw) : -1;
  }
  // A logger on the fake clock writing under `dir`; `thread` is the constructor's fourth argument (none if < 0).
  static std::unique_ptr<COmniLog> MakeLogger(const std::string& dir, int mode = 2, const std::string& name = "SER",
                                              int validDay = 7, int thread = -1) {
    auto log = thread < 0 ? std::make_unique<COmniLog>(mode, Text(name), validDay)
                          : std::make_unique<COmniLog>(mode, Text(name), validDay, thread);
    log->fSetClock(FakeClock);
    EXPECT_EQ(log->fSetLogPath(Text(dir)), 1);
    return log;
  }
  static void Write(COmniLog& log, const std::string& message, int grade = 3, const std::string& code = "LOG") {
    log.fLogWrite(grade, Text(code), Text(message));
  }

  testsupport::TempDir m_tmp;
  std::string m_oldCwd;
};

}  // namespace omnilogtest
using namespace omnilogtest;
