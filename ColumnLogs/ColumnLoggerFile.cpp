// Turning a configured watched-log name into the file to read now, opening it
// and positioning the stream where reading resumes.
#include <dirent.h>
#include <fcntl.h>
#include <fnmatch.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <memory>

#include "ColumnLogger.h"
#include "CommonConst.h"
#include "CommonFunc.h"
#include "ConfVocabulary.h"
#include "Holders.h"
#include "LogFileName.h"
#include "LogFollower.h"
#include "OmniLog.h"

namespace {

// A failed first look still counts as the first look for types 0 and 2.
void fMarkFirstLook(ST_LOGFILE_INFO* l_pstLogFileInfo) {
  if (l_pstLogFileInfo->m_nFirstFlag == 0 &&
      (l_pstLogFileInfo->m_nLogType == LOG_TYPE_FROM_END || l_pstLogFileInfo->m_nLogType == LOG_TYPE_FROM_START))
    l_pstLogFileInfo->m_nFirstFlag = 1;
}

// Opens a watched log for reading. The open does not block, so a FIFO
// under the log's name cannot stop the whole agent, and only a regular file
// is taken: a directory fails with EISDIR and anything else with ESPIPE (its
// offset could not be kept), so it gets the usual open-failure record
// instead of being read as an empty file or waited on. Null with errno set.
FILE* fOpenLogStream(const char* l_pstrPath) {
  const int l_nFd = fgOpen(l_pstrPath, O_RDONLY | O_NONBLOCK, 0);
  if (l_nFd < 0) return nullptr;
  struct stat l_stStat;
  int l_nErr = 0;
  if (fstat(l_nFd, &l_stStat) != 0) {
    l_nErr = errno;
  } else if (S_ISDIR(l_stStat.st_mode)) {
    l_nErr = EISDIR;
  } else if (!S_ISREG(l_stStat.st_mode)) {
    l_nErr = ESPIPE;
  } else if (fcntl(l_nFd, F_SETFL, 0) != 0) {  // clears O_NONBLOCK, the only status flag set
    l_nErr = errno;
  }
  FILE* l_pstFd = l_nErr == 0 ? fdopen(l_nFd, "r") : nullptr;
  if (l_pstFd == nullptr) {
    if (l_nErr == 0) l_nErr = errno;
    close(l_nFd);
    errno = l_nErr;
  }
  return l_pstFd;
}

}  // namespace

int CColumnLogger::fLogFileNameConvert(char* l_pstrLogFile, char l_chCreateType, char* l_pstrOutName) {
  if (l_pstrLogFile == nullptr || l_pstrOutName == nullptr) return -1;
  // The clock is read once per name, so that all groups of one name agree.
  const time_t l_tNow = time(nullptr);
  struct tm l_stNow;
  localtime_r(&l_tNow, &l_stNow);
  const size_t l_nUsed = strnlen(l_pstrOutName, NAME_BUF_SIZE);
  const int l_nResult =
      fgExpandLogFileName(l_pstrLogFile, l_chCreateType, &l_stNow, l_pstrOutName + l_nUsed, NAME_BUF_SIZE - l_nUsed);
  switch (l_nResult) {
    case LOGNAME_OK:
      return 1;
    case LOGNAME_NO_CLOSE:
      fgLogRecord(LOG_GRADE_INFO, LOG_CODE_GATHER, "[-3] log file name is invalid pattern : %s", l_pstrLogFile);
      break;
    case LOGNAME_BAD_TOKEN:
      fgLogRecord(LOG_GRADE_INFO, LOG_CODE_GATHER, "[-4] log file name is invalid pattern : %s", l_pstrLogFile);
      break;
    default: fgLogRecord(LOG_GRADE_INFO, LOG_CODE_GATHER, "[-5] log file name is too long : %s", l_pstrLogFile); break;
  }
  l_pstrOutName[l_nUsed] = '\0';
  return -1;
}

int CColumnLogger::fLogFileNameCheck(char* l_pstrLogFile) {
  const int l_nResult = fgLogFileNameUnit(l_pstrLogFile);
  if (l_nResult == LOGNAME_NO_CLOSE) {
    fgLogRecord(LOG_GRADE_INFO, LOG_CODE_GATHER, "[-1] log file name is invalid pattern : %s", l_pstrLogFile);
    return -1;
  }
  if (l_nResult < 0) {
    fgLogRecord(LOG_GRADE_INFO, LOG_CODE_GATHER, "[-2] log file name is invalid pattern : %s", l_pstrLogFile);
    return -1;
  }
  return l_nResult;
}

