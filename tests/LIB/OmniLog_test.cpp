// The logger: record format, file names, grades and modes, open failures, day switch, rotation, retention.
#include "OmniLogTestEnv.h"

using OmniLog = LoggerLayout;

TEST_F(OmniLog, FileNamesAndRecordFormat) {
  struct Case { const char *dir, *prefix, *name, *before, *file; } cases[] = {
      {"a", "", "SER", "", "20240315_SER.log"}, {"b", "x", "SER", "", "x20240315_SER.log"},  // prefix glued on
      {"c", "", "ABCDEFGHIJKLMNOPQRSTUVWXYZ", "", "20240315_ABCDEFGHIJKLMNO.log"},
      {"d", "", "SER", "[000001][INFO][LOG]before restart\n", "20240315_SER.log"},  // continued, not truncated
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.dir);
    const std::string dir = SubDir(c.dir);
    ASSERT_TRUE(*c.before == '\0' || WriteFile(dir + c.file, c.before));
    auto log = MakeLogger(dir + c.prefix, 2, c.name);
    EXPECT_EQ(ListDir(dir).size(), *c.before ? 1u : 0u) << "the constructor opens no file";
    Write(*log, "started");
    SetNow(2024, 3, 15, 9, 5, 7);
    Write(*log, "next", 2, "LLB");
    SetNow(2024, 3, 15, 14, 30, 5);
    EXPECT_EQ(ListDir(dir), std::vector<std::string>{c.file});
    EXPECT_EQ(ReadFile(dir + c.file), c.before + std::string("[143005][INFO][LOG]started\n[090507][INFO][LLB]next\n"));
  }
  EXPECT_EQ(FileMode(LogFile("a/20240315_SER.log")), S_IFREG | (0644 & ~Umask()));
}

// The record and its echo (g_nPrint 1) by mode and grade; a record that makes nothing still opens the day's file.
TEST_F(OmniLog, GradeModeAndMessageDecideTheRecord) {
  const char* info = "[143005][INFO][LOG]m\n";
  struct Case { int mode, grade; const char *message, *record; } cases[] = {
      {1, 1, "m", "[143005][DEBUG][LOG]m\n"}, {2, 1, "m", ""}, {3, 1, "m", ""}, {1, 2, "m", info}, {1, 3, "m", info},
      {3, 3, "m", info}, {1, 0, "m", ""}, {1, 4, "m", ""}, {2, 3, "", "[143005][INFO][LOG]\n"},
      {2, 3, "100% %s %n", "[143005][INFO][LOG]100% %s %n\n"}, {2, 3, "two\nlines", "[143005][INFO][LOG]two\nlines\n"},
  };
  int n = 0;
  for (const Case& c : cases) {
    SCOPED_TRACE(testing::Message() << "mode " << c.mode << " grade " << c.grade << " " << c.message);
    const std::string dir = SubDir(std::to_string(n++));
    auto log = MakeLogger(dir, c.mode);
    EXPECT_EQ(StderrOf([&] { Write(*log, c.message, c.grade); }, 1), c.record);
    EXPECT_TRUE(FileExists(dir + "20240315_SER.log"));
    EXPECT_EQ(ReadFile(dir + "20240315_SER.log"), c.record);
  }
}

TEST_F(OmniLog, UnwritableDirectoryReportsEveryOpenAndRecovers) {
  const std::string missing = LogDir() + "missing/";
  const std::string failure = missing + "20240315_SER.log log file open failed : No such file or directory\n";
  auto log = MakeLogger(missing);
  // The first record opens at the day switch and again in the size check, later ones in the size check.
  EXPECT_EQ(StderrOf([&] { Write(*log, "first"); }), failure + failure);
  EXPECT_EQ(StderrOf([&] { Write(*log, "second"); }, 1), "[143005][INFO][LOG]second\n" + failure);
  // Once the directory exists the next record re-creates the file and is dropped, as is one after a removal.
  ASSERT_EQ(mkdir(missing.c_str(), 0755), 0);
  for (const char* message : {"dropped", "kept"}) Write(*log, message);
  ASSERT_EQ(unlink((missing + "20240315_SER.log").c_str()), 0);
  for (const char* message : {"lost", "three"}) Write(*log, message);
  EXPECT_EQ(ReadFile(missing + "20240315_SER.log"), "[143005][INFO][LOG]three\n");
}

