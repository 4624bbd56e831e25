// Event output of the gatherer: the life of the cycle's event file (its
// names, the events appended to it, its hand-off to the collector) and the
// count of the output directory.
#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <memory>

#include "AgentStatus.h"
#include "ColumnLogger.h"
#include "CommonConst.h"
#include "DeferEvents.h"
#include "CommonFunc.h"
#include "EventFormat.h"
#include "Holders.h"
#include "OmniLog.h"

namespace {

// Most event lines fit here; longer ones go to one exact-size heap buffer.
constexpr size_t EVENT_STACK_SIZE = 2048;

}  // namespace

// The counters advance before anything can fail: a dropped event still counts
// toward the per-log ceiling and still makes the cycle run its close-out.
int CColumnLogger::fMakeOutFile(ST_NUM_PATTERN_LIST* l_pstNumPatternList, int l_nType, char* l_pstrValueMsg) {
  m_nFaultFoundFlag = 1;
  m_nFaultSendIncrease++;
  if (g_pclAgentStatus != nullptr) g_pclAgentStatus->fEvent(STATUS_KIND_NUMERIC);
  if (l_pstNumPatternList == nullptr) return RESULT_FAIL;
  return fAppendRuleEvent(l_pstNumPatternList->m_nIndex, l_nType, l_pstNumPatternList->m_nFaultLevel,
                          l_pstNumPatternList->m_nComumnNum, l_pstrValueMsg);
}

int CColumnLogger::fMakeOutFile(ST_CHAR_PATTERN_LIST* l_pstCharPatternList, int l_nType, char* l_pstrValueMsg) {
  m_nFaultFoundFlag = 1;
  m_nFaultSendIncrease++;
  if (g_pclAgentStatus != nullptr) g_pclAgentStatus->fEvent(STATUS_KIND_TEXT);
  if (l_pstCharPatternList == nullptr) return RESULT_FAIL;
  return fAppendRuleEvent(l_pstCharPatternList->m_nIndex, l_nType, l_pstCharPatternList->m_nFaultLevel,
                          l_pstCharPatternList->m_nComumnNum, l_pstrValueMsg);
}

// The line is formatted in full, however long the message and the line are.
int CColumnLogger::fAppendRuleEvent(int l_nIndex, int l_nType, int l_nFaultLevel, int l_nColumnNum,
                                    const char* l_pstrValueMsg) {
  if (l_pstrValueMsg == nullptr) return RESULT_FAIL;
  const char* l_pstrLine = fgCurrentLine();
  if (l_pstrLine == nullptr) l_pstrLine = "";  // outside a gather cycle

  char l_strStack[EVENT_STACK_SIZE];
  std::unique_ptr<char[]> l_pstrHeap;
  long l_lLen = 0;
  const char* l_pstrEvent =
      fgFormatFull(l_strStack, sizeof(l_strStack), l_pstrHeap, &l_lLen, [&](char* l_pstrBuf, size_t l_nSize) {
        return fgFormatRuleEvent(l_pstrBuf, l_nSize, l_nIndex, l_nType, l_nFaultLevel, l_nColumnNum, l_pstrValueMsg,
                                 l_pstrLine);
      });
  if (l_pstrEvent == nullptr) return RESULT_FAIL;
  return fAppendEvent(l_pstrEvent, static_cast<size_t>(l_lLen));
}

int CColumnLogger::fMakeOutFile(char* l_pstrValueMsg) {
  m_nFaultSendIncrease++;
  m_nFaultFoundFlag = 1;
  if (g_pclAgentStatus != nullptr) g_pclAgentStatus->fEvent(STATUS_KIND_LINE_RATE);
  if (l_pstrValueMsg == nullptr) return RESULT_FAIL;
  return fAppendEvent(l_pstrValueMsg, strlen(l_pstrValueMsg));
}

int CColumnLogger::fAppendEvent(const char* l_pstrLine, size_t l_nLen) {
  if (!m_bHoldEvents) return fWriteEventFile(l_pstrLine, l_nLen);
  if (!m_pstrEventBuf) {
    m_pstrEventBuf.reset(new (std::nothrow) char[EVENT_BUF_SIZE]);
    if (!m_pstrEventBuf) return fWriteEventFile(l_pstrLine, l_nLen);  // no memory: one write each
  }
  if (l_nLen > EVENT_BUF_SIZE - m_nEventBufLen && fFlushEvents() != RESULT_OK) return RESULT_FAIL;
  if (l_nLen > EVENT_BUF_SIZE) return fWriteEventFile(l_pstrLine, l_nLen);  // a huge line: on its own
  memcpy(m_pstrEventBuf.get() + m_nEventBufLen, l_pstrLine, l_nLen);
  m_nEventBufLen += l_nLen;
  return RESULT_OK;
}

