// The pattern compiler and matcher: the input is a pattern, a NUL byte and a
// subject. Whatever the pattern, compiling ends with 1 or 0 and matching with
// 1 or 0, without touching the subject; recompiling gives the same answer.
#include <cstdint>
#include <cstring>
#include <string>

#include "FuzzSupport.h"
#include "StrPattern.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  const std::string input(reinterpret_cast<const char*>(data), size);
  const size_t cut = input.find('\0');
  const std::string pattern_text = input.substr(0, cut);
  const std::string subject_text = cut == std::string::npos ? pattern_text : input.substr(cut + 1);

  std::vector<char> pattern = fuzzsupport::Writable(pattern_text);
  std::vector<char> subject = fuzzsupport::Writable(subject_text);
  const std::vector<char> subject_before = subject;

  CStrPattern compiled;
  const int comp = compiled.fPatternComp(pattern.data());
  FUZZ_CHECK(comp == 0 || comp == 1);
  FUZZ_CHECK(memcmp(pattern.data(), pattern_text.c_str(), pattern.size()) == 0);
  if (comp != 1) return 0;

  const int first = compiled.fPatternEx(subject.data());
  FUZZ_CHECK(first == 0 || first == 1);
  FUZZ_CHECK(subject == subject_before);
  FUZZ_CHECK(compiled.fPatternEx(subject.data()) == first);
  FUZZ_CHECK(compiled.fPatternEx(nullptr) == 0);

  // Compiling again into the same object replaces the old expression.
  FUZZ_CHECK(compiled.fPatternComp(pattern.data()) == 1);
  FUZZ_CHECK(compiled.fPatternEx(subject.data()) == first);

  // A subject is matched on its first 2047 characters only.
  if (subject_text.size() > 2047) {
    std::vector<char> cut_subject = fuzzsupport::Writable(subject_text.substr(0, 2047));
    FUZZ_CHECK(compiled.fPatternEx(cut_subject.data()) == first);
  }
  return 0;
}
