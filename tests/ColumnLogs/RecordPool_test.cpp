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

bool fAllZero(const void* l_pvData, size_t l_nSize) {
  const unsigned char* l_puchData = static_cast<const unsigned char*>(l_pvData);
  for (size_t l_nIndx = 0; l_nIndx < l_nSize; ++l_nIndx)
    if (l_puchData[l_nIndx] != 0) return false;
  return true;
}

bool fResident(const void* l_pvAddress) {
  const long l_lPage = sysconf(_SC_PAGESIZE);
  uintptr_t l_uAddress = reinterpret_cast<uintptr_t>(l_pvAddress) & ~static_cast<uintptr_t>(l_lPage - 1);
  unsigned char l_uchVec = 0;
  if (mincore(reinterpret_cast<void*>(l_uAddress), static_cast<size_t>(l_lPage), &l_uchVec) != 0) return true;
  return (l_uchVec & 1) != 0;
}

TEST(RecordPool, RecordsAreZeroAlignedAndDoNotOverlap) {
  CRecordPool<ST_BIG> l_clPool;
  std::vector<ST_BIG*> l_vpRecords;
  // More than two slabs' worth.
  for (int l_nRec = 0; l_nRec < 2 * CRecordPool<ST_BIG>::kSlotsPerSlab + 3; ++l_nRec) {
    ST_BIG* l_pstRec = l_clPool.fAlloc();
    ASSERT_NE(l_pstRec, nullptr);
    ASSERT_EQ(reinterpret_cast<uintptr_t>(l_pstRec) % alignof(ST_BIG), 0u);
    ASSERT_TRUE(fAllZero(l_pstRec, sizeof(ST_BIG))) << "record " << l_nRec;
    memset(static_cast<void*>(l_pstRec), l_nRec + 1, sizeof(ST_BIG));
    l_vpRecords.push_back(l_pstRec);
  }
  EXPECT_EQ(l_clPool.fLiveCount(), static_cast<long>(l_vpRecords.size()));
  // Every record still holds its own bytes, the links at its end included.
  for (size_t l_nRec = 0; l_nRec < l_vpRecords.size(); ++l_nRec) {
    SCOPED_TRACE(l_nRec);
    const unsigned char* l_puchRec = reinterpret_cast<const unsigned char*>(l_vpRecords[l_nRec]);
    for (size_t l_nAt : {size_t{0}, sizeof(ST_BIG) / 2, sizeof(ST_BIG) - 1})
      EXPECT_EQ(l_puchRec[l_nAt], static_cast<unsigned char>(l_nRec + 1));
  }
  for (ST_BIG* l_pstRec : l_vpRecords) l_clPool.fFree(l_pstRec);
  EXPECT_EQ(l_clPool.fLiveCount(), 0);
}

TEST(RecordPool, AGivenBackRecordIsReusedZeroFilled) {
  CRecordPool<ST_BIG> l_clPool;
  ST_BIG* l_pstKeep = l_clPool.fAlloc();  // keeps the slabs mapped
  ST_BIG* l_pstFirst = l_clPool.fAlloc();
  ASSERT_NE(l_pstFirst, nullptr);
  memset(static_cast<void*>(l_pstFirst), 0x5a, sizeof(ST_BIG));
  l_clPool.fFree(l_pstFirst);
  ST_BIG* l_pstAgain = l_clPool.fAlloc();
  EXPECT_EQ(l_pstAgain, l_pstFirst);
  EXPECT_TRUE(fAllZero(l_pstAgain, sizeof(ST_BIG)));
  l_clPool.fFree(nullptr);  // ignored
  EXPECT_EQ(l_clPool.fLiveCount(), 2);
  l_clPool.fFree(l_pstAgain);
  l_clPool.fFree(l_pstKeep);
  // All given back: the slabs went back to the system; the pool starts over.
  ST_BIG* l_pstFresh = l_clPool.fAlloc();
  ASSERT_NE(l_pstFresh, nullptr);
  EXPECT_TRUE(fAllZero(l_pstFresh, sizeof(ST_BIG)));
  l_clPool.fFree(l_pstFresh);
}

// The point of the pool: writing a record's leading fields and its links
// leaves the pages of its unused texts out of memory.
TEST(RecordPool, UnwrittenTextPagesStayOutOfMemory) {
  CRecordPool<ST_BIG> l_clPool;
  std::vector<ST_BIG*> l_vpRecords;
  for (int l_nRec = 0; l_nRec < 8; ++l_nRec) {
    ST_BIG* l_pstRec = l_clPool.fAlloc();
    ASSERT_NE(l_pstRec, nullptr);
    l_pstRec->m_nIndex = l_nRec;
    strcpy(l_pstRec->m_vstrText[0], "ERROR");
    l_pstRec->m_pstNext = l_pstRec;
    l_pstRec->m_pstPrev = l_pstRec;
    l_vpRecords.push_back(l_pstRec);
  }
  // Consecutive records do not share their leading fields' place in a page,
  // so a walk over them does not crowd one cache set.
  for (size_t l_nRec = 1; l_nRec < l_vpRecords.size(); ++l_nRec)
    EXPECT_NE(reinterpret_cast<uintptr_t>(l_vpRecords[l_nRec]) % 4096,
              reinterpret_cast<uintptr_t>(l_vpRecords[l_nRec - 1]) % 4096);
  for (ST_BIG* l_pstRec : l_vpRecords) {
    EXPECT_TRUE(fResident(&l_pstRec->m_nIndex));
    EXPECT_TRUE(fResident(&l_pstRec->m_pstNext));
    EXPECT_FALSE(fResident(l_pstRec->m_vstrText[2]));
    EXPECT_FALSE(fResident(l_pstRec->m_vstrText[4]));
  }
  for (ST_BIG* l_pstRec : l_vpRecords) l_clPool.fFree(l_pstRec);
}

}  // namespace
