// What the agent's fixed costs are made of on this machine: a system call,
// the status and open of a watched log, the append of one event (as a stream
// and as a descriptor), one diagnostic record, and the shell that hands an
// event file off. The CPU
// time reported is the calling thread's, so a shell's own work is not in it.
#include <benchmark/benchmark.h>
#include <fcntl.h>
#include <stdlib.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdio>
#include <cstring>
#include <filesystem>
#include <string>

#include "AgentStatus.h"
#include "ColumnLogger.h"
#include "OmniLog.h"

namespace {

// A scratch directory with one file of a few lines.
class CScratch {
 public:
  CScratch() {
    // In TMPDIR when set: the cost of creating and renaming files depends on the file system.
    const char* l_pstrTmp = getenv("TMPDIR");
    std::string l_strTemplate = std::string(l_pstrTmp != nullptr ? l_pstrTmp : "/tmp") + "/columncosts.XXXXXX";
    const char* l_pstrDir = mkdtemp(&l_strTemplate[0]);
    m_strDir = l_pstrDir != nullptr ? l_pstrDir : "";
    m_strFile = m_strDir + "/app.log";
    FILE* l_pstFd = fopen(m_strFile.c_str(), "w");
    if (l_pstFd != nullptr) {
      fputs("2024-05-01,12:00:01,web03,cpu=93%,mem=71%,1234,OK,GET /api/v1/items/123?page=7\n", l_pstFd);
      fclose(l_pstFd);
    }
  }
  ~CScratch() {
    std::error_code l_ec;
    if (!m_strDir.empty()) std::filesystem::remove_all(m_strDir, l_ec);
  }
  bool fOk() const { return !m_strDir.empty(); }
  std::string m_strDir;
  std::string m_strFile;
};

const char kEvent[] =
    "1|1\x03\x1f\x7c"
    "2\x03\x1f\x7c"
    "COLUMN[4] Value[98] > 97, ORIGINAL_MSG:2024-05-01,12:00:01,web03,cpu=98%,mem=71%,1234,OK,GET /api/v1/x\n";

void BM_SystemCall(benchmark::State& state) {
  for (auto _ : state) benchmark::DoNotOptimize(getppid());
}
BENCHMARK(BM_SystemCall);

void BM_StatOfALog(benchmark::State& state) {
  CScratch l_clScratch;
  struct stat l_stStat;
  for (auto _ : state) benchmark::DoNotOptimize(stat(l_clScratch.m_strFile.c_str(), &l_stStat));
}
BENCHMARK(BM_StatOfALog);

// What a watched log with nothing new costs at least: open, status, close.
void BM_OpenStatusClose(benchmark::State& state) {
  CScratch l_clScratch;
  struct stat l_stStat;
  for (auto _ : state) {
    const int l_nFd = open(l_clScratch.m_strFile.c_str(), O_RDONLY | O_CLOEXEC);
    benchmark::DoNotOptimize(fstat(l_nFd, &l_stStat));
    close(l_nFd);
  }
}
BENCHMARK(BM_OpenStatusClose);

void BM_EventAppendStream(benchmark::State& state) {
  CScratch l_clScratch;
  const std::string l_strFile = l_clScratch.m_strDir + "/ing_events";
  for (auto _ : state) {
    FILE* l_pstFd = fopen(l_strFile.c_str(), "a+e");
    if (l_pstFd == nullptr) {
      state.SkipWithError("cannot open the event file");
      break;
    }
    fwrite(kEvent, 1, sizeof(kEvent) - 1, l_pstFd);
    fclose(l_pstFd);
  }
}
BENCHMARK(BM_EventAppendStream);

// As the agent appends an event.
void BM_EventAppendDescriptor(benchmark::State& state) {
  CScratch l_clScratch;
  const std::string l_strFile = l_clScratch.m_strDir + "/ing_events";
  for (auto _ : state) {
    const int l_nFd = open(l_strFile.c_str(), O_RDWR | O_CREAT | O_APPEND | O_CLOEXEC, 0666);
    if (l_nFd < 0) {
      state.SkipWithError("cannot open the event file");
      break;
    }
    benchmark::DoNotOptimize(write(l_nFd, kEvent, sizeof(kEvent) - 1));
    close(l_nFd);
  }
}
BENCHMARK(BM_EventAppendDescriptor);

// One record of the agent's diagnostic log, as a cycle writes one for each
// watched log: formatted, the date and size checks, one write. The threshold
// is raised so that no rotation (and no compression shell) happens.
void BM_DiagnosticRecord(benchmark::State& state) {
  CScratch l_clScratch;
  char l_strName[] = "SER";
  COmniLog l_clLog(COmniLog::LOG_MODE_NORMAL, l_strName, 2);
  std::string l_strPath = l_clScratch.m_strDir + "/";
  l_clLog.fSetLogPath(l_strPath.data());
  l_clLog.fSetLogSize(1024, 1);
  char l_strCode[] = "LOG";
  char l_strMsg[] = "log [7] offset = [120431]";
  for (auto _ : state) l_clLog.fLogWrite(3, l_strCode, l_strMsg);
}
BENCHMARK(BM_DiagnosticRecord);

// The close-out of a cycle: a shell running mv (of a file that is not there,
// as its output is discarded either way). Wall time includes the shell.
void BM_CloseOutCommand(benchmark::State& state) {
  CScratch l_clScratch;
  const std::string l_strCommand =
      "mv " + l_clScratch.m_strDir + "/ing_x " + l_clScratch.m_strDir + "/out_x > /dev/null 2>&1";
  for (auto _ : state) benchmark::DoNotOptimize(system(l_strCommand.c_str()));
}
BENCHMARK(BM_CloseOutCommand)->Unit(benchmark::kMicrosecond);

}  // namespace