// Opened with standard input closed, the file is not descriptor 0, nor inherited; source positions, helper records.
TEST_F(OmniLog, DescriptorHelperAndSourcePositionRecords) {
  fgLogRecord(3, "LOG", "[%d] %s", 1, "nobody listens");  // no process logger: must not crash
  const int savedStdin = dup(0);
  close(0);
  auto log = MakeLogger(LogDir(), 1);
  Write(*log, "one");
  ASSERT_EQ(dup2(savedStdin, 0), 0);
  close(savedStdin);
  g_pclOmniLog = log.get();
  const std::string longText(3000, 'q');
  fgLogRecord(3, "LOG", "[%d] %s log file open fail : %s", 7, "x.log", longText.c_str());
  g_pclOmniLog = nullptr;
  log->fLogWrite(1, 12, Text("main.cpp"), Text("dbg"));
  log->fLogWrite(5, 1, Text("x.cpp"), Text("none"));
  EXPECT_EQ(ReadFile(LogFile("20240315_SER.log")),
            "[143005][INFO][LOG]one\n[143005][INFO][LOG][7] x.log log file open fail : " + longText +
                "\n[143005][DEBUG][main.cpp][12]dbg\n");
  ASSERT_EQ(system("ls -l /proc/self/fd/ > ../fds.txt 2>&1"), 0);
  const std::string fds = ReadFile("../fds.txt");
  EXPECT_NE(fds.find("->"), std::string::npos) << fds;
  EXPECT_EQ(fds.find("20240315_SER.log"), std::string::npos) << fds;
}

// At the day change this logger's files older than the retention go, and a path set meanwhile is taken (not before).
TEST_F(OmniLog, DayChangeSweepsOldFilesAndTakesTheNewPath) {
  for (const char* f : {"20240307_SER.log", "20240307_SER_3.log.gz", "20240301_OTHER.log.Z", "20240308_SER_2.log",
                        "20240307_SER.log.bz2", "notes.log", "SER_20240301.log", ".20240401_SER.log",
                        "20240314_SER.log", "20240101.txt"})
    ASSERT_TRUE(WriteFile(LogFile(f), "x\n"));
  auto log = MakeLogger(LogDir(), 2, "SER", 7);
  SetNow(2024, 3, 14, 23, 0, 0);
  Write(*log, "day 14");  // cutoff 20240307: nothing of the 7th goes yet
  EXPECT_TRUE(FileExists(LogFile("20240307_SER.log")));
  EXPECT_FALSE(FileExists(LogFile("20240301_OTHER.log.Z")) || FileExists(LogFile(".20240401_SER.log")));
  SetNow(2024, 3, 15, 0, 0, 1);
  Write(*log, "day 15");  // cutoff 20240308
  EXPECT_EQ(ListDir(LogDir()), (std::vector<std::string>{"20240101.txt", "20240307_SER.log.bz2", "20240308_SER_2.log",
                                                         "20240314_SER.log", "20240315_SER.log", "SER_20240301.log",
                                                         "notes.log"}));
  const std::string other = SubDir("other");
  ASSERT_EQ(log->fSetLogPath(Text(other)), 1);
  SetNow(2024, 3, 15, 23, 59, 59);
  Write(*log, "same file");
  EXPECT_EQ(log->fDateChangeChk(), 0);
  SetNow(2024, 3, 16, 0, 0, 0);
  Write(*log, "early");
  EXPECT_EQ(ReadFile(LogFile("20240315_SER.log")), "[000001][INFO][LOG]day 15\n[235959][INFO][LOG]same file\n");
  EXPECT_EQ(ReadFile(other + "20240316_SER.log"), "[000000][INFO][LOG]early\n");
  // In mode 2 a grade 1 record writes nothing but still opens the new day.
  SetNow(2024, 3, 17, 0, 0, 1);
  Write(*log, "debug", 1);
  EXPECT_TRUE(FileExists(other + "20240317_SER.log"));
}