int CColumnLogger::fLogFileOpen(char* l_pstrLogFile, FILE** l_ppstFd) {
  if (l_pstrLogFile == nullptr || l_ppstFd == nullptr) return -1;
  const char* l_pstrSlash = strrchr(l_pstrLogFile, '/');
  if (l_pstrSlash == nullptr) {
    fgLogRecord(LOG_GRADE_INFO, LOG_CODE_GATHER, "[-1] %s file open failed (log file path error)", l_pstrLogFile);
    return -1;
  }
  char l_strDir[NAME_BUF_SIZE] = {0};
  char l_strPattern[NAME_BUF_SIZE] = {0};
  memcpy(l_strDir, l_pstrLogFile, static_cast<size_t>(l_pstrSlash - l_pstrLogFile) + 1);
  fgStrCopy(l_strPattern, sizeof(l_strPattern), l_pstrSlash + 1);

  struct stat l_stStat;
  if (lstat(l_strDir, &l_stStat) != 0) {
    fgLogErrnoStep(LOG_GRADE_INFO, LOG_CODE_GATHER, errno, "stat error", "%s file open fail ", l_strDir);
    return -1;
  }
  if (!S_ISDIR(l_stStat.st_mode)) {
    fgLogErrnoStep(LOG_GRADE_INFO, LOG_CODE_GATHER, ENOTDIR, "is not directory", "%s file open fail", l_strDir);
    return -1;
  }
  DirHandle l_pstDir(opendir(l_strDir));
  if (!l_pstDir) {
    fgLogErrnoStep(LOG_GRADE_INFO, LOG_CODE_GATHER, errno, "can't open directory", "%s file open fail", l_strDir);
    return -1;
  }

  // The newest match wins; among equal times the first in directory order.
  char l_strChosen[NAME_BUF_SIZE] = {0};
  time_t l_tChosen = 0;
  const size_t l_nDirLen = strlen(l_strDir);
  while (struct dirent* l_pstEntry = readdir(l_pstDir.get())) {
    if (l_pstEntry->d_name[0] == '.') continue;
    if (fnmatch(l_strPattern, l_pstEntry->d_name, 0) != 0) continue;
    const size_t l_nNameLen = strlen(l_pstEntry->d_name);
    if (l_nDirLen + l_nNameLen >= static_cast<size_t>(NAME_BUF_SIZE)) continue;  // its path would not fit
    char l_strPath[NAME_BUF_SIZE];
    memcpy(l_strPath, l_strDir, l_nDirLen);
    memcpy(l_strPath + l_nDirLen, l_pstEntry->d_name, l_nNameLen + 1);
    if (stat(l_strPath, &l_stStat) != 0 || l_stStat.st_mtime <= 0) continue;
    if (l_stStat.st_mtime > l_tChosen) {
      l_tChosen = l_stStat.st_mtime;
      memcpy(l_strChosen, l_strPath, l_nDirLen + l_nNameLen + 1);
    }
  }
  if (l_strChosen[0] == '\0') {
    fgLogRecord(LOG_GRADE_INFO, LOG_CODE_GATHER, "[-1] %s file open fail(can't find file)", l_strPattern);
    return -1;
  }
  memcpy(l_pstrLogFile, l_strChosen, strlen(l_strChosen) + 1);
  *l_ppstFd = fOpenLogStream(l_pstrLogFile);
  if (*l_ppstFd == nullptr) {
    const int l_nErr = errno;
    fgLogErrno(LOG_GRADE_INFO, LOG_CODE_GATHER, l_nErr, "%s log file open fail", l_pstrLogFile);
    return -1;
  }
  return 1;
}

