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
using testsupport::TempDir;

namespace {

// A writable copy of a text, for the char* parameters.
std::vector<char> Text(const std::string& text) {
  std::vector<char> buf(text.begin(), text.end());
  buf.push_back('\0');
  return buf;
}

class ColumnEvalTest : public ::testing::Test {
 protected:
  void SetUp() override {
    snprintf(m_clLogger.m_strOutPutPath, sizeof(m_clLogger.m_strOutPutPath), "%s/", m_clDir.path().c_str());
    snprintf(m_clLogger.m_strOutPutFileName, sizeof(m_clLogger.m_strOutPutFileName), "%s",
             m_clDir.file("ing_test").c_str());
    for (int& l_nThreshold : m_nCntFaultArray) l_nThreshold = -1;
    m_strOldLogDate[0] = '\0';
    m_nNumFaFoundFlag = 0;
    SetDelimiters(',');
  }
  // The gather cycle owns (and frees) these buffers; here the test does.
  void TearDown() override {
    l_pstrLineBuf = nullptr;
    m_clLogger.m_pstrOriginalBuf = nullptr;
    m_clLogger.m_lOriginalBufSize = 0;
  }

  void SetDelimiters(char l_chFirst, char l_chSecond = '\0', int l_nTokFlag = 1) {
    m_chDilimitor1 = l_chFirst;
    m_chDilimitor2 = l_chSecond;
    m_clLogger.m_nTokFlag = l_nTokFlag;
  }
  // The accumulator: 28 reserved zero bytes, then the line. The column buffer
  // is sized like the gather cycle sizes it (line + 1) unless told otherwise;
  // it is filled with garbage to show that nothing relies on it being clear.
  void SetLine(const std::string& l_strLine, long l_lColumnBufSize = -1) {
    m_vchLine.assign(28, '\0');
    m_vchLine.insert(m_vchLine.end(), l_strLine.begin(), l_strLine.end());
    m_vchLine.push_back('\0');
    l_pstrLineBuf = m_vchLine.data();
    const size_t l_nSize = l_lColumnBufSize < 0 ? l_strLine.size() + 1 : static_cast<size_t>(l_lColumnBufSize);
    m_vchColumn.assign(l_nSize, '#');
    m_clLogger.m_pstrOriginalBuf = m_vchColumn.empty() ? nullptr : m_vchColumn.data();
    m_clLogger.m_lOriginalBufSize = static_cast<long>(l_nSize);
  }
  void Evaluate(const std::string& l_strLine, int l_nIndx = 1) {
    SetLine(l_strLine);
    m_clLogger.fColumnIndexFind(l_nIndx, 0, 0);
  }

  void AddNum(int l_nIndex, int l_nColumn, int l_nLevel, int l_nDecide, int l_nValue, float l_fValue,
              int l_nCompare, const std::string& l_strExt1 = "", const std::string& l_strExt2 = "") {
    std::vector<char> l_vchExt1 = Text(l_strExt1), l_vchExt2 = Text(l_strExt2);
    ASSERT_EQ(m_clLogger.m_pclNumPatternList->fAddLinkedList(l_nIndex, l_nColumn, l_nLevel, l_nDecide, l_nValue,
                                                              l_fValue, l_nCompare, l_vchExt1.data(),
                                                              l_vchExt2.data()),
              1);
  }
  void AddChar(int l_nIndex, int l_nColumn, int l_nLevel, int l_nCompare, const std::string& l_strText) {
    std::vector<char> l_vchText = Text(l_strText);
    CCharPatternList* l_pclList = m_clLogger.m_pclCharPatternList;
    ASSERT_EQ(l_pclList->fAddLinkedList(l_nIndex, l_nColumn, l_nLevel, l_nCompare, l_vchText.data()), 1);
    if (l_nCompare == 3) l_pclList->fAddPatternLinkedList(l_nIndex, l_vchText.data());
  }
  void AddDate(int l_nIndex, int l_nColumn, const std::string& l_strLayout) {
    std::vector<char> l_vchLayout = Text(l_strLayout);
    ASSERT_EQ(m_clLogger.m_pclDatePatternList->fAddLinkedList(l_nIndex, l_nColumn, l_vchLayout.data()), 1);
  }

