#include "ConfManager.h"

#include <sys/stat.h>
#include <sys/time.h>
#include <unistd.h>

#include <chrono>
#include <ctime>
#include <functional>
#include <string>

#include <gtest/gtest.h>

#include "OmniLog.h"
#include "TestSupport.h"

namespace {

using namespace testsupport;

char* C(const char* text) { return const_cast<char*>(text); }

std::string Opt(CConfManager& store, const char* key) {
  const char* value = store.fGetOpt(C(key));
  return value != nullptr ? value : "<null>";
}
// "key=value;" of every entry by position.
std::string Dump(CConfManager& store) {
  std::string out;
  for (int pos = 1; pos <= store.fGetOptCount(); ++pos) out += std::string(store.fGetKey(pos)) + "=" + store.fGetOpt(pos) + ";";
  return out;
}
// Reads `content` from a fresh file into `store`; returns fFileInfoSet's result.
int Load(CConfManager& store, const std::string& path, const std::string& content, const char* section = nullptr) {
  EXPECT_TRUE(WriteFile(path, content));
  return store.fFileInfoSet(C(path.c_str()), C(section));
}
// What `call` writes to standard error while console tracing is `print`.
std::string Stderr(int print, const std::function<void()>& call) {
  g_nPrint = print;
  testing::internal::CaptureStderr();
  call();
  g_nPrint = 0;
  return testing::internal::GetCapturedStderr();
}
void Add(CConfManager& s, const char* key, const char* value) { s.fAddOpt(C(key), C(value)); }

TEST(CConfManager, ReadsTheFileFormatExactly) {
  const std::string v508(508, 'v'), v509(509, 'v'), v600(600, 'v');
  const struct { const char* name; std::string content; const char* section; std::string entries; } cases[] = {
      {"comments, blanks, headers without section", "# c\n\n   \n   # A=2\n[G]\nK=1\n[O]\nK=2\nL=last", nullptr,
       "K=1;K=2;L=last;"},
      {"keys and values as written", "  K =1\n\tT=2\nV= x # y \r\nE==a=b\n=e\nZ=\n", nullptr,
       "K =1;\tT=2;V= x # y \r;E=a=b;=e;Z=;"},
      {"KEY= at end of file ignored", "A=1\nKEY=", nullptr, "A=1;"},
      {"line cut at 510", "K=" + v600 + "\nB=2\n", nullptr, "K=" + v508 + ";B=2;"},
      {"second piece is a line", "K=" + v508 + "X=y\n", nullptr, "K=" + v508 + ";X=y;"},
      {"section: cut at 511", "[A]\nK=" + v600 + "\n", "A", "K=" + v509 + ";"},
      {"section: up to the next header", "# c\n[A\n  [A] main\nX=1\n# [B]\nY=2\n[B]\nZ=3\n", "A", "X=1;Y=2;"},
      {"section: bracket in a value ends it", "[A]\nX=1\nU=a[0]\nY=2\n", "A", "X=1;"},
      {"section: first header names another", "[AB]\nX=1\n[A]\nY=2\n", "A", ""},
      {"section: first line is no header", "\n[A]\nX=1\n", "A", ""},
      {"empty section name means none", "[A]\nX=1\n[B]\nZ=3\n", "", "X=1;Z=3;"},
  };
  TempDir tmp;
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    CConfManager store;
    ASSERT_EQ(Load(store, tmp.file("conf"), c.content, c.section), 1);
    EXPECT_EQ(Dump(store), c.entries);
    EXPECT_FALSE(FileExists(tmp.file("conf_lock")));
  }
}

