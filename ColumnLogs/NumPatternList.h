// CNumPatternList: the numeric column rules of all watched logs
// (LOGnn_NUMBER_PATTERN), one ST_NUM_PATTERN_LIST per rule.
//
// Order, ownership and threads: those of every rule registry
// (RuleRegistry.h): rules grouped per entry number, groups in arrival order,
// the newest rule of a group first.
#pragma once

#include "RuleRegistry.h"

constexpr int RULE_EXT_SIZE = 64;                // texts around a number: at most 63 characters

struct ST_NUM_PATTERN_LIST {
  int m_nIndex;       // entry number nn of the watched log (the key)
  int m_nComumnNum;   // column number, counted from 1
  int m_nFaultLevel;  // fault level written into the event
  int m_nFaultDecide; // 1: integer comparison; other (the loader gives 2): single-precision comparison
  int m_nFaultValue;  // integer threshold
  float m_fFaultValue;  // single-precision threshold
  int m_nCompareNum;  // 1 column > threshold, 2 >=, 3 <, 4 <=, 5 ==, 6 !=
  // Text after which the number starts inside the column; "NULL" when the
  // configuration names none.
  char m_strExt1[RULE_EXT_SIZE];
  // Text at which the number ends.
  char m_strExt2[RULE_EXT_SIZE];
  ST_NUM_PATTERN_LIST* m_pstNext;  // next rule, null at the end
  ST_NUM_PATTERN_LIST* m_pstPrev;  // previous rule, null at the head
};

struct NumRuleTraits {
  static int fKey(const ST_NUM_PATTERN_LIST* l_pstNode) { return l_pstNode->m_nIndex; }
  static void fCopyPayload(ST_NUM_PATTERN_LIST* l_pstDst, const ST_NUM_PATTERN_LIST* l_pstSrc);
  static void fRelease(ST_NUM_PATTERN_LIST*) {}
  static constexpr int kInsertRule = INSERT_BEFORE_SAME_KEY;
};

class CNumPatternList : public CRuleRegistry<ST_NUM_PATTERN_LIST, NumRuleTraits> {
 public:
  // Empty registry: order type 1, nominal maximum 90,000, duplicates allowed.
  CNumPatternList() = default;

  // Builds a rule from the arguments and inserts it by the order rule. The
  // two texts are copied, cut to 63 characters (the loader checks lengths);
  // a null text is stored empty. 1 inserted, -1 when memory is exhausted
  // (error code and text of the list).
  int fAddLinkedList(int l_nIndex, int l_nComumnNum, int l_nFaultLevel, int l_nFaultDecide, int l_nFaultValue,
                     float l_fFaultValue, int l_nCompareNum, char* l_pstrExt1, char* l_pstrExt2);
};
