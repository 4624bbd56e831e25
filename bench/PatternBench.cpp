// Time of one CStrPattern::fPatternEx call against regexec (POSIX extended,
// compiled once) on equivalent patterns, for a short log line and a
// 2,000-character one. The words the patterns look for sit at the end of the
// line, so both matchers scan all of it.
#include "StrPattern.h"

#include <benchmark/benchmark.h>
#include <regex.h>

#include <string>

namespace {

constexpr size_t SHORT_LINE = 60;
constexpr size_t LONG_LINE = 2000;

std::string MakeLine(size_t l_nLen, const std::string& l_strTail) {
  const std::string l_strFiller = "node7 kernel: usage of sda1 at 97% on mount /var/log ";
  std::string l_strLine;
  while (l_strLine.size() + l_strTail.size() < l_nLen) l_strLine += l_strFiller;
  l_strLine.resize(l_nLen - l_strTail.size());
  return l_strLine + l_strTail;
}

// One case: the engine's pattern, an ERE with the same meaning and, for a
// NOT: group, an ERE that must not match.
struct PatternCase {
  const char* pattern;
  const char* ere;
  const char* ereNot;  // null: none
  const char* tail;    // end of the subject line
};

const PatternCase ONE_ALT = {"full", "full", nullptr, " ERROR disk full"};
const PatternCase ONE_ALT_MISS = {"absent", "absent", nullptr, " ERROR disk full"};
const PatternCase FIVE_ALT = {"alpha|beta|gamma|delta|full", "alpha|beta|gamma|delta|full", nullptr,
                              " ERROR disk full"};
const PatternCase NOT_GROUP = {"(ERROR|WARN)&(NOT:debug)", "ERROR|WARN", "debug", " ERROR disk full"};
const PatternCase GAP = {"disk.*full$", "disk.*full$", nullptr, " ERROR disk full"};

void BM_StrPattern(benchmark::State& state, PatternCase l_stCase, size_t l_nLen) {
  std::string l_strLine = MakeLine(l_nLen, l_stCase.tail);
  std::string l_strPattern = l_stCase.pattern;
  CStrPattern l_clPattern;
  if (l_clPattern.fPatternComp(l_strPattern.data()) != 1) {
    state.SkipWithError("pattern does not compile");
    return;
  }
  int l_nMatched = 0;
  for (auto _ : state) {
    l_nMatched = l_clPattern.fPatternEx(l_strLine.data());
    benchmark::DoNotOptimize(l_nMatched);
  }
  state.counters["matched"] = l_nMatched;
}

void BM_Regexec(benchmark::State& state, PatternCase l_stCase, size_t l_nLen) {
  const std::string l_strLine = MakeLine(l_nLen, l_stCase.tail);
  regex_t l_stRegex;
  regex_t l_stRegexNot;
  if (regcomp(&l_stRegex, l_stCase.ere, REG_EXTENDED | REG_NOSUB) != 0) {
    state.SkipWithError("regcomp failed");
    return;
  }
  if (l_stCase.ereNot && regcomp(&l_stRegexNot, l_stCase.ereNot, REG_EXTENDED | REG_NOSUB) != 0) {
    regfree(&l_stRegex);
    state.SkipWithError("regcomp failed");
    return;
  }
  int l_nMatched = 0;
  for (auto _ : state) {
    // Both are evaluated, as the engine evaluates every group.
    const bool l_bHit = regexec(&l_stRegex, l_strLine.c_str(), 0, nullptr, 0) == 0;
    const bool l_bExcluded = l_stCase.ereNot && regexec(&l_stRegexNot, l_strLine.c_str(), 0, nullptr, 0) == 0;
    l_nMatched = l_bHit && !l_bExcluded;
    benchmark::DoNotOptimize(l_nMatched);
  }
  state.counters["matched"] = l_nMatched;
  regfree(&l_stRegex);
  if (l_stCase.ereNot) regfree(&l_stRegexNot);
}

}  // namespace

BENCHMARK_CAPTURE(BM_StrPattern, one_alt_short, ONE_ALT, SHORT_LINE);
BENCHMARK_CAPTURE(BM_Regexec, one_alt_short, ONE_ALT, SHORT_LINE);
BENCHMARK_CAPTURE(BM_StrPattern, one_alt_long, ONE_ALT, LONG_LINE);
BENCHMARK_CAPTURE(BM_Regexec, one_alt_long, ONE_ALT, LONG_LINE);
BENCHMARK_CAPTURE(BM_StrPattern, one_alt_miss_short, ONE_ALT_MISS, SHORT_LINE);
BENCHMARK_CAPTURE(BM_Regexec, one_alt_miss_short, ONE_ALT_MISS, SHORT_LINE);
BENCHMARK_CAPTURE(BM_StrPattern, one_alt_miss_long, ONE_ALT_MISS, LONG_LINE);
BENCHMARK_CAPTURE(BM_Regexec, one_alt_miss_long, ONE_ALT_MISS, LONG_LINE);
BENCHMARK_CAPTURE(BM_StrPattern, five_alt_short, FIVE_ALT, SHORT_LINE);
BENCHMARK_CAPTURE(BM_Regexec, five_alt_short, FIVE_ALT, SHORT_LINE);
BENCHMARK_CAPTURE(BM_StrPattern, five_alt_long, FIVE_ALT, LONG_LINE);
BENCHMARK_CAPTURE(BM_Regexec, five_alt_long, FIVE_ALT, LONG_LINE);
BENCHMARK_CAPTURE(BM_StrPattern, not_group_short, NOT_GROUP, SHORT_LINE);
BENCHMARK_CAPTURE(BM_Regexec, not_group_short, NOT_GROUP, SHORT_LINE);
BENCHMARK_CAPTURE(BM_StrPattern, not_group_long, NOT_GROUP, LONG_LINE);
BENCHMARK_CAPTURE(BM_Regexec, not_group_long, NOT_GROUP, LONG_LINE);
BENCHMARK_CAPTURE(BM_StrPattern, gap_suffix_short, GAP, SHORT_LINE);
BENCHMARK_CAPTURE(BM_Regexec, gap_suffix_short, GAP, SHORT_LINE);
BENCHMARK_CAPTURE(BM_StrPattern, gap_suffix_long, GAP, LONG_LINE);
BENCHMARK_CAPTURE(BM_Regexec, gap_suffix_long, GAP, LONG_LINE);
