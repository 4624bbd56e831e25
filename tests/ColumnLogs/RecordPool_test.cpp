// CRecordPool: zero-filled records that do not overlap, stay aligned, are
// reused after being given back, and whose unwritten middle pages stay out
// of memory.
#include "RecordPool.h"

#include <sys/mman.h>
#include <unistd.h>

#include <cstdint>
#include <cstring>
#include <vector>

#include <gtest/gtest.h>

namespace {

// Shaped like a text rule record: leading fields, large texts, two links at the end.
struct ST_BIG {
  int m_nIndex;
  char m_strHead[1000];
  char m_vstrText[5][2048];
  ST_BIG* m_pstNext;
  ST_BIG* m_pstPrev;
};

bool fAllZero(const ST_BIG* l_pstRec) {
  static const ST_BIG l_stZero{};
  return memcmp(l_pstRec, &l_stZero, sizeof(ST_BIG)) == 0;
}

bool fResident(const void* l_pvAddress) {
  const uintptr_t l_uPage = static_cast<uintptr_t>(sysconf(_SC_PAGESIZE));
  unsigned char l_uchVec = 0;
  void* l_pvPage = reinterpret_cast<void*>(reinterpret_cast<uintptr_t>(l_pvAddress) & ~(l_uPage - 1));
  return mincore(l_pvPage, l_uPage, &l_uchVec) != 0 || (l_uchVec & 1) != 0;
}

// Over two slabs' worth: every record zero, aligned and holding its own bytes
// (the links at its end included); a record given back is reused zero-filled.
TEST(RecordPool, RecordsAreZeroAlignedDistinctAndReused) {
  CRecordPool<ST_BIG> l_clPool;
  std::vector<ST_BIG*> l_vpRecords;
  for (int l_nRec = 0; l_nRec < 2 * CRecordPool<ST_BIG>::kSlotsPerSlab + 3; ++l_nRec) {
    ST_BIG* l_pstRec = l_clPool.fAlloc();
    ASSERT_NE(l_pstRec, nullptr);
    ASSERT_EQ(reinterpret_cast<uintptr_t>(l_pstRec) % alignof(ST_BIG), 0u);
    ASSERT_TRUE(fAllZero(l_pstRec)) << "record " << l_nRec;
    memset(static_cast<void*>(l_pstRec), l_nRec + 1, sizeof(ST_BIG));
    l_vpRecords.push_back(l_pstRec);
  }
  EXPECT_EQ(l_clPool.fLiveCount(), static_cast<long>(l_vpRecords.size()));
  for (size_t l_nRec = 0; l_nRec < l_vpRecords.size(); ++l_nRec) {
    const unsigned char* l_puchRec = reinterpret_cast<const unsigned char*>(l_vpRecords[l_nRec]);
    for (size_t l_nAt : {size_t{0}, sizeof(ST_BIG) / 2, sizeof(ST_BIG) - 1})
      EXPECT_EQ(l_puchRec[l_nAt], static_cast<unsigned char>(l_nRec + 1)) << l_nRec;
  }
  ST_BIG* l_pstFirst = l_vpRecords[5];
  l_clPool.fFree(l_pstFirst);
  l_clPool.fFree(nullptr);  // ignored
  EXPECT_EQ(l_clPool.fAlloc(), l_pstFirst);
  EXPECT_TRUE(fAllZero(l_pstFirst));
  for (ST_BIG* l_pstRec : l_vpRecords) l_clPool.fFree(l_pstRec);
  EXPECT_EQ(l_clPool.fLiveCount(), 0);
  // All given back: the slabs went back to the system; the pool starts over.
  ST_BIG* l_pstFresh = l_clPool.fAlloc();
  ASSERT_NE(l_pstFresh, nullptr);
  EXPECT_TRUE(fAllZero(l_pstFresh));
  l_clPool.fFree(l_pstFresh);
}

// The point of the pool: writing a record's leading fields and its links
// leaves the pages of its unused texts out of memory; consecutive records do
// not share their leading fields' place in a page (one cache set).
TEST(RecordPool, UnwrittenTextPagesStayOutOfMemory) {
  CRecordPool<ST_BIG> l_clPool;
  std::vector<ST_BIG*> l_vpRecords;
  for (int l_nRec = 0; l_nRec < 8; ++l_nRec) {
    ST_BIG* l_pstRec = l_clPool.fAlloc();
    ASSERT_NE(l_pstRec, nullptr);
    l_pstRec->m_nIndex = l_nRec;
    strcpy(l_pstRec->m_vstrText[0], "ERROR");
    l_pstRec->m_pstNext = l_pstRec->m_pstPrev = l_pstRec;
    if (!l_vpRecords.empty()) {
      EXPECT_NE(reinterpret_cast<uintptr_t>(l_pstRec) % 4096, reinterpret_cast<uintptr_t>(l_vpRecords.back()) % 4096);
    }
    l_vpRecords.push_back(l_pstRec);
  }
  for (ST_BIG* l_pstRec : l_vpRecords) {
    EXPECT_TRUE(fResident(&l_pstRec->m_nIndex) && fResident(&l_pstRec->m_pstNext));
    EXPECT_FALSE(fResident(l_pstRec->m_vstrText[2]) || fResident(l_pstRec->m_vstrText[4]));
    l_clPool.fFree(l_pstRec);
  }
}

}  // namespace
