// CRecordPool (alignment and slot layout are asserted at compile time):
// records come zero-filled, hold their own bytes, and are reused zero-filled.
#include "RecordPool.h"
#include "TestSupport.h"

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

// Over two slabs' worth; once all are given back the slabs go back to the
// system and the pool starts over.
TEST(RecordPool, RecordsAreZeroDistinctAndReused) {
  CRecordPool<ST_BIG> l_clPool;
  std::vector<ST_BIG*> l_vpRecords;
  for (int l_nRec = 0; l_nRec < 2 * CRecordPool<ST_BIG>::kSlotsPerSlab + 3; ++l_nRec) {
    ST_BIG* l_pstRec = l_clPool.fAlloc();
    ASSERT_TRUE(l_pstRec != nullptr && fAllZero(l_pstRec)) << "record " << l_nRec;
    memset(static_cast<void*>(l_pstRec), l_nRec + 1, sizeof(ST_BIG));
    l_vpRecords.push_back(l_pstRec);
  }
  EXPECT_EQ(l_clPool.fLiveCount(), static_cast<long>(l_vpRecords.size()));
  for (size_t l_nRec = 0; l_nRec < l_vpRecords.size(); ++l_nRec)
    EXPECT_EQ(reinterpret_cast<unsigned char*>(l_vpRecords[l_nRec])[sizeof(ST_BIG) - 1],
              static_cast<unsigned char>(l_nRec + 1)) << l_nRec;
  l_clPool.fFree(l_vpRecords[5]);
  l_clPool.fFree(nullptr);  // ignored
  EXPECT_EQ(l_clPool.fAlloc(), l_vpRecords[5]);
  EXPECT_TRUE(fAllZero(l_vpRecords[5]));
  for (ST_BIG* l_pstRec : l_vpRecords) l_clPool.fFree(l_pstRec);
  EXPECT_EQ(l_clPool.fLiveCount(), 0);
  ST_BIG* l_pstFresh = l_clPool.fAlloc();
  ASSERT_TRUE(l_pstFresh != nullptr && fAllZero(l_pstFresh));
  l_clPool.fFree(l_pstFresh);
}

}  // namespace
