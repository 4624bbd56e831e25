// File and process helpers the agent does not call: address check, directory making, file name search.

#include "CommonFunc.h"
#include "TestSupport.h"

TEST(FileUtil, IPCheckAcceptsDottedQuadsByTheirLeadingNumbers) {
  const struct { const char* text; int expected; } cases[] = {
      {"255.255.255.255", 1}, {"256.1.1.1", 0}, {"1.1.1.256", 0}, {"1.2.3", 0}, {"1.2.-1.4", 0},
      {"...", 1},               // four empty parts, all 0
      {"255x.1.1.1", 1},        // only the first three characters are looked at
      {"1.2.3.4x", 0},          // a letter among the last part's first three characters
      {"255.255.255.255 ", 0},  // 16 characters, too long whatever they hold
  };
  for (const auto& c : cases) {
    std::string text = c.text;
    EXPECT_EQ(fgIPCheck(&text[0]), c.expected) << c.text;
    EXPECT_EQ(text, c.text);
  }
  EXPECT_EQ(fgIPCheck(nullptr), 0);
}

// Missing ancestors are made with mode 0770, an existing directory is left alone; the search skips hidden names.
TEST(FileUtil, MakesMissingAncestorsAndFindsFileNames) {
  TempDir tmp;
  const mode_t mask = Umask();
  const std::string old = std::filesystem::current_path();
  ASSERT_EQ(chdir(tmp.path().c_str()), 0);
  for (std::string path : {tmp.file("a/b/c/"), std::string("d/e")}) EXPECT_EQ(fgMakeDirectory(&path[0]), 1) << path;
  for (const char* dir : {"a", "a/b", "a/b/c", "d", "d/e"}) EXPECT_EQ(FileMode(dir), S_IFDIR | (0770 & ~mask)) << dir;
  ASSERT_EQ(chmod("a", 0700), 0);
  std::string existing = "a", file = "a/plain/sub";
  EXPECT_EQ(fgMakeDirectory(&existing[0]), 1);
  EXPECT_EQ(FileMode("a"), S_IFDIR | 0700);
  ASSERT_TRUE(WriteFile("a/plain", "x") && WriteFile(".old.log", "") && WriteFile("app.log", ""));
  EXPECT_EQ(fgMakeDirectory(&file[0]), -1);
  EXPECT_EQ(fgMakeDirectory(nullptr), -1);
  for (const auto& [pattern, expected] : {std::pair<std::string, std::string>{"*.log", "app.log"}, {".*", ""},
                                          {"APP.LOG", ""}}) {
    char name[256] = "";
    EXPECT_EQ(fgFindFileName(const_cast<char*>(pattern.c_str()), name), expected.empty() ? 0 : 1) << pattern;
    EXPECT_EQ(std::string(name), expected);
  }
  ASSERT_EQ(chdir(old.c_str()), 0);
}
