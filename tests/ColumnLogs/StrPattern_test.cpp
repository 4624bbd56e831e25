// The pattern engine: examples, edge cases, compile limits, a generated property.
#include <random>

#include "StrPattern.h"
#include "TestSupport.h"

int Compile(CStrPattern& l_clPattern, std::string l_strText) { return l_clPattern.fPatternComp(l_strText.data()); }
int Match(CStrPattern& l_clPattern, std::string l_strText) { return l_clPattern.fPatternEx(l_strText.data()); }

// Worked examples, then the language's edge cases.
TEST(CStrPattern, Matches) {
  const std::string l_strLong = std::string(2047, 'a') + "zz";  // matched on its first 2047 characters
  const struct { std::string pattern, subject; int expected; } l_vCases[] = {
      {"error", "disk error 5", 1}, {"error", "Error", 0}, {"^ERR", "ERR: x", 1}, {"^ERR", "x ERR", 0},
      {"fail$", "disk fail", 1}, {"fail$", "failed", 0}, {"^a.*z$", "abcz", 1}, {"^a.*z$", "za", 0},
      {"warn|error", "an error", 1}, {"warn|error", "a warning", 1}, {"warn|error", "info", 0},
      {"1\\.*2", "x1.*2y", 1}, {"1\\.*2", "1ab2", 0}, {"(disk)&(full)", "disk is full", 1},
      {"(disk)&(full)", "disk ok", 0}, {"(NOT:debug)&(error)", "error in debug", 0},
      {"(NOT:debug)&(error)", "error", 1}, {"(a)&(b)|(c)", "c", 0}, {"(a)&(b)|(c)", "ac", 1}, {"x(a)", "a", 1},
      // The empty pattern never matches; '&' without parentheses is text.
      {"", "a", 0}, {"()", "a", 0}, {"a&b", "xa&by", 1},
      // "NOT:" before a group is discarded text; inside it negates.
      {"NOT:(a)", "a", 1}, {"(NOT:a)", "a", 0},
      // An empty alternative, or an anchor alone, matches every non-empty subject.
      {"a|", "zzz", 1}, {"^", "x", 1}, {"$", "x", 1},
      {"a\\|b|c", "a|b", 1}, {"a\\|b|c", "ab", 0}, {"warn\nerror", "an error", 1},
      // Beside a group, the leftmost one counts; operators only between ')' and '('.
      {"(a)b", "b", 0}, {"(a)(b)", "a", 1}, {"(a) & (b)", "a", 1}, {"((a)|(b))&(c)", "bc", 1},
      // '.', '*', '?', '[', '+' are literal alone; a backslash makes any character literal.
      {"a.b", "axb", 0}, {"a*", "aa", 0}, {"[a]?+", "[a]?+", 1}, {"\\(a\\)", "x(a)y", 1}, {"\\^a", "x^a", 1},
      {"a\\$", "a$b", 1}, {"x\\.*y", "xy", 0},
      // An even run of backslashes keeps '$' an anchor.
      {"a\\\\$", "xa\\", 1}, {"a\\\\$", "a\\x", 0},
      // Both anchors without a gap: a prefix test only; '$' is tested on the whole subject.
      {"^abc$", "abcdef", 1}, {"^abc$", "xabc", 0}, {"^a.*a$", "a", 1}, {"a$|b", "xay", 1},
      // A found piece moves the search past itself; after an empty piece it restarts at the last hit.
      {"a.*b", "ba", 0}, {"a.*a", "a", 0}, {"a.*.*a", "a", 1},
      // The empty subject matches only negations.
      {"a", "", 0}, {"(NOT:a)", "", 1}, {"(NOT:a)&(b)", "", 0},
      // A last alternative anchored at both ends without a gap is a prefix test, as in first place or alone.
      {"x|^y$", "yz", 1}, {"x|^y$", "zy", 0}, {"x|^y$", "axb", 1}, {"x|^$", "z", 1},
      // A ')' without an open group folds what is left of it and empties the stack.
      {"))((", "a", 0}, {"a))((b", "b", 1}, {"a)|(b", "a", 0},
      {"zz", l_strLong, 0}, {"a$", l_strLong, 1}, {"(NOT:z)", l_strLong, 1},
  };
  for (const auto& l_stCase : l_vCases) {
    SCOPED_TRACE("pattern '" + l_stCase.pattern + "' subject '" + l_stCase.subject.substr(0, 40) + "'");
    CStrPattern l_clPattern;
    ASSERT_EQ(Compile(l_clPattern, l_stCase.pattern), 1);
    EXPECT_EQ(Match(l_clPattern, l_stCase.subject), l_stCase.expected);
  }
}

