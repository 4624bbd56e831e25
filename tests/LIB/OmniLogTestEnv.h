// Shared by the logger tests: a fake clock, and a temporary installation
// laid out the way the logger expects it relative to its working directory:
//
//   <tmp>/utils/ETC/ShCmd, <tmp>/utils/INSTALL/recentlogfile.sh   ("../../utils/...")
//   <tmp>/root/work          the working directory during the test
//   <tmp>/root/aproc/shell   ("../aproc/shell/recentlogfile.dat")
//   <tmp>/logs/              the log path prefix
#pragma once

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <ctime>
#include <string>

#include <gtest/gtest.h>

#include "TestSupport.h"

namespace omnilogtest {

inline std::atomic<long long>& FakeNow() {
  static std::atomic<long long> s_llNow{0};
  return s_llNow;
}

// The logger's time source in tests: whatever FakeNow() holds.
inline time_t FakeClock() { return static_cast<time_t>(FakeNow().load()); }

// Local time of the given calendar moment, whatever the time zone.
inline time_t LocalTime(int year, int month, int day, int hour = 12, int minute = 0, int second = 0) {
  struct tm tmv = {};
  tmv.tm_year = year - 1900;
  tmv.tm_mon = month - 1;
  tmv.tm_mday = day;
  tmv.tm_hour = hour;
  tmv.tm_min = minute;
  tmv.tm_sec = second;
  tmv.tm_isdst = -1;
  return mktime(&tmv);
}

inline void SetNow(int year, int month, int day, int hour = 12, int minute = 0, int second = 0) {
  FakeNow().store(static_cast<long long>(LocalTime(year, month, day, hour, minute, second)));
}

// Runs the test body inside the layout above and goes back to the previous
// working directory afterwards.
class LoggerLayout : public ::testing::Test {
 protected:
  void SetUp() override {
    char cwd[4096];
    ASSERT_NE(getcwd(cwd, sizeof(cwd)), nullptr);
    m_oldCwd = cwd;
    for (const char* dir : {"/utils", "/utils/ETC", "/utils/INSTALL", "/root", "/root/work", "/logs"}) {
      ASSERT_EQ(mkdir((m_tmp.path() + dir).c_str(), 0755), 0) << dir;
    }
    ASSERT_EQ(chdir((m_tmp.path() + "/root/work").c_str()), 0);
    SetNow(2024, 3, 15, 14, 30, 5);
  }
  void TearDown() override {
    ASSERT_EQ(chdir(m_oldCwd.c_str()), 0);
    unsetenv("OMNILOG_LOG_PATH");
  }

  // Prefix of the log files, with its trailing "/".
  std::string LogDir() const { return m_tmp.path() + "/logs/"; }
  std::string LogFile(const std::string& name) const { return LogDir() + name; }
  std::string Root() const { return m_tmp.path(); }

  // Installs a script of the project's utils/ directory into the layout.
  void InstallProjectScript(const std::string& relative) {
    const std::string source = std::string(COLUMNLOGS_SOURCE_DIR) + "/utils/" + relative;
    const std::string target = m_tmp.path() + "/utils/" + relative;
    ASSERT_TRUE(testsupport::WriteFile(target, testsupport::ReadFile(source))) << source;
    ASSERT_EQ(chmod(target.c_str(), 0755), 0);
  }
  // Installs a script with the given text under utils/.
  void InstallScript(const std::string& relative, const std::string& text) {
    const std::string target = m_tmp.path() + "/utils/" + relative;
    ASSERT_TRUE(testsupport::WriteFile(target, text));
    ASSERT_EQ(chmod(target.c_str(), 0755), 0);
  }

  testsupport::TempDir m_tmp;
  std::string m_oldCwd;
};

// Sets a file's modification time (seconds since the epoch).
inline void SetMtime(const std::string& path, time_t when) {
  struct timespec times[2];
  times[0].tv_sec = when;
  times[0].tv_nsec = 0;
  times[1] = times[0];
  utimensat(AT_FDCWD, path.c_str(), times, 0);
}

}  // namespace omnilogtest
