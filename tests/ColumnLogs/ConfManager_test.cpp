// The configuration store: the file format, refused reads, the lock, re-reads, the rewrite.
#include <sys/time.h>

#include "ConfManager.h"
#include "TestSupport.h"

char* C(const char* text) { return const_cast<char*>(text); }

std::string Opt(CConfManager& store, const char* key) {  // "<null>" when the key is not there
  return store.fGetOpt(C(key)) != nullptr ? store.fGetOpt(C(key)) : "<null>";
}
std::string Dump(CConfManager& store) {  // "key=value;" of every entry by position
  std::string out;
  for (int pos = 1; pos <= store.fGetOptCount(); ++pos)
    out += std::string(store.fGetKey(pos)) + "=" + store.fGetOpt(pos) + ";";
  return out;
}
int Load(CConfManager& store, const std::string& path, const std::string& content, const char* section = nullptr) {
  EXPECT_TRUE(WriteFile(path, content));
  return store.fFileInfoSet(C(path.c_str()), C(section));
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
  const std::string missing = tmp.file("missing"), locked = tmp.file("locked"), dir = tmp.path();
  const std::string longName = dir + "/" + std::string(1023 - dir.size(), 'n');
  const std::string tooLong = " conf file name too long(file read) : File name too long\n";
  ASSERT_TRUE(WriteFile(locked, "A=1\n"));
  const struct { const char *path, *section; int print; std::string err; } cases[] = {
      {missing.c_str(), nullptr, 1, "[" + missing + "] file open failed : No such file or directory\n"},
      {dir.c_str(), nullptr, 1, "[" + dir + "] file read failed : Is a directory\n"},
      {locked.c_str(), nullptr, 0, locked + " conf file lock failed(file read) : No such file or directory\n"},
      {longName.c_str(), nullptr, 0, longName + tooLong},  // 1024 characters
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.err);
    CConfManager store;
    ASSERT_EQ(Load(store, tmp.file("conf"), "A=1\n"), 1);
    EXPECT_EQ(StderrOf([&] { EXPECT_EQ(store.fFileInfoSet(C(c.path), C(c.section)), 0); }, c.print), c.err);
    EXPECT_EQ(store.fGetOptCount(), 0);
  }
  EXPECT_FALSE(FileExists(missing) || FileExists(missing + "_lock"));
}

// The one slow test: a dead process's lock file holds the store up for LOCK_WAITS seconds, then is taken over.
TEST(CConfManager, TakesOverAStaleLockAfterTenSeconds) {
  TempDir tmp;
  ASSERT_TRUE(WriteFile(tmp.file("conf_lock"), "999999"));
  CConfManager store;
  const auto start = std::chrono::steady_clock::now();
  EXPECT_EQ(Load(store, tmp.file("conf"), "A=1\n"), 1);
  const double waited = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
  EXPECT_TRUE(waited >= 9.5 && waited < 15.0) << waited << " s";
  EXPECT_EQ(Opt(store, "A"), "1");
  EXPECT_FALSE(FileExists(tmp.file("conf_lock")));
}

// Lookups take a key's first entry; the file is read again only when its time changed or the buffers were emptied.
TEST(CConfManager, FirstEntryWinsAndReFreshReadsOnlyAChangedFile) {
  TempDir tmp;
  const std::string path = tmp.file("conf");
  CConfManager store;
  ASSERT_EQ(Load(store, path, "A=1\nB=2\nA=dup\n"), 1);
  EXPECT_EQ(Opt(store, "A") + Opt(store, "B") + Opt(store, "C"), "12<null>");
  EXPECT_EQ(store.fReFresh(), 0);
  EXPECT_EQ(store.fRemoveBuffer(), 0);
  EXPECT_EQ(store.fReFresh(), 1);
  ASSERT_TRUE(WriteFile(path, "A=2\n"));
  const struct timeval later[2] = {{time(nullptr) + 5, 0}, {time(nullptr) + 5, 0}};
  ASSERT_EQ(utimes(path.c_str(), later), 0);
  EXPECT_EQ(store.fReFresh(), 1);
  EXPECT_EQ(Opt(store, "A"), "2");
  ASSERT_EQ(unlink(path.c_str()), 0);
  EXPECT_EQ(store.fReFresh(), 0);
  EXPECT_EQ(Opt(store, "A"), "2");
}

// The rewrite changes only what the store changed, over a left temporary file, keeping the old file as "_b".
TEST(CConfManager, RewriteChangesOnlyWhatTheStoreChanged) {
  TempDir tmp;
  const std::string path = tmp.file("conf"), before = "[A]\nX=1\nW=2\n# about B\n\n[B]\nX=2\nW=3\n";
  CConfManager store;
  ASSERT_EQ(Load(store, path, before, "A"), 1);
  EXPECT_EQ(store.fUpdateOpt(C("X"), C("9")) + store.fDeleteOpt(C("W")), 2);
  store.fAddOpt(C("Y"), C("5"));
  EXPECT_EQ(store.fAddOpt(C("K"), C("[x]")) + store.fAddOpt(C("K\n"), C("v")), 0);
  ASSERT_TRUE(WriteFile(path + "_", std::string(2000, 'g') + "\nOLD=1\n"));
  ASSERT_EQ(store.fFileWrite(), 1);
  EXPECT_EQ(ReadFile(path), "[A]\nX=9\nY=5\n# about B\n\n[B]\nX=2\nW=3\n");
  EXPECT_EQ(ReadFile(path + "_b"), before);
  EXPECT_FALSE(FileExists(path + "_") || FileExists(path + "_lock"));
}

// At the end of the file: a section that runs to it keeps its closing lines before the added options,
// and a last "KEY=" without a line end (never loaded) is a key line like any other.
TEST(CConfManager, RewriteAtTheEndOfTheFile) {
  const struct { const char *name, *section, *add; std::string before, after; } cases[] = {
      {"section to the end", "A", "N", "[A]\nK=1\n# end\n\n", "[A]\nK=1\n# end\n\nN=2\n"},
      {"bare last key left out", nullptr, nullptr, "A=1\nLAST=", "A=1\n"},
      {"bare last key of a held key", nullptr, nullptr, "LAST=x\nA=1\nLAST=", "LAST=x\nA=1\nLAST=x\n"},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    TempDir tmp;
    CConfManager store;
    ASSERT_EQ(Load(store, tmp.file("conf"), c.before, c.section), 1);
    if (c.add != nullptr) store.fAddOpt(C(c.add), C("2"));
    ASSERT_EQ(store.fFileWrite(), 1);
    EXPECT_EQ(ReadFile(tmp.file("conf")), c.after);
  }
}
