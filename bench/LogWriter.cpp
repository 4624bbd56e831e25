// Writes the comma-separated application log of the end-to-end bench: seeded,
// so two runs with the same seed write the same lines.
//
//   bench_logwriter gen  <file> <lines> <seed>           write <lines> lines at once
//   bench_logwriter rate <file> <per-second> <seconds> <seed>
//                                                       append at a fixed rate
//   bench_logwriter flat <file> <seconds> <max-lines> <seed>
//                                                       append as fast as it can
//
// A line has eight columns: date, time, host, "cpu=NN%", "mem=NN%", a latency
// in milliseconds, a status word and a request text, as in
//   2024-05-01,12:00:01,web03,cpu=93%,mem=71%,1234,OK,GET /api/v1/items/123
// One line in twenty is a heartbeat line without "cpu=" that the line filter
// of the bench configuration rejects. Rare values let the rules of the bench
// configuration fire on about 1 % of the lines (see bench/e2e.sh).
//
// Prints the number of lines written on standard output.
#include <time.h>
#include <unistd.h>

#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

namespace {

// xorshift64*: small, fast and the same on every platform (std's
// distributions are not), so a seed names one file everywhere.
class CRandom {
 public:
  explicit CRandom(uint64_t l_ulSeed) : m_ulState(l_ulSeed * 2654435761ULL + 88172645463325252ULL) {}
  uint64_t fNext() {
    m_ulState ^= m_ulState >> 12;
    m_ulState ^= m_ulState << 25;
    m_ulState ^= m_ulState >> 27;
    return m_ulState * 2685821657736338717ULL;
  }
  // 0 .. l_nBound-1
  int fBelow(int l_nBound) { return static_cast<int>((fNext() >> 33) % static_cast<uint64_t>(l_nBound)); }

