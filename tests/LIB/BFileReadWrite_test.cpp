#include "BFileReadWrite.h"

#include <gtest/gtest.h>

#include <cstring>
#include <string>

#include "TestSupport.h"

namespace {

using testsupport::ReadFile;
using testsupport::TempDir;
using testsupport::WriteFile;

int32_t IntAt(const std::string& bytes, size_t offset) {
  int32_t value = 0;
  memcpy(&value, bytes.data() + offset, sizeof(value));
  return value;
}

TEST(BFileReadWrite, WritesTheFixedLayoutAndReadsItBack) {
  TempDir tmp;
  std::string path = tmp.file("status");
  char tty[256];
  memset(tty, 'Z', sizeof(tty));  // bytes after the NUL are stored too
  strcpy(tty, "/dev/pts/3");
  ASSERT_TRUE(WriteFile(path, std::string(1000, 'x')));  // an older, longer file is truncated
  ASSERT_EQ(BFileWrite(&path[0], 4321, -7, tty), 1);

  const std::string bytes = ReadFile(path);
  ASSERT_EQ(bytes.size(), 264u);
  EXPECT_EQ(IntAt(bytes, 0), 4321);
  EXPECT_EQ(IntAt(bytes, 4), -7);
  EXPECT_EQ(bytes.compare(8, 256, std::string(tty, 256)), 0);

  int pid = 0;
  int status = 0;
  char name[256] = "";
  EXPECT_EQ(BFileRead(&path[0], &pid, &status, name), 1);
  EXPECT_EQ(pid, 4321);
  EXPECT_EQ(status, -7);
  EXPECT_EQ(memcmp(name, tty, sizeof(tty)), 0);
}

TEST(BFileReadWrite, ReadNeedsAWholeRecord) {
  TempDir tmp;
  struct Case {
    const char* name;
    size_t size;  // 0: no file at all
    int result;
  };
  const Case cases[] = {
      {"missing", 0, -1},
      {"short263", 263, -1},
      {"pidonly", 4, -1},
      {"exact", 264, 1},
      {"longer", 300, 1},  // bytes after the record are ignored
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    std::string path = tmp.file(c.name);
    if (c.size > 0) {
      std::string bytes(c.size, '\0');
      const int32_t pid = 99;
      memcpy(&bytes[0], &pid, sizeof(pid));
      ASSERT_TRUE(WriteFile(path, bytes));
    }
    int pid = 0;
    int status = 0;
    char name[256];
    EXPECT_EQ(BFileRead(&path[0], &pid, &status, name), c.result);
    if (c.result == 1) {
      EXPECT_EQ(pid, 99);
    }
  }
}

TEST(BFileReadWrite, FailuresGiveMinusOne) {
  TempDir tmp;
  std::string noDir = tmp.file("no/such/dir/status");
  std::string dir = tmp.path();
  char tty[256] = "";
  int pid = 0;
  int status = 0;
  EXPECT_EQ(BFileWrite(&noDir[0], 1, 1, tty), -1);
  EXPECT_EQ(BFileWrite(&dir[0], 1, 1, tty), -1);   // a directory
  EXPECT_EQ(BFileRead(&dir[0], &pid, &status, tty), -1);
  EXPECT_EQ(BFileWrite(nullptr, 1, 1, tty), -1);
  EXPECT_EQ(BFileRead(&noDir[0], nullptr, &status, tty), -1);
  if (testsupport::FileExists("/dev/full")) {
    std::string full = "/dev/full";  // the write fails when the stream is flushed
    EXPECT_EQ(BFileWrite(&full[0], 1, 1, tty), -1);
  }
}

}  // namespace
