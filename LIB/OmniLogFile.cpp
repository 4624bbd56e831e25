// Log file lifecycle: the day switch, size rotation, the retention sweep,
// compression of finished files and the recent-file lookup of agent loggers.
#include <dirent.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <new>

#include "CommonFunc.h"
#include "OmniLog.h"

namespace {

constexpr long long kSecondsPerDay = 86400;
constexpr size_t kPathSlack = 256;
constexpr size_t kSweepMinName = 11;  // shortest name the sweep looks at
constexpr size_t kDatePrefix = 8;     // leading YYYYMMDD compared with the cutoff
constexpr int kRecentLineSize = 256;  // first line of the answer file: at most 255 characters
const char* const kSweptSuffixes[] = {".log", ".log.gz", ".log.Z"};
const char* const kCompressCommand = "../../utils/ETC/ShCmd 60 %s %s &";
const char* const kRecentCommand = "../../utils/INSTALL/recentlogfile.sh %s";
const char* const kRecentAnswer = "../aproc/shell/recentlogfile.dat";

bool fEndsWith(const char* l_pstrText, size_t l_nLen, const char* l_pstrSuffix) {
  const size_t l_nSuffix = strlen(l_pstrSuffix);
  return l_nLen >= l_nSuffix && memcmp(l_pstrText + l_nLen - l_nSuffix, l_pstrSuffix, l_nSuffix) == 0;
}

// A word the shell takes literally (fgShellWord) as it is. Anything else
// (blanks, quotes, "$", ";" ...) is given to the shell in single quotes, so a
// log path with such characters can neither break nor extend the command.
// Returns a new[] buffer, or null when memory is exhausted.
char* fShellQuoted(const char* l_pstrWord) {
  const size_t l_nLen = strlen(l_pstrWord);
  const bool l_bPlain = l_nLen > 0 && fgShellWord(l_pstrWord) == 1;
  char* l_pstrOut = new (std::nothrow) char[l_nLen * 4 + 3]();
  if (l_pstrOut == nullptr) return nullptr;
  if (l_bPlain) {
    memcpy(l_pstrOut, l_pstrWord, l_nLen + 1);
    return l_pstrOut;
  }
  char* l_pstrEnd = l_pstrOut;
  *l_pstrEnd++ = '\'';
  for (const char* l_pstrC = l_pstrWord; *l_pstrC != '\0'; ++l_pstrC) {
    if (*l_pstrC == '\'') {
      memcpy(l_pstrEnd, "'\\''", 4);  // close, escaped quote, reopen
      l_pstrEnd += 4;
    } else {
      *l_pstrEnd++ = *l_pstrC;
    }
  }
  *l_pstrEnd = '\'';
  return l_pstrOut;
}

bool fIsEightDigits(const char* l_pstrText) {
  for (size_t l_nIndx = 0; l_nIndx < kDatePrefix; ++l_nIndx) {
    if (l_pstrText[l_nIndx] < '0' || l_pstrText[l_nIndx] > '9') return false;
  }
  return l_pstrText[kDatePrefix] == '\0';
}

}  // namespace

int COmniLog::fDateChangeChk() {
  char l_strToday[16] = {};
  fGetDayTime(0, l_strToday, 1);
  if (strncmp(m_strCurrentDate, l_strToday, strlen(l_strToday)) == 0) return 0;

  fCloseLogFile();
  // m_pstrLogFile still names the previous day's last file here.
  if (m_nLogCompress == 1 && strncmp(m_strCurrentDate, "EMPTY", 5) != 0) fLogCompress();
  m_nLogCnt = 0;
  fLogNameChange(1);
  memset(m_strCurrentDate, 0, sizeof(m_strCurrentDate));
  fgStrCopy(m_strCurrentDate, sizeof(m_strCurrentDate), l_strToday);
  return fOpenLogFile() == 1 ? 1 : 0;
}

