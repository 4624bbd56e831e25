// Logger core: construction, modes and grades, the record formats and the
// synchronous write path. The file lifecycle is in OmniLogFile.cpp, the
// writer thread in OmniLogThread.cpp, the module masks in OmniLogMode.cpp.
#include "OmniLog.h"

#include <fcntl.h>
#include <pthread.h>
#include <unistd.h>

#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <memory>
#include <new>

#include "CommonFunc.h"

int g_nPrint = 0;
COmniLog* g_pclOmniLog = nullptr;

// One lock for all loggers of the process. It is initialised statically
// rather than by fSetThreadChk and never destroyed, so switching the check
// on in one logger while another logger holds the lock, or destroying one
// logger while another still uses it, is safe.
static pthread_mutex_t l_gstLogMutexLock = PTHREAD_MUTEX_INITIALIZER;

namespace {

// Compressors in order of preference: any "compress" before any "gzip".
const char* const kCompressorPaths[] = {
    "/usr/sbin/compress", "/usr/bin/compress", "/bin/compress", "/sbin/compress",
    "/usr/sbin/gzip",     "/usr/bin/gzip",     "/bin/gzip",     "/sbin/gzip",
};

constexpr size_t kPathSlack = 256;    // heap paths: length of the prefix plus this
constexpr size_t kRecordSlack = 256;  // records: length of code (or file) and message plus this
constexpr size_t kTimeBufSize = 16;   // "YYYYMMDD-HHMMSS" and the terminator
constexpr size_t kSmallRecord = 1024;  // records up to this size are formatted on the stack

}  // namespace

namespace {

// Formats `l_pstrFormat` in full: into the caller's stack buffer when it
// fits, otherwise into `l_pstrHeap`, allocated to the right size. Null for a
// bad format or when memory is exhausted.
char* fFormatRecord(char* l_pstrStack, size_t l_nStack, std::unique_ptr<char[]>& l_pstrHeap, const char* l_pstrFormat,
                    va_list l_stArgs) {
  va_list l_stCopy;
  va_copy(l_stCopy, l_stArgs);
  const int l_nLen = vsnprintf(l_pstrStack, l_nStack, l_pstrFormat, l_stArgs);
  char* l_pstrMsg = l_nLen < 0 ? nullptr : l_pstrStack;
  if (l_nLen >= 0 && static_cast<size_t>(l_nLen) >= l_nStack) {
    // Too long for the stack buffer: format again into one of the right size.
    l_pstrHeap.reset(new (std::nothrow) char[static_cast<size_t>(l_nLen) + 1]);
    if (l_pstrHeap != nullptr) vsnprintf(l_pstrHeap.get(), static_cast<size_t>(l_nLen) + 1, l_pstrFormat, l_stCopy);
    l_pstrMsg = l_pstrHeap.get();
  }
  va_end(l_stCopy);
  return l_pstrMsg;
}

void fWriteRecord(int l_nGrade, const char* l_pstrCode, char* l_pstrMsg) {
  char l_strCode[64];
  fgStrCopy(l_strCode, sizeof(l_strCode), fgTextOrEmpty(l_pstrCode));
  g_pclOmniLog->fLogWrite(l_nGrade, l_strCode, l_pstrMsg);
}

}  // namespace

void fgLogRecord(int l_nGrade, const char* l_pstrCode, const char* l_pstrFormat, ...) {
  if (g_pclOmniLog == nullptr || l_pstrFormat == nullptr) return;
  char l_strStack[512];
  std::unique_ptr<char[]> l_pstrHeap;
  va_list l_stArgs;
  va_start(l_stArgs, l_pstrFormat);
  char* l_pstrMsg = fFormatRecord(l_strStack, sizeof(l_strStack), l_pstrHeap, l_pstrFormat, l_stArgs);
  va_end(l_stArgs);
  if (l_pstrMsg == nullptr) return;  // bad format or no memory: dropped
  fWriteRecord(l_nGrade, l_pstrCode, l_pstrMsg);
}

namespace {

// The two shapes of a failed call's record; a null step gives the plain one.
void fLogErrnoV(int l_nGrade, const char* l_pstrCode, int l_nErrno, const char* l_pstrStep, const char* l_pstrFormat,
                va_list l_stArgs) {
  if (g_pclOmniLog == nullptr || l_pstrFormat == nullptr) return;
  char l_strStack[512];
  std::unique_ptr<char[]> l_pstrHeap;
  const char* l_pstrText = fFormatRecord(l_strStack, sizeof(l_strStack), l_pstrHeap, l_pstrFormat, l_stArgs);
  if (l_pstrText == nullptr) return;
  if (l_pstrStep == nullptr)
    fgLogRecord(l_nGrade, l_pstrCode, "[%d] %s : %s", l_nErrno, l_pstrText, strerror(l_nErrno));
  else
    fgLogRecord(l_nGrade, l_pstrCode, "[%d] %s(%s : %s)", l_nErrno, l_pstrText, l_pstrStep, strerror(l_nErrno));
}

}  // namespace

