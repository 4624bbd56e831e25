// Read side of the configuration store: lock file, reading, lookups.
#include "ConfManager.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <new>

#include "CommonConst.h"
#include "CommonFunc.h"
#include "Holders.h"
#include "NString.h"
#include "OmniLog.h"

namespace {

constexpr mode_t LOCK_FILE_MODE = 0644;

// "[%s] file open failed : %s\n" while console tracing is on.
void fTraceOpenFailed(const char* l_pstrPath, int l_nErr) {
  if (g_nPrint == 1) fprintf(stderr, "[%s] file open failed : %s\n", l_pstrPath, strerror(l_nErr));
}

// The same for a file that opened but could not be read to its end.
void fTraceReadFailed(const char* l_pstrPath, int l_nErr) {
  if (g_nPrint == 1) fprintf(stderr, "[%s] file read failed : %s\n", l_pstrPath, strerror(l_nErr));
}

}  // namespace

CConfManager::CConfManager()
    : m_nOptCount(0),
      m_nIsFile(0),
      m_tFileReadTime(0),
      m_pstFd(nullptr),
      m_nWriteFd(0),
      m_pclObjectBuffer(new (std::nothrow) CObjectBuffer()),
      m_pclAddBuffer(new (std::nothrow) CObjectBuffer()) {
  m_strFileName[0] = '\0';
  m_strSubKey[0] = '\0';
}

CConfManager::~CConfManager() {
  fRemoveBuffer();
  delete m_pclObjectBuffer;
  delete m_pclAddBuffer;
  if (m_nWriteFd != 0) close(m_nWriteFd);
  if (m_pstFd != nullptr) fclose(m_pstFd);
}

int CConfManager::fReleaseBuffer(CObjectBuffer* l_pclBuffer) {
  if (l_pclBuffer == nullptr) return 0;
  const int l_nSize = l_pclBuffer->fGetSize();
  // Indices are unique and positive, so walking 1, 2, ... until every entry
  // has been seen reaches them all.
  int l_nSeen = 0;
  for (int l_nIndex = 1; l_nSeen < l_nSize; ++l_nIndex) {
    if (l_pclBuffer->fGetObjectKey(l_nIndex) == nullptr) continue;
    ++l_nSeen;
    delete[] static_cast<char*>(l_pclBuffer->fGetObject(l_nIndex));
    l_pclBuffer->fSetObject(l_nIndex, nullptr);
  }
  l_pclBuffer->fFreeObjects();
  return l_nSize;
}

// Both buffers are always emptied, also when the read buffer already is:
// after a reload the store holds what the file holds, nothing older.
int CConfManager::fRemoveBuffer() {
  m_tFileReadTime = 0;
  fReleaseBuffer(m_pclObjectBuffer);
  return fReleaseBuffer(m_pclAddBuffer);
}

int CConfManager::fSyncLock() {
  char l_strLockPath[FILE_NAME_SIZE];
  if (snprintf(l_strLockPath, sizeof(l_strLockPath), "%s_lock", m_strFileName) >= static_cast<int>(sizeof(l_strLockPath))) {
    errno = ENAMETOOLONG;
    return 0;
  }
  char l_strPid[TINY_BUF_SIZE];
  const int l_nPidLen = snprintf(l_strPid, sizeof(l_strPid), "%d", static_cast<int>(getpid()));

  // A lock file that outlives LOCK_WAITS waits belongs to a process that
  // died or hangs: it is taken over.
  struct stat l_stInfo;
  for (int l_nWaits = 0; l_nWaits < LOCK_WAITS && stat(l_strLockPath, &l_stInfo) == 0; ++l_nWaits) {
    fgUSleep(LOCK_WAIT_USEC);
  }

  CFdHolder l_clFd(fgOpen(l_strLockPath, O_RDWR | O_CREAT, LOCK_FILE_MODE));
  if (l_clFd.fGet() <= 0) return 0;
  ssize_t l_nWritten;
  do {
    l_nWritten = write(l_clFd.fGet(), l_strPid, l_nPidLen);
  } while (l_nWritten < 0 && errno == EINTR);
  return l_nWritten == l_nPidLen ? 1 : 0;
}

