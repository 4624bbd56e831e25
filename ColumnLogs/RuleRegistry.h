// CRuleRegistry: what the three column rule registries (CNumPatternList,
// CCharPatternList, CDatePatternList) share: the operations on their rules
// over the one ordered-list engine (OrderedList.h). Each registry adds the
// building of its own rule from arguments.
//
// Order of every rule registry: a new rule goes directly before the first
// rule with the same entry number, a rule of a new entry number to the end.
// Rules therefore stand together per watched log, groups in the order their
// first rule arrived, and the newest rule of a group first: fGetNode(nn)
// yields the rule added last for nn, and the rule evaluation tries the rule
// configured last first.
//
// Ownership: the registry allocates, owns and frees its records, and with
// them whatever Traits::fRelease says a record owns. Pointers returned by the
// getters stay valid until that record is removed.
//
// Threads: main thread only; one cursor walk at a time.
#pragma once

#include "OrderedList.h"

constexpr int RULE_LIST_ORDER = LIST_ORDER_END;  // nominal; see the order rule above
constexpr long RULE_LIST_MAX_CNT = 90000;        // nominal maximum, reported only

template <typename Rec, typename Traits>
class CRuleRegistry {
 public:
  CRuleRegistry(const CRuleRegistry&) = delete;
  CRuleRegistry& operator=(const CRuleRegistry&) = delete;

  // Removes every rule of this entry number: 1 when at least one went, else 0.
  int fDelLinkedList(int l_nIndex) { return m_clList.fDeleteNode(l_nIndex); }
  // Unlinks and frees one rule with what it owns; the rule must belong to
  // this registry (null is ignored); head, end and cursor move as for any removal.
  void fDeleteLinkedList(Rec* l_pstDeleteNode) { m_clList.fUnlink(l_pstDeleteNode); }
  // Releases all rules; returns how many there were.
  int fClearLinkedList() { return m_clList.fFreeAll(); }
  // Number of rules.
  long fGetLinkedListCnt() { return m_clList.fGetNodeCnt(); }

  // First rule (from the head) with this entry number, or null.
  Rec* fGetNode(int l_nIndex) { return m_clList.fGetNode(l_nIndex); }
  // The cursor rule, or null.
  Rec* fGetNode() { return m_clList.fGetNode(); }
  Rec* fGetHeadNode() { return m_clList.fGetHeadNode(); }
  Rec* fGetEndNode() { return m_clList.fGetEndNode(); }
  // Cursor: fMoveFirst / fMoveLast return 1 when the registry is not empty;
  // fMoveNext / fMovePrev return the cursor rule and then step.
  int fMoveFirst() { return m_clList.fMoveFirst(); }
  int fMoveLast() { return m_clList.fMoveLast(); }
  Rec* fMoveNext() { return m_clList.fMoveNext(); }
  Rec* fMovePrev() { return m_clList.fMovePrev(); }
  long fGetNodeCnt() { return m_clList.fGetNodeCnt(); }
  long fGetNodeMaxCnt() { return m_clList.fGetNodeMaxCnt(); }
  // Last error code and text (owned by the registry); 0 and empty until a failure.
  int fGetErrorCode() { return m_clList.fGetErrorCode(); }
  char* fGetErrorMsg() { return m_clList.fGetErrorMsg(); }
  // Releases all rules; returns how many there were.
  int fFreeAll() { return m_clList.fFreeAll(); }
  // Removes every rule of this entry number: 1 when at least one went, else 0.
  int fDeleteNode(int l_nIndex) { return m_clList.fDeleteNode(l_nIndex); }

 protected:
  // Empty registry: order type 1, nominal maximum 90,000, duplicates allowed.
  CRuleRegistry() : m_clList(RULE_LIST_ORDER, RULE_LIST_MAX_CNT, 1) {}
  // Releases every record.
  ~CRuleRegistry() = default;

  int fSearchInsertPosition(Rec* l_pstNode, Rec** l_ppstNodePosition) {
    return m_clList.fSearchInsertPosition(l_pstNode, l_ppstNodePosition);
  }
  // Links a copy of the rule by the order rule: 1 inserted, -1 when memory
  // is exhausted (error code and text of the list).
  int fAddNode(Rec* l_pstAddNode) { return m_clList.fAddNode(l_pstAddNode); }
  long fNodeCntInc() { return m_clList.fNodeCntInc(); }
  long fNodeCntDec() { return m_clList.fNodeCntDec(); }

  COrderedList<Rec, Traits> m_clList;
};
