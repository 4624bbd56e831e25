#include "CharPatternList.h"

#include "CommonConst.h"
#include "CommonFunc.h"

namespace {

bool fValidSlot(const ST_CHAR_PATTERN_LIST* l_pstRule, int l_nPatternIndex) {
  return l_pstRule != nullptr && l_nPatternIndex >= 0 && l_nPatternIndex < PATTERN_SLOT_CNT;
}

}  // namespace

void CharRuleTraits::fCopyPayload(ST_CHAR_PATTERN_LIST* l_pstDst, const ST_CHAR_PATTERN_LIST* l_pstSrc) {
  // Slots start empty and null: a new rule owns no pattern yet.
  l_pstDst->m_nIndex = l_pstSrc->m_nIndex;
  l_pstDst->m_nComumnNum = l_pstSrc->m_nComumnNum;
  l_pstDst->m_nFaultLevel = l_pstSrc->m_nFaultLevel;
  l_pstDst->m_nCompareNum = l_pstSrc->m_nCompareNum;
  fgStrCopy(l_pstDst->m_strFaultPattern, sizeof(l_pstDst->m_strFaultPattern), l_pstSrc->m_strFaultPattern);
}

int CCharPatternList::fAddLinkedList(int l_nIndex, int l_nComumnNum, int l_nFaultLevel, int l_nCompareNum,
                                     char* l_pstFaultPattern) {
  ST_CHAR_PATTERN_LIST l_stRule{};
  l_stRule.m_nIndex = l_nIndex;
  l_stRule.m_nComumnNum = l_nComumnNum;
  l_stRule.m_nFaultLevel = l_nFaultLevel;
  l_stRule.m_nCompareNum = l_nCompareNum;
  fgStrCopy(l_stRule.m_strFaultPattern, sizeof(l_stRule.m_strFaultPattern), l_pstFaultPattern);
  return fAddNode(&l_stRule);
}

int CCharPatternList::fAddPatternLinkedList(int l_nIndx, char* l_pstrPattern) {
  fClearPattern(l_nIndx);
  ST_CHAR_PATTERN_LIST* l_pstRule = fGetNode(l_nIndx);
  if (l_pstRule == nullptr) return RESULT_FAIL;
  // Grades have no meaning for a text rule: the text before a bar is dropped.
  return fgFillPatternSlots(l_pstrPattern, l_pstRule->m_vpclStrPattern, l_pstRule->m_vstrLogPattern, nullptr,
                            nullptr);
}

int CCharPatternList::fClearPattern(int l_nIndx) {
  ST_CHAR_PATTERN_LIST* l_pstRule = fGetNode(l_nIndx);
  if (l_pstRule == nullptr) return RESULT_FAIL;
  fgPatternSlotsClearTexts(l_pstRule->m_vstrLogPattern);
  for (int l_nSlot = 0; l_nSlot < PATTERN_SLOT_CNT; ++l_nSlot) {
    fPatternClear(l_pstRule, l_nSlot);
  }
  return RESULT_OK;
}

int CCharPatternList::fPatternComp(ST_CHAR_PATTERN_LIST* l_pstLogFileInfo, int l_nPatternIndex,
                                   char* l_pstrPattern) {
  if (!fValidSlot(l_pstLogFileInfo, l_nPatternIndex)) return RESULT_REFUSED;
  return fgPatternSlotComp(&l_pstLogFileInfo->m_vpclStrPattern[l_nPatternIndex], l_pstrPattern);
}

int CCharPatternList::fPatternClear(ST_CHAR_PATTERN_LIST* l_pstLogFileInfo, int l_nPatternIndex) {
  if (!fValidSlot(l_pstLogFileInfo, l_nPatternIndex)) return RESULT_FAIL;
  fgPatternSlotClear(&l_pstLogFileInfo->m_vpclStrPattern[l_nPatternIndex]);
  return RESULT_OK;
}
