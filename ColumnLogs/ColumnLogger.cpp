// Construction of the gatherer, its configuration store and the process
// logger.
#include "ColumnLogger.h"

#include <cstdlib>
#include <cstring>
#include <new>

#include "CommonConst.h"
#include "CommonFunc.h"
#include "ConfVocabulary.h"
#include "OmniLog.h"

char* l_pstrLineBuf = nullptr;
char m_chDilimitor1 = 0;
char m_chDilimitor2 = 0;
int m_nCntFaultArray[FAULT_LEVELS] = {-1, -1, -1, -1, -1};
int m_nNumFaFoundFlag = 0;
char m_strOldLogDate[256] = {0};

CColumnLogger::CColumnLogger()
    : m_pclConfManager(nullptr),
      m_pclLogFileList(new (std::nothrow) CLogFileList()),
      m_pclNumPatternList(new (std::nothrow) CNumPatternList()),
      m_pclCharPatternList(new (std::nothrow) CCharPatternList()),
      m_pclDatePatternList(new (std::nothrow) CDatePatternList()),
      m_tRctGtrTime(0),
      m_nInterval(0),
      m_nSeqID(0),
      m_nOldTime(0),
      m_nNewTime(0),
      m_nSameTimeCnt(1),
      m_nFaultSendIncrease(0),
      m_nFaultSendLimit(FAULT_SEND_LIMIT),
      m_nFaultFoundFlag(0),
      m_nLineWaitTime(0),
      m_nTokFlag(1),
      m_lOriginalBufSize(0),
      m_pstrOriginalBuf(nullptr) {
  memset(m_vstrSplit, 0, sizeof(m_vstrSplit));
  memcpy(m_vstrSplit[0], SEP_TILDE, SEP_LEN);
  memcpy(m_vstrSplit[1], SEP_BAR, SEP_LEN);
  memset(m_strOutPutPath, 0, sizeof(m_strOutPutPath));
  memset(m_strOutPutFileName, 0, sizeof(m_strOutPutFileName));
  memset(m_strSystem, 0, sizeof(m_strSystem));
  memset(m_strLogDate, 0, sizeof(m_strLogDate));
  memset(m_strPatternLogDate, 0, sizeof(m_strPatternLogDate));
  m_nNumFaFoundFlag = 0;
}

CColumnLogger::~CColumnLogger() {
  m_clCycleBuffers.fRelease();
  delete m_pclLogFileList;
  delete m_pclNumPatternList;
  delete m_pclCharPatternList;
  delete m_pclDatePatternList;
  delete m_pclConfManager;
  m_pclLogFileList = nullptr;
  m_pclNumPatternList = nullptr;
  m_pclCharPatternList = nullptr;
  m_pclDatePatternList = nullptr;
  m_pclConfManager = nullptr;
}

int CColumnLogger::fSetConfManager(char* path) {
  char l_strPath[1024] = {0};
  if (path != nullptr) fgStrCopy(l_strPath, sizeof(l_strPath), path);
  delete m_pclConfManager;
  m_pclConfManager = new (std::nothrow) CConfManager();
  if (m_pclConfManager == nullptr) return 0;
  const int l_nResult = m_pclConfManager->fFileInfoSet(l_strPath, nullptr);
  if (l_nResult == 0) {
    delete m_pclConfManager;
    m_pclConfManager = nullptr;
  }
  return l_nResult;
}

int fMakeOmniLog(CConfManager* l_pclConfManager) {
  if (l_pclConfManager == nullptr) return 0;
  char* l_pstrLogPath = l_pclConfManager->fGetOpt(const_cast<char*>(KEY_LOG_PATH));
  if (l_pstrLogPath == nullptr) return 0;
  const char* l_pstrValidDay = l_pclConfManager->fGetOpt(const_cast<char*>(KEY_LOG_VALIDDAY));
  if (l_pstrValidDay == nullptr) {
    fprintf(stderr, "LOG_VALIDDAY is NULL\n");
    return 0;
  }
  const char* l_pstrLogMode = l_pclConfManager->fGetOpt(const_cast<char*>(KEY_LOG_MODE));
  if (l_pstrLogMode == nullptr) {
    fprintf(stderr, "LOG_MODE is NULL\n");
    return 0;
  }

  const long l_lValidDay = fgValidDays(l_pstrValidDay);

  delete g_pclOmniLog;
  g_pclOmniLog = nullptr;

  char l_strName[] = "SER";
  const int l_nMode = fgLogModeOfWord(l_pstrLogMode);
  if (l_nMode != 0) {
    g_pclOmniLog = new (std::nothrow) COmniLog(l_nMode, l_strName, static_cast<int>(l_lValidDay));
    // fSetLogPath keeps a copy of its own, so the store's value is passed as it is.
    if (g_pclOmniLog != nullptr) g_pclOmniLog->fSetLogPath(l_pstrLogPath);
  }

  const char* l_pstrPrint = l_pclConfManager->fGetOpt(const_cast<char*>(KEY_PRINT));
  if (l_pstrPrint == nullptr) {
    g_nPrint = 0;
  } else if (strcmp(l_pstrPrint, PRINT_ON) == 0) {
    g_nPrint = 1;
  }
  return 1;
}
