#include "StrPattern.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <cstring>
#include <random>
#include <string>
#include <vector>

namespace {

int Compile(CStrPattern& l_clPattern, std::string l_strPattern) {
  return l_clPattern.fPatternComp(l_strPattern.data());
}

int Match(CStrPattern& l_clPattern, std::string l_strSubject) {
  return l_clPattern.fPatternEx(l_strSubject.data());
}

struct MatchCase {
  const char* pattern;
  const char* subject;
  int expected;
};

void ExpectMatches(const std::vector<MatchCase>& l_vCases) {
  for (const auto& l_stCase : l_vCases) {
    SCOPED_TRACE(std::string("pattern '") + l_stCase.pattern + "' subject '" + l_stCase.subject + "'");
    CStrPattern l_clPattern;
    ASSERT_EQ(Compile(l_clPattern, l_stCase.pattern), 1);
    EXPECT_EQ(Match(l_clPattern, l_stCase.subject), l_stCase.expected);
  }
}

// Fixed-seed generator: the same cases on every run.
class CRandomText {
 public:
  explicit CRandomText(uint32_t l_nSeed) : m_clGen(l_nSeed) {}
  size_t fNumber(size_t l_nFrom, size_t l_nTo) { return l_nFrom + m_clGen() % (l_nTo - l_nFrom + 1); }
  std::string fText(const std::string& l_strAlphabet, size_t l_nMinLen, size_t l_nMaxLen) {
    std::string l_strText(fNumber(l_nMinLen, l_nMaxLen), ' ');
    for (auto& l_ch : l_strText) l_ch = l_strAlphabet[fNumber(0, l_strAlphabet.size() - 1)];
    return l_strText;
  }