int COmniLog::fLogSizeChk() {
  if (m_pstrLogFile == nullptr) return 0;  // no name could be built (no memory)
  // The path's status before every record: a file removed or moved away by
  // someone else, or grown from outside, is noticed at the very next record.
  struct stat l_stStat;
  if (lstat(m_pstrLogFile, &l_stStat) != 0) {
    // Missing (removed or moved away, or never created): create it again;
    // the record that found it missing is dropped.
    fCloseLogFile();
    fOpenLogFile();
    return 0;
  }
  // A threshold of 0 (fSetLogSize with an unknown unit) means "no size
  // limit": rotating at every record would drop every record.
  if (m_ulLogSize == 0 || static_cast<unsigned long>(l_stStat.st_size) < m_ulLogSize) return 1;

  fLogCompress();  // the full file, before it is closed
  fCloseLogFile();
  fLogNameChange(0);
  fOpenLogFile();
  return 0;
}

int COmniLog::fSetLogSize(int l_nSize, int l_nChk) {
  if (l_nSize < 0) {
    m_ulLogSize = DEFAULT_LOG_SIZE;
    return 0;
  }
  // The product is kept in int range: at most 2047 MiB.
  if (l_nChk == 1) {
    const long long l_llBytes = static_cast<long long>(l_nSize) * 1048576LL;
    m_ulLogSize = static_cast<unsigned long>(l_llBytes > 2147483647LL ? 2147483647LL : l_llBytes);
  } else if (l_nChk == 2) {
    const long long l_llBytes = static_cast<long long>(l_nSize) * 1024LL;
    m_ulLogSize = static_cast<unsigned long>(l_llBytes > 2147483647LL ? 2147483647LL : l_llBytes);
  } else {
    m_ulLogSize = 0;
  }
  return 1;
}

int COmniLog::fSetLogCompress(int l_nLogCompress) {
  m_nLogCompress = (l_nLogCompress >= 1) ? 1 : 0;
  return m_nLogCompress;
}

int COmniLog::fLogCompress() {
  if (m_pstrLogFile == nullptr || m_nCompressChk == 0) return 0;
  char* l_pstrCompressor = fShellQuoted(m_strCompressPath);
  char* l_pstrFile = fShellQuoted(m_pstrLogFile);
  char* l_pstrCommand = nullptr;
  size_t l_nSize = 0;
  if (l_pstrCompressor != nullptr && l_pstrFile != nullptr) {
    l_nSize = strlen(l_pstrCompressor) + strlen(l_pstrFile) + 32;
    l_pstrCommand = new (std::nothrow) char[l_nSize]();
  }
  // No memory: this file stays uncompressed, which loses nothing.
  if (l_pstrCommand != nullptr) {
    snprintf(l_pstrCommand, l_nSize, kCompressCommand, l_pstrCompressor, l_pstrFile);
    // The trailing "&" puts the compressor in the background: the shell
    // returns at once and logging goes on. Its result is not examined.
    if (system(l_pstrCommand) == -1) {
    }
  }
  delete[] l_pstrCommand;
  delete[] l_pstrFile;
  delete[] l_pstrCompressor;
  return 0;
}

int COmniLog::fGetRecentLogFile(char* l_pstrDayTime) {
  // Only a date of eight digits reaches the shell.
  if (l_pstrDayTime == nullptr || !fIsEightDigits(l_pstrDayTime)) return -1;
  char l_strCommand[128];
  snprintf(l_strCommand, sizeof(l_strCommand), kRecentCommand, l_pstrDayTime);
  if (system(l_strCommand) == -1) {
    // the answer file then is missing or stale and is judged below
  }

  FILE* l_pstFile = fopen(kRecentAnswer, "re");
  if (l_pstFile == nullptr) return -1;
  int l_nResult = -1;
  char l_strLine[kRecentLineSize] = {};
  if (fgets(l_strLine, sizeof(l_strLine), l_pstFile) != nullptr && strlen(l_strLine) > kDatePrefix) {
    // The line's end is cut off; a last line without a newline is taken whole.
    size_t l_nLen = strlen(l_strLine);
    if (l_strLine[l_nLen - 1] == '\n') l_strLine[--l_nLen] = '\0';
    if (strstr(l_strLine, l_pstrDayTime) != nullptr) {
      const char* l_pstrPath = (m_pstrLogPath != nullptr) ? m_pstrLogPath : "";
      const size_t l_nSize = strlen(l_pstrPath) + kPathSlack;
      char* l_pstrFile = new (std::nothrow) char[l_nSize]();
      if (l_pstrFile != nullptr) {
        snprintf(l_pstrFile, l_nSize, "%s%s", l_pstrPath, l_strLine);
        delete[] m_pstrLogFile;
        m_pstrLogFile = l_pstrFile;
        l_nResult = 1;
      }
    }
  }
  fclose(l_pstFile);
  return l_nResult;
}

