// Logger core and file lifecycle: records, file names, grades and modes,
// open failures, the day switch, size rotation, retention, compression and
// the recent-file continuation of agent loggers.
#include "OmniLog.h"

#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <climits>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "OmniLogTestEnv.h"
#include "TestSupport.h"

using omnilogtest::LoggerLayout;
using omnilogtest::SetNow;
using testsupport::FileExists;
using testsupport::ListDir;
using testsupport::PollFor;
using testsupport::ReadFile;
using testsupport::WriteFile;

namespace {

char* Text(const std::string& text) { return const_cast<char*>(text.c_str()); }

std::unique_ptr<COmniLog> MakeLogger(const std::string& dir, int mode = 2, const std::string& name = "SER",
                                     int validDay = 7) {
  auto log = std::make_unique<COmniLog>(mode, Text(name), validDay);
  log->fSetClock(omnilogtest::FakeClock);
  EXPECT_EQ(log->fSetLogPath(Text(dir)), 1);
  return log;
}

void Write(COmniLog& log, const std::string& message, int grade = 3, const std::string& code = "LOG") {
  log.fLogWrite(grade, Text(code), Text(message));
}

// A message that makes a record of exactly `bytes` bytes:
// "[HHMMSS][INFO][LOG]" is 19 characters, the newline one more.
std::string MessageForRecord(size_t bytes, char fill) { return std::string(bytes - 20, fill); }

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

class OmniLog : public LoggerLayout {};
class OmniLogLifecycle : public LoggerLayout {};

TEST_F(OmniLog, FirstRecordCreatesDaysFileInRecordFormat) {
  auto log = MakeLogger(LogDir());
  EXPECT_TRUE(ListDir(LogDir()).empty()) << "the constructor opens no file";
  Write(*log, "started");
  SetNow(2024, 3, 15, 9, 5, 7);
  Write(*log, "next", 2, "LLB");
  EXPECT_EQ(ReadFile(LogFile("20240315_SER.log")), "[143005][INFO][LOG]started\n[090507][INFO][LLB]next\n");
  struct stat st;
  ASSERT_EQ(stat(LogFile("20240315_SER.log").c_str(), &st), 0);
  const mode_t mask = umask(0);
  umask(mask);
  EXPECT_EQ(st.st_mode & 0777, 0644 & ~mask);
}

TEST_F(OmniLog, ExistingDaysFileIsContinuedNotTruncated) {
  ASSERT_TRUE(WriteFile(LogFile("20240315_SER.log"), "[000001][INFO][LOG]before restart\n"));
  auto log = MakeLogger(LogDir());
  Write(*log, "after restart");
  EXPECT_EQ(ReadFile(LogFile("20240315_SER.log")),
            "[000001][INFO][LOG]before restart\n[143005][INFO][LOG]after restart\n");
}

TEST_F(OmniLog, GradeAndModeDecideTheRecord) {
  struct Case {
    int mode, grade;
    const char* record;
  } cases[] = {
      {1, 1, "[143005][DEBUG][LOG]m\n"}, {2, 1, ""}, {3, 1, ""},
      {1, 2, "[143005][INFO][LOG]m\n"},  {2, 2, "[143005][INFO][LOG]m\n"}, {3, 2, "[143005][INFO][LOG]m\n"},
      {1, 3, "[143005][INFO][LOG]m\n"},  {2, 3, "[143005][INFO][LOG]m\n"}, {3, 3, "[143005][INFO][LOG]m\n"},
      {1, 0, ""}, {2, 0, ""}, {1, 4, ""}, {3, 4, ""}, {1, -1, ""},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE("mode " + std::to_string(c.mode) + " grade " + std::to_string(c.grade));
    const std::string dir = LogDir() + "m" + std::to_string(c.mode) + "g" + std::to_string(c.grade) + "_";
    auto log = MakeLogger(dir, c.mode);
    Write(*log, "m", c.grade);
    // A record that produces nothing still opens the day's file.
    EXPECT_TRUE(FileExists(dir + "20240315_SER.log"));
    EXPECT_EQ(ReadFile(dir + "20240315_SER.log"), c.record);
  }
}

TEST_F(OmniLog, MessagesAreWrittenUnchanged) {
  struct Case {
    const char* message;
    const char* record;
  } cases[] = {
      {"", "[143005][INFO][LOG]\n"},
      {"100% done %s %n", "[143005][INFO][LOG]100% done %s %n\n"},
      {"two\nlines", "[143005][INFO][LOG]two\nlines\n"},
  };
  int n = 0;
  for (const Case& c : cases) {
    SCOPED_TRACE(c.message);
    const std::string dir = LogDir() + std::to_string(n++) + "_";
    auto log = MakeLogger(dir);
    Write(*log, c.message);
    EXPECT_EQ(ReadFile(dir + "20240315_SER.log"), c.record);
  }
  // A message far beyond any fixed buffer is not cut.
  auto log = MakeLogger(LogDir());
  const std::string big(100000, 'x');
  Write(*log, big);
  EXPECT_EQ(ReadFile(LogFile("20240315_SER.log")), "[143005][INFO][LOG]" + big + "\n");
}

TEST_F(OmniLog, PathPrefixIsGluedToTheFileName) {
  auto log = MakeLogger(LogDir() + "x");
  Write(*log, "glued");
  EXPECT_EQ(ListDir(LogDir()), std::vector<std::string>{"x20240315_SER.log"});
}

TEST_F(OmniLog, NewPathTakesEffectWithTheNextFileName) {
  ASSERT_EQ(mkdir(LogFile("other").c_str(), 0755), 0);
  auto log = MakeLogger(LogDir());
  Write(*log, "one");
  ASSERT_EQ(log->fSetLogPath(Text(LogDir() + "other/")), 1);
  Write(*log, "two");  // the open file is not switched
  SetNow(2024, 3, 16, 0, 0, 1);
  Write(*log, "three");
  EXPECT_EQ(ReadFile(LogFile("20240315_SER.log")), "[143005][INFO][LOG]one\n[143005][INFO][LOG]two\n");
  EXPECT_EQ(ReadFile(LogFile("other/20240316_SER.log")), "[000001][INFO][LOG]three\n");
  EXPECT_EQ(log->fSetLogPath(nullptr), -1);
}

TEST_F(OmniLog, LongNamesAreCutToFifteenCharacters) {
  auto log = MakeLogger(LogDir(), 2, "ABCDEFGHIJKLMNOPQRSTUVWXYZ");
  Write(*log, "cut");
  EXPECT_EQ(ListDir(LogDir()), std::vector<std::string>{"20240315_ABCDEFGHIJKLMNO.log"});
}

TEST_F(OmniLog, SettersFallBackOnOutOfRangeValues) {
  COmniLog log(9, Text("SER"), -1);
  EXPECT_EQ(log.fGetLogMode(), 2);
  struct Case {
    int value, result, mode;
  } modes[] = {{1, 1, 1}, {3, 1, 3}, {0, 0, 2}, {4, 0, 2}, {-7, 0, 2}};
  for (const Case& c : modes) {
    SCOPED_TRACE(c.value);
    EXPECT_EQ(log.fSetLogMode(c.value), c.result);
    EXPECT_EQ(log.fGetLogMode(), c.mode);
  }
  EXPECT_EQ(log.fSetValidDay(0), 1);
  EXPECT_EQ(log.fSetValidDay(-1), 0);
  EXPECT_EQ(log.fSetThreadChk(5), 1);
  EXPECT_EQ(log.fSetThreadChk(0), 0);
  EXPECT_EQ(log.fSetLogCompress(2), 1);
  EXPECT_EQ(log.fSetLogCompress(0), 0);
  EXPECT_EQ(log.fSetLogSize(-1, 1), 0);
  EXPECT_EQ(log.fSetLogSize(1, 2), 1);
  EXPECT_EQ(log.fSetLogSize(1, 7), 1);
}

TEST_F(OmniLog, SerialisedLoggingStillWrites) {
  auto log = MakeLogger(LogDir());
  auto other = MakeLogger(LogDir(), 2, "OTHER");
  ASSERT_EQ(log->fSetThreadChk(1), 1);
  ASSERT_EQ(other->fSetThreadChk(1), 1);
  Write(*log, "a");
  Write(*other, "b");
  Write(*log, "c");
  EXPECT_EQ(ReadFile(LogFile("20240315_SER.log")), "[143005][INFO][LOG]a\n[143005][INFO][LOG]c\n");
  EXPECT_EQ(ReadFile(LogFile("20240315_OTHER.log")), "[143005][INFO][LOG]b\n");
}

TEST_F(OmniLog, UnwritableDirectoryEchoesRecordsAndReportsEveryOpen) {
  const std::string missing = LogDir() + "missing/";
  auto log = MakeLogger(missing);
  g_nPrint = 1;
  testing::internal::CaptureStderr();
  Write(*log, "first");
  const std::string first = testing::internal::GetCapturedStderr();
  testing::internal::CaptureStderr();
  Write(*log, "second");
  const std::string second = testing::internal::GetCapturedStderr();
  g_nPrint = 0;

  const std::string failure = missing + "20240315_SER.log log file open failed : No such file or directory\n";
  // The first record opens at the day switch and again in the size check.
  EXPECT_EQ(first, "[143005][INFO][LOG]first\n" + failure + failure);
  EXPECT_EQ(second, "[143005][INFO][LOG]second\n" + failure);

  // Once the directory exists the next record re-creates the file; it is
  // itself dropped, later records are written.
  ASSERT_EQ(mkdir(missing.c_str(), 0755), 0);
  Write(*log, "dropped");
  Write(*log, "kept");
  EXPECT_EQ(ReadFile(missing + "20240315_SER.log"), "[143005][INFO][LOG]kept\n");
}

TEST_F(OmniLog, EchoIsOffUnlessPrintIsOne) {
  auto log = MakeLogger(LogDir());
  testing::internal::CaptureStderr();
  Write(*log, "quiet");
  EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
  g_nPrint = 1;
  testing::internal::CaptureStderr();
  Write(*log, "debug only", 1);  // mode 2: nothing to echo
  Write(*log, "loud");
  EXPECT_EQ(testing::internal::GetCapturedStderr(), "[143005][INFO][LOG]loud\n");
  g_nPrint = 0;
}

TEST_F(OmniLog, FileRemovedWhileOpenIsRecreatedAndThatRecordDropped) {
  auto log = MakeLogger(LogDir());
  Write(*log, "one");
  ASSERT_EQ(unlink(LogFile("20240315_SER.log").c_str()), 0);
  Write(*log, "lost");
  Write(*log, "three");
  EXPECT_EQ(ReadFile(LogFile("20240315_SER.log")), "[143005][INFO][LOG]three\n");
}

TEST_F(OmniLog, LogFileIsNotInheritedByChildPrograms) {
  auto log = MakeLogger(LogDir());
  Write(*log, "open now");
  ASSERT_EQ(system("ls -l /proc/self/fd/ > ../fds.txt 2>&1"), 0);
  const std::string fds = ReadFile("../fds.txt");
  EXPECT_NE(fds.find("->"), std::string::npos) << fds;
  EXPECT_EQ(fds.find("20240315_SER.log"), std::string::npos) << fds;
}

TEST_F(OmniLog, WorksWhenStandardInputIsClosed) {
  const int savedStdin = dup(0);
  ASSERT_GE(savedStdin, 0);
  close(0);
  {
    auto log = MakeLogger(LogDir());
    Write(*log, "one");  // the file gets descriptor 0, which is moved up
    Write(*log, "two");
  }
  ASSERT_EQ(dup2(savedStdin, 0), 0);
  close(savedStdin);
  EXPECT_EQ(ReadFile(LogFile("20240315_SER.log")), "[143005][INFO][LOG]one\n[143005][INFO][LOG]two\n");
}

TEST_F(OmniLog, LogRecordHelperFormatsOnlyWithAProcessLogger) {
  ASSERT_EQ(g_pclOmniLog, nullptr);
  fgLogRecord(3, "LOG", "[%d] %s", 1, "nobody listens");  // must not crash
  auto log = MakeLogger(LogDir());
  g_pclOmniLog = log.get();
  const std::string longText(3000, 'q');
  fgLogRecord(3, "LOG", "[%d] %s log file open fail : %s", 7, "x.log", longText.c_str());
  fgLogRecord(1, "LLB", "debug %d", 1);  // grade 1 in mode 2: nothing
  g_pclOmniLog = nullptr;
  EXPECT_EQ(ReadFile(LogFile("20240315_SER.log")), "[143005][INFO][LOG][7] x.log log file open fail : " + longText + "\n");
}

TEST_F(OmniLog, SourcePositionRecords) {
  auto log = MakeLogger(LogDir(), 1);
  log->fLogWrite(1, 12, Text("main.cpp"), Text("dbg"));
  log->fLogWrite(3, 40, Text("x.cpp"), Text("info"));
  log->fLogWrite(5, 1, Text("x.cpp"), Text("none"));
  EXPECT_EQ(ReadFile(LogFile("20240315_SER.log")), "[143005][DEBUG][main.cpp][12]dbg\n[143005][INFO][x.cpp][40]info\n");
}

TEST_F(OmniLog, ThreadDayTimeFormats) {
  COmniLog log(2, Text("SER"), 7);
  const time_t when = omnilogtest::LocalTime(2024, 3, 5, 7, 8, 9);
  struct Case {
    int mode;
    const char* text;
  } cases[] = {{1, "20240305"}, {2, "070809"}, {3, "20240305-070809"}, {4, ""}};
  for (const Case& c : cases) {
    SCOPED_TRACE(c.mode);
    char buf[16] = {};
    EXPECT_EQ(log.fGetThreadDayTime(static_cast<int>(when), buf, c.mode), static_cast<int>(when));
    EXPECT_STREQ(buf, c.text);
  }
  log.fSetClock(omnilogtest::FakeClock);
  char buf[16] = {};
  log.fGetThreadDayTime(0, buf, 3);
  EXPECT_STREQ(buf, "20240315-143005");
}

// ---- lifecycle ----

TEST_F(OmniLogLifecycle, DayChangeSwitchesFileAndNamesFollowTheDate) {
  auto log = MakeLogger(LogDir());
  SetNow(2024, 3, 15, 23, 59, 59);
  Write(*log, "late");
  EXPECT_EQ(log->fDateChangeChk(), 0);
  SetNow(2024, 3, 16, 0, 0, 0);
  Write(*log, "early");
  EXPECT_EQ(ReadFile(LogFile("20240315_SER.log")), "[235959][INFO][LOG]late\n");
  EXPECT_EQ(ReadFile(LogFile("20240316_SER.log")), "[000000][INFO][LOG]early\n");
  // In mode 2 a grade 1 record writes nothing but still opens the new day.
  SetNow(2024, 3, 17, 0, 0, 1);
  Write(*log, "debug", 1);
  EXPECT_EQ(ReadFile(LogFile("20240317_SER.log")), "");
}

TEST_F(OmniLogLifecycle, RetentionSweepAtDayChange) {
  const char* files[] = {"20240307_SER.log",   "20240307_SER_3.log.gz", "20240301_OTHER.log.Z",
                         "20240308_SER_2.log", "20240307_SER.log.bz2",  "notes.log",
                         "SER_20240301.log",   ".20240401_SER.log",     "20240314_SER.log",
                         "20240101.txt"};
  for (const char* f : files) ASSERT_TRUE(WriteFile(LogFile(f), "x\n"));
  auto log = MakeLogger(LogDir(), 2, "SER", 7);
  SetNow(2024, 3, 14, 23, 0, 0);
  Write(*log, "day 14");  // cutoff 20240307: nothing of the 7th goes yet
  EXPECT_TRUE(FileExists(LogFile("20240307_SER.log")));
  EXPECT_FALSE(FileExists(LogFile("20240301_OTHER.log.Z")));
  EXPECT_FALSE(FileExists(LogFile(".20240401_SER.log")));

  SetNow(2024, 3, 15, 0, 0, 1);
  Write(*log, "day 15");  // cutoff 20240308
  EXPECT_EQ(ListDir(LogDir()),
            (std::vector<std::string>{"20240101.txt", "20240307_SER.log.bz2", "20240308_SER_2.log",
                                      "20240314_SER.log", "20240315_SER.log", "SER_20240301.log",
                                      "notes.log"}));
}

TEST_F(OmniLogLifecycle, RetentionLimits) {
  struct Case {
    int validDay;
    std::vector<std::string> kept;
  } cases[] = {
      {0, {"20240315_SER.log"}},  // only today's files
      {1, {"20240314_SER.log", "20240315_SER.log"}},
      // Far beyond 1970: nothing is that old, nothing is deleted.
      {INT_MAX, {"19700102_SER.log", "20000101_SER.log", "20240314_SER.log", "20240315_SER.log"}},
      {30000, {"19700102_SER.log", "20000101_SER.log", "20240314_SER.log", "20240315_SER.log"}},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.validDay);
    const std::string dir = LogDir() + "v" + std::to_string(c.validDay) + "/";
    ASSERT_EQ(mkdir(dir.c_str(), 0755), 0);
    for (const char* f : {"19700102_SER.log", "20000101_SER.log", "20240314_SER.log"}) {
      ASSERT_TRUE(WriteFile(dir + f, "x\n"));
    }
    auto log = MakeLogger(dir, 2, "SER", c.validDay);
    Write(*log, "today");
    EXPECT_EQ(ListDir(dir), c.kept);
  }
}

