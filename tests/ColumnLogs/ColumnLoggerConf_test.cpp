// Loading whole configuration files, written with the real separator bytes,
// into the watch and rule registries.
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "AgentConfig.h"
#include "ColumnLogger.h"
#include "OmniLog.h"
#include "TestSupport.h"

namespace {

using testsupport::ReadFile;
using testsupport::Sep;
using testsupport::TempDir;
using testsupport::WatchEntry;
using testsupport::WriteFile;

// A gatherer loaded from a configuration text, with a DEBUG logger writing
// into the temporary directory so that the loader's records can be read.
class Loaded {
 public:
  explicit Loaded(const std::string& config, bool withLogger = false) {
    WriteFile(m_dir.file("agent.conf"), config);
    if (withLogger) {
      char name[] = "SER";
      g_pclOmniLog = new COmniLog(1, name, 7);
      std::string path = m_dir.path() + "/";
      g_pclOmniLog->fSetLogPath(&path[0]);
    }
    std::string conf = m_dir.file("agent.conf");
    m_logger.fSetConfManager(&conf[0]);
    testing::internal::CaptureStderr();
    m_result = m_logger.fLoadConfInfo();
    m_err = testing::internal::GetCapturedStderr();
  }
  ~Loaded() {
    delete g_pclOmniLog;
    g_pclOmniLog = nullptr;
  }
  std::string Records() const {
    std::string all;
    for (const auto& name : testsupport::ListDir(m_dir.path()))
      if (name.find("_SER") != std::string::npos) all += ReadFile(m_dir.file(name));
    return all;
  }
  CColumnLogger m_logger;
  int m_result = 0;
  std::string m_err;

