#include "ConfManager.h"

#include <sys/stat.h>
#include <sys/time.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include <chrono>
#include <functional>
#include <string>
#include <utility>
#include <vector>

#include "OmniLog.h"
#include "TestSupport.h"

namespace {

using testsupport::FileExists;
using testsupport::ReadFile;
using testsupport::TempDir;
using testsupport::WriteFile;

char* C(const char* text) { return const_cast<char*>(text); }

const char* const kNull = "<null>";

std::string Opt(CConfManager& store, const std::string& key) {
  const char* value = store.fGetOpt(C(key.c_str()));
  return value != nullptr ? value : kNull;
}

// Reads `content` from a fresh file into `store`; returns fFileInfoSet's result.
int Load(CConfManager& store, const std::string& path, const std::string& content, const char* section = nullptr) {
  EXPECT_TRUE(WriteFile(path, content));
  return store.fFileInfoSet(C(path.c_str()), C(section));
}

// Moves the file's modification time away from what the store recorded.
void Touch(const std::string& path, int secondsAhead) {
  struct timeval times[2];
  gettimeofday(&times[0], nullptr);
  times[0].tv_sec += secondsAhead;
  times[1] = times[0];
  ASSERT_EQ(utimes(path.c_str(), times), 0);
}

class PrintSwitch {
 public:
  explicit PrintSwitch(int value) : m_old(g_nPrint) { g_nPrint = value; }
  ~PrintSwitch() { g_nPrint = m_old; }

 private:
  int m_old;
};

using Pairs = std::vector<std::pair<std::string, std::string>>;

TEST(CConfManager, ReadsTheFileFormatExactly) {
  const std::string v508(508, 'v');
  const std::string v600(600, 'v');
  struct Case {
    const char* name;
    std::string content;
    Pairs expected;  // key -> value, kNull for absent
    int count;
  };
  const Case cases[] = {
      {"empty", "", {{"A", kNull}}, 0},
      {"only comments and blanks", "# c\n\n   \n#A=1\n   # A=2\n", {{"A", kNull}, {"#A", kNull}}, 0},
      {"first of duplicates wins", "KEY=first\nKEY=second\n", {{"KEY", "first"}}, 2},
      {"leading spaces skipped", "  KEY=value\n", {{"KEY", "value"}}, 1},
      {"key not trimmed", "KEY =1\n", {{"KEY ", "1"}, {"KEY", kNull}}, 1},
      {"value keeps blanks", "KEY= value \n", {{"KEY", " value "}}, 1},
      {"equals run", "KEY==value\n", {{"KEY", "value"}}, 1},
      {"later equals in value", "KEY=a=b\n", {{"KEY", "a=b"}}, 1},
      {"empty key", "=value\n", {{"", "value"}}, 1},
      {"empty value", "KEY=\n", {{"KEY", ""}}, 1},
      {"KEY= at end of file", "A=1\nKEY=", {{"A", "1"}, {"KEY", kNull}}, 1},
      {"KEY== at end of file", "KEY==", {{"KEY", kNull}}, 0},
      {"last line without newline", "A=1\nKEY=last", {{"KEY", "last"}}, 2},
      {"carriage return kept", "KEY=v\r\nB=2\r\n", {{"KEY", "v\r"}, {"B", "2\r"}}, 2},
      {"tab is text", "\t#VAR=1\n", {{"\t#VAR", "1"}, {"#VAR", kNull}}, 1},
      {"hash after key is value", "KEY=x # no comment\n", {{"KEY", "x # no comment"}}, 1},
      {"headers ignored without section", "[GENERAL]\nA=1\n[OTHER]\nB=2\n", {{"A", "1"}, {"B", "2"}}, 2},
      {"line of 510 read whole", "K=" + v508 + "\nB=2\n", {{"K", v508}, {"B", "2"}}, 2},
      {"longer line cut at 510", "K=" + v600 + "\nB=2\n", {{"K", v508}, {"B", "2"}}, 2},
      {"second piece is a line", "K=" + v508 + "X=y\n", {{"K", v508}, {"X", "y"}}, 2},
  };
  TempDir tmp;
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    CConfManager store;
    ASSERT_EQ(Load(store, tmp.file("conf"), c.content), 1);
    for (const auto& kv : c.expected) EXPECT_EQ(Opt(store, kv.first), kv.second) << "key [" << kv.first << "]";
    EXPECT_EQ(store.fGetOptCount(), c.count);
    EXPECT_FALSE(FileExists(tmp.file("conf_lock")));
  }
}

