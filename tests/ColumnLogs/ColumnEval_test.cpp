// Column rule evaluation and event output of CColumnLogger, driven the way a
// gather cycle drives them: a line in the accumulator, a column buffer, the
// delimiters set, rules registered, events read back from the event file.
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <cstring>
#include <string>
#include <vector>

#include "ColumnLogger.h"
#include "TestSupport.h"

using testsupport::ReadFile;
using testsupport::Sep;

namespace {

class ColumnEvalTest : public ::testing::Test {
 protected:
  void SetUp() override {
    SetOutput(m_clDir.path() + "/", m_clDir.file("ing_test"));
    for (int& l_nThreshold : m_nCntFaultArray) l_nThreshold = -1;
    m_strOldLogDate[0] = '\0';
    m_nNumFaFoundFlag = 0;
    m_chDilimitor1 = ',';
    m_clLogger.m_nTokFlag = 1;
  }
  // The gather cycle owns (and frees) these buffers; here the test does.
  void TearDown() override {
    l_pstrLineBuf = nullptr;
    m_clLogger.m_pstrOriginalBuf = nullptr;
    m_clLogger.m_lOriginalBufSize = 0;
  }

  void SetOutput(const std::string& l_strPath, const std::string& l_strFile) {
    snprintf(m_clLogger.m_strOutPutPath, sizeof(m_clLogger.m_strOutPutPath), "%s", l_strPath.c_str());
    snprintf(m_clLogger.m_strOutPutFileName, sizeof(m_clLogger.m_strOutPutFileName), "%s", l_strFile.c_str());
  }
  // The accumulator: 28 reserved zero bytes, then the line. The column buffer
  // is sized like the gather cycle sizes it (line + 1) unless told otherwise,
  // and filled with garbage to show that nothing relies on it being clear.
  void SetLine(const std::string& l_strLine, long l_lColumnBufSize = -1) {
    m_strLine = std::string(28, '\0') + l_strLine;
    l_pstrLineBuf = &m_strLine[0];
    m_strColumn.assign(l_lColumnBufSize < 0 ? l_strLine.size() + 1 : static_cast<size_t>(l_lColumnBufSize), '#');
    m_clLogger.m_pstrOriginalBuf = m_strColumn.empty() ? nullptr : &m_strColumn[0];
    m_clLogger.m_lOriginalBufSize = static_cast<long>(m_strColumn.size());
  }
  void Evaluate(const std::string& l_strLine, int l_nIndx = 1, long l_lColumnBufSize = -1) {
    SetLine(l_strLine, l_lColumnBufSize);
    m_clLogger.fColumnIndexFind(l_nIndx, 0, 0);
  }
  // Starts a case afresh: no event file, no events counted.
  void ClearEvents() {
    remove(m_clLogger.m_strOutPutFileName);
    m_clLogger.m_nFaultSendIncrease = 0;
    m_clLogger.m_nFaultFoundFlag = 0;
  }

  void AddNum(int l_nIndex, int l_nColumn, int l_nLevel, int l_nDecide, int l_nValue, float l_fValue,
              int l_nCompare, std::string l_strExt1 = "", std::string l_strExt2 = "") {
    ASSERT_EQ(m_clLogger.m_pclNumPatternList->fAddLinkedList(l_nIndex, l_nColumn, l_nLevel, l_nDecide, l_nValue,
                                                              l_fValue, l_nCompare, &l_strExt1[0], &l_strExt2[0]),
              1);
  }
  void AddChar(int l_nIndex, int l_nColumn, int l_nLevel, int l_nCompare, std::string l_strText) {
    CCharPatternList* l_pclList = m_clLogger.m_pclCharPatternList;
    ASSERT_EQ(l_pclList->fAddLinkedList(l_nIndex, l_nColumn, l_nLevel, l_nCompare, &l_strText[0]), 1);
    if (l_nCompare == 3) l_pclList->fAddPatternLinkedList(l_nIndex, &l_strText[0]);
  }
  void AddDate(int l_nIndex, int l_nColumn, std::string l_strLayout) {
    ASSERT_EQ(m_clLogger.m_pclDatePatternList->fAddLinkedList(l_nIndex, l_nColumn, &l_strLayout[0]), 1);
  }

