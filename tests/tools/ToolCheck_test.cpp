// ColumnTool check: good and broken configurations, the exit status and the reason it prints for each.
#include "TestSupport.h"

void Rename(WatchEntry& e, const std::string& name) { e.name = e.name.substr(0, e.name.rfind('/') + 1) + name; }
void WithoutKey(std::string& config, const std::string& key) {
  const size_t at = config.find(key + "=");
  config.erase(at, config.find('\n', at) + 1 - at);
}

TEST(ColumnToolCheck, ReportsStatusAndReasonPerConfiguration) {
  const WatchEntry second{2, "/tmp/second.log", ",{~}NULL", "NULL", "NULL", "NULL", "NULL", "4{~}100"};
  // Each case changes the good entry, or the whole text, and names texts the report must hold.
  using Entry = std::function<void(WatchEntry&)>;
  using Text = std::function<void(std::string&)>;
  // status: of `check`; start: of `check --start` (fails only when the agent ends at start-up or watches nothing).
  const struct { const char* name; Entry entry; Text config; int status, start; std::vector<std::string> texts; } cases[] = {
      {"good configuration", nullptr, nullptr, 0, 0,
       {"LOG01 loaded", "reads now   ", "/app.log  (exists, 10 bytes)",
        "delimiter   \",{~}NULL\"  (columns end at ',')", "line pattern 1 (grade 1): \"FAIL\"",
        "line pattern 2: NULL  (every line passes)",
        "number rule column 3, level 2: event when value > 90 (whole numbers); value is the whole column",
        "text rule column 2, level 3: event when the column is \"FAIL\"",
        "date rule   column 1: layout \"hh:mm:ss\", seconds at characters 7-8", "LOG02 not configured",
        "LOG19 not configured", "summary: 1 entry loaded, 0 skipped or rejected; 0 errors, 0 warnings"}},
      {"entry without its date rule key", nullptr, [](std::string& c) { WithoutKey(c, "LOG01_DATE_PATTERN"); }, 1, 1,
       {"LOG01 skipped: LOG01_DATE_PATTERN missing", "0 entries loaded, 1 skipped or rejected"}},
      {"line pattern that does not compile", [](WatchEntry& e) { e.pattern = "NULL{~}(ERROR"; }, nullptr, 1, 0,
       {"LOG01 loaded", "line pattern 2: \"(ERROR\"", "error: line pattern 2 did not compile", "1 error,"}},
      {"text rule pattern that does not compile", [](WatchEntry& e) { e.text = "2{~}3{~}(FA{~}3"; }, nullptr, 1, 0,
       {"event when the column matches the pattern \"(FA\"", "error: the pattern of this text rule did not compile"}},
      {"name with an invalid date token", [](WatchEntry& e) { Rename(e, "app_[YYYY-MM-DD].log"); }, nullptr, 1, 0,
       {"LOG01 loaded", "error: the name has an invalid date token"}},
      {"wildcard name resolves to the newest match", [](WatchEntry& e) { Rename(e, "app[YYYY].log"), e.checkType = 0; },
       nullptr, 0, 0,
       {"the name changes every year", "reads now   nothing: no readable file matches", "/app????.log"}},
      {"dated name shows the file it reads now", [](WatchEntry& e) { Rename(e, "app_[YYYY][MM][DD].log"); }, nullptr,
       0, 0, {"the name changes every day", "/app_" + TimeText("%Y%m%d") + ".log  (does not exist yet"}},
      {"OUTPUT_PATH without its final slash", nullptr, [](std::string& c) { c.replace(c.find("/out/"), 5, "/out"); },
       0, 0, {"warning: OUTPUT_PATH does not end with \"/\"", "/outing_..., beside the directory", "0 errors, 1 warning"}},
      {"OUTPUT_PATH with characters the shell interprets", nullptr,
       [](std::string& c) { c.replace(c.find("/out/"), 5, "/out $HOME;/"); }, 1, 0,  // a directory that does not exist
       {"warning: OUTPUT_PATH holds characters that the shell interprets in the unquoted hand-off command",
        "the command is not run"}},
      {"OUTPUT_PATH missing", nullptr, [](std::string& c) { WithoutKey(c, "OUTPUT_PATH"); }, 1, 1,
       {"error: OUTPUT_PATH is NULL: the agent ends at start-up", "entries not loaded"}},
      {"collector destinations", nullptr, [](std::string& c) { c += "COLLECT_TO=syslog:tcp:[::1]:6514\n"; }, 0, 0,
       {"COLLECT_TO    \"syslog:tcp:[::1]:6514\"", "0 errors, 0 warnings"}},
      {"collector destination that is none", nullptr, [](std::string& c) { c += "COLLECT_TO=syslog:tcp:host\n"; }, 1, 0,
       {"error: COLLECT_TO is not a destination: expected HOST:PORT"}},
      {"LOG_PATH missing", nullptr, [](std::string& c) { WithoutKey(c, "LOG_PATH"); }, 1, 1,
       {"error: LOG_PATH is missing: the agent ends at start-up with status 0"}},
      {"values left in readable notation", [](WatchEntry& e) { e.pattern = e.text = e.date = "NULL"; },
       [](std::string& c) { c = Readable(c); }, 1, 1,
       {"LOG01 rejected: LOG01_NUMBER_PATTERN rejected: entry 1 has 1 field(s), 6 needed",
        "warning: value of LOG01_DELIMITOR holds the readable notation",
        "hint: LOG01_DELIMITOR holds \"{~}\", \"{|}\" or a plain \"~\": write the separators with ColumnTool encode"}},
      {"entry typed with a plain tilde", [](WatchEntry& e) { e.number = "3~2~90~1~~"; }, nullptr, 1, 1,
       {"LOG01_NUMBER_PATTERN rejected: entry 1 has 1 field(s), 6 needed", "hint: LOG01_NUMBER_PATTERN holds"}},
      {"output directory missing", nullptr, [](std::string& c) { c.replace(c.find("/out/"), 5, "/gone/"); }, 1, 0,
       {"error: directory \"", "/gone/\" of OUTPUT_PATH does not exist or is not writable"}},
      {"status file in a directory that does not exist, deferral misspelt", nullptr,
       [](std::string& c) { c += "STATUS_FILE=/nonexistent/columnlogs.prom\nDEFER_EVENTS=yes\nPOSITION_FILE=/tmp/\nFOLLOW_ROTATION=1\n"; },
       0, 0,
       {"warning: DEFER_EVENTS is not \"1\": deferral stays off", "FOLLOW_ROTATION \"1\"  (a log's file is held",
        "STATUS_FILE   \"/nonexistent/columnlogs.prom\"", "warning: POSITION_FILE names a directory",
        "warning: directory \"/nonexistent\" of STATUS_FILE does not exist or is not writable"}},
      {"entry numbers beyond 19 and unknown keys", nullptr,
       [](std::string& c) { c += "LOG20_NAME=/tmp/x.log\nOUTPUTPATH=/tmp/\n"; }, 0, 0,
       {"warning: key \"LOG20_NAME\" is never read: entries run from LOG01 to LOG19",
        "warning: key \"OUTPUTPATH\" is not one the agent reads"}},
      {"line-rate thresholds of an earlier entry are not in force", [](WatchEntry& e) { e.secLog = "3{~}50"; },
       [&](std::string& c) { c += EntryLines(second); }, 0, 0,
       {"line rate (all evaluated lines of all entries together): level 4 at 100 lines in one second  (from "
        "LOG02_SECLOG_LEVEL_CNT, the last loaded entry)",
        "warning: LOG01_SECLOG_LEVEL_CNT is not in force",
        "warning: line-rate thresholds are in force but LOG02 has no date column: the lines of entries without date "
        "columns all count as one second (time key 0)"}},
  };
  AgentDir dir;  // the configuration is written anew for each case
  const std::string app = dir.AppLog("a,FAIL,95\n");
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    WatchEntry e{1, app, ",{~}NULL", "3{~}2{~}90{~}1{~}{~}", "2{~}3{~}FAIL{~}1", "1{~}hh:mm:ss",
                 "1{|}FAIL{~}NULL"};
    if (c.entry) c.entry(e);
    std::string config = GlobalLines(dir.Dir()) + EntryLines(e);
    if (c.config) c.config(config);
    ASSERT_TRUE(WriteFile(dir.Path("agent.conf"), config));
    const RunResult r = Tool({"check", dir.Path("agent.conf")});
    EXPECT_EQ(r.status, c.status) << r.out << r.err;
    const RunResult start = Tool({"check", "--start", dir.Path("agent.conf")});
    EXPECT_EQ(start.status, c.start) << start.out << start.err;
    for (const std::string& text : c.texts)
      for (const RunResult* run : {&r, &start}) EXPECT_NE(run->out.find(text), std::string::npos) << text << "\n" << run->out;
  }
  const RunResult missing = Tool({"check", "/nonexistent/none.conf"});
  EXPECT_EQ(missing.status, 2);
  EXPECT_NE(missing.err.find("cannot read"), std::string::npos) << missing.err;
  EXPECT_EQ(Tool({"check"}).status, 2);
}