TEST(CConfManager, LoadsOnlyASelectedSectionThatComesFirst) {
  const std::string v509(509, 'v');
  struct Case {
    const char* name;
    std::string content;
    const char* section;
    Pairs expected;
    int count;
  };
  const Case cases[] = {
      {"first section", "[A]\nX=1\nY=2\n[B]\nZ=3\n", "A", {{"X", "1"}, {"Y", "2"}, {"Z", kNull}}, 2},
      {"first header names another", "[B]\nZ=3\n[A]\nX=1\n", "A", {{"X", kNull}, {"Z", kNull}}, 0},
      {"blank line before header", "\n[A]\nX=1\n", "A", {{"X", kNull}}, 0},
      {"key line before header", "X=0\n[A]\nX=1\n", "A", {{"X", kNull}}, 0},
      {"comments and spaces before", "# c\n  [A]\nX=1\n", "A", {{"X", "1"}}, 1},
      {"bracket in comment does not end", "[A]\nX=1\n# [B]\nY=2\n", "A", {{"Y", "2"}}, 2},
      {"bracket in value ends", "[A]\nX=1\nU=a[0]\nY=2\n", "A", {{"X", "1"}, {"U", kNull}, {"Y", kNull}}, 1},
      {"header without ] skipped", "[A\n[A]\nX=1\n", "A", {{"X", "1"}}, 1},
      {"prefix is not the name", "[AB]\nX=1\n", "A", {{"X", kNull}}, 0},
      {"text after ] ignored", "[A] main\nX=1\n", "A", {{"X", "1"}}, 1},
      {"511 characters inside", "[A]\nK=" + v509 + "\n", "A", {{"K", v509}}, 1},
      {"empty section name means none", "[A]\nX=1\n[B]\nZ=3\n", "", {{"X", "1"}, {"Z", "3"}}, 2},
  };
  TempDir tmp;
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    CConfManager store;
    ASSERT_EQ(Load(store, tmp.file("conf"), c.content, c.section), 1);
    for (const auto& kv : c.expected) EXPECT_EQ(Opt(store, kv.first), kv.second) << "key [" << kv.first << "]";
    EXPECT_EQ(store.fGetOptCount(), c.count);
  }
}

TEST(CConfManager, FileInfoSetRefusals) {
  TempDir tmp;
  ASSERT_EQ(symlink(tmp.file("no/such/dir").c_str(), tmp.file("locked_lock").c_str()), 0);
  ASSERT_TRUE(WriteFile(tmp.file("locked"), "A=1\n"));
  const std::string longName = tmp.path() + "/" + std::string(1023 - tmp.path().size(), 'n');  // 1024 characters
  struct Case {
    const char* name;
    std::string path;  // empty: null
    const char* section;
    int print;
    std::string err;
  };
  const Case cases[] = {
      {"null file", "", nullptr, 1, ""},
      {"missing file, quiet", tmp.file("missing"), nullptr, 0, ""},
      {"missing file, traced", tmp.file("missing"), nullptr, 1,
       "[" + tmp.file("missing") + "] file open failed : No such file or directory\n"},
      {"a directory", tmp.path(), nullptr, 0, ""},
      {"lock cannot be made", tmp.file("locked"), nullptr, 0,
       tmp.file("locked") + " conf file lock failed(file read) : No such file or directory\n"},
      {"name too long", longName, nullptr, 0, longName + " conf file name too long(file read) : File name too long\n"},
      {"section name too long", tmp.file("locked"), "", 0, ""},
  };
  const std::string longSection(256, 's');
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    PrintSwitch print(c.print);
    CConfManager store;
    char* section = C(c.section);
    std::string expectedErr = c.err;
    if (std::string(c.name) == "section name too long") {
      section = C(longSection.c_str());
      expectedErr = c.path + " conf file name too long(file read) : File name too long\n";
    }
    testing::internal::CaptureStderr();
    EXPECT_EQ(store.fFileInfoSet(c.path.empty() ? nullptr : C(c.path.c_str()), section), 0);
    EXPECT_EQ(testing::internal::GetCapturedStderr(), expectedErr);
    EXPECT_EQ(store.fGetOptCount(), 0);
    EXPECT_FALSE(FileExists(tmp.file("missing_lock")));
  }
  EXPECT_FALSE(FileExists(tmp.file("missing")));
}

