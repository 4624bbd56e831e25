// CNumPatternList: the numeric column rules of all watched logs
// (LOGnn_NUMBER_PATTERN), one ST_NUM_PATTERN_LIST per rule.
//
// Order: a new rule goes directly before the first rule with the same entry
// number, a rule of a new entry number to the end. Rules therefore stand
// together per watched log, groups in the order their first rule arrived,
// and the newest rule of a group first: fGetNode(nn) yields the rule added
// last for nn, and the rule evaluation tries the rule configured last first.
//
// Ownership: the registry allocates, owns and frees its records. Pointers
// returned by the getters stay valid until that record is removed.
//
// Threads: main thread only; one cursor walk at a time.
#pragma once

#include "OrderedList.h"

constexpr int RULE_LIST_ORDER = LIST_ORDER_END;  // nominal; see the order rule above
constexpr long RULE_LIST_MAX_CNT = 90000;        // nominal maximum, reported only
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

class CNumPatternList {
 public:
  // Empty registry: order type 1, nominal maximum 90,000, duplicates allowed.
  CNumPatternList();
  // Releases every record.
  ~CNumPatternList() = default;
  CNumPatternList(const CNumPatternList&) = delete;
  CNumPatternList& operator=(const CNumPatternList&) = delete;

  // Builds a rule from the arguments and inserts it by the order rule. The
  // two texts are copied, cut to 63 characters (the loader checks lengths);
  // a null text is stored empty. 1 inserted, -1 when memory is exhausted
  // (error code and text of the list).
  int fAddLinkedList(int l_nIndex, int l_nComumnNum, int l_nFaultLevel, int l_nFaultDecide, int l_nFaultValue,
                     float l_fFaultValue, int l_nCompareNum, char* l_pstrExt1, char* l_pstrExt2);

  // Removes every rule of this entry number: 1 when at least one went, else 0.
  int fDelLinkedList(int l_nIndex) { return m_clList.fDeleteNode(l_nIndex); }
  // Unlinks and frees one rule, which must belong to this registry (null is
  // ignored); head, end and cursor move as for any removal.
  void fDeleteLinkedList(ST_NUM_PATTERN_LIST* l_pstDeleteNode) { m_clList.fUnlink(l_pstDeleteNode); }
  // Releases all rules; returns how many there were.
  int fClearLinkedList() { return m_clList.fFreeAll(); }
  // Number of rules.
  long fGetLinkedListCnt() { return m_clList.fGetNodeCnt(); }

  // First rule (from the head) with this entry number, or null.
  ST_NUM_PATTERN_LIST* fGetNode(int l_nIndex) { return m_clList.fGetNode(l_nIndex); }
  // The cursor rule, or null.
  ST_NUM_PATTERN_LIST* fGetNode() { return m_clList.fGetNode(); }
  ST_NUM_PATTERN_LIST* fGetHeadNode() { return m_clList.fGetHeadNode(); }
  ST_NUM_PATTERN_LIST* fGetEndNode() { return m_clList.fGetEndNode(); }
  // Cursor: fMoveFirst / fMoveLast return 1 when the registry is not empty;
  // fMoveNext / fMovePrev return the cursor rule and then step.
  int fMoveFirst() { return m_clList.fMoveFirst(); }
  int fMoveLast() { return m_clList.fMoveLast(); }
  ST_NUM_PATTERN_LIST* fMoveNext() { return m_clList.fMoveNext(); }
  ST_NUM_PATTERN_LIST* fMovePrev() { return m_clList.fMovePrev(); }
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
    static int fKey(const ST_NUM_PATTERN_LIST* l_pstNode) { return l_pstNode->m_nIndex; }
    static void fCopyPayload(ST_NUM_PATTERN_LIST* l_pstDst, const ST_NUM_PATTERN_LIST* l_pstSrc);
    static void fRelease(ST_NUM_PATTERN_LIST*) {}
    static constexpr int kInsertRule = INSERT_BEFORE_SAME_KEY;
  };

  int fSearchInsertPosition(ST_NUM_PATTERN_LIST* l_pstNode, ST_NUM_PATTERN_LIST** l_ppstNodePosition) {
    return m_clList.fSearchInsertPosition(l_pstNode, l_ppstNodePosition);
  }
  int fAddNode(ST_NUM_PATTERN_LIST* l_pstAddNode) { return m_clList.fAddNode(l_pstAddNode); }
  long fNodeCntInc() { return m_clList.fNodeCntInc(); }
  long fNodeCntDec() { return m_clList.fNodeCntDec(); }

  COrderedList<ST_NUM_PATTERN_LIST, Traits> m_clList;
};