TEST(CStrPattern, ObjectState) {
  CStrPattern l_clPattern;
  EXPECT_EQ(Match(l_clPattern, "a"), 0);  // no tokens yet
  ASSERT_EQ(Compile(l_clPattern, "(a)|(b)"), 1);
  EXPECT_EQ(l_clPattern.fPatternComp(nullptr), 0);
  EXPECT_EQ(Match(l_clPattern, "b"), 1);  // the earlier expression stays
  EXPECT_EQ(l_clPattern.fPatternEx(nullptr), 0);
  ASSERT_EQ(Compile(l_clPattern, "c"), 1);  // a new compile replaces it
  EXPECT_EQ(Match(l_clPattern, "b"), 0);
}

TEST(CStrPattern, CompileResultsAndLimits) {
  auto l_fnRepeat = [](const std::string& l_str, size_t l_nCount) {
    std::string l_strOut;
    while (l_nCount-- > 0) l_strOut += l_str;
    return l_strOut;
  };
  auto l_fnChunks = [](size_t l_nLen) {  // a text of short pieces and gaps
    std::string l_str;
    while (l_str.size() < l_nLen) l_str += "xxxxxxxx.*";
    l_str.resize(l_nLen);
    return l_str;
  };
  const std::string l_strEscapedDots = l_fnRepeat("\\.", 511);
  const struct { std::string name, pattern; int expected; } l_vCases[] = {
      {"unbalanced", "(a", 0}, {"unbalanced", "a)", 0}, {"unbalanced", "((a)", 0}, {"escaped ')'", "(a\\)", 0},
      {"escaped '('", "\\(a", 1}, {"depth below zero", "))((", 1}, {"trailing backslash", "\\", 1},
      {"2047 characters of text", "^" + l_fnChunks(2045) + "$", 1},
      {"2048 characters of text", "^" + l_fnChunks(2046) + "$", 0},
      {"341 groups drop the closing token", l_fnRepeat("(a)", 341), 1},
      {"342 groups need token 1025", l_fnRepeat("(a)", 342), 0},
      {"parentheses past token 1024 are dropped", std::string(1000, ')') + std::string(1000, '('), 1},
      {"510 pieces, entry 511 empty", "a" + l_fnRepeat(".*a", 509), 1},
      {"511 pieces need entry 511", "a" + l_fnRepeat(".*a", 510), 0},
      {"511-character piece", "^" + std::string(511, 'p'), 1}, {"512-character piece", "^" + std::string(512, 'p'), 0},
      {"511 characters once escapes are removed", "^" + l_strEscapedDots, 1},
      {"2047 normalised characters", l_fnChunks(2043), 1}, {"2048 normalised characters", l_fnChunks(2044), 0},
      {"limit passed inside a group", "(b)|(" + std::string(600, 'p') + ")", 0},
  };
  for (const auto& l_stCase : l_vCases) {
    CStrPattern l_clPattern;
    EXPECT_EQ(Compile(l_clPattern, l_stCase.pattern), l_stCase.expected) << l_stCase.name;
  }
  // Limits are refused, not cut; what is accepted at the limits also works.
  CStrPattern l_clPattern;
  ASSERT_EQ(Compile(l_clPattern, "a" + l_fnRepeat(".*a", 509)), 1);
  EXPECT_EQ(Match(l_clPattern, std::string(510, 'a')), 1);
  EXPECT_EQ(Match(l_clPattern, std::string(509, 'a')), 0);
  ASSERT_EQ(Compile(l_clPattern, "^" + l_strEscapedDots), 1);
  EXPECT_EQ(Match(l_clPattern, std::string(511, '.') + "x"), 1);
  EXPECT_EQ(Match(l_clPattern, std::string(510, '.') + "x"), 0);
}

// On generated patterns and subjects: text without special characters is a substring test.
TEST(CStrPattern, PlainTextIsASubstringTest) {
  std::mt19937 l_clGen(20240601);
  const auto l_fText = [&](size_t l_nMax) {  // 1 to l_nMax characters of "ab.+[ ?"
    std::string l_strText(1 + l_clGen() % l_nMax, ' ');
    for (auto& l_ch : l_strText) l_ch = "ab.+[ ?"[l_clGen() % 7];
    return l_strText;
  };
  int l_nMatched = 0;
  for (int l_nRound = 0; l_nRound < 3000; ++l_nRound) {
    const std::string l_strPattern = l_fText(4), l_strSubject = l_fText(16);
    SCOPED_TRACE("pattern '" + l_strPattern + "' subject '" + l_strSubject + "'");
    CStrPattern l_clPattern;
    ASSERT_EQ(Compile(l_clPattern, l_strPattern), 1);
    const int l_nExpected = l_strSubject.find(l_strPattern) != std::string::npos ? 1 : 0;
    ASSERT_EQ(Match(l_clPattern, l_strSubject), l_nExpected);
    l_nMatched += l_nExpected;
  }
  EXPECT_TRUE(l_nMatched > 300 && l_nMatched < 2700) << l_nMatched;  // both outcomes are well represented
}
