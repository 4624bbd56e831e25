#include "LogFileList.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "OmniLog.h"
#include "StrPattern.h"
#include "TestSupport.h"

using testsupport::Sep;

namespace {

char* Text(std::string& s) { return s.data(); }

void Register(CLogFileList& list, const std::vector<int>& indexes) {
  for (int indx : indexes) {
    std::string name = "/var/log/app" + std::to_string(indx) + ".log";
    ASSERT_EQ(list.fAddLogFile(indx, Text(name), 1, 2), 1);
  }
}

std::vector<int> Walk(CLogFileList& list) {
  std::vector<int> order;
  list.fMoveFirst();
  while (ST_LOGFILE_INFO* info = list.fMoveNext()) order.push_back(info->m_nIndx);
  return order;
}

// Restores the process-wide switches a test changes.
struct GlobalsGuard {
  int print = g_nPrint;
  COmniLog* logger = g_pclOmniLog;
  ~GlobalsGuard() {
    g_nPrint = print;
    g_pclOmniLog = logger;
  }
};

TEST(CLogFileList, RegistrationKeepsOrderAndRefusesSecondEntry) {
  CLogFileList list;
  Register(list, {1, 5, 2});
  std::string other = "other.log";
  EXPECT_EQ(list.fAddLogFile(5, Text(other), 0, 0), 0);
  EXPECT_EQ(Walk(list), (std::vector<int>{1, 5, 2}));
  EXPECT_EQ(list.fGetLogFileCount(), 3);
  EXPECT_STREQ(list.fGetLogFileName(5), "/var/log/app5.log");
  EXPECT_EQ(list.fGetErrorCode(), 0);

  const ST_LOGFILE_INFO* info = list.fGetNode(5);
  ASSERT_NE(info, nullptr);
  EXPECT_EQ(info->m_chCreateType, 1);
  EXPECT_EQ(info->m_nLogType, 2);
  EXPECT_EQ(info->m_lOffSet, 0);
  EXPECT_STREQ(info->m_strLogingFile, "");
  for (int slot = 0; slot < PATTERN_SLOT_CNT; ++slot) {
    EXPECT_EQ(info->m_vnFaultGrade[slot], -1);
    EXPECT_EQ(info->m_vpclStrPattern[slot], nullptr);
  }
}

TEST(CLogFileList, NameLongerThanBufferIsRefused) {
  CLogFileList list;
  std::string fits(511, 'a');
  std::string tooLong(512, 'b');
  EXPECT_EQ(list.fAddLogFile(1, Text(fits), 0, 0), 1);
  EXPECT_EQ(list.fAddLogFile(2, Text(tooLong), 0, 0), -1);
  EXPECT_EQ(list.fGetErrorCode(), -1);
  EXPECT_THAT(list.fGetErrorMsg(), testing::HasSubstr("too long"));
  EXPECT_EQ(list.fAddLogFile(3, nullptr, 0, 0), -1);
  EXPECT_EQ(list.fGetLogFileCount(), 1);
  EXPECT_EQ(std::string(list.fGetLogFileName(1)), fits);
}

// A pattern of 2047 characters that still compiles: anchored at both ends,
// with gaps keeping every piece below the engine's piece limit.
std::string Compilable2047() {
  std::string body;
  for (int i = 0; i < 4; ++i) body += std::string(400, 'p') + ".*";
  body += std::string(437, 'p');
  return "^" + body + "$";
}

TEST(CLogFileList, PatternSlotFilling) {
  const std::string p2047 = Compilable2047();
  ASSERT_EQ(p2047.size(), 2047u);
  const std::string p2048(2048, 'q');
  struct Case {
    std::string value;  // readable notation
    int result;
    std::vector<std::string> texts;  // slots 0.. (the rest must be empty)
    std::vector<int> grades;
  };
  const Case cases[] = {
      {"1{|}ERROR{~}2{|}WARN", 1, {"ERROR", "WARN"}, {1, 2}},
      {"NULL", 1, {"NULL"}, {-1}},
      {"7{|}{~}3{|}X", 1, {"X"}, {3}},  // grade without pattern uses no slot
      {"a{~}b{~}c{~}d{~}e{~}f", 1, {"a", "b", "c", "d", "e"}, {-1, -1, -1, -1, -1}},
      {"", 1, {}, {}},
      {"A{~}" + p2048 + "{~}B", 0, {"A", "B"}, {-1, -1}},
      {p2048, 0, {}, {}},
      {p2047, 1, {p2047}, {-1}},
      {"x{|}A{~}{|}B", 1, {"A", "B"}, {0, 0}},  // non-numeric or empty grade: 0
      {"1{|}a{|}b", 1, {"a{|}b"}, {1}},          // only the first bar divides
      {"A{~}{~}B{~}", 1, {"A", "B"}, {-1, -1}},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.value.substr(0, 40));
    CLogFileList list;
    Register(list, {4});
    std::string value = Sep(c.value);
    EXPECT_EQ(list.fAddLogPattern(4, Text(value), 0, 0, nullptr), c.result);
    const ST_LOGFILE_INFO* info = list.fGetNode(4);
    for (size_t slot = 0; slot < PATTERN_SLOT_CNT; ++slot) {
      SCOPED_TRACE(slot);
      const bool used = slot < c.texts.size();
      EXPECT_EQ(info->m_vstrLogPattern[slot], used ? Sep(c.texts[slot]) : "");
      EXPECT_EQ(info->m_vnFaultGrade[slot], used ? c.grades[slot] : -1);
      EXPECT_EQ(info->m_vpclStrPattern[slot] != nullptr, used);
    }
  }
}