// A refused read also empties what an earlier read loaded.
TEST(CConfManager, RefusedReadsEmptyTheStore) {
  TempDir tmp;
  ASSERT_EQ(symlink(tmp.file("no/such/dir").c_str(), tmp.file("locked_lock").c_str()), 0);
  const std::string missing = tmp.file("missing"), locked = tmp.file("locked"), dir = tmp.path();
  const std::string longName = dir + "/" + std::string(1023 - dir.size(), 'n'), longSection(256, 's');
  const std::string tooLong = " conf file name too long(file read) : File name too long\n";
  ASSERT_TRUE(WriteFile(locked, "A=1\n"));
  const struct { const char *path, *section; int print; std::string err; } cases[] = {
      {nullptr, nullptr, 1, ""},
      {missing.c_str(), nullptr, 0, ""},
      {missing.c_str(), nullptr, 1, "[" + missing + "] file open failed : No such file or directory\n"},
      {dir.c_str(), nullptr, 1, "[" + dir + "] file read failed : Is a directory\n"},
      {locked.c_str(), nullptr, 0, locked + " conf file lock failed(file read) : No such file or directory\n"},
      {longName.c_str(), nullptr, 0, longName + tooLong},  // 1024 characters
      {locked.c_str(), longSection.c_str(), 0, locked + tooLong},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.err);
    CConfManager store;
    ASSERT_EQ(Load(store, tmp.file("conf"), "A=1\n"), 1);
    EXPECT_EQ(Stderr(c.print, [&] { EXPECT_EQ(store.fFileInfoSet(C(c.path), C(c.section)), 0); }), c.err);
    EXPECT_EQ(store.fGetOptCount(), 0);
  }
  EXPECT_FALSE(FileExists(missing) || FileExists(missing + "_lock"));
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

// The file is read again only when its modification time changed, or after
// the buffers were emptied. A lock that cannot be made or a vanished file keep
// the entries; an unreadable file empties the store.
TEST(CConfManager, ReFreshReadsOnlyAChangedFile) {
  TempDir tmp;
  const std::string path = tmp.file("conf"), lock = tmp.file("conf_lock");
  const auto touch = [&](int ahead) {
    const struct timeval when[2] = {{time(nullptr) + ahead, 0}, {time(nullptr) + ahead, 0}};
    ASSERT_EQ(utimes(path.c_str(), when), 0);
  };
  CConfManager store;
  ASSERT_EQ(Load(store, path, "A=1\n"), 1);
  EXPECT_EQ(store.fReFresh(), 0);
  EXPECT_EQ(store.fRemoveBuffer(), 0);
  EXPECT_EQ(store.fReFresh(), 1);
  ASSERT_TRUE(WriteFile(path, "A=2\n"));
  touch(5);
  EXPECT_EQ(store.fReFresh(), 1);
  EXPECT_EQ(Opt(store, "A"), "2");
  ASSERT_TRUE(WriteFile(path, "A=3\n"));
  touch(10);
  ASSERT_EQ(symlink(tmp.file("no/such/dir").c_str(), lock.c_str()), 0);
  EXPECT_EQ(Stderr(0, [&] { EXPECT_EQ(store.fReFresh(), 0); }),
            path + " conf file lock failed(file reload) : No such file or directory\n");
  ASSERT_EQ(unlink(lock.c_str()) + unlink(path.c_str()), 0);
  EXPECT_EQ(store.fReFresh(), 0);
  EXPECT_EQ(Opt(store, "A"), "2");
  ASSERT_EQ(mkdir(path.c_str(), 0700), 0);
  touch(15);
  EXPECT_EQ(store.fReFresh(), 0);
  EXPECT_EQ(store.fGetOptCount(), 0);
  EXPECT_FALSE(FileExists(lock));
}