 private:
  std::mt19937 m_clGen;
};

TEST(CStrPattern, WorkedExamplesMatch) {
  ExpectMatches({
      {"error", "disk error 5", 1},
      {"error", "Error", 0},
      {"^ERR", "ERR: x", 1},
      {"^ERR", "x ERR", 0},
      {"fail$", "disk fail", 1},
      {"fail$", "failed", 0},
      {"^a.*z$", "abcz", 1},
      {"^a.*z$", "za", 0},
      {"warn|error", "an error", 1},
      {"warn|error", "a warning", 1},
      {"warn|error", "info", 0},
      {"1\\.*2", "x1.*2y", 1},
      {"1\\.*2", "1ab2", 0},
      {"(disk)&(full)", "disk is full", 1},
      {"(disk)&(full)", "disk ok", 0},
      {"(NOT:debug)&(error)", "error in debug", 0},
      {"(NOT:debug)&(error)", "error", 1},
      {"(a)&(b)|(c)", "c", 0},
      {"(a)&(b)|(c)", "ac", 1},
      {"x(a)", "a", 1},
  });
}

TEST(CStrPattern, LanguageEdgeCases) {
  ExpectMatches({
      {"", "a", 0},                       // the empty pattern never matches
      {"()", "a", 0},
      {"a&b", "xa&by", 1},                // '&' without parentheses is text
      {"a&b", "ab", 0},
      {"NOT:(a)", "a", 1},                // "NOT:" before a group is discarded
      {"(NOT:a)", "a", 0},
      {"(NOT:a)", "b", 1},
      {"NOT:a", "b", 1},                  // a bare pattern is one sub-pattern
      {"a|", "zzz", 1},                   // empty second alternative
      {"^", "x", 1},
      {"$", "x", 1},
      {"a\\|b|c", "a|b", 1},
      {"a\\|b|c", "c", 1},
      {"a\\|b|c", "ab", 0},
      {"(a)b", "a", 1},
      {"(a)b", "b", 0},
      {"^abc$", "abc", 1},
      {"^abc$", "abcdef", 1},             // both anchors without a gap: prefix test only
      {"^abc$", "xabc", 0},
      {"^a.*a$", "a", 1},                 // the suffix is tested on the whole subject
      {"a.*b", "ba", 0},                  // a found piece moves the search past itself
      {"a.*b", "ab", 1},
      {"a.*a", "a", 0},
      {"a.*.*a", "a", 1},                 // after an empty piece the search restarts at the last hit
      {"a$|b", "xay", 1},                 // '$' before another alternative is not a suffix test
      {"(a)(b)", "b", 0},                 // beside each other, the leftmost group counts
      {"(a)(b)", "a", 1},
      {"(a) & (b)", "a", 1},
      {"(a)|(b)", "b", 1},
      {"((a)|(b))&(c)", "bc", 1},
      {"((a)|(b))&(c)", "b", 0},
      {"(a)&((b)|(c))", "ac", 1},
      {"warn\nerror", "an error", 1},     // a newline separates alternatives
      {"a.b", "axb", 0},                  // '.', '*', '?', '[', '+' are literal alone
      {"a.b", "a.b", 1},
      {"a*", "aa", 0},
      {"a*", "xa*", 1},
      {"[a]?+", "[a]?+", 1},
      {"\\(a\\)", "x(a)y", 1},
      {"\\^a", "x^a", 1},
      {"a\\$", "a$b", 1},
      {"a\\\\$", "xa\\", 1},              // an even run of backslashes keeps '$' an anchor
      {"a\\\\$", "a\\x", 0},
      {"x\\.*y", "xy", 0},
  });
}

TEST(CStrPattern, EmptySubjectMatchesOnlyNegations) {
  ExpectMatches({
      {"a", "", 0},
      {"(NOT:a)", "", 1},
      {"(NOT:a)&(b)", "", 0},
      {"(NOT:a)|(b)", "", 1},
  });
}

TEST(CStrPattern, CompileResults) {
  const struct {
    const char* pattern;
    int expected;
  } l_vCases[] = {
      {"", 1},      {"error", 1}, {"()", 1},     {"(a", 0},        {"a)", 0},
      {"((a)", 0},  {"(a\\)", 0}, {"\\(a", 1},   {"(a)&(b)", 1},   {"))((", 1},
      {"a))((b", 1}, {"a\\", 1},  {"\\", 1},     {"(NOT:)", 1},
  };
  for (const auto& l_stCase : l_vCases) {
    SCOPED_TRACE(l_stCase.pattern);
    CStrPattern l_clPattern;
    EXPECT_EQ(Compile(l_clPattern, l_stCase.pattern), l_stCase.expected);
  }
}

TEST(CStrPattern, NullArgumentsAndEmptyObject) {
  CStrPattern l_clPattern;
  std::string l_strSubject = "a";
  EXPECT_EQ(l_clPattern.fPatternEx(l_strSubject.data()), 0);  // no tokens yet
  ASSERT_EQ(Compile(l_clPattern, "a"), 1);
  EXPECT_EQ(l_clPattern.fPatternEx(nullptr), 0);
  EXPECT_EQ(l_clPattern.fPatternComp(nullptr), 0);
  EXPECT_EQ(Match(l_clPattern, "a"), 1);  // the earlier expression stays
}

TEST(CStrPattern, RecompileReplacesExpression) {
  CStrPattern l_clPattern;
  ASSERT_EQ(Compile(l_clPattern, "(a)|(b)"), 1);
  ASSERT_EQ(Compile(l_clPattern, "c"), 1);
  EXPECT_EQ(Match(l_clPattern, "a"), 0);
  EXPECT_EQ(Match(l_clPattern, "c"), 1);
}

TEST(CStrPattern, SelectStrCpyRemovesEscapes) {
  const struct {
    const char* src;
    const char* expected;
  } l_vCases[] = {
      {"", ""}, {"abc", "abc"}, {"a\\.b", "a.b"}, {"a\\\\b", "a\\b"},
      {"\\\\\\\\", "\\\\"}, {"a\\", "a"}, {"\\|\\\\|", "|\\|"},
  };
  CStrPattern l_clPattern;
  for (const auto& l_stCase : l_vCases) {
    SCOPED_TRACE(l_stCase.src);
    char l_strDst[16] = {};
    std::string l_strSrc = l_stCase.src;
    EXPECT_EQ(l_clPattern.fSelectStrCpy(l_strDst, l_strSrc.data(), '\\'), 1);
    EXPECT_STREQ(l_strDst, l_stCase.expected);
  }
}

TEST(CStrPattern, SelectStrCpyWritesNoTerminatorAndRefusesNulls) {
  CStrPattern l_clPattern;
  char l_strDst[] = "ZZZZZ";
  std::string l_strSrc = "a\\b";
  EXPECT_EQ(l_clPattern.fSelectStrCpy(l_strDst, l_strSrc.data(), '\\'), 1);
  EXPECT_STREQ(l_strDst, "abZZZ");
  EXPECT_EQ(l_clPattern.fSelectStrCpy(l_strDst, nullptr, '\\'), 0);
  EXPECT_EQ(l_clPattern.fSelectStrCpy(nullptr, l_strSrc.data(), '\\'), 0);
  std::string l_strEmpty;
  EXPECT_EQ(l_clPattern.fSelectStrCpy(nullptr, l_strEmpty.data(), '\\'), 1);
}

// A last alternative anchored at both ends without a gap is a prefix test,
// as the same alternative is in first place or on its own.
TEST(CStrPattern, LastBothAnchoredAlternativeIsPrefixTest) {
  ExpectMatches({
      {"x|^y$", "y", 1},
      {"x|^y$", "yz", 1},
      {"x|^y$", "zy", 0},
      {"x|^y$", "axb", 1},
      {"^y$|x", "yz", 1},
      {"^y$|x", "zy", 0},
      {"x|^$", "z", 1},  // as "^$" alone: every non-empty subject
      {"^$", "z", 1},
  });
}

// Closing more groups than are open keeps the evaluation inside its stack:
// a ')' without an open group folds what is left of it and empties the stack.
TEST(CStrPattern, DepthBelowZeroStaysInsideStack) {
  ExpectMatches({
      {"))((", "a", 0},
      {"a))((b", "b", 1},
      {"a))((b", "a", 0},
      {"a)|(b", "b", 1},  // the result is the value of the last group
      {"a)|(b", "a", 0},
  });
  const struct {
    std::string pattern;
    int compiled;
  } l_vCases[] = {
      {"aaaaa)))))(((((b", 1},
      // Tokens past the 1024th are parentheses here and are dropped silently.
      {std::string(1000, ')') + std::string(1000, '('), 1},
      {std::string(1023, ')') + std::string(1023, '(') + "b", 0},
  };
  for (const auto& l_stCase : l_vCases) {
    SCOPED_TRACE(l_stCase.pattern.substr(0, 20));
    CStrPattern l_clPattern;
    EXPECT_EQ(Compile(l_clPattern, l_stCase.pattern), l_stCase.compiled);
    EXPECT_EQ(Match(l_clPattern, "a"), 0);
  }
}

TEST(CStrPattern, LimitsAreRefusedNotCut) {
  auto l_fnGroups = [](int l_nCount) {
    std::string l_str;
    for (int i = 0; i < l_nCount; ++i) l_str += "(a)";
    return l_str;
  };
  auto l_fnGaps = [](int l_nPieces) {  // l_nPieces times "a", joined by gaps
    std::string l_str = "a";
    for (int i = 1; i < l_nPieces; ++i) l_str += ".*a";
    return l_str;
  };
  auto l_fnChunks = [](size_t l_nLen) {  // a text of short pieces and gaps
    std::string l_str;
    while (l_str.size() < l_nLen) l_str += "xxxxxxxx.*";
    l_str.resize(l_nLen);
    return l_str;
  };
  std::string l_strEscapedDots;
  for (int i = 0; i < 511; ++i) l_strEscapedDots += "\\.";
  const struct {
    std::string name;
    std::string pattern;
    int expected;
  } l_vCases[] = {
      {"2047 characters of text", "^" + l_fnChunks(2045) + "$", 1},
      {"2048 characters of text", "^" + l_fnChunks(2046) + "$", 0},
      {"340 groups", l_fnGroups(340), 1},
      {"341 groups drop the closing token", l_fnGroups(341), 1},
      {"342 groups need token 1025", l_fnGroups(342), 0},
      {"510 pieces, entry 511 empty", l_fnGaps(510), 1},
      {"511 pieces need entry 511", l_fnGaps(511), 0},
      {"511 anchored pieces", "^" + l_fnGaps(511) + "$", 1},
      {"512 anchored pieces", "^" + l_fnGaps(512) + "$", 0},
      {"511-character piece", "^" + std::string(511, 'p'), 1},
      {"512-character piece", "^" + std::string(512, 'p'), 0},
      {"511 characters once escapes are removed", "^" + l_strEscapedDots, 1},
      {"2047 normalised characters", l_fnChunks(2043), 1},
      {"2048 normalised characters", l_fnChunks(2044), 0},
      {"limit passed inside a group", "(b)|(" + std::string(600, 'p') + ")", 0},
  };
  for (const auto& l_stCase : l_vCases) {
    SCOPED_TRACE(l_stCase.name);
    CStrPattern l_clPattern;
    EXPECT_EQ(Compile(l_clPattern, l_stCase.pattern), l_stCase.expected);
  }

  // What is accepted at the limits also works.
  CStrPattern l_clPattern;
  ASSERT_EQ(Compile(l_clPattern, l_fnGaps(510)), 1);
  EXPECT_EQ(Match(l_clPattern, std::string(510, 'a')), 1);
  EXPECT_EQ(Match(l_clPattern, std::string(509, 'a')), 0);
  ASSERT_EQ(Compile(l_clPattern, "^" + l_strEscapedDots), 1);
  EXPECT_EQ(Match(l_clPattern, std::string(511, '.') + "x"), 1);
  EXPECT_EQ(Match(l_clPattern, std::string(510, '.') + "x"), 0);
}

TEST(CStrPattern, SubjectIsCutAt2047Characters) {
  const std::string l_strLong = std::string(2047, 'a') + "zz";
  ExpectMatches({
      {"zz", l_strLong.c_str(), 0},
      {"a$", l_strLong.c_str(), 1},
      {"z$", l_strLong.c_str(), 0},
      {"(NOT:z)", l_strLong.c_str(), 1},
  });
}

// Text without special characters is a substring test.
TEST(CStrPattern, PlainTextMatchesExactlyContainingSubjects) {
  CRandomText l_clRandom(20240601);
  const std::string l_strAlphabet = "ab.+[ ?";
  int l_nMatched = 0;
  for (int l_nRound = 0; l_nRound < 3000; ++l_nRound) {
    const std::string l_strPattern = l_clRandom.fText(l_strAlphabet, 1, 4);
    const std::string l_strSubject = l_clRandom.fText(l_strAlphabet, 1, 16);
    SCOPED_TRACE("pattern '" + l_strPattern + "' subject '" + l_strSubject + "'");
    CStrPattern l_clPattern;
    ASSERT_EQ(Compile(l_clPattern, l_strPattern), 1);
    const int l_nExpected = l_strSubject.find(l_strPattern) != std::string::npos ? 1 : 0;
    ASSERT_EQ(Match(l_clPattern, l_strSubject), l_nExpected);
    l_nMatched += l_nExpected;
  }
  EXPECT_GT(l_nMatched, 300);  // both outcomes are well represented
  EXPECT_LT(l_nMatched, 2700);
}

TEST(CStrPattern, NotGroupIsComplementOnNonEmptySubjects) {
  CRandomText l_clRandom(7);
  const std::string l_strPatternAlphabet = "ab.*|^$\\\n&";
  int l_nCompiled = 0;
  for (int l_nRound = 0; l_nRound < 3000; ++l_nRound) {
    const std::string l_strSub = l_clRandom.fText(l_strPatternAlphabet, 1, 8);
    const std::string l_strSubject = l_clRandom.fText("ab.*|^$", 1, 12);
    SCOPED_TRACE("sub-pattern '" + l_strSub + "' subject '" + l_strSubject + "'");
    CStrPattern l_clPlain;
    CStrPattern l_clNegated;
    const int l_nPlain = Compile(l_clPlain, "(" + l_strSub + ")");
    ASSERT_EQ(Compile(l_clNegated, "(NOT:" + l_strSub + ")"), l_nPlain);
    if (l_nPlain != 1) continue;  // a trailing backslash escapes the ')'
    ++l_nCompiled;
    ASSERT_EQ(Match(l_clNegated, l_strSubject), 1 - Match(l_clPlain, l_strSubject));
  }
  EXPECT_GT(l_nCompiled, 2000);
}

TEST(CStrPattern, LongSubjectBehavesAsItsFirst2047Characters) {
  CRandomText l_clRandom(99);
  for (int l_nRound = 0; l_nRound < 500; ++l_nRound) {
    const std::string l_strPattern = l_clRandom.fText("ab.*|^$", 1, 6);
    const std::string l_strSubject = l_clRandom.fText("ab", 2048, 2100);
    SCOPED_TRACE("pattern '" + l_strPattern + "'");
    CStrPattern l_clPattern;
    ASSERT_EQ(Compile(l_clPattern, l_strPattern), 1);
    ASSERT_EQ(Match(l_clPattern, l_strSubject), Match(l_clPattern, l_strSubject.substr(0, 2047)));
  }
}

}  // namespace