TEST(CLogFileList, PatternValueReplacesEarlierSlotsAndStoresSettings) {
  CLogFileList list;
  Register(list, {1});
  std::string first = Sep("1{|}a{~}b{~}c");
  std::string second = "(a";  // does not compile
  std::string delimitor = Sep(",{~}NULL");
  std::string longDelimitor(40, ';');
  ASSERT_EQ(list.fAddLogPattern(1, Text(first), 3, 50, Text(delimitor)), 1);
  ST_LOGFILE_INFO* info = list.fGetNode(1);
  EXPECT_EQ(std::string(info->m_strDelimitor), delimitor);
  EXPECT_EQ(info->m_nSecLogCntFaultLevel, 3);
  EXPECT_EQ(info->m_nSecLogCount, 50);

  EXPECT_EQ(list.fAddLogPattern(1, Text(second), 4, 100, Text(longDelimitor)), 1);
  EXPECT_STREQ(info->m_vstrLogPattern[0], "(a");
  EXPECT_EQ(info->m_vpclStrPattern[0], nullptr);
  EXPECT_EQ(info->m_vnFaultGrade[0], -1);
  EXPECT_STREQ(info->m_vstrLogPattern[1], "");
  EXPECT_EQ(info->m_vpclStrPattern[1], nullptr);
  EXPECT_EQ(std::string(info->m_strDelimitor), std::string(31, ';'));
  EXPECT_EQ(info->m_nSecLogCount, 100);

  EXPECT_EQ(list.fAddLogPattern(1, Text(first), 0, 0, nullptr), 1);
  EXPECT_STREQ(info->m_strDelimitor, "");
  EXPECT_EQ(list.fAddLogPattern(9, Text(first), 0, 0, nullptr), -1);
}

TEST(CLogFileList, CompiledSlotMatchesLines) {
  CLogFileList list;
  Register(list, {1});
  std::string value = Sep("1{|}error{~}^WARN");
  ASSERT_EQ(list.fAddLogPattern(1, Text(value), 0, 0, nullptr), 1);
  ST_LOGFILE_INFO* info = list.fGetNode(1);
  std::string line = "disk error 5";
  EXPECT_EQ(info->m_vpclStrPattern[0]->fPatternEx(Text(line)), 1);
  EXPECT_EQ(info->m_vpclStrPattern[1]->fPatternEx(Text(line)), 0);

  std::string bad = "(a";
  EXPECT_EQ(list.fPatternComp(info, 1, Text(bad)), 0);
  EXPECT_EQ(info->m_vpclStrPattern[1], nullptr);
  EXPECT_EQ(list.fPatternComp(nullptr, 0, Text(bad)), 0);
  EXPECT_EQ(list.fPatternComp(info, 5, Text(value)), 0);
  EXPECT_EQ(list.fPatternClear(info, 0), 1);
  EXPECT_EQ(info->m_vpclStrPattern[0], nullptr);
  EXPECT_EQ(list.fPatternClear(info, -1), -1);
  EXPECT_EQ(list.fClearPattern(1), 1);
  EXPECT_EQ(list.fClearPattern(2), -1);
}

