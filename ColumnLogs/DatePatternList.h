// CDatePatternList: the date column rules of all watched logs
// (LOGnn_DATE_PATTERN), one ST_DATE_PATTERN_LIST per rule. The seconds of the
// date columns of a line feed the lines-per-second check.
//
// Order: that of every rule registry (RuleRegistry.h): rules grouped per entry
// number, groups in arrival order, the newest rule of a group first.
//
// Ownership: the registry allocates, owns and frees its records. Pointers
// returned by the getters stay valid until that record is removed.
//
// Threads: main thread only; one cursor walk at a time.
#pragma once

#include "RuleRegistry.h"

constexpr int RULE_DATE_PATTERN_SIZE = 512;  // date layout: at most 511 characters

struct ST_DATE_PATTERN_LIST {
  int m_nIndex;      // entry number nn of the watched log (the key)
  int m_nComumnNum;  // column number, counted from 1
  // Layout of the date column, in which "ss" marks the two seconds digits,
  // e.g. "hh:mm:ss".
  char m_strDatePattern[RULE_DATE_PATTERN_SIZE];
  ST_DATE_PATTERN_LIST* m_pstNext;  // next rule, null at the end
  ST_DATE_PATTERN_LIST* m_pstPrev;  // previous rule, null at the head
};

struct DateRuleTraits {
  static int fKey(const ST_DATE_PATTERN_LIST* l_pstNode) { return l_pstNode->m_nIndex; }
  static void fCopyPayload(ST_DATE_PATTERN_LIST* l_pstDst, const ST_DATE_PATTERN_LIST* l_pstSrc);
  static void fRelease(ST_DATE_PATTERN_LIST*) {}
  static constexpr int kInsertRule = INSERT_BEFORE_SAME_KEY;
};

class CDatePatternList : public CRuleRegistry<ST_DATE_PATTERN_LIST, DateRuleTraits> {
 public:
  // Empty registry: order type 1, nominal maximum 90,000, duplicates allowed.
  CDatePatternList() = default;

  // Builds a date rule (the layout is copied, cut to 511 characters; null is
  // stored empty) and inserts it by the order rule. 1 inserted, -1 when
  // memory is exhausted (error code and text of the list).
  int fAddLinkedList(int l_nIndex, int l_nComumnNum, char* l_pstFaultPattern);
};
