// The threaded writer (not used by the agent) under concurrent producers;
// the ThreadSanitizer check runs it.
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include "OmniLogTestEnv.h"

using omnilogtest::Text;

namespace {

class OmniLogThread : public omnilogtest::LoggerLayout {
 protected:
  std::unique_ptr<COmniLog> MakeThreaded() {
    auto log = MakeLogger(LogDir(), 2, "THR", 7, 1);
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