int CConfManager::fSyncUnLock() {
  char l_strLockPath[FILE_NAME_SIZE];
  if (snprintf(l_strLockPath, sizeof(l_strLockPath), "%s_lock", m_strFileName) < static_cast<int>(sizeof(l_strLockPath))) {
    unlink(l_strLockPath);
  }
  return 1;
}

int CConfManager::fOpen(char* l_pstrMode) {
  fClose(l_pstrMode);
  if (l_pstrMode != nullptr && strcmp(l_pstrMode, "r") == 0) {
    m_pstFd = fopen(m_strFileName, "re");  // "e": close-on-exec
    if (m_pstFd == nullptr) {
      fTraceOpenFailed(m_strFileName, errno);
      return 0;
    }
    return 1;
  }
  char l_strTempPath[FILE_NAME_SIZE];
  if (snprintf(l_strTempPath, sizeof(l_strTempPath), "%s_", m_strFileName) >= static_cast<int>(sizeof(l_strTempPath))) {
    m_nWriteFd = 0;
    fTraceOpenFailed(l_strTempPath, ENAMETOOLONG);
    return 0;
  }
  const int l_nFd = fgOpen(l_strTempPath, O_RDWR | O_CREAT | O_TRUNC, LOCK_FILE_MODE);
  if (l_nFd <= 0) {
    const int l_nErr = errno;
    if (l_nFd == 0) close(l_nFd);
    m_nWriteFd = 0;
    fTraceOpenFailed(l_strTempPath, l_nErr);
    return 0;
  }
  m_nWriteFd = l_nFd;
  return 1;
}

int CConfManager::fClose(char* l_pstrMode) {
  if (l_pstrMode != nullptr && strcmp(l_pstrMode, "r") == 0) {
    if (m_pstFd != nullptr) fclose(m_pstFd);
    m_pstFd = nullptr;
  } else {
    if (m_nWriteFd != 0) close(m_nWriteFd);
    m_nWriteFd = 0;
  }
  struct stat l_stInfo;
  if (stat(m_strFileName, &l_stInfo) == 0) m_tFileReadTime = l_stInfo.st_mtime;
  return 1;
}

int CConfManager::fStoreKeyLine(char* l_pstrLine) {
  if (strchr(l_pstrLine, '=') == nullptr || m_pclObjectBuffer == nullptr) return 1;
  char* l_pstrSave = nullptr;
  char* l_pstrKey = Nstrtok(l_pstrLine, "=", &l_pstrSave);
  // Nothing after the '=' run (not even a newline): the file or the piece
  // ended there, and the line is ignored.
  if (l_pstrKey == nullptr || l_pstrSave == nullptr || *l_pstrSave == '\0') return 1;

  size_t l_nLen = strlen(l_pstrSave);
  if (l_pstrSave[l_nLen - 1] == '\n') --l_nLen;
  char* l_pstrValue = new (std::nothrow) char[l_nLen + 1];
  if (l_pstrValue == nullptr) return -1;
  memcpy(l_pstrValue, l_pstrSave, l_nLen);
  l_pstrValue[l_nLen] = '\0';
  if (m_pclObjectBuffer->fObjectPut(l_pstrKey, l_pstrValue) <= 0) {
    delete[] l_pstrValue;
    return -1;
  }
  return 1;
}