// One write of the status file (STATUS_FILE) for 19 entries: what the key
// costs every ten seconds.
void BM_StatusFileWrite(benchmark::State& state) {
  CScratch l_clScratch;
  const std::string l_strConf = l_clScratch.m_strDir + "/agent.conf";
  FILE* l_pstFd = fopen(l_strConf.c_str(), "w");
  if (!l_clScratch.fOk() || l_pstFd == nullptr) {
    state.SkipWithError("no scratch directory");
    return;
  }
  fprintf(l_pstFd, "LOG_PATH=%s/\nLOG_MODE=NOLOG\nLOG_VALIDDAY=7\nOUTPUT_PATH=%s/\nLINE_WAIT_CNT=1\n",
          l_clScratch.m_strDir.c_str(), l_clScratch.m_strDir.c_str());
  for (int l_nIndx = 1; l_nIndx <= 19; ++l_nIndx) {
    fprintf(l_pstFd,
            "LOG%02d_NAME=%s\nLOG%02d_TYPE=0\nLOG%02d_CHECK_TYPE=1\nLOG%02d_SECLOG_LEVEL_CNT=NULL\n"
            "LOG%02d_DELIMITOR=,\x03\x1f\x7eNULL\nLOG%02d_NUMBER_PATTERN=NULL\nLOG%02d_CHAR_PATTERN=NULL\n"
            "LOG%02d_DATE_PATTERN=NULL\nLOG%02d_PATTERN=NULL\n",
            l_nIndx, l_clScratch.m_strFile.c_str(), l_nIndx, l_nIndx, l_nIndx, l_nIndx, l_nIndx, l_nIndx, l_nIndx,
            l_nIndx);
  }
  fclose(l_pstFd);
  CColumnLogger l_clLogger;
  std::string l_strPath = l_strConf;
  if (l_clLogger.fSetConfManager(&l_strPath[0]) != 1 || l_clLogger.fLoadConfInfo() != 1) {
    state.SkipWithError("configuration not loaded");
    return;
  }
  CAgentStatus l_clStatus((l_clScratch.m_strDir + "/agent.prom").c_str(), time(nullptr));
  time_t l_tNow = time(nullptr);
  for (auto _ : state) benchmark::DoNotOptimize(l_clStatus.fWrite(l_clLogger, l_tNow += 10));
}
BENCHMARK(BM_StatusFileWrite)->Unit(benchmark::kMicrosecond);

BENCHMARK_MAIN();
