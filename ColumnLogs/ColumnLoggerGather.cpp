// The gather cycle: every watched log gets one turn in which its appended
// lines are read, filtered by its line patterns and evaluated; entries that
// watch the same file share one read.
#include <sys/stat.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <new>

#include "AgentStatus.h"
#include "ColumnLogger.h"
#include "CommonConst.h"
#include "DeferEvents.h"
#include "CommonFunc.h"
#include "ConfVocabulary.h"
#include "EventFormat.h"
#include "NString.h"
#include "OmniLog.h"
#include "StrPattern.h"

namespace {

constexpr long CYCLE_BUF_START = 256;  // starting capacity of the accumulator and column buffer

bool fSameGroup(const ST_LOGFILE_INFO* l_pstA, const ST_LOGFILE_INFO* l_pstB) {
  return l_pstB->m_nGatherFlag == 0 && l_pstA->m_chCreateType == l_pstB->m_chCreateType &&
         l_pstA->m_nLogType == l_pstB->m_nLogType && strcmp(l_pstA->m_strLogFile, l_pstB->m_strLogFile) == 0;
}

// A whole line read in the turn of `l_pstFirst` counts for every entry that
// shares the read (status file only).
void fCountLineRead(ST_LOGFILE_INFO* l_pstFirst, long l_lBytes) {
  for (ST_LOGFILE_INFO* l_pstMember = l_pstFirst; l_pstMember != nullptr; l_pstMember = l_pstMember->m_pstNext) {
    if (l_pstMember == l_pstFirst || fSameGroup(l_pstFirst, l_pstMember))
      g_pclAgentStatus->fLineRead(l_pstMember->m_nIndx, l_lBytes);
  }
}

// Reads a watched log piece by piece, a piece being what fgets would give:
// the bytes up to and including the next line end, at most l_nMax of them,
// NUL bytes of the log included. The bytes come from the stream in chunks of
// READ_CHUNK_SIZE, one read each, instead of one library call per byte.
// All of a chunk is used before the next one is read, so at the end of the
// file the stream's position is that of the last byte handed out.
class CPieceReader {
 public:
  explicit CPieceReader(FILE* l_pstFd) : m_pstFd(l_pstFd) {}
  // Fills `l_pstrBuf` (room for l_nMax + 1 bytes) with the next piece and
  // its terminator; returns its length, 0 at the end of the file or on a
  // read error.
  long fNext(char* l_pstrBuf, long l_nMax) {
    long l_lLen = 0;
    while (l_lLen < l_nMax) {
      if (m_lPos == m_lAvail && !fRefill()) break;
      const long l_lWant = std::min(l_nMax - l_lLen, m_lAvail - m_lPos);
      const char* l_pstrFrom = m_strChunk + m_lPos;
      const void* l_pvEnd = memchr(l_pstrFrom, '\n', static_cast<size_t>(l_lWant));
      const long l_lTake = l_pvEnd != nullptr ? static_cast<const char*>(l_pvEnd) - l_pstrFrom + 1 : l_lWant;
      memcpy(l_pstrBuf + l_lLen, l_pstrFrom, static_cast<size_t>(l_lTake));
      l_lLen += l_lTake;
      m_lPos += l_lTake;
      if (l_pvEnd != nullptr) break;
    }
    l_pstrBuf[l_lLen] = '\0';
    return l_lLen;
  }

 private:
  static constexpr long READ_CHUNK_SIZE = 16384;

  bool fRefill() {
    m_lAvail = static_cast<long>(fread(m_strChunk, 1, sizeof(m_strChunk), m_pstFd));
    m_lPos = 0;
    return m_lAvail > 0;
  }

  FILE* m_pstFd;
  long m_lPos = 0;    // next unused byte of the chunk
  long m_lAvail = 0;  // bytes in the chunk
  char m_strChunk[READ_CHUNK_SIZE];
};

}  // namespace

int CColumnLogger::fPattComp(ST_LOGFILE_INFO* l_pstLogFileInfo, int l_nPatternIndex, char* l_pstrString) {
  if (l_pstLogFileInfo == nullptr || l_nPatternIndex < 0 || l_nPatternIndex >= MAX_LINE_PATTERNS ||
      l_pstLogFileInfo->m_vpclStrPattern[l_nPatternIndex] == nullptr)
    return -1;
  if (l_pstrString == nullptr) return 0;
  return l_pstLogFileInfo->m_vpclStrPattern[l_nPatternIndex]->fPatternEx(l_pstrString) == 1 ? 1 : 0;
}

