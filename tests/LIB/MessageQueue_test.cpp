// The writer's queue and its message record.
#include <atomic>
#include <chrono>
#include <thread>

#include "MessageQWriteLog.h"
#include "MessageQueue.h"
#include "TestSupport.h"

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
  ASSERT_TRUE(testsupport::PollFor([&] { return got.load() == 42; }, 5000));
  consumer.join();
}

// Cutting long fields is checked through the threaded writer; null fields
// are stored as empty texts.
TEST(MessageQWriteLog, NullFieldsAreEmpty) {
  MessageQWriteLog empty;
  EXPECT_EQ(empty.fSetCollectWriteData(0, nullptr, nullptr), 1);
  EXPECT_STREQ(empty.fGetCollectWriteData(), "");
  EXPECT_STREQ(empty.fGetCollectWriteFile(), "");
}

}  // namespace
