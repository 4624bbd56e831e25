#include "CycleBuffers.h"

#include <cstring>
#include <new>

#include "ColumnLogger.h"
#include "CommonConst.h"

CCycleBuffers::CCycleBuffers(char*& l_rpstrColumns, long& l_rlColumnSize)
    : m_rpstrColumns(l_rpstrColumns), m_rlColumnSize(l_rlColumnSize) {}

CCycleBuffers::~CCycleBuffers() { fRelease(); }

int CCycleBuffers::fStart(long l_lCapacity) {
  fRelease();
  l_pstrLineBuf = new (std::nothrow) char[l_lCapacity]();
  m_rpstrColumns = new (std::nothrow) char[l_lCapacity]();
  if (l_pstrLineBuf == nullptr || m_rpstrColumns == nullptr) {
    fRelease();
    return 0;
  }
  m_lCapacity = m_rlColumnSize = l_lCapacity;
  return 1;
}

int CCycleBuffers::fGrow(long l_lMore) {
  long l_lNewSize = m_lCapacity + l_lMore;
  if (l_lNewSize < 2 * m_lCapacity) l_lNewSize = 2 * m_lCapacity;
  if (l_lNewSize < LINE_RESERVED_BYTES + l_lMore + ROOM_SLACK) l_lNewSize = LINE_RESERVED_BYTES + l_lMore + ROOM_SLACK;
  char* l_pstrLine = new (std::nothrow) char[l_lNewSize]();
  char* l_pstrColumns = l_pstrLine != nullptr ? new (std::nothrow) char[l_lNewSize]() : nullptr;
  if (l_pstrColumns == nullptr) {
    delete[] l_pstrLine;
    return 0;
  }
  if (l_pstrLineBuf != nullptr) memcpy(l_pstrLine + LINE_RESERVED_BYTES, fgCurrentLine(), static_cast<size_t>(m_lLen));
  delete[] l_pstrLineBuf;
  delete[] m_rpstrColumns;
  l_pstrLineBuf = l_pstrLine;
  m_rpstrColumns = l_pstrColumns;
  m_lCapacity = m_rlColumnSize = l_lNewSize;
  return 1;
}

void CCycleBuffers::fRelease() {
  delete[] l_pstrLineBuf;
  l_pstrLineBuf = nullptr;
  delete[] m_rpstrColumns;
  m_rpstrColumns = nullptr;
  m_lCapacity = m_rlColumnSize = 0;
  m_lLen = 0;
}
