#include "CommonConst.h"
#include "NString.h"
#include "TestSupport.h"

// Walks `text` to the end: the tokens, each followed by "|", then "<null>".
template <typename Tok>
std::string Walk(std::string text, const char* delim, Tok tok) {
  std::string tokens;
  char* save = nullptr;
  char* token = tok(&text[0], delim, &save);
  for (int guard = 0; token != nullptr && guard < 20; ++guard, token = tok(nullptr, delim, &save))
    tokens += Readable(token) + "|";
  return tokens + "<null>";
}

TEST(Nstrtok, SplitsAtRunsOfDelimiters) {
  const struct { const char* text; const char* delim; const char* tokens; } cases[] = {
      {"key==value=x", "=", "key|value|x|<null>"}, {"=x", "=", "|x|<null>"}, {"a===", "=", "a||<null>"},
      {"", "=", "|<null>"},                         {"a,;,b", ",;", "a|b|<null>"},
  };
  for (const auto& c : cases) EXPECT_EQ(Walk(c.text, c.delim, Nstrtok), c.tokens) << c.text;
}

TEST(Nstrstrtok, SplitsAtTheWholeSeparator) {
  const struct { std::string text; std::string sep; const char* tokens; } cases[] = {
      {"a{~}b{~}", SEP_TILDE, "a|b||<null>"}, {"a{~}{~}b", SEP_TILDE, "a||b|<null>"},
      {"a{|}b", SEP_TILDE, "a{|}b|<null>"},  // the other separator is text
      {"a\x03\x1f" "b", SEP_TILDE, "a\x03\x1f" "b|<null>"},  // so is a partial one
  };
  for (const auto& c : cases) EXPECT_EQ(Walk(Sep(c.text), c.sep.c_str(), Nstrstrtok), c.tokens) << c.text;
}

// "text/consumed " per column as NstrOnetok (d1 == d2) or NstrDoubletok cut `line`, "<0:...>" at the end.
std::string Columns(std::string line, char d1, char d2) {
  std::string cols;
  std::vector<char> dest(line.size() + 1, 'X');
  char* pos = &line[0];
  for (int guard = 0; guard < 20; ++guard) {
    const int used = d1 == d2 ? NstrOnetok(dest.data(), pos, d1, &pos) : NstrDoubletok(dest.data(), pos, d1, d2, &pos);
    if (used == 0) return cols + "<0:" + dest.data() + ">";
    cols += std::string(dest.data()) + "/" + std::to_string(used) + " ";
  }
  return cols;
}

TEST(NstrOnetok, CutsColumnsAndCountsConsumedCharacters) {
  const struct { const char* line; char d1, d2; const char* cols; } cases[] = {
      {",a,,b", ',', ',', "/1 a/2 /1 b/1 <0:>"}, {"a,", ',', ',', "a/2 <0:>"}, {"abc", ',', ',', "abc/3 <0:>"},
      {"", ',', ',', "<0:>"}, {"a,b;c", ',', ';', "a/2 b/2 c/1 <0:>"}, {"a;,b", ',', ';', "a/2 /1 b/1 <0:>"},
  };
  for (const auto& c : cases) EXPECT_EQ(Columns(c.line, c.d1, c.d2), c.cols) << c.line;
}