TEST_F(OmniLogLifecycle, RotationSequenceDropsTheTriggeringRecord) {
  // A runner that only notes what it was asked to compress.
  InstallScript("ETC/ShCmd", "#!/bin/sh\necho \"$1 $3\" >> ../ran.txt\n");
  auto log = MakeLogger(LogDir());
  const std::string r1k_a = MessageForRecord(1024, 'a');
  for (int i = 0; i < 10; ++i) Write(*log, r1k_a);  // exactly 10240 bytes
  EXPECT_EQ(ReadFile(LogFile("20240315_SER.log")).size(), 10240u);
  Write(*log, "trigger");  // finds the file full: rotates, not written
  Write(*log, "first of _1");
  EXPECT_EQ(ReadFile(LogFile("20240315_SER.log")).size(), 10240u);
  EXPECT_EQ(ReadFile(LogFile("20240315_SER_1.log")), "[143005][INFO][LOG]first of _1\n");

  // A file one byte short takes the next record whatever its length.
  ASSERT_TRUE(WriteFile(LogFile("20240315_SER_1.log"), std::string(10239, 'z')));
  const std::string big(5000, 'b');
  Write(*log, big);
  EXPECT_EQ(ReadFile(LogFile("20240315_SER_1.log")).size(), 10239u + 20u + big.size());
  Write(*log, "trigger 2");
  Write(*log, "first of _2");
  EXPECT_EQ(ReadFile(LogFile("20240315_SER_2.log")), "[143005][INFO][LOG]first of _2\n");

  // After midnight the numbering starts again at 1.
  SetNow(2024, 3, 16, 0, 0, 0);
  for (int i = 0; i < 10; ++i) Write(*log, r1k_a);
  Write(*log, "trigger 3");
  Write(*log, "new day _1");
  EXPECT_EQ(ReadFile(LogFile("20240316_SER_1.log")), "[000000][INFO][LOG]new day _1\n");

  // Every rotation compresses the full file, whatever fSetLogCompress says;
  // the day change does not (compression at day change is off).
  if (access("/usr/bin/gzip", F_OK) != 0 && access("/bin/gzip", F_OK) != 0) return;  // no compressor: nothing runs
  const std::string ran = "../ran.txt";
  auto lines = [&] {
    const std::string text = ReadFile(ran);
    return std::count(text.begin(), text.end(), '\n');
  };
  ASSERT_TRUE(PollFor([&] { return lines() >= 3; }, 5000)) << ReadFile(ran);
  const std::string noted = ReadFile(ran);
  EXPECT_NE(noted.find(LogFile("20240315_SER.log") + "\n"), std::string::npos) << noted;
  EXPECT_NE(noted.find(LogFile("20240315_SER_1.log") + "\n"), std::string::npos) << noted;
  EXPECT_NE(noted.find(LogFile("20240316_SER.log") + "\n"), std::string::npos) << noted;
  EXPECT_EQ(noted.find(LogFile("20240315_SER_2.log")), std::string::npos) << noted;
}

