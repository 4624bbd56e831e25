// The recent-file script utils/INSTALL/recentlogfile.sh, run as the logger
// runs it, and its answer file ../aproc/shell/recentlogfile.dat.
#include <fcntl.h>
#include <sys/wait.h>

#include "../LIB/OmniLogTestEnv.h"

using testsupport::ReadFile;

namespace {

class RecentLogFile : public omnilogtest::LoggerLayout {
 protected:
  void SetUp() override {
    LoggerLayout::SetUp();
    InstallScript("INSTALL/recentlogfile.sh");
  }
  // The exit status and the answer of one lookup.
  std::string Lookup(const std::string& args) {
    const int raw = system(("../../utils/INSTALL/recentlogfile.sh " + args + " 2>/dev/null").c_str());
    return std::to_string(WIFEXITED(raw) ? WEXITSTATUS(raw) : -1) + ":" + ReadFile("../aproc/shell/recentlogfile.dat");
  }
  // A log file modified at 15 March 2024, `hour` o'clock.
  void LogAt(const std::string& path, int hour) {
    ASSERT_TRUE(testsupport::WriteFile(path, "x\n"));
    const time_t when = omnilogtest::LocalTime(2024, 3, 15, hour);
    const struct timespec times[2] = {{when, 0}, {when, 0}};
    ASSERT_EQ(utimensat(AT_FDCWD, path.c_str(), times, 0), 0);
  }
};

// The newest file of the date wins, the higher number at the same time;
// other dates, compressed files and other prefixes are no candidates. The
// directory comes from the argument, else OMNILOG_LOG_PATH, else the working
// directory. No candidate or a bad date leaves an empty answer.
TEST_F(RecentLogFile, NewestFileOfTheDateIsTheAnswer) {
  const std::string dir = SubDir("a b"), env = SubDir("env");
  for (const auto& [name, hour] : std::vector<std::pair<std::string, int>>{
           {"20240315_SER.log", 8}, {"20240315_SER_9.log", 9}, {"20240315_SER_10.log", 9}, {"20240315_SER_2.log", 7},
           {"20240314_SER_5.log", 20}, {"20240315_SER_1.log.gz", 21}, {"x20240315_SER_3.log", 23}})
    LogAt(dir + name, hour);
  LogAt(env + "20240315_ENV.log", 8);
  LogAt("./20240315_CWD.log", 8);
  EXPECT_EQ(Lookup("20240315 '" + dir + "'"), "0:20240315_SER_10.log\n");
  setenv("OMNILOG_LOG_PATH", (LogDir() + "env").c_str(), 1);  // without the trailing "/"
  EXPECT_EQ(Lookup("20240315"), "0:20240315_ENV.log\n");
  unsetenv("OMNILOG_LOG_PATH");
  EXPECT_EQ(Lookup("20240315"), "0:20240315_CWD.log\n");
  EXPECT_EQ(Lookup("20240316 '" + dir + "'"), "1:");
  EXPECT_EQ(Lookup("20240315"), "0:20240315_CWD.log\n");
  EXPECT_EQ(Lookup("2024031x '" + dir + "'"), "2:");
  EXPECT_EQ(Lookup("'' '" + dir + "'"), "2:");
}

}  // namespace