  std::string Events() const { return ReadFile(m_clLogger.m_strOutPutFileName); }
  static std::string RuleEvent(int l_nIndex, int l_nType, int l_nLevel, int l_nColumn, const std::string& l_strMsg,
                               const std::string& l_strLine) {
    return std::to_string(l_nIndex) + "|" + std::to_string(l_nType) + Sep("{|}") + std::to_string(l_nLevel) +
           Sep("{|}") + "COLUMN[" + std::to_string(l_nColumn) + "] " + l_strMsg + ", ORIGINAL_MSG:" + l_strLine +
           "\n";
  }
  static std::string RateEvent(int l_nIndex, int l_nLevel, const std::string& l_strRest) {
    return std::to_string(l_nIndex) + "|4" + Sep("{|}") + std::to_string(l_nLevel) + Sep("{|}") + l_strRest + "\n";
  }

  testsupport::TempDir m_clDir;
  CColumnLogger m_clLogger;
  std::string m_strLine, m_strColumn;
};

// Columns made visible: date rules with the layouts "1" to "6" on columns 1
// to 6 collect the number and the text of every column that exists.
TEST_F(ColumnEvalTest, ColumnNumbering) {
  struct Case { std::string line; char first, second; int tokFlag; std::string numbers, texts; } cases[] = {
      {"10,20,,40,", ',', 0, 1, "1 2 3 4 ", "10 20  40 "},  // no column 5
      {"a;b,c", ',', ';', 2, "1 2 3 ", "a b c "},
      {"a;b,c", ',', ';', 1, "1 2 ", "a;b c "},             // mode 1 ignores the second
      {"a;b,c", ',', ';', 3, "1 2 ", "a;b c "},             // anything but 2 is mode 1
      {",x", ',', 0, 1, "1 2 ", " x "},                     // leading delimiter
      {"a\tb c", '\t', ' ', 2, "1 2 3 ", "a b c "},
      {"", ',', 0, 1, "", ""},
  };
  for (int l_nColumn = 1; l_nColumn <= 6; ++l_nColumn) AddDate(1, l_nColumn, std::to_string(l_nColumn));
  AddDate(2, 1, "other");  // another watched log: never applied here
  for (const Case& c : cases) {
    SCOPED_TRACE("[" + c.line + "] mode " + std::to_string(c.tokFlag));
    m_chDilimitor1 = c.first;
    m_chDilimitor2 = c.second;
    m_clLogger.m_nTokFlag = c.tokFlag;
    Evaluate(c.line);
    EXPECT_EQ(std::string(m_clLogger.m_strPatternLogDate), c.numbers);
    EXPECT_EQ(std::string(m_clLogger.m_strLogDate), c.texts);
  }
}

// Operators, integer and float compares and their messages; how the value
// text is found and read is covered in ColumnEvalNumbers_test.
TEST_F(ColumnEvalTest, NumericRule) {
  struct Case {
    int decide, value;
    float fvalue;
    int compare;
    std::string column;
    int result;
    std::string message;  // empty: does not fire
  } cases[] = {
      {1, 80, 0, 1, "85%", 1, "Value[85] > 80"},          {1, 80, 0, 1, "80.9", 1, ""},  // integer part only
      {1, 80, 0, 1, "85ms", -1, ""},                      {2, 0, 80.5f, 1, "80.9", 1, "Value[80.90] > 80.50"},
      {1, 80, 0, 2, "80", 1, "Value[80] >= 80"},          {1, 5, 0, 3, "", 1, "Value[0] < 5"},
      {1, 80, 0, 4, "80", 1, "Value[80] <= 80"},          {1, 80, 0, 5, "+80", 1, "Value[80] == 80"},
      {1, 80, 0, 6, "-81", 1, "Value[-81] != 80"},        {1, 80, 0, 7, "81", 1, ""},  // unknown compare
      {3, 0, 1.25f, 2, "1.25", 1, "Value[1.25] >= 1.25"}, {2, 0, 0.0f, 6, "-0.5", 1, "Value[-0.50] != 0.00"},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(testing::Message() << "decide " << c.decide << " compare " << c.compare << " [" << c.column << "]");
    ClearEvents();
    m_clLogger.m_pclNumPatternList->fClearLinkedList();
    AddNum(1, 2, 4, c.decide, c.value, c.fvalue, c.compare);
    SetLine("x," + c.column);
    std::string l_strColumn = c.column;
    m_nNumFaFoundFlag = 0;
    EXPECT_EQ(m_clLogger.fColumnFaultSearchNum(m_clLogger.m_pclNumPatternList->fGetHeadNode(), &l_strColumn[0]),
              c.result);
    EXPECT_EQ(l_strColumn, c.column);  // the column is left as it was
    EXPECT_EQ(Events(), c.message.empty() ? "" : RuleEvent(1, 1, 4, 2, c.message, "x," + c.column));
    EXPECT_EQ(m_nNumFaFoundFlag, c.message.empty() ? 0 : 1);
  }
}

// Of consecutive rules for one column, in registry order (the rule added last
// comes first), the first that fires ends the run; a rule of the same log for
// another column between them starts a new run.
TEST_F(ColumnEvalTest, NumericRunStopsAtFirstFiringRule) {
  struct Case { bool otherColumnBetween; std::string value; std::vector<int> levels; } cases[] = {
      {false, "95", {2}}, {false, "85", {1}}, {false, "50", {}}, {true, "95", {2, 1}}, {true, "85", {1}}};
  for (const Case& c : cases) {
    SCOPED_TRACE(c.value + (c.otherColumnBetween ? ", another column's rule between" : ""));
    ClearEvents();
    m_clLogger.m_pclNumPatternList->fClearLinkedList();
    AddNum(1, 3, 1, 1, 80, 0, 1);                               // B: > 80, level 1
    if (c.otherColumnBetween) AddNum(1, 2, 3, 1, 1000, 0, 1);  // column 2, never fires
    AddNum(1, 3, 2, 1, 90, 0, 1);                               // A: > 90, level 2, tried first
    AddNum(2, 3, 7, 1, 0, 0, 1);                                // another log: never applied
    Evaluate("a,b," + c.value);
    std::string l_strExpected;
    for (int l_nLevel : c.levels) {
      l_strExpected += RuleEvent(1, 1, l_nLevel, 3, "Value[" + c.value + "] > " + (l_nLevel == 2 ? "90" : "80"),
                                 "a,b," + c.value);
    }
    EXPECT_EQ(Events(), l_strExpected);
    EXPECT_EQ(m_clLogger.m_nFaultSendIncrease, static_cast<int>(c.levels.size()));
  }
}

// Every rule reads the column as it was cut; text rules have no early stop.
TEST_F(ColumnEvalTest, AllPassesReadTheColumnUnchanged) {
  AddNum(1, 1, 2, 1, 90, 0, 1, "cpu=", "%");
  AddNum(1, 1, 3, 1, 90, 0, 1, "cpu=", "%");  // same run: skipped after the first fires
  AddChar(1, 1, 1, 1, "cpu=93%");
  AddChar(1, 1, 2, 2, "other");
  Evaluate("cpu=93%,x");
  EXPECT_EQ(Events(), RuleEvent(1, 1, 3, 1, "Value[93] > 90", "cpu=93%,x") +
                          RuleEvent(1, 2, 2, 1, "Value[cpu=93%] != other", "cpu=93%,x") +
                          RuleEvent(1, 2, 1, 1, "Value[cpu=93%] == cpu=93%", "cpu=93%,x"));
  EXPECT_EQ(m_clLogger.m_nFaultSendIncrease, 3);
  EXPECT_EQ(m_clLogger.m_nFaultFoundFlag, 1);
}

TEST_F(ColumnEvalTest, TextRule) {
  struct Case { const char* name; int compare; std::string text, column, message; } cases[] = {
      {"equal, case matters", 1, "ERROR", "error", ""},
      {"equal", 1, "ERROR", "ERROR", "Value[ERROR] == ERROR"},
      {"equal needs the whole column", 1, "ERROR", "ERROR ", ""},
      {"differs, empty column", 2, "ERROR", "", "Value[] != ERROR"},
      {"does not differ", 2, "ERROR", "ERROR", ""},
      {"pattern matches", 3, "ERR", "xERRx", "Value[xERRx] != ERR"},
      {"pattern does not match", 3, "ERR", "err", ""},
      {"pattern does not compile", 3, "(ERR", "(ERR", ""},
      {"unknown compare", 4, "x", "y", ""},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    ClearEvents();
    m_clLogger.m_pclCharPatternList->fClearLinkedList();
    AddChar(3, 1, 2, c.compare, c.text);
    Evaluate(c.column + ",z", 3);
    EXPECT_EQ(Events(), c.message.empty() ? "" : RuleEvent(3, 2, 2, 1, c.message, c.column + ",z"));
  }
  // The compiled slot: -1 for a missing rule or slot, 0 for a null text.
  std::string l_strHit = "an ERR";
  EXPECT_EQ(m_clLogger.fPattCompforChar(m_clLogger.m_pclCharPatternList->fGetNode(3), 0, &l_strHit[0]), -1);
  AddChar(1, 1, 0, 3, "ERR");
  EXPECT_EQ(m_clLogger.fPattCompforChar(m_clLogger.m_pclCharPatternList->fGetNode(1), 0, nullptr), 0);
  EXPECT_EQ(m_clLogger.fPattCompforChar(m_clLogger.m_pclCharPatternList->fGetNode(1), 1, &l_strHit[0]), -1);
  EXPECT_EQ(m_clLogger.fPattCompforChar(nullptr, 0, &l_strHit[0]), -1);
}

TEST_F(ColumnEvalTest, DateColumnsAndTimeKey) {
  const std::string l_strLong(300, '7');
  struct Case {
    const char* name;
    std::vector<std::pair<int, std::string>> rules;  // column, layout
    std::string line, logDate, patternDate;
    int timeKey;
  } cases[] = {
      {"date and time", {{1, "YYYY-MM-DD"}, {2, "hh:mm:ss"}}, "2022-06-27,10:11:12,x", "2022-06-27 10:11:12 ",
       "YYYY-MM-DD hh:mm:ss ", 12},
      {"no ss: offset is the layout length", {{1, "HHMMSS"}}, "10111299,x", "10111299 ", "HHMMSS ", 9},
      {"sign", {{1, "ss"}}, "-3", "-3 ", "ss ", -3},
      {"too long: cut at 255", {{1, "ss"}}, l_strLong, l_strLong.substr(0, 255), "ss ", 77},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    m_clLogger.m_pclDatePatternList->fClearLinkedList();
    for (const auto& rule : c.rules) AddDate(1, rule.first, rule.second);
    Evaluate(c.line);
    EXPECT_EQ(std::string(m_clLogger.m_strLogDate), c.logDate);
    EXPECT_EQ(std::string(m_clLogger.m_strPatternLogDate), c.patternDate);
    EXPECT_EQ(m_clLogger.m_nNewTime, c.timeKey);
    EXPECT_EQ(std::string(m_strOldLogDate), c.logDate);
  }
  EXPECT_EQ(Events(), "");  // date rules never fire; no thresholds are set
}

// The line-rate check counts lines per seconds value over all evaluated lines
// and reports the highest level reached when the seconds value changes.
TEST_F(ColumnEvalTest, LineRateEvents) {
  const std::string l_strDate = "2022-06-27 10:11:05 ";
  struct Case { const char* name; int thresholds[5]; int lines; std::string event; } cases[] = {
      {"twelve lines: level 3", {-1, 3, -1, 10, -1}, 12, RateEvent(1, 3, l_strDate + " log count[12] >= [10]")},
      {"five lines: level 1", {-1, 3, -1, 10, -1}, 5, RateEvent(1, 1, l_strDate + " log count[5] >= [3]")},
      {"two lines: none", {-1, 3, -1, 10, -1}, 2, ""},
      {"threshold equal to the count", {-1, -1, -1, -1, 4}, 4, RateEvent(1, 4, l_strDate + " log count[4] >= [4]")},
      {"only -1 means no threshold", {-2, -1, -1, -1, -1}, 1, RateEvent(1, 0, l_strDate + " log count[1] >= [-2]")},
  };
  AddDate(1, 1, "YYYY-MM-DD");
  AddDate(1, 2, "hh:mm:ss");
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    // Fresh time-key state, as after construction.
    m_clLogger.m_nOldTime = 0;
    m_clLogger.m_nNewTime = 0;
    m_clLogger.m_nSameTimeCnt = 1;
    m_strOldLogDate[0] = '\0';
    memcpy(m_nCntFaultArray, c.thresholds, sizeof(m_nCntFaultArray));
    ClearEvents();
    // The first line changes the time key from 0 with a count of 1.
    for (int l_nLine = 0; l_nLine < c.lines; ++l_nLine) Evaluate("2022-06-27,10:11:05,x");
    EXPECT_EQ(m_clLogger.m_nSameTimeCnt, c.lines);
    const std::string l_strBefore = Events();
    Evaluate("2022-06-27,10:11:06,x");
    EXPECT_EQ(Events().substr(l_strBefore.size()), c.event);
    EXPECT_EQ(m_clLogger.m_nSameTimeCnt, 1);
    EXPECT_EQ(m_clLogger.m_nOldTime, 6);
    EXPECT_EQ(std::string(m_strOldLogDate), "2022-06-27 10:11:06 ");
  }
}

