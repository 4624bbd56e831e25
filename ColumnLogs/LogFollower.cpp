// FOLLOW_ROTATION: the file a watched log is read from is held until it is
// read to its end, whatever its name means meanwhile (LogFollower.h).
#include "LogFollower.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "ColumnLogger.h"
#include "CommonFunc.h"
#include "ConfVocabulary.h"
#include "OmniLog.h"

CLogFollower* g_pclLogFollower = nullptr;

CLogFollower::~CLogFollower() {
  for (ST_FOLLOWED& l_stSlot : m_vstSlots) fLetGo(l_stSlot);
}

CLogFollower::ST_FOLLOWED* CLogFollower::fSlot(const ST_LOGFILE_INFO* l_pstLog) {
  // A log read whole every cycle has no position to keep.
  if (l_pstLog->m_nIndx < 1 || l_pstLog->m_nIndx > MAX_WATCHED_LOGS || l_pstLog->m_nLogType == LOG_TYPE_WHOLE_FILE)
    return nullptr;
  return &m_vstSlots[l_pstLog->m_nIndx];
}

void CLogFollower::fHold(ST_FOLLOWED& l_stSlot, int l_nFd, const std::string& l_strFile) {
  fLetGo(l_stSlot);
  const int l_nHeld = fcntl(l_nFd, F_DUPFD_CLOEXEC, 0);
  if (l_nHeld < 0) return;
  if (!fgFileIdentity(l_nHeld, FINGERPRINT_BYTES, &l_stSlot.m_stId)) {
    close(l_nHeld);
    return;
  }
  l_stSlot.m_nFd = l_nHeld;
  l_stSlot.m_bKnown = true;
  l_stSlot.m_strFile = l_strFile;
}

void CLogFollower::fLetGo(ST_FOLLOWED& l_stSlot) {
  if (l_stSlot.m_nFd >= 0) close(l_stSlot.m_nFd);
  l_stSlot.m_nFd = -1;
}

bool CLogFollower::fReadHeld(CColumnLogger& l_clLogger, ST_LOGFILE_INFO* l_pstLog, ST_FOLLOWED& l_stSlot) {
  struct stat l_stStat;
  if (fstat(l_stSlot.m_nFd, &l_stStat) != 0 || l_stStat.st_size <= l_pstLog->m_lOffSet) return true;
  // The held descriptor is only read with pread: the stream may move the
  // position they share.
  const int l_nFd = fcntl(l_stSlot.m_nFd, F_DUPFD_CLOEXEC, 0);
  FILE* l_pstFd = l_nFd >= 0 ? fdopen(l_nFd, "r") : nullptr;
  if (l_pstFd == nullptr) {
    if (l_nFd >= 0) close(l_nFd);
    fgLogErrno(LOG_GRADE_INFO, LOG_CODE_GATHER, errno, "LOG%02d %s not read to its end", l_pstLog->m_nIndx,
               l_stSlot.m_strFile.c_str());
    return true;
  }
  char l_strName[NAME_BUF_SIZE];
  fgStrCopy(l_strName, sizeof(l_strName), l_stSlot.m_strFile.c_str());
  if (fseek(l_pstFd, l_pstLog->m_lOffSet, SEEK_SET) != 0) {
    fclose(l_pstFd);
    return true;
  }
  l_clLogger.fTurnOnStream(l_pstLog, l_pstFd, l_strName);  // closes the stream
  return !fgLineAfter(l_stSlot.m_nFd, l_pstLog->m_lOffSet);
}

