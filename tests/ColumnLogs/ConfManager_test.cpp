#include "ConfManager.h"

#include <sys/stat.h>
#include <sys/time.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include <chrono>
#include <ctime>
#include <functional>
#include <string>
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

// "key=value;" of every entry by position.
std::string Dump(CConfManager& store) {
  std::string out;
  for (int pos = 1; pos <= store.fGetOptCount(); ++pos) {
    const char* key = store.fGetKey(pos);
    const char* value = store.fGetOpt(pos);
    out += std::string(key ? key : kNull) + "=" + (value ? value : kNull) + ";";
  }
  return out;
}

// Reads `content` from a fresh file into `store`; returns fFileInfoSet's result.
int Load(CConfManager& store, const std::string& path, const std::string& content, const char* section = nullptr) {
  EXPECT_TRUE(WriteFile(path, content));
  return store.fFileInfoSet(C(path.c_str()), C(section));
}

// Moves the file's modification time away from what the store recorded.
void Touch(const std::string& path, int secondsAhead) {
  const struct timeval when = {time(nullptr) + secondsAhead, 0};
  const struct timeval times[2] = {when, when};
  ASSERT_EQ(utimes(path.c_str(), times), 0);
}

// What `call` writes to standard error while console tracing is `print`.
std::string Stderr(int print, const std::function<void()>& call) {
  const int old = g_nPrint;
  g_nPrint = print;
  testing::internal::CaptureStderr();
  call();
  g_nPrint = old;
  return testing::internal::GetCapturedStderr();
}

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
  ASSERT_TRUE(WriteFile(tmp.file("locked"), "A=1\n"));
  const std::string missing = tmp.file("missing"), locked = tmp.file("locked"), dir = tmp.path();
  const std::string longName = dir + "/" + std::string(1023 - dir.size(), 'n');  // 1024 characters
  const std::string longSection(256, 's');
  const std::string tooLong = " conf file name too long(file read) : File name too long\n";
  const struct { const char* name; const char* path; const char* section; int print; std::string err; } cases[] = {
      {"null file", nullptr, nullptr, 1, ""},
      {"missing file, quiet", missing.c_str(), nullptr, 0, ""},
      {"missing file, traced", missing.c_str(), nullptr, 1,
       "[" + missing + "] file open failed : No such file or directory\n"},
      {"a directory", dir.c_str(), nullptr, 1, "[" + dir + "] file read failed : Is a directory\n"},
      {"lock cannot be made", locked.c_str(), nullptr, 0,
       locked + " conf file lock failed(file read) : No such file or directory\n"},
      {"name too long", longName.c_str(), nullptr, 0, longName + tooLong},
      {"section name too long", locked.c_str(), longSection.c_str(), 0, locked + tooLong},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
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
  CConfManager store;
  ASSERT_EQ(Load(store, path, "A=1\n"), 1);
  EXPECT_EQ(store.fReFresh(), 0);
  EXPECT_EQ(store.fRemoveBuffer(), 0);
  EXPECT_EQ(store.fReFresh(), 1);
  ASSERT_TRUE(WriteFile(path, "A=2\n"));
  Touch(path, 5);
  EXPECT_EQ(store.fReFresh(), 1);
  EXPECT_EQ(Opt(store, "A"), "2");

  ASSERT_TRUE(WriteFile(path, "A=3\n"));
  Touch(path, 10);
  ASSERT_EQ(symlink(tmp.file("no/such/dir").c_str(), lock.c_str()), 0);
  EXPECT_EQ(Stderr(0, [&] { EXPECT_EQ(store.fReFresh(), 0); }),
            path + " conf file lock failed(file reload) : No such file or directory\n");
  ASSERT_EQ(unlink(lock.c_str()), 0);
  ASSERT_EQ(unlink(path.c_str()), 0);
  EXPECT_EQ(store.fReFresh(), 0);
  EXPECT_EQ(Opt(store, "A"), "2");
  ASSERT_EQ(mkdir(path.c_str(), 0700), 0);
  Touch(path, 15);
  EXPECT_EQ(store.fReFresh(), 0);
  EXPECT_EQ(store.fGetOptCount(), 0);
  EXPECT_FALSE(FileExists(lock));
}