  std::string Events() const { return ReadFile(m_clLogger.m_strOutPutFileName); }
  // The expected rule event line, with "{|}" for the bar separator.
  static std::string RuleEvent(int l_nIndex, int l_nType, int l_nLevel, int l_nColumn, const std::string& l_strMsg,
                               const std::string& l_strLine) {
    return std::to_string(l_nIndex) + "|" + std::to_string(l_nType) + Sep("{|}") + std::to_string(l_nLevel) +
           Sep("{|}") + "COLUMN[" + std::to_string(l_nColumn) + "] " + l_strMsg + ", ORIGINAL_MSG:" + l_strLine +
           "\n";
  }

  TempDir m_clDir;
  CColumnLogger m_clLogger;
  std::vector<char> m_vchLine;
  std::vector<char> m_vchColumn;
};

// Columns made visible: a "differs from a sentinel" text rule on columns 1..6
// fires for every column that exists, quoting its text.
std::vector<std::string> ColumnsSeen(const std::string& l_strEvents) {
  std::vector<std::string> l_vstrColumns;
  size_t l_nPos = 0;
  while ((l_nPos = l_strEvents.find("COLUMN[", l_nPos)) != std::string::npos) {
    const size_t l_nValue = l_strEvents.find("Value[", l_nPos) + 6;
    const size_t l_nEnd = l_strEvents.find("] != @", l_nValue);
    l_vstrColumns.push_back(std::to_string(std::stoi(l_strEvents.substr(l_nPos + 7))) + ":" +
                            l_strEvents.substr(l_nValue, l_nEnd - l_nValue));
    l_nPos = l_nEnd;
  }
  return l_vstrColumns;
}

TEST_F(ColumnEvalTest, ColumnNumbering) {
  struct Case {
    std::string line;
    char first, second;
    int tokFlag;
    std::vector<std::string> columns;
  };
  const Case cases[] = {
      {"10,20,,40,", ',', 0, 1, {"1:10", "2:20", "3:", "4:40"}},  // no column 5
      {"a;b,c", ',', ';', 2, {"1:a", "2:b", "3:c"}},
      {"a;b,c", ',', ';', 1, {"1:a;b", "2:c"}},                    // mode 1 ignores the second
      {"a;b,c", ',', ';', 3, {"1:a;b", "2:c"}},                    // anything but 2 is mode 1
      {",x", ',', 0, 1, {"1:", "2:x"}},                            // leading delimiter
      {",", ',', 0, 1, {"1:"}},
      {";,", ',', ';', 2, {"1:", "2:"}},
      {"abc", ',', 0, 1, {"1:abc"}},
      {"a\tb c", '\t', ' ', 2, {"1:a", "2:b", "3:c"}},
      {"", ',', 0, 1, {}},
  };
  for (int l_nColumn = 1; l_nColumn <= 6; ++l_nColumn) AddChar(1, l_nColumn, 0, 2, "@");
  for (const Case& c : cases) {
    SCOPED_TRACE("[" + c.line + "] mode " + std::to_string(c.tokFlag));
    remove(m_clLogger.m_strOutPutFileName);
    SetDelimiters(c.first, c.second, c.tokFlag);
    Evaluate(c.line);
    EXPECT_EQ(ColumnsSeen(Events()), c.columns);
  }
}

TEST_F(ColumnEvalTest, RulesOfOtherLogsAndColumnsDoNotApply) {
  AddChar(2, 1, 0, 2, "@");  // another watched log
  AddChar(1, 3, 0, 2, "@");  // a column the line does not have
  Evaluate("a,b");
  EXPECT_EQ(Events(), "");
  Evaluate("a,b", 2);
  EXPECT_EQ(Events(), RuleEvent(2, 2, 0, 1, "Value[a] != @", "a,b"));
}

TEST_F(ColumnEvalTest, NumericRule) {
  struct Case {
    const char* name;
    int decide;
    int value;
    float fvalue;
    int compare;
    std::string ext1, ext2, column;
    int result;
    std::string message;  // empty: does not fire
  };
  const Case cases[] = {
      {"unit after the number", 1, 80, 0, 1, "", "", "85%", 1, "Value[85] > 80"},
      {"integer part only", 1, 80, 0, 1, "", "", "80.9", 1, ""},
      {"letters: not a number", 1, 80, 0, 1, "", "", "85ms", -1, ""},
      {"leading blank", 1, 80, 0, 1, "", "", " 90", 1, "Value[90] > 80"},
      {"float compare", 2, 0, 80.5f, 1, "", "", "80.9", 1, "Value[80.90] > 80.50"},
      {"float not above", 2, 0, 80.5f, 1, "", "", "80.5", 1, ""},
      {"empty column is 0", 1, 5, 0, 3, "", "", "", 1, "Value[0] < 5"},
      {"between ext1 and ext2", 1, 90, 0, 1, "cpu=", "%", "cpu=93%", 1, "Value[93] > 90"},
      {"no ext1: whole column", 1, 90, 0, 1, "cpu=", "%", "93", 1, "Value[93] > 90"},
      {"no ext1: letters", 1, 90, 0, 1, "cpu=", "%", "load=93", -1, ""},
      {"letter after ext2 ignored", 1, 90, 0, 1, "cpu=", "%", "cpu=93%x", 1, "Value[93] > 90"},
      {"letter before ext1 ignored", 1, 90, 0, 1, "cpu=", "%", "x cpu=93%", 1, "Value[93] > 90"},
      {"ext2 searched after ext1", 1, 90, 0, 1, "cpu=", "%", "5%cpu=93", 1, "Value[93] > 90"},
      {"empty ext2: to the end", 1, 90, 0, 1, "cpu=", "", "cpu=93%", 1, "Value[93] > 90"},
      {"value ends at ext2 digits", 1, 10, 0, 1, "a=", "0", "a=1203", 1, "Value[12] > 10"},
      {"NULL ext1 not found", 1, 90, 0, 1, "NULL", "", "95", 1, "Value[95] > 90"},
      {"NULL ext1 found", 1, 90, 0, 1, "NULL", "", "NULL95", 1, "Value[95] > 90"},
      {"NULL ext1 not found, letters", 1, 90, 0, 1, "NULL", "", "95 users", -1, ""},
      {">=", 1, 80, 0, 2, "", "", "80", 1, "Value[80] >= 80"},
      {"<", 1, 80, 0, 3, "", "", "-5", 1, "Value[-5] < 80"},
      {"<=", 1, 80, 0, 4, "", "", "80", 1, "Value[80] <= 80"},
      {"==", 1, 80, 0, 5, "", "", "+80", 1, "Value[80] == 80"},
      {"!=", 1, 80, 0, 6, "", "", "81", 1, "Value[81] != 80"},
      {"== false", 1, 80, 0, 5, "", "", "81", 1, ""},
      {"unknown compare never fires", 1, 80, 0, 7, "", "", "81", 1, ""},
      {"float >=", 3, 0, 1.25f, 2, "", "", "1.25", 1, "Value[1.25] >= 1.25"},
      {"float !=", 2, 0, 0.0f, 6, "", "", "-0.5", 1, "Value[-0.50] != 0.00"},
      {"integer saturates", 1, 80, 0, 1, "", "", "99999999999", 1, "Value[2147483647] > 80"},
      {"no number at all", 1, -1, 0, 1, "", "", "--", 1, "Value[0] > -1"},
      {"signs and punctuation", 1, 0, 0, 1, "", "", "1,234", 1, "Value[1] > 0"},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    remove(m_clLogger.m_strOutPutFileName);
    m_clLogger.m_pclNumPatternList->fClearLinkedList();
    AddNum(1, 2, 4, c.decide, c.value, c.fvalue, c.compare, c.ext1, c.ext2);
    SetLine("x," + c.column);
    std::vector<char> l_vchColumn = Text(c.column);
    m_nNumFaFoundFlag = 0;
    EXPECT_EQ(m_clLogger.fColumnFaultSearchNum(m_clLogger.m_pclNumPatternList->fGetHeadNode(), l_vchColumn.data()),
              c.result);
    EXPECT_STREQ(l_vchColumn.data(), c.column.c_str());  // the column is left as it was
    EXPECT_EQ(Events(), c.message.empty() ? "" : RuleEvent(1, 1, 4, 2, c.message, "x," + c.column));
    EXPECT_EQ(m_nNumFaFoundFlag, c.message.empty() ? 0 : 1);
  }
}

// Of consecutive rules for one column, in registry order (the rule added last
// comes first), the first that fires ends the run; a rule of the same log for
// another column between them starts a new run.
TEST_F(ColumnEvalTest, NumericRunStopsAtFirstFiringRule) {
  struct Case {
    const char* name;
    bool otherColumnBetween;
    std::string value;
    std::vector<int> levels;  // levels of the events written, in order
  };
  const Case cases[] = {
      {"95: A only", false, "95", {2}},
      {"85: B only", false, "85", {1}},
      {"50: none", false, "50", {}},
      {"95, another column's rule between: A and B", true, "95", {2, 1}},
      {"85, another column's rule between: B only", true, "85", {1}},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    remove(m_clLogger.m_strOutPutFileName);
    m_clLogger.m_pclNumPatternList->fClearLinkedList();
    AddNum(1, 3, 1, 1, 80, 0, 1);                               // B: > 80, level 1
    if (c.otherColumnBetween) AddNum(1, 2, 3, 1, 1000, 0, 1);  // column 2, never fires
    AddNum(1, 3, 2, 1, 90, 0, 1);                               // A: > 90, level 2, tried first
    AddNum(2, 3, 7, 1, 0, 0, 1);                                // another log: never applied
    Evaluate("a,b," + c.value);
    std::vector<int> l_vnLevels;
    const std::string l_strEvents = Events();
    const std::string l_strHead = "1|1" + Sep("{|}");
    for (size_t l_nPos = 0; (l_nPos = l_strEvents.find(l_strHead, l_nPos)) != std::string::npos; l_nPos++)
      l_vnLevels.push_back(l_strEvents[l_nPos + l_strHead.size()] - '0');
    EXPECT_EQ(l_vnLevels, c.levels);
    EXPECT_EQ(m_clLogger.m_nFaultSendIncrease, static_cast<int>(c.levels.size()));
    m_clLogger.m_nFaultSendIncrease = 0;
  }
}

TEST_F(ColumnEvalTest, NumericRuleReadsColumnUnchangedForLaterRules) {
  AddNum(1, 1, 2, 1, 90, 0, 1, "cpu=", "%");
  AddNum(1, 1, 3, 1, 90, 0, 1, "cpu=", "%");  // same run: skipped after the first fires
  AddChar(1, 1, 1, 1, "cpu=93%");
  Evaluate("cpu=93%,x");
  EXPECT_EQ(Events(), RuleEvent(1, 1, 3, 1, "Value[93] > 90", "cpu=93%,x") +
                          RuleEvent(1, 2, 1, 1, "Value[cpu=93%] == cpu=93%", "cpu=93%,x"));
  EXPECT_EQ(m_clLogger.m_nFaultSendIncrease, 2);
  EXPECT_EQ(m_clLogger.m_nFaultFoundFlag, 1);
}

TEST_F(ColumnEvalTest, TextRule) {
  struct Case {
    const char* name;
    int compare;
    std::string text, column, message;
  };
  const Case cases[] = {
      {"equal, case matters", 1, "ERROR", "error", ""},
      {"equal", 1, "ERROR", "ERROR", "Value[ERROR] == ERROR"},
      {"equal needs the whole column", 1, "ERROR", "ERROR ", ""},
      {"differs", 2, "ERROR", "ok", "Value[ok] != ERROR"},
      {"differs, empty column", 2, "ERROR", "", "Value[] != ERROR"},
      {"does not differ", 2, "ERROR", "ERROR", ""},
      {"pattern matches", 3, "ERR", "xERRx", "Value[xERRx] != ERR"},
      {"pattern does not match", 3, "ERR", "err", ""},
      {"pattern does not compile", 3, "(ERR", "(ERR", ""},
      {"unknown compare", 4, "x", "y", ""},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    remove(m_clLogger.m_strOutPutFileName);
    m_clLogger.m_pclCharPatternList->fClearLinkedList();
    AddChar(3, 1, 2, c.compare, c.text);
    Evaluate(c.column + ",z", 3);
    EXPECT_EQ(Events(), c.message.empty() ? "" : RuleEvent(3, 2, 2, 1, c.message, c.column + ",z"));
  }
}

TEST_F(ColumnEvalTest, TextRulesAllApply) {
  AddChar(1, 2, 1, 2, "a");
  AddChar(1, 2, 2, 2, "b");
  Evaluate("x,c");
  EXPECT_EQ(Events(), RuleEvent(1, 2, 2, 2, "Value[c] != b", "x,c") + RuleEvent(1, 2, 1, 2, "Value[c] != a", "x,c"));
}

TEST_F(ColumnEvalTest, PattCompforChar) {
  AddChar(1, 1, 0, 3, "ERR");
  AddChar(2, 1, 0, 1, "ERR");  // no compiled slot
  ST_CHAR_PATTERN_LIST* l_pstPattern = m_clLogger.m_pclCharPatternList->fGetNode(1);
  ST_CHAR_PATTERN_LIST* l_pstPlain = m_clLogger.m_pclCharPatternList->fGetNode(2);
  std::vector<char> l_vchHit = Text("an ERR"), l_vchMiss = Text("fine");
  EXPECT_EQ(m_clLogger.fPattCompforChar(l_pstPattern, 0, l_vchHit.data()), 1);
  EXPECT_EQ(m_clLogger.fPattCompforChar(l_pstPattern, 0, l_vchMiss.data()), 0);
  EXPECT_EQ(m_clLogger.fPattCompforChar(l_pstPattern, 0, nullptr), 0);
  EXPECT_EQ(m_clLogger.fPattCompforChar(l_pstPattern, 1, l_vchHit.data()), -1);
  EXPECT_EQ(m_clLogger.fPattCompforChar(l_pstPattern, 5, l_vchHit.data()), -1);
  EXPECT_EQ(m_clLogger.fPattCompforChar(l_pstPattern, -1, l_vchHit.data()), -1);
  EXPECT_EQ(m_clLogger.fPattCompforChar(l_pstPlain, 0, l_vchHit.data()), -1);
  EXPECT_EQ(m_clLogger.fPattCompforChar(nullptr, 0, l_vchHit.data()), -1);
}

TEST_F(ColumnEvalTest, DateColumnsAndTimeKey) {
  struct Case {
    const char* name;
    std::vector<std::pair<int, std::string>> rules;  // column, layout
    std::string line, logDate, patternDate;
    int timeKey;
  };
  const std::string l_strLong(300, '7');
  const Case cases[] = {
      {"date and time", {{1, "YYYY-MM-DD"}, {2, "hh:mm:ss"}}, "2022-06-27,10:11:12,x", "2022-06-27 10:11:12 ",
       "YYYY-MM-DD hh:mm:ss ", 12},
      {"no date rules", {}, "2022-06-27,10:11:12,x", "", "", 0},
      {"no ss: offset is the layout length", {{1, "HHMMSS"}}, "10111299,x", "10111299 ", "HHMMSS ", 9},
      {"no ss, offset past the text", {{1, "YYYY-MM-DD"}}, "2022-06-27,x", "2022-06-27 ", "YYYY-MM-DD ", 0},
      {"one digit then blank", {{1, "ss"}}, "7,x", "7 ", "ss ", 7},
      {"leading blank", {{1, "mm:ss"}}, "10: 5", "10: 5 ", "mm:ss ", 5},
      {"sign", {{1, "ss"}}, "-3", "-3 ", "ss ", -3},
      {"layout longer than the text", {{1, "xxxxxxss"}}, "12", "12 ", "xxxxxxss ", 0},
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
  struct Case {
    const char* name;
    int thresholds[5];
    int lines;  // lines with seconds 05 before the line with 06
    std::string event;
  };
  const std::string l_strDate = "2022-06-27 10:11:05 ";
  const Case cases[] = {
      {"twelve lines: level 3", {-1, 3, -1, 10, -1}, 12,
       "1|4" + Sep("{|}") + "3" + Sep("{|}") + l_strDate + " log count[12] >= [10]\n"},
      {"five lines: level 1", {-1, 3, -1, 10, -1}, 5,
       "1|4" + Sep("{|}") + "1" + Sep("{|}") + l_strDate + " log count[5] >= [3]\n"},
      {"two lines: none", {-1, 3, -1, 10, -1}, 2, ""},
      {"threshold equal to the count", {-1, -1, -1, -1, 4}, 4,
       "1|4" + Sep("{|}") + "4" + Sep("{|}") + l_strDate + " log count[4] >= [4]\n"},
      {"only -1 means no threshold", {-2, -1, -1, -1, -1}, 1,
       "1|4" + Sep("{|}") + "0" + Sep("{|}") + l_strDate + " log count[1] >= [-2]\n"},
  };
  AddDate(1, 1, "YYYY-MM-DD");
  AddDate(1, 2, "hh:mm:ss");
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    // Fresh time-key state, as after construction.
    m_clLogger.m_nOldTime = 0;
    m_clLogger.m_nNewTime = 0;
    m_clLogger.m_nSameTimeCnt = 1;
    m_clLogger.m_nFaultFoundFlag = 0;
    m_strOldLogDate[0] = '\0';
    memcpy(m_nCntFaultArray, c.thresholds, sizeof(m_nCntFaultArray));
    remove(m_clLogger.m_strOutPutFileName);

    // The first line changes the time key from 0 with a count of 1.
    for (int l_nLine = 0; l_nLine < c.lines; ++l_nLine) Evaluate("2022-06-27,10:11:05,x");
    EXPECT_EQ(m_clLogger.m_nSameTimeCnt, c.lines);
    const std::string l_strBefore = Events();
    Evaluate("2022-06-27,10:11:06,x");

    EXPECT_EQ(Events().substr(l_strBefore.size()), c.event);
    EXPECT_EQ(m_clLogger.m_nSameTimeCnt, 1);
    EXPECT_EQ(m_clLogger.m_nOldTime, 6);
    EXPECT_EQ(std::string(m_strOldLogDate), "2022-06-27 10:11:06 ");
    EXPECT_EQ(m_clLogger.m_nFaultFoundFlag, Events().empty() ? 0 : 1);
  }
}

// A threshold of 0 is reached at every change of the time key; without date
// columns the bar separator is followed directly by " log count[".
TEST_F(ColumnEvalTest, ThresholdZeroAndNoDateColumns) {
  m_nCntFaultArray[0] = 0;
  AddDate(1, 1, "ss");
  Evaluate("05");
  Evaluate("05");
  Evaluate("06");
  Evaluate("x", 2);  // log 2 has no date rules: time key 0
  EXPECT_EQ(Events(), "1|4" + Sep("{|}") + "0" + Sep("{|}") + " log count[1] >= [0]\n" +  // 0 -> 5
                          "1|4" + Sep("{|}") + "0" + Sep("{|}") + "05  log count[2] >= [0]\n" +
                          "2|4" + Sep("{|}") + "0" + Sep("{|}") + "06  log count[1] >= [0]\n");
  EXPECT_EQ(m_clLogger.m_nFaultSendIncrease, 3);
}

TEST_F(ColumnEvalTest, EventBytes) {
  struct Case {
    const char* name;
    std::string line;
    std::string expected;
  };
  const Case cases[] = {
      {"described example", "a,b,95",
       std::string("1|1\x03\x1f\x7c") + "2\x03\x1f\x7c" + "COLUMN[3] Value[95] > 90, ORIGINAL_MSG:a,b,95\n"},
      {"separators in the line copied unchanged", Sep("x{|}y|z{~}") + ",b,95",
       std::string("1|1\x03\x1f\x7c") + "2\x03\x1f\x7c" + "COLUMN[3] Value[95] > 90, ORIGINAL_MSG:" +
           Sep("x{|}y|z{~}") + ",b,95\n"},
  };
  AddNum(1, 3, 2, 1, 90, 0, 1);
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    remove(m_clLogger.m_strOutPutFileName);
    Evaluate(c.line);
    EXPECT_EQ(Events(), c.expected);
  }
}