// Lookups, updates and deletions take the first entry with the key, the read
// buffer's before the added options; options that would not read back the
// same are refused.
TEST(CConfManager, TheFirstEntryOfAKeyWinsAndOptionsMustReadBack) {
  TempDir tmp;
  CConfManager store;
  ASSERT_EQ(Load(store, tmp.file("conf"), "A=1\nB=2\nA=dup\n"), 1);
  EXPECT_EQ(store.fAddOpt(C("A"), C("added")), 1);
  EXPECT_EQ(store.fAddOpt(C("C"), C("3")), 2);
  EXPECT_EQ(store.fGetOpt(6), nullptr);
  EXPECT_EQ(store.fUpdateOpt(C("A"), C("11")) + store.fUpdateOpt(C("C"), C("33")), 2);
  EXPECT_EQ(store.fUpdateOpt(C("Z"), C("1")), 0);
  EXPECT_EQ(Dump(store), "A=11;B=2;A=dup;A=added;C=33;");
  std::string uncovered;  // each deletion uncovers the next entry with the key
  for (int i = 0; i < 5 && store.fDeleteOpt(C("A")) == 1; ++i) uncovered += Opt(store, "A") + " ";
  EXPECT_EQ(uncovered, "dup added <null> ");
  EXPECT_EQ(store.fRemoveBuffer(), 1);  // C was still only added

  const struct { const char *key, *value, *section; int result; } cases[] = {
      {"", "", nullptr, 1},          {"K", "a=b # x", nullptr, 1}, {"K[1]", "[x]", nullptr, 1},
      {"\t#K", "v", nullptr, 1},     {nullptr, "v", nullptr, 0},   {"K", nullptr, nullptr, 0},
      {"A=B", "v", nullptr, 0},      {"K\n", "v", nullptr, 0},     {" K", "v", nullptr, 0},
      {"#K", "v", nullptr, 0},       {"K", "1\nX=2", nullptr, 0},  {"K", "[x]", "S", 0},
      {"K[1]", "v", "S", 0},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(std::string(c.key ? c.key : "<null>") + "=" + (c.value ? c.value : "<null>"));
    CConfManager options;
    ASSERT_EQ(Load(options, tmp.file("conf"), c.section ? "[S]\nK=0\n" : "K=0\n", c.section), 1);
    EXPECT_EQ(options.fAddOpt(C(c.key), C(c.value)), c.result);
    // The key is there (from the file or just added) exactly when the add was accepted.
    EXPECT_EQ(options.fUpdateOpt(C(c.key), C(c.value)), c.result);
  }
}

// Every rewrite goes through a path of 161 characters, the longest one the
// shell commands of a rewrite take; the old file is kept as "_b".
TEST(CConfManager, RewriteChangesOnlyWhatTheStoreChanged) {
  const std::string v600(600, 'v'), k600(600, 'k'), x508(508, 'x');
  const auto addY = [](CConfManager& s) { Add(s, "Y", "5"); };
  const struct {
    const char* section;
    std::string before;
    std::function<void(CConfManager&)> change;
    std::string after;
  } cases[] = {
      {nullptr, "[S]\n# head\n\n  KEY==value\nplain line\nA=v\r\n", nullptr,
       "[S]\n# head\n\nKEY=value\nplain line\nA=v\r\n"},
      {nullptr, "A=1\nB=2\nC=3\n# tail\n",
       [](CConfManager& s) { s.fUpdateOpt(C("A"), C("new")), s.fDeleteOpt(C("B")), Add(s, "N1", "x"), Add(s, "N2", "y"); },
       "A=new\nC=3\n# tail\nN1=x\nN2=y\n"},
      {nullptr, "K=1\nX=0\nK=2\n", nullptr, "K=1\nX=0\nK=1\n"},  // a duplicate takes the first value
      {nullptr, "A=1\nKEY=", nullptr, "A=1\nKEY="},
      {nullptr, "A=1\n", [&](CConfManager& s) { s.fUpdateOpt(C("A"), C(x508.c_str())); }, "A=" + x508 + "\n"},
      {nullptr, "L=" + v600 + "\n" + k600 + "=1\n", nullptr, "L=" + v600 + "\n" + k600 + "=1\n"},
      {nullptr, "L=" + v600 + "\nM=" + v600 + "\nB=2\n",
       [](CConfManager& s) { s.fUpdateOpt(C("L"), C("short")), s.fDeleteOpt(C("M")); }, "L=short\nB=2\n"},
      // In a section only it changes; closing comments stay with the next one.
      {"A", "[A]\nX=1\nW=2\n# about B\n\n[B]\nX=2\nW=3\n",
       [](CConfManager& s) { s.fUpdateOpt(C("X"), C("9")), s.fDeleteOpt(C("W")), Add(s, "Y", "5"); },
       "[A]\nX=9\nY=5\n# about B\n\n[B]\nX=2\nW=3\n"},
      {"A", "[A]\n# x\nX=1\n[B]\n", addY, "[A]\n# x\nX=1\nY=5\n[B]\n"},
      {"A", "[A]\nX=1\n", addY, "[A]\nX=1\nY=5\n"},
      {"A", "[B]\nX=2\n[A]\nX=1\n[C]\nW=0\n", addY, "[B]\nX=2\n[A]\nX=1\nY=5\n[C]\nW=0\n"},
      {"A", "[B]\nX=2", addY, "[B]\nX=2\n[A]\nY=5\n"},
      {"A", "[B]\nX=2\n", nullptr, "[B]\nX=2\n"},
      {"A", "[A]\nX=1\nU=a[0]\nV=1\n", addY, "[A]\nX=1\nY=5\nU=a[0]\nV=1\n"},
  };
  TempDir tmp;
  const std::string path = tmp.path() + "/" + std::string(160 - tmp.path().size(), 'c');
  for (const auto& c : cases) {
    SCOPED_TRACE(c.before);
    CConfManager store;
    ASSERT_EQ(Load(store, path, c.before, c.section), 1);
    if (c.change) c.change(store);
    const int count = store.fGetOptCount();
    ASSERT_EQ(store.fFileWrite(), 1);
    EXPECT_EQ(ReadFile(path), c.after);
    EXPECT_EQ(ReadFile(path + "_b"), c.before);
    EXPECT_FALSE(FileExists(path + "_") || FileExists(path + "_lock"));
    EXPECT_EQ(store.fGetOptCount(), count);
    EXPECT_EQ(store.fRemoveBuffer(), 0);  // the added options moved to the read buffer
  }
}

