// The writer's queue and its message record.
#include "MessageQueue.h"

#include <atomic>
#include <string>
#include <thread>

#include <gtest/gtest.h>

#include "MessageQWriteLog.h"
#include "TestSupport.h"

namespace {

char* Text(const std::string& text) { return const_cast<char*>(text.c_str()); }

TEST(MessageQueue, FirstInFirstOut) {
  Queue<int> queue;
  EXPECT_EQ(queue.getCount(), 0);
  for (int i = 0; i < 5; ++i) queue.push(i);
  EXPECT_EQ(queue.getCount(), 5);
  for (int i = 0; i < 5; ++i) EXPECT_EQ(queue.pop(), i);
  EXPECT_EQ(queue.getCount(), 0);
}

TEST(MessageQueue, PopWaitsForAPush) {
  Queue<int> queue;
  std::atomic<int> got{-1};
  std::thread consumer([&] { got = queue.pop(); });
  EXPECT_EQ(got.load(), -1);
  queue.push(42);
  ASSERT_TRUE(testsupport::PollFor([&] { return got.load() == 42; }, 5000));
  consumer.join();
}

TEST(MessageQWriteLog, StoresAndCutsItsFields) {
  struct Case {
    std::string file, data;
    int whole;
    std::string storedFile, storedData;
  } cases[] = {
      {"src", "text", 1, "src", "text"},
      {std::string(63, 'f'), std::string(2047, 'd'), 1, std::string(63, 'f'), std::string(2047, 'd')},
      {std::string(64, 'f'), "t", 0, std::string(63, 'f'), "t"},
      {"a.cpp", std::string(3000, 'd'), 0, "a.cpp", std::string(2047, 'd')},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.file.size());
    MessageQWriteLog msg;
    EXPECT_EQ(msg.fSetCollectWriteData(9, Text(c.file), Text(c.data)), c.whole);
    EXPECT_EQ(msg.fGetCollectWriteLine(), 9);
    EXPECT_EQ(msg.fGetCollectWriteFile(), c.storedFile);
    EXPECT_EQ(msg.fGetCollectWriteData(), c.storedData);
  }
  MessageQWriteLog empty;
  EXPECT_EQ(empty.fSetCollectWriteData(0, nullptr, nullptr), 1);
  EXPECT_STREQ(empty.fGetCollectWriteData(), "");
  EXPECT_STREQ(empty.fGetCollectWriteFile(), "");
}

}  // namespace
