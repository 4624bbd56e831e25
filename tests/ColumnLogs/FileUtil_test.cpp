#include <sys/stat.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include <climits>
#include <string>

#include "CommonFunc.h"
#include "TestSupport.h"

namespace {

using testsupport::FileExists;
using testsupport::TempDir;
using testsupport::WriteFile;

// Runs the test body in another working directory and returns to the old one.
class CwdGuard {
 public:
  explicit CwdGuard(const std::string& dir) {
    char buf[PATH_MAX];
    m_old = getcwd(buf, sizeof(buf)) != nullptr ? buf : "/";
    m_ok = chdir(dir.c_str()) == 0;
  }
  ~CwdGuard() { EXPECT_EQ(chdir(m_old.c_str()), 0); }
  bool ok() const { return m_ok; }

 private:
  std::string m_old;
  bool m_ok;
};

bool IsDir(const std::string& path) {
  struct stat st;
  return stat(path.c_str(), &st) == 0 && S_ISDIR(st.st_mode);
}

mode_t Perms(const std::string& path) {
  struct stat st;
  return stat(path.c_str(), &st) == 0 ? (st.st_mode & 07777) : 0;
}

mode_t CurrentUmask() {
  const mode_t mask = umask(0);
  umask(mask);
  return mask;
}

TEST(fgIPCheck, AcceptsDottedQuadsByTheirLeadingNumbers) {
  struct Case {
    const char* text;
    int expected;
  };
  const Case cases[] = {
      {"192.168.0.1", 1},
      {"0.0.0.0", 1},
      {"255.255.255.255", 1},
      {"...", 1},               // four empty parts, all 0
      {"255x.1.1.1", 1},        // only the first three characters are looked at
      {"1.2.3.4 ", 1},          // the last part's number ends at the blank
      {" 1.2.3.4", 1},          // strtol skips leading blanks
      {"01.002.3.4", 1},
      {"256.1.1.1", 0},
      {"1.1.1.256", 0},
      {"1.2.3", 0},
      {"1.2.3.4.5", 0},
      {"a.b.c.d", 0},
      {"1.2.3.a", 0},
      {"1.2.-1.4", 0},
      {"1.2.3.999.5", 0},       // fourth part rejected, its value checked as the last part
      {"12a.1.1.1", 0},
      {"1.2.3.4444", 0},
      {"1.2.3.4x", 0},          // a letter among the last part's first three characters
      {"100.100.100.1000", 0},  // 16 characters
      {"", 0},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.text);
    std::string text = c.text;
    const std::string before = text;
    EXPECT_EQ(fgIPCheck(&text[0]), c.expected);
    EXPECT_EQ(text, before);  // the caller's text is not changed
  }
  EXPECT_EQ(fgIPCheck(nullptr), 0);
}

TEST(fgMakeDirectory, CreatesMissingAncestorsWithMode0770) {
  TempDir tmp;
  const mode_t expected = 0770 & ~CurrentUmask();
  for (const std::string rel : {"x/y/z/", "p/q/r"}) {
    SCOPED_TRACE(rel);
    std::string path = tmp.path() + "/" + rel;
    EXPECT_EQ(fgMakeDirectory(&path[0]), 1);
    const std::string first = tmp.path() + "/" + rel.substr(0, 1);
    const std::string second = first + "/" + rel.substr(2, 1);
    const std::string third = second + "/" + rel.substr(4, 1);
    for (const std::string& dir : {first, second, third}) {
      EXPECT_TRUE(IsDir(dir)) << dir;
      EXPECT_EQ(Perms(dir), expected) << dir;
    }
  }
}

TEST(fgMakeDirectory, ExistingDirectoryIsLeftAsItIs) {
  TempDir tmp;
  ASSERT_EQ(chmod(tmp.path().c_str(), 0700), 0);
  std::string path = tmp.path();
  EXPECT_EQ(fgMakeDirectory(&path[0]), 1);
  EXPECT_EQ(Perms(tmp.path()), 0700u);
  EXPECT_TRUE(testsupport::ListDir(tmp.path()).empty());
}

TEST(fgMakeDirectory, RefusesPathsThatCannotBeDirectories) {
  TempDir tmp;
  ASSERT_TRUE(WriteFile(tmp.file("plain"), "x"));
  struct Case {
    std::string path;
  };
  const Case cases[] = {
      {tmp.file("plain")},           // a regular file
      {tmp.file("plain/sub")},       // its parent is a regular file
      {tmp.file("plain/sub/deep/")},
      {""},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.path);
    std::string path = c.path;
    testing::internal::CaptureStderr();
    EXPECT_EQ(fgMakeDirectory(&path[0]), -1);
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "");  // only a failed mkdir is reported
  }
  EXPECT_EQ(testsupport::ListDir(tmp.path()), std::vector<std::string>{"plain"});
  EXPECT_EQ(fgMakeDirectory(nullptr), -1);
}

TEST(fgMakeDirectory, ReportsAFailedMkdir) {
  if (!IsDir("/sys")) GTEST_SKIP() << "no /sys here";
  std::string path = "/sys/columnlogs_no_such_dir";
  testing::internal::CaptureStderr();
  const int result = fgMakeDirectory(&path[0]);
  const std::string err = testing::internal::GetCapturedStderr();
  if (result == 1) {
    rmdir(path.c_str());
    GTEST_SKIP() << "mkdir is allowed under /sys here";
  }
  EXPECT_EQ(result, -1);
  EXPECT_EQ(err.rfind("mkdir fail[/sys/columnlogs_no_such_dir][", 0), 0u) << err;
  EXPECT_EQ(err.back(), ']');  // no line end follows
}

// A relative path whose first component is missing has an empty parent:
// the working directory, so the path is made there.
TEST(fgMakeDirectory, RelativePathsStartInTheWorkingDirectory) {
  TempDir tmp;
  CwdGuard cwd(tmp.path());
  ASSERT_TRUE(cwd.ok());
  for (const std::string rel : {"one", "two/", "three/four/five"}) {
    SCOPED_TRACE(rel);
    std::string path = rel;
    EXPECT_EQ(fgMakeDirectory(&path[0]), 1);
    EXPECT_TRUE(IsDir(tmp.file(rel)));
  }
}

TEST(fgFindFileName, FirstVisibleMatchInTheWorkingDirectory) {
  TempDir tmp;
  ASSERT_TRUE(WriteFile(tmp.file(".old.log"), ""));
  ASSERT_TRUE(WriteFile(tmp.file("app.log"), ""));
  ASSERT_TRUE(WriteFile(tmp.file("app.txt"), ""));
  CwdGuard cwd(tmp.path());
  ASSERT_TRUE(cwd.ok());
  struct Case {
    const char* pattern;
    int result;
    const char* name;
  };
  const Case cases[] = {
      {"*.log", 1, "app.log"},  // never .old.log
      {"app.t?t", 1, "app.txt"},
      {".*", 0, ""},            // hidden names are skipped even when they match
      {"*.gz", 0, ""},
      {"APP.LOG", 0, ""},       // case-sensitive
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.pattern);
    std::string pattern = c.pattern;
    char name[256] = "";
    EXPECT_EQ(fgFindFileName(&pattern[0], name), c.result);
    EXPECT_STREQ(name, c.name);
  }
}

}  // namespace
