// The one ordered-list engine behind the configuration buffer and the four
// registries: a doubly linked list of fixed-layout records keyed by an int,
// with a cursor, an insertion rule, a duplicate rule and a last error.
//
// Ownership: the list allocates (zero-filled) and frees every record it
// holds. Records of a page or more come from a CRecordPool (RecordPool.h),
// so that the pages a record never writes (unused pattern texts) stay out of
// the resident set; sanitizer builds keep them on the heap, where a use
// after free is caught. A record given to fAddNode stays the caller's: the list links a copy
// of the fields that Traits::fCopyPayload names. Before a record is freed,
// Traits::fRelease lets it release what the record owns (compiled patterns);
// data a generic node merely points to is never released by the list.
//
// Cursor: fMoveFirst puts it on the head; fMoveNext returns the cursor record
// and then steps to its successor, so a whole walk is fMoveFirst followed by
// fMoveNext until it yields null. Insertions never move the cursor; removing
// the record under the cursor moves it as fUnlink describes.
//
// Threads: none. One thread uses a list at a time; there is no lock.
//
// Traits must provide
//   static int  fKey(const Rec*)                    the key of a record
//   static void fCopyPayload(Rec* dst, const Rec*)  fields copied on insertion
//   static void fRelease(Rec*)                      called before a record is freed
//   static constexpr int kInsertRule                one of EN_INSERT_RULE
// and Rec must end with `Rec* m_pstNext; Rec* m_pstPrev;`.
#pragma once

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <new>
#include <type_traits>

#include "RecordPool.h"

#if defined(__SANITIZE_ADDRESS__)
#define COLUMNLOGS_RECORDS_ON_HEAP 1
#elif defined(__has_feature)
#if __has_feature(address_sanitizer)
#define COLUMNLOGS_RECORDS_ON_HEAP 1
#endif
#endif
#ifndef COLUMNLOGS_RECORDS_ON_HEAP
#define COLUMNLOGS_RECORDS_ON_HEAP 0
#endif

enum EN_INSERT_RULE {
  INSERT_BY_ORDER_TYPE = 0,    // order type 1 end, 2 head, 3 ascending keys, 4 descending keys
  INSERT_AT_END = 1,           // always at the end, whatever the order type says
  INSERT_BEFORE_SAME_KEY = 2,  // directly before the first record with the same key, else at the end
};

constexpr int LIST_ORDER_END = 1;
constexpr int LIST_ORDER_HEAD = 2;
constexpr int LIST_ORDER_ASCENDING = 3;
constexpr int LIST_ORDER_DESCENDING = 4;
constexpr long LIST_DEFAULT_MAX_CNT = 1000000000L;

template <typename Rec, typename Traits>
class COrderedList {
 public:
  // An order type outside 1..4 becomes 3; a duplicate flag other than 0 or 1 becomes 1.
  COrderedList(int l_nListOrderType, long l_lNodeMaxCnt, int l_nDupFlag)
      : m_nErrorCode(0),
        m_pstHead(nullptr),
        m_pstEnd(nullptr),
        m_pstCurPosition(nullptr),
        m_nListOrderType(l_nListOrderType >= LIST_ORDER_END && l_nListOrderType <= LIST_ORDER_DESCENDING
                             ? l_nListOrderType
                             : LIST_ORDER_ASCENDING),
        m_lNodeCnt(0),
        m_lNodeMaxCnt(l_lNodeMaxCnt),
        m_nDupFlag(l_nDupFlag == 0 ? 0 : 1) {
    m_strErrorMsg[0] = '\0';
  }
  ~COrderedList() { fFreeAll(); }
  COrderedList(const COrderedList&) = delete;
  COrderedList& operator=(const COrderedList&) = delete;