void CColumnLogger::fMakeCycleNames() {
  if (!m_bNamesPending) return;
  m_bNamesPending = false;
  struct tm l_stCycle;
  localtime_r(&m_tCycleStart, &l_stCycle);
  fgMakeEventFileName(m_strOutPutFileName, sizeof(m_strOutPutFileName), m_strOutPutPath, &l_stCycle);
  fgMakeCloseOutCommand(m_strSystem, sizeof(m_strSystem), m_strOutPutFileName, m_strOutPutPath, &l_stCycle);
}

int CColumnLogger::fFlushEvents() {
  if (m_nEventBufLen == 0) return RESULT_OK;
  const size_t l_nLen = m_nEventBufLen;
  m_nEventBufLen = 0;
  if (fWriteEventFile(m_pstrEventBuf.get(), l_nLen) == RESULT_OK) {
    if (!m_vDeferMarks.empty()) m_lDeferSafe = m_vDeferMarks.back().second;
    m_vDeferMarks.clear();
    return RESULT_OK;
  }
  const int l_nErrno = errno;
  if (g_bDeferEvents) fDeferCutBack();
  // The bytes really lost: a short write keeps the whole event lines it wrote.
  fgLogErrno(LOG_GRADE_INFO, LOG_CODE_GATHER, l_nErrno, "%s event write failed, %zu bytes lost", m_strOutPutFileName,
             l_nLen - m_nLastWriteKept);
  return RESULT_FAIL;
}

// The file is opened as fopen's "a+" opens it (read and append, created with
// mode 0666 less the umask) but without a stream, and closed again at once:
// nothing stays open between writes.
int CColumnLogger::fWriteEventFile(const char* l_pstrText, size_t l_nLen) {
  fMakeCycleNames();
  // fgOpen adds close-on-exec, so the shell of the close-out command never inherits it.
  m_nLastWriteKept = 0;
  const int l_nFd = fgOpen(m_strOutPutFileName, O_RDWR | O_CREAT | O_APPEND, 0666);
  if (l_nFd < 0) {
    m_bDeferWriteFailed = true;
    if (g_pclAgentStatus != nullptr) g_pclAgentStatus->fWriteFailure();
    return RESULT_FAIL;
  }
  struct stat l_stBefore;
  const off_t l_lBefore = fstat(l_nFd, &l_stBefore) == 0 ? l_stBefore.st_size : -1;
  m_lLastWriteStart = l_lBefore;
  size_t l_nDone = 0;
  while (l_nDone < l_nLen) {
    const ssize_t l_nWritten = write(l_nFd, l_pstrText + l_nDone, l_nLen - l_nDone);
    if (l_nWritten < 0 && errno == EINTR) continue;
    if (l_nWritten <= 0) break;
    l_nDone += static_cast<size_t>(l_nWritten);
  }
  // A short write (disk full) is cut back to its last whole event line, so a
  // handed-off file never ends in a part of one.
  const int l_nSavedErrno = errno;
  m_nLastWriteKept = l_nDone;
  if (l_nDone != l_nLen) {
    size_t l_nWhole = l_nDone;
    while (l_nWhole > 0 && l_pstrText[l_nWhole - 1] != '\n') --l_nWhole;
    if (l_nWhole != l_nDone) {
      if (l_lBefore >= 0 && ftruncate(l_nFd, l_lBefore + static_cast<off_t>(l_nWhole)) == 0) {
        m_nLastWriteKept = l_nWhole;
      } else {
        m_bEventFileTorn = true;
      }
    }
  }
  // A failed close means the events were not kept either.
  const int l_nClose = close(l_nFd);
  if (l_nDone != l_nLen || l_nClose != 0) {
    m_bDeferWriteFailed = true;
    if (l_nClose != 0) m_nLastWriteKept = 0;
    if (g_pclAgentStatus != nullptr) g_pclAgentStatus->fWriteFailure();
    if (l_nDone != l_nLen) errno = l_nSavedErrno;
    return RESULT_FAIL;
  }
  return RESULT_OK;
}