TEST(CConfManager, FailedLoadEmptiesThePreviousEntries) {
  TempDir tmp;
  CConfManager store;
  ASSERT_EQ(Load(store, tmp.file("conf"), "A=1\n"), 1);
  std::string missing = tmp.file("missing");
  EXPECT_EQ(store.fFileInfoSet(&missing[0], nullptr), 0);
  EXPECT_EQ(Opt(store, "A"), kNull);
}

// The one slow test: a lock file left by a dead process holds the store up
// for LOCK_WAITS seconds, then is taken over and removed.
TEST(CConfManager, TakesOverAStaleLockAfterTenSeconds) {
  TempDir tmp;
  ASSERT_TRUE(WriteFile(tmp.file("conf_lock"), "999999"));
  CConfManager store;
  const auto start = std::chrono::steady_clock::now();
  EXPECT_EQ(Load(store, tmp.file("conf"), "A=1\n"), 1);
  const double waited = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
  EXPECT_GE(waited, 9.5);
  EXPECT_LT(waited, 15.0);
  EXPECT_EQ(Opt(store, "A"), "1");
  EXPECT_FALSE(FileExists(tmp.file("conf_lock")));
}

TEST(CConfManager, ReFreshReadsOnlyAChangedFile) {
  TempDir tmp;
  const std::string path = tmp.file("conf");
  CConfManager store;
  ASSERT_EQ(Load(store, path, "A=1\n"), 1);
  EXPECT_EQ(store.fReFresh(), 0);
  EXPECT_EQ(Opt(store, "A"), "1");

  ASSERT_TRUE(WriteFile(path, "A=2\nB=3\n"));
  Touch(path, 5);
  EXPECT_EQ(store.fReFresh(), 1);
  EXPECT_EQ(Opt(store, "A"), "2");
  EXPECT_EQ(Opt(store, "B"), "3");
  EXPECT_EQ(store.fReFresh(), 0);
  EXPECT_FALSE(FileExists(tmp.file("conf_lock")));

  // Gone: nothing changes.
  ASSERT_EQ(unlink(path.c_str()), 0);
  EXPECT_EQ(store.fReFresh(), 0);
  EXPECT_EQ(Opt(store, "A"), "2");

  // Emptied buffers forget the time, so the next refresh reads again.
  ASSERT_TRUE(WriteFile(path, "A=4\n"));
  EXPECT_EQ(store.fRemoveBuffer(), 0);
  EXPECT_EQ(Opt(store, "A"), kNull);
  EXPECT_EQ(store.fReFresh(), 1);
  EXPECT_EQ(Opt(store, "A"), "4");
}

TEST(CConfManager, ReFreshKeepsEntriesWhenTheLockFails) {
  TempDir tmp;
  const std::string path = tmp.file("conf");
  CConfManager store;
  ASSERT_EQ(Load(store, path, "A=1\n"), 1);
  ASSERT_TRUE(WriteFile(path, "A=2\n"));
  Touch(path, 5);
  ASSERT_EQ(symlink(tmp.file("no/such/dir").c_str(), tmp.file("conf_lock").c_str()), 0);
  testing::internal::CaptureStderr();
  EXPECT_EQ(store.fReFresh(), 0);
  EXPECT_EQ(testing::internal::GetCapturedStderr(),
            path + " conf file lock failed(file reload) : No such file or directory\n");
  EXPECT_EQ(Opt(store, "A"), "1");
}