TEST(CLogFileList, NoStorablePatternIsReported) {
  GlobalsGuard guard;
  testsupport::TempDir dir;
  std::string name = "unit";
  std::string path = dir.path() + "/";
  COmniLog logger(COmniLog::LOG_MODE_ERROR, Text(name), 2);
  logger.fSetLogPath(Text(path));

  struct Case {
    std::string value;  // readable notation
    int result;
    std::string message;
  };
  const std::string p2048(2048, 'q');
  const Case cases[] = {
      {"", 1, "Log pattern add fail : "},
      {"7{|}", 1, "Log pattern add fail : " + Sep("7{|}")},
      {p2048, 0, "Log pattern add fail : " + p2048.substr(0, 226) + "..."},  // quoted up to 226 characters
      // Grade texts without pattern: 225 bytes are quoted whole, 226 get "...".
      {std::string(222, 'g') + "{|}", 1, "Log pattern add fail : " + std::string(222, 'g') + Sep("{|}")},
      {std::string(223, 'g') + "{|}", 1, "Log pattern add fail : " + std::string(223, 'g') + Sep("{|}") + "..."},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.value.substr(0, 20));
    CLogFileList list;
    Register(list, {1});
    std::string value = Sep(c.value);
    g_nPrint = 1;
    g_pclOmniLog = &logger;
    testing::internal::CaptureStderr();
    EXPECT_EQ(list.fAddLogPattern(1, Text(value), 0, 0, nullptr), c.result);
    // The console trace comes first; the logger echoes its record after it.
    EXPECT_THAT(testing::internal::GetCapturedStderr(),
                testing::StartsWith("Log pattern add fail : " + value + "\n"));
    EXPECT_EQ(list.fGetErrorMsg(), c.message);
  }
  std::string records;
  for (const std::string& file : testsupport::ListDir(dir.path())) records += testsupport::ReadFile(dir.file(file));
  EXPECT_THAT(records, testing::HasSubstr("[INFO][LLB]Log pattern add fail : " + Sep("7{|}") + "\n"));

  // Without console trace and logger nothing is written and no text is kept.
  g_nPrint = 0;
  g_pclOmniLog = nullptr;
  CLogFileList quiet;
  Register(quiet, {1});
  std::string empty;
  testing::internal::CaptureStderr();
  EXPECT_EQ(quiet.fAddLogPattern(1, Text(empty), 0, 0, nullptr), 1);
  EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
  EXPECT_STREQ(quiet.fGetErrorMsg(), "");
}

TEST(CLogFileList, LookupsByNameAndPosition) {
  CLogFileList list;
  Register(list, {3, 1});
  std::string name1 = "/var/log/app1.log";
  std::string missing = "/var/log/none.log";
  EXPECT_EQ(list.fGetNode(Text(name1)), list.fGetNode(1));
  EXPECT_EQ(list.fGetNode(static_cast<char*>(nullptr)), nullptr);
  EXPECT_EQ(list.fGetLogFileIndx(Text(name1)), 1);
  EXPECT_EQ(list.fGetLogFileIndx(Text(missing)), 0);
  EXPECT_EQ(list.fGetLogFileName(9), nullptr);

  const struct {
    int position;
    const char* name;
  } cases[] = {{1, "/var/log/app3.log"}, {2, "/var/log/app1.log"}, {0, nullptr}, {3, nullptr}, {-1, nullptr}};
  for (const auto& c : cases) {
    SCOPED_TRACE(c.position);
    const char* got = list.fGetLogFile(c.position);
    if (c.name == nullptr) {
      EXPECT_EQ(got, nullptr);
    } else {
      EXPECT_STREQ(got, c.name);
    }
  }
}

TEST(CLogFileList, RemovalDuringWalkAndRelease) {
  CLogFileList list;
  Register(list, {1, 5, 2});
  std::string value = "error";
  for (int indx : {1, 5, 2}) list.fAddLogPattern(indx, Text(value), 0, 0, nullptr);

  // The walk returned 1 and stands on 5; removing 5 moves the cursor back to 1.
  list.fMoveFirst();
  EXPECT_EQ(list.fMoveNext()->m_nIndx, 1);
  EXPECT_EQ(list.fDelLogFile(5), 1);
  std::vector<int> rest;
  while (ST_LOGFILE_INFO* info = list.fMoveNext()) rest.push_back(info->m_nIndx);
  EXPECT_EQ(rest, (std::vector<int>{1, 2}));
  EXPECT_EQ(list.fDelLogFile(5), 0);

  // Removing the head under the cursor moves it to the successor.
  list.fMoveFirst();
  EXPECT_EQ(list.fDelLogFile(1), 1);
  EXPECT_EQ(list.fGetNode()->m_nIndx, 2);

  list.fGetNode(2)->m_nGatherFlag = 1;
  list.fInitGatherFlag();
  EXPECT_EQ(list.fGetNode(2)->m_nGatherFlag, 0);
  EXPECT_EQ(list.fClearLogFile(), 1);
  EXPECT_EQ(list.fClearLogFile(), 0);
  EXPECT_EQ(list.fMoveFirst(), 0);
  EXPECT_EQ(list.fMoveNext(), nullptr);
}

}  // namespace