TEST_F(OmniLogLifecycle, UnusualPathReachesTheRunnerAsOneArgument) {
  InstallScript("ETC/ShCmd", "#!/bin/sh\nprintf '%s|%s\\n' \"$#\" \"$3\" >> ../ran.txt\n");
  const std::string dir = LogDir() + "it's my $HOME; logs/";
  ASSERT_EQ(mkdir(dir.c_str(), 0755), 0);
  auto log = MakeLogger(dir);
  log->fSetLogSize(1, 2);
  Write(*log, MessageForRecord(1024, 'q'));
  Write(*log, "trigger");
  if (access("/usr/bin/gzip", F_OK) != 0 && access("/bin/gzip", F_OK) != 0) return;  // no compressor: nothing runs
  ASSERT_TRUE(PollFor([&] { return !ReadFile("../ran.txt").empty(); }, 5000));
  EXPECT_EQ(ReadFile("../ran.txt"), "3|" + dir + "20240315_SER.log\n");
}

TEST_F(OmniLogLifecycle, LogSizeUnits) {
  struct Case {
    int size, unit;
    size_t recordsBeforeRotation;  // 1024-byte records the first file takes
  } cases[] = {
      {2, 2, 2},        // 2 KiB
      {-1, 2, 10},      // default 10240 bytes restored
      {5, 3, 40},       // unknown unit: threshold 0, which never rotates
  };
  InstallScript("ETC/ShCmd", "#!/bin/sh\nexit 0\n");
  for (const Case& c : cases) {
    SCOPED_TRACE(std::to_string(c.size) + " unit " + std::to_string(c.unit));
    const std::string dir = LogDir() + "s" + std::to_string(c.unit) + "_" + std::to_string(c.size) + "/";
    ASSERT_EQ(mkdir(dir.c_str(), 0755), 0);
    auto log = MakeLogger(dir);
    log->fSetLogSize(c.size, c.unit);
    for (size_t i = 0; i < c.recordsBeforeRotation + 2; ++i) Write(*log, MessageForRecord(1024, 'k'));
    if (c.recordsBeforeRotation >= 40) {
      EXPECT_EQ(ListDir(dir), std::vector<std::string>{"20240315_SER.log"});
      EXPECT_EQ(ReadFile(dir + "20240315_SER.log").size(), 1024u * 42u);
    } else {
      EXPECT_EQ(ReadFile(dir + "20240315_SER.log").size(), 1024u * c.recordsBeforeRotation);
      EXPECT_EQ(ReadFile(dir + "20240315_SER_1.log").size(), 1024u);
    }
  }
  COmniLog big(2, Text("SER"), 7);
  EXPECT_EQ(big.fSetLogSize(4000, 1), 1);  // beyond 2047 MiB: kept in int range, no overflow
}