int CLogFollower::fOnOpen(CColumnLogger& l_clLogger, ST_LOGFILE_INFO* l_pstLog, FILE* l_pstFd,
                          const char* l_pstrOpenName) {
  ST_FOLLOWED* const l_pstSlot = fSlot(l_pstLog);
  if (l_pstSlot == nullptr) return 1;
  ST_FOLLOWED& l_stSlot = *l_pstSlot;
  struct stat l_stStat;
  if (fstat(fileno(l_pstFd), &l_stStat) != 0) return 1;
  if (!l_stSlot.m_bKnown) {
    if (m_bFollow) fHold(l_stSlot, fileno(l_pstFd), l_pstrOpenName);
    return 1;
  }
  const bool l_bSameInode = l_stStat.st_dev == l_stSlot.m_stId.m_stDev && l_stStat.st_ino == l_stSlot.m_stId.m_stIno;
  if (l_bSameInode && l_stSlot.m_nFd >= 0) {
    if (l_stStat.st_size >= l_pstLog->m_lOffSet && fgSameFile(l_stSlot.m_nFd, l_stSlot.m_stId)) {
      // Still the file read: its first bytes are hashed again while it is short.
      if (!m_bFollow) {
        fLetGo(l_stSlot);
        l_stSlot.m_bKnown = false;
      } else if (l_stSlot.m_stId.m_lPrintLen < FINGERPRINT_BYTES && l_stStat.st_size > l_stSlot.m_stId.m_lPrintLen)
        fgFileIdentity(l_stSlot.m_nFd, FINGERPRINT_BYTES, &l_stSlot.m_stId);
      return 1;
    }
    // Truncated, or written again from its start: the lines after the offset
    // are in a copy, if one was made.
    std::string l_strCopy;
    const int l_nCopy =
        fgFindFile(l_stSlot.m_strFile, l_stSlot.m_stId, l_pstLog->m_lOffSet, &l_strCopy) == FOUND_COPY
            ? fgOpen(l_strCopy.c_str(), O_RDONLY | O_NONBLOCK, 0)
            : -1;
    if (l_nCopy < 0) {
      fgLogRecord(LOG_GRADE_INFO, LOG_CODE_GATHER, "LOG%02d %s was truncated and no copy of it is found, read from its start",
                  l_pstLog->m_nIndx, l_pstrOpenName);
    } else {
      fgLogRecord(LOG_GRADE_INFO, LOG_CODE_GATHER, "LOG%02d %s was truncated, its copy %s is read from offset %ld first",
                  l_pstLog->m_nIndx, l_pstrOpenName, l_strCopy.c_str(), l_pstLog->m_lOffSet);
      fHold(l_stSlot, l_nCopy, l_strCopy);
      close(l_nCopy);
    }
    if (l_nCopy < 0 || l_stSlot.m_nFd < 0) fLetGo(l_stSlot);
  }
  // The name means another file than the one read.
  if (l_stSlot.m_nFd >= 0) {
    // While the new file is empty its writer may still be writing to the held
    // one, unless that one is deleted.
    struct stat l_stHeld;
    if (l_stStat.st_size == 0 && fstat(l_stSlot.m_nFd, &l_stHeld) == 0 && l_stHeld.st_nlink > 0) {
      fReadHeld(l_clLogger, l_pstLog, l_stSlot);
      return -1;
    }
    if (!fReadHeld(l_clLogger, l_pstLog, l_stSlot)) return -1;
    fgLogRecord(LOG_GRADE_INFO, LOG_CODE_GATHER, "LOG%02d %s read to its end, %s is read from its start",
                l_pstLog->m_nIndx, l_stSlot.m_strFile.c_str(), l_pstrOpenName);
    fLetGo(l_stSlot);
  }
  l_stSlot.m_bKnown = false;
  fgStrCopy(l_pstLog->m_strLogingFile, sizeof(l_pstLog->m_strLogingFile), l_pstrOpenName);
  l_pstLog->m_lOffSet = 0;
  if (m_bFollow) fHold(l_stSlot, fileno(l_pstFd), l_pstrOpenName);
  return 1;
}

void CLogFollower::fOnOpenFailed(CColumnLogger& l_clLogger, ST_LOGFILE_INFO* l_pstLog) {
  ST_FOLLOWED* const l_pstSlot = fSlot(l_pstLog);
  if (l_pstSlot == nullptr || l_pstSlot->m_nFd < 0) return;
  const bool l_bDone = fReadHeld(l_clLogger, l_pstLog, *l_pstSlot);
  struct stat l_stStat;
  if (l_bDone && fstat(l_pstSlot->m_nFd, &l_stStat) == 0 && l_stStat.st_nlink == 0) {
    fgLogRecord(LOG_GRADE_INFO, LOG_CODE_GATHER, "LOG%02d %s was deleted and is read to its end", l_pstLog->m_nIndx,
                l_pstSlot->m_strFile.c_str());
    fLetGo(*l_pstSlot);  // its identity stays known: a new file under the name is read from its start
  }
}

bool CLogFollower::fHandOver(int l_nIndx, const std::string& l_strFile) {
  if (l_nIndx < 1 || l_nIndx > MAX_WATCHED_LOGS) return false;
  const int l_nFd = fgOpen(l_strFile.c_str(), O_RDONLY | O_NONBLOCK, 0);
  if (l_nFd < 0) return false;
  fHold(m_vstSlots[l_nIndx], l_nFd, l_strFile);
  close(l_nFd);
  return m_vstSlots[l_nIndx].m_nFd >= 0;
}

bool CLogFollower::fHeld(int l_nIndx, ST_FILE_ID* l_pstId, std::string* l_pstrFile) const {
  if (l_nIndx < 1 || l_nIndx > MAX_WATCHED_LOGS || m_vstSlots[l_nIndx].m_nFd < 0) return false;
  if (!fgFileIdentity(m_vstSlots[l_nIndx].m_nFd, FINGERPRINT_BYTES, l_pstId)) return false;
  *l_pstrFile = m_vstSlots[l_nIndx].m_strFile;
  return true;
}
