// The install tree: `cmake --install` of this build into a temporary prefix
// gives a tree the agent runs from, with its relative paths resolving from
// its working directory, a configuration with the real separator bytes and a
// unit that starts the agent there.
#include <sys/stat.h>
#include <unistd.h>

#include <string>

#include <gtest/gtest.h>

#include "TestSupport.h"
#include "ToolRun.h"

#ifndef COLUMNTOOL_CMAKE_COMMAND
#define COLUMNTOOL_CMAKE_COMMAND "/usr/bin/cmake"
#endif

namespace {

using testsupport::AgentProcess;
using testsupport::FileExists;
using testsupport::PollFor;
using testsupport::ReadFile;
using testsupport::TempDir;
using testsupport::WriteFile;

bool IsExecutable(const std::string& path) { return access(path.c_str(), X_OK) == 0; }
bool IsDirectory(const std::string& path) {
  struct stat st;
  return stat(path.c_str(), &st) == 0 && S_ISDIR(st.st_mode);
}

class InstallTree : public ::testing::Test {
 protected:
  void SetUp() override {
    m_result = toolrun::Run({COLUMNTOOL_CMAKE_COMMAND, "--install", COLUMNLOGS_BINARY_DIR, "--prefix", Root()});
    ASSERT_EQ(m_result.status, 0) << m_result.out << m_result.err;
  }
  std::string Root() const { return m_prefix.path(); }
  std::string Path(const std::string& relative) const { return m_prefix.path() + "/" + relative; }
  std::string Work() const { return Path("agent/work"); }