// A threshold of 0 is reached at every change of the time key; without date
// columns the bar separator is followed directly by " log count[".
TEST_F(ColumnEvalTest, ThresholdZeroAndNoDateColumns) {
  m_nCntFaultArray[0] = 0;
  AddDate(1, 1, "ss");
  for (const char* l_pstrLine : {"05", "05", "06"}) Evaluate(l_pstrLine);
  Evaluate("x", 2);  // log 2 has no date rules: time key 0
  EXPECT_EQ(Events(), RateEvent(1, 0, " log count[1] >= [0]") +  // 0 -> 5
                          RateEvent(1, 0, "05  log count[2] >= [0]") + RateEvent(2, 0, "06  log count[1] >= [0]"));
  EXPECT_EQ(m_clLogger.m_nFaultSendIncrease, 3);
  EXPECT_EQ(m_clLogger.m_nFaultFoundFlag, 1);
}

// The described example, and separators inside the line copied unchanged.
TEST_F(ColumnEvalTest, EventBytes) {
  AddNum(1, 3, 2, 1, 90, 0, 1);
  for (const std::string& l_strLine : {std::string("a,b,95"), Sep("x{|}y|z{~}") + ",b,95"}) {
    ClearEvents();
    Evaluate(l_strLine);
    EXPECT_EQ(Events(), std::string("1|1\x03\x1f\x7c") + "2\x03\x1f\x7c" +
                            "COLUMN[3] Value[95] > 90, ORIGINAL_MSG:" + l_strLine + "\n");
  }
}

