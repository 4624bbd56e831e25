// Hot paths of the gatherer, per evaluated line:
//  - fColumnIndexFind on a 10-column line with 10, 100 and 1,000 rules of the
//    line's watched log, and with the same rules belonging to another watched
//    log (only the registry walk);
//  - the line path of the end-to-end bench configuration: line filter, then
//    columns and rules (3 numeric, 2 text);
//  - a whole gather cycle over an 800-line file (read in pieces, join, filter,
//    evaluate; the per-cycle work included), reported per line.
// No rule fires, so no event is formatted or written.
#include <benchmark/benchmark.h>
#include <stdlib.h>
#include <unistd.h>

#include <cstdio>
#include <cstring>
#include <filesystem>
#include <string>
#include <vector>

#include "ColumnLogger.h"
#include "DeferEvents.h"
#include "CommonConst.h"
#include "OmniLog.h"

namespace {

// 10 columns: date, time, host, cpu, mem, latency, status, request, bytes, client.
const char kTenColumns[] = "2024-05-01,12:00:01,web03,cpu=93%,mem=71%,1234,OK,GET /api/v1/items/123?page=7,512,10.0.0.7";

// The line format of bench_logwriter (8 columns).
const char kBenchLine[] = "2024-05-01,12:00:01,web03,cpu=93%,mem=71%,1234,OK,GET /api/v1/items/123?page=7";

// A temporary directory for event files (none are written: nothing fires).
class CScratchDir {
 public:
  CScratchDir() {
    char l_strTemplate[] = "/tmp/columnbench.XXXXXX";
    const char* l_pstrDir = mkdtemp(l_strTemplate);
    m_strPath = l_pstrDir != nullptr ? l_pstrDir : "/tmp";
  }
  ~CScratchDir() {
    std::error_code l_ec;
    if (m_strPath != "/tmp") std::filesystem::remove_all(m_strPath, l_ec);
  }
  const std::string& fPath() const { return m_strPath; }

 private:
  std::string m_strPath;
};

// A gatherer set up as the gather cycle leaves it before it evaluates a line:
// the line after the 28 reserved zero bytes of the accumulator, a column
// buffer of the accumulator's size, the delimiters of the watched log.
class CLineFixture {
 public:
  explicit CLineFixture(const char* l_pstrLine) {
    g_pclOmniLog = nullptr;
    g_nPrint = 0;
    const size_t l_nSize = LINE_RESERVED_BYTES + strlen(l_pstrLine) + 256;
    m_vchLine.assign(l_nSize, '\0');
    memcpy(m_vchLine.data() + LINE_RESERVED_BYTES, l_pstrLine, strlen(l_pstrLine));
    l_pstrLineBuf = m_vchLine.data();
    // The gatherer owns and releases the column buffer.
    m_clLogger.m_pstrOriginalBuf = new char[l_nSize]();
    m_clLogger.m_lOriginalBufSize = static_cast<long>(l_nSize);
    m_chDilimitor1 = ',';
    m_chDilimitor2 = 0;
    m_clLogger.m_nTokFlag = 1;
    snprintf(m_clLogger.m_strOutPutPath, sizeof(m_clLogger.m_strOutPutPath), "%s/", m_clDir.fPath().c_str());
    snprintf(m_clLogger.m_strOutPutFileName, sizeof(m_clLogger.m_strOutPutFileName), "%s/ing_bench",
             m_clDir.fPath().c_str());
    for (int& l_nThreshold : m_nCntFaultArray) l_nThreshold = -1;
  }
  ~CLineFixture() { l_pstrLineBuf = nullptr; }

  CColumnLogger& fLogger() { return m_clLogger; }
  // Events written so far: the benchmarks check that none was.
  int fEvents() const { return m_clLogger.m_nFaultSendIncrease + m_clLogger.m_nFaultFoundFlag; }

  void fAddNum(int l_nLog, int l_nColumn, int l_nDecide, int l_nValue, float l_fValue, int l_nCompare,
               const char* l_pstrExt1, const char* l_pstrExt2) {
    std::string l_strExt1 = l_pstrExt1, l_strExt2 = l_pstrExt2;
    m_clLogger.m_pclNumPatternList->fAddLinkedList(l_nLog, l_nColumn, 2, l_nDecide, l_nValue, l_fValue, l_nCompare,
                                                   l_strExt1.data(), l_strExt2.data());
  }
  void fAddText(int l_nLog, int l_nColumn, int l_nCompare, const char* l_pstrText) {
    std::string l_strText = l_pstrText;
    m_clLogger.m_pclCharPatternList->fAddLinkedList(l_nLog, l_nColumn, 3, l_nCompare, l_strText.data());
    if (l_nCompare == 3) m_clLogger.m_pclCharPatternList->fAddPatternLinkedList(l_nLog, l_strText.data());
  }
  void fAddDate(int l_nLog, int l_nColumn, const char* l_pstrLayout) {
    std::string l_strLayout = l_pstrLayout;
    m_clLogger.m_pclDatePatternList->fAddLinkedList(l_nLog, l_nColumn, l_strLayout.data());
  }