  TempDir m_prefix;
  toolrun::Result m_result;
};

TEST_F(InstallTree, RelativePathsOfTheAgentResolveFromItsWorkingDirectory) {
  ASSERT_TRUE(IsDirectory(Work()));
  struct {
    const char* relative;
    bool executable;
  } const kFiles[] = {
      {"../../utils/ETC/ShCmd", true},
      {"../../utils/INSTALL/recentlogfile.sh", true},
      {"../../bin/ColumnLogs", true},
      {"../../bin/ColumnTool", true},
      {"../../etc/columnlogs.conf", false},
      {"../../share/columnlogs/examples/columnlogs.conf.readable", false},
      {"../../lib/systemd/system/columnlogs.service", false},
  };
  for (const auto& f : kFiles) {
    SCOPED_TRACE(f.relative);
    const std::string path = Work() + "/" + f.relative;
    EXPECT_TRUE(FileExists(path));
    EXPECT_EQ(IsExecutable(path), f.executable);
  }
  EXPECT_TRUE(IsDirectory(Work() + "/../aproc/shell"));
  for (const char* dir : {"var/log", "var/out", "var/logs"}) EXPECT_TRUE(IsDirectory(Path(dir))) << dir;

  // The recent-file script, run as the logger runs it, answers in ../aproc/shell/.
  ASSERT_TRUE(WriteFile(Path("var/log/20240315_SER_2.log"), "x\n"));
  const toolrun::Result answer =
      toolrun::Run({"/bin/sh", "-c", "../../utils/INSTALL/recentlogfile.sh 20240315 " + Path("var/log/")}, "", Work());
  EXPECT_EQ(answer.status, 0) << answer.err;
  EXPECT_EQ(ReadFile(Path("agent/aproc/shell/recentlogfile.dat")), "20240315_SER_2.log\n");
  // The command runner, run as the logger runs it, compresses in place.
  const toolrun::Result compress =
      toolrun::Run({"/bin/sh", "-c", "../../utils/ETC/ShCmd 60 gzip " + Path("var/log/20240315_SER_2.log")}, "", Work());
  EXPECT_EQ(compress.status, 0) << compress.err;
  EXPECT_TRUE(FileExists(Path("var/log/20240315_SER_2.log.gz")));
}

TEST_F(InstallTree, ConfigurationHoldsSeparatorBytesAndPathsOfTheTree) {
  const std::string conf = ReadFile(Path("etc/columnlogs.conf"));
  EXPECT_NE(conf.find("LOG_PATH=" + Root() + "/var/log/\n"), std::string::npos);
  EXPECT_NE(conf.find("OUTPUT_PATH=" + Root() + "/var/out/\n"), std::string::npos);
  EXPECT_NE(conf.find("LOG01_DELIMITOR=,\x03\x1f\x7eNULL\n"), std::string::npos);
  EXPECT_NE(conf.find("LOG02_PATTERN=1\x03\x1f\x7conStandStepChanged\x03\x1f\x7e"), std::string::npos);
  EXPECT_EQ(conf.find("@RUN@"), std::string::npos);
  // The readable notation is gone from every value (comments may name it).
  for (size_t at = conf.find('='); at != std::string::npos; at = conf.find('=', at + 1)) {
    const size_t line = conf.rfind('\n', at) + 1;
    if (conf[line] == '#') continue;
    const std::string value = conf.substr(at, conf.find('\n', at) - at);
    EXPECT_EQ(value.find("{~}"), std::string::npos) << value;
    EXPECT_EQ(value.find("{|}"), std::string::npos) << value;
  }

  // The companion tool loads it as the agent does: every entry loads.
  const toolrun::Result check = toolrun::Run({Path("bin/ColumnTool"), "check", Path("etc/columnlogs.conf")});
  EXPECT_EQ(check.status, 0) << check.out << check.err;
  EXPECT_NE(check.out.find("summary: 4 entries loaded, 0 skipped or rejected; 0 errors"), std::string::npos)
      << check.out;

  // Installing again keeps the operator's configuration.
  ASSERT_TRUE(WriteFile(Path("etc/columnlogs.conf"), conf + "# edited\n"));
  const toolrun::Result again =
      toolrun::Run({COLUMNTOOL_CMAKE_COMMAND, "--install", COLUMNLOGS_BINARY_DIR, "--prefix", Root()});
  EXPECT_EQ(again.status, 0);
  EXPECT_EQ(ReadFile(Path("etc/columnlogs.conf")), conf + "# edited\n");
}

TEST_F(InstallTree, UnitStartsTheAgentInItsWorkingDirectory) {
  const std::string unit = ReadFile(Path("lib/systemd/system/columnlogs.service"));
  EXPECT_NE(unit.find("\nWorkingDirectory=" + Work() + "\n"), std::string::npos) << unit;
  EXPECT_NE(unit.find("\nExecStart=" + Root() + "/bin/ColumnLogs " + Root() + "/etc/columnlogs.conf\n"),
            std::string::npos)
      << unit;
  EXPECT_NE(unit.find("\nRestart=always\n"), std::string::npos) << unit;

  // Started as the unit starts it, the installed agent runs there: heartbeat
  // in the working directory, diagnostic log and events in the tree.
  ASSERT_TRUE(WriteFile(Path("var/logs/demo.log"), ""));
  testsupport::AgentProcess agent(Work(), {Path("etc/columnlogs.conf")});
  EXPECT_TRUE(PollFor([&] { return FileExists(Work() + "/LoggerAlive"); }, 10000)) << agent.Stderr();
  ASSERT_TRUE(testsupport::AppendFile(Path("var/logs/demo.log"),
                                      "2024-03-15,10:11:12,host01,cpu=97%,mem=40%,1,OK,GET /\n"));
  EXPECT_TRUE(PollFor([&] {
    for (const auto& name : testsupport::ListDir(Path("var/out")))
      if (name.rfind("out_", 0) == 0) return true;
    return false;
  }, 10000));
  agent.Kill();
  bool log_file = false;
  for (const auto& name : testsupport::ListDir(Path("var/log"))) log_file = log_file || name.find("_SER.log") != std::string::npos;
  EXPECT_TRUE(log_file);
}

}  // namespace
