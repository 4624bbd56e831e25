// CDatePatternList: the date column rules of all watched logs
// (LOGnn_DATE_PATTERN), one ST_DATE_PATTERN_LIST per rule. The seconds of the
// date columns of a line feed the lines-per-second check.
//
// Order: as CNumPatternList (NumPatternList.h): rules grouped per entry
// number, groups in arrival order, the newest rule of a group first.
//
// Ownership: the registry allocates, owns and frees its records. Pointers
// returned by the getters stay valid until that record is removed.
//
// Threads: main thread only; one cursor walk at a time.
#pragma once

#include "NumPatternList.h"  // RULE_LIST_ORDER, RULE_LIST_MAX_CNT
#include "OrderedList.h"

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

class CDatePatternList {
 public:
  // Empty registry: order type 1, nominal maximum 90,000, duplicates allowed.
  CDatePatternList();
  // Releases every record.
  ~CDatePatternList() = default;
  CDatePatternList(const CDatePatternList&) = delete;
  CDatePatternList& operator=(const CDatePatternList&) = delete;

  // Builds a date rule (the layout is copied, cut to 511 characters; null is
  // stored empty) and inserts it by the order rule. 1 inserted, -1 when
  // memory is exhausted (error code and text of the list).
  int fAddLinkedList(int l_nIndex, int l_nComumnNum, char* l_pstFaultPattern);

  // Removes every rule of this entry number: 1 when at least one went, else 0.
  int fDelLinkedList(int l_nIndex) { return m_clList.fDeleteNode(l_nIndex); }
  // Unlinks and frees one rule, which must belong to this registry (null is
  // ignored); head, end and cursor move as for any removal.
  void fDeleteLinkedList(ST_DATE_PATTERN_LIST* l_pstDeleteNode) { m_clList.fUnlink(l_pstDeleteNode); }
  // Releases all rules; returns how many there were.
  int fClearLinkedList() { return m_clList.fFreeAll(); }
  // Number of rules.
  long fGetLinkedListCnt() { return m_clList.fGetNodeCnt(); }

  // First rule (from the head) with this entry number, or null.
  ST_DATE_PATTERN_LIST* fGetNode(int l_nIndex) { return m_clList.fGetNode(l_nIndex); }
  // The cursor rule, or null.
  ST_DATE_PATTERN_LIST* fGetNode() { return m_clList.fGetNode(); }
  ST_DATE_PATTERN_LIST* fGetHeadNode() { return m_clList.fGetHeadNode(); }
  ST_DATE_PATTERN_LIST* fGetEndNode() { return m_clList.fGetEndNode(); }
  // Cursor: fMoveFirst / fMoveLast return 1 when the registry is not empty;
  // fMoveNext / fMovePrev return the cursor rule and then step.
  int fMoveFirst() { return m_clList.fMoveFirst(); }
  int fMoveLast() { return m_clList.fMoveLast(); }
  ST_DATE_PATTERN_LIST* fMoveNext() { return m_clList.fMoveNext(); }
  ST_DATE_PATTERN_LIST* fMovePrev() { return m_clList.fMovePrev(); }
  long fGetNodeCnt() { return m_clList.fGetNodeCnt(); }
  long fGetNodeMaxCnt() { return m_clList.fGetNodeMaxCnt(); }
  // Last error code and text (owned by the registry); 0 and empty until a failure.
  int fGetErrorCode() { return m_clList.fGetErrorCode(); }
  char* fGetErrorMsg() { return m_clList.fGetErrorMsg(); }
  // Releases all rules; returns how many there were.
  int fFreeAll() { return m_clList.fFreeAll(); }
  // Removes every rule of this entry number: 1 when at least one went, else 0.
  int fDeleteNode(int l_nIndex) { return m_clList.fDeleteNode(l_nIndex); }

 private:
  struct Traits {
    static int fKey(const ST_DATE_PATTERN_LIST* l_pstNode) { return l_pstNode->m_nIndex; }
    static void fCopyPayload(ST_DATE_PATTERN_LIST* l_pstDst, const ST_DATE_PATTERN_LIST* l_pstSrc);
    static void fRelease(ST_DATE_PATTERN_LIST*) {}
    static constexpr int kInsertRule = INSERT_BEFORE_SAME_KEY;
  };

  int fSearchInsertPosition(ST_DATE_PATTERN_LIST* l_pstNode, ST_DATE_PATTERN_LIST** l_ppstNodePosition) {
    return m_clList.fSearchInsertPosition(l_pstNode, l_ppstNodePosition);
  }
  int fAddNode(ST_DATE_PATTERN_LIST* l_pstAddNode) { return m_clList.fAddNode(l_pstAddNode); }
  long fNodeCntInc() { return m_clList.fNodeCntInc(); }
  long fNodeCntDec() { return m_clList.fNodeCntDec(); }

  COrderedList<ST_DATE_PATTERN_LIST, Traits> m_clList;
};
