// `cmake --install` into a temporary prefix gives a tree the agent runs from, its configuration holding its paths.

#include "TestSupport.h"

TEST(InstallTree, TheAgentRunsFromItsWorkingDirectoryWithTheInstalledConfiguration) {
  TempDir prefix;
  const std::string root = prefix.path(), work = root + "/agent/work";
  const std::vector<std::string> install = {COLUMNTOOL_CMAKE_COMMAND, "--install", COLUMNLOGS_BINARY_DIR, "--prefix",
                                            root};
  const RunResult installed = RunProgram(install);
  ASSERT_EQ(installed.status, 0) << installed.out << installed.err;
  const std::string conf = ReadFile(root + "/etc/columnlogs.conf");
  EXPECT_NE(conf.find("LOG_PATH=" + root + "/var/log/\n"), std::string::npos);
  EXPECT_NE(conf.find("OUTPUT_PATH=" + root + "/var/out/\n"), std::string::npos);
  const RunResult check = Tool({"check", root + "/etc/columnlogs.conf"});  // the example as shipped: clean
  EXPECT_NE(check.out.find("summary: 4 entries loaded, 0 skipped or rejected; 0 errors, 0 warnings"), std::string::npos)
      << check.out;
  // Installing again keeps the operator's configuration.
  ASSERT_TRUE(WriteFile(root + "/etc/columnlogs.conf", conf + "# edited\n"));
  EXPECT_EQ(RunProgram(install).status, 0);
  EXPECT_EQ(ReadFile(root + "/etc/columnlogs.conf"), conf + "# edited\n");

  // The logger's compression runner, run as it runs it from the working directory.
  ASSERT_TRUE(WriteFile(root + "/var/log/20240315_SER_2.log", "x\n"));
  const std::string gzip = "../../utils/ETC/ShCmd 60 gzip " + root + "/var/log/20240315_SER_2.log";
  EXPECT_EQ(RunProgram({"/bin/sh", "-c", gzip}, "", work).status, 0);
  EXPECT_TRUE(FileExists(root + "/var/log/20240315_SER_2.log.gz"));

  // Started as the unit starts it: heartbeat here, diagnostic log and events in the tree.
  ASSERT_TRUE(WriteFile(root + "/var/logs/demo.log", ""));
  AgentProcess agent(work, {root + "/etc/columnlogs.conf"});
  EXPECT_TRUE(PollFor([&] { return FileExists(work + "/LoggerAlive"); }, 10000)) << agent.Stderr();
  ASSERT_TRUE(AppendFile(root + "/var/logs/demo.log", "2024-03-15,10:11:12,host01,cpu=97%,mem=40%,1,OK,GET /\n"));
  EXPECT_TRUE(PollFor([&] { return !ReadAll(root + "/var/out", "out_").empty(); }, 10000));
  EXPECT_NE(ReadAll(root + "/var/log", "2").find("LogGather end"), std::string::npos);
}