TEST_F(OmniLogLifecycle, DayChangeCompressesWithTheProjectRunner) {
  if (access("/usr/bin/gzip", X_OK) != 0 && access("/bin/gzip", X_OK) != 0) GTEST_SKIP() << "no gzip";
  InstallProjectScript("ETC/ShCmd");
  auto log = MakeLogger(LogDir());
  ASSERT_EQ(log->fSetLogCompress(1), 1);
  SetNow(2024, 3, 14, 22, 0, 0);
  Write(*log, "yesterday");
  SetNow(2024, 3, 15, 1, 0, 0);
  Write(*log, "today");
  std::vector<std::string> files;
  ASSERT_TRUE(PollFor([&] {
    files = ListDir(LogDir());
    return files.size() == 2 && files[0].find("20240314_SER.log.") == 0 && !FileExists(LogFile("20240314_SER.log"));
  }, 10000)) << testing::PrintToString(files);
  // Debian ships gzip; a host with compress would leave ".Z".
  if (files[0] == "20240314_SER.log.gz") {
    EXPECT_EQ(Gunzip(LogFile(files[0])), "[220000][INFO][LOG]yesterday\n");
  }
  EXPECT_EQ(ReadFile(LogFile("20240315_SER.log")), "[010000][INFO][LOG]today\n");
}

