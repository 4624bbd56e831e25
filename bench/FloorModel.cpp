// The cheapest program that still does what the agent's design asks of every
// second, and nothing else: the floor under the agent's own figures.
//
//   bench_floor <configuration file>
//
// It reads LOG_PATH, LOG_MODE, OUTPUT_PATH and the LOGnn_NAME keys of an
// agent configuration (plain names only) and then runs like the agent, without
// matching or evaluating anything:
//   - one cycle per second, a one-second sleep after each;
//   - a cycle counts the output directory's entries (open and read it) and
//     writes the agent's diagnostic records: "LogGather start", "Old Event
//     Count", "log [n] offset" for every log, and "LOG offset save" and
//     "log count" for every log that had something new, "LogGather end";
//     each record is one status query of the diagnostic log and one write,
//     as the agent's logger does it; a LOG_MODE other than DEBUG, NORMAL or
//     ERROR writes none, as the agent then has no logger;
//   - every log gets one status query; a log that grew is opened, read from
//     its saved offset in 16 KB reads, and closed; after every 800 pieces
//     (lines of at most 255 characters) it pauses 200 ms and says so on
//     standard error, as the agent's read throttle does;
//   - a log seen for the first time starts at its end (log type 0).
// It leaves out what the agent does besides (name expansion, the heartbeat,
// size rotation of the diagnostic log and the compression shell it starts,
// event files), so its cost is below the agent's on any host. bench/e2e.sh
// runs it in place of the agent with AGENT=<build>/bin/bench_floor.
#include <dirent.h>
#include <fcntl.h>
#include <sys/select.h>
#include <sys/stat.h>
#include <time.h>
#include <unistd.h>

#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

namespace {

constexpr int kThrottlePieces = 800;
constexpr long kThrottleUsec = 200000;
constexpr long kPieceChars = 255;
constexpr size_t kReadChunk = 16384;

struct ST_FLOOR_LOG {
  std::string m_strPath;
  long m_lOffSet = -1;  // -1 until the first look
};

class CFloorLog {
 public:
  CFloorLog(const std::string& l_strDir, bool l_bOn) : m_strDir(l_strDir), m_bOn(l_bOn) {}
  ~CFloorLog() {
    if (m_nFd >= 0) close(m_nFd);
  }

  // One record: the time of day, a status query of the file (re-created
  // when missing) and one write, as the agent's logger does it.
  void fRecord(const char* l_pstrFormat, ...) __attribute__((format(printf, 2, 3))) {
    if (!m_bOn) return;
    char l_strMsg[256];
    va_list l_stArgs;
    va_start(l_stArgs, l_pstrFormat);
    vsnprintf(l_strMsg, sizeof(l_strMsg), l_pstrFormat, l_stArgs);
    va_end(l_stArgs);
    const time_t l_tNow = time(nullptr);
    struct tm l_stTm;
    localtime_r(&l_tNow, &l_stTm);
    if (m_nFd < 0) fOpen(l_stTm);
    struct stat l_stStat;
    if (lstat(m_strPath.c_str(), &l_stStat) != 0) {
      fOpen(l_stTm);
      return;
    }
    char l_strRecord[320];
    const int l_nLen = snprintf(l_strRecord, sizeof(l_strRecord), "[%02d%02d%02d][INFO][LOG]%s\n", l_stTm.tm_hour,
                                l_stTm.tm_min, l_stTm.tm_sec, l_strMsg);
    if (m_nFd >= 0 && l_nLen > 0 && write(m_nFd, l_strRecord, static_cast<size_t>(l_nLen)) < 0) {
      // ignored, as in the agent
    }
  }

 private:
  void fOpen(const struct tm& l_stTm) {
    if (m_nFd >= 0) close(m_nFd);
    char l_strName[64];
    snprintf(l_strName, sizeof(l_strName), "%04d%02d%02d_SER.log", l_stTm.tm_year + 1900, l_stTm.tm_mon + 1,
             l_stTm.tm_mday);
    m_strPath = m_strDir + l_strName;
    m_nFd = open(m_strPath.c_str(), O_RDWR | O_CREAT | O_APPEND | O_CLOEXEC, 0644);
  }