 private:
  TempDir m_dir;
};

std::string Globals() { return "OUTPUT_PATH=/tmp/out/\nLINE_WAIT_CNT=12\n"; }

WatchEntry Entry(int index) {
  WatchEntry e;
  e.index = index;
  e.name = "/var/log/app" + std::to_string(index) + ".log";
  return e;
}

std::vector<int> NumberRuleColumns(CColumnLogger& logger) {
  std::vector<int> columns;
  for (auto* rule = logger.m_pclNumPatternList->fGetHeadNode(); rule != nullptr; rule = rule->m_pstNext)
    columns.push_back(rule->m_nIndex * 100 + rule->m_nComumnNum);
  return columns;
}

TEST(ColumnLoggerConf, GlobalKeysAreStored) {
  Loaded loaded(Globals());
  EXPECT_EQ(loaded.m_result, 1);
  EXPECT_STREQ(loaded.m_logger.m_strOutPutPath, "/tmp/out/");
  EXPECT_EQ(loaded.m_logger.m_nLineWaitTime, 12);
  EXPECT_EQ(loaded.m_logger.m_pclLogFileList->fGetLogFileCount(), 0);
}

TEST(ColumnLoggerConf, MissingOrOversizedGlobalKeyRefusesToStart) {
  struct Case {
    std::string config;
    std::string err;
  };
  const Case cases[] = {
      {"LINE_WAIT_CNT=1\n", "OUTPUT_PATH is NULL\n"},
      {"OUTPUT_PATH=/x/\n", "LINE_WAIT_CNT is NULL\n"},
      {"OUTPUT_PATH=/x/\nLINE_WAIT_CNT=" + std::string(64, '1') + "\n",
       "LINE_WAIT_CNT is too long (64 characters, at most 63)\n"},
  };
  for (const Case& c : cases) {
    Loaded loaded(c.config + testsupport::EntryLines(Entry(1)));
    EXPECT_EQ(loaded.m_result, 0);
    EXPECT_EQ(loaded.m_err, c.err);
    EXPECT_EQ(loaded.m_logger.m_pclLogFileList->fGetLogFileCount(), 0);
  }
}

TEST(ColumnLoggerConf, EntriesAreLoadedInNumberOrderAndIncompleteOnesSkipped) {
  std::string config = Globals();
  for (int index : {5, 2, 20}) config += testsupport::EntryLines(Entry(index));
  // Entry 3 lacks only its date rules: skipped whole, without a message.
  std::string three = testsupport::EntryLines(Entry(3));
  three.erase(three.find("LOG03_DATE_PATTERN"), std::string("LOG03_DATE_PATTERN=NULL\n").size());
  config += three;
  Loaded loaded(config);
  auto* list = loaded.m_logger.m_pclLogFileList;
  ASSERT_EQ(list->fGetLogFileCount(), 2);
  EXPECT_STREQ(list->fGetLogFile(1), "/var/log/app2.log");
  EXPECT_STREQ(list->fGetLogFile(2), "/var/log/app5.log");
  EXPECT_EQ(loaded.m_err, "");
}

TEST(ColumnLoggerConf, TypesAndCreateTypeLowByte) {
  WatchEntry e = Entry(1);
  e.type = 1;
  e.checkType = 256;
  WatchEntry f = Entry(2);
  f.checkType = 7;
  Loaded loaded(Globals() + testsupport::EntryLines(e) + testsupport::EntryLines(f));
  auto* one = loaded.m_logger.m_pclLogFileList->fGetNode(1);
  auto* two = loaded.m_logger.m_pclLogFileList->fGetNode(2);
  ASSERT_NE(one, nullptr);
  ASSERT_NE(two, nullptr);
  EXPECT_EQ(one->m_nLogType, 1);
  EXPECT_EQ(one->m_chCreateType, 0);
  EXPECT_EQ(two->m_chCreateType, 7);
}

TEST(ColumnLoggerConf, LineRateThresholdsAreProcessWideAndLastEntryWins) {
  WatchEntry a = Entry(1);
  a.secLog = "3{~}50";
  WatchEntry b = Entry(2);
  b.secLog = "4{~}100";
  WatchEntry c = Entry(3);  // NULL: does not follow b, since it passes registration last
  Loaded loaded(Globals() + testsupport::EntryLines(a) + testsupport::EntryLines(b));
  EXPECT_EQ(std::vector<int>(m_nCntFaultArray, m_nCntFaultArray + 5), (std::vector<int>{-1, -1, -1, -1, 100}));
  auto* list = loaded.m_logger.m_pclLogFileList;
  EXPECT_EQ(list->fGetNode(1)->m_nSecLogCntFaultLevel, 3);
  EXPECT_EQ(list->fGetNode(1)->m_nSecLogCount, 50);
  EXPECT_EQ(list->fGetNode(2)->m_nSecLogCntFaultLevel, 4);
  EXPECT_EQ(list->fGetNode(2)->m_nSecLogCount, 100);

  Loaded withNull(Globals() + testsupport::EntryLines(b) + testsupport::EntryLines(c));
  EXPECT_EQ(std::vector<int>(m_nCntFaultArray, m_nCntFaultArray + 5), (std::vector<int>{-1, -1, -1, -1, -1}));
  EXPECT_EQ(withNull.m_logger.m_pclLogFileList->fGetNode(3)->m_nSecLogCntFaultLevel, 0);
  EXPECT_EQ(withNull.m_logger.m_pclLogFileList->fGetNode(3)->m_nSecLogCount, 0);
}

TEST(ColumnLoggerConf, NumericRulesParseKindsAndKeepRegistryOrder) {
  WatchEntry a = Entry(1);
  a.number = "4{~}2{~}90.5{~}1{~}cpu={~}%{|}7{~}3{~}90{~}6{~}NULL{~}NULL{|}";
  WatchEntry b = Entry(2);
  b.number = "1{~}1{~}-5{~}3{~}{~}";
  Loaded loaded(Globals() + testsupport::EntryLines(a) + testsupport::EntryLines(b));
  // Newest rule of an entry first, entries in ascending order; the trailing {|} adds nothing.
  EXPECT_EQ(NumberRuleColumns(loaded.m_logger), (std::vector<int>{107, 104, 201}));
  auto* list = loaded.m_logger.m_pclNumPatternList;
  auto* decimal = list->fGetHeadNode()->m_pstNext;
  EXPECT_EQ(decimal->m_nFaultDecide, 2);
  EXPECT_EQ(decimal->m_nFaultValue, 90);
  EXPECT_FLOAT_EQ(decimal->m_fFaultValue, 90.5f);
  EXPECT_STREQ(decimal->m_strExt1, "cpu=");
  EXPECT_STREQ(decimal->m_strExt2, "%");
  auto* integer = list->fGetHeadNode();
  EXPECT_EQ(integer->m_nFaultDecide, 1);
  EXPECT_EQ(integer->m_nCompareNum, 6);
  EXPECT_STREQ(integer->m_strExt1, "NULL");
  EXPECT_EQ(list->fGetEndNode()->m_nFaultValue, -5);
}

TEST(ColumnLoggerConf, TextAndDateRulesAndPatternRules) {
  WatchEntry a = Entry(3);
  a.text = "3{~}4{~}FAIL{~}1{|}5{~}2{~}^err|warn${~}3";
  a.date = "1{~}YYYY-MM-DD{|}2{~}hh:mm:ss";
  a.pattern = "1{|}ERROR{~}2{|}WARN";
  Loaded loaded(Globals() + testsupport::EntryLines(a));
  auto* text = loaded.m_logger.m_pclCharPatternList->fGetHeadNode();
  ASSERT_NE(text, nullptr);
  EXPECT_EQ(text->m_nCompareNum, 3);
  EXPECT_STREQ(text->m_strFaultPattern, "^err|warn$");
  EXPECT_NE(text->m_vpclStrPattern[0], nullptr);
  EXPECT_EQ(text->m_pstNext->m_vpclStrPattern[0], nullptr) << "code 1 compiles nothing";
  auto* date = loaded.m_logger.m_pclDatePatternList->fGetHeadNode();
  EXPECT_STREQ(date->m_strDatePattern, "hh:mm:ss");
  EXPECT_STREQ(date->m_pstNext->m_strDatePattern, "YYYY-MM-DD");
  auto* log = loaded.m_logger.m_pclLogFileList->fGetNode(3);
  EXPECT_STREQ(log->m_vstrLogPattern[0], "ERROR");
  EXPECT_EQ(log->m_vnFaultGrade[1], 2);
  EXPECT_EQ(std::string(log->m_strDelimitor), Sep(",{~}NULL"));
}

TEST(ColumnLoggerConf, MalformedEntriesAreRefusedWholeWithTheKeyNamed) {
  struct Case {
    const char* name;
    void (*change)(WatchEntry&);
    const char* err;
  };
  const Case cases[] = {
      {"short numeric entry", [](WatchEntry& e) { e.number = "4{~}2{~}90{~}1"; },
       "LOG01_NUMBER_PATTERN rejected: entry 1 has 4 field(s), 6 needed\n"},
      {"short second text entry", [](WatchEntry& e) { e.text = "1{~}1{~}A{~}1{|}2{~}1{~}B"; },
       "LOG01_CHAR_PATTERN rejected: entry 2 has 3 field(s), 4 needed\n"},
      {"date entry without layout", [](WatchEntry& e) { e.date = "2"; },
       "LOG01_DATE_PATTERN rejected: entry 1 has 1 field(s), 2 needed\n"},
      {"fault level 5", [](WatchEntry& e) { e.secLog = "1{~}10{|}5{~}3"; },
       "LOG01_SECLOG_LEVEL_CNT rejected: entry 2 has fault level 5, outside 0 to 4\n"},
      {"negative fault level", [](WatchEntry& e) { e.secLog = "-1{~}3"; },
       "LOG01_SECLOG_LEVEL_CNT rejected: entry 1 has fault level -1, outside 0 to 4\n"},
      {"text before the value too long",
       [](WatchEntry& e) { e.number = "1{~}1{~}5{~}1{~}" + std::string(64, 'x') + "{~}"; },
       "LOG01_NUMBER_PATTERN rejected: entry 1 field 5 longer than 63 characters\n"},
      {"delimiter value too long", [](WatchEntry& e) { e.delimitor = std::string(32, ','); },
       "LOG01_DELIMITOR rejected: value of 32 characters, at most 31\n"},
      {"threshold value too long", [](WatchEntry& e) { e.secLog = "1{~}" + std::string(124, '1'); },
       "LOG01_SECLOG_LEVEL_CNT rejected: value of 128 characters, at most 127\n"},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    WatchEntry bad = Entry(1);
    bad.number = "3{~}1{~}9{~}1{~}{~}";
    c.change(bad);
    Loaded loaded(Globals() + testsupport::EntryLines(bad) + testsupport::EntryLines(Entry(2)), true);
    EXPECT_EQ(loaded.m_result, 1);
    EXPECT_EQ(loaded.m_err, c.err);
    EXPECT_EQ(loaded.m_logger.m_pclLogFileList->fGetNode(1), nullptr);
    EXPECT_NE(loaded.m_logger.m_pclLogFileList->fGetNode(2), nullptr) << "other entries still load";
    EXPECT_EQ(loaded.m_logger.m_pclNumPatternList->fGetNode(1), nullptr) << "nothing half-applied";
    std::string record = c.err;
    record.pop_back();
    EXPECT_NE(loaded.Records().find("[LOG]" + record + "\n"), std::string::npos);
  }
}

TEST(ColumnLoggerConf, DiagnosticRecordsNameEveryRule) {
  WatchEntry a = Entry(1);
  a.secLog = "3{~}50{|}4{~}100";
  a.number = "4{~}2{~}90{~}1{~}={~}%";
  a.text = "3{~}4{~}FAIL{~}1";
  a.date = "1{~}hh:mm:ss";
  WatchEntry b = Entry(2);
  Loaded loaded(Globals() + testsupport::EntryLines(a) + testsupport::EntryLines(b), true);
  const std::string records = loaded.Records();
  const std::vector<std::string> expected = {
      "fLoadConfInfo start",
      "Cnt FaultLevel[3][50]",
      "Cnt FaultLevel[4][100]",
      "Delimitor[" + Sep(",{~}NULL") + "]",
      "NumPattern [1][4][2][90][1][=][%]",
      "CharPattern [1][3][4][1][FAIL]",
      "DatePattern [1][1][hh:mm:ss]",
      "NumPattern -> NULL",
      "CharPattern -> NULL",
      "DatePattern -> NULL",
      "fLoadConfInfo end",
  };
  size_t at = 0;
  for (const auto& message : expected) {
    SCOPED_TRACE(message);
    const size_t found = records.find("[INFO][LOG]" + message + "\n", at);
    ASSERT_NE(found, std::string::npos) << records;
    at = found;
  }
}

TEST(ColumnLoggerConf, ConsoleTraceNamesEachEntry) {
  WatchEntry a = Entry(4);
  a.pattern = "1{|}ERROR";
  g_nPrint = 1;
  Loaded loaded(Globals() + testsupport::EntryLines(a));
  g_nPrint = 0;
  EXPECT_EQ(loaded.m_err,
            "Index:4, LogFileName:/var/log/app4.log, CreateType:1, LogType:2, LogFaultPattern:" + Sep("1{|}ERROR") +
                ", Start-Pattern:NULL, End-Pattern:NULL, All-Pattern-Check:0, SkipTime:0, SkipPattern:NULL, "
                "Exec:NULL, SaveFormat:NULL, SaveFile:NULL\nadd log pattern success!!\n");
}

TEST(ColumnLoggerConf, PatternCheckLimit) {
  CColumnLogger logger;
  char msg[2048] = "junk";
  std::string ok(2047, 'p');
  std::string tooLong(2048, 'p');
  EXPECT_EQ(logger.fPatternCheck(&ok[0], msg), 0);
  EXPECT_STREQ(msg, "");
  EXPECT_EQ(logger.fPatternCheck(&tooLong[0], msg), -1);
  EXPECT_EQ(logger.fPatternCheck(nullptr, msg), -1);
}

}  // namespace