  // Inserts a zero-filled copy of `l_pstAddNode` (the fields Traits copies).
  // 1 inserted, 0 refused as a duplicate (no error recorded), -1 on a null
  // argument or exhausted memory (error code and text recorded).
  int fAddNode(const Rec* l_pstAddNode) {
    if (l_pstAddNode == nullptr) {
      m_nErrorCode = -1;
      snprintf(m_strErrorMsg, sizeof(m_strErrorMsg), "[-1] Add node is NULL");
      return -1;
    }
    Rec* l_pstPosition = nullptr;
    if (fSearchInsertPosition(l_pstAddNode, &l_pstPosition) == 0) return 0;

    Rec* l_pstNew = fNewRecord();
    if (l_pstNew == nullptr) {
      m_nErrorCode = ENOMEM;
      snprintf(m_strErrorMsg, sizeof(m_strErrorMsg), "[%d] %s", ENOMEM, strerror(ENOMEM));
      return -1;
    }
    Traits::fCopyPayload(l_pstNew, l_pstAddNode);
    l_pstNew->m_pstNext = nullptr;
    l_pstNew->m_pstPrev = nullptr;

    if (m_pstHead == nullptr) {
      m_pstHead = m_pstEnd = m_pstCurPosition = l_pstNew;
    } else if (l_pstPosition == nullptr) {
      l_pstNew->m_pstPrev = m_pstEnd;
      m_pstEnd->m_pstNext = l_pstNew;
      m_pstEnd = l_pstNew;
    } else if (l_pstPosition == m_pstHead) {
      l_pstNew->m_pstNext = m_pstHead;
      m_pstHead->m_pstPrev = l_pstNew;
      m_pstHead = l_pstNew;
    } else {
      l_pstNew->m_pstPrev = l_pstPosition->m_pstPrev;
      l_pstNew->m_pstNext = l_pstPosition;
      l_pstPosition->m_pstPrev->m_pstNext = l_pstNew;
      l_pstPosition->m_pstPrev = l_pstNew;
    }
    fNodeCntInc();
    return 1;
  }

  // Removes every record with this key. 1 when at least one went, else 0.
  int fDeleteNode(int l_nIndex) {
    int l_nRemoved = 0;
    Rec* l_pstNode = m_pstHead;
    while (l_pstNode != nullptr) {
      Rec* l_pstNext = l_pstNode->m_pstNext;
      if (Traits::fKey(l_pstNode) == l_nIndex) {
        fUnlink(l_pstNode);
        l_nRemoved = 1;
      }
      l_pstNode = l_pstNext;
    }
    return l_nRemoved;
  }

  // Unlinks and frees one record of this list, moving head, end and cursor:
  // the only record leaves all three null; the head passes them to its
  // successor; any other record passes the cursor to its predecessor.
  void fUnlink(Rec* l_pstNode) {
    if (l_pstNode == nullptr) return;
    Rec* l_pstPrev = l_pstNode->m_pstPrev;
    Rec* l_pstNext = l_pstNode->m_pstNext;
    if (l_pstPrev == nullptr && l_pstNext == nullptr) {
      m_pstHead = m_pstEnd = m_pstCurPosition = nullptr;
    } else if (l_pstPrev == nullptr) {
      m_pstHead = l_pstNext;
      l_pstNext->m_pstPrev = nullptr;
      if (m_pstCurPosition == l_pstNode) m_pstCurPosition = l_pstNext;
    } else if (l_pstNext == nullptr) {
      m_pstEnd = l_pstPrev;
      l_pstPrev->m_pstNext = nullptr;
      if (m_pstCurPosition == l_pstNode) m_pstCurPosition = l_pstPrev;
    } else {
      l_pstPrev->m_pstNext = l_pstNext;
      l_pstNext->m_pstPrev = l_pstPrev;
      if (m_pstCurPosition == l_pstNode) m_pstCurPosition = l_pstPrev;
    }
    Traits::fRelease(l_pstNode);
    fDeleteRecord(l_pstNode);
    fNodeCntDec();
  }

  // Frees every record; returns how many there were.
  int fFreeAll() {
    int l_nFreed = 0;
    Rec* l_pstNode = m_pstHead;
    while (l_pstNode != nullptr) {
      Rec* l_pstNext = l_pstNode->m_pstNext;
      Traits::fRelease(l_pstNode);
      fDeleteRecord(l_pstNode);
      ++l_nFreed;
      l_pstNode = l_pstNext;
    }
    m_pstHead = m_pstEnd = m_pstCurPosition = nullptr;
    m_lNodeCnt = 0;
    return l_nFreed;
  }

  // First record from the head with this key, or null.
  Rec* fGetNode(int l_nIndex) const {
    for (Rec* l_pstNode = m_pstHead; l_pstNode != nullptr; l_pstNode = l_pstNode->m_pstNext) {
      if (Traits::fKey(l_pstNode) == l_nIndex) return l_pstNode;
    }
    return nullptr;
  }
  Rec* fGetNode() const { return m_pstCurPosition; }
  Rec* fGetHeadNode() const { return m_pstHead; }
  Rec* fGetEndNode() const { return m_pstEnd; }