void fgLogErrno(int l_nGrade, const char* l_pstrCode, int l_nErrno, const char* l_pstrFormat, ...) {
  va_list l_stArgs;
  va_start(l_stArgs, l_pstrFormat);
  fLogErrnoV(l_nGrade, l_pstrCode, l_nErrno, nullptr, l_pstrFormat, l_stArgs);
  va_end(l_stArgs);
}

void fgLogErrnoStep(int l_nGrade, const char* l_pstrCode, int l_nErrno, const char* l_pstrStep,
                    const char* l_pstrFormat, ...) {
  va_list l_stArgs;
  va_start(l_stArgs, l_pstrFormat);
  fLogErrnoV(l_nGrade, l_pstrCode, l_nErrno, l_pstrStep, l_pstrFormat, l_stArgs);
  va_end(l_stArgs);
}

COmniLog::COmniLog(int l_nLogMode, char* l_pstrMCName, int l_nValidDay)
    : m_pcQueue(nullptr),
      m_nThreadMode(0),
      m_pstrLogFile(nullptr),
      m_pstrLogPath(nullptr),
      m_strMCName{},
      m_strCurrentDate{},
      m_strCompressPath{},
      m_nCompressChk(0),
      m_nValidDay(2),
      m_nLogMode(LOG_MODE_NORMAL),
      m_nFileFd(0),
      m_nThreadChk(0),
      m_nLogCnt(0),
      m_nLogCompress(0),
      m_ulLogSize(DEFAULT_LOG_SIZE),
      m_nLivInvLogFlag(1),
      m_pfnClock(nullptr),
      m_nStopRequest(0),
      m_nThreadEnded(1) {
  fInit(l_nLogMode, l_pstrMCName, l_nValidDay);
}

COmniLog::COmniLog(int l_nLogMode, char* l_pstrMCName, int l_nValidDay, int l_nThread)
    : COmniLog(l_nLogMode, l_pstrMCName, l_nValidDay) {
  // The object is complete before the writer thread starts, so the thread
  // never sees a half-built logger.
  if (l_nThread == 1) {
    fStartThread();
  } else {
    m_nThreadMode = l_nThread;
  }
}

COmniLog::~COmniLog() {
  fStopThread();
  delete[] m_pstrLogPath;
  m_pstrLogPath = nullptr;
  fCloseLogFile();
  delete[] m_pstrLogFile;
  m_pstrLogFile = nullptr;
}

void COmniLog::fInit(int l_nLogMode, char* l_pstrMCName, int l_nValidDay) {
  fSetLogMode(l_nLogMode);
  fSetValidDay(l_nValidDay);

  // A name of 16 characters or more is cut to its first 15: every file name
  // still carries a recognisable name, and nothing is refused at start-up.
  memset(m_strMCName, 0, sizeof(m_strMCName));
  fgStrCopy(m_strMCName, sizeof(m_strMCName), fgTextOrEmpty(l_pstrMCName));

  m_pstrLogPath = new (std::nothrow) char[kPathSlack]();
  if (m_pstrLogPath != nullptr) fgStrCopy(m_pstrLogPath, kPathSlack, "./");

  m_nFileFd = 0;
  m_nLogCompress = 0;
  m_nThreadChk = 0;
  m_nLogCnt = 0;
  m_ulLogSize = DEFAULT_LOG_SIZE;
  m_pstrLogFile = nullptr;
  memset(m_strCurrentDate, 0, sizeof(m_strCurrentDate));
  fgStrCopy(m_strCurrentDate, sizeof(m_strCurrentDate), "EMPTY");

  // Agent loggers resume the day's most recent file after a restart. The
  // whole given name is searched, also past a cut.
  const char* l_pstrName = fgTextOrEmpty(l_pstrMCName);
  m_nLivInvLogFlag = (strstr(l_pstrName, "AGENT") != nullptr || strstr(l_pstrName, "agent") != nullptr) ? 0 : 1;

  m_nCompressChk = 0;
  memset(m_strCompressPath, 0, sizeof(m_strCompressPath));
  for (const char* l_pstrPath : kCompressorPaths) {
    if (access(l_pstrPath, F_OK) == 0) {
      fgStrCopy(m_strCompressPath, sizeof(m_strCompressPath), l_pstrPath);
      m_nCompressChk = 1;
      break;
    }
  }
}

