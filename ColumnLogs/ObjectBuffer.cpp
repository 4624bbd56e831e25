#include "ObjectBuffer.h"

#include <cstring>
#include <new>

#include "CommonConst.h"

CObjectBuffer::CObjectBuffer()
    : m_pcllData(new (std::nothrow) CObjectList(LIST_ORDER_END)),
      m_pcllKeyTable(new (std::nothrow) CObjectList(LIST_ORDER_END)) {}

CObjectBuffer::~CObjectBuffer() {
  fFreeObjects();
  delete m_pcllKeyTable;
  delete m_pcllData;
}

int CObjectBuffer::fGetPutIndex(char* /*l_pstrKey*/) {
  const int l_nSize = fGetSize();
  // Mark the indices in use among 1..size+1 in one walk; the first unmarked
  // one is the answer. Without memory for the marks, ask index by index.
  unsigned char* l_pchUsed = new (std::nothrow) unsigned char[l_nSize + 2]();
  if (l_pchUsed == nullptr) {
    for (int l_nIndex = 1; l_nIndex <= l_nSize; ++l_nIndex) {
      if (m_pcllKeyTable->fGetNode(l_nIndex) == nullptr) return l_nIndex;
    }
    return l_nSize + 1;
  }
  for (ST_OBJECTLIST_LNKLST* l_pstNode = m_pcllKeyTable->fGetHeadNode(); l_pstNode != nullptr;
       l_pstNode = l_pstNode->m_pstNext) {
    if (l_pstNode->m_nIndex >= 1 && l_pstNode->m_nIndex <= l_nSize) l_pchUsed[l_pstNode->m_nIndex] = 1;
  }
  int l_nIndex = 1;
  while (l_nIndex <= l_nSize && l_pchUsed[l_nIndex] != 0) ++l_nIndex;
  delete[] l_pchUsed;
  return l_nIndex;
}

int CObjectBuffer::fObjectPut(char* l_pstrKey, void* l_pvdValue) {
  if (l_pstrKey == nullptr) return RESULT_REFUSED;
  if (m_pcllData == nullptr || m_pcllKeyTable == nullptr) return RESULT_FAIL;

  const int l_nIndex = fGetPutIndex(l_pstrKey);
  const size_t l_nLen = strlen(l_pstrKey);
  char* l_pstrKeyCopy = new (std::nothrow) char[l_nLen + 1];
  if (l_pstrKeyCopy == nullptr) return RESULT_FAIL;
  memcpy(l_pstrKeyCopy, l_pstrKey, l_nLen + 1);

  // Both nodes or neither: an entry present in one list only would break
  // the index pairing that every lookup relies on.
  ST_OBJECTLIST_LNKLST l_stKeyNode{l_nIndex, l_pstrKeyCopy, nullptr, nullptr};
  if (m_pcllKeyTable->fAddNode(&l_stKeyNode) != 1) {
    delete[] l_pstrKeyCopy;
    return RESULT_FAIL;
  }
  ST_OBJECTLIST_LNKLST l_stDataNode{l_nIndex, l_pvdValue, nullptr, nullptr};
  if (m_pcllData->fAddNode(&l_stDataNode) != 1) {
    m_pcllKeyTable->fDeleteNode(l_nIndex);
    delete[] l_pstrKeyCopy;
    return RESULT_FAIL;
  }
  return l_nIndex;
}

ST_OBJECTLIST_LNKLST* CObjectBuffer::fFindKeyNode(const char* l_pstrKey) {
  if (l_pstrKey == nullptr || m_pcllKeyTable == nullptr) return nullptr;
  m_pcllKeyTable->fMoveFirst();
  while (ST_OBJECTLIST_LNKLST* l_pstNode = m_pcllKeyTable->fMoveNext()) {
    const char* l_pstrNodeKey = static_cast<const char*>(l_pstNode->m_pvdData);
    if (l_pstrNodeKey != nullptr && strcmp(l_pstrNodeKey, l_pstrKey) == 0) return l_pstNode;
  }
  return nullptr;
}

int CObjectBuffer::fObjectRemove(char* l_pstrKey) {
  ST_OBJECTLIST_LNKLST* l_pstKeyNode = fFindKeyNode(l_pstrKey);
  if (l_pstKeyNode == nullptr) return RESULT_REFUSED;
  const int l_nIndex = l_pstKeyNode->m_nIndex;
  delete[] static_cast<char*>(l_pstKeyNode->m_pvdData);
  l_pstKeyNode->m_pvdData = nullptr;
  m_pcllKeyTable->fDeleteNode(l_nIndex);
  if (m_pcllData != nullptr) m_pcllData->fDeleteNode(l_nIndex);
  return RESULT_OK;
}

void* CObjectBuffer::fSetObject(char* l_pstrKey, void* l_pvdValue) {
  ST_OBJECTLIST_LNKLST* l_pstKeyNode = fFindKeyNode(l_pstrKey);
  if (l_pstKeyNode == nullptr) return nullptr;
  return fSetObject(l_pstKeyNode->m_nIndex, l_pvdValue);
}

void* CObjectBuffer::fSetObject(int l_nIndex, void* l_pvdValue) {
  if (m_pcllData == nullptr) return nullptr;
  ST_OBJECTLIST_LNKLST* l_pstNode = m_pcllData->fGetNode(l_nIndex);
  if (l_pstNode == nullptr) return nullptr;
  l_pstNode->m_pvdData = l_pvdValue;
  return l_pvdValue;
}

void* CObjectBuffer::fGetObject(char* l_pstrKey) {
  ST_OBJECTLIST_LNKLST* l_pstKeyNode = fFindKeyNode(l_pstrKey);
  if (l_pstKeyNode == nullptr) return nullptr;
  return fGetObject(l_pstKeyNode->m_nIndex);
}

void* CObjectBuffer::fGetObject(int l_nIndex) {
  if (m_pcllData == nullptr) return nullptr;
  ST_OBJECTLIST_LNKLST* l_pstNode = m_pcllData->fGetNode(l_nIndex);
  return l_pstNode != nullptr ? l_pstNode->m_pvdData : nullptr;
}

char* CObjectBuffer::fGetObjectKey(int l_nIndex) {
  if (m_pcllKeyTable == nullptr) return nullptr;
  ST_OBJECTLIST_LNKLST* l_pstNode = m_pcllKeyTable->fGetNode(l_nIndex);
  return l_pstNode != nullptr ? static_cast<char*>(l_pstNode->m_pvdData) : nullptr;
}

int CObjectBuffer::fGetSize() {
  return m_pcllKeyTable != nullptr ? static_cast<int>(m_pcllKeyTable->fGetNodeCnt()) : 0;
}

int CObjectBuffer::fFreeObjects() {
  if (m_pcllKeyTable != nullptr) {
    for (ST_OBJECTLIST_LNKLST* l_pstNode = m_pcllKeyTable->fGetHeadNode(); l_pstNode != nullptr;
         l_pstNode = l_pstNode->m_pstNext) {
      delete[] static_cast<char*>(l_pstNode->m_pvdData);
      l_pstNode->m_pvdData = nullptr;
    }
    m_pcllKeyTable->fFreeAll();
  }
  if (m_pcllData != nullptr) m_pcllData->fFreeAll();
  return RESULT_OK;
}