TEST(CConfManager, ReFreshOfAnUnreadableFileEmptiesTheStore) {
  TempDir tmp;
  const std::string path = tmp.file("conf");
  CConfManager store;
  ASSERT_EQ(Load(store, path, "A=1\n"), 1);
  ASSERT_EQ(unlink(path.c_str()), 0);
  ASSERT_EQ(mkdir(path.c_str(), 0700), 0);  // stat works, reading does not
  Touch(path, 5);
  EXPECT_EQ(store.fReFresh(), 0);
  EXPECT_EQ(Opt(store, "A"), kNull);
  EXPECT_FALSE(FileExists(tmp.file("conf_lock")));
}

TEST(CConfManager, AddedOptionsLiveBesideTheReadBuffer) {
  TempDir tmp;
  CConfManager store;
  ASSERT_EQ(Load(store, tmp.file("conf"), "A=1\nB=2\n"), 1);
  EXPECT_EQ(store.fAddOpt(C("C"), C("3")), 1);
  EXPECT_EQ(store.fAddOpt(C("A"), C("shadowed")), 2);  // a second entry, hidden by the read buffer
  EXPECT_EQ(store.fGetOptCount(), 4);
  EXPECT_EQ(Opt(store, "C"), "3");
  EXPECT_EQ(Opt(store, "A"), "1");

  // Positions: read buffer indices first, then added ones after its size.
  const char* keys[] = {"A", "B", "C", "A"};
  const char* values[] = {"1", "2", "3", "shadowed"};
  for (int pos = 1; pos <= 4; ++pos) {
    SCOPED_TRACE(pos);
    EXPECT_STREQ(store.fGetKey(pos), keys[pos - 1]);
    EXPECT_STREQ(store.fGetOpt(pos), values[pos - 1]);
  }
  EXPECT_EQ(store.fGetOpt(5), nullptr);
  EXPECT_EQ(store.fGetKey(0), nullptr);

  EXPECT_EQ(store.fUpdateOpt(C("C"), C("33")), 1);
  EXPECT_EQ(Opt(store, "C"), "33");
  EXPECT_EQ(store.fUpdateOpt(C("A"), C("11")), 1);  // the read buffer's entry
  EXPECT_STREQ(store.fGetOpt(4), "shadowed");
  EXPECT_EQ(store.fUpdateOpt(C("Z"), C("1")), 0);
  EXPECT_EQ(Opt(store, "Z"), kNull);
  EXPECT_EQ(store.fGetOptCount(), 4);

  EXPECT_EQ(store.fDeleteOpt(C("A")), 1);
  EXPECT_EQ(Opt(store, "A"), "shadowed");  // now the added entry shows
  EXPECT_EQ(store.fDeleteOpt(C("A")), 1);
  EXPECT_EQ(store.fDeleteOpt(C("A")), 0);
  EXPECT_EQ(store.fDeleteOpt(nullptr), 0);
  EXPECT_EQ(store.fGetOptCount(), 2);
  EXPECT_EQ(store.fRemoveBuffer(), 1);  // C was still only added
  EXPECT_EQ(store.fGetOptCount(), 0);
}

TEST(CConfManager, RefusesOptionsThatWouldNotReadBack) {
  struct Case {
    const char* key;
    const char* value;
    const char* section;
    int result;
  };
  const Case cases[] = {
      {"K", "v", nullptr, 1},
      {"", "v", nullptr, 1},
      {"K", "", nullptr, 1},
      {"K", "a=b # x", nullptr, 1},
      {"K", "[x]", nullptr, 1},
      {"K[1]", "v", nullptr, 1},
      {"\t#K", "v", nullptr, 1},
      {nullptr, "v", nullptr, 0},
      {"K", nullptr, nullptr, 0},
      {"A=B", "v", nullptr, 0},
      {"K\n", "v", nullptr, 0},
      {" K", "v", nullptr, 0},
      {"#K", "v", nullptr, 0},
      {"K", "1\nX=2", nullptr, 0},
      {"K", "[x]", "S", 0},
      {"K[1]", "v", "S", 0},
  };
  TempDir tmp;
  for (const auto& c : cases) {
    SCOPED_TRACE(std::string(c.key ? c.key : "<null>") + "=" + (c.value ? c.value : "<null>"));
    CConfManager store;
    ASSERT_EQ(Load(store, tmp.file("conf"), c.section ? "[S]\nK=0\n" : "K=0\n", c.section), 1);
    EXPECT_EQ(store.fAddOpt(C(c.key), C(c.value)), c.result);
    // The key is there (from the file or just added) exactly when the add
    // was accepted, so the update gives the same answer.
    EXPECT_EQ(store.fUpdateOpt(C(c.key), C(c.value)), c.result);
  }
}