int CColumnLogger::fStartPTCK(ST_LOGFILE_INFO*, char*) { return 0; }
int CColumnLogger::fEndPTCK(ST_LOGFILE_INFO*, char*) { return 0; }
int CColumnLogger::fVarSetLog(ST_LOGFILE_INFO*) { return 1; }
int CColumnLogger::fSkipSetLog(ST_LOGFILE_INFO*) { return 1; }
int CColumnLogger::fSearchDLogMsg(ST_LOGFILE_INFO*, char*) { return 1; }
char* CColumnLogger::fSearchVarValue(char*, ST_LOGFILE_INFO*) { return nullptr; }

void CColumnLogger::fSetDelimitors(ST_LOGFILE_INFO* l_pstLogFileInfo) {
  char l_strDelimitor[64] = {0};
  fgStrCopy(l_strDelimitor, sizeof(l_strDelimitor), l_pstLogFileInfo->m_strDelimitor);
  char* l_pstrSave = nullptr;
  const char* l_pstrFirst = Nstrstrtok(l_strDelimitor, m_vstrSplit[0], &l_pstrSave);
  m_chDilimitor1 = l_pstrFirst != nullptr ? l_pstrFirst[0] : 0;
  if (l_pstrSave == nullptr) {
    // No tilde separator: the whole value names one delimiter character.
    m_chDilimitor2 = 0;
    m_nTokFlag = 1;
    return;
  }
  m_chDilimitor2 = l_pstrSave[0];
  m_nTokFlag = strcmp(l_pstrSave, VALUE_NONE) == 0 ? 1 : 2;
}

int CColumnLogger::fLineFilter(ST_LOGFILE_INFO* l_pstMember, char* l_pstrOpenName) {
  if (g_nPrint == 1) fprintf(stderr, "[%s]Log file : %s\n", l_pstMember->m_strLogFile, l_pstrOpenName);
  fgStrCopy(l_pstMember->m_strLogingFile, sizeof(l_pstMember->m_strLogingFile), l_pstrOpenName);
  char* const l_pstrLine = fgCurrentLine();
  for (int l_nSlot = 0; l_nSlot < MAX_LINE_PATTERNS; ++l_nSlot) {
    const char* l_pstrPattern = l_pstMember->m_vstrLogPattern[l_nSlot];
    if (g_nPrint == 1) fprintf(stderr, "Pattern... Index : %d - %s\n", l_nSlot, l_pstrPattern);
    if (strcmp(l_pstrPattern, VALUE_NONE) == 0) return 1;
    if (l_pstrPattern[0] == '\0') return 0;
    const int l_nResult = fPattComp(l_pstMember, l_nSlot, l_pstrLine);
    if (g_nPrint == 1 && g_pclOmniLog != nullptr) {
      fgLogRecord(LOG_GRADE_INFO, LOG_CODE_GATHER, "LOG PATTERN [index:%d], [grade:%d], [pattern:%s], [comp result:%d]",
                  l_nSlot, l_pstMember->m_vnFaultGrade[l_nSlot], l_pstrPattern, l_nResult);
    }
    if (l_nResult == 1) {
      if (g_nPrint == 1 && g_pclOmniLog != nullptr)
        fgLogRecord(LOG_GRADE_INFO, LOG_CODE_GATHER, "LOG REGULA COMPARE RESULT : TRUE");
      return 1;
    }
  }
  return 0;
}

void CColumnLogger::fOfferLine(ST_LOGFILE_INFO* l_pstLogFileInfo, char* l_pstrOpenName) {
  // With deferral the turn stops after the line that reaches the ceiling, so
  // every entry sharing the file evaluates that line whole.
  const int l_nAtLineStart = m_nFaultSendIncrease;
  for (ST_LOGFILE_INFO* l_pstMember = l_pstLogFileInfo; l_pstMember != nullptr; l_pstMember = l_pstMember->m_pstNext) {
    if (l_pstMember != l_pstLogFileInfo && !fSameGroup(l_pstLogFileInfo, l_pstMember)) continue;
    if (fLineFilter(l_pstMember, l_pstrOpenName) != 1) continue;
    if ((g_bDeferEvents ? l_nAtLineStart : m_nFaultSendIncrease) <= m_nFaultSendLimit) {
      if (g_pclAgentStatus != nullptr) g_pclAgentStatus->fLineEvaluated(l_pstMember->m_nIndx);
      fColumnIndexFind(l_pstMember->m_nIndx, l_pstMember->m_nSecLogCntFaultLevel, l_pstMember->m_nSecLogCount);
    } else if (g_pclAgentStatus != nullptr) {
      g_pclAgentStatus->fLinePassedOver(l_pstMember->m_nIndx);
    }
  }
}

