// Companion tool support: one watched log's turn over a whole file, made of
// the gather cycle's own steps (delimiters, line offer with its filter and
// column evaluation, group offset) with a plain line reader in place of the
// throttled piece reader. The agent itself never calls it.
#include <sys/types.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <new>

#include "ColumnLogger.h"
#include "CommonConst.h"

namespace {

// getline()'s buffer, released on every way out.
struct LineReader {
  char* m_pstrLine = nullptr;
  size_t m_nCap = 0;
  ~LineReader() { free(m_pstrLine); }
};

}  // namespace

long CColumnLogger::fReplayTurn(ST_LOGFILE_INFO* l_pstLogFileInfo, FILE* l_pstFd, char* l_pstrOpenName,
                                int l_nNoLimit) {
  if (l_pstLogFileInfo == nullptr || l_pstFd == nullptr || l_pstrOpenName == nullptr) return RESULT_FAIL;
  m_nFaultSendIncrease = 0;
  fSetDelimitors(l_pstLogFileInfo);
  m_clCycleBuffers.fRelease();

  LineReader l_clReader;
  fUseRulePlans(true);
  long l_lLines = 0;
  long l_lOffSet = ftell(l_pstFd);
  long l_lResult = 0;
  for (;;) {
    const ssize_t l_nRead = getline(&l_clReader.m_pstrLine, &l_clReader.m_nCap, l_pstFd);
    if (l_nRead <= 0) break;
    if (l_clReader.m_pstrLine[l_nRead - 1] != '\n') break;  // unfinished: the agent waits for its end
    ++l_lLines;
    l_lOffSet += static_cast<long>(l_nRead);
    const long l_lLen = static_cast<long>(l_nRead) - 1;
    if (l_lLen == 0) continue;  // empty lines are not offered

    // Accumulator and column buffer as the cycle keeps them; grown for long lines.
    if (m_clCycleBuffers.fMakeRoom(l_lLen) == 0) {
      l_lResult = RESULT_FAIL;
      break;
    }
    char* const l_pstrLine = fgCurrentLine();
    memcpy(l_pstrLine, l_clReader.m_pstrLine, static_cast<size_t>(l_lLen));
    l_pstrLine[l_lLen] = '\0';

    if (l_nNoLimit == 1) m_nFaultSendIncrease = 0;
    fOfferLine(l_pstLogFileInfo, l_pstrOpenName);
    memset(l_pstrLine, 0, static_cast<size_t>(l_lLen) + 1);
  }

  fUseRulePlans(false);
  fSaveGroupOffset(l_pstLogFileInfo, l_lOffSet);
  m_clCycleBuffers.fRelease();
  return l_lResult == RESULT_FAIL ? RESULT_FAIL : l_lLines;
}