// ---- Rewriting ----

struct RewriteCase {
  const char* name;
  std::string before;
  const char* section;
  std::function<void(CConfManager&)> change;
  std::string after;
};

void RunRewrites(const std::vector<RewriteCase>& cases) {
  TempDir tmp;
  const std::string path = tmp.file("conf");
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    CConfManager store;
    ASSERT_EQ(Load(store, path, c.before, c.section), 1);
    if (c.change) c.change(store);
    const int count = store.fGetOptCount();
    ASSERT_EQ(store.fFileWrite(), 1);
    EXPECT_EQ(ReadFile(path), c.after);
    EXPECT_EQ(ReadFile(path + "_b"), c.before);
    EXPECT_FALSE(FileExists(path + "_"));
    EXPECT_FALSE(FileExists(path + "_lock"));
    EXPECT_EQ(store.fGetOptCount(), count);
    EXPECT_EQ(store.fRemoveBuffer(), 0);  // nothing was left in the added options
  }
}

TEST(CConfManager, RewriteWithoutSection) {
  const std::string v600(600, 'v');
  const std::string k600(600, 'k');
  RunRewrites({
      {"unchanged text stays", "# head\n\n  KEY==value\nB=2\nplain line\n", nullptr, nullptr,
       "# head\n\nKEY=value\nB=2\nplain line\n"},
      {"update", "  KEY==value\n", nullptr, [](CConfManager& s) { s.fUpdateOpt(C("KEY"), C("new")); }, "KEY=new\n"},
      {"delete", "A=1\nB=2\nC=3\n", nullptr, [](CConfManager& s) { s.fDeleteOpt(C("B")); }, "A=1\nC=3\n"},
      {"duplicate written with first value", "K=1\nX=0\nK=2\n", nullptr, nullptr, "K=1\nX=0\nK=1\n"},
      {"additions appended in index order", "A=1\n# tail\n", nullptr,
       [](CConfManager& s) {
         s.fAddOpt(C("N1"), C("x"));
         s.fAddOpt(C("N2"), C("y"));
       },
       "A=1\n# tail\nN1=x\nN2=y\n"},
      {"addition after a last line without newline", "A=1\n# end", nullptr,
       [](CConfManager& s) { s.fAddOpt(C("B"), C("2")); }, "A=1\n# end\nB=2\n"},
      {"ignored KEY= at the end is kept", "A=1\nKEY=", nullptr, nullptr, "A=1\nKEY="},
      {"carriage returns survive", "A=v\r\n# c\r\n", nullptr, nullptr, "A=v\r\n# c\r\n"},
      {"headers are copied", "[S]\nA=1\n", nullptr, [](CConfManager& s) { s.fUpdateOpt(C("A"), C("2")); },
       "[S]\nA=2\n"},
      {"long line kept whole while unchanged", "L=" + v600 + "\nB=2\n", nullptr, nullptr, "L=" + v600 + "\nB=2\n"},
      {"long line rewritten when changed", "L=" + v600 + "\n", nullptr,
       [](CConfManager& s) { s.fUpdateOpt(C("L"), C("short")); }, "L=short\n"},
      {"long line deleted", "L=" + v600 + "\nB=2\n", nullptr, [](CConfManager& s) { s.fDeleteOpt(C("L")); },
       "B=2\n"},
      {"key longer than a piece is kept", k600 + "=1\n", nullptr, nullptr, k600 + "=1\n"},
  });
}