int COmniLog::fSetLogPath(char* l_pstrLogPath) {
  if (l_pstrLogPath == nullptr) return -1;
  const size_t l_nSize = strlen(l_pstrLogPath) + kPathSlack;
  char* l_pstrNew = new (std::nothrow) char[l_nSize]();
  if (l_pstrNew == nullptr) return -1;  // the old prefix stays in force
  fgStrCopy(l_pstrNew, l_nSize, l_pstrLogPath);
  delete[] m_pstrLogPath;
  m_pstrLogPath = l_pstrNew;
  return 1;
}

int COmniLog::fSetLogMode(int l_nLogMode) {
  if (l_nLogMode >= LOG_MODE_DEBUG && l_nLogMode <= LOG_MODE_ERROR) {
    m_nLogMode = l_nLogMode;
    return 1;
  }
  m_nLogMode = LOG_MODE_NORMAL;
  return 0;
}

int COmniLog::fSetValidDay(int l_nValidDay) {
  if (l_nValidDay >= 0) {
    m_nValidDay = l_nValidDay;
    return 1;
  }
  m_nValidDay = 2;
  return 0;
}

int COmniLog::fGetLogMode() { return m_nLogMode; }

int COmniLog::fSetThreadChk(int l_nThreadChk) {
  m_nThreadChk = (l_nThreadChk >= 1) ? 1 : 0;
  return m_nThreadChk;
}

int COmniLog::fLogWrite(int l_nLogGrade, char* l_pstrLogCode, char* l_pstrLogMsg) {
  const int l_nLocked = m_nThreadChk;  // read once: lock and unlock must pair
  if (l_nLocked == 1) pthread_mutex_lock(&l_gstLogMutexLock);
  if (m_nThreadMode != 1) {
    fWrite(l_nLogGrade, l_pstrLogCode, l_pstrLogMsg);
  } else {
    fQueueMessage(0, "src", l_pstrLogMsg);
  }
  if (l_nLocked == 1) pthread_mutex_unlock(&l_gstLogMutexLock);
  return 0;
}

int COmniLog::fLogWrite(int l_nLogGrade, int l_nLine, char* l_pstrFileName, char* l_pstrLogMsg) {
  const int l_nLocked = m_nThreadChk;
  if (l_nLocked == 1) pthread_mutex_lock(&l_gstLogMutexLock);
  if (m_nThreadMode != 1) {
    fWrite(l_nLogGrade, l_nLine, l_pstrFileName, l_pstrLogMsg);
  } else {
    fQueueMessage(l_nLine, l_pstrFileName, l_pstrLogMsg);
  }
  if (l_nLocked == 1) pthread_mutex_unlock(&l_gstLogMutexLock);
  return 0;
}

int COmniLog::fWrite(int l_nLogGrade, char* l_pstrLogCode, char* l_pstrLogMsg) {
  return fWriteGraded(l_nLogGrade, fgTextOrEmpty(l_pstrLogCode), nullptr, fgTextOrEmpty(l_pstrLogMsg));
}

int COmniLog::fWriteGraded(int l_nLogGrade, const char* l_pstrLabel, const int* l_pnLine, const char* l_pstrMsg) {
  char l_strTime[kTimeBufSize] = {};
  fGetDayTime(0, l_strTime, 2);

  // Records of ordinary length are formatted on the stack; a longer one
  // (a long message or file name) on the heap, and dropped if there is no
  // memory for it.
  const size_t l_nSize = strlen(l_pstrLabel) + strlen(l_pstrMsg) + kRecordSlack;
  char l_strSmall[kSmallRecord];
  std::unique_ptr<char[]> l_upLarge;
  char* l_pstrRecord = l_strSmall;
  if (l_nSize > sizeof(l_strSmall)) {
    l_upLarge.reset(new (std::nothrow) char[l_nSize]);
    if (!l_upLarge) return 0;
    l_pstrRecord = l_upLarge.get();
  }
  l_pstrRecord[0] = '\0';  // a grade that writes nothing leaves it empty

  const char* l_pstrGrade = nullptr;
  if (l_nLogGrade == 1 && m_nLogMode == LOG_MODE_DEBUG) {
    l_pstrGrade = "DEBUG";
  } else if (l_nLogGrade == 2 || l_nLogGrade == 3) {
    l_pstrGrade = "INFO";
  }
  if (l_pstrGrade != nullptr && l_pnLine == nullptr) {
    snprintf(l_pstrRecord, l_nSize, "[%s][%s][%s]%s\n", l_strTime, l_pstrGrade, l_pstrLabel, l_pstrMsg);
  } else if (l_pstrGrade != nullptr) {
    snprintf(l_pstrRecord, l_nSize, "[%s][%s][%s][%d]%s\n", l_strTime, l_pstrGrade, l_pstrLabel, *l_pnLine, l_pstrMsg);
  }
  return fWriteRecord(l_pstrRecord);
}

