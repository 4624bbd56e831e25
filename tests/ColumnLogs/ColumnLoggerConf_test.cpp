// Whole configuration files, with the real separator bytes, loaded into the watch and rule registries.
#include "ColumnLogger.h"
#include "TestSupport.h"

#include <cstdlib>
#include <new>

// Allocations fail on demand: while g_failSize is set, the allocation of that many bytes after g_failSkip others of
// the same size fails. Every form of new and delete is replaced, so that allocation and release always match.
#pragma GCC diagnostic ignored "-Wmismatched-new-delete"  // the replaced delete frees what the replaced new took
size_t g_failSize = 0;
int g_failSkip = 0;
void* Allocate(size_t size) {
  if (g_failSize != 0 && size == g_failSize && g_failSkip-- == 0) return g_failSize = 0, nullptr;
  return malloc(size == 0 ? 1 : size);
}
void* operator new(size_t size) {
  if (void* p = Allocate(size)) return p;
  throw std::bad_alloc();
}
void* operator new[](size_t size) { return operator new(size); }
void* operator new(size_t size, const std::nothrow_t&) noexcept { return Allocate(size); }
void* operator new[](size_t size, const std::nothrow_t&) noexcept { return Allocate(size); }
void operator delete(void* p) noexcept { free(p); }
void operator delete[](void* p) noexcept { free(p); }
void operator delete(void* p, size_t) noexcept { free(p); }
void operator delete[](void* p, size_t) noexcept { free(p); }
void operator delete(void* p, const std::nothrow_t&) noexcept { free(p); }
void operator delete[](void* p, const std::nothrow_t&) noexcept { free(p); }

// A gatherer loaded from a configuration text, with a DEBUG logger (whose records can be read) when asked.
struct Loaded {
  explicit Loaded(const std::string& config, bool withLogger = false, int print = 0) {
    EXPECT_TRUE(WriteFile(m_dir.file("agent.conf"), "OUTPUT_PATH=/tmp/out/\nLINE_WAIT_CNT=12\n" + config));
    std::string path = m_dir.path() + "/", conf = m_dir.file("agent.conf");
    if (withLogger) (g_pclOmniLog = new COmniLog(1, const_cast<char*>("SER"), 7))->fSetLogPath(&path[0]);
    m_logger.fSetConfManager(&conf[0]);
    m_err = StderrOf([&] { m_result = m_logger.fLoadConfInfo(); }, print);
  }
  ~Loaded() { delete g_pclOmniLog; g_pclOmniLog = nullptr; }
  std::string Records() const { return ReadAll(m_dir.path(), "2"); }  // YYYYMMDD_SER.log
  ST_LOGFILE_INFO* Log(int index) { return m_logger.m_pclLogFileList->fGetNode(index); }

  TempDir m_dir;
  CColumnLogger m_logger;
  int m_result = 0;
  std::string m_err;
};

WatchEntry Entry(int index) { return {index, "/var/log/app" + std::to_string(index) + ".log"}; }

// Entries load in number order; one lacking a key is skipped silently, from 20 on none is read; check type: low byte.
TEST(ColumnLoggerConf, EntriesLoadInNumberOrderAndIncompleteOnesAreSkipped) {
  std::string config;
  for (int index : {5, 2, 20}) config += EntryLines(Entry(index));
  std::string three = EntryLines(Entry(3));
  three.erase(three.find("LOG03_DATE_PATTERN"), std::string("LOG03_DATE_PATTERN=NULL\n").size());
  WatchEntry six = Entry(6);
  six.type = 1, six.checkType = 256;
  Loaded loaded(config + three + EntryLines(six));
  auto* list = loaded.m_logger.m_pclLogFileList;
  ASSERT_EQ(list->fGetLogFileCount(), 3);
  EXPECT_STREQ(list->fGetLogFile(1), "/var/log/app2.log");
  EXPECT_STREQ(list->fGetLogFile(2), "/var/log/app5.log");
  EXPECT_EQ(loaded.Log(6)->m_nLogType * 10 + loaded.Log(6)->m_chCreateType, 10);
  EXPECT_EQ(loaded.Log(5)->m_chCreateType, 1);
  EXPECT_EQ(loaded.m_err, "");
}

