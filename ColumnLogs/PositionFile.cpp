// The read positions on disk (POSITION_FILE): restored at start-up, saved
// after every cycle that moved one.
#include "PositionFile.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cinttypes>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <sstream>

#include "ColumnLogger.h"
#include "CommonFunc.h"
#include "ConfVocabulary.h"
#include "LogFollower.h"
#include "OmniLog.h"

namespace {

const char* const HEADER = "# ColumnLogs read positions 1";

// Names may hold any byte but NUL: tab, line feed and backslash are escaped.
std::string fEscape(const std::string& l_strText) {
  std::string l_strOut;
  for (const char l_chChar : l_strText) {
    if (l_chChar == '\\') l_strOut += "\\\\";
    else if (l_chChar == '\t') l_strOut += "\\t";
    else if (l_chChar == '\n') l_strOut += "\\n";
    else l_strOut += l_chChar;
  }
  return l_strOut;
}

bool fUnescape(const std::string& l_strText, std::string* l_pstrOut) {
  l_pstrOut->clear();
  for (size_t l_nPos = 0; l_nPos < l_strText.size(); ++l_nPos) {
    if (l_strText[l_nPos] != '\\') {
      *l_pstrOut += l_strText[l_nPos];
      continue;
    }
    if (++l_nPos == l_strText.size()) return false;
    const char l_chNext = l_strText[l_nPos];
    if (l_chNext == '\\') *l_pstrOut += '\\';
    else if (l_chNext == 't') *l_pstrOut += '\t';
    else if (l_chNext == 'n') *l_pstrOut += '\n';
    else return false;
  }
  return true;
}

// A decimal field that must be whole and not negative.
bool fNumber(const std::string& l_strText, unsigned long long* l_pullOut, int l_nBase = 10) {
  if (l_strText.empty() || l_strText[0] == '-') return false;
  char* l_pstrEnd = nullptr;
  errno = 0;
  *l_pullOut = strtoull(l_strText.c_str(), &l_pstrEnd, l_nBase);
  return errno == 0 && *l_pstrEnd == '\0';
}


}  // namespace

bool CPositionFile::fParse(const std::string& l_strText, std::vector<ST_RECORD>* l_pvstOut, std::string* l_pstrWhy) const {
  std::istringstream l_clIn(l_strText);
  std::string l_strLine;
  if (!std::getline(l_clIn, l_strLine) || l_strLine != HEADER) {
    *l_pstrWhy = "its first line is not \"" + std::string(HEADER) + "\"";
    return false;
  }
  for (int l_nLine = 2; std::getline(l_clIn, l_strLine); ++l_nLine) {
    std::vector<std::string> l_vstrFields;
    size_t l_nStart = 0;
    for (size_t l_nTab; (l_nTab = l_strLine.find('\t', l_nStart)) != std::string::npos; l_nStart = l_nTab + 1)
      l_vstrFields.push_back(l_strLine.substr(l_nStart, l_nTab - l_nStart));
    l_vstrFields.push_back(l_strLine.substr(l_nStart));
    unsigned long long l_vullNumbers[8];
    ST_RECORD l_stRecord;
    bool l_bOk = l_vstrFields.size() == 10;
    for (int l_nField = 0; l_bOk && l_nField < 8; ++l_nField)
      l_bOk = fNumber(l_vstrFields[l_nField], &l_vullNumbers[l_nField], l_nField == 6 ? 16 : 10);
    l_bOk = l_bOk && fUnescape(l_vstrFields[8], &l_stRecord.m_strName) && fUnescape(l_vstrFields[9], &l_stRecord.m_strFile);
    if (!l_bOk || l_vullNumbers[0] < 1 || l_vullNumbers[0] > MAX_WATCHED_LOGS ||
        l_vullNumbers[5] > static_cast<unsigned long long>(FINGERPRINT_BYTES)) {
      *l_pstrWhy = "line " + std::to_string(l_nLine) + " is malformed";
      return false;
    }
    l_stRecord.m_nIndx = static_cast<int>(l_vullNumbers[0]);
    l_stRecord.m_nLogType = static_cast<int>(l_vullNumbers[1]);
    l_stRecord.m_nCreateType = static_cast<int>(l_vullNumbers[2]);
    l_stRecord.m_stId.m_stDev = static_cast<dev_t>(l_vullNumbers[3]);
    l_stRecord.m_stId.m_stIno = static_cast<ino_t>(l_vullNumbers[4]);
    l_stRecord.m_stId.m_lPrintLen = static_cast<long>(l_vullNumbers[5]);
    l_stRecord.m_stId.m_ulPrint = l_vullNumbers[6];
    l_stRecord.m_lOffSet = static_cast<long>(l_vullNumbers[7]);
    l_pvstOut->push_back(l_stRecord);
  }
  return true;
}

