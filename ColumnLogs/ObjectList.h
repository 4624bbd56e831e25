// CObjectList: the generic ordered list of (int key, data pointer) nodes on
// which the configuration buffer is built. The list owns its nodes and never
// frees the data they point to.
#pragma once

#include "OrderedList.h"

struct ST_OBJECTLIST_LNKLST {
  int m_nIndex;                    // the key
  void* m_pvdData;                 // the caller's data; never freed by the list
  ST_OBJECTLIST_LNKLST* m_pstNext;  // next node, null at the end
  ST_OBJECTLIST_LNKLST* m_pstPrev;  // previous node, null at the head
};

class CObjectList {
 public:
  // Order type 3 (ascending keys), nominal maximum 1,000,000,000, duplicates allowed.
  CObjectList();
  // Order type 1 end, 2 head, 3 ascending, 4 descending; other values give 3.
  explicit CObjectList(int l_nListOrderType);
  CObjectList(int l_nListOrderType, long l_lNodeMaxCnt);
  // l_nDupFlag 0 refuses a key already present; any other value allows it.
  CObjectList(int l_nListOrderType, long l_lNodeMaxCnt, int l_nDupFlag);
  ~CObjectList() = default;
  CObjectList(const CObjectList&) = delete;
  CObjectList& operator=(const CObjectList&) = delete;

  // Links a new node carrying the key and data pointer of `l_pstAddNode`
  // (which stays the caller's). 1 inserted, 0 refused duplicate, -1 error.
  int fAddNode(ST_OBJECTLIST_LNKLST* l_pstAddNode) { return m_clList.fAddNode(l_pstAddNode); }
  // Removes every node with this key: 1 when one went, else 0.
  int fDeleteNode(int l_nIndex) { return m_clList.fDeleteNode(l_nIndex); }
  // Removes all nodes (never their data); returns how many there were.
  int fFreeAll() { return m_clList.fFreeAll(); }
  ST_OBJECTLIST_LNKLST* fGetNode(int l_nIndex) { return m_clList.fGetNode(l_nIndex); }
  ST_OBJECTLIST_LNKLST* fGetNode() { return m_clList.fGetNode(); }
  ST_OBJECTLIST_LNKLST* fGetHeadNode() { return m_clList.fGetHeadNode(); }
  ST_OBJECTLIST_LNKLST* fGetEndNode() { return m_clList.fGetEndNode(); }
  int fMoveFirst() { return m_clList.fMoveFirst(); }
  int fMoveLast() { return m_clList.fMoveLast(); }
  ST_OBJECTLIST_LNKLST* fMoveNext() { return m_clList.fMoveNext(); }
  ST_OBJECTLIST_LNKLST* fMovePrev() { return m_clList.fMovePrev(); }
  long fGetNodeCnt() { return m_clList.fGetNodeCnt(); }
  long fGetNodeMaxCnt() { return m_clList.fGetNodeMaxCnt(); }
  int fGetErrorCode() { return m_clList.fGetErrorCode(); }
  char* fGetErrorMsg() { return m_clList.fGetErrorMsg(); }

 private:
  struct Traits {
    static int fKey(const ST_OBJECTLIST_LNKLST* l_pstNode) { return l_pstNode->m_nIndex; }
    static void fCopyPayload(ST_OBJECTLIST_LNKLST* l_pstDst, const ST_OBJECTLIST_LNKLST* l_pstSrc) {
      l_pstDst->m_nIndex = l_pstSrc->m_nIndex;
      l_pstDst->m_pvdData = l_pstSrc->m_pvdData;
    }
    static void fRelease(ST_OBJECTLIST_LNKLST*) {}
    static constexpr int kInsertRule = INSERT_BY_ORDER_TYPE;
  };

  int fSearchInsertPosition(ST_OBJECTLIST_LNKLST* l_pstNode, ST_OBJECTLIST_LNKLST** l_ppstNodePosition) {
    return m_clList.fSearchInsertPosition(l_pstNode, l_ppstNodePosition);
  }
  long fNodeCntInc() { return m_clList.fNodeCntInc(); }
  long fNodeCntDec() { return m_clList.fNodeCntDec(); }

  COrderedList<ST_OBJECTLIST_LNKLST, Traits> m_clList;
};