// A file removed after reading is written from the buffers alone; a
// temporary file left by an interrupted rewrite is emptied first; a store
// never bound to a file refuses.
TEST(CConfManager, RewriteWithoutTheFileOrOverALeftoverTemporaryFile) {
  TempDir tmp;
  const std::string path = tmp.file("conf");
  CConfManager store, again, unbound;
  ASSERT_EQ(Load(store, path, "[S]\nA=1\nB=2\n", "S"), 1);
  store.fDeleteOpt(C("A"));
  Add(store, "N", "9");
  ASSERT_EQ(unlink(path.c_str()), 0);
  ASSERT_TRUE(WriteFile(path + "_", std::string(2000, 'g') + "\nOLD=1\n"));
  ASSERT_EQ(store.fFileWrite(), 1);
  EXPECT_EQ(ReadFile(path), "[S]\nB=2\nN=9\n");
  ASSERT_EQ(again.fFileInfoSet(C(path.c_str()), C("S")), 1);
  EXPECT_EQ(Dump(again), "B=2;N=9;");
  Add(unbound, "A", "1");
  EXPECT_EQ(unbound.fFileWrite(), 0);
}

TEST(CConfManager, RefusedRewritesLeaveTheFileUnchanged) {
  TempDir tmp;
  const std::string x509(509, 'x'), name162(161 - tmp.path().size(), 'c');  // with the directory: 162 characters
  const struct {
    std::string file;
    const char* key;  // set to 509 characters
    std::string err;  // expected standard error after the path
  } cases[] = {
      {"conf", "A", " conf line too long(file write) : [A]\n"},
      {"conf", "N", " conf line too long(file write) : [N]\n"},
      {"my conf", nullptr, " conf file name not usable(file write) : character the shell would interpret\n"},
      {name162, nullptr, " conf file name not usable(file write) : File name too long\n"},
      {"locked", nullptr, " conf file lock failed(file write) : No such file or directory\n"},
  };
  ASSERT_EQ(symlink(tmp.file("no/such/dir").c_str(), tmp.file("locked_lock").c_str()), 0);
  for (const auto& c : cases) {
    const std::string path = tmp.file(c.file);
    SCOPED_TRACE(path);
    CConfManager store;
    Stderr(0, [&] { ASSERT_EQ(Load(store, path, "A=1\n# keep\n"), c.file == "locked" ? 0 : 1); });
    Add(store, "B", "2");
    if (c.key != nullptr && store.fUpdateOpt(C(c.key), C(x509.c_str())) == 0) Add(store, c.key, x509.c_str());
    EXPECT_EQ(Stderr(0, [&] { EXPECT_EQ(store.fFileWrite(), 0); }), path + c.err);
    EXPECT_EQ(ReadFile(path), "A=1\n# keep\n");
    EXPECT_FALSE(FileExists(path + "_b"));
    EXPECT_EQ(FileExists(path + "_lock"), c.file == "locked");
    EXPECT_GE(store.fRemoveBuffer(), 1);  // the added options were not moved
  }
}

}  // namespace