void CPositionFile::fRestore(CColumnLogger& l_clLogger) {
  std::ifstream l_clFile(m_strPath, std::ios::binary);
  if (!l_clFile) {
    const int l_nErrno = errno;
    fgLogErrno(LOG_GRADE_INFO, LOG_CODE_GATHER, l_nErrno,
               "%s position file not read, every entry takes its first look", m_strPath.c_str());
    return;
  }
  std::ostringstream l_clText;
  l_clText << l_clFile.rdbuf();
  std::vector<ST_RECORD> l_vstRecords;
  std::string l_strWhy;
  if (!fParse(l_clText.str(), &l_vstRecords, &l_strWhy)) {
    fgLogRecord(LOG_GRADE_INFO, LOG_CODE_GATHER, "%s position file not used (%s), every entry takes its first look",
                m_strPath.c_str(), l_strWhy.c_str());
    return;
  }
  for (const ST_RECORD& l_stRecord : l_vstRecords) fRestoreOne(l_clLogger, l_stRecord);
  m_vstSaved = l_vstRecords;
}

void CPositionFile::fRestoreOne(CColumnLogger& l_clLogger, const ST_RECORD& l_stRecord) {
  ST_LOGFILE_INFO* l_pstLog = l_clLogger.m_pclLogFileList->fGetNode(l_stRecord.m_nIndx);
  const char* l_pstrDrop = nullptr;
  if (l_pstLog == nullptr) {
    l_pstrDrop = "the entry is no longer configured";
  } else if (l_stRecord.m_strName != l_pstLog->m_strLogFile || l_stRecord.m_nLogType != l_pstLog->m_nLogType ||
             l_stRecord.m_nCreateType != static_cast<unsigned char>(l_pstLog->m_chCreateType)) {
    l_pstrDrop = "its name or types changed in the configuration";
  } else if (l_stRecord.m_strFile.empty() || l_pstLog->m_nLogType == LOG_TYPE_WHOLE_FILE) {
    return;  // nothing read yet, or a log read whole every cycle: no position to keep
  }
  if (l_pstrDrop != nullptr) {
    fgLogRecord(LOG_GRADE_INFO, LOG_CODE_GATHER, "LOG%02d position dropped: %s", l_stRecord.m_nIndx, l_pstrDrop);
    return;
  }
  // The file read last: still under its name, renamed in its directory, or copied beside it.
  const std::string& l_strWas = l_stRecord.m_strFile;
  std::string l_strFound;
  ST_FILE_ID l_stNow;
  const bool l_bThere = fgFileIdentity(l_strWas.c_str(), l_stRecord.m_stId.m_lPrintLen, &l_stNow);
  EN_FOUND l_enFound = FOUND_NONE;
  if (l_bThere && l_stNow.m_stDev == l_stRecord.m_stId.m_stDev && l_stNow.m_stIno == l_stRecord.m_stId.m_stIno &&
      l_stNow.m_ulPrint == l_stRecord.m_stId.m_ulPrint && l_stNow.m_lPrintLen == l_stRecord.m_stId.m_lPrintLen) {
    l_enFound = FOUND_SAME_FILE;
    l_strFound = l_strWas;
  } else {
    l_enFound = fgFindFile(l_strWas, l_stRecord.m_stId, l_stRecord.m_lOffSet, &l_strFound);
  }
  struct stat l_stStat;
  if (l_enFound == FOUND_NONE || stat(l_strFound.c_str(), &l_stStat) != 0 ||
      !m_rclFollower.fHandOver(l_stRecord.m_nIndx, l_strFound)) {
    const char* l_pstrWhy = !l_bThere ? "its file is gone"
                            : l_stNow.m_stDev != l_stRecord.m_stId.m_stDev || l_stNow.m_stIno != l_stRecord.m_stId.m_stIno
                                ? "another file has its name now"
                                : "its first bytes changed (truncated and rewritten, or a reused inode)";
    fgLogRecord(LOG_GRADE_INFO, LOG_CODE_GATHER,
                "LOG%02d position dropped: %s, and the file read is not found under another name; the file of its "
                "name is read from its start",
                l_stRecord.m_nIndx, l_pstrWhy);
    // Everything in the file the name means now was written after the last save.
    l_pstLog->m_strLogingFile[0] = '\0';
    l_pstLog->m_lOffSet = 0;
    l_pstLog->m_nFirstFlag = 1;
    return;
  }
  fgStrCopy(l_pstLog->m_strLogingFile, sizeof(l_pstLog->m_strLogingFile), l_strFound.c_str());
  // A file shorter than the offset starts again from 0, as the cycle would.
  l_pstLog->m_lOffSet = l_stRecord.m_lOffSet <= l_stStat.st_size ? l_stRecord.m_lOffSet : 0;
  l_pstLog->m_nFirstFlag = 1;
  l_pstLog->m_lLogFileModifyTime = static_cast<long>(l_stStat.st_mtime);
  fgLogRecord(LOG_GRADE_INFO, LOG_CODE_GATHER, "LOG%02d resumes at offset %ld of %s%s", l_stRecord.m_nIndx,
              l_pstLog->m_lOffSet, l_strFound.c_str(),
              l_enFound == FOUND_SAME_FILE && l_strFound == l_strWas ? ""
              : l_enFound == FOUND_SAME_FILE                         ? " (renamed while the agent was down)"
                                                                     : " (a copy of the file read, truncated while the agent was down)");
}

