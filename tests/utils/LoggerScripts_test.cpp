// The logger's scripts under utils/: the command runner ETC/ShCmd and the recent-file lookup.

#include "../LIB/OmniLogTestEnv.h"

class ShCmd : public LoggerLayout {
 protected:
  int Run(const std::string& args) {  // its standard error goes to m_err
    const int status = Shell("../../utils/ETC/ShCmd " + args + " 2>../err.txt");
    m_err = ReadFile("../err.txt");
    return status;
  }
  std::string m_err;
};

TEST_F(ShCmd, GzipReplacesEachFileButNeverAnExistingArchive) {
  const std::string gzip = access("/usr/bin/gzip", X_OK) == 0 ? "/usr/bin/gzip" : "/bin/gzip";
  if (access(gzip.c_str(), X_OK) != 0) GTEST_SKIP() << "no gzip";
  for (const char* name : {"20240315_SER.log", "20240315_SER 1.log", "a.log"}) WriteFile(LogFile(name), "new\n");
  WriteFile(LogFile("a.log.gz"), "older archive");
  EXPECT_EQ(Run("60 " + gzip + " " + LogFile("20240315_SER.log") + " '" + LogFile("20240315_SER 1.log") + "'"), 0)
      << m_err;
  EXPECT_NE(Run("60 " + gzip + " " + LogFile("a.log")), 0);
  EXPECT_EQ(ListDir(LogDir()), (std::vector<std::string>{"20240315_SER 1.log.gz", "20240315_SER.log.gz", "a.log",
                                                         "a.log.gz"}));
  EXPECT_EQ(ReadFile(LogFile("a.log.gz")), "older archive");
}

TEST_F(ShCmd, FailuresBadArgumentsAndTheTimeLimit) {
  const std::string usage = "usage: ShCmd SECONDS PROGRAM FILE...\n";
  struct Case { std::string args; int status; std::string err; } cases[] = {
      {"60 false x.log", 1, "ShCmd: [false x.log] ended with status 1\n"}, {"60 gzip", 2, usage},
      {"5s gzip f", 2, "ShCmd: time limit [5s] is not a number of seconds\n"},
  };
  for (const Case& c : cases) {
    EXPECT_EQ(Run(c.args), c.status) << c.args;
    EXPECT_EQ(m_err, c.err) << c.args;
  }
  if (system("command -v timeout >/dev/null 2>&1") != 0) GTEST_SKIP() << "no timeout(1)";
  const auto start = std::chrono::steady_clock::now();
  EXPECT_EQ(Run("1 sleep 30"), 124) << m_err;  // "sleep 30" limited to one second
  EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(20));
}

using RecentLogFile = LoggerLayout;

// The newest file of the date wins (the higher number at a tie) in the argument's, OMNILOG_LOG_PATH's or this directory.
TEST_F(RecentLogFile, NewestFileOfTheDateIsTheAnswer) {
  const auto Lookup = [](const std::string& args) {  // "status:answer" of one lookup
    const int status = Shell("../../utils/INSTALL/recentlogfile.sh " + args + " 2>/dev/null");
    return std::to_string(status) + ":" + ReadFile("../aproc/shell/recentlogfile.dat");
  };
  const auto LogAt = [](const std::string& path, int hour) {  // a log file modified at 15 March 2024, `hour` o'clock
    ASSERT_TRUE(WriteFile(path, "x\n"));
    const struct timespec times[2] = {{LocalTime(2024, 3, 15, hour), 0}, {LocalTime(2024, 3, 15, hour), 0}};
    ASSERT_EQ(utimensat(AT_FDCWD, path.c_str(), times, 0), 0);
  };
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
  EXPECT_EQ(Lookup("20240316 '" + dir + "'"), "1:");  // the earlier answer is gone
  EXPECT_EQ(Lookup("2024031x '" + dir + "'"), "2:");
  EXPECT_EQ(Lookup("'' '" + dir + "'"), "2:");
}