 private:
  uint64_t m_ulState;
};

const char* const kHosts[] = {"web01", "web02", "web03", "api01", "api02", "db01", "cache01", "batch01"};
const char* const kStatus[] = {"OK", "OK", "OK", "OK", "OK", "OK", "SLOW", "RETRY", "WARN", "ERROR"};
const char* const kVerbs[] = {"GET", "GET", "GET", "POST", "PUT", "DELETE"};
const char* const kPaths[] = {"/api/v1/items", "/api/v1/users", "/api/v2/orders", "/static/app.js",
                              "/health", "/api/v1/search", "/api/v2/carts", "/login"};

// Appends one line (with its line end) for the time `l_tWhen` to `l_strOut`.
void fMakeLine(CRandom& l_clRandom, time_t l_tWhen, std::string& l_strOut) {
  struct tm l_stWhen;
  localtime_r(&l_tWhen, &l_stWhen);
  char l_strLine[256];
  const char* l_pstrHost = kHosts[l_clRandom.fBelow(8)];
  int l_nLen = snprintf(l_strLine, sizeof(l_strLine), "%04d-%02d-%02d,%02d:%02d:%02d,%s,", l_stWhen.tm_year + 1900,
                        l_stWhen.tm_mon + 1, l_stWhen.tm_mday, l_stWhen.tm_hour, l_stWhen.tm_min, l_stWhen.tm_sec,
                        l_pstrHost);
  if (l_clRandom.fBelow(20) == 0) {
    l_nLen += snprintf(l_strLine + l_nLen, sizeof(l_strLine) - l_nLen, "heartbeat,uptime=%d\n",
                       l_clRandom.fBelow(1000000));
    l_strOut.append(l_strLine, static_cast<size_t>(l_nLen));
    return;
  }
  // Firing values, each about 0.2 %: cpu 98..99 (> 97), mem 99 (>= 98.5),
  // latency above 4900, status FATAL, and a DELETE on an admin path.
  const int l_nCpu = l_clRandom.fBelow(1000) < 2 ? 98 + l_clRandom.fBelow(2) : 1 + l_clRandom.fBelow(97);
  const int l_nMem = l_clRandom.fBelow(1000) < 2 ? 99 : 20 + l_clRandom.fBelow(78);
  const int l_nLatency = l_clRandom.fBelow(1000) < 2 ? 4901 + l_clRandom.fBelow(5000) : 1 + l_clRandom.fBelow(4900);
  const char* l_pstrStatus = l_clRandom.fBelow(1000) < 2 ? "FATAL" : kStatus[l_clRandom.fBelow(10)];
  const bool l_bAdmin = l_clRandom.fBelow(1000) < 2;
  const char* l_pstrVerb = l_bAdmin ? "DELETE" : kVerbs[l_clRandom.fBelow(6)];
  const char* l_pstrPath = l_bAdmin ? "/admin/users" : kPaths[l_clRandom.fBelow(8)];
  l_nLen += snprintf(l_strLine + l_nLen, sizeof(l_strLine) - l_nLen, "cpu=%d%%,mem=%d%%,%d,%s,%s %s/%d?page=%d\n",
                     l_nCpu, l_nMem, l_nLatency, l_pstrStatus, l_pstrVerb, l_pstrPath, l_clRandom.fBelow(100000),
                     l_clRandom.fBelow(50));
  l_strOut.append(l_strLine, static_cast<size_t>(l_nLen));
}

double fNow() {
  struct timespec l_stNow;
  clock_gettime(CLOCK_MONOTONIC, &l_stNow);
  return static_cast<double>(l_stNow.tv_sec) + static_cast<double>(l_stNow.tv_nsec) / 1e9;
}

// Appends and flushes, so that each batch is in the file for the reader at once.
bool fWrite(FILE* l_pstFd, const std::string& l_strText) {
  return fwrite(l_strText.data(), 1, l_strText.size(), l_pstFd) == l_strText.size() && fflush(l_pstFd) == 0;
}

int fUsage() {
  fprintf(stderr,
          "usage: bench_logwriter gen <file> <lines> <seed>\n"
          "       bench_logwriter rate <file> <per-second> <seconds> <seed>\n"
          "       bench_logwriter flat <file> <seconds> <max-lines> <seed>\n");
  return 2;
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 5 && argc != 6) return fUsage();
  const std::string l_strMode = argv[1];
  const char* l_pstrFile = argv[2];
  FILE* l_pstFd = fopen(l_pstrFile, l_strMode == "gen" ? "w" : "a");
  if (l_pstFd == nullptr) {
    fprintf(stderr, "%s : cannot open : %s\n", l_pstrFile, strerror(errno));
    return 1;
  }
  long l_lWritten = 0;
  std::string l_strBatch;
  if (l_strMode == "gen" && argc == 5) {
    const long l_lLines = atol(argv[3]);
    CRandom l_clRandom(strtoull(argv[4], nullptr, 10));
    // Synthetic clock: 50 lines per second of log time from a fixed start.
    const time_t l_tStart = 1714557600;
    for (; l_lWritten < l_lLines; ++l_lWritten) {
      fMakeLine(l_clRandom, l_tStart + l_lWritten / 50, l_strBatch);
      if (l_strBatch.size() > (1 << 16)) {
        if (!fWrite(l_pstFd, l_strBatch)) break;
        l_strBatch.clear();
      }
    }
    if (!fWrite(l_pstFd, l_strBatch)) l_lWritten = -1;
  } else if (l_strMode == "rate" && argc == 6) {
    // Batches every 10 ms, each bringing the total up to rate x elapsed time.
    const long l_lPerSecond = atol(argv[3]);
    const double l_dSeconds = atof(argv[4]);
    CRandom l_clRandom(strtoull(argv[5], nullptr, 10));
    const double l_dStart = fNow();
    for (;;) {
      const double l_dElapsed = fNow() - l_dStart;
      if (l_dElapsed >= l_dSeconds) break;
      const long l_lDue = static_cast<long>(l_dElapsed * static_cast<double>(l_lPerSecond));
      l_strBatch.clear();
      const time_t l_tNow = time(nullptr);
      for (; l_lWritten < l_lDue; ++l_lWritten) fMakeLine(l_clRandom, l_tNow, l_strBatch);
      if (!l_strBatch.empty() && !fWrite(l_pstFd, l_strBatch)) break;
      usleep(10000);
    }
  } else if (l_strMode == "flat" && argc == 6) {
    const double l_dSeconds = atof(argv[3]);
    const long l_lMax = atol(argv[4]);
    CRandom l_clRandom(strtoull(argv[5], nullptr, 10));
    const double l_dStart = fNow();
    while (fNow() - l_dStart < l_dSeconds) {
      if (l_lWritten >= l_lMax) {
        usleep(100000);  // far enough ahead of any reader: wait out the time
        continue;
      }
      l_strBatch.clear();
      const time_t l_tNow = time(nullptr);
      for (int l_nLine = 0; l_nLine < 1000 && l_lWritten < l_lMax; ++l_nLine, ++l_lWritten)
        fMakeLine(l_clRandom, l_tNow, l_strBatch);
      if (!fWrite(l_pstFd, l_strBatch)) break;
    }
  } else {
    fclose(l_pstFd);
    return fUsage();
  }
  if (fclose(l_pstFd) != 0 || l_lWritten < 0) {
    fprintf(stderr, "%s : write failed : %s\n", l_pstrFile, strerror(errno));
    return 1;
  }
  printf("%ld\n", l_lWritten);
  return 0;
}
