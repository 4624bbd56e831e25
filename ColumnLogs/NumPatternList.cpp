#include "NumPatternList.h"

#include "CommonFunc.h"

void NumRuleTraits::fCopyPayload(ST_NUM_PATTERN_LIST* l_pstDst, const ST_NUM_PATTERN_LIST* l_pstSrc) {
  l_pstDst->m_nIndex = l_pstSrc->m_nIndex;
  l_pstDst->m_nComumnNum = l_pstSrc->m_nComumnNum;
  l_pstDst->m_nFaultLevel = l_pstSrc->m_nFaultLevel;
  l_pstDst->m_nFaultDecide = l_pstSrc->m_nFaultDecide;
  l_pstDst->m_nFaultValue = l_pstSrc->m_nFaultValue;
  l_pstDst->m_fFaultValue = l_pstSrc->m_fFaultValue;
  l_pstDst->m_nCompareNum = l_pstSrc->m_nCompareNum;
  fgStrCopy(l_pstDst->m_strExt1, sizeof(l_pstDst->m_strExt1), l_pstSrc->m_strExt1);
  fgStrCopy(l_pstDst->m_strExt2, sizeof(l_pstDst->m_strExt2), l_pstSrc->m_strExt2);
}

int CNumPatternList::fAddLinkedList(int l_nIndex, int l_nComumnNum, int l_nFaultLevel, int l_nFaultDecide,
                                    int l_nFaultValue, float l_fFaultValue, int l_nCompareNum, char* l_pstrExt1,
                                    char* l_pstrExt2) {
  ST_NUM_PATTERN_LIST l_stRule{};
  l_stRule.m_nIndex = l_nIndex;
  l_stRule.m_nComumnNum = l_nComumnNum;
  l_stRule.m_nFaultLevel = l_nFaultLevel;
  l_stRule.m_nFaultDecide = l_nFaultDecide;
  l_stRule.m_nFaultValue = l_nFaultValue;
  l_stRule.m_fFaultValue = l_fFaultValue;
  l_stRule.m_nCompareNum = l_nCompareNum;
  fgStrCopy(l_stRule.m_strExt1, sizeof(l_stRule.m_strExt1), l_pstrExt1);
  fgStrCopy(l_stRule.m_strExt2, sizeof(l_stRule.m_strExt2), l_pstrExt2);
  return fAddNode(&l_stRule);
}
