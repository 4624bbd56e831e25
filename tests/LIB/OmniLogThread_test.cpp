// The threaded writer (not used by the agent): the acceptance limit of its
// queue, drain order and record format, stopping it, and concurrent producers.
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include "OmniLogTestEnv.h"

using omnilogtest::Text;

namespace {

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

// The writer first sleeps 100 ms: a burst lands in an untouched queue, which
// takes 501. Once the writer has taken one (one per wake-up) a message is
// accepted again. Stopping writes what it had not reached, in order, as INFO
// with source and line (long fields cut); later records are written at once.
TEST_F(OmniLogThread, QueueLimitDrainOrderAndStop) {
  auto log = MakeThreaded();
  Queue<MessageQWriteLog*>* queue = log->fGetMessageQueue();
  ASSERT_NE(queue, nullptr);
  for (int i = 0; i < 600; ++i) log->fLogWrite(3, Text("LOG"), Text("m" + std::to_string(i)));
  EXPECT_EQ(queue->getCount(), 501);
  ASSERT_TRUE(testsupport::PollFor([&] { return queue->getCount() <= 500; }, 5000));
  log->fLogWrite(1, 7, Text(std::string(70, 'f')), Text(std::string(3000, 'm')));
  EXPECT_EQ(log->fStopThread(), 1);
  EXPECT_EQ(log->fGetMessageQueue(), nullptr);
  log->fLogWrite(3, Text("LOG"), Text("direct"));
  const std::vector<std::string> lines = Records();
  ASSERT_EQ(lines.size(), 503u);
  for (int i = 0; i <= 500; ++i) EXPECT_EQ(lines[i], "[143005][INFO][src][0]m" + std::to_string(i));
  EXPECT_EQ(lines[501], "[143005][INFO][" + std::string(63, 'f') + "][7]" + std::string(2047, 'm'));
  EXPECT_EQ(lines[502], "[143005][INFO][LOG]direct");
  auto sync = MakeThreaded(2);  // a fourth argument other than 1: no thread
  EXPECT_EQ(sync->fGetMessageQueue(), nullptr);
}

// Each producer's records are all there, in its own order (and under
// ThreadSanitizer without a report).
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