 private:
  CScratchDir m_clDir;
  CColumnLogger m_clLogger;
  std::vector<char> m_vchLine;
};

// Rule i of `l_nRules` looks at column i % 10 + 1 of kTenColumns with a rule
// that suits the column and does not fire: 4 numeric columns (two with texts
// around the number, one single-precision), 6 text columns (3 by equality or
// difference, 3 by pattern). The date and time columns also carry the two
// date rules of a log with a line-rate check.
void fAddTenColumnRules(CLineFixture& l_clFixture, int l_nLog, int l_nRules) {
  for (int l_nRule = 0; l_nRule < l_nRules; ++l_nRule) {
    const int l_nStep = l_nRule / 10;  // vary the thresholds a little
    switch (l_nRule % 10) {
      case 0: l_clFixture.fAddText(l_nLog, 1, 2, "2024-05-01"); break;
      case 1: l_clFixture.fAddText(l_nLog, 2, 3, "^23:59"); break;
      case 2: l_clFixture.fAddText(l_nLog, 3, 1, "db99"); break;
      case 3: l_clFixture.fAddNum(l_nLog, 4, 1, 99 + l_nStep, 0, 1, "cpu=", "%"); break;
      case 4: l_clFixture.fAddNum(l_nLog, 5, 2, 0, 99.5f + static_cast<float>(l_nStep), 2, "mem=", "%"); break;
      case 5: l_clFixture.fAddNum(l_nLog, 6, 1, 100000 + l_nStep, 0, 1, "NULL", "NULL"); break;
      case 6: l_clFixture.fAddText(l_nLog, 7, 1, "FATAL"); break;
      case 7: l_clFixture.fAddText(l_nLog, 8, 3, "^DELETE .*/admin"); break;
      case 8: l_clFixture.fAddNum(l_nLog, 9, 1, -1 - l_nStep, 0, 3, "NULL", "NULL"); break;
      case 9: l_clFixture.fAddText(l_nLog, 10, 3, "^192\\.168\\."); break;
    }
  }
  l_clFixture.fAddDate(l_nLog, 1, "YYYY-MM-DD");
  l_clFixture.fAddDate(l_nLog, 2, "hh:mm:ss");
}

void fRunColumnIndexFind(benchmark::State& state, int l_nRuleLog) {
  CLineFixture l_clFixture(kTenColumns);
  fAddTenColumnRules(l_clFixture, l_nRuleLog, static_cast<int>(state.range(0)));
  CColumnLogger& l_clLogger = l_clFixture.fLogger();
  for (auto _ : state) benchmark::DoNotOptimize(l_clLogger.fColumnIndexFind(1, 0, 0));
  if (l_clFixture.fEvents() != 0) state.SkipWithError("a rule fired");
  state.SetItemsProcessed(state.iterations());
  state.counters["rules"] = static_cast<double>(state.range(0));
}

// All rules belong to the evaluated log.
void BM_ColumnIndexFind(benchmark::State& state) { fRunColumnIndexFind(state, 1); }
BENCHMARK(BM_ColumnIndexFind)->Arg(10)->Arg(100)->Arg(1000);

// All rules belong to another watched log: what the walk alone costs.
void BM_ColumnIndexFindOtherLog(benchmark::State& state) { fRunColumnIndexFind(state, 2); }
BENCHMARK(BM_ColumnIndexFindOtherLog)->Arg(10)->Arg(100)->Arg(1000);

// The bench configuration of bench/e2e.sh, rule for rule.
const char kBenchFilter[] = "1" SEP_BAR "^20.*cpu=";
const char kBenchDelimitor[] = "," SEP_TILDE "NULL";

void fAddBenchRules(CLineFixture& l_clFixture) {
  l_clFixture.fAddNum(1, 4, 1, 97, 97.0f, 1, "cpu=", "%");
  l_clFixture.fAddNum(1, 5, 2, 98, 98.5f, 2, "mem=", "%");
  l_clFixture.fAddNum(1, 6, 1, 4900, 4900.0f, 1, "NULL", "NULL");
  l_clFixture.fAddText(1, 7, 1, "FATAL");
  l_clFixture.fAddText(1, 8, 3, "^DELETE .*/admin");
}

// Line filter and evaluation of one line, as the gather cycle does it for a
// watched log: the first pattern slot that matches lets the line through.
void BM_LinePath(benchmark::State& state) {
  CLineFixture l_clFixture(kBenchLine);
  fAddBenchRules(l_clFixture);
  CColumnLogger& l_clLogger = l_clFixture.fLogger();
  std::string l_strName = "bench.log", l_strFilter = kBenchFilter, l_strDelimitor = kBenchDelimitor;
  l_clLogger.m_pclLogFileList->fAddLogFile(1, l_strName.data(), 1, 1);
  l_clLogger.m_pclLogFileList->fAddLogPattern(1, l_strFilter.data(), 0, 0, l_strDelimitor.data());
  ST_LOGFILE_INFO* l_pstLog = l_clLogger.m_pclLogFileList->fGetNode(1);
  char* const l_pstrLine = fgCurrentLine();
  long l_lPassed = 0;
  for (auto _ : state) {
    for (int l_nSlot = 0; l_nSlot < MAX_LINE_PATTERNS; ++l_nSlot) {
      if (l_pstLog->m_vstrLogPattern[l_nSlot][0] == '\0') break;
      if (l_clLogger.fPattComp(l_pstLog, l_nSlot, l_pstrLine) == 1) {
        l_clLogger.fColumnIndexFind(l_pstLog->m_nIndx, l_pstLog->m_nSecLogCntFaultLevel, l_pstLog->m_nSecLogCount);
        ++l_lPassed;
        break;
      }
    }
  }
  if (l_lPassed != static_cast<long>(state.iterations())) state.SkipWithError("the filter rejected the line");
  if (l_clFixture.fEvents() != 0) state.SkipWithError("a rule fired");
  state.SetItemsProcessed(state.iterations());
}
BENCHMARK(BM_LinePath);

// A whole gather cycle: the watched log has log type 1, so every cycle reads
// the file from its start; 800 lines stay below the read throttle's pause.
// Second argument: rules of another watched log in the registries besides.
void BM_GatherCycle(benchmark::State& state) {
  const int l_nLines = static_cast<int>(state.range(0));
  CLineFixture l_clFixture(kBenchLine);
  fAddBenchRules(l_clFixture);
  // Rules of another watched log, which a turn of log 1 never looks at.
  if (state.range(1) > 0) fAddTenColumnRules(l_clFixture, 2, static_cast<int>(state.range(1)));
  CColumnLogger& l_clLogger = l_clFixture.fLogger();
  l_pstrLineBuf = nullptr;  // the cycle makes its own buffers

  CScratchDir l_clLogDir;
  std::string l_strFile = l_clLogDir.fPath() + "/bench.log";
  {
    FILE* l_pstFd = fopen(l_strFile.c_str(), "w");
    if (l_pstFd == nullptr) {
      state.SkipWithError("cannot write the log file");
      return;
    }
    // Lines of the bench format that do not fire, with varying numbers; one
    // in twenty is a heartbeat line that the filter rejects.
    for (int l_nLine = 0; l_nLine < l_nLines; ++l_nLine) {
      if (l_nLine % 20 == 19) {
        fprintf(l_pstFd, "2024-05-01,12:00:%02d,web03,heartbeat,uptime=%d\n", l_nLine % 60, l_nLine * 7);
      } else {
        fprintf(l_pstFd, "2024-05-01,12:00:%02d,web0%d,cpu=%d%%,mem=%d%%,%d,OK,GET /api/v1/items/%d?page=%d\n",
                l_nLine % 60, l_nLine % 8, l_nLine % 97, 20 + l_nLine % 70, 1 + l_nLine % 4900, l_nLine * 13,
                l_nLine % 50);
      }
    }
    fclose(l_pstFd);
  }
  std::string l_strFilter = kBenchFilter, l_strDelimitor = kBenchDelimitor;
  l_clLogger.m_pclLogFileList->fAddLogFile(1, l_strFile.data(), 1, 1);
  l_clLogger.m_pclLogFileList->fAddLogPattern(1, l_strFilter.data(), 0, 0, l_strDelimitor.data());

  // Third argument: DEFER_EVENTS=1 (the cost of the key; without it the
  // cycle tests one flag per line and per turn).
  g_bDeferEvents = state.range(2) != 0;
  for (auto _ : state) benchmark::DoNotOptimize(l_clLogger.fLogGather());
  g_bDeferEvents = false;
  if (l_clFixture.fEvents() != 0) state.SkipWithError("a rule fired");
  state.SetItemsProcessed(state.iterations() * l_nLines);
}
BENCHMARK(BM_GatherCycle)
    ->Args({800, 0, 0})
    ->Args({800, 100, 0})
    ->Args({800, 1000, 0})
    ->Args({800, 0, 1})
    ->Unit(benchmark::kMicrosecond);

}  // namespace

BENCHMARK_MAIN();
