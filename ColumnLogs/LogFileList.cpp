#include "LogFileList.h"

#include <cstdio>
#include <cstring>

#include "CommonConst.h"
#include "CommonFunc.h"
#include "OmniLog.h"

namespace {

// The refused pattern value is quoted whole up to this length, and cut to
// one more character followed by "..." beyond it, so the text fits the
// 256-byte error buffer.
constexpr size_t FAIL_QUOTE_LIMIT = 225;

bool fValidSlot(const ST_LOGFILE_INFO* l_pstLogFileInfo, int l_nPatternIndex) {
  return l_pstLogFileInfo != nullptr && l_nPatternIndex >= 0 && l_nPatternIndex < PATTERN_SLOT_CNT;
}

}  // namespace

CLogFileList::CLogFileList() : m_clList(LOGFILE_LIST_ORDER, LOGFILE_LIST_MAX_CNT, 0) {}

void CLogFileList::Traits::fCopyPayload(ST_LOGFILE_INFO* l_pstDst, const ST_LOGFILE_INFO* l_pstSrc) {
  l_pstDst->m_nIndx = l_pstSrc->m_nIndx;
  fgStrCopy(l_pstDst->m_strLogFile, sizeof(l_pstDst->m_strLogFile), l_pstSrc->m_strLogFile);
  l_pstDst->m_lOffSet = l_pstSrc->m_lOffSet;
  l_pstDst->m_lLastGatherTime = l_pstSrc->m_lLastGatherTime;
  l_pstDst->m_lLogFileModifyTime = l_pstSrc->m_lLogFileModifyTime;
  l_pstDst->m_chCreateType = l_pstSrc->m_chCreateType;
  l_pstDst->m_nLogType = l_pstSrc->m_nLogType;
  l_pstDst->m_nFirstFlag = l_pstSrc->m_nFirstFlag;
  l_pstDst->m_nGatherFlag = l_pstSrc->m_nGatherFlag;
  // fAddLogFile passes a record with empty slots, so no compiled pattern
  // ever gets two owners.
  for (int l_nSlot = 0; l_nSlot < PATTERN_SLOT_CNT; ++l_nSlot) {
    l_pstDst->m_vpclStrPattern[l_nSlot] = l_pstSrc->m_vpclStrPattern[l_nSlot];
    l_pstDst->m_vnFaultGrade[l_nSlot] = PATTERN_NO_GRADE;
  }
}

int CLogFileList::fAddLogFile(int l_nIndx, char* l_pstrLogFile, char l_chCreateType, int l_nLogType) {
  char* l_pstrError = m_clList.m_strErrorMsg;
  const size_t l_nErrorSize = sizeof(m_clList.m_strErrorMsg);
  if (l_pstrLogFile == nullptr) {
    m_clList.m_nErrorCode = RESULT_FAIL;
    snprintf(l_pstrError, l_nErrorSize, "[-1] Log file name is NULL");
    return RESULT_FAIL;
  }
  // A cut name would watch another file than the one configured: refuse it.
  const size_t l_nNameLen = strlen(l_pstrLogFile);
  if (l_nNameLen >= sizeof(ST_LOGFILE_INFO::m_strLogFile)) {
    m_clList.m_nErrorCode = RESULT_FAIL;
    snprintf(l_pstrError, l_nErrorSize, "[-1] [%d] Log file name too long(%zu > %d) : %.160s...", l_nIndx,
             l_nNameLen, LOGFILE_NAME_SIZE - 1, l_pstrLogFile);
    if (g_nPrint == 1) fprintf(stderr, "%s\n", l_pstrError);
    fgLogRecord(LOG_GRADE_INFO, LOG_CODE_REGISTRY, "%s", l_pstrError);
    return RESULT_FAIL;
  }

  ST_LOGFILE_INFO l_stInfo{};
  l_stInfo.m_nIndx = l_nIndx;
  fgStrCopy(l_stInfo.m_strLogFile, sizeof(l_stInfo.m_strLogFile), l_pstrLogFile);
  l_stInfo.m_chCreateType = l_chCreateType;
  l_stInfo.m_nLogType = l_nLogType;
  return fAddNode(&l_stInfo);
}

int CLogFileList::fAddLogPattern(int l_nIndx, char* l_pstrPattern, int l_nSecLogCntFaultLevel, int l_nSecLogCount,
                                 char* l_pstrDelimitor) {
  fClearPattern(l_nIndx);
  ST_LOGFILE_INFO* l_pstInfo = fGetNode(l_nIndx);
  if (l_pstInfo == nullptr) return RESULT_FAIL;

  l_pstInfo->m_strDelimitor[0] = '\0';
  if (l_pstrDelimitor != nullptr && l_pstrDelimitor[0] != '\0') {
    fgStrCopy(l_pstInfo->m_strDelimitor, sizeof(l_pstInfo->m_strDelimitor), l_pstrDelimitor);
  }

  int l_nStored = 0;
  const int l_nResult = fgFillPatternSlots(l_pstrPattern, l_pstInfo->m_vpclStrPattern, l_pstInfo->m_vstrLogPattern,
                                           l_pstInfo->m_vnFaultGrade, &l_nStored);
  if (l_nStored == 0) fReportNoPattern(l_pstrPattern != nullptr ? l_pstrPattern : "");

  l_pstInfo->m_nSecLogCntFaultLevel = l_nSecLogCntFaultLevel;
  l_pstInfo->m_nSecLogCount = l_nSecLogCount;
  return l_nResult;
}