TEST_F(OmniLogLifecycle, AgentLoggerContinuesTheRecentFile) {
  InstallProjectScript("INSTALL/recentlogfile.sh");
  setenv("OMNILOG_LOG_PATH", LogDir().c_str(), 1);
  ASSERT_TRUE(WriteFile(LogFile("20240315_AGENT.log"), "old base\n"));
  ASSERT_TRUE(WriteFile(LogFile("20240315_AGENT_3.log"), "old 3\n"));
  ASSERT_TRUE(WriteFile(LogFile("20240314_AGENT_9.log"), "yesterday\n"));
  omnilogtest::SetMtime(LogFile("20240315_AGENT.log"), omnilogtest::LocalTime(2024, 3, 15, 8));
  omnilogtest::SetMtime(LogFile("20240315_AGENT_3.log"), omnilogtest::LocalTime(2024, 3, 15, 9));
  omnilogtest::SetMtime(LogFile("20240314_AGENT_9.log"), omnilogtest::LocalTime(2024, 3, 15, 10));

  auto log = MakeLogger(LogDir(), 2, "AGENT");
  Write(*log, "resumed");
  EXPECT_EQ(ReadFile(LogFile("20240315_AGENT_3.log")), "old 3\n[143005][INFO][LOG]resumed\n");
  EXPECT_EQ(ReadFile("../aproc/shell/recentlogfile.dat"), "20240315_AGENT_3.log\n");

  // The rotation counter is not restored: the next rotation goes to _1.
  ASSERT_TRUE(WriteFile(LogFile("20240315_AGENT_3.log"), std::string(10240, 'f')));
  InstallScript("ETC/ShCmd", "#!/bin/sh\nexit 0\n");
  Write(*log, "trigger");
  Write(*log, "after rotation");
  EXPECT_EQ(ReadFile(LogFile("20240315_AGENT_1.log")), "[143005][INFO][LOG]after rotation\n");
}

