#include "MessageQWriteLog.h"

#include <cstring>

#include "CommonFunc.h"

MessageQWriteLog::MessageQWriteLog() : m_strCollectData{}, m_nLine(0), m_strFileName{} {}

int MessageQWriteLog::fSetCollectWriteData(int l_nLine, char* l_pstrFileName, char* l_pstrCollectData) {
  memset(m_strCollectData, 0, sizeof(m_strCollectData));
  memset(m_strFileName, 0, sizeof(m_strFileName));
  m_nLine = l_nLine;
  // fgStrCopy stores a null source as an empty text.
  const int l_nFileWhole = fgStrCopy(m_strFileName, sizeof(m_strFileName), l_pstrFileName);
  const int l_nDataWhole = fgStrCopy(m_strCollectData, sizeof(m_strCollectData), l_pstrCollectData);
  return (l_nFileWhole == 1 && l_nDataWhole == 1) ? 1 : 0;
}

char* MessageQWriteLog::fGetCollectWriteData() { return m_strCollectData; }

int MessageQWriteLog::fGetCollectWriteLine() { return m_nLine; }

char* MessageQWriteLog::fGetCollectWriteFile() { return m_strFileName; }
