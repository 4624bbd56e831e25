// The recent-file script utils/INSTALL/recentlogfile.sh, run as the logger
// runs it, and its answer file ../aproc/shell/recentlogfile.dat.
#include <fcntl.h>
#include <sys/stat.h>
#include <sys/wait.h>

#include <string>
#include <vector>

#include "../LIB/OmniLogTestEnv.h"

using testsupport::ReadFile;

namespace {

const char kAnswer[] = "../aproc/shell/recentlogfile.dat";

class RecentLogFile : public omnilogtest::LoggerLayout {
 protected:
  void SetUp() override {
    LoggerLayout::SetUp();
    InstallScript("INSTALL/recentlogfile.sh");
  }
  int Lookup(const std::string& args) {
    const int raw = system(("../../utils/INSTALL/recentlogfile.sh " + args + " 2>../err.txt").c_str());
    return WIFEXITED(raw) ? WEXITSTATUS(raw) : -1;
  }
  // Creates a log file modified at 15 March 2024, `hour` o'clock.
  void LogAt(const std::string& dir, const std::string& name, int hour) {
    ASSERT_TRUE(testsupport::WriteFile(dir + name, "x\n"));
    const time_t when = omnilogtest::LocalTime(2024, 3, 15, hour);
    const struct timespec times[2] = {{when, 0}, {when, 0}};
    ASSERT_EQ(utimensat(AT_FDCWD, (dir + name).c_str(), times, 0), 0);
  }
};

TEST_F(RecentLogFile, NewestFileOfTheDateIsTheAnswer) {
  struct File { const char* name; int hour; };
  struct Case { const char* what; std::vector<File> files; const char* answer; } cases[] = {
      {"newest wins", {{"20240315_SER.log", 8}, {"20240315_SER_1.log", 9}, {"20240315_SER_2.log", 7}},
       "20240315_SER_1.log\n"},
      {"same time: higher number", {{"20240315_AG.log", 9}, {"20240315_AG_9.log", 9}, {"20240315_AG_10.log", 9}},
       "20240315_AG_10.log\n"},
      {"other dates and compressed files are no candidates",
       {{"20240315_SER.log", 8}, {"20240314_SER_5.log", 20}, {"20240315_SER_1.log.gz", 21},
        {"x20240315_SER_3.log", 23}},
       "20240315_SER.log\n"},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.what);
    const std::string dir = SubDir(c.what);
    for (const File& f : c.files) LogAt(dir, f.name, f.hour);
    EXPECT_EQ(Lookup("20240315 '" + dir + "'"), 0) << ReadFile("../err.txt");
    EXPECT_EQ(ReadFile(kAnswer), c.answer);
  }
}

// The log directory comes from the argument, else OMNILOG_LOG_PATH, else the
// working directory. No candidate or a bad date leaves an empty answer.
TEST_F(RecentLogFile, LogDirectoryAndEmptyAnswers) {
  LogAt(LogDir(), "20240315_ARG.log", 8);
  LogAt(SubDir("env"), "20240315_ENV.log", 8);
  LogAt("./", "20240315_CWD.log", 8);
  setenv("OMNILOG_LOG_PATH", (LogDir() + "env").c_str(), 1);  // without the trailing "/"
  EXPECT_EQ(Lookup("20240315 " + LogDir()), 0);
  EXPECT_EQ(ReadFile(kAnswer), "20240315_ARG.log\n");
  EXPECT_EQ(Lookup("20240315"), 0);
  EXPECT_EQ(ReadFile(kAnswer), "20240315_ENV.log\n");
  unsetenv("OMNILOG_LOG_PATH");
  EXPECT_EQ(Lookup("20240315"), 0);
  EXPECT_EQ(ReadFile(kAnswer), "20240315_CWD.log\n");
  for (const auto& [args, status] : std::vector<std::pair<const char*, int>>{{"20240316", 1}, {"2024031x", 2}, {"''", 2}}) {
    SCOPED_TRACE(args);
    ASSERT_EQ(Lookup("20240315 " + LogDir()), 0);  // an answer that is stale for the next lookup
    EXPECT_EQ(Lookup(std::string(args) + " " + LogDir()), status);
    EXPECT_EQ(ReadFile(kAnswer), "");
  }
}

}  // namespace