TEST(CConfManager, RewriteWithSection) {
  auto addY = [](CConfManager& s) { s.fAddOpt(C("Y"), C("5")); };
  RunRewrites({
      {"update and add in the section", "[A]\nX=1\n\n[B]\nX=2\n", "A",
       [&](CConfManager& s) {
         s.fUpdateOpt(C("X"), C("9"));
         addY(s);
       },
       "[A]\nX=9\nY=5\n\n[B]\nX=2\n"},
      {"delete only in the section", "[A]\nX=1\nY=2\n[B]\nY=3\n", "A", [](CConfManager& s) { s.fDeleteOpt(C("Y")); },
       "[A]\nX=1\n[B]\nY=3\n"},
      {"closing comments stay with the next section", "[A]\nX=1\n# about B\n\n[B]\nZ=1\n", "A", addY,
       "[A]\nX=1\nY=5\n# about B\n\n[B]\nZ=1\n"},
      {"comment inside the section keeps its place", "[A]\n# x\nX=1\n[B]\n", "A", addY, "[A]\n# x\nX=1\nY=5\n[B]\n"},
      {"section at the end of the file", "[A]\nX=1\n", "A", addY, "[A]\nX=1\nY=5\n"},
      {"first header names another section", "[B]\nX=2\n[A]\nX=1\n[C]\nW=0\n", "A", addY,
       "[B]\nX=2\n[A]\nX=1\nY=5\n[C]\nW=0\n"},
      {"first line is no header", "X=0\n[A]\nX=1\n", "A", addY, "X=0\n[A]\nX=1\nY=5\n"},
      {"section absent", "[B]\nX=2\n", "A", addY, "[B]\nX=2\n[A]\nY=5\n"},
      {"section absent, last line without newline", "[B]\nX=2", "A", addY, "[B]\nX=2\n[A]\nY=5\n"},
      {"empty file", "", "A", addY, "[A]\nY=5\n"},
      {"nothing added, nothing changes", "[B]\nX=2\n[A]\nX=1\n", "A", nullptr, "[B]\nX=2\n[A]\nX=1\n"},
      {"bracket in a value ends the section", "[A]\nX=1\nU=a[0]\nV=1\n", "A", addY, "[A]\nX=1\nY=5\nU=a[0]\nV=1\n"},
  });
}

TEST(CConfManager, RewrittenSectionReadsBack) {
  TempDir tmp;
  const std::string path = tmp.file("conf");
  CConfManager store;
  ASSERT_EQ(Load(store, path, "[A]\nX=1\n\n[B]\nX=2\n", "A"), 1);
  store.fAddOpt(C("Y"), C("5"));
  ASSERT_EQ(store.fFileWrite(), 1);
  CConfManager again;
  ASSERT_EQ(again.fFileInfoSet(C(path.c_str()), C("A")), 1);
  EXPECT_EQ(Opt(again, "X"), "1");
  EXPECT_EQ(Opt(again, "Y"), "5");
  EXPECT_EQ(again.fGetOptCount(), 2);
}

TEST(CConfManager, WriteWithoutTheFileUsesTheBuffers) {
  struct Case {
    const char* section;
    std::string after;
  };
  const Case cases[] = {{nullptr, "B=2\nC=3\nN=9\n"}, {"S", "[S]\nB=2\nC=3\nN=9\n"}};
  for (const auto& c : cases) {
    SCOPED_TRACE(c.section ? c.section : "none");
    TempDir tmp;
    const std::string path = tmp.file("conf");
    CConfManager store;
    ASSERT_EQ(Load(store, path, c.section ? "[S]\nA=1\nB=2\nC=3\n" : "A=1\nB=2\nC=3\n", c.section), 1);
    store.fDeleteOpt(C("A"));
    store.fAddOpt(C("N"), C("9"));
    ASSERT_EQ(unlink(path.c_str()), 0);
    ASSERT_EQ(store.fFileWrite(), 1);
    EXPECT_EQ(ReadFile(path), c.after);
    EXPECT_EQ(Opt(store, "N"), "9");
  }
  // A store whose file never existed writes what was added.
  TempDir tmp;
  std::string path = tmp.file("new.conf");
  CConfManager store;
  EXPECT_EQ(store.fFileInfoSet(&path[0], nullptr), 0);
  store.fAddOpt(C("A"), C("1"));
  ASSERT_EQ(store.fFileWrite(), 1);
  EXPECT_EQ(ReadFile(path), "A=1\n");
}

