// The string tokenizers on arbitrary bytes. The input is two delimiter bytes
// followed by the text. Beyond "no crash", each walk must give back exactly
// the text it was given: the columns of NstrOnetok / NstrDoubletok joined
// with their delimiters, the tokens of Nstrstrtok joined with the separator.
#include <cstdint>
#include <cstring>
#include <string>
#include <vector>

#include "CommonConst.h"
#include "FuzzSupport.h"
#include "NString.h"

namespace {

bool IsDelim(char c, char d1, char d2) { return c != '\0' && (c == d1 || c == d2); }

// Walks `text` column by column (two delimiters, or one when d1 == d2) and
// checks that nothing is lost or invented.
void CheckColumnWalk(const std::string& text, char d1, char d2, bool two) {
  std::vector<char> src = fuzzsupport::Writable(text);
  std::vector<char> column(src.size(), '#');
  char* next = src.data();
  std::string rebuilt;
  size_t consumed_total = 0;
  int guard = 0;
  for (;;) {
    char* from = next;
    const int consumed = two ? NstrDoubletok(column.data(), from, d1, d2, &next)
                             : NstrOnetok(column.data(), from, d1, &next);
    FUZZ_CHECK(consumed >= 0);
    if (consumed == 0) {
      FUZZ_CHECK(*from == '\0');
      break;
    }
    FUZZ_CHECK(++guard <= static_cast<int>(text.size()) + 1);
    const size_t len = strlen(column.data());
    FUZZ_CHECK(memcmp(column.data(), from, len) == 0);
    for (size_t i = 0; i < len; ++i) FUZZ_CHECK(!IsDelim(column[i], d1, two ? d2 : d1));
    // The column plus the delimiter that ended it, if any.
    FUZZ_CHECK(static_cast<size_t>(consumed) == len || static_cast<size_t>(consumed) == len + 1);
    FUZZ_CHECK(next == from + consumed);
    rebuilt.append(from, static_cast<size_t>(consumed));
    consumed_total += static_cast<size_t>(consumed);
  }
  FUZZ_CHECK(consumed_total == strlen(text.c_str()));
  FUZZ_CHECK(rebuilt == std::string(text.c_str()));
}

// Walks `text` at the separator `sep` (not empty) and joins the tokens again.
void CheckSeparatorWalk(const std::string& text, const std::string& sep) {
  std::vector<char> buf = fuzzsupport::Writable(text);
  char* save = nullptr;
  std::string rebuilt;
  int tokens = 0;
  for (char* token = Nstrstrtok(buf.data(), sep.c_str(), &save); token != nullptr;
       token = Nstrstrtok(nullptr, sep.c_str(), &save)) {
    if (tokens++ > 0) rebuilt += sep;
    rebuilt += token;
    FUZZ_CHECK(tokens <= static_cast<int>(text.size()) + 2);
    FUZZ_CHECK(strstr(token, sep.c_str()) == nullptr);
  }
  FUZZ_CHECK(tokens >= 1);
  FUZZ_CHECK(rebuilt == std::string(text.c_str()));
}

int ReferenceIsDigit(const std::string& s) {
  if (s.empty()) return 0;
  size_t i = (s[0] == '+' || s[0] == '-') ? 1 : 0;
  for (; i < s.size(); ++i)
    if (s[i] < '0' || s[i] > '9') return 0;
  return 1;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  if (size < 2) return 0;
  const char d1 = static_cast<char>(data[0]);
  const char d2 = static_cast<char>(data[1]);
  const std::string text(reinterpret_cast<const char*>(data) + 2, size - 2);
  const std::string c_text = text.c_str();  // what the C functions see

  CheckColumnWalk(text, d1, d1, false);
  CheckColumnWalk(text, d1, d2, true);
  CheckSeparatorWalk(text, SEP_TILDE);
  CheckSeparatorWalk(text, SEP_BAR);
  if (d1 != '\0') CheckSeparatorWalk(text, std::string(1, d1) + (d2 != '\0' ? std::string(1, d2) : ""));

  // Nstrtok: runs of delimiters from the set collapse; the walk ends.
  {
    std::vector<char> buf = fuzzsupport::Writable(text);
    const char set[3] = {d1, d2, '\0'};
    char* save = nullptr;
    int tokens = 0;
    for (char* token = Nstrtok(buf.data(), set, &save); token != nullptr; token = Nstrtok(nullptr, set, &save)) {
      FUZZ_CHECK(++tokens <= static_cast<int>(text.size()) + 2);
      if (set[0] != '\0') FUZZ_CHECK(strpbrk(token, set) == nullptr);
    }
  }

  FUZZ_CHECK(Nisdigit(c_text.c_str()) == ReferenceIsDigit(c_text));

  {
    std::vector<char> buf = fuzzsupport::Writable(text);
    char* result = NCutQmark(buf.data());
    const char* quote = strchr(c_text.c_str(), '"');
    if (quote == nullptr) {
      FUZZ_CHECK(result == buf.data());
      FUZZ_CHECK(std::string(buf.data()) == c_text);
    } else {
      FUZZ_CHECK(result == buf.data() + (quote - c_text.c_str()) + 1);
      FUZZ_CHECK(strchr(result, ' ') == nullptr);
    }
  }
  return 0;
}
