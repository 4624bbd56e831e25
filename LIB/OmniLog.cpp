// Logger core: construction, modes and grades, the record formats and the
// synchronous write path.
#include "OmniLog.h"

#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <new>

int g_nPrint = 0;
COmniLog* g_pclOmniLog = nullptr;

void fgLogRecord(int l_nGrade, const char* l_pstrCode, const char* l_pstrFormat, ...) {
  if (g_pclOmniLog == nullptr || l_pstrFormat == nullptr) return;
  char l_strStack[512];
  va_list l_stArgs;
  va_start(l_stArgs, l_pstrFormat);
  va_list l_stCopy;
  va_copy(l_stCopy, l_stArgs);
  int l_nLen = vsnprintf(l_strStack, sizeof(l_strStack), l_pstrFormat, l_stArgs);
  va_end(l_stArgs);
  char* l_pstrMsg = l_strStack;
  char* l_pstrHeap = nullptr;
  if (l_nLen < 0) {
    va_end(l_stCopy);
    return;
  }
  if (static_cast<size_t>(l_nLen) >= sizeof(l_strStack)) {
    // Too long for the stack buffer: format again into one of the right size.
    l_pstrHeap = new (std::nothrow) char[static_cast<size_t>(l_nLen) + 1];
    if (l_pstrHeap == nullptr) {
      va_end(l_stCopy);
      return;  // no memory: the record is dropped
    }
    vsnprintf(l_pstrHeap, static_cast<size_t>(l_nLen) + 1, l_pstrFormat, l_stCopy);
    l_pstrMsg = l_pstrHeap;
  }
  va_end(l_stCopy);
  char l_strCode[64];
  snprintf(l_strCode, sizeof(l_strCode), "%s", l_pstrCode == nullptr ? "" : l_pstrCode);
  g_pclOmniLog->fLogWrite(l_nGrade, l_strCode, l_pstrMsg);
  delete[] l_pstrHeap;
}

// ---- Everything below is a placeholder until the logger is complete. ----

COmniLog::COmniLog(int l_nLogMode, char* l_pstrMCName, int l_nValidDay)
    : m_pcQueue(nullptr), m_nThreadMode(0), m_pstrLogFile(nullptr), m_pstrLogPath(nullptr),
      m_strMCName{}, m_strCurrentDate{}, m_strCompressPath{}, m_nCompressChk(0), m_nValidDay(2),
      m_nLogMode(2), m_nFileFd(0), m_nThreadChk(0), m_nLogCnt(0), m_nLogCompress(0),
      m_ulLogSize(DEFAULT_LOG_SIZE), m_nLivInvLogFlag(1), m_pfnClock(nullptr), m_nStopRequest(0),
      m_nThreadEnded(1) {
  fInit(l_nLogMode, l_pstrMCName, l_nValidDay);
}

COmniLog::COmniLog(int l_nLogMode, char* l_pstrMCName, int l_nValidDay, int l_nThread)
    : COmniLog(l_nLogMode, l_pstrMCName, l_nValidDay) {
  (void)l_nThread;
}

COmniLog::~COmniLog() { delete[] m_pstrLogPath; delete[] m_pstrLogFile; }

void COmniLog::fInit(int l_nLogMode, char* l_pstrMCName, int l_nValidDay) {
  fSetLogMode(l_nLogMode);
  fSetValidDay(l_nValidDay);
  if (l_pstrMCName != nullptr) snprintf(m_strMCName, sizeof(m_strMCName), "%s", l_pstrMCName);
}
int COmniLog::fSetLogPath(char*) { return 1; }
int COmniLog::fSetLogMode(int l_nLogMode) { m_nLogMode = l_nLogMode; return 1; }
int COmniLog::fSetValidDay(int l_nValidDay) { m_nValidDay = l_nValidDay; return 1; }
int COmniLog::fGetLogMode() { return m_nLogMode; }
int COmniLog::fSetThreadChk(int) { return 0; }
int COmniLog::fLogWrite(int l_nLogGrade, char* l_pstrLogCode, char* l_pstrLogMsg) {
  fWrite(l_nLogGrade, l_pstrLogCode, l_pstrLogMsg);
  return 0;
}
int COmniLog::fLogWrite(int, int, char*, char*) { return 0; }
int COmniLog::fWrite(int, char*, char*) { return 0; }
int COmniLog::fWrite(int, int, char*, char*) { return 0; }
Queue<MessageQWriteLog*>* COmniLog::fGetMessageQueue() { return m_pcQueue; }
int COmniLog::fDateChangeChk() { return 0; }
int COmniLog::fLogSizeChk() { return 0; }
int COmniLog::fSetLogSize(int, int) { return 1; }
int COmniLog::fSetLogCompress(int) { return 0; }
int COmniLog::fLogCompress() { return 0; }
int COmniLog::fGetRecentLogFile(char*) { return -1; }
int COmniLog::fGetThreadDayTime(int, char*, int) { return 0; }
int COmniLog::fSetLogModeBit(char*) { return 1; }
int COmniLog::fStopThread() { return 0; }
void COmniLog::fSetClock(OmniLogClock l_pfnClock) { m_pfnClock = l_pfnClock; }
int COmniLog::fOpenLogFile() { return 0; }
int COmniLog::fCloseLogFile() { return 1; }
int COmniLog::fGetDayTime(int, char*, int) { return 0; }
int COmniLog::fLogNameChange(int) { return 0; }
void COmniLog::fOldLogFileCheck(int) {}
int COmniLog::fStartThread() { return 0; }
void COmniLog::fOldLogFileSweep(time_t) {}
time_t COmniLog::fNow() const { return m_pfnClock != nullptr ? m_pfnClock() : time(nullptr); }
int COmniLog::fWriteRecord(const char*) { return 0; }
void COmniLog::fQueueMessage(int, const char*, const char*) {}
void* fLogThreadQ(void*) { return nullptr; }

int g_nLogModERROR = 0;
int g_nLogModNORMAL = 0;
int g_nLogModDEBUG = 0;
int g_nLoggingERROR1 = 0;
int g_nLoggingNORMAL1 = 0;
int g_nLoggingDEBUG1 = 0;
int g_nLoggingERROR2 = 0;
int g_nLoggingNORMAL2 = 0;
int g_nLoggingDEBUG2 = 0;
