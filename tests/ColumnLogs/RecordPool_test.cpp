// Over two slabs' worth and afresh, records come zero-filled and distinct, and are reused zero-filled.
#include "CharPatternList.h"
#include "RecordPool.h"
#include "TestSupport.h"

using Rec = ST_CHAR_PATTERN_LIST;

bool fAllZero(const Rec* l_pstRec) {
  static const Rec l_stZero{};
  return memcmp(l_pstRec, &l_stZero, sizeof(Rec)) == 0;
}

TEST(RecordPool, RecordsAreZeroDistinctAndReused) {
  CRecordPool<Rec> l_clPool;
  std::vector<Rec*> l_vpRecords;
  for (int l_nRec = 0; l_nRec < 2 * CRecordPool<Rec>::kSlotsPerSlab + 3; ++l_nRec) {
    l_vpRecords.push_back(l_clPool.fAlloc());
    ASSERT_TRUE(l_vpRecords.back() != nullptr && fAllZero(l_vpRecords.back())) << "record " << l_nRec;
    memset(static_cast<void*>(l_vpRecords.back()), l_nRec + 1, sizeof(Rec));
  }
  EXPECT_EQ(l_clPool.fLiveCount(), static_cast<long>(l_vpRecords.size()));
  for (size_t l_nRec = 0; l_nRec < l_vpRecords.size(); ++l_nRec)
    EXPECT_EQ(reinterpret_cast<unsigned char*>(l_vpRecords[l_nRec])[sizeof(Rec) - 1],
              static_cast<unsigned char>(l_nRec + 1)) << l_nRec;
  l_clPool.fFree(l_vpRecords[5]);
  l_clPool.fFree(nullptr);  // ignored
  EXPECT_EQ(l_clPool.fAlloc(), l_vpRecords[5]);
  EXPECT_TRUE(fAllZero(l_vpRecords[5]));
  for (Rec* l_pstRec : l_vpRecords) l_clPool.fFree(l_pstRec);
  EXPECT_EQ(l_clPool.fLiveCount(), 0);
  Rec* l_pstFresh = l_clPool.fAlloc();
  ASSERT_TRUE(l_pstFresh != nullptr && fAllZero(l_pstFresh));
  l_clPool.fFree(l_pstFresh);
}
