// The command runner utils/ETC/ShCmd, run as the logger runs it: from a
// working directory two levels below the installation's utils/.
#include <chrono>
#include <sys/wait.h>

#include "../LIB/OmniLogTestEnv.h"

using namespace testsupport;

namespace {

class ShCmd : public omnilogtest::LoggerLayout {
 protected:
  void SetUp() override {
    LoggerLayout::SetUp();
    InstallScript("ETC/ShCmd");
  }
  // Exit status of the runner; its standard error goes to m_err.
  int Run(const std::string& args) {
    const int raw = system(("../../utils/ETC/ShCmd " + args + " 2>../err.txt").c_str());
    m_err = ReadFile("../err.txt");
    return WIFEXITED(raw) ? WEXITSTATUS(raw) : -1;
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
      {"60 false x.log", 1, "ShCmd: [false x.log] ended with status 1\n"},
      {"", 2, usage},
      {"60 gzip", 2, usage},
      {"x gzip f", 2, "ShCmd: time limit [x] is not a number of seconds\n"},
      {"-1 gzip f", 2, "ShCmd: time limit [-1] is not a number of seconds\n"},
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

}  // namespace
