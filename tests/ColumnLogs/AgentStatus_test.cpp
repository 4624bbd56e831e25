// The status file's text: label values that stay valid whatever a file name holds, and a file a real parser of the
// text exposition format accepts.
#include <sys/stat.h>

#include "AgentStatus.h"
#include "ColumnLogger.h"
#include "TestSupport.h"

TEST(AgentStatus, LabelValuesEscapeTheFormatsBytesAndReplaceInvalidUtf8) {
  const struct { std::string in, out; } cases[] = {
      {"/var/log/app.log", "/var/log/app.log"},
      {"a\"b\\c\nd", "a\\\"b\\\\c\\nd"},
      {"caf\xc3\xa9 \xe2\x82\xac \xf0\x9f\x93\x9c", "caf\xc3\xa9 \xe2\x82\xac \xf0\x9f\x93\x9c"},  // kept whole
      {"x\xff\xc3(\xe2\x82\xed\xa0\x80", "x\xef\xbf\xbd\xef\xbf\xbd(\xef\xbf\xbd\xef\xbf\xbd\xef\xbf\xbd\xef\xbf\xbd\xef\xbf\xbd"},
      {"\xc0\xaf", "\xef\xbf\xbd\xef\xbf\xbd"},  // an overlong "/"
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.in);
    EXPECT_EQ(fgPromLabelValue(c.in), c.out);
  }
}

// Rendered for a registry whose names hold the awkward bytes, the file must parse, every sample with its help and type.
TEST(AgentStatus, ARealParserAcceptsTheFile) {
  AgentDir dir;
  const std::string odd = dir.Path("logs/we\"ird\\ name \xff.log");
  ASSERT_TRUE(WriteFile(odd, "a,b,95\n"));
  std::string config = GlobalLines(dir.Dir(), "NOLOG") + EntryLines(CpuRule(1, odd)) +
                       EntryLines(CpuRule(2, dir.Path("logs/missing.log")));
  ASSERT_TRUE(WriteFile(dir.Path("agent.conf"), config));
  CColumnLogger logger;
  ASSERT_EQ(logger.fSetConfManager(Text(dir.Path("agent.conf"))), 1);
  ASSERT_EQ(logger.fLoadConfInfo(), 1);
  CAgentStatus status(dir.Path("agent.prom").c_str(), time(nullptr));
  ASSERT_EQ(status.fWrite(logger, time(nullptr)), 1);
  const std::string text = ReadFile(dir.Path("agent.prom"));
  EXPECT_NE(text.find("file=\"" + dir.Path("logs/we\\\"ird\\\\ name \xef\xbf\xbd.log") + "\"} 7\n"), std::string::npos)
      << text;  // the size of the odd file, under its escaped name
  EXPECT_EQ(FileMode(dir.Path("agent.prom")) & 0777, 0644u);  // readable by the monitoring system's user

  if (RunProgram({"/usr/bin/python3", "-c", "import prometheus_client.parser"}).status != 0)
    GTEST_SKIP() << "python3-prometheus-client is not installed (apt-get install python3-prometheus-client): "
                    "the file was not checked against a real parser of the format";
  const RunResult parsed = RunProgram(
      {"/usr/bin/python3", "-c",
       "import sys\nfrom prometheus_client.parser import text_string_to_metric_families as parse\n"
       "families = list(parse(open(sys.argv[1], encoding='utf-8').read()))\n"
       "print(len(families), sum(len(f.samples) for f in families), all(f.documentation for f in families))",
       dir.Path("agent.prom")});
  ASSERT_EQ(parsed.status, 0) << parsed.err << text;
  EXPECT_EQ(parsed.out, std::to_string(Count(text, "# TYPE ")) + " " +
                            std::to_string(Count(text, "\n") - 2 * Count(text, "# TYPE ")) + " True\n");
}

// A quiet agent renews the file's time every write, and writes it whole again after a minute or after a change.
TEST(AgentStatus, UnchangedFiguresRenewTheTimeAndAreWrittenAgainAfterAMinute) {
  AgentDir dir;
  const std::string log = dir.AppLog("a,b,95\n"), path = dir.Path("agent.prom");
  ASSERT_TRUE(WriteFile(dir.Path("agent.conf"), GlobalLines(dir.Dir(), "NOLOG") + EntryLines(CpuRule(1, log))));
  CColumnLogger logger;
  ASSERT_EQ(logger.fSetConfManager(Text(dir.Path("agent.conf"))), 1);
  ASSERT_EQ(logger.fLoadConfInfo(), 1);
  const time_t t0 = time(nullptr);
  CAgentStatus status(path.c_str(), t0);
  const auto writeAt = [&](time_t when) {  // the text written, and whether the file's time was renewed
    const struct timespec old[2] = {{1000, 0}, {1000, 0}};
    utimensat(AT_FDCWD, path.c_str(), old, 0);
    EXPECT_EQ(status.fWrite(logger, when), 1);
    struct stat st;
    return std::make_pair(ReadFile(path), stat(path.c_str(), &st) == 0 && st.st_mtime > 1000);
  };
  const auto first = writeAt(t0);
  const auto quiet = writeAt(t0 + 10);
  EXPECT_EQ(quiet.first, first.first);
  EXPECT_TRUE(quiet.second);
  const auto minute = writeAt(t0 + 70);
  EXPECT_NE(minute.first.find("columnlogs_status_time_seconds " + std::to_string(t0 + 70) + "\n"), std::string::npos);
  ASSERT_TRUE(AppendFile(log, "c,d,96\n"));
  EXPECT_NE(writeAt(t0 + 80).first.find("columnlogs_status_time_seconds " + std::to_string(t0 + 80) + "\n"),
            std::string::npos);
}