// Long lines and columns are written whole; a column buffer smaller than the
// line (or none at all) is never overrun.
TEST_F(ColumnEvalTest, BuffersNeverCutOrOverrun) {
  const std::string l_strColumn(100 * 1024, 'q');
  AddChar(1, 2, 1, 2, "a-long-second-column");
  Evaluate("id," + l_strColumn);
  EXPECT_TRUE(Events() ==
              RuleEvent(1, 2, 1, 2, "Value[" + l_strColumn + "] != a-long-second-column", "id," + l_strColumn))
      << Events().size() << " bytes";
  ClearEvents();
  m_clLogger.m_pclCharPatternList->fClearLinkedList();
  AddChar(1, 2, 1, 1, "a-long-second-column");
  Evaluate("first-column,a-long-second-column", 1, 4);
  EXPECT_EQ(Events(), RuleEvent(1, 2, 1, 2, "Value[a-long-second-column] == a-long-second-column",
                                "first-column,a-long-second-column"));
  Evaluate("x,a-long-second-column", 1, 0);
  EXPECT_EQ(m_clLogger.m_nFaultSendIncrease, 2);
}

// One file open per event, appended in order; an event that cannot be
// written is dropped but still counts toward the per-log ceiling and the
// cycle's close-out.
TEST_F(ColumnEvalTest, EventFileWrites) {
  char l_strMsg[] = "m";
  char l_strRaw[] = "raw line\n";
  AddChar(1, 1, 0, 1, "5");
  ST_CHAR_PATTERN_LIST* l_pstChar = m_clLogger.m_pclCharPatternList->fGetHeadNode();
  SetLine("L");
  EXPECT_EQ(m_clLogger.fMakeOutFile(l_pstChar, 2, l_strMsg), 1);
  remove(m_clLogger.m_strOutPutFileName);  // removed between events: created again
  EXPECT_EQ(m_clLogger.fMakeOutFile(l_pstChar, 2, l_strMsg), 1);
  EXPECT_EQ(m_clLogger.fMakeOutFile(l_strRaw), 1);
  EXPECT_EQ(Events(), RuleEvent(1, 2, 0, 1, "m", "L") + "raw line\n");
  EXPECT_EQ(m_clLogger.m_nFaultSendIncrease, 3);

  ASSERT_TRUE(testsupport::WriteFile(m_clDir.file("plain"), ""));
  SetOutput(m_clDir.path() + "/", m_clDir.file("plain") + "/ing_x");  // fails even for root
  ClearEvents();
  AddNum(1, 1, 0, 1, 0, 0, 1);
  EXPECT_EQ(m_clLogger.fMakeOutFile(m_clLogger.m_pclNumPatternList->fGetHeadNode(), 1, l_strMsg), -1);
  EXPECT_EQ(m_clLogger.m_nFaultFoundFlag, 1);
  EXPECT_EQ(m_clLogger.fMakeOutFile(l_strRaw), -1);
  Evaluate("5");  // both rules fire
  EXPECT_EQ(m_clLogger.m_nFaultSendIncrease, 4);
}

// Every entry counts, directories too; an output path that is no directory gives -1.
TEST_F(ColumnEvalTest, CheckLimitFileCountsEveryEntry) {
  for (int i = 0; i < 198; ++i) ASSERT_TRUE(testsupport::WriteFile(m_clDir.file("out_" + std::to_string(i)), ""));
  for (int i = 0; i < 2; ++i) ASSERT_EQ(mkdir(m_clDir.file("d" + std::to_string(i)).c_str(), 0700), 0);
  EXPECT_EQ(m_clLogger.fCheckLimitFile(), 200);
  SetOutput(m_clDir.path() + "/missing/", "");
  EXPECT_EQ(m_clLogger.fCheckLimitFile(), -1);
  SetOutput(m_clDir.file("out_0"), "");
  EXPECT_EQ(m_clLogger.fCheckLimitFile(), -1);
}

}  // namespace
