// What one wake-up from a one-second sleep costs a process on this host:
// the agent's floor, since its main loop and its read throttle both sleep
// through select(). Sleeps `rounds` times (default 10) with `resident_kb`
// (default 0) of touched memory held, and prints the CPU time the scheduler
// charged for the whole run (/proc/self/schedstat) per wake-up.
//
//   bench_wake [rounds] [resident_kb]
#include <sys/select.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <vector>

namespace {

// Nanoseconds this process has run on a CPU, or -1.
long long fRunNanoseconds() {
  FILE* l_pstFd = fopen("/proc/self/schedstat", "r");
  if (l_pstFd == nullptr) return -1;
  long long l_llNs = -1;
  if (fscanf(l_pstFd, "%lld", &l_llNs) != 1) l_llNs = -1;
  fclose(l_pstFd);
  return l_llNs;
}

}  // namespace

int main(int argc, char** argv) {
  const int l_nRounds = argc > 1 ? atoi(argv[1]) : 10;
  const long l_lResidentKb = argc > 2 ? atol(argv[2]) : 0;
  if (l_nRounds < 1 || l_lResidentKb < 0) {
    fprintf(stderr, "usage: %s [rounds >= 1] [resident_kb >= 0]\n", argv[0]);
    return 2;
  }
  std::vector<char> l_vchResident(static_cast<size_t>(l_lResidentKb) * 1024, 1);
  // The scheduler brings its count up to date when the process sleeps: a
  // first short sleep keeps the start-up out of the figure.
  struct timeval l_stFirst = {0, 10000};
  select(0, nullptr, nullptr, nullptr, &l_stFirst);
  const long long l_llStart = fRunNanoseconds();
  for (int l_nRound = 0; l_nRound < l_nRounds; ++l_nRound) {
    struct timeval l_stWait = {1, 0};
    select(0, nullptr, nullptr, nullptr, &l_stWait);
  }
  const long long l_llEnd = fRunNanoseconds();
  if (l_llStart < 0 || l_llEnd < 0) {
    fprintf(stderr, "no /proc/self/schedstat\n");
    return 1;
  }
  printf("%.1f us of CPU per wake-up (%d wake-ups, %ld kB resident besides)\n",
         static_cast<double>(l_llEnd - l_llStart) / 1e3 / l_nRounds, l_nRounds, l_lResidentKb);
  return l_vchResident.empty() ? 0 : (l_vchResident[0] == 1 ? 0 : 1);
}
