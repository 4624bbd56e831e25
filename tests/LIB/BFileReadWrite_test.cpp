#include "BFileReadWrite.h"

#include <gtest/gtest.h>

#include <cstring>
#include <string>

#include "TestSupport.h"

namespace {

using testsupport::ReadFile;
using testsupport::TempDir;
using testsupport::WriteFile;

// The record is the pid, the status (native ints) and all 256 bytes of the
// terminal name, also those after its NUL: 264 bytes, nothing more.
TEST(BFileReadWrite, WritesTheFixedLayoutAndReadsItBack) {
  TempDir tmp;
  std::string path = tmp.file("status");
  char tty[256];
  memset(tty, 'Z', sizeof(tty));
  strcpy(tty, "/dev/pts/3");
  ASSERT_TRUE(WriteFile(path, std::string(1000, 'x')));  // an older, longer file is truncated
  ASSERT_EQ(BFileWrite(&path[0], 4321, -7, tty), 1);

  const std::string bytes = ReadFile(path);
  int32_t fields[2];
  ASSERT_EQ(bytes.size(), 264u);
  memcpy(fields, bytes.data(), sizeof(fields));
  EXPECT_EQ(fields[0], 4321);
  EXPECT_EQ(fields[1], -7);
  EXPECT_EQ(bytes.compare(8, 256, std::string(tty, 256)), 0);

  int pid = 0, status = 0;
  char name[256] = "";
  EXPECT_EQ(BFileRead(&path[0], &pid, &status, name), 1);
  EXPECT_EQ(pid, 4321);
  EXPECT_EQ(status, -7);
  EXPECT_EQ(memcmp(name, tty, sizeof(tty)), 0);
}

TEST(BFileReadWrite, FailuresGiveMinusOne) {
  TempDir tmp;
  std::string noDir = tmp.file("no/such/dir/status"), dir = tmp.path(), full = "/dev/full";
  char tty[256] = "";
  int pid = 0, status = 0;
  EXPECT_EQ(BFileWrite(&noDir[0], 1, 1, tty), -1);
  EXPECT_EQ(BFileWrite(&dir[0], 1, 1, tty), -1);
  EXPECT_EQ(BFileRead(&dir[0], &pid, &status, tty), -1);
  EXPECT_EQ(BFileWrite(nullptr, 1, 1, tty), -1);
  EXPECT_EQ(BFileRead(&noDir[0], nullptr, &status, tty), -1);
  // The write to a full device fails only when the stream is flushed.
  EXPECT_TRUE(!testsupport::FileExists(full) || BFileWrite(&full[0], 1, 1, tty) == -1);
  // A read needs a whole record; bytes after it are ignored.
  std::string path = tmp.file("status");
  for (size_t size : {263, 300}) {
    ASSERT_TRUE(WriteFile(path, std::string(size, '\0')));
    EXPECT_EQ(BFileRead(&path[0], &pid, &status, tty), size == 300 ? 1 : -1) << size;
  }
}

}  // namespace
