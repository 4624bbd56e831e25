// DEFER_EVENTS: a turn stops at the event ceiling or at a failed event write
// and leaves its offset where the next cycle must go on (see DeferEvents.h).
#include <sys/stat.h>
#include <unistd.h>

#include "AgentStatus.h"
#include "ColumnLogger.h"
#include "DeferEvents.h"
#include "OmniLog.h"

bool g_bDeferEvents = false;

void CColumnLogger::fDeferTurnStart(int l_nIndx, long l_lStart, int l_nFd) {
  m_nDeferFd = l_nFd;
  // A turn that starts before the lines left last time reads another file.
  if (l_nIndx >= 1 && l_nIndx <= MAX_WATCHED_LOGS && l_lStart < m_vstDeferredSpan[l_nIndx].first)
    m_vstDeferredSpan[l_nIndx] = {0, 0};
  m_lDeferSafe = l_lStart;
  m_bDeferWriteFailed = false;
  m_vDeferMarks.clear();
}

void CColumnLogger::fDeferCutBack() {
  // The last log line whose events all stayed in the file; with none, the
  // file goes back to its size before the write.
  size_t l_nKeep = 0;
  for (const auto& l_stMark : m_vDeferMarks) {
    if (l_stMark.first > m_nLastWriteKept) break;
    l_nKeep = l_stMark.first;
    m_lDeferSafe = l_stMark.second;
  }
  m_vDeferMarks.clear();
  if (l_nKeep == m_nLastWriteKept) return;
  if (m_lLastWriteStart >= 0 && truncate(m_strOutPutFileName, m_lLastWriteStart + static_cast<off_t>(l_nKeep)) == 0) {
    m_nLastWriteKept = l_nKeep;
  } else {
    m_bEventFileTorn = true;  // events of a line evaluated again would stand twice: not handed off
  }
}

void CColumnLogger::fDeferNoteRest(int l_nIndx, long l_lFrom) {
  struct stat l_stStat;
  if (g_pclAgentStatus == nullptr || l_nIndx < 1 || l_nIndx > MAX_WATCHED_LOGS || fstat(m_nDeferFd, &l_stStat) != 0) return;
  m_vstDeferredSpan[l_nIndx] = {l_lFrom, static_cast<long>(l_stStat.st_size)};
}

bool CColumnLogger::fDeferLineDone(int l_nIndx, long l_lLineEnd, long* l_plKeep) {
  if (g_pclAgentStatus != nullptr && l_nIndx >= 1 && l_nIndx <= MAX_WATCHED_LOGS &&
      l_lLineEnd > m_vstDeferredSpan[l_nIndx].first && l_lLineEnd <= m_vstDeferredSpan[l_nIndx].second)
    g_pclAgentStatus->fLineDeferred(l_nIndx);
  // Written at a line end, so that a write holds whole lines' events.
  if (m_nEventBufLen > 0) {
    if (!m_vDeferMarks.empty() && m_vDeferMarks.back().first == m_nEventBufLen) {
      m_vDeferMarks.back().second = l_lLineEnd;  // a line without events
    } else {
      m_vDeferMarks.emplace_back(m_nEventBufLen, l_lLineEnd);
    }
  }
  if (m_nEventBufLen > EVENT_BUF_SIZE / 2) fFlushEvents();
  if (!m_bDeferWriteFailed && m_nEventBufLen == 0) m_lDeferSafe = l_lLineEnd;
  if (!m_bDeferWriteFailed && m_nFaultSendIncrease <= m_nFaultSendLimit) return false;
  if (!m_bDeferWriteFailed) {
    fFlushEvents();
    if (!m_bDeferWriteFailed) {
      *l_plKeep = l_lLineEnd;
      fgLogRecord(LOG_GRADE_INFO, LOG_CODE_GATHER, "LOG%02d event ceiling reached, the rest waits for the next cycle (offset %ld)", l_nIndx,
                  l_lLineEnd);
      if (g_pclAgentStatus != nullptr) g_pclAgentStatus->fDeferred(l_nIndx, DEFER_CEILING);
      fDeferNoteRest(l_nIndx, l_lLineEnd);
      return true;
    }
  }
  *l_plKeep = fDeferTurnEnd(l_nIndx, l_lLineEnd);
  return true;
}

long CColumnLogger::fDeferTurnEnd(int l_nIndx, long l_lEnd) {
  if (!m_bDeferWriteFailed) fFlushEvents();
  if (!m_bDeferWriteFailed) return l_lEnd;
  // What is still held belongs to lines after the safe offset: evaluated again.
  m_nEventBufLen = 0;
  m_vDeferMarks.clear();
  fgLogRecord(LOG_GRADE_INFO, LOG_CODE_GATHER, "LOG%02d events not written, read again from offset %ld next cycle", l_nIndx, m_lDeferSafe);
  if (g_pclAgentStatus != nullptr) g_pclAgentStatus->fDeferred(l_nIndx, DEFER_WRITE_FAILED);
  fDeferNoteRest(l_nIndx, m_lDeferSafe);
  return m_lDeferSafe;
}