// The full file is compressed by the runner, its name one argument whatever the shell would make of it.
TEST_F(OmniLog, RotationSequenceDropsTheTriggeringRecord) {
  InstallScript("ETC/ShCmd", "#!/bin/sh\necho \"$1 $3\" >> ../ran.txt\n");  // notes what it would compress
  const std::string dir = SubDir("it's my $HOME; logs");
  const auto LogFile = [&](const std::string& name) { return dir + name; };
  auto log = MakeLogger(dir);
  const std::string kilo(1024 - 20, 'k');  // "[HHMMSS][INFO][LOG]" and the newline make 1024 bytes
  for (int i = 0; i < 10; ++i) Write(*log, kilo);  // exactly 10240 bytes
  for (const char* message : {"trigger", "first of _1"}) Write(*log, message);  // the trigger rotates, not written
  EXPECT_EQ(ReadFile(LogFile("20240315_SER.log")).size(), 10240u);
  EXPECT_EQ(ReadFile(LogFile("20240315_SER_1.log")), "[143005][INFO][LOG]first of _1\n");
  // A file one byte short takes the next record whatever its length.
  ASSERT_TRUE(WriteFile(LogFile("20240315_SER_1.log"), std::string(10239, 'z')));
  Write(*log, std::string(5000, 'b'));
  EXPECT_EQ(ReadFile(LogFile("20240315_SER_1.log")).size(), 10239u + 20u + 5000u);
  for (const char* message : {"trigger 2", "first of _2"}) Write(*log, message);
  EXPECT_EQ(ReadFile(LogFile("20240315_SER_2.log")), "[143005][INFO][LOG]first of _2\n");
  // After midnight the numbering starts again at 1.
  SetNow(2024, 3, 16, 0, 0, 0);
  for (int i = 0; i < 10; ++i) Write(*log, kilo);
  for (const char* message : {"trigger 3", "new day _1"}) Write(*log, message);
  EXPECT_EQ(ReadFile(LogFile("20240316_SER_1.log")), "[000000][INFO][LOG]new day _1\n");
  // Every rotation compresses the full file whatever fSetLogCompress says; the day change does not.
  if (access("/usr/bin/gzip", X_OK) != 0 && access("/bin/gzip", X_OK) != 0) return;  // no compressor: nothing runs
  std::string noted;
  ASSERT_TRUE(PollFor([&] { return Count(noted = ReadFile("../ran.txt"), "\n") >= 3; }, 5000)) << noted;
  for (const char* name : {"20240315_SER.log", "20240315_SER_1.log", "20240316_SER.log"})
    EXPECT_NE(noted.find(LogFile(name) + "\n"), std::string::npos) << name << "\n" << noted;
  EXPECT_EQ(noted.find(LogFile("20240315_SER_2.log")), std::string::npos) << noted;
}

// Only names with "AGENT" or "agent" ask, at the first record only, for a file of today; only dates reach the shell.
TEST_F(OmniLog, RecentFileLookupAndItsAnswer) {
  struct Case { const char *name, *answer, *file; bool asks; } cases[] = {
      {"MY_AGENT", "20240315_MY_AGENT_3.log\n", "20240315_MY_AGENT_3.log", true},
      {"agent1", "20240314_agent1_2.log\n", "20240315_agent1.log", true},  // not today's date
      {"agent2", "20240315", "20240315_agent2.log", true},                   // 8 characters or fewer
      {"agent3", nullptr, "20240315_agent3.log", true},                      // no answer at all
      {"agent4", "20240315_agent4_7.log", "20240315_agent4_7.log", true},    // last line without newline
      {"Agent", "20240315_Agent_3.log\n", "20240315_Agent.log", false},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    std::string script = "#!/bin/sh\necho \"$1\" >> ../lookups.txt\nmkdir -p ../aproc/shell\ncd ../aproc/shell\n"
                         "rm -f recentlogfile.dat\n";
    if (c.answer != nullptr) script += "printf '%s' '" + std::string(c.answer) + "' > recentlogfile.dat\n";
    InstallScript("INSTALL/recentlogfile.sh", script);
    unlink("../lookups.txt");
    const std::string dir = SubDir(c.name);
    auto log = MakeLogger(dir, 2, c.name);
    Write(*log, "x");
    EXPECT_EQ(ListDir(dir), std::vector<std::string>{c.file});
    SetNow(2024, 3, 16, 0, 0, 1);
    Write(*log, "y");  // a day change never asks again
    SetNow(2024, 3, 15, 14, 30, 5);
    EXPECT_EQ(ReadFile("../lookups.txt"), c.asks ? "20240315\n" : "");
  }
  auto log = MakeLogger(LogDir(), 2, "MY_AGENT");
  for (const char* date : {"2024031", "202403150", "2024031x", "$(touch ../pwned)"})
    EXPECT_EQ(log->fGetRecentLogFile(Text(date)), -1) << date;
  EXPECT_EQ(log->fGetRecentLogFile(nullptr), -1);
  EXPECT_FALSE(FileExists("../pwned"));
}