TEST_F(ColumnEvalTest, LongLineAndColumnWrittenInFull) {
  const std::string l_strColumn(100 * 1024, 'q');
  const std::string l_strLine = "id," + l_strColumn;
  AddChar(1, 2, 1, 2, "short");
  Evaluate(l_strLine);
  const std::string l_strExpected = RuleEvent(1, 2, 1, 2, "Value[" + l_strColumn + "] != short", l_strLine);
  const std::string l_strEvents = Events();
  EXPECT_EQ(l_strEvents.size(), l_strExpected.size());
  EXPECT_TRUE(l_strEvents == l_strExpected);
}

TEST_F(ColumnEvalTest, SmallColumnBufferIsNotOverrun) {
  AddChar(1, 2, 1, 1, "a-long-second-column");
  SetLine("first-column,a-long-second-column", 4);
  m_clLogger.fColumnIndexFind(1, 0, 0);
  EXPECT_EQ(Events(), RuleEvent(1, 2, 1, 2, "Value[a-long-second-column] == a-long-second-column",
                                "first-column,a-long-second-column"));
  SetLine("x,a-long-second-column", 0);  // no column buffer at all
  m_clLogger.fColumnIndexFind(1, 0, 0);
  EXPECT_EQ(m_clLogger.m_nFaultSendIncrease, 2);
}