// The thresholds are process-wide: each registered entry resets them, so the last wins, even without any (NULL).
TEST(ColumnLoggerConf, LineRateThresholdsAreProcessWideAndLastEntryWins) {
  WatchEntry a = Entry(1), b = Entry(2), c = Entry(3);
  a.secLog = "3{~}50";
  b.secLog = "4{~}100";
  Loaded loaded(EntryLines(a) + EntryLines(b));
  EXPECT_EQ(std::vector<int>(m_nCntFaultArray, m_nCntFaultArray + 5), (std::vector<int>{-1, -1, -1, -1, 100}));
  EXPECT_EQ(loaded.Log(1)->m_nSecLogCntFaultLevel * 1000 + loaded.Log(1)->m_nSecLogCount, 3050);
  EXPECT_EQ(loaded.Log(2)->m_nSecLogCntFaultLevel * 1000 + loaded.Log(2)->m_nSecLogCount, 4100);
  Loaded withNull(EntryLines(b) + EntryLines(c));
  EXPECT_EQ(std::vector<int>(m_nCntFaultArray, m_nCntFaultArray + 5), (std::vector<int>{-1, -1, -1, -1, -1}));
  EXPECT_EQ(withNull.Log(3)->m_nSecLogCntFaultLevel + withNull.Log(3)->m_nSecLogCount, 0);
}

// A bad value refuses its entry whole, on standard error and in a record; the other entries still load.
TEST(ColumnLoggerConf, MalformedEntriesAreRefusedWholeWithTheKeyNamed) {
  using E = WatchEntry;
  const struct { std::string E::*key; std::string value, err; } cases[] = {
      {&E::number, "4{~}2{~}90{~}1", "NUMBER_PATTERN rejected: entry 1 has 4 field(s), 6 needed"},
      {&E::text, "1{~}1{~}A{~}1{|}2{~}1{~}B", "CHAR_PATTERN rejected: entry 2 has 3 field(s), 4 needed"},
      {&E::date, "2", "DATE_PATTERN rejected: entry 1 has 1 field(s), 2 needed"},
      {&E::secLog, "1{~}10{|}5{~}3", "SECLOG_LEVEL_CNT rejected: entry 2 has fault level 5, outside 0 to 4"},
      {&E::secLog, "-1{~}3", "SECLOG_LEVEL_CNT rejected: entry 1 has fault level -1, outside 0 to 4"},
      {&E::number, "1{~}1{~}5{~}1{~}" + std::string(64, 'x') + "{~}",
       "NUMBER_PATTERN rejected: entry 1 field 5 longer than 63 characters"},
      {&E::delimitor, std::string(32, ','), "DELIMITOR rejected: value of 32 characters, at most 31"},
      {&E::secLog, "1{~}" + std::string(124, '1'), "SECLOG_LEVEL_CNT rejected: value of 128 characters, at most 127"},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.err);
    WatchEntry bad = Entry(1);
    bad.number = "3{~}1{~}9{~}1{~}{~}";
    bad.*c.key = c.value;
    Loaded loaded(EntryLines(bad) + EntryLines(Entry(2)), true);
    EXPECT_EQ(loaded.m_result, 1);
    EXPECT_EQ(loaded.m_err, "LOG01_" + c.err + "\n");
    EXPECT_EQ(loaded.Log(1), nullptr);
    EXPECT_NE(loaded.Log(2), nullptr) << "other entries still load";
    EXPECT_EQ(loaded.m_logger.m_pclNumPatternList->fGetNode(1), nullptr) << "nothing half-applied";
    EXPECT_NE(loaded.Records().find("[LOG]LOG01_" + c.err + "\n"), std::string::npos);
  }
}

// A value handed to fAddLogInfo directly (no loader bound) past 511 characters is refused whole, not cut.
TEST(ColumnLoggerConf, OverlongRuleValueIsRefusedWhole) {
  CColumnLogger logger;
  std::string name = "/tmp/app.log", null = "NULL", delimitor = Sep(",{~}NULL"), date;
  for (int i = 0; i < 40; ++i) date += Sep("1{~}hh:mm:ss{|}");
  date += "2";
  ASSERT_GT(date.size(), 512u);
  const std::string err = StderrOf([&] {
    EXPECT_EQ(logger.fAddLogInfo(1, &name[0], 1, 2, &null[0], &null[0], &null[0], 0, 0, &null[0], &null[0], &null[0],
                                 &null[0], &null[0], &delimitor[0], &null[0], &null[0], &date[0]),
              -1);
  });
  EXPECT_NE(err.find("LOG01_DATE_PATTERN rejected: value of"), std::string::npos) << err;
  EXPECT_EQ(logger.m_pclLogFileList->fGetNode(1), nullptr);
}