int CConfManager::fFileRead() {
  char l_strRead[] = "r";
  if (fOpen(l_strRead) != 1) return -1;

  const bool l_bSectionMode = m_strSubKey[0] != '\0';
  const size_t l_nSubKeyLen = strlen(m_strSubKey);
  bool l_bInSection = false;
  int l_nResult = 1;
  char l_strLine[LINE_BUF_SIZE];
  for (;;) {
    memset(l_strLine, 0, sizeof(l_strLine));
    const int l_nPiece = l_bInSection ? SECTION_LINE_PIECE : LINE_PIECE;
    if (fgets(l_strLine, l_nPiece + 1, m_pstFd) == nullptr) break;
    char* l_pstrPos = l_strLine;
    while (*l_pstrPos == ' ') ++l_pstrPos;
    if (*l_pstrPos == '#') continue;

    if (!l_bSectionMode || l_bInSection) {
      // Inside the section, any line with '[' (even within a value) ends it.
      if (l_bInSection && strchr(l_pstrPos, '[') != nullptr) break;
      if (fStoreKeyLine(l_pstrPos) < 0) {
        l_nResult = -1;
        errno = ENOMEM;
        break;
      }
      continue;
    }

    // Section mode, before the section: the first line examined decides.
    if (strchr(l_pstrPos, '[') == nullptr) break;
    const char* l_pstrClose = strchr(l_pstrPos + 1, ']');
    if (l_pstrClose == nullptr) continue;
    const size_t l_nNameLen = static_cast<size_t>(l_pstrClose - (l_pstrPos + 1));
    if (l_nNameLen != l_nSubKeyLen || memcmp(l_pstrPos + 1, m_strSubKey, l_nNameLen) != 0) break;
    l_bInSection = true;
  }
  // A read error (a directory, an I/O fault) is a failed read, not a short file.
  if (l_nResult == 1 && ferror(m_pstFd)) l_nResult = -1;
  if (l_nResult < 0) fTraceReadFailed(m_strFileName, errno);
  fClose(l_strRead);
  return l_nResult;
}

int CConfManager::fFileInfoSet(char* l_pstrFile, char* l_pstrSubKey) {
  fRemoveBuffer();
  m_strFileName[0] = '\0';
  m_strSubKey[0] = '\0';
  if (l_pstrFile == nullptr) return 0;
  // Cutting a name would read another file (or section): refuse instead.
  if (strlen(l_pstrFile) >= sizeof(m_strFileName) ||
      (l_pstrSubKey != nullptr && strlen(l_pstrSubKey) >= sizeof(m_strSubKey))) {
    fprintf(stderr, "%s conf file name too long(file read) : %s\n", l_pstrFile, strerror(ENAMETOOLONG));
    return 0;
  }
  fgStrCopy(m_strFileName, sizeof(m_strFileName), l_pstrFile);
  if (l_pstrSubKey != nullptr) fgStrCopy(m_strSubKey, sizeof(m_strSubKey), l_pstrSubKey);

  if (fSyncLock() != 1) {
    fprintf(stderr, "%s conf file lock failed(file read) : %s\n", m_strFileName, strerror(errno));
    return 0;
  }
  if (fFileRead() == -1) {
    fSyncUnLock();
    return 0;
  }
  m_nIsFile = 1;
  fSyncUnLock();
  return 1;
}

int CConfManager::fReFresh() {
  struct stat l_stInfo;
  if (stat(m_strFileName, &l_stInfo) != 0 || l_stInfo.st_mtime == m_tFileReadTime) return 0;
  if (fSyncLock() != 1) {
    fprintf(stderr, "%s conf file lock failed(file reload) : %s\n", m_strFileName, strerror(errno));
    return 0;
  }
  fRemoveBuffer();
  const int l_nRead = fFileRead();
  fSyncUnLock();
  return l_nRead != -1 ? 1 : 0;
}

char* CConfManager::fGetOpt(char* l_pstrKey) {
  if (l_pstrKey == nullptr) return nullptr;
  char* l_pstrValue = nullptr;
  if (m_pclObjectBuffer != nullptr) l_pstrValue = static_cast<char*>(m_pclObjectBuffer->fGetObject(l_pstrKey));
  if (l_pstrValue == nullptr && m_pclAddBuffer != nullptr) {
    l_pstrValue = static_cast<char*>(m_pclAddBuffer->fGetObject(l_pstrKey));
  }
  return l_pstrValue;
}