void CColumnLogger::fReadTurn(ST_LOGFILE_INFO* l_pstLogFileInfo, FILE* l_pstFd, char* l_pstrOpenName,
                              long* l_plPieces, long* l_plUnfinished) {
  char l_strPiece[READ_PIECE_SIZE];
  CPieceReader l_clReader(l_pstFd);
  int l_nThrottle = 0;
  // Deferral needs the offset of every line end: where the turn started plus
  // what the reader has handed out.
  const long l_lTurnStart = g_bDeferEvents ? ftell(l_pstFd) : 0;
  long l_lConsumed = 0;
  if (g_bDeferEvents) fDeferTurnStart(l_pstLogFileInfo->m_nIndx, l_lTurnStart, fileno(l_pstFd));
  for (;;) {
    const long l_lPieceLen = l_clReader.fNext(l_strPiece, READ_PIECE_SIZE - 1);
    if (l_lPieceLen == 0) break;
    ++*l_plPieces;
    l_lConsumed += l_lPieceLen;
    if (g_nPrint == 1) fprintf(stderr, "[%s]read_log : %s\n", l_pstLogFileInfo->m_strLogFile, l_strPiece);
    if (++l_nThrottle > READ_THROTTLE_PIECES) {
      fprintf(stderr, "LINE READ COUNT OVER[%d] SLEEP...\n", l_nThrottle);
      l_nThrottle = 0;
      fgUSleep(READ_THROTTLE_USEC);
      // A turn that cannot catch up never returns to the main loop: the
      // status file is kept current from here.
      if (g_pclAgentStatus != nullptr) {
        g_pclAgentStatus->fReadPause();
        if (g_pclAgentStatus->fDue(time(nullptr))) g_pclAgentStatus->fWrite(*this, time(nullptr));
      }
    }

    *l_plUnfinished += l_lPieceLen;
    const long l_lLen = m_clCycleBuffers.fLen();
    if (m_clCycleBuffers.fMakeRoom(l_lPieceLen) == 0) {
      // Out of memory: this line cannot be collected; drop what was gathered of it.
      fgLogErrno(LOG_GRADE_INFO, LOG_CODE_GATHER, ENOMEM, "line of %ld bytes dropped", l_lLen + l_lPieceLen);
      m_clCycleBuffers.fSetLen(0);
      memset(fgCurrentLine(), 0, 1);
      continue;
    }
    char* const l_pstrLine = fgCurrentLine();
    memcpy(l_pstrLine + l_lLen, l_strPiece, static_cast<size_t>(l_lPieceLen) + 1);
    m_clCycleBuffers.fSetLen(l_lLen + l_lPieceLen);
    if (l_strPiece[l_lPieceLen - 1] != '\n') continue;

    *l_plUnfinished = 0;
    if (g_pclAgentStatus != nullptr) fCountLineRead(l_pstLogFileInfo, l_lLen + l_lPieceLen);
    l_pstrLine[l_lLen + l_lPieceLen - 1] = '\0';
    // The column buffer has the accumulator's capacity (CCycleBuffers).
    if (l_pstrLine[0] != '\0') fOfferLine(l_pstLogFileInfo, l_pstrOpenName);
    // The next line is gathered from here; only its terminator matters.
    l_pstrLine[0] = '\0';
    m_clCycleBuffers.fSetLen(0);
    long l_lKeep = 0;
    if (g_bDeferEvents && fDeferLineDone(l_pstLogFileInfo->m_nIndx, l_lTurnStart + l_lConsumed, &l_lKeep)) {
      *l_plUnfinished = ftell(l_pstFd) - l_lKeep;  // the caller saves ftell less this
      return;
    }
  }
  if (g_bDeferEvents) {
    const long l_lEnd = l_lTurnStart + l_lConsumed - *l_plUnfinished;
    *l_plUnfinished = ftell(l_pstFd) - fDeferTurnEnd(l_pstLogFileInfo->m_nIndx, l_lEnd);
  }
}