int CPositionFile::fSave(CColumnLogger& l_clLogger, bool l_bForce) {
  std::vector<ST_RECORD> l_vstNow;
  bool l_bMoved = l_bForce;
  for (int l_nIndx = 1; l_nIndx <= MAX_WATCHED_LOGS; ++l_nIndx) {
    ST_LOGFILE_INFO* l_pstLog = l_clLogger.m_pclLogFileList->fGetNode(l_nIndx);
    if (l_pstLog == nullptr) continue;
    ST_RECORD l_stRecord;
    l_stRecord.m_nIndx = l_nIndx;
    l_stRecord.m_nLogType = l_pstLog->m_nLogType;
    l_stRecord.m_nCreateType = static_cast<unsigned char>(l_pstLog->m_chCreateType);
    l_stRecord.m_strName = l_pstLog->m_strLogFile;
    // Before the first look the offset means nothing yet.
    if (l_pstLog->m_nFirstFlag == 1) {
      l_stRecord.m_strFile = l_pstLog->m_strLogingFile;
      l_stRecord.m_lOffSet = l_pstLog->m_lOffSet;
    }
    // The identity is taken again only when the file or offset moved.
    const ST_RECORD* l_pstOld = nullptr;
    for (const ST_RECORD& l_stSaved : m_vstSaved) l_pstOld = l_stSaved.m_nIndx == l_nIndx ? &l_stSaved : l_pstOld;
    const bool l_bSame = l_pstOld != nullptr && l_pstOld->m_strFile == l_stRecord.m_strFile &&
                         l_pstOld->m_lOffSet == l_stRecord.m_lOffSet && l_pstOld->m_strName == l_stRecord.m_strName;
    if (l_bSame) {
      l_stRecord = *l_pstOld;
    } else {
      l_bMoved = true;
      // A held file is the one read, whatever its name means now.
      if (!l_stRecord.m_strFile.empty() && !m_rclFollower.fHeld(l_nIndx, &l_stRecord.m_stId, &l_stRecord.m_strFile) &&
          !fgFileIdentity(l_stRecord.m_strFile.c_str(), FINGERPRINT_BYTES, &l_stRecord.m_stId))
        l_stRecord.m_strFile.clear();
    }
    l_vstNow.push_back(l_stRecord);
  }
  if (!l_bMoved && l_vstNow.size() == m_vstSaved.size()) return RESULT_OK;

  std::string l_strText = std::string(HEADER) + "\n";
  for (const ST_RECORD& l_stRecord : l_vstNow) {
    char l_strNumbers[160];
    snprintf(l_strNumbers, sizeof(l_strNumbers), "%d\t%d\t%d\t%llu\t%llu\t%ld\t%" PRIx64 "\t%ld\t", l_stRecord.m_nIndx,
             l_stRecord.m_nLogType, l_stRecord.m_nCreateType, static_cast<unsigned long long>(l_stRecord.m_stId.m_stDev),
             static_cast<unsigned long long>(l_stRecord.m_stId.m_stIno), l_stRecord.m_stId.m_lPrintLen, l_stRecord.m_stId.m_ulPrint,
             l_stRecord.m_lOffSet);
    l_strText += l_strNumbers + fEscape(l_stRecord.m_strName) + "\t" + fEscape(l_stRecord.m_strFile) + "\n";
  }
  // Synced before and after the rename: the positions survive a crash.
  if (fgReplaceFile(m_strPath.c_str(), l_strText.data(), l_strText.size(), 0644, true) != RESULT_OK) {
    if (!m_bFailing) fgLogErrno(LOG_GRADE_INFO, LOG_CODE_GATHER, errno, "%s position file not saved", m_strPath.c_str());
    m_bFailing = true;
    return RESULT_FAIL;
  }
  if (m_bFailing) fgLogRecord(LOG_GRADE_INFO, LOG_CODE_GATHER, "%s position file saved again", m_strPath.c_str());
  m_bFailing = false;
  m_vstSaved = l_vstNow;
  return RESULT_OK;
}
