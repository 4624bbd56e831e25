// Threaded writer: queued records, the acceptance limit, drain order and
// pacing, stopping a writer, and concurrent producers.
#include <chrono>
#include <memory>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include "OmniLog.h"
#include "OmniLogTestEnv.h"
#include "TestSupport.h"

using omnilogtest::LoggerLayout;
using testsupport::ListDir;
using testsupport::PollFor;
using testsupport::ReadFile;

namespace {

char* Text(const std::string& text) { return const_cast<char*>(text.c_str()); }

std::vector<std::string> Lines(const std::string& text) {
  std::vector<std::string> lines;
  std::istringstream in(text);
  std::string line;
  while (std::getline(in, line)) lines.push_back(line);
  return lines;
}

class OmniLogThread : public LoggerLayout {
 protected:
  std::unique_ptr<COmniLog> MakeThreaded(int mode = 2, int thread = 1) {
    auto log = std::make_unique<COmniLog>(mode, Text("THR"), 7, thread);
    log->fSetClock(omnilogtest::FakeClock);
    log->fSetLogPath(Text(LogDir()));
    log->fSetLogSize(1, 1);  // 1 MiB: no rotation within a test
    return log;
  }
  std::string DayFile() const { return LogFile("20240315_THR.log"); }
  size_t RecordCount() const { return Lines(ReadFile(DayFile())).size(); }
};

TEST_F(OmniLogThread, QueuedRecordsCarrySourceAndLineAsInfo) {
  auto log = MakeThreaded(2);
  ASSERT_NE(log->fGetMessageQueue(), nullptr);
  log->fLogWrite(1, Text("LOG"), Text("debug in normal mode"));
  log->fLogWrite(3, 42, Text("Gather.cpp"), Text("positioned"));
  log->fLogWrite(2, 7, Text(std::string(70, 'f')), Text(std::string(3000, 'm')));
  ASSERT_TRUE(PollFor([&] { return RecordCount() == 3; }, 5000)) << ReadFile(DayFile());
  EXPECT_EQ(Lines(ReadFile(DayFile())),
            (std::vector<std::string>{"[143005][INFO][src][0]debug in normal mode",
                                      "[143005][INFO][Gather.cpp][42]positioned",
                                      "[143005][INFO][" + std::string(63, 'f') + "][7]" + std::string(2047, 'm')}));
}

TEST_F(OmniLogThread, QueueLimitDropsAndDrainKeepsOrder) {
  auto log = MakeThreaded();
  Queue<MessageQWriteLog*>* queue = log->fGetMessageQueue();
  ASSERT_NE(queue, nullptr);
  // The writer first sleeps 100 ms: the burst lands in an untouched queue.
  for (int i = 0; i < 600; ++i) log->fLogWrite(3, Text("LOG"), Text("m" + std::to_string(i)));
  EXPECT_EQ(queue->getCount(), 501);
  // Once the writer has taken one, a message is accepted again.
  ASSERT_TRUE(PollFor([&] { return queue->getCount() <= 500; }, 5000));
  log->fLogWrite(3, Text("LOG"), Text("late"));
  log.reset();  // stops the writer; what it had not reached is written now

  const std::vector<std::string> lines = Lines(ReadFile(DayFile()));
  ASSERT_EQ(lines.size(), 502u);
  for (int i = 0; i <= 500; ++i) EXPECT_EQ(lines[i], "[143005][INFO][src][0]m" + std::to_string(i));
  EXPECT_EQ(lines[501], "[143005][INFO][src][0]late");
}

TEST_F(OmniLogThread, BacklogDrainsOneMessageAtATime) {
  auto log = MakeThreaded();
  for (int i = 0; i < 100; ++i) log->fLogWrite(3, Text("LOG"), Text("b" + std::to_string(i)));
  // At least 5 ms per message, after a first 100 ms pause: at 300 ms no
  // more than 40 can be in the file, whatever the machine's speed.
  std::this_thread::sleep_for(std::chrono::milliseconds(300));
  EXPECT_LE(RecordCount(), 40u);
  ASSERT_TRUE(PollFor([&] { return RecordCount() == 100; }, 10000));
  const std::vector<std::string> lines = Lines(ReadFile(DayFile()));
  for (int i = 0; i < 100; ++i) EXPECT_EQ(lines[i], "[143005][INFO][src][0]b" + std::to_string(i));
}

TEST_F(OmniLogThread, SingleMessageAfterQuietPeriodArrives) {
  auto log = MakeThreaded();
  log->fLogWrite(3, Text("LOG"), Text("one"));
  ASSERT_TRUE(PollFor([&] { return RecordCount() == 1; }, 2000));
  EXPECT_EQ(ReadFile(DayFile()), "[143005][INFO][src][0]one\n");
}

TEST_F(OmniLogThread, StoppingEndsTheWriterAndLaterRecordsAreSynchronous) {
  auto log = MakeThreaded();
  log->fLogWrite(3, Text("LOG"), Text("queued"));
  EXPECT_EQ(log->fStopThread(), 1);
  EXPECT_EQ(log->fGetMessageQueue(), nullptr);
  EXPECT_EQ(log->fStopThread(), 0);
  log->fLogWrite(3, Text("LOG"), Text("direct"));
  EXPECT_EQ(ReadFile(DayFile()), "[143005][INFO][src][0]queued\n[143005][INFO][LOG]direct\n");
}

TEST_F(OmniLogThread, ThreadArgumentOtherThanOneIsSynchronous) {
  for (int thread : {0, 2}) {
    SCOPED_TRACE(thread);
    auto log = MakeThreaded(2, thread);
    EXPECT_EQ(log->fGetMessageQueue(), nullptr);
    log->fLogWrite(3, Text("LOG"), Text("now"));
    EXPECT_EQ(ReadFile(DayFile()), "[143005][INFO][LOG]now\n");  // no waiting
    ASSERT_EQ(unlink(DayFile().c_str()), 0);
  }
}

TEST_F(OmniLogThread, ConcurrentProducersLoseNothing) {
  auto log = MakeThreaded();
  log->fSetThreadChk(1);
  constexpr int kThreads = 4;
  constexpr int kEach = 100;
  std::vector<std::thread> producers;
  for (int t = 0; t < kThreads; ++t) {
    producers.emplace_back([&, t] {
      for (int i = 0; i < kEach; ++i) {
        log->fLogWrite(3, i, Text("t" + std::to_string(t)), Text("n" + std::to_string(i)));
      }
    });
  }
  for (auto& p : producers) p.join();
  log.reset();
  // Each producer's records are in its own order.
  std::vector<int> next(kThreads, 0);
  const std::vector<std::string> lines = Lines(ReadFile(DayFile()));
  ASSERT_EQ(lines.size(), static_cast<size_t>(kThreads * kEach));
  for (const std::string& line : lines) {
    const int t = line[16] - '0';
    ASSERT_TRUE(t >= 0 && t < kThreads) << line;
    EXPECT_EQ(line, "[143005][INFO][t" + std::to_string(t) + "][" + std::to_string(next[t]) + "]n" +
                        std::to_string(next[t]));
    ++next[t];
  }
}

TEST_F(OmniLogThread, DestroyingManyWritersLeavesNothingBehind) {
  // Under LeakSanitizer and ThreadSanitizer: queues, messages and threads
  // of destroyed loggers are all released.
  for (int round = 0; round < 5; ++round) {
    auto log = MakeThreaded();
    for (int i = 0; i < 20; ++i) log->fLogWrite(3, Text("LOG"), Text("r" + std::to_string(round)));
  }
  EXPECT_EQ(Lines(ReadFile(DayFile())).size(), 100u);
  EXPECT_EQ(ListDir(LogDir()), std::vector<std::string>{"20240315_THR.log"});
}

}  // namespace