// Lookups, updates and deletions take the first entry with the key, the
// read buffer's before the added options; positions of added options follow
// the read buffer's.
TEST(CConfManager, TheFirstEntryOfAKeyWins) {
  TempDir tmp;
  CConfManager store;
  ASSERT_EQ(Load(store, tmp.file("conf"), "A=1\nB=2\nA=dup\n"), 1);
  EXPECT_EQ(store.fAddOpt(C("A"), C("added")), 1);
  EXPECT_EQ(store.fAddOpt(C("C"), C("3")), 2);
  EXPECT_EQ(Dump(store), "A=1;B=2;A=dup;A=added;C=3;");
  EXPECT_EQ(store.fGetOpt(6), nullptr);
  EXPECT_EQ(store.fUpdateOpt(C("A"), C("11")), 1);
  EXPECT_EQ(store.fUpdateOpt(C("C"), C("33")), 1);
  EXPECT_EQ(store.fUpdateOpt(C("Z"), C("1")), 0);
  EXPECT_EQ(Dump(store), "A=11;B=2;A=dup;A=added;C=33;");
  std::string uncovered;  // each deletion uncovers the next entry with the key
  for (int i = 0; i < 5 && store.fDeleteOpt(C("A")) == 1; ++i) uncovered += Opt(store, "A") + " ";
  EXPECT_EQ(uncovered, std::string("dup added ") + kNull + " ");
  EXPECT_EQ(store.fRemoveBuffer(), 1);  // C was still only added
}

TEST(CConfManager, RefusesOptionsThatWouldNotReadBack) {
  const struct { const char* key; const char* value; const char* section; int result; } cases[] = {
      {"", "", nullptr, 1},          {"K", "a=b # x", nullptr, 1}, {"K[1]", "[x]", nullptr, 1},
      {"\t#K", "v", nullptr, 1},     {nullptr, "v", nullptr, 0},   {"K", nullptr, nullptr, 0},
      {"A=B", "v", nullptr, 0},      {"K\n", "v", nullptr, 0},     {" K", "v", nullptr, 0},
      {"#K", "v", nullptr, 0},       {"K", "1\nX=2", nullptr, 0},  {"K", "[x]", "S", 0},
      {"K[1]", "v", "S", 0},
  };
  TempDir tmp;
  for (const auto& c : cases) {
    SCOPED_TRACE(std::string(c.key ? c.key : kNull) + "=" + (c.value ? c.value : kNull));
    CConfManager store;
    ASSERT_EQ(Load(store, tmp.file("conf"), c.section ? "[S]\nK=0\n" : "K=0\n", c.section), 1);
    EXPECT_EQ(store.fAddOpt(C(c.key), C(c.value)), c.result);
    // The key is there (from the file or just added) exactly when the add
    // was accepted, so the update gives the same answer.
    EXPECT_EQ(store.fUpdateOpt(C(c.key), C(c.value)), c.result);
  }
}

// ---- Rewriting ----

void Set(CConfManager& s, const char* key, const char* value) { s.fUpdateOpt(C(key), C(value)); }
void Add(CConfManager& s, const char* key, const char* value) { s.fAddOpt(C(key), C(value)); }
void Del(CConfManager& s, const char* key) { s.fDeleteOpt(C(key)); }