int CColumnLogger::fFilePointSeek(ST_LOGFILE_INFO* l_pstLogFileInfo, FILE** l_ppstFd) {
  if (l_pstLogFileInfo == nullptr || l_ppstFd == nullptr || *l_ppstFd == nullptr) return -1;
  struct stat l_stStat;
  if (stat(l_pstLogFileInfo->m_strLogingFile, &l_stStat) != 0) {
    fgLogErrnoStep(LOG_GRADE_INFO, LOG_CODE_GATHER, errno, "stat error", "%s file point seek fail",
                   l_pstLogFileInfo->m_strLogingFile);
    fMarkFirstLook(l_pstLogFileInfo);
    return -1;
  }
  if (static_cast<long>(l_stStat.st_mtime) != l_pstLogFileInfo->m_lLogFileModifyTime) {
    l_pstLogFileInfo->m_lLogFileModifyTime = static_cast<long>(l_stStat.st_mtime);
    if (l_pstLogFileInfo->m_nLogType == LOG_TYPE_WHOLE_FILE) l_pstLogFileInfo->m_lOffSet = 0;
  }
  const long l_lSize = static_cast<long>(l_stStat.st_size);
  long l_lTarget;
  if (l_pstLogFileInfo->m_nFirstFlag == 1) {
    // A file shorter than the offset was truncated or replaced: start over.
    if (l_pstLogFileInfo->m_lOffSet > l_lSize) l_pstLogFileInfo->m_lOffSet = 0;
    l_lTarget = l_pstLogFileInfo->m_lOffSet;
  } else {
    // First look: the end of the file for type 0, its start otherwise.
    l_lTarget = l_pstLogFileInfo->m_nLogType == LOG_TYPE_FROM_END ? l_lSize : 0;
    fMarkFirstLook(l_pstLogFileInfo);
  }
  // Nothing new: the seek would land on the end of the file, so it is not
  // made. (A stream that seeks also reads the block it lands in: for a log
  // that has not grown, that was three system calls and a buffer a cycle.)
  if (l_lTarget == l_lSize) {
    l_pstLogFileInfo->m_lOffSet = l_lSize;
    fNoteQuietLog(l_pstLogFileInfo, &l_stStat);
    return -1;
  }
  if (fseek(*l_ppstFd, l_lTarget, SEEK_SET) != 0) return -1;
  const long l_lPosition = ftell(*l_ppstFd);
  if (l_lPosition == l_lSize) {
    l_pstLogFileInfo->m_lOffSet = l_lPosition;
    return -1;
  }
  return 1;
}

namespace {

// Only a plain name qualifies (a wildcard's choice depends on other files),
// and only a log past its first look that resumes at its offset (type 1
// reads the whole file every turn).
bool fQuietCandidate(const ST_LOGFILE_INFO* l_pstLogFileInfo) {
  return l_pstLogFileInfo->m_chCreateType != CREATE_TYPE_WILDCARD && l_pstLogFileInfo->m_nLogType != LOG_TYPE_WHOLE_FILE &&
         l_pstLogFileInfo->m_nFirstFlag == 1;
}

}  // namespace

void CColumnLogger::fNoteQuietLog(const ST_LOGFILE_INFO* l_pstLogFileInfo, const struct stat* l_pstStat) {
  const int l_nIndx = l_pstLogFileInfo->m_nIndx;
  if (l_nIndx < 1 || l_nIndx > MAX_WATCHED_LOGS) return;
  ST_QUIET_LOG& l_stQuiet = m_vstQuietLogs[l_nIndx];
  l_stQuiet = ST_QUIET_LOG();
  if (l_pstStat == nullptr || !fQuietCandidate(l_pstLogFileInfo)) return;
  l_stQuiet.m_pstLog = l_pstLogFileInfo;
  l_stQuiet.m_stDev = l_pstStat->st_dev;
  l_stQuiet.m_stIno = l_pstStat->st_ino;
  l_stQuiet.m_lSize = l_pstStat->st_size;
  l_stQuiet.m_stMtime = l_pstStat->st_mtim;
  l_stQuiet.m_stCtime = l_pstStat->st_ctim;
}

// The turn that was skipped here would have opened the same regular file
// (same device, inode, mode and owner: the change time would differ
// otherwise), kept the name, found the same modification time and size,
// with the offset at the end: nothing new, and nothing to record.
bool CColumnLogger::fStillQuiet(ST_LOGFILE_INFO* l_pstLogFileInfo, const char* l_pstrOpenName) {
  const int l_nIndx = l_pstLogFileInfo->m_nIndx;
  if (l_nIndx < 1 || l_nIndx > MAX_WATCHED_LOGS) return false;
  const ST_QUIET_LOG& l_stQuiet = m_vstQuietLogs[l_nIndx];
  // With the console trace on, every turn goes the whole way and shows it.
  if (g_nPrint == 1 || l_stQuiet.m_pstLog != l_pstLogFileInfo || !fQuietCandidate(l_pstLogFileInfo) ||
      l_pstLogFileInfo->m_lOffSet != static_cast<long>(l_stQuiet.m_lSize) ||
      l_pstLogFileInfo->m_lLogFileModifyTime != static_cast<long>(l_stQuiet.m_stMtime.tv_sec) ||
      strcmp(l_pstLogFileInfo->m_strLogingFile, l_pstrOpenName) != 0)
    return false;
  struct stat l_stStat;
  if (stat(l_pstrOpenName, &l_stStat) != 0) return false;
  return l_stStat.st_dev == l_stQuiet.m_stDev && l_stStat.st_ino == l_stQuiet.m_stIno &&
         l_stStat.st_size == l_stQuiet.m_lSize && l_stStat.st_mtim.tv_sec == l_stQuiet.m_stMtime.tv_sec &&
         l_stStat.st_mtim.tv_nsec == l_stQuiet.m_stMtime.tv_nsec &&
         l_stStat.st_ctim.tv_sec == l_stQuiet.m_stCtime.tv_sec && l_stStat.st_ctim.tv_nsec == l_stQuiet.m_stCtime.tv_nsec;
}

