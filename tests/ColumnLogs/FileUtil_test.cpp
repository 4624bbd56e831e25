#include <sys/stat.h>
#include <unistd.h>

#include <cstdlib>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "CommonFunc.h"
#include "TestSupport.h"

namespace {

using namespace testsupport;

// Type and permission bits, 0 when the path does not exist.
mode_t Mode(const std::string& path) {
  struct stat st;
  return stat(path.c_str(), &st) == 0 ? (st.st_mode & (S_IFMT | 07777)) : 0;
}

TEST(fgIPCheck, AcceptsDottedQuadsByTheirLeadingNumbers) {
  const struct { const char* text; int expected; } cases[] = {
      {"255.255.255.255", 1}, {"1.2.-1.4", 0}, {"256.1.1.1", 0}, {"1.1.1.256", 0}, {"1.2.3", 0}, {"12a.1.1.1", 0},
      {"...", 1},               // four empty parts, all 0
      {"255x.1.1.1", 1},        // only the first three characters are looked at
      {"1.2.3.4 ", 1},          // the last part's number ends at the blank
      {"1.2.3.999.5", 0},       // fourth part rejected, its value checked as the last part
      {"1.2.3.4x", 0},          // a letter among the last part's first three characters
      {"255.255.255.255 ", 0},  // 16 characters, too long whatever they hold
  };
  for (const auto& c : cases) {
    std::string text = c.text;
    EXPECT_EQ(fgIPCheck(&text[0]), c.expected) << c.text;
    EXPECT_EQ(text, c.text);  // the caller's text is not changed
  }
  EXPECT_EQ(fgIPCheck(nullptr), 0);
}

// Missing ancestors are made with mode 0770 (relative paths from the working
// directory); an existing directory is left alone; a path through a file is
// refused without a word, a failed mkdir is reported without a line end.
TEST(fgMakeDirectory, MakesMissingAncestorsAndRefusesWhatCannotBeADirectory) {
  TempDir tmp;
  char* old = getcwd(nullptr, 0);
  ASSERT_EQ(chdir(tmp.path().c_str()), 0);
  const mode_t mask = umask(0);
  umask(mask);
  for (std::string path : {tmp.file("a/b/c/"), tmp.file("d/e/f"), std::string("g"), std::string("h/i/")})
    EXPECT_EQ(fgMakeDirectory(&path[0]), 1) << path;
  ASSERT_EQ(chdir(old), 0);
  free(old);
  for (const char* dir : {"a", "a/b", "a/b/c", "d", "d/e", "d/e/f", "g", "h", "h/i"})
    EXPECT_EQ(Mode(tmp.file(dir)), S_IFDIR | (0770 & ~mask)) << dir;
  std::string existing = tmp.file("a");
  ASSERT_EQ(chmod(existing.c_str(), 0700), 0);
  EXPECT_EQ(fgMakeDirectory(&existing[0]), 1);
  EXPECT_EQ(Mode(existing), S_IFDIR | 0700);
  ASSERT_TRUE(WriteFile(tmp.file("plain"), "x"));
  for (std::string path : {tmp.file("plain"), tmp.file("plain/sub/deep/"), std::string()}) {
    testing::internal::CaptureStderr();
    EXPECT_EQ(fgMakeDirectory(&path[0]), -1) << path;
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "") << path;
  }
  EXPECT_EQ(fgMakeDirectory(nullptr), -1);
  std::string sys = "/sys/columnlogs_no_such_dir";  // /sys refuses new directories
  if (Mode("/sys") == 0) GTEST_SKIP() << "no /sys here";
  testing::internal::CaptureStderr();
  EXPECT_EQ(fgMakeDirectory(&sys[0]), -1);
  const std::string err = testing::internal::GetCapturedStderr();
  EXPECT_EQ(err.rfind("mkdir fail[/sys/columnlogs_no_such_dir][", 0), 0u) << err;
  EXPECT_EQ(err.back(), ']');
}

// Hidden names are skipped even when they match; matching is case-sensitive.
TEST(fgFindFileName, FirstVisibleMatchInTheWorkingDirectory) {
  TempDir tmp;
  for (const char* name : {".old.log", "app.log", "app.txt"}) ASSERT_TRUE(WriteFile(tmp.file(name), ""));
  char* old = getcwd(nullptr, 0);
  ASSERT_EQ(chdir(tmp.path().c_str()), 0);
  const struct { const char *pattern, *name; } cases[] = {{"*.log", "app.log"}, {"app.t?t", "app.txt"}, {".*", ""},
                                                          {"APP.LOG", ""}};
  for (const auto& c : cases) {
    std::string pattern = c.pattern;
    char name[256] = "";
    EXPECT_EQ(fgFindFileName(&pattern[0], name), c.name[0] != '\0' ? 1 : 0) << c.pattern;
    EXPECT_STREQ(name, c.name);
  }
  EXPECT_EQ(chdir(old), 0);
  free(old);
}

}  // namespace