// Every rewrite goes through a path of 161 characters, the longest one the
// shell commands of a rewrite take.
TEST(CConfManager, RewriteChangesOnlyWhatTheStoreChanged) {
  const std::string v600(600, 'v'), k600(600, 'k'), x508(508, 'x');
  auto addY = [](CConfManager& s) { Add(s, "Y", "5"); };
  const struct {
    const char* name;
    const char* section;
    std::string before;
    std::function<void(CConfManager&)> change;
    std::string after;
  } cases[] = {
      {"untouched text stays", nullptr, "[S]\n# head\n\n  KEY==value\nplain line\nA=v\r\n", nullptr,
       "[S]\n# head\n\nKEY=value\nplain line\nA=v\r\n"},
      {"update, delete, additions in index order", nullptr, "A=1\nB=2\nC=3\n# tail\n",
       [](CConfManager& s) { Set(s, "A", "new"), Del(s, "B"), Add(s, "N1", "x"), Add(s, "N2", "y"); },
       "A=new\nC=3\n# tail\nN1=x\nN2=y\n"},
      {"duplicate written with the first value", nullptr, "K=1\nX=0\nK=2\n", nullptr, "K=1\nX=0\nK=1\n"},
      {"ignored KEY= at the end is kept", nullptr, "A=1\nKEY=", nullptr, "A=1\nKEY="},
      {"line of 511 characters", nullptr, "A=1\n", [&](CConfManager& s) { Set(s, "A", x508.c_str()); },
       "A=" + x508 + "\n"},
      {"long lines kept whole while unchanged", nullptr, "L=" + v600 + "\n" + k600 + "=1\n", nullptr,
       "L=" + v600 + "\n" + k600 + "=1\n"},
      {"long lines rewritten or deleted", nullptr, "L=" + v600 + "\nM=" + v600 + "\nB=2\n",
       [](CConfManager& s) { Set(s, "L", "short"), Del(s, "M"); }, "L=short\nB=2\n"},
      {"section: only it changes; closing comments stay with the next", "A",
       "[A]\nX=1\nW=2\n# about B\n\n[B]\nX=2\nW=3\n",
       [](CConfManager& s) { Set(s, "X", "9"), Del(s, "W"), Add(s, "Y", "5"); },
       "[A]\nX=9\nY=5\n# about B\n\n[B]\nX=2\nW=3\n"},
      {"section: a comment inside keeps its place", "A", "[A]\n# x\nX=1\n[B]\n", addY, "[A]\n# x\nX=1\nY=5\n[B]\n"},
      {"section: at the end of the file", "A", "[A]\nX=1\n", addY, "[A]\nX=1\nY=5\n"},
      {"section: first header names another", "A", "[B]\nX=2\n[A]\nX=1\n[C]\nW=0\n", addY,
       "[B]\nX=2\n[A]\nX=1\nY=5\n[C]\nW=0\n"},
      {"section: absent, last line without newline", "A", "[B]\nX=2", addY, "[B]\nX=2\n[A]\nY=5\n"},
      {"section: absent, nothing added", "A", "[B]\nX=2\n", nullptr, "[B]\nX=2\n"},
      {"section: a bracket in a value ends it", "A", "[A]\nX=1\nU=a[0]\nV=1\n", addY,
       "[A]\nX=1\nY=5\nU=a[0]\nV=1\n"},
  };
  TempDir tmp;
  const std::string path = tmp.path() + "/" + std::string(160 - tmp.path().size(), 'c');
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
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

// A file removed after reading is written from the buffers alone; a store
// never bound to a file refuses.
TEST(CConfManager, WriteWithoutTheFileUsesTheBuffers) {
  TempDir tmp;
  const std::string path = tmp.file("conf");
  CConfManager store, unbound;
  ASSERT_EQ(Load(store, path, "[S]\nA=1\nB=2\n", "S"), 1);
  Del(store, "A");
  Add(store, "N", "9");
  ASSERT_EQ(unlink(path.c_str()), 0);
  ASSERT_EQ(store.fFileWrite(), 1);
  EXPECT_EQ(ReadFile(path), "[S]\nB=2\nN=9\n");
  Add(unbound, "A", "1");
  EXPECT_EQ(unbound.fFileWrite(), 0);
}

// A temporary file left by an interrupted rewrite is emptied first, and the
// rewritten section reads back.
TEST(CConfManager, RewriteOverALeftoverTemporaryFileReadsBack) {
  TempDir tmp;
  const std::string path = tmp.file("conf");
  ASSERT_TRUE(WriteFile(path + "_", std::string(2000, 'g') + "\nOLD=1\n"));
  CConfManager store, again;
  ASSERT_EQ(Load(store, path, "[A]\nX=1\n\n[B]\nX=2\n", "A"), 1);
  Add(store, "Y", "5");
  ASSERT_EQ(store.fFileWrite(), 1);
  EXPECT_EQ(ReadFile(path), "[A]\nX=1\nY=5\n\n[B]\nX=2\n");
  EXPECT_TRUE(FileExists(path + "_b.mv.out") && FileExists(path + ".mv.out"));
  ASSERT_EQ(again.fFileInfoSet(C(path.c_str()), C("A")), 1);
  EXPECT_EQ(Dump(again), "X=1;Y=5;");
}

TEST(CConfManager, RefusedRewritesLeaveTheFileUnchanged) {
  TempDir tmp;
  const std::string x509(509, 'x');
  const std::string name162(161 - tmp.path().size(), 'c');  // with the directory: 162 characters
  const struct {
    std::string file;  // relative to tmp
    std::function<void(CConfManager&)> change;
    std::string err;  // expected standard error after the path
  } cases[] = {
      {"conf", [&](CConfManager& s) { Set(s, "A", x509.c_str()); }, " conf line too long(file write) : [A]\n"},
      {"conf", [&](CConfManager& s) { Add(s, "N", x509.c_str()); }, " conf line too long(file write) : [N]\n"},
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
    if (c.change) c.change(store);
    EXPECT_EQ(Stderr(0, [&] { EXPECT_EQ(store.fFileWrite(), 0); }), path + c.err);
    EXPECT_EQ(ReadFile(path), "A=1\n# keep\n");
    EXPECT_FALSE(FileExists(path + "_b"));
    EXPECT_EQ(FileExists(path + "_lock"), c.file == "locked");
    EXPECT_GE(store.fRemoveBuffer(), 1);  // the added options were not moved
  }
}

}  // namespace
