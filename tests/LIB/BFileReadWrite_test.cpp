#include "BFileReadWrite.h"
#include "TestSupport.h"

// The record is the pid, the status and all 256 bytes of the terminal name: 264 bytes; a read needs all of them.
TEST(BFileReadWrite, WritesTheFixedLayoutAndReadsItBack) {
  TempDir tmp;
  std::string path = tmp.file("status"), noDir = tmp.file("no/such/dir/status"), dir = tmp.path();
  char tty[256], name[256] = "";
  memset(tty, 'Z', sizeof(tty));
  strcpy(tty, "/dev/pts/3");
  ASSERT_TRUE(WriteFile(path, std::string(1000, 'x')));  // an older, longer file is truncated
  ASSERT_EQ(BFileWrite(&path[0], 4321, -7, tty), 1);
  const int32_t fields[2] = {4321, -7};
  EXPECT_EQ(ReadFile(path), std::string(reinterpret_cast<const char*>(fields), 8) + std::string(tty, 256));
  int pid = 0, status = 0;
  EXPECT_EQ(BFileRead(&path[0], &pid, &status, name), 1);
  EXPECT_EQ(pid * 10 + status, 43203);
  EXPECT_EQ(memcmp(name, tty, sizeof(tty)), 0);
  for (size_t size : {263, 300}) {
    ASSERT_TRUE(WriteFile(path, std::string(size, '\0')));
    EXPECT_EQ(BFileRead(&path[0], &pid, &status, name), size == 300 ? 1 : -1) << size;
  }
  EXPECT_EQ(BFileWrite(&noDir[0], 1, 1, tty), -1);
  EXPECT_EQ(BFileWrite(&dir[0], 1, 1, tty), -1);
  EXPECT_EQ(BFileRead(&dir[0], &pid, &status, tty), -1);
  EXPECT_EQ(BFileWrite(nullptr, 1, 1, tty), -1);
  EXPECT_EQ(BFileRead(&noDir[0], nullptr, &status, tty), -1);
  EXPECT_TRUE(!FileExists("/dev/full") || BFileWrite(Text("/dev/full"), 1, 1, tty) == -1);  // fails at the flush
}
