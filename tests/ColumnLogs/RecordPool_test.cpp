// CRecordPool: zero-filled records that do not overlap, stay aligned and are
// reused after being given back. (What it saves in resident memory is a
// figure of the benchmarks.)
#include "RecordPool.h"

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

}  // namespace
