// The command runner utils/ETC/ShCmd, run as the logger runs it: from a
// working directory two levels below the installation's utils/.
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "../LIB/OmniLogTestEnv.h"
#include "TestSupport.h"

using testsupport::FileExists;
using testsupport::ListDir;
using testsupport::ReadFile;
using testsupport::WriteFile;

namespace {

struct RunResult {
  int status;
  std::string err;
};

std::string Gzip() { return access("/usr/bin/gzip", X_OK) == 0 ? "/usr/bin/gzip" : "/bin/gzip"; }

std::string Gunzip(const std::string& path) {
  std::string out;
  FILE* pipe = popen(("gzip -dc '" + path + "'").c_str(), "r");
  if (pipe == nullptr) return out;
  char buf[4096];
  size_t n;
  while ((n = fread(buf, 1, sizeof(buf), pipe)) > 0) out.append(buf, n);
  pclose(pipe);
  return out;
}

class ShCmd : public omnilogtest::LoggerLayout {
 protected:
  void SetUp() override {
    LoggerLayout::SetUp();
    InstallProjectScript("ETC/ShCmd");
  }
  RunResult Runner(const std::string& args) {
    const int raw = system(("../../utils/ETC/ShCmd " + args + " 2>../err.txt").c_str());
    return {WIFEXITED(raw) ? WEXITSTATUS(raw) : -1, ReadFile("../err.txt")};
  }
};

TEST_F(ShCmd, GzipReplacesEachFileByItsCompressedForm) {
  if (access(Gzip().c_str(), X_OK) != 0) GTEST_SKIP() << "no gzip";
  ASSERT_TRUE(WriteFile(LogFile("20240315_SER.log"), "[143005][INFO][LOG]one\n"));
  ASSERT_TRUE(WriteFile(LogFile("20240315_SER 1.log"), "blank in the name\n"));
  const RunResult run = Runner("60 " + Gzip() + " " + LogFile("20240315_SER.log") + " '" + LogFile("20240315_SER 1.log") + "'");
  EXPECT_EQ(run.status, 0) << run.err;
  EXPECT_EQ(ListDir(LogDir()), (std::vector<std::string>{"20240315_SER 1.log.gz", "20240315_SER.log.gz"}));
  EXPECT_EQ(Gunzip(LogFile("20240315_SER.log.gz")), "[143005][INFO][LOG]one\n");
  EXPECT_EQ(Gunzip(LogFile("20240315_SER 1.log.gz")), "blank in the name\n");
}

TEST_F(ShCmd, AnExistingCompressedFileIsNotOverwritten) {
  if (access(Gzip().c_str(), X_OK) != 0) GTEST_SKIP() << "no gzip";
  ASSERT_TRUE(WriteFile(LogFile("a.log"), "new\n"));
  ASSERT_TRUE(WriteFile(LogFile("a.log.gz"), "older archive"));
  const RunResult run = Runner("60 " + Gzip() + " " + LogFile("a.log"));
  EXPECT_NE(run.status, 0);
  EXPECT_EQ(ReadFile(LogFile("a.log")), "new\n");
  EXPECT_EQ(ReadFile(LogFile("a.log.gz")), "older archive");
}

TEST_F(ShCmd, FailuresAreReportedWithTheirStatus) {
  const RunResult run = Runner("60 false " + LogFile("x.log"));
  EXPECT_EQ(run.status, 1);
  EXPECT_EQ(run.err, "ShCmd: [false " + LogFile("x.log") + "] ended with status 1\n");
}

TEST_F(ShCmd, BadArgumentsGiveUsageErrors) {
  struct Case {
    const char* args;
    const char* err;
  } cases[] = {
      {"", "usage: ShCmd SECONDS PROGRAM FILE...\n"},
      {"60", "usage: ShCmd SECONDS PROGRAM FILE...\n"},
      {"60 gzip", "usage: ShCmd SECONDS PROGRAM FILE...\n"},
      {"x gzip f", "ShCmd: time limit [x] is not a number of seconds\n"},
      {"-1 gzip f", "ShCmd: time limit [-1] is not a number of seconds\n"},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.args);
    const RunResult run = Runner(c.args);
    EXPECT_EQ(run.status, 2);
    EXPECT_EQ(run.err, c.err);
  }
}

TEST_F(ShCmd, TheTimeLimitEndsAHangingProgram) {
  if (system("command -v timeout >/dev/null 2>&1") != 0) GTEST_SKIP() << "no timeout(1)";
  const auto start = std::chrono::steady_clock::now();
  const RunResult run = Runner("1 sleep 30");  // "sleep 30" limited to one second
  const auto seconds = std::chrono::duration_cast<std::chrono::seconds>(std::chrono::steady_clock::now() - start);
  EXPECT_EQ(run.status, 124) << run.err;
  EXPECT_LT(seconds.count(), 20);
}

}  // namespace