int COmniLog::fWriteRecord(const char* l_pstrRecord) {
  if (g_nPrint == 1) fprintf(stderr, "%s", l_pstrRecord);
  fDateChangeChk();
  if (fLogSizeChk() == 0 || m_nFileFd == 0) return 0;
  // One unbuffered write: the record is visible at once and nothing waits
  // in a user-space buffer. A short or failed write is not retried.
  const size_t l_nLen = strlen(l_pstrRecord);
  if (l_nLen > 0 && write(m_nFileFd, l_pstrRecord, l_nLen) < 0) {
    // ignored: a failing log file must not disturb the caller
  }
  return 1;
}

Queue<MessageQWriteLog*>* COmniLog::fGetMessageQueue() { return m_pcQueue; }

void COmniLog::fSetClock(OmniLogClock l_pfnClock) { m_pfnClock = l_pfnClock; }

time_t COmniLog::fNow() const { return m_pfnClock != nullptr ? m_pfnClock() : time(nullptr); }

int COmniLog::fFormatTime(time_t l_tTime, char* l_pstrOut, int l_nMode) {
  struct tm l_stTm;
  if (l_pstrOut == nullptr || localtime_r(&l_tTime, &l_stTm) == nullptr) return 0;
  // Formatted in full first; the caller's buffer takes at most 15 characters.
  char l_strFull[80] = {};
  const int l_nYear = l_stTm.tm_year + 1900;
  if (l_nMode == 1) {
    snprintf(l_strFull, sizeof(l_strFull), "%04d%02d%02d", l_nYear, l_stTm.tm_mon + 1, l_stTm.tm_mday);
  } else if (l_nMode == 2) {
    snprintf(l_strFull, sizeof(l_strFull), "%02d%02d%02d", l_stTm.tm_hour, l_stTm.tm_min, l_stTm.tm_sec);
  } else if (l_nMode == 3) {
    snprintf(l_strFull, sizeof(l_strFull), "%04d%02d%02d-%02d%02d%02d", l_nYear, l_stTm.tm_mon + 1, l_stTm.tm_mday,
             l_stTm.tm_hour, l_stTm.tm_min, l_stTm.tm_sec);
  } else {
    return 1;  // an unknown mode formats nothing
  }
  fgStrCopy(l_pstrOut, kTimeBufSize, l_strFull);
  return 1;
}

int COmniLog::fGetDayTime(int l_nDayTime, char* l_pstrDayTime, int l_nMode) {
  // The reentrant conversion is used here too: the writer thread and other
  // threads of the process may convert times at the same moment.
  const time_t l_tTime = (l_nDayTime > 0) ? static_cast<time_t>(l_nDayTime) : fNow();
  if (l_nMode < 1 || l_nMode > kTimeModes) {
    fFormatTime(l_tTime, l_pstrDayTime, l_nMode);  // formats nothing
    return static_cast<int>(l_tTime);
  }
  // Every record converts the same second twice (time of day, date check):
  // the last second's text is kept per mode and converted only when the
  // second changes. A conversion that fails leaves nothing kept.
  ST_TIME_TEXT& l_stText = m_vstTimeText[l_nMode - 1];
  if (l_stText.m_tTime != l_tTime || l_tTime < 0) {
    char l_strText[kTimeBufSize] = {};
    if (fFormatTime(l_tTime, l_strText, l_nMode) == 0 && fFormatTime(l_tTime, l_strText, l_nMode) == 0) {
      l_stText.m_tTime = -1;
      return static_cast<int>(l_tTime);
    }
    memcpy(l_stText.m_strText, l_strText, sizeof(l_strText));
    l_stText.m_tTime = l_tTime;
  }
  memcpy(l_pstrDayTime, l_stText.m_strText, sizeof(l_stText.m_strText));
  return static_cast<int>(l_tTime);
}

int COmniLog::fOpenLogFile() {
  if (m_nFileFd != 0) fCloseLogFile();
  if (m_pstrLogFile == nullptr) return 0;
  int l_nFd = fgOpen(m_pstrLogFile, O_APPEND | O_CREAT | O_RDWR, 0644);
  if (l_nFd == 0) {
    // Standard input was closed and the file got descriptor 0, which means
    // "no file" here: move it up so it is neither lost nor leaked.
    const int l_nHigh = fcntl(l_nFd, F_DUPFD_CLOEXEC, 1);
    close(l_nFd);
    l_nFd = l_nHigh;
  }
  if (l_nFd > 0) {
    m_nFileFd = l_nFd;  // close-on-exec is set by fgOpen
    return 1;
  }
  fprintf(stderr, "%s log file open failed : %s\n", m_pstrLogFile, strerror(errno));
  m_nFileFd = 0;
  return 0;
}

int COmniLog::fCloseLogFile() {
  if (m_nFileFd != 0) {
    close(m_nFileFd);
    m_nFileFd = 0;
  }
  return 1;
}