// The cycle's "out_" name: the event file name with "ing_" turned into
// "out_". False when the event file name does not have that form.
bool CColumnLogger::fHandOffName(char* l_pstrOutName, size_t l_nSize) const {
  const size_t l_nPrefix = strlen(m_strOutPutPath);
  if (strncmp(m_strOutPutFileName, m_strOutPutPath, l_nPrefix) != 0 ||
      strncmp(m_strOutPutFileName + l_nPrefix, "ing_", 4) != 0)
    return false;
  if (fgStrCopy(l_pstrOutName, l_nSize, m_strOutPutFileName) != 1) return false;
  memcpy(l_pstrOutName + l_nPrefix, "out_", 4);
  return true;
}

// Event file names carry whole seconds. A cycle in the same second as an
// earlier one whose "out_" file still waits for the collector (the agent
// restarted within that second, or the clock was set back) would have its
// hand-off replace that file and lose its events. Such a cycle is skipped:
// nothing is read, the offsets stay, and the next second gives a new name.
bool CColumnLogger::fHandOffTaken() {
  fMakeCycleNames();
  char l_strOutName[NAME_BUF_SIZE];
  if (!fHandOffName(l_strOutName, sizeof(l_strOutName))) return false;
  struct stat l_stStat;
  if (lstat(l_strOutName, &l_stStat) != 0) return false;
  fgLogErrno(LOG_GRADE_INFO, LOG_CODE_GATHER, EEXIST, "%s not collected yet, cycle skipped", l_strOutName);
  return true;
}

// Hands the cycle's event file to the collector. The close-out command in
// m_strSystem is a "mv" within one directory, which is a rename: the agent
// makes that rename itself, and runs the command through the shell only when
// the rename fails, so that every unusual case (the "out_" name taken by a
// directory, say) ends exactly as the command would end it. A shell and a mv
// for every cycle with events cost the agent about 0.2 ms and its children
// 7 ms on a small host, and the fork made the agent's pages copy-on-write.
void CColumnLogger::fHandOff() {
  fMakeCycleNames();
  char l_strOutName[NAME_BUF_SIZE];
  const bool l_bNamed = fHandOffName(l_strOutName, sizeof(l_strOutName));
  // A cycle whose every write failed leaves an empty file (or none): nothing
  // to hand off. A file that may end in a part of an event line stays.
  struct stat l_stEvents;
  if (stat(m_strOutPutFileName, &l_stEvents) == 0 && l_stEvents.st_size == 0) {
    unlink(m_strOutPutFileName);
    fgLogRecord(LOG_GRADE_INFO, LOG_CODE_GATHER, "%s empty (its events were not written), not handed off", m_strOutPutFileName);
    return;
  }
  if (m_bEventFileTorn) {
    m_bEventFileTorn = false;
    fgLogErrno(LOG_GRADE_INFO, LOG_CODE_GATHER, EIO, "%s may end in a part of an event line, not handed off",
               m_strOutPutFileName);
    return;
  }
  if (l_bNamed && rename(m_strOutPutFileName, l_strOutName) == 0) return;
  const int l_nErrno = l_bNamed ? errno : ENAMETOOLONG;
  if (g_pclAgentStatus != nullptr) g_pclAgentStatus->fHandOffFailure();
  // The command holds OUTPUT_PATH unquoted: with a blank, a quote or a "$" in
  // it the shell would run something else. The event file then stays under
  // its "ing_" name, as after a failed command.
  if (fgShellWord(m_strOutPutPath) == 0) {
    fgLogErrno(LOG_GRADE_INFO, LOG_CODE_GATHER, l_nErrno, "%s not handed off, close-out command not run",
               m_strOutPutFileName);
    return;
  }
  if (system(m_strSystem) == -1)
    fgLogRecord(LOG_GRADE_INFO, LOG_CODE_GATHER, "[%d] close-out command failed : %s", errno, m_strSystem);
}

// Every entry counts, whatever it is; "." and ".." are taken off at the end.
int CColumnLogger::fCheckLimitFile() {
  DirHandle l_pstDir(opendir(m_strOutPutPath));
  if (l_pstDir == nullptr) return RESULT_FAIL;
  int l_nCount = 0;
  while (readdir(l_pstDir.get()) != nullptr) l_nCount++;
  return l_nCount - 2;
}