  std::string m_strDir;
  bool m_bOn;
  std::string m_strPath;
  int m_nFd = -1;
};

int fCountEntries(const std::string& l_strDir) {
  DIR* l_pstDir = opendir(l_strDir.c_str());
  if (l_pstDir == nullptr) return -1;
  int l_nCount = 0;
  while (readdir(l_pstDir) != nullptr) l_nCount++;
  closedir(l_pstDir);
  return l_nCount - 2;
}

void fSleepUsec(long l_lUsec) {
  struct timeval l_stWait = {l_lUsec / 1000000, l_lUsec % 1000000};
  select(0, nullptr, nullptr, nullptr, &l_stWait);
}

// Reads what was appended since the saved offset; returns the pieces read.
long fReadNew(ST_FLOOR_LOG* l_pstLog, std::vector<char>* l_pvchChunk) {
  const int l_nFd = open(l_pstLog->m_strPath.c_str(), O_RDONLY | O_CLOEXEC);
  if (l_nFd < 0) return 0;
  long l_lPieces = 0;
  long l_lLineLen = 0;  // characters of the current line since its last piece
  long l_lLastEnd = l_pstLog->m_lOffSet;
  long l_lPos = l_pstLog->m_lOffSet;
  int l_nThrottle = 0;
  if (lseek(l_nFd, l_lPos, SEEK_SET) == l_lPos) {
    for (;;) {
      const ssize_t l_nGot = read(l_nFd, l_pvchChunk->data(), l_pvchChunk->size());
      if (l_nGot <= 0) break;
      for (ssize_t l_nAt = 0; l_nAt < l_nGot; ++l_nAt) {
        ++l_lLineLen;
        ++l_lPos;
        const bool l_bEnd = (*l_pvchChunk)[static_cast<size_t>(l_nAt)] == '\n';
        if (!l_bEnd && l_lLineLen < kPieceChars) continue;
        ++l_lPieces;
        l_lLineLen = 0;
        if (l_bEnd) l_lLastEnd = l_lPos;
        if (++l_nThrottle > kThrottlePieces) {
          fprintf(stderr, "LINE READ COUNT OVER[%d] SLEEP...\n", l_nThrottle);
          l_nThrottle = 0;
          fSleepUsec(kThrottleUsec);
        }
      }
    }
  }
  close(l_nFd);
  l_pstLog->m_lOffSet = l_lLastEnd;
  return l_lPieces;
}

std::string fValue(const std::string& l_strLine, size_t l_nEq) {
  std::string l_strValue = l_strLine.substr(l_nEq + 1);
  while (!l_strValue.empty() && (l_strValue.back() == '\r' || l_strValue.back() == ' ')) l_strValue.pop_back();
  return l_strValue;
}

}  // namespace

int main(int argc, char** argv) {
  if (argc < 2) {
    fprintf(stderr, "usage: %s <configuration file>\n", argv[0]);
    return 2;
  }
  FILE* l_pstConf = fopen(argv[1], "r");
  if (l_pstConf == nullptr) {
    fprintf(stderr, "%s: cannot open %s\n", argv[0], argv[1]);
    return 1;
  }
  std::string l_strLogPath = "./";
  std::string l_strOutPath = "./";
  std::string l_strMode;
  std::vector<ST_FLOOR_LOG> l_vstLogs;
  char l_strLine[4096];
  while (fgets(l_strLine, sizeof(l_strLine), l_pstConf) != nullptr) {
    std::string l_strText(l_strLine);
    if (!l_strText.empty() && l_strText.back() == '\n') l_strText.pop_back();
    const size_t l_nEq = l_strText.find('=');
    if (l_nEq == std::string::npos) continue;
    const std::string l_strKey = l_strText.substr(0, l_nEq);
    if (l_strKey == "LOG_PATH") l_strLogPath = fValue(l_strText, l_nEq);
    if (l_strKey == "OUTPUT_PATH") l_strOutPath = fValue(l_strText, l_nEq);
    if (l_strKey == "LOG_MODE") l_strMode = fValue(l_strText, l_nEq);
    if (l_strKey.size() == 10 && l_strKey.compare(0, 3, "LOG") == 0 && l_strKey.compare(5, 5, "_NAME") == 0) {
      ST_FLOOR_LOG l_stLog;
      l_stLog.m_strPath = fValue(l_strText, l_nEq);
      l_vstLogs.push_back(l_stLog);
    }
  }
  fclose(l_pstConf);

  CFloorLog l_clLog(l_strLogPath, l_strMode == "DEBUG" || l_strMode == "NORMAL" || l_strMode == "ERROR");
  std::vector<char> l_vchChunk(kReadChunk);
  for (;;) {
    l_clLog.fRecord("LogGather start");
    l_clLog.fRecord("Old Event Count = %d", fCountEntries(l_strOutPath));
    for (size_t l_nLog = 0; l_nLog < l_vstLogs.size(); ++l_nLog) {
      ST_FLOOR_LOG& l_stLog = l_vstLogs[l_nLog];
      l_clLog.fRecord("log [%d] offset = [%ld]", static_cast<int>(l_nLog + 1), l_stLog.m_lOffSet < 0 ? 0 : l_stLog.m_lOffSet);
      struct stat l_stStat;
      if (stat(l_stLog.m_strPath.c_str(), &l_stStat) != 0) continue;
      if (l_stLog.m_lOffSet < 0 || l_stLog.m_lOffSet > l_stStat.st_size) {
        l_stLog.m_lOffSet = l_stLog.m_lOffSet < 0 ? l_stStat.st_size : 0;
        continue;
      }
      if (l_stLog.m_lOffSet == l_stStat.st_size) continue;
      const long l_lPieces = fReadNew(&l_stLog, &l_vchChunk);
      l_clLog.fRecord("LOG offset save : %ld", l_stLog.m_lOffSet);
      l_clLog.fRecord("log count = %ld, fault count = 0", l_lPieces);
    }
    l_clLog.fRecord("LogGather end");
    fSleepUsec(1000000);
  }
}
