// The threaded writer and its queue (other programs of the library use them; the ThreadSanitizer build runs this).
#include <atomic>
#include <sstream>

#include "MessageQWriteLog.h"
#include "MessageQueue.h"
#include "OmniLogTestEnv.h"

TEST(MessageQueue, FirstInFirstOutAndPopWaitsForAPush) {
  Queue<int> queue;
  for (int i = 0; i < 5; ++i) queue.push(i);
  EXPECT_EQ(queue.getCount(), 5);
  for (int i = 0; i < 5; ++i) EXPECT_EQ(queue.pop(), i);
  std::atomic<int> got{-1};
  std::thread consumer([&] { got = queue.pop(); });
  std::this_thread::sleep_for(std::chrono::milliseconds(50));  // the consumer waits in pop by now
  EXPECT_EQ(got.load(), -1);
  queue.push(42);
  ASSERT_TRUE(PollFor([&] { return got.load() == 42; }, 5000));
  consumer.join();
}

// Null fields are stored as empty texts (long ones are cut: see the threaded writer).
TEST(MessageQWriteLog, NullFieldsAreEmpty) {
  MessageQWriteLog empty;
  EXPECT_EQ(empty.fSetCollectWriteData(0, nullptr, nullptr), 1);
  EXPECT_STREQ(empty.fGetCollectWriteData(), "");
  EXPECT_STREQ(empty.fGetCollectWriteFile(), "");
}

class OmniLogThread : public LoggerLayout {
 protected:
  std::unique_ptr<COmniLog> MakeThreaded() {
    auto log = MakeLogger(LogDir(), 2, "THR", 7, 1);
    log->fSetLogSize(1, 1);  // 1 MiB: no rotation within a test
    return log;
  }
  std::vector<std::string> Records() const {
    std::vector<std::string> lines;
    std::istringstream in(ReadFile(LogFile("20240315_THR.log")));
    for (std::string line; std::getline(in, line);) lines.push_back(line);
    return lines;
  }
};

// Records keep their source position; a file name is cut to 63 characters and a message to 2047.
TEST_F(OmniLogThread, QueuedRecordsCarrySourceAndLineAsInfo) {
  auto log = MakeThreaded();
  log->fLogWrite(1, Text("LOG"), Text("debug in normal mode"));
  log->fLogWrite(3, 42, Text("Gather.cpp"), Text("positioned"));
  log->fLogWrite(2, 7, Text(std::string(70, 'f')), Text(std::string(3000, 'm')));
  ASSERT_TRUE(PollFor([&] { return Records().size() == 3; }, 5000));
  EXPECT_EQ(Records(), (std::vector<std::string>{"[143005][INFO][src][0]debug in normal mode",
                                                 "[143005][INFO][Gather.cpp][42]positioned",
                                                 "[143005][INFO][" + std::string(63, 'f') + "][7]" +
                                                     std::string(2047, 'm')}));
  // The writer thread's own time formatter is reentrant.
  char buf[16] = {};
  const time_t when = LocalTime(2024, 3, 5, 7, 8, 9);
  EXPECT_EQ(log->fGetThreadDayTime(static_cast<int>(when), buf, 3), static_cast<int>(when));
  EXPECT_STREQ(buf, "20240305-070809");
}

// At most 500 waiting messages (one more gets past the count); stopping writes, in order, what is left.
TEST_F(OmniLogThread, QueueLimitDropsAndDrainKeepsOrder) {
  auto log = MakeThreaded();
  Queue<MessageQWriteLog*>* queue = log->fGetMessageQueue();
  ASSERT_NE(queue, nullptr);
  // The writer first sleeps 100 ms: the burst lands in an untouched queue.
  for (int i = 0; i < 600; ++i) log->fLogWrite(3, Text("LOG"), Text("m" + std::to_string(i)));
  EXPECT_EQ(queue->getCount(), 501);
  // Once the writer took one a message is accepted again; one per wake-up: the backlog is far from drained.
  ASSERT_TRUE(PollFor([&] { return queue->getCount() <= 500; }, 5000));
  log->fLogWrite(3, Text("LOG"), Text("late"));
  EXPECT_GT(queue->getCount(), 250);
  log.reset();  // stops the writer; what it had not reached is written now
  const std::vector<std::string> lines = Records();
  ASSERT_EQ(lines.size(), 502u);
  for (int i = 0; i <= 500; ++i) EXPECT_EQ(lines[i], "[143005][INFO][src][0]m" + std::to_string(i));
  EXPECT_EQ(lines[501], "[143005][INFO][src][0]late");
}

// Each producer's records are all there, in its own order (and under ThreadSanitizer without a report).
TEST_F(OmniLogThread, ConcurrentProducersLoseNothing) {
  auto log = MakeThreaded();
  log->fSetThreadChk(1);
  constexpr int kThreads = 4, kEach = 100;
  std::vector<std::thread> producers;
  for (int t = 0; t < kThreads; ++t)
    producers.emplace_back([&, t] {
      for (int i = 0; i < kEach; ++i) log->fLogWrite(3, i, Text("t" + std::to_string(t)), Text("n" + std::to_string(i)));
    });
  for (auto& p : producers) p.join();
  log.reset();
  std::vector<int> next(kThreads, 0);
  const std::vector<std::string> lines = Records();
  ASSERT_EQ(lines.size(), static_cast<size_t>(kThreads * kEach));
  for (const std::string& line : lines) {
    const int t = line[16] - '0';
    ASSERT_TRUE(t >= 0 && t < kThreads) << line;
    EXPECT_EQ(line, "[143005][INFO][t" + std::to_string(t) + "][" + std::to_string(next[t]) + "]n" +
                        std::to_string(next[t]));
    ++next[t];
  }
}