int COmniLog::fLogNameChange(int l_nFlag) {
  const time_t l_tNow = fNow();
  char l_strToday[16] = {};
  fFormatTime(l_tNow, l_strToday, 1);
  if (l_nFlag == 1) fOldLogFileSweep(l_tNow);

  delete[] m_pstrLogFile;
  m_pstrLogFile = nullptr;

  int l_nResult = 0;
  if (m_nLivInvLogFlag == 0 && strncmp(m_strCurrentDate, "EMPTY", 5) == 0) {
    if (fGetRecentLogFile(l_strToday) == 1) return 0;
    l_nResult = -1;
  }

  char l_strName[kPathSlack];
  if (l_nFlag == 1) {
    snprintf(l_strName, sizeof(l_strName), "%s_%s.log", l_strToday, m_strMCName);
  } else {
    ++m_nLogCnt;
    snprintf(l_strName, sizeof(l_strName), "%s_%s_%d.log", l_strToday, m_strMCName, m_nLogCnt);
  }
  const char* l_pstrPath = (m_pstrLogPath != nullptr) ? m_pstrLogPath : "";
  const size_t l_nSize = strlen(l_pstrPath) + kPathSlack;
  m_pstrLogFile = new (std::nothrow) char[l_nSize]();
  // No memory: m_pstrLogFile stays null and records are dropped until the
  // next day change builds a name again.
  if (m_pstrLogFile != nullptr) snprintf(m_pstrLogFile, l_nSize, "%s%s", l_pstrPath, l_strName);
  return l_nResult;
}

void COmniLog::fOldLogFileCheck(int l_nValidDayTime) { fOldLogFileSweep(static_cast<time_t>(l_nValidDayTime)); }

void COmniLog::fOldLogFileSweep(time_t l_tValidDayTime) {
  if (m_pstrLogPath == nullptr) return;
  // 64-bit arithmetic: a long retention never wraps round to a recent date.
  // A cutoff before 1970 deletes nothing: no log file is that old.
  const long long l_llCutoff = static_cast<long long>(l_tValidDayTime) - static_cast<long long>(m_nValidDay) * kSecondsPerDay;
  if (l_llCutoff < 0) return;
  char l_strCutoff[16] = {};
  if (fFormatTime(static_cast<time_t>(l_llCutoff), l_strCutoff, 1) == 0 || strlen(l_strCutoff) != kDatePrefix) return;

  const size_t l_nPathLen = strlen(m_pstrLogPath);
  const size_t l_nSize = l_nPathLen + sizeof(((struct dirent*)nullptr)->d_name) + 1;
  char* l_pstrPath = new (std::nothrow) char[l_nSize]();
  if (l_pstrPath == nullptr) return;  // no memory: nothing is deleted this time
  memcpy(l_pstrPath, m_pstrLogPath, l_nPathLen);
  DIR* l_pstDir = opendir(m_pstrLogPath);
  if (l_pstDir == nullptr) {
    delete[] l_pstrPath;
    return;
  }
  while (struct dirent* l_pstEntry = readdir(l_pstDir)) {
    const char* l_pstrName = l_pstEntry->d_name;
    const size_t l_nLen = strlen(l_pstrName);
    if (l_nLen < kSweepMinName) continue;
    bool l_bSwept = false;
    for (const char* l_pstrSuffix : kSweptSuffixes) l_bSwept = l_bSwept || fEndsWith(l_pstrName, l_nLen, l_pstrSuffix);
    if (!l_bSwept || strncmp(l_pstrName, l_strCutoff, kDatePrefix) >= 0) continue;
    memcpy(l_pstrPath + l_nPathLen, l_pstrName, l_nLen + 1);
    unlink(l_pstrPath);  // a file that cannot be deleted is left
  }
  closedir(l_pstDir);
  delete[] l_pstrPath;
}