TEST_F(OmniLogLifecycle, RecentFileAnswerIsCheckedBeforeUse) {
  struct Case {
    const char* name;
    const char* answer;  // what the stand-in script writes, null: writes nothing
    const char* expectedFile;
  } cases[] = {
      {"MY_AGENT", "20240315_MY_AGENT_3.log\n", "20240315_MY_AGENT_3.log"},
      {"agent1", "20240314_agent1_2.log\n", "20240315_agent1.log"},  // not today's date
      {"agent2", "20240315", "20240315_agent2.log"},                   // 8 characters or fewer
      {"agent3", nullptr, "20240315_agent3.log"},                      // no answer at all
      {"agent4", "20240315_agent4_7.log", "20240315_agent4_7.log"},    // last line without newline
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    std::string script = "#!/bin/sh\nmkdir -p ../aproc/shell\nrm -f ../aproc/shell/recentlogfile.dat\n";
    if (c.answer != nullptr) script += std::string("printf '%s' '") + c.answer + "' > ../aproc/shell/recentlogfile.dat\n";
    InstallScript("INSTALL/recentlogfile.sh", script);
    const std::string dir = LogDir() + c.name + "/";
    ASSERT_EQ(mkdir(dir.c_str(), 0755), 0);
    auto log = MakeLogger(dir, 2, c.name);
    Write(*log, "x");
    EXPECT_EQ(ListDir(dir), std::vector<std::string>{c.expectedFile});
  }
}