TEST_F(ColumnEvalTest, EventsAppendInOrderOneFileOpenPerEvent) {
  char l_strMsg[] = "m";
  AddNum(1, 1, 0, 1, 0, 0, 1);
  AddChar(1, 1, 0, 1, "x");
  ST_NUM_PATTERN_LIST* l_pstNum = m_clLogger.m_pclNumPatternList->fGetHeadNode();
  ST_CHAR_PATTERN_LIST* l_pstChar = m_clLogger.m_pclCharPatternList->fGetHeadNode();
  SetLine("L");
  EXPECT_EQ(m_clLogger.fMakeOutFile(l_pstNum, 1, l_strMsg), 1);
  // Removed between events: the next event creates the file again.
  remove(m_clLogger.m_strOutPutFileName);
  EXPECT_EQ(m_clLogger.fMakeOutFile(l_pstChar, 2, l_strMsg), 1);
  char l_strRaw[] = "raw line\n";
  EXPECT_EQ(m_clLogger.fMakeOutFile(l_strRaw), 1);
  EXPECT_EQ(Events(), RuleEvent(1, 2, 0, 1, "m", "L") + "raw line\n");
  EXPECT_EQ(m_clLogger.m_nFaultSendIncrease, 3);
}

// The event is dropped, but it still counts toward the per-log ceiling and
// the cycle's close-out.
TEST_F(ColumnEvalTest, UnwritableOutputAdvancesCounters) {
  ASSERT_TRUE(testsupport::WriteFile(m_clDir.file("plain"), ""));
  snprintf(m_clLogger.m_strOutPutFileName, sizeof(m_clLogger.m_strOutPutFileName), "%s/ing_x",
           m_clDir.file("plain").c_str());  // a path through a regular file: fails even for root
  AddNum(1, 1, 0, 1, 0, 0, 1);
  AddChar(1, 1, 0, 1, "5");
  ST_NUM_PATTERN_LIST* l_pstNum = m_clLogger.m_pclNumPatternList->fGetHeadNode();
  ST_CHAR_PATTERN_LIST* l_pstChar = m_clLogger.m_pclCharPatternList->fGetHeadNode();
  char l_strMsg[] = "m";
  SetLine("5");
  EXPECT_EQ(m_clLogger.fMakeOutFile(l_pstNum, 1, l_strMsg), -1);
  EXPECT_EQ(m_clLogger.m_nFaultFoundFlag, 1);
  EXPECT_EQ(m_clLogger.m_nFaultSendIncrease, 1);
  EXPECT_EQ(m_clLogger.fMakeOutFile(l_pstChar, 2, l_strMsg), -1);
  EXPECT_EQ(m_clLogger.fMakeOutFile(l_strMsg), -1);
  EXPECT_EQ(m_clLogger.m_nFaultSendIncrease, 3);

  m_clLogger.m_nFaultFoundFlag = 0;
  m_clLogger.m_nFaultSendIncrease = 0;
  Evaluate("5");  // both rules fire
  EXPECT_EQ(m_clLogger.m_nFaultFoundFlag, 1);
  EXPECT_EQ(m_clLogger.m_nFaultSendIncrease, 2);
}

