#include "MessageQWriteLog.h"

#include <cstring>

namespace {

// Bounded copy that always terminates; 1 when the text fitted whole.
int fCopyCut(char* l_pstrDst, size_t l_nSize, const char* l_pstrSrc) {
  if (l_pstrSrc == nullptr) {
    l_pstrDst[0] = '\0';
    return 1;
  }
  size_t l_nLen = strnlen(l_pstrSrc, l_nSize);
  if (l_nLen >= l_nSize) {
    memcpy(l_pstrDst, l_pstrSrc, l_nSize - 1);
    l_pstrDst[l_nSize - 1] = '\0';
    return 0;
  }
  memcpy(l_pstrDst, l_pstrSrc, l_nLen + 1);
  return 1;
}

}  // namespace

MessageQWriteLog::MessageQWriteLog() : m_strCollectData{}, m_nLine(0), m_strFileName{} {}

int MessageQWriteLog::fSetCollectWriteData(int l_nLine, char* l_pstrFileName, char* l_pstrCollectData) {
  memset(m_strCollectData, 0, sizeof(m_strCollectData));
  memset(m_strFileName, 0, sizeof(m_strFileName));
  m_nLine = l_nLine;
  int l_nFileWhole = fCopyCut(m_strFileName, sizeof(m_strFileName), l_pstrFileName);
  int l_nDataWhole = fCopyCut(m_strCollectData, sizeof(m_strCollectData), l_pstrCollectData);
  return (l_nFileWhole == 1 && l_nDataWhole == 1) ? 1 : 0;
}

char* MessageQWriteLog::fGetCollectWriteData() { return m_strCollectData; }

int MessageQWriteLog::fGetCollectWriteLine() { return m_nLine; }

char* MessageQWriteLog::fGetCollectWriteFile() { return m_strFileName; }
