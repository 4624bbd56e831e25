// ColumnTool check: good and broken configurations, the exit status and the
// reason it prints for each.
#include <sys/stat.h>

#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "AgentConfig.h"
#include "TestSupport.h"
#include "ToolRun.h"

namespace {

using testsupport::TempDir;
using testsupport::WatchEntry;
using testsupport::WriteFile;

// A directory with log/ and out/, and a configuration written into it.
class CheckDir {
 public:
  CheckDir() {
    mkdir(m_dir.file("log").c_str(), 0755);
    mkdir(m_dir.file("out").c_str(), 0755);
    WriteFile(m_dir.file("app.log"), "a,FAIL,95\n");
  }
  std::string Path(const std::string& name) const { return m_dir.file(name); }
  std::string Dir() const { return m_dir.path(); }
  toolrun::Result Check(const std::string& config) {
    WriteFile(m_dir.file("agent.conf"), config);
    return toolrun::Tool({"check", m_dir.file("agent.conf")});
  }

 private:
  TempDir m_dir;
};

WatchEntry GoodEntry(const std::string& dir) {
  WatchEntry e;
  e.index = 1;
  e.name = dir + "/app.log";
  e.number = "3{~}2{~}90{~}1{~}{~}";
  e.text = "2{~}3{~}FAIL{~}1";
  e.date = "1{~}hh:mm:ss";
  e.pattern = "1{|}FAIL{~}NULL";
  return e;
}

// Removes the line that starts with `key=` from a configuration text.
std::string WithoutKey(const std::string& config, const std::string& key) {
  const size_t at = config.find(key + "=");
  if (at == std::string::npos) return config;
  return config.substr(0, at) + config.substr(config.find('\n', at) + 1);
}

struct CheckCase {
  const char* name;
  // Builds the configuration from the directory and the good entry.
  std::string (*config)(const std::string& dir);
  int status;
  std::vector<std::string> expected;  // texts the report must hold
};

std::string Good(const std::string& dir) {
  return testsupport::GlobalLines(dir) + testsupport::EntryLines(GoodEntry(dir));
}

const CheckCase kCases[] = {
    {"good configuration", Good, 0,
     {"LOG01 loaded", "reads now   ", "/app.log  (exists, 10 bytes)", "delimiter   \",{~}NULL\"  (columns end at ',')",
      "line pattern 1 (grade 1): \"FAIL\"", "line pattern 2: NULL  (every line passes)",
      "number rule column 3, level 2: event when value > 90 (whole numbers); value is the whole column",
      "text rule column 2, level 3: event when the column is \"FAIL\"",
      "date rule   column 1: layout \"hh:mm:ss\", seconds at characters 7-8", "LOG02 not configured",
      "LOG19 not configured", "summary: 1 entry loaded, 0 skipped or rejected; 0 errors, 0 warnings"}},
    {"entry without its date rule key",
     [](const std::string& dir) { return WithoutKey(Good(dir), "LOG01_DATE_PATTERN"); }, 1,
     {"LOG01 skipped: LOG01_DATE_PATTERN missing", "0 entries loaded, 1 skipped or rejected"}},
    {"numeric rule with five fields",
     [](const std::string& dir) {
       WatchEntry e = GoodEntry(dir);
       e.number = "3{~}2{~}90{~}1{~}";
       return testsupport::GlobalLines(dir) + testsupport::EntryLines(e);
     },
     1, {"LOG01 rejected: LOG01_NUMBER_PATTERN rejected: entry 1 has 5 field(s), 6 needed"}},
    {"line-rate level outside 0 to 4",
     [](const std::string& dir) {
       WatchEntry e = GoodEntry(dir);
       e.secLog = "7{~}50";
       return testsupport::GlobalLines(dir) + testsupport::EntryLines(e);
     },
     1, {"LOG01 rejected: LOG01_SECLOG_LEVEL_CNT rejected: entry 1 has fault level 7, outside 0 to 4"}},
    {"line pattern that does not compile",
     [](const std::string& dir) {
       WatchEntry e = GoodEntry(dir);
       e.pattern = "NULL{~}(ERROR";
       return testsupport::GlobalLines(dir) + testsupport::EntryLines(e);
     },
     1, {"LOG01 loaded", "line pattern 2: \"(ERROR\"", "error: line pattern 2 did not compile", "1 error,"}},
    {"text rule pattern that does not compile",
     [](const std::string& dir) {
       WatchEntry e = GoodEntry(dir);
       e.text = "2{~}3{~}(FA{~}3";
       return testsupport::GlobalLines(dir) + testsupport::EntryLines(e);
     },
     1, {"event when the column matches the pattern \"(FA\"", "error: the pattern of this text rule did not compile"}},
    {"name with an invalid date token",
     [](const std::string& dir) {
       WatchEntry e = GoodEntry(dir);
       e.name = dir + "/app_[YYYY-MM-DD].log";
       return testsupport::GlobalLines(dir) + testsupport::EntryLines(e);
     },
     1, {"LOG01 loaded", "error: the name has an invalid date token"}},
    {"wildcard name resolves to the newest match",
     [](const std::string& dir) {
       WatchEntry e = GoodEntry(dir);
       e.name = dir + "/app[YYYY].log";
       e.checkType = 0;
       return testsupport::GlobalLines(dir) + testsupport::EntryLines(e);
     },
     0, {"the name changes every year", "reads now   nothing: no readable file matches", "/app????.log"}},
    {"OUTPUT_PATH without its final slash",
     [](const std::string& dir) {
       std::string c = Good(dir);
       return c.replace(c.find("/out/"), 5, "/out");
     },
     0, {"warning: OUTPUT_PATH does not end with \"/\"", "/outing_..., beside the directory", "0 errors, 1 warning"}},
    {"OUTPUT_PATH with characters the shell interprets",
     [](const std::string& dir) {
       std::string c = Good(dir);
       return c.replace(c.find("/out/"), 5, "/out $HOME;/");
     },
     1, {"error: OUTPUT_PATH holds characters the shell would interpret : ", "the agent ends at start-up"}},
    {"OUTPUT_PATH missing", [](const std::string& dir) { return WithoutKey(Good(dir), "OUTPUT_PATH"); }, 1,
     {"error: OUTPUT_PATH is NULL: the agent ends at start-up", "entries not loaded"}},
    {"LOG_PATH missing", [](const std::string& dir) { return WithoutKey(Good(dir), "LOG_PATH"); }, 1,
     {"error: LOG_PATH is missing: the agent ends at start-up with status 0"}},
    {"values left in readable notation",
     [](const std::string& dir) {
       return testsupport::GlobalLines(dir) + "LOG01_NAME=" + dir + "/app.log\nLOG01_TYPE=2\nLOG01_CHECK_TYPE=1\n" +
              "LOG01_SECLOG_LEVEL_CNT=NULL\nLOG01_DELIMITOR=,{~}NULL\nLOG01_NUMBER_PATTERN=3{~}2{~}90{~}1{~}{~}\n" +
              "LOG01_CHAR_PATTERN=NULL\nLOG01_DATE_PATTERN=NULL\nLOG01_PATTERN=NULL\n";
     },
     1, {"LOG01 rejected: LOG01_NUMBER_PATTERN rejected: entry 1 has 1 field(s), 6 needed",
         "warning: value of LOG01_DELIMITOR holds the readable notation"}},
    {"entry numbers beyond 19 and unknown keys",
     [](const std::string& dir) {
       WatchEntry e = GoodEntry(dir);
       e.index = 20;
       return Good(dir) + testsupport::EntryLines(e) + "OUTPUTPATH=/tmp/\n";
     },
     0, {"warning: key \"LOG20_NAME\" is never read: entries run from LOG01 to LOG19",
         "warning: key \"OUTPUTPATH\" is not one the agent reads"}},
    {"line-rate thresholds of an earlier entry are not in force",
     [](const std::string& dir) {
       WatchEntry first = GoodEntry(dir);
       first.secLog = "3{~}50";
       WatchEntry second = GoodEntry(dir);
       second.index = 2;
       second.secLog = "4{~}100";
       return testsupport::GlobalLines(dir) + testsupport::EntryLines(first) + testsupport::EntryLines(second);
     },
     0, {"line rate (all evaluated lines of all entries together): level 4 at 100 lines in one second  (from "
         "LOG02_SECLOG_LEVEL_CNT, the last loaded entry)",
         "warning: LOG01_SECLOG_LEVEL_CNT is not in force"}},
};

TEST(ColumnToolCheck, ReportsStatusAndReasonPerConfiguration) {
  for (const CheckCase& c : kCases) {
    SCOPED_TRACE(c.name);
    CheckDir dir;
    const toolrun::Result r = dir.Check(c.config(dir.Dir()));
    EXPECT_EQ(r.status, c.status) << r.out << r.err;
    for (const std::string& text : c.expected) {
      EXPECT_NE(r.out.find(text), std::string::npos) << "missing: " << text << "\n" << r.out;
    }
  }
}

TEST(ColumnToolCheck, MissingConfigurationIsAUsageError) {
  TempDir dir;
  const toolrun::Result r = toolrun::Tool({"check", dir.file("none.conf")});
  EXPECT_EQ(r.status, 2);
  EXPECT_NE(r.err.find("cannot read"), std::string::npos) << r.err;
  EXPECT_EQ(toolrun::Tool({"check"}).status, 2);
}

TEST(ColumnToolCheck, LoadedEntryShowsTheDatedFileItReadsNow) {
  CheckDir dir;
  WatchEntry e = GoodEntry(dir.Dir());
  e.name = dir.Dir() + "/app_[YYYY][MM][DD].log";
  char today[16];
  const time_t now = time(nullptr);
  struct tm tm_now;
  localtime_r(&now, &tm_now);
  strftime(today, sizeof(today), "%Y%m%d", &tm_now);
  const toolrun::Result r = dir.Check(testsupport::GlobalLines(dir.Dir()) + testsupport::EntryLines(e));
  EXPECT_EQ(r.status, 0) << r.out;
  EXPECT_NE(r.out.find("the name changes every day"), std::string::npos) << r.out;
  EXPECT_NE(r.out.find("/app_" + std::string(today) + ".log  (does not exist yet"), std::string::npos) << r.out;
}

}  // namespace