TEST_F(ColumnEvalTest, CheckLimitFileCountsEveryEntry) {
  struct Case {
    int files;
    int dirs;
  };
  const Case cases[] = {{0, 0}, {199, 0}, {198, 2}, {200, 0}};
  for (const Case& c : cases) {
    SCOPED_TRACE(std::to_string(c.files) + " files, " + std::to_string(c.dirs) + " directories");
    TempDir l_clOut;
    snprintf(m_clLogger.m_strOutPutPath, sizeof(m_clLogger.m_strOutPutPath), "%s/", l_clOut.path().c_str());
    for (int i = 0; i < c.files; ++i)
      ASSERT_TRUE(testsupport::WriteFile(l_clOut.file((i % 2 ? "out_" : "ing_") + std::to_string(i)), ""));
    for (int i = 0; i < c.dirs; ++i) ASSERT_EQ(mkdir(l_clOut.file("d" + std::to_string(i)).c_str(), 0700), 0);
    EXPECT_EQ(m_clLogger.fCheckLimitFile(), c.files + c.dirs);
  }
  snprintf(m_clLogger.m_strOutPutPath, sizeof(m_clLogger.m_strOutPutPath), "%s/missing/", m_clDir.path().c_str());
  EXPECT_EQ(m_clLogger.fCheckLimitFile(), -1);
  ASSERT_TRUE(testsupport::WriteFile(m_clDir.file("plain"), ""));
  snprintf(m_clLogger.m_strOutPutPath, sizeof(m_clLogger.m_strOutPutPath), "%s", m_clDir.file("plain").c_str());
  EXPECT_EQ(m_clLogger.fCheckLimitFile(), -1);
}

}  // namespace
