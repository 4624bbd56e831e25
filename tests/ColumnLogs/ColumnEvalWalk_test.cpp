// The rule passes of fColumnIndexFind leave each registry's cursor where a
// cursor walk over the whole registry ends (past the last rule), and a line
// without any column leaves the cursors alone.
#include <cstdio>
#include <string>

#include <gtest/gtest.h>

#include "ColumnLogger.h"
#include "TestSupport.h"

namespace {

using testsupport::TempDir;

class ColumnEvalWalk : public ::testing::Test {
 protected:
  void SetUp() override {
    snprintf(m_clLogger.m_strOutPutFileName, sizeof(m_clLogger.m_strOutPutFileName), "%s",
             m_clDir.file("ing_walk").c_str());
    for (int& l_nThreshold : m_nCntFaultArray) l_nThreshold = -1;
    m_chDilimitor1 = ',';
    m_clLogger.m_nTokFlag = 1;
    std::string l_strNone = "", l_strText = "ERROR", l_strLayout = "hh:mm:ss";
    for (int l_nLog = 1; l_nLog <= 3; ++l_nLog) {
      m_clLogger.m_pclNumPatternList->fAddLinkedList(l_nLog, 2, 1, 1, 90, 90.0f, 1, &l_strNone[0], &l_strNone[0]);
      m_clLogger.m_pclCharPatternList->fAddLinkedList(l_nLog, 1, 1, 1, &l_strText[0]);
      m_clLogger.m_pclDatePatternList->fAddLinkedList(l_nLog, 3, &l_strLayout[0]);
    }
  }
  void TearDown() override {
    l_pstrLineBuf = nullptr;
    m_clLogger.m_pstrOriginalBuf = nullptr;
  }
  void Evaluate(const std::string& l_strLine) {
    m_strLine = std::string(28, '\0') + l_strLine;
    l_pstrLineBuf = &m_strLine[0];
    m_strColumn.assign(l_strLine.size() + 1, '#');
    m_clLogger.m_pstrOriginalBuf = &m_strColumn[0];
    m_clLogger.m_lOriginalBufSize = static_cast<long>(m_strColumn.size());
    m_clLogger.fColumnIndexFind(2, 0, 0);
  }

  TempDir m_clDir;
  CColumnLogger m_clLogger;
  std::string m_strLine, m_strColumn;
};

TEST_F(ColumnEvalWalk, CursorsEndPastTheLastRule) {
  m_clLogger.m_pclNumPatternList->fMoveFirst();
  m_clLogger.m_pclCharPatternList->fMoveFirst();
  m_clLogger.m_pclDatePatternList->fMoveFirst();
  Evaluate("ERROR,95,10:11:12");
  EXPECT_EQ(m_clLogger.m_pclNumPatternList->fGetNode(), nullptr);
  EXPECT_EQ(m_clLogger.m_pclCharPatternList->fGetNode(), nullptr);
  EXPECT_EQ(m_clLogger.m_pclDatePatternList->fGetNode(), nullptr);
  // The rules of log 2 were applied: one numeric and one text event.
  EXPECT_EQ(m_clLogger.m_nFaultSendIncrease, 2);
  EXPECT_EQ(m_clLogger.m_nNewTime, 12);
}

TEST_F(ColumnEvalWalk, ALineWithoutColumnsLeavesTheCursors) {
  m_clLogger.m_pclNumPatternList->fMoveFirst();
  m_clLogger.m_pclCharPatternList->fMoveLast();
  m_clLogger.m_pclDatePatternList->fMoveFirst();
  Evaluate("");
  EXPECT_EQ(m_clLogger.m_pclNumPatternList->fGetNode(), m_clLogger.m_pclNumPatternList->fGetHeadNode());
  EXPECT_EQ(m_clLogger.m_pclCharPatternList->fGetNode(), m_clLogger.m_pclCharPatternList->fGetEndNode());
  EXPECT_EQ(m_clLogger.m_pclDatePatternList->fGetNode(), m_clLogger.m_pclDatePatternList->fGetHeadNode());
  EXPECT_EQ(m_clLogger.m_nFaultSendIncrease, 0);
}

}  // namespace
