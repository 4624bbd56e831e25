#include "NString.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "CommonConst.h"
#include "TestSupport.h"

namespace {

using testsupport::Readable;
using testsupport::Sep;

// Walks `text` to the end; "<null>" marks the final null result.
template <typename Tok>
std::vector<std::string> Walk(std::string text, const char* delim, Tok tok) {
  std::vector<std::string> tokens;
  char* save = nullptr;
  char* token = tok(&text[0], delim, &save);
  for (int guard = 0; token != nullptr && guard < 20; ++guard) {
    tokens.push_back(Readable(token));
    token = tok(nullptr, delim, &save);
  }
  tokens.push_back("<null>");
  return tokens;
}

TEST(Nstrtok, SplitsAtRunsOfDelimiters) {
  struct Case {
    const char* text;
    std::vector<std::string> tokens;
  };
  const Case cases[] = {
      {"a=b", {"a", "b", "<null>"}},
      {"key==value", {"key", "value", "<null>"}},
      {"=x", {"", "x", "<null>"}},
      {"a=b=c", {"a", "b", "c", "<null>"}},
      {"a=", {"a", "", "<null>"}},
      {"a===", {"a", "", "<null>"}},
      {"abc", {"abc", "<null>"}},
      {"", {"", "<null>"}},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.text);
    EXPECT_EQ(Walk(c.text, "=", Nstrtok), c.tokens);
  }
}

TEST(Nstrtok, SavePointerMarksTheValueOfAKeyLine) {
  char line[] = "KEY==a=b\n";
  char* save = nullptr;
  char* key = Nstrtok(line, "=", &save);
  EXPECT_STREQ(key, "KEY");
  EXPECT_STREQ(save, "a=b\n");
  // A delimiter set of several characters collapses mixed runs.
  char mixed[] = "a,;,b";
  EXPECT_STREQ(Nstrtok(mixed, ",;", &save), "a");
  EXPECT_STREQ(save, "b");
}

TEST(Nstrtok, NullStringAndNullSaveGiveNullAndKeepTheSavePointer) {
  char* save = nullptr;
  EXPECT_EQ(Nstrtok(nullptr, "=", &save), nullptr);
  EXPECT_EQ(save, nullptr);
}

TEST(Nstrstrtok, SplitsAtTheWholeSeparator) {
  struct Case {
    std::string text;
    std::string sep;
    std::vector<std::string> tokens;
  };
  const Case cases[] = {
      {"a{~}b", SEP_TILDE, {"a", "b", "<null>"}},
      {"a{~}b{~}", SEP_TILDE, {"a", "b", "", "<null>"}},
      {"a{~}{~}b", SEP_TILDE, {"a", "", "b", "<null>"}},
      {"a{|}b", SEP_TILDE, {"a{|}b", "<null>"}},  // the other separator is text
      {"abc", SEP_BAR, {"abc", "<null>"}},
      {"xssyss", "ss", {"x", "y", "", "<null>"}},
      {"a\x03\x1f" "b", SEP_TILDE, {"a\x03\x1f" "b", "<null>"}},  // a partial separator is text
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.text);
    EXPECT_EQ(Walk(Sep(c.text), c.sep.c_str(), Nstrstrtok), c.tokens);
  }
}

TEST(Nstrstrtok, EmptySeparatorReturnsTheWholeStringAndStays) {
  char text[] = "abc";
  char* save = nullptr;
  EXPECT_EQ(Nstrstrtok(text, "", &save), text);
  EXPECT_EQ(save, text);
  EXPECT_STREQ(text, "abc");
}

TEST(Nstrstrtok, NestedWalksWithTwoSavePointers) {
  std::string value = Sep("1{~}10{|}2{~}20{|}");
  std::vector<std::string> pairs;
  char* outer = nullptr;
  for (char* entry = Nstrstrtok(&value[0], SEP_BAR, &outer); entry != nullptr && *entry != '\0';
       entry = Nstrstrtok(nullptr, SEP_BAR, &outer)) {
    char* inner = nullptr;
    const char* level = Nstrstrtok(entry, SEP_TILDE, &inner);
    const char* count = Nstrstrtok(nullptr, SEP_TILDE, &inner);
    pairs.push_back(std::string(level) + ":" + count);
  }
  EXPECT_EQ(pairs, (std::vector<std::string>{"1:10", "2:20"}));
}

