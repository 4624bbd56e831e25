#include "DatePatternList.h"

#include "CommonFunc.h"

void DateRuleTraits::fCopyPayload(ST_DATE_PATTERN_LIST* l_pstDst, const ST_DATE_PATTERN_LIST* l_pstSrc) {
  l_pstDst->m_nIndex = l_pstSrc->m_nIndex;
  l_pstDst->m_nComumnNum = l_pstSrc->m_nComumnNum;
  fgStrCopy(l_pstDst->m_strDatePattern, sizeof(l_pstDst->m_strDatePattern), l_pstSrc->m_strDatePattern);
}

int CDatePatternList::fAddLinkedList(int l_nIndex, int l_nComumnNum, char* l_pstFaultPattern) {
  ST_DATE_PATTERN_LIST l_stRule{};
  l_stRule.m_nIndex = l_nIndex;
  l_stRule.m_nComumnNum = l_nComumnNum;
  fgStrCopy(l_stRule.m_strDatePattern, sizeof(l_stRule.m_strDatePattern), l_pstFaultPattern);
  return fAddNode(&l_stRule);
}