// Every rule is recorded and registered, an entry's newest first; the console trace names each entry.
TEST(ColumnLoggerConf, RulesAreRecordedAndRegisteredInOrder) {
  const WatchEntry a{1, Entry(1).name, ",{~}NULL", "4{~}2{~}90.5{~}1{~}={~}%{|}7{~}3{~}90{~}6{~}NULL{~}NULL{|}",
                     "3{~}4{~}FAIL{~}1{|}5{~}2{~}^err|warn${~}3", "1{~}YYYY-MM-DD{|}2{~}hh:mm:ss", "1{|}ERROR{~}2{|}WARN",
                     "3{~}50{|}4{~}100"};
  Loaded loaded(EntryLines(a) + EntryLines(Entry(2)), true, 1);
  const std::string records = loaded.Records();
  size_t at = 0;
  for (const std::string message :
       {"fLoadConfInfo start", "Cnt FaultLevel[3][50]", "Cnt FaultLevel[4][100]", "Delimitor[,\x03\x1f\x7eNULL]",
        "NumPattern [1][4][2][90][1][=][%]", "NumPattern [1][7][3][90][6][NULL][NULL]", "CharPattern [1][3][4][1][FAIL]",
        "CharPattern [1][5][2][3][^err|warn$]", "DatePattern [1][1][YYYY-MM-DD]", "DatePattern [1][2][hh:mm:ss]",
        "NumPattern -> NULL", "CharPattern -> NULL", "DatePattern -> NULL", "fLoadConfInfo end"}) {
    SCOPED_TRACE(message);
    at = records.find("[INFO][LOG]" + message + "\n", at);
    ASSERT_NE(at, std::string::npos) << records;
  }
  auto* number = loaded.m_logger.m_pclNumPatternList->fGetHeadNode();
  ASSERT_TRUE(number != nullptr && number->m_pstNext != nullptr && number->m_pstNext->m_pstNext == nullptr);
  EXPECT_EQ(number->m_nComumnNum * 10 + number->m_nFaultDecide, 71);
  EXPECT_EQ(number->m_pstNext->m_nFaultDecide, 2);
  EXPECT_FLOAT_EQ(number->m_pstNext->m_fFaultValue, 90.5f);
  auto* text = loaded.m_logger.m_pclCharPatternList->fGetHeadNode();
  EXPECT_TRUE(text->m_nComumnNum == 5 && text->m_vpclStrPattern[0] != nullptr);
  EXPECT_EQ(text->m_pstNext->m_vpclStrPattern[0], nullptr) << "code 1 compiles nothing";
  EXPECT_STREQ(loaded.m_logger.m_pclDatePatternList->fGetHeadNode()->m_strDatePattern, "hh:mm:ss");
  EXPECT_EQ(std::string(loaded.Log(1)->m_vstrLogPattern[1]) + std::to_string(loaded.Log(1)->m_vnFaultGrade[1]), "WARN2");
  EXPECT_NE(loaded.m_err.find("Index:1, LogFileName:/var/log/app1.log, CreateType:1, LogType:2, LogFaultPattern:" +
                              Sep(a.pattern) +
                              ", Start-Pattern:NULL, End-Pattern:NULL, All-Pattern-Check:0, SkipTime:0, "
                              "SkipPattern:NULL, Exec:NULL, SaveFormat:NULL, SaveFile:NULL\n"),
            std::string::npos)
      << loaded.m_err;
  EXPECT_EQ(Count(loaded.m_err, "\nadd log pattern success!!\n"), 2u);
}

// A rule that cannot be stored (memory exhausted) refuses its entry whole: the watched log and the rules registered
// before it are removed again, the key is named; the other entries stay.
TEST(ColumnLoggerConf, RuleThatCannotBeStoredRollsTheEntryBack) {
  const struct { size_t size; int skip; const char* err; } cases[] = {
      {sizeof(ST_NUM_PATTERN_LIST), 1, "LOG02_NUMBER_PATTERN rejected: rule not registered (memory exhausted)\n"},
      {sizeof(ST_DATE_PATTERN_LIST), 0, "LOG02_DATE_PATTERN rejected: rule not registered (memory exhausted)\n"},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.err);
    WatchEntry bad = Entry(2);
    bad.number = "1{~}1{~}5{~}1{~}{~}{|}2{~}1{~}5{~}1{~}{~}", bad.text = "3{~}1{~}A{~}1", bad.date = "4{~}hh:mm:ss";
    g_failSize = c.size, g_failSkip = c.skip;
    Loaded loaded(EntryLines(Entry(1)) + EntryLines(bad) + EntryLines(Entry(3)));
    EXPECT_EQ(g_failSize, 0u) << "the allocation was made and failed";
    g_failSize = 0;
    EXPECT_EQ(std::make_pair(loaded.m_result, loaded.m_err), std::make_pair(1, std::string(c.err)));
    CColumnLogger& logger = loaded.m_logger;
    EXPECT_EQ(logger.m_pclLogFileList->fGetNode(2), nullptr);
    EXPECT_EQ(logger.m_pclNumPatternList->fGetNode(2), nullptr);
    EXPECT_EQ(logger.m_pclCharPatternList->fGetNode(2), nullptr);
    EXPECT_EQ(logger.m_pclDatePatternList->fGetNode(2), nullptr);
    EXPECT_EQ(logger.m_pclLogFileList->fGetLogFileCount(), 2);
  }
}
