// The agent end to end: growing watched logs and the event files it hands off.
#include <utime.h>

#include "TestSupport.h"

// Logs with their own delimiters, one file shared by two entries: byte-exact; entry 4's own first look reads it again.
TEST(Gather, EventsOfSeveralLogsReachTheCollectorByteExact) {
  AgentDir agent;
  const struct { std::string delimitor, lines; } logs[] = {
      {",{~}NULL", "aN,b,95\na,b,50\n"}, {";", "c;d;96\n"}, {"\t{~} ", "e\tf 97\n"}};
  std::vector<WatchEntry> entries;
  for (int i = 0; i < 3; ++i) {
    const std::string path = agent.Path("logs/" + std::to_string(i + 1) + ".log");
    ASSERT_TRUE(WriteFile(path, logs[i].lines));
    entries.push_back({i + 1, path, logs[i].delimitor, "3{~}2{~}90{~}1{~}{~}"});
  }
  entries.push_back({4, entries[0].name, ",{~}NULL", "NULL", "2{~}4{~}b{~}1"});
  agent.Start(entries);
  agent.SettledEvents(7);
  const auto outs = agent.OutFiles();  // in name order
  ASSERT_EQ(outs.size(), 2u);
  const std::string entry4 = "4|2\x03\x1f\x7c" "4\x03\x1f\x7c" "COLUMN[2] Value[b] == b, ORIGINAL_MSG:aN,b,95\n"
                             "4|2\x03\x1f\x7c" "4\x03\x1f\x7c" "COLUMN[2] Value[b] == b, ORIGINAL_MSG:a,b,50\n";
  EXPECT_EQ(ReadFile(agent.Path("out/" + outs[1])), entry4);
  EXPECT_EQ(ReadFile(agent.Path("out/" + outs[0])),
            "1|1\x03\x1f\x7c" "2\x03\x1f\x7c" "COLUMN[3] Value[95] > 90, ORIGINAL_MSG:aN,b,95\n" + entry4 +
            "2|1\x03\x1f\x7c" "2\x03\x1f\x7c" "COLUMN[3] Value[96] > 90, ORIGINAL_MSG:c;d;96\n"
            "3|1\x03\x1f\x7c" "2\x03\x1f\x7c" "COLUMN[3] Value[97] > 90, ORIGINAL_MSG:e\tf 97\n");
  EXPECT_EQ(outs[0].size(), std::string("out_20220627-101112").size());
}

// A cycle's events are written together: far more than the 32 KB holding buffer, and a longer line, arrive whole.
// The agent renames the event file itself: an output directory the shell would split or expand works as any other.
TEST(Gather, EventsBeyondTheHoldingBufferArriveWholeAndInOrder) {
  AgentDir agent;
  std::string log, expected;
  for (int i = 0; i < 61; ++i) {
    const std::string line = "r" + std::to_string(i) + std::string(i == 30 ? 40000 : 1500, 'x') + ",b,95";
    log += line + "\n";
    expected += CpuEvent(1, line);
  }
  ASSERT_EQ(mkdir(agent.Path("out $HOME;x").c_str(), 0755), 0);
  agent.Start({CpuRule(1, agent.AppLog(log))}, "log", "out $HOME;x");
  EXPECT_EQ(agent.SettledEvents(61), expected);
  EXPECT_EQ(agent.OutFiles().size(), 1u);
}

TEST(Gather, WildcardReadsTheNewestVisibleMatch) {
  AgentDir agent;
  WatchEntry e = CpuRule(1, agent.Path("logs/app_[YYYYMMDD].log"));
  e.checkType = 0;
  const struct { const char *name, *line; time_t age; } files[] = {
      {"app_20240101.log", "old,file,91\n", 300}, {"app_20240102.log", "new,file,92\n", 100},
      {".app_20240103.log", "hidden,file,93\n", 0}, {"other_20240104.log", "other,file,94\n", 0}};
  for (const auto& f : files) {
    const std::string path = agent.Path(std::string("logs/") + f.name);
    ASSERT_TRUE(WriteFile(path, f.line));
    const struct utimbuf times = {time(nullptr) - f.age, time(nullptr) - f.age};
    ASSERT_EQ(utime(path.c_str(), &times), 0);
  }
  agent.Start({e});
  EXPECT_EQ(agent.SettledEvents(1), CpuEvent(1, "new,file,92"));
}