int CColumnLogger::fOpenForTurn(ST_LOGFILE_INFO* l_pstLogFileInfo, FILE** l_ppstFd, char* l_pstrOpenName) {
  memset(l_pstrOpenName, 0, NAME_BUF_SIZE);
  const int l_nConvert = fLogFileNameConvert(l_pstLogFileInfo->m_strLogFile, l_pstLogFileInfo->m_chCreateType,
                                             l_pstrOpenName);
  const int l_nCreateType = static_cast<int>(l_pstLogFileInfo->m_chCreateType);
  const int l_nOffSet = static_cast<int>(l_pstLogFileInfo->m_lOffSet);
  if (g_nPrint == 1) {
    fprintf(stderr, "GATHER LOG : %s[%d] <%s> --- offset = %d\n", l_pstLogFileInfo->m_strLogFile, l_nCreateType,
            l_pstrOpenName, l_nOffSet);
  }
  fgLogRecord(LOG_GRADE_INFO, LOG_CODE_GATHER, "log [%d] offset = [%d]", l_pstLogFileInfo->m_nIndx, l_nOffSet);
  if (g_nPrint == 1) {
    fgLogRecord(LOG_GRADE_DEBUG, LOG_CODE_GATHER, "GATHER LOG : %s[%d] <%s> --- offset = %d",
                l_pstLogFileInfo->m_strLogFile, l_nCreateType, l_pstrOpenName, l_nOffSet);
  }
  if (l_nConvert != 1) return -1;
  if (fStillQuiet(l_pstLogFileInfo, l_pstrOpenName)) {
    l_pstLogFileInfo->m_lLastGatherTime = static_cast<long>(time(nullptr));
    return -1;
  }
  fNoteQuietLog(l_pstLogFileInfo, nullptr);

  // The name could not be opened: a followed file may still have lines.
  auto l_fOpenFailed = [&]() {
    fMarkFirstLook(l_pstLogFileInfo);
    if (g_pclLogFollower != nullptr) g_pclLogFollower->fOnOpenFailed(*this, l_pstLogFileInfo);
    return -1;
  };
  if (l_pstLogFileInfo->m_chCreateType != 0) {
    if (g_nPrint == 1) {
      fprintf(stderr, "open file checking : [%d]%s\n", static_cast<int>(strlen(l_pstrOpenName)), l_pstrOpenName);
      fgLogRecord(LOG_GRADE_INFO, LOG_CODE_GATHER, "open file checking : [%d]%s",
                  static_cast<int>(strlen(l_pstrOpenName)), l_pstrOpenName);
    }
    *l_ppstFd = fOpenLogStream(l_pstrOpenName);
    if (*l_ppstFd == nullptr) {
      fgLogErrno(LOG_GRADE_INFO, LOG_CODE_GATHER, errno, "%s log file open fail", l_pstrOpenName);
      return l_fOpenFailed();
    }
  } else if (fLogFileOpen(l_pstrOpenName, l_ppstFd) != 1) {
    return l_fOpenFailed();
  }
  if (g_pclLogFollower != nullptr && g_pclLogFollower->fOnOpen(*this, l_pstLogFileInfo, *l_ppstFd, l_pstrOpenName) != 1) {
    fclose(*l_ppstFd);
    *l_ppstFd = nullptr;
    return -1;
  }

  if (l_pstLogFileInfo->m_strLogingFile[0] == '\0' || strcmp(l_pstLogFileInfo->m_strLogingFile, l_pstrOpenName) != 0) {
    fgStrCopy(l_pstLogFileInfo->m_strLogingFile, sizeof(l_pstLogFileInfo->m_strLogingFile), l_pstrOpenName);
    l_pstLogFileInfo->m_lOffSet = 0;
  }
  if (g_nPrint == 1) fprintf(stderr, "LoggingFile Name : %s\n", l_pstLogFileInfo->m_strLogingFile);

  if (fFilePointSeek(l_pstLogFileInfo, l_ppstFd) != 1) {
    l_pstLogFileInfo->m_lLastGatherTime = static_cast<long>(time(nullptr));
    fclose(*l_ppstFd);
    *l_ppstFd = nullptr;
    return -1;
  }
  return 1;
}
