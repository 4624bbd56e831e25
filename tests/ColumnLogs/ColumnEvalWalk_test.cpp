// The rule passes of fColumnIndexFind leave each registry's cursor where a
// cursor walk over the whole registry ends (past the last rule), and a line
// without any column leaves the cursors alone. A turn, which gathers each
// log's rules once, evaluates exactly as the walk over all registries does.
#include <cstdio>
#include <random>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "ColumnLogger.h"
#include "TestSupport.h"

namespace {

using testsupport::ReadFile;
using testsupport::TempDir;
using testsupport::WriteFile;

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

// Seeded random registries (three logs, rules for columns 1 to 70 with runs
// of the same column broken by other columns, every comparison, the three
// kinds) and lines of up to 70 columns: the events of a turn over the lines
// equal those of the registry walk, line by line, for every log.
TEST(ColumnEvalTurn, GatheredRulesEvaluateAsTheWalk) {
  std::mt19937 l_clRandom(20261123);
  auto l_fPick = [&](int l_nLow, int l_nHigh) { return std::uniform_int_distribution<int>(l_nLow, l_nHigh)(l_clRandom); };
  const char* const l_vpstrTexts[] = {"ERROR", "OK", "", "^E.*R$", "x|y"};
  for (int l_nRound = 0; l_nRound < 20; ++l_nRound) {
    SCOPED_TRACE(l_nRound);
    TempDir l_clDir;
    CColumnLogger l_clLogger;
    for (int& l_nThreshold : m_nCntFaultArray) l_nThreshold = -1;
    m_nCntFaultArray[2] = 2;
    m_strOldLogDate[0] = '\0';
    for (int l_nRule = 0; l_nRule < 40; ++l_nRule) {
      const int l_nLog = l_fPick(1, 3);
      const int l_nColumn = l_fPick(0, 9) == 0 ? l_fPick(60, 70) : l_fPick(1, 6);
      std::string l_strExt1 = l_fPick(0, 1) ? "v=" : "", l_strExt2 = l_fPick(0, 1) ? "%" : "";
      std::string l_strText = l_vpstrTexts[l_fPick(0, 4)];
      std::string l_strLayout = "hh:mm:ss";
      switch (l_fPick(0, 2)) {
        case 0:
          l_clLogger.m_pclNumPatternList->fAddLinkedList(l_nLog, l_nColumn, l_fPick(0, 4), l_fPick(1, 2), 50, 50.5f,
                                                         l_fPick(1, 6), &l_strExt1[0], &l_strExt2[0]);
          break;
        case 1:
          l_clLogger.m_pclCharPatternList->fAddLinkedList(l_nLog, l_nColumn, l_fPick(0, 4), l_fPick(1, 3),
                                                          &l_strText[0]);
          break;
        default:
          l_clLogger.m_pclDatePatternList->fAddLinkedList(l_nLog, l_nColumn, &l_strLayout[0]);
      }
    }
    std::vector<std::string> l_vstrLines;
    std::string l_strFile;
    for (int l_nLine = 0; l_nLine < 30; ++l_nLine) {
      std::string l_strLine;
      const int l_nColumns = l_fPick(0, 9) == 0 ? 70 : l_fPick(1, 8);
      for (int l_nColumn = 1; l_nColumn <= l_nColumns; ++l_nColumn) {
        if (l_nColumn > 1) l_strLine += ',';
        const char* const l_vpstrCells[] = {"ERROR", "OK", "v=70%", "v=30", "12:00:0", "", "E R"};
        l_strLine += l_vpstrCells[l_fPick(0, 6)];
        if (l_strLine.back() == '0') l_strLine += std::to_string(l_fPick(0, 1));
      }
      if (l_strLine.empty()) l_strLine = "ERROR";
      l_vstrLines.push_back(l_strLine);
      l_strFile += l_strLine + "\n";
    }
    ASSERT_TRUE(WriteFile(l_clDir.file("app.log"), l_strFile));
    std::string l_strNull = "NULL", l_strDelimiter = ",\x03\x1f\x7eNULL";
    for (int l_nLog = 1; l_nLog <= 3; ++l_nLog) {
      std::string l_strName = l_clDir.file("app.log");
      ASSERT_EQ(l_clLogger.m_pclLogFileList->fAddLogFile(l_nLog, &l_strName[0], 1, 2), 1);
      ASSERT_EQ(l_clLogger.m_pclLogFileList->fAddLogPattern(l_nLog, &l_strNull[0], 0, 0, &l_strDelimiter[0]), 1);
    }

    // Both runs start with the same lines-per-second state.
    auto l_fFreshRate = [&] {
      l_clLogger.m_nOldTime = l_clLogger.m_nNewTime = l_clLogger.m_nSameTimeCnt = 0;
      m_strOldLogDate[0] = '\0';
    };
    for (int l_nLog = 1; l_nLog <= 3; ++l_nLog) {
      SCOPED_TRACE(l_nLog);
      l_fFreshRate();
      // The walk, line by line, as fColumnIndexFind does outside a turn.
      snprintf(l_clLogger.m_strOutPutFileName, sizeof(l_clLogger.m_strOutPutFileName), "%s",
               l_clDir.file("walk" + std::to_string(l_nLog)).c_str());
      m_chDilimitor1 = ',';
      l_clLogger.m_nTokFlag = 1;
      for (const std::string& l_strLine : l_vstrLines) {
        std::string l_strBuf = std::string(28, '\0') + l_strLine;
        std::string l_strColumns(l_strLine.size() + 2, '#');
        l_pstrLineBuf = &l_strBuf[0];
        l_clLogger.m_pstrOriginalBuf = &l_strColumns[0];
        l_clLogger.m_lOriginalBufSize = static_cast<long>(l_strColumns.size());
        l_clLogger.m_nFaultSendIncrease = 0;
        l_clLogger.fColumnIndexFind(l_nLog, 0, 0);
      }
      l_pstrLineBuf = nullptr;
      l_clLogger.m_pstrOriginalBuf = nullptr;
      l_clLogger.m_lOriginalBufSize = 0;

      // One turn of the same log over the same lines.
      l_fFreshRate();
      snprintf(l_clLogger.m_strOutPutFileName, sizeof(l_clLogger.m_strOutPutFileName), "%s",
               l_clDir.file("turn" + std::to_string(l_nLog)).c_str());
      ST_LOGFILE_INFO* l_pstLog = l_clLogger.m_pclLogFileList->fGetNode(l_nLog);
      ASSERT_NE(l_pstLog, nullptr);
      l_pstLog->m_nGatherFlag = 0;
      FILE* l_pstFd = fopen(l_clDir.file("app.log").c_str(), "r");
      ASSERT_NE(l_pstFd, nullptr);
      std::string l_strOpenName = l_clDir.file("app.log");
      // Only this log's group: the other entries count as served.
      for (int l_nOther = 1; l_nOther <= 3; ++l_nOther)
        l_clLogger.m_pclLogFileList->fGetNode(l_nOther)->m_nGatherFlag = l_nOther == l_nLog ? 0 : 1;
      EXPECT_EQ(l_clLogger.fReplayTurn(l_pstLog, l_pstFd, &l_strOpenName[0], 1), 30);
      fclose(l_pstFd);

      const std::string l_strWalk = ReadFile(l_clDir.file("walk" + std::to_string(l_nLog)));
      EXPECT_EQ(ReadFile(l_clDir.file("turn" + std::to_string(l_nLog))), l_strWalk);
      if (l_nRound == 0 && l_nLog == 1) {
        EXPECT_FALSE(l_strWalk.empty()) << "the rules fire";
      }
    }
  }
}

}  // namespace