// The seconds token changes the file every second; each file is read once, from its start when it becomes current.
TEST(Gather, DatedNameFollowsTheClock) {
  AgentDir agent;
  for (int s = 0; s < 61; ++s) {
    const std::string ss = std::string(s < 10 ? "0" : "") + std::to_string(s);
    ASSERT_TRUE(WriteFile(agent.Path("logs/app_" + ss + ".log"), ss + ",s,95\n"));
  }
  agent.Start({CpuRule(1, agent.Path("logs/app_[ss].log"))});
  ASSERT_TRUE(agent.WaitForEvents(3));
  const std::string events = agent.Events();
  std::vector<std::string> seconds;
  for (size_t at = events.find("ORIGINAL_MSG:"); at != std::string::npos; at = events.find("ORIGINAL_MSG:", at + 1))
    seconds.push_back(events.substr(at + 13, 2));
  std::sort(seconds.begin(), seconds.end());
  EXPECT_EQ(std::unique(seconds.begin(), seconds.end()), seconds.end()) << "every file is read once: " << events;
}

// Lines around every 255-character piece boundary are evaluated whole, once; an unfinished one once completed.
TEST(Gather, LinesAcrossPieceAndChunkBoundariesAreReadWhole) {
  const size_t kPiece = 255, kLengths[] = {5, 80, 253, 254, 255, 256, 300, 509, 510, 511, 700, 0, 1};
  std::string log, expected;
  long pieces = 0;
  for (int i = 0; i < 260; ++i) {
    const size_t len = kLengths[i % 13];
    const bool hit = len >= 5 && i % 7 == 0;
    std::string line = len < 5 ? std::string(len, 'z')
                               : (hit ? "HIT," : "abc,") + std::string(len - 4, static_cast<char>('a' + i % 26));
    if (hit) expected += "1|2{|}1{|}COLUMN[1] Value[HIT] == HIT, ORIGINAL_MSG:" + line + "\n";
    if (i == 100) line[3] = '\0';  // a NUL byte inside a line still counts as a byte
    log += line + "\n";
    pieces += static_cast<long>((line.size() + kPiece) / kPiece);
  }
  const size_t complete = log.size(), hits = Count(expected, "\n");
  log += "HIT,unfinished";  // no line end: read as a piece, not evaluated
  ++pieces;
  ASSERT_GT(log.size(), 3u * 16384u);
  ASSERT_LT(pieces, 800);  // below the read throttle's pause
  ASSERT_LT(hits, 100);    // below the event ceiling of a turn
  AgentDir agent;
  const WatchEntry e{1, agent.AppLog(log), ",{~}NULL", "NULL", "1{~}1{~}HIT{~}1"};
  agent.Start({e});
  const std::string counts = "log count = " + std::to_string(pieces) + ", fault count = " + std::to_string(hits);
  ASSERT_TRUE(agent.WaitForDiag(counts)) << "expected \"" << counts << "\" in:\n" << agent.Diag();
  EXPECT_NE(agent.Diag().find("LOG offset save : " + std::to_string(complete)), std::string::npos);
  EXPECT_EQ(agent.SettledEvents(hits), expected);
  ASSERT_TRUE(AppendFile(e.name, "!\n"));
  EXPECT_EQ(agent.SettledEvents(hits + 1),
            expected + "1|2{|}1{|}COLUMN[1] Value[HIT] == HIT, ORIGINAL_MSG:HIT,unfinished!\n");
}