void CColumnLogger::fSaveGroupOffset(ST_LOGFILE_INFO* l_pstLogFileInfo, long l_lOffSet) {
  const long l_lNow = static_cast<long>(time(nullptr));
  for (ST_LOGFILE_INFO* l_pstMember = l_pstLogFileInfo; l_pstMember != nullptr; l_pstMember = l_pstMember->m_pstNext) {
    if (l_pstMember != l_pstLogFileInfo && !fSameGroup(l_pstLogFileInfo, l_pstMember)) continue;
    l_pstMember->m_lLastGatherTime = l_lNow;
    l_pstMember->m_lOffSet = l_lOffSet;
    fgLogRecord(LOG_GRADE_INFO, LOG_CODE_GATHER, "LOG offset save : %ld", l_lOffSet);
    l_pstMember->m_nGatherFlag = 1;
    // The first look stays each member's own: a member served only through
    // the shared read is positioned by its log type at its first own turn.
  }
}

void CColumnLogger::fTurnOnStream(ST_LOGFILE_INFO* l_pstLogFileInfo, FILE* l_pstFd, char* l_pstrOpenName) {
  l_pstLogFileInfo->m_lLastGatherTime = static_cast<long>(time(nullptr));
  memset(fgCurrentLine(), 0, static_cast<size_t>(m_clCycleBuffers.fLen()) + 1);
  m_clCycleBuffers.fSetLen(0);
  fSetDelimitors(l_pstLogFileInfo);

  long l_lPieces = 0;
  long l_lUnfinished = 0;
  fUseRulePlans(true);
  fReadTurn(l_pstLogFileInfo, l_pstFd, l_pstrOpenName, &l_lPieces, &l_lUnfinished);
  fUseRulePlans(false);
  fSaveGroupOffset(l_pstLogFileInfo, ftell(l_pstFd) - l_lUnfinished);
  fclose(l_pstFd);
  fgLogRecord(LOG_GRADE_INFO, LOG_CODE_GATHER, "log count = %d, fault count = %d", static_cast<int>(l_lPieces),
              m_nFaultSendIncrease);
}

int CColumnLogger::fLogGather() {
  m_nSeqID = 0;
  fgLogRecord(LOG_GRADE_INFO, LOG_CODE_GATHER, "LogGather start");
  const int l_nWaiting = fCheckLimitFile();
  fgLogRecord(LOG_GRADE_INFO, LOG_CODE_GATHER, "Old Event Count = %d", l_nWaiting);
  if (l_nWaiting >= OUTPUT_BACKLOG_LIMIT) {
    if (g_pclAgentStatus != nullptr) g_pclAgentStatus->fCycleSkippedSpool(l_nWaiting);
    return 1;
  }

  m_pclLogFileList->fInitGatherFlag();
  if (m_clCycleBuffers.fStart(CYCLE_BUF_START) == 0) {
    fgLogErrno(LOG_GRADE_INFO, LOG_CODE_GATHER, ENOMEM, "gather cycle skipped");
    return 1;
  }

  m_tCycleStart = time(nullptr);
  m_bNamesPending = true;
  // An empty output directory holds no "out_" file of this second.
  if (l_nWaiting != 0 && fHandOffTaken()) {
    m_bNamesPending = false;
    m_clCycleBuffers.fRelease();
    if (g_pclAgentStatus != nullptr) g_pclAgentStatus->fCycleSkippedTaken();
    return 1;
  }
  if (g_pclAgentStatus != nullptr) g_pclAgentStatus->fCycleRun(l_nWaiting);
  m_nFaultFoundFlag = 0;
  m_bHoldEvents = true;

  m_pclLogFileList->fMoveFirst();
  while (ST_LOGFILE_INFO* l_pstLogFileInfo = m_pclLogFileList->fMoveNext()) {
    m_nFaultSendIncrease = 0;
    if (l_pstLogFileInfo->m_nGatherFlag == 1) continue;

    FILE* l_pstFd = nullptr;
    char l_strOpenName[NAME_BUF_SIZE];
    if (fOpenForTurn(l_pstLogFileInfo, &l_pstFd, l_strOpenName) != 1) {
      l_pstLogFileInfo->m_nGatherFlag = 1;
      continue;
    }
    fTurnOnStream(l_pstLogFileInfo, l_pstFd, l_strOpenName);
  }

  fFlushEvents();
  m_bHoldEvents = false;
  if (m_nFaultFoundFlag == 1) fHandOff();
  m_bNamesPending = false;
  m_clCycleBuffers.fRelease();
  m_tRctGtrTime = time(nullptr);
  fgLogRecord(LOG_GRADE_INFO, LOG_CODE_GATHER, "LogGather end");
  return 1;
}