void CLogFileList::fReportNoPattern(const char* l_pstrPattern) {
  if (g_nPrint == 1) fprintf(stderr, "Log pattern add fail : %s\n", l_pstrPattern);
  if (g_pclOmniLog == nullptr) return;
  char* l_pstrError = m_clList.m_strErrorMsg;
  const size_t l_nErrorSize = sizeof(m_clList.m_strErrorMsg);
  if (strlen(l_pstrPattern) > FAIL_QUOTE_LIMIT) {
    snprintf(l_pstrError, l_nErrorSize, "Log pattern add fail : %.*s...", static_cast<int>(FAIL_QUOTE_LIMIT + 1),
             l_pstrPattern);
  } else {
    snprintf(l_pstrError, l_nErrorSize, "Log pattern add fail : %s", l_pstrPattern);
  }
  fgLogRecord(LOG_GRADE_INFO, LOG_CODE_REGISTRY, "%s", l_pstrError);
}

int CLogFileList::fDelLogFile(int l_nIndx) {
  fClearPattern(l_nIndx);
  // The removal releases each removed record's slots (Traits::fRelease).
  return fDeleteNode(l_nIndx);
}

int CLogFileList::fClearPattern(int l_nIndx) {
  ST_LOGFILE_INFO* l_pstInfo = fGetNode(l_nIndx);
  if (l_pstInfo == nullptr) return RESULT_FAIL;
  fgPatternSlotsClearTexts(l_pstInfo->m_vstrLogPattern);
  for (int l_nSlot = 0; l_nSlot < PATTERN_SLOT_CNT; ++l_nSlot) {
    fPatternClear(l_pstInfo, l_nSlot);
    l_pstInfo->m_vnFaultGrade[l_nSlot] = PATTERN_NO_GRADE;
  }
  return RESULT_OK;
}

int CLogFileList::fPatternComp(ST_LOGFILE_INFO* l_pstLogFileInfo, int l_nPatternIndex, char* l_pstrPattern) {
  if (!fValidSlot(l_pstLogFileInfo, l_nPatternIndex)) return RESULT_REFUSED;
  return fgPatternSlotComp(&l_pstLogFileInfo->m_vpclStrPattern[l_nPatternIndex], l_pstrPattern);
}

int CLogFileList::fPatternClear(ST_LOGFILE_INFO* l_pstLogFileInfo, int l_nPatternIndex) {
  if (!fValidSlot(l_pstLogFileInfo, l_nPatternIndex)) return RESULT_FAIL;
  fgPatternSlotClear(&l_pstLogFileInfo->m_vpclStrPattern[l_nPatternIndex]);
  return RESULT_OK;
}

void CLogFileList::fInitGatherFlag() {
  for (ST_LOGFILE_INFO* l_pstInfo = fGetHeadNode(); l_pstInfo != nullptr; l_pstInfo = l_pstInfo->m_pstNext) {
    l_pstInfo->m_nGatherFlag = 0;
  }
}

int CLogFileList::fClearLogFile() { return fFreeAll(); }

ST_LOGFILE_INFO* CLogFileList::fGetNode(int l_nIndx) { return m_clList.fGetNode(l_nIndx); }

ST_LOGFILE_INFO* CLogFileList::fGetNode(char* l_pstrLogFile) {
  if (l_pstrLogFile == nullptr) return nullptr;
  for (ST_LOGFILE_INFO* l_pstInfo = fGetHeadNode(); l_pstInfo != nullptr; l_pstInfo = l_pstInfo->m_pstNext) {
    if (strcmp(l_pstInfo->m_strLogFile, l_pstrLogFile) == 0) return l_pstInfo;
  }
  return nullptr;
}

ST_LOGFILE_INFO* CLogFileList::fGetNode() { return m_clList.fGetNode(); }

int CLogFileList::fGetLogFileIndx(char* l_pstrLogFile) {
  const ST_LOGFILE_INFO* l_pstInfo = fGetNode(l_pstrLogFile);
  return l_pstInfo != nullptr ? l_pstInfo->m_nIndx : 0;
}

char* CLogFileList::fGetLogFileName(int l_nIndx) {
  ST_LOGFILE_INFO* l_pstInfo = fGetNode(l_nIndx);
  return l_pstInfo != nullptr ? l_pstInfo->m_strLogFile : nullptr;
}

char* CLogFileList::fGetLogFile(int l_nLogIndex) {
  if (l_nLogIndex < 1) return nullptr;
  int l_nPosition = 1;
  for (ST_LOGFILE_INFO* l_pstInfo = fGetHeadNode(); l_pstInfo != nullptr; l_pstInfo = l_pstInfo->m_pstNext) {
    if (l_nPosition == l_nLogIndex) return l_pstInfo->m_strLogFile;
    ++l_nPosition;
  }
  return nullptr;
}

long CLogFileList::fGetLogFileCount() { return fGetNodeCnt(); }