  int fMoveFirst() {
    m_pstCurPosition = m_pstHead;
    return m_pstHead != nullptr ? 1 : 0;
  }
  int fMoveLast() {
    m_pstCurPosition = m_pstEnd;
    return m_pstEnd != nullptr ? 1 : 0;
  }
  Rec* fMoveNext() {
    Rec* l_pstNode = m_pstCurPosition;
    if (l_pstNode != nullptr) m_pstCurPosition = l_pstNode->m_pstNext;
    return l_pstNode;
  }
  Rec* fMovePrev() {
    Rec* l_pstNode = m_pstCurPosition;
    if (l_pstNode != nullptr) m_pstCurPosition = l_pstNode->m_pstPrev;
    return l_pstNode;
  }

  long fGetNodeCnt() const { return m_lNodeCnt; }
  long fGetNodeMaxCnt() const { return m_lNodeMaxCnt; }
  int fGetErrorCode() const { return m_nErrorCode; }
  char* fGetErrorMsg() { return m_strErrorMsg; }

  // Stores through l_ppstNodePosition the record before which `l_pstNode`
  // goes (null: the end). Returns 0 when the node is to be refused as a
  // duplicate, otherwise 1.
  int fSearchInsertPosition(const Rec* l_pstNode, Rec** l_ppstNodePosition) const {
    const int l_nKey = Traits::fKey(l_pstNode);
    *l_ppstNodePosition = nullptr;
    if (m_nDupFlag == 0 && fGetNode(l_nKey) != nullptr) return 0;
    switch (Traits::kInsertRule) {
      case INSERT_AT_END:
        return 1;
      case INSERT_BEFORE_SAME_KEY:
        *l_ppstNodePosition = fGetNode(l_nKey);
        return 1;
      default:
        break;
    }
    switch (m_nListOrderType) {
      case LIST_ORDER_HEAD:
        *l_ppstNodePosition = m_pstHead;
        break;
      case LIST_ORDER_ASCENDING:
      case LIST_ORDER_DESCENDING:
        for (Rec* l_pstCur = m_pstHead; l_pstCur != nullptr; l_pstCur = l_pstCur->m_pstNext) {
          const int l_nCurKey = Traits::fKey(l_pstCur);
          if ((m_nListOrderType == LIST_ORDER_ASCENDING && l_nCurKey > l_nKey) ||
              (m_nListOrderType == LIST_ORDER_DESCENDING && l_nCurKey < l_nKey)) {
            *l_ppstNodePosition = l_pstCur;
            break;
          }
        }
        break;
      default:  // LIST_ORDER_END
        break;
    }
    return 1;
  }

  long fNodeCntInc() { return ++m_lNodeCnt; }
  long fNodeCntDec() { return --m_lNodeCnt; }

  int m_nErrorCode;            // code of the last failed insertion; never cleared
  char m_strErrorMsg[256];     // text of the last failed insertion
  Rec* m_pstHead;              // first record
  Rec* m_pstEnd;               // last record
  Rec* m_pstCurPosition;       // the record the next fMoveNext/fMovePrev returns
  int m_nListOrderType;        // 1..4, see LIST_ORDER_*
  long m_lNodeCnt;             // number of linked records
  long m_lNodeMaxCnt;          // nominal maximum, reported only
  int m_nDupFlag;              // 1: equal keys allowed; 0: a present key is refused

 private:
  static constexpr bool kPooled = sizeof(Rec) >= RECORD_POOL_PAGE && COLUMNLOGS_RECORDS_ON_HEAP == 0;
  struct SNoPool {};

  // A zero-filled record, or null when memory is exhausted.
  Rec* fNewRecord() {
    if constexpr (kPooled) {
      return m_clPool.fAlloc();
    } else {
      return new (std::nothrow) Rec();
    }
  }
  void fDeleteRecord(Rec* l_pstNode) {
    if constexpr (kPooled) {
      m_clPool.fFree(l_pstNode);
    } else {
      delete l_pstNode;
    }
  }

  // Destroyed after the destructor's fFreeAll has given every record back.
  std::conditional_t<kPooled, CRecordPool<Rec>, SNoPool> m_clPool;
};
