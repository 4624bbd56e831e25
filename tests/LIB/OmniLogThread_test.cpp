// Threaded writer and its queue: queued record format, the acceptance limit,
// drain order, stopping a writer, and concurrent producers.
#include <atomic>
#include <chrono>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include "MessageQueue.h"
#include "OmniLogTestEnv.h"

using omnilogtest::Text;
using testsupport::PollFor;

namespace {

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
  consumer.join();
  EXPECT_EQ(got.load(), 42);
}

class OmniLogThread : public omnilogtest::LoggerLayout {
 protected:
  std::unique_ptr<COmniLog> MakeThreaded(int thread = 1) {
    auto log = MakeLogger(LogDir(), 2, "THR", 7, thread);
    log->fSetLogSize(1, 1);  // 1 MiB: no rotation within a test
    return log;
  }
  std::vector<std::string> Records() const {
    std::vector<std::string> lines;
    std::istringstream in(testsupport::ReadFile(LogFile("20240315_THR.log")));
    for (std::string line; std::getline(in, line);) lines.push_back(line);
    return lines;
  }
};

TEST_F(OmniLogThread, QueueLimitDropsAndDrainKeepsOrder) {
  auto log = MakeThreaded();
  Queue<MessageQWriteLog*>* queue = log->fGetMessageQueue();
  ASSERT_NE(queue, nullptr);
  // The writer first sleeps 100 ms: the burst lands in an untouched queue.
  for (int i = 0; i < 600; ++i) log->fLogWrite(3, Text("LOG"), Text("m" + std::to_string(i)));
  EXPECT_EQ(queue->getCount(), 501);
  // Once the writer has taken one, a message is accepted again; it takes one
  // message per wake-up, so the backlog is far from drained.
  ASSERT_TRUE(PollFor([&] { return queue->getCount() <= 500; }, 5000));
  log->fLogWrite(3, Text("LOG"), Text("late"));
  EXPECT_GT(queue->getCount(), 250);
  log.reset();  // stops the writer; what it had not reached is written now
  const std::vector<std::string> lines = Records();
  ASSERT_EQ(lines.size(), 502u);
  for (int i = 0; i <= 500; ++i) EXPECT_EQ(lines[i], "[143005][INFO][src][0]m" + std::to_string(i));
  EXPECT_EQ(lines[501], "[143005][INFO][src][0]late");
}

// Queued records carry source and line, as INFO, with long fields cut.
// After fStopThread, and for a fourth argument other than 1, records are
// written at once. Queues, messages and threads of destroyed loggers are
// released (checked under LeakSanitizer and ThreadSanitizer).
TEST_F(OmniLogThread, StoppingEndsTheWriterAndLaterRecordsAreSynchronous) {
  auto log = MakeThreaded();
  log->fLogWrite(1, Text("LOG"), Text("debug in normal mode"));
  log->fLogWrite(2, 7, Text(std::string(70, 'f')), Text(std::string(3000, 'm')));
  EXPECT_EQ(log->fStopThread(), 1);
  EXPECT_EQ(log->fGetMessageQueue(), nullptr);
  EXPECT_EQ(log->fStopThread(), 0);
  log->fLogWrite(3, Text("LOG"), Text("direct"));
  EXPECT_EQ(Records(), (std::vector<std::string>{"[143005][INFO][src][0]debug in normal mode",
                                                 "[143005][INFO][" + std::string(63, 'f') + "][7]" + std::string(2047, 'm'),
                                                 "[143005][INFO][LOG]direct"}));
  for (int round = 0; round < 5; ++round) {
    auto other = MakeThreaded();
    for (int i = 0; i < 20; ++i) other->fLogWrite(3, Text("LOG"), Text("r"));
  }
  EXPECT_EQ(Records().size(), 103u);
  for (int thread : {0, 2}) {
    auto sync = MakeThreaded(thread);
    EXPECT_EQ(sync->fGetMessageQueue(), nullptr);
    sync->fLogWrite(3, Text("LOG"), Text("now"));
    EXPECT_EQ(Records().back(), "[143005][INFO][LOG]now") << thread;
  }
}

// Each producer's records are all there, in its own order.
TEST_F(OmniLogThread, ConcurrentProducersLoseNothing) {
  auto log = MakeThreaded();
  log->fSetThreadChk(1);
  constexpr int kThreads = 4, kEach = 100;
  std::vector<std::thread> producers;
  for (int t = 0; t < kThreads; ++t) {
    producers.emplace_back([&, t] {
      for (int i = 0; i < kEach; ++i) log->fLogWrite(3, i, Text("t" + std::to_string(t)), Text("n" + std::to_string(i)));
    });
  }
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

}  // namespace