TEST(CConfManager, LeftoverTemporaryFileIsEmptiedFirst) {
  TempDir tmp;
  const std::string path = tmp.file("conf");
  ASSERT_TRUE(WriteFile(path + "_", std::string(2000, 'g') + "\nOLD=1\n"));
  CConfManager store;
  ASSERT_EQ(Load(store, path, "A=1\n"), 1);
  ASSERT_EQ(store.fFileWrite(), 1);
  EXPECT_EQ(ReadFile(path), "A=1\n");
  EXPECT_TRUE(FileExists(path + "_b.mv.out"));
  EXPECT_TRUE(FileExists(path + ".mv.out"));
}

TEST(CConfManager, RefusedRewritesLeaveTheFileUnchanged) {
  TempDir tmp;
  const std::string v600(600, 'v');
  struct Case {
    const char* name;
    std::string file;  // relative to tmp
    std::function<void(CConfManager&)> change;
    std::string err;  // expected standard error, "%s" for the file path
  };
  const Case cases[] = {
      {"value too long", "conf", [&](CConfManager& s) { s.fUpdateOpt(C("A"), C(v600.c_str())); },
       "%s conf line too long(file write) : [A]\n"},
      {"added line too long", "conf", [&](CConfManager& s) { s.fAddOpt(C("N"), C(v600.c_str())); },
       "%s conf line too long(file write) : [N]\n"},
      {"line of 512 characters", "conf", [](CConfManager& s) { s.fUpdateOpt(C("A"), C(std::string(509, 'x').c_str())); },
       "%s conf line too long(file write) : [A]\n"},
      {"name with a blank", "my conf", nullptr, "%s conf file name not usable(file write) : character the shell would interpret\n"},
      {"name with a semicolon", "conf;x", nullptr, "%s conf file name not usable(file write) : character the shell would interpret\n"},
      {"lock cannot be made", "locked", nullptr, "%s conf file lock failed(file write) : No such file or directory\n"},
  };
  ASSERT_EQ(symlink(tmp.file("no/such/dir").c_str(), tmp.file("locked_lock").c_str()), 0);
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    const std::string path = tmp.file(c.file);
    CConfManager store;
    testing::internal::CaptureStderr();  // the lock failure shows on reading too
    ASSERT_EQ(Load(store, path, "A=1\n# keep\n"), c.file == "locked" ? 0 : 1);
    testing::internal::GetCapturedStderr();
    store.fAddOpt(C("B"), C("2"));
    if (c.change) c.change(store);
    testing::internal::CaptureStderr();
    EXPECT_EQ(store.fFileWrite(), 0);
    std::string err = c.err;
    err.replace(err.find("%s"), 2, path);
    EXPECT_EQ(testing::internal::GetCapturedStderr(), err);
    EXPECT_EQ(ReadFile(path), "A=1\n# keep\n");
    EXPECT_FALSE(FileExists(path + "_b"));
    if (c.file != "locked") {
      EXPECT_FALSE(FileExists(path + "_lock"));
    }
    EXPECT_GE(store.fRemoveBuffer(), 1);  // the added options were not moved
  }
}

TEST(CConfManager, FileNamesUpTo161CharactersCanBeRewritten) {
  TempDir tmp;
  struct Case {
    size_t length;
    int result;
  };
  const Case cases[] = {{161, 1}, {162, 0}};
  for (const auto& c : cases) {
    SCOPED_TRACE(c.length);
    const std::string path = tmp.path() + "/" + std::string(c.length - tmp.path().size() - 1, 'c');
    ASSERT_EQ(path.size(), c.length);
    CConfManager store;
    ASSERT_EQ(Load(store, path, "A=1\n"), 1);
    store.fUpdateOpt(C("A"), C("2"));
    testing::internal::CaptureStderr();
    EXPECT_EQ(store.fFileWrite(), c.result);
    const std::string err = testing::internal::GetCapturedStderr();
    EXPECT_EQ(ReadFile(path), c.result == 1 ? "A=2\n" : "A=1\n");
    EXPECT_EQ(err.empty(), c.result == 1) << err;
  }
}

TEST(CConfManager, WriteOfAStoreWithoutAFileIsRefused) {
  CConfManager store;
  store.fAddOpt(C("A"), C("1"));
  EXPECT_EQ(store.fFileWrite(), 0);
  EXPECT_EQ(store.fRemoveBuffer(), 1);
}

}  // namespace
