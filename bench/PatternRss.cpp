// Resident memory taken by 95 compiled patterns (19 watched logs with 5 line
// patterns each), read from /proc/self/statm before and after compiling.
// Prints the figures; exits 1 when the growth passes 1 MiB.
#include "StrPattern.h"

#include <malloc.h>
#include <unistd.h>

#include <cstdio>
#include <memory>
#include <string>
#include <vector>

namespace {

constexpr int PATTERN_COUNT = 95;
constexpr long BUDGET_BYTES = 1024L * 1024L;

long ResidentBytes() {
  long l_lPages = 0;
  long l_lResident = 0;
  FILE* l_pFile = std::fopen("/proc/self/statm", "r");
  if (!l_pFile) return -1;
  if (std::fscanf(l_pFile, "%ld %ld", &l_lPages, &l_lResident) != 2) l_lResident = -1;
  std::fclose(l_pFile);
  return l_lResident < 0 ? -1 : l_lResident * sysconf(_SC_PAGESIZE);
}

}  // namespace

int main() {
  std::vector<std::unique_ptr<CStrPattern>> l_vPatterns;
  l_vPatterns.reserve(PATTERN_COUNT);
  std::string l_strPattern = "(ERROR|WARN)&(NOT:debug)";

  // One compile first, discarded, so that the figure is what the patterns
  // keep, not the first touch of the engine's code and compile stack.
  const long l_lRssCold = ResidentBytes();
  {
    CStrPattern l_clWarmUp;
    l_clWarmUp.fPatternComp(l_strPattern.data());
  }
  const long l_lRssBefore = ResidentBytes();
  const size_t l_nHeapBefore = mallinfo2().uordblks;
  for (int i = 0; i < PATTERN_COUNT; ++i) {
    l_vPatterns.emplace_back(new CStrPattern());
    if (l_vPatterns.back()->fPatternComp(l_strPattern.data()) != 1) {
      std::fprintf(stderr, "pattern does not compile\n");
      return 1;
    }
  }
  const long l_lRssAfter = ResidentBytes();
  const size_t l_nHeapAfter = mallinfo2().uordblks;
  if (l_lRssCold < 0 || l_lRssBefore < 0 || l_lRssAfter < 0) {
    std::fprintf(stderr, "cannot read /proc/self/statm\n");
    return 1;
  }

  const long l_lRssGrowth = l_lRssAfter - l_lRssBefore;
  std::printf("patterns: %d x \"%s\"\n", PATTERN_COUNT, l_strPattern.c_str());
  std::printf("sizeof(CStrPattern): %zu bytes\n", sizeof(CStrPattern));
  std::printf("heap in use: +%zu bytes (%.1f KiB)\n", l_nHeapAfter - l_nHeapBefore,
              static_cast<double>(l_nHeapAfter - l_nHeapBefore) / 1024.0);
  std::printf("resident: +%ld bytes (%.1f KiB), budget %ld bytes\n", l_lRssGrowth,
              static_cast<double>(l_lRssGrowth) / 1024.0, BUDGET_BYTES);
  std::printf("resident, first compile included: +%ld bytes (%.1f KiB)\n", l_lRssAfter - l_lRssCold,
              static_cast<double>(l_lRssAfter - l_lRssCold) / 1024.0);
  return l_lRssGrowth <= BUDGET_BYTES ? 0 : 1;
}