// Walks a line column by column with NstrOnetok or NstrDoubletok.
std::vector<std::string> Columns(const std::string& line, char d1, char d2, bool twoDelims) {
  std::string src = line;
  std::vector<char> dest(src.size() + 1, 'X');
  std::vector<std::string> cols;
  char* pos = &src[0];
  for (int guard = 0; guard < 20; ++guard) {
    char* next = nullptr;
    const int used = twoDelims ? NstrDoubletok(dest.data(), pos, d1, d2, &next) : NstrOnetok(dest.data(), pos, d1, &next);
    if (used == 0) {
      cols.push_back("<0:" + std::string(dest.data()) + ">");
      break;
    }
    cols.push_back(std::string(dest.data()) + "/" + std::to_string(used));
    pos = next;
  }
  return cols;
}

TEST(NstrOnetok, CutsColumnsAndCountsConsumedCharacters) {
  struct Case {
    const char* line;
    char delim;
    std::vector<std::string> cols;
  };
  const Case cases[] = {
      {"a,,b", ',', {"a/2", "/1", "b/1", "<0:>"}},
      {"a,", ',', {"a/2", "<0:>"}},
      {",a", ',', {"/1", "a/1", "<0:>"}},
      {"", ',', {"<0:>"}},
      {"abc", ',', {"abc/3", "<0:>"}},
      {"a b", ' ', {"a/2", "b/1", "<0:>"}},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.line);
    EXPECT_EQ(Columns(c.line, c.delim, c.delim, false), c.cols);
  }
}

TEST(NstrOnetok, NullSourceChangesNothing) {
  char dest[] = "keep";
  char* next = dest;
  EXPECT_EQ(NstrOnetok(dest, nullptr, ',', &next), 0);
  EXPECT_STREQ(dest, "keep");
  EXPECT_EQ(next, dest);
}

TEST(NstrDoubletok, EitherDelimiterEndsAColumn) {
  struct Case {
    const char* line;
    std::vector<std::string> cols;
  };
  const Case cases[] = {
      {"a,b;c", {"a/2", "b/2", "c/1", "<0:>"}},
      {"a;,b", {"a/2", "/1", "b/1", "<0:>"}},
      {";", {"/1", "<0:>"}},
      {"", {"<0:>"}},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.line);
    EXPECT_EQ(Columns(c.line, ',', ';', true), c.cols);
  }
}

TEST(Nisdigit, DigitsWithAnOptionalLeadingSign) {
  struct Case {
    const char* text;
    int expected;
  };
  const Case cases[] = {
      {"-12", 1}, {"+7", 1}, {"-", 1},   {"007", 1}, {"0", 1},    {"", 0},
      {"1.5", 0}, {" 3", 0}, {"12a", 0}, {"1-2", 0}, {"--1", 0},  {"+", 1},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.text);
    EXPECT_EQ(Nisdigit(c.text), c.expected);
  }
  EXPECT_EQ(Nisdigit(nullptr), 0);
}

TEST(NCutQmark, StartsAfterTheFirstQuoteAndCutsAtTheNextBlank) {
  struct Case {
    const char* text;
    const char* expected;
  };
  const Case cases[] = {
      {"\"abc\" def", "abc\""},
      {"x \"abc", "abc"},
      {"\"a b c", "a"},
      {"\"\"", "\""},
      {"\"", ""},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.text);
    std::string text = c.text;
    EXPECT_STREQ(NCutQmark(&text[0]), c.expected);
  }
}

TEST(NCutQmark, WithoutAQuoteReturnsTheSameUntouchedString) {
  char text[] = "no quote here";
  EXPECT_EQ(NCutQmark(text), text);
  EXPECT_STREQ(text, "no quote here");
  EXPECT_EQ(NCutQmark(nullptr), nullptr);
}

}  // namespace