TEST_F(OmniLogLifecycle, OnlyAgentNamesRunTheLookup) {
  struct Case {
    const char* name;
    bool runsLookup;
  } cases[] = {{"MY_AGENT", true}, {"agent1", true}, {"Agent", false}, {"SER", false}};
  InstallScript("INSTALL/recentlogfile.sh", "#!/bin/sh\necho \"$1\" >> ../lookups.txt\n");
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    unlink("../lookups.txt");
    const std::string dir = LogDir() + c.name + "/";
    ASSERT_EQ(mkdir(dir.c_str(), 0755), 0);
    auto log = MakeLogger(dir, 2, c.name);
    Write(*log, "x");
    SetNow(2024, 3, 16, 0, 0, 1);
    Write(*log, "y");  // a day change never asks again
    SetNow(2024, 3, 15, 14, 30, 5);
    EXPECT_EQ(ReadFile("../lookups.txt"), c.runsLookup ? "20240315\n" : "");
  }
}

TEST_F(OmniLogLifecycle, RecentFileLookupRefusesNonDates) {
  InstallScript("INSTALL/recentlogfile.sh", "#!/bin/sh\necho \"$1\" >> ../lookups.txt\n");
  COmniLog log(2, Text("AGENT"), 7);
  for (const char* date : {"2024031", "202403150", "2024031x", "$(touch ../pwned)"}) {
    SCOPED_TRACE(date);
    EXPECT_EQ(log.fGetRecentLogFile(Text(date)), -1);
  }
  EXPECT_EQ(log.fGetRecentLogFile(nullptr), -1);
  EXPECT_FALSE(FileExists("../lookups.txt"));
  EXPECT_FALSE(FileExists("../pwned"));
}

}  // namespace
