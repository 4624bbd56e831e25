// Column rule evaluation and event output, driven as a gather cycle drives them; events are read back from the file.
#include <climits>
#include <random>

#include "ColumnLogger.h"
#include "TestSupport.h"

class ColumnEvalTest : public ::testing::Test {
 protected:
  void SetUp() override {
    snprintf(m_clLogger.m_strOutPutFileName, sizeof(m_clLogger.m_strOutPutFileName), "%s",
             m_clDir.file("ing_test").c_str());
    ResetRate({-1, -1, -1, -1, -1});
    m_nNumFaFoundFlag = 0, m_chDilimitor1 = ',', m_clLogger.m_nTokFlag = 1;
  }
  void TearDown() override {  // the gather cycle owns (and frees) these buffers; here the test does
    l_pstrLineBuf = nullptr, m_clLogger.m_pstrOriginalBuf = nullptr, m_clLogger.m_lOriginalBufSize = 0;
  }
  // 28 reserved bytes, then the line; the column buffer, an exact heap block of garbage, as long as the cycle's.
  void Evaluate(const std::string& l_strLine, int l_nIndx = 1, long l_lColumnBufSize = -1) {
    m_strLine = std::string(28, '\0') + l_strLine;
    l_pstrLineBuf = &m_strLine[0];
    const size_t l_nSize = l_lColumnBufSize < 0 ? m_strLine.size() + 1 : static_cast<size_t>(l_lColumnBufSize);
    m_upColumn.reset(l_nSize == 0 ? nullptr : new char[l_nSize]);
    if (l_nSize > 0) memset(m_upColumn.get(), '#', l_nSize);
    m_clLogger.m_pstrOriginalBuf = m_upColumn.get(), m_clLogger.m_lOriginalBufSize = static_cast<long>(l_nSize);
    m_clLogger.fColumnIndexFind(l_nIndx, 0, 0);
  }
  void ResetRate(const int (&l_vnThresholds)[5]) {  // line-rate state as after construction
    m_clLogger.m_nOldTime = m_clLogger.m_nNewTime = 0, m_clLogger.m_nSameTimeCnt = 1, m_strOldLogDate[0] = '\0';
    memcpy(m_nCntFaultArray, l_vnThresholds, sizeof(m_nCntFaultArray));
  }
  void Restart() {  // no rules, no event file, no events counted
    m_clLogger.m_pclNumPatternList->fClearLinkedList(), m_clLogger.m_pclCharPatternList->fClearLinkedList();
    m_clLogger.m_pclDatePatternList->fClearLinkedList(), remove(m_clLogger.m_strOutPutFileName);
    m_clLogger.m_nFaultSendIncrease = m_clLogger.m_nFaultFoundFlag = 0;
  }
  // Integer rules, "value > threshold".
  void AddNum(int l_nIndex, int l_nColumn, int l_nLevel, int l_nValue, std::string l_strExt1 = "",
              std::string l_strExt2 = "") {
    m_clLogger.m_pclNumPatternList->fAddLinkedList(l_nIndex, l_nColumn, l_nLevel, 1, l_nValue, 0, 1, &l_strExt1[0],
                                                   &l_strExt2[0]);
  }
  void AddChar(int l_nIndex, int l_nColumn, int l_nLevel, int l_nCompare, std::string l_strText) {
    m_clLogger.m_pclCharPatternList->fAddLinkedList(l_nIndex, l_nColumn, l_nLevel, l_nCompare, &l_strText[0]);
    if (l_nCompare == 3) m_clLogger.m_pclCharPatternList->fAddPatternLinkedList(l_nIndex, &l_strText[0]);
  }
  void AddDate(int l_nIndex, int l_nColumn, std::string l_strLayout) {
    m_clLogger.m_pclDatePatternList->fAddLinkedList(l_nIndex, l_nColumn, &l_strLayout[0]);
  }
  static ST_NUM_PATTERN_LIST Rule(int l_nDecide, int l_nValue, float l_fValue, int l_nCompare,
                                  const char* l_pstrExt1 = "", const char* l_pstrExt2 = "") {
    ST_NUM_PATTERN_LIST l_stRule{1, 1, 0, l_nDecide, l_nValue, l_fValue, l_nCompare, {}, {}, nullptr, nullptr};
    snprintf(l_stRule.m_strExt1, sizeof(l_stRule.m_strExt1), "%s", l_pstrExt1);
    snprintf(l_stRule.m_strExt2, sizeof(l_stRule.m_strExt2), "%s", l_pstrExt2);
    return l_stRule;
  }
  // "result:message" of a numeric rule on `l_strColumn`, the message of the one event it writes ("" when none).
  std::string Fire(ST_NUM_PATTERN_LIST l_stRule, const std::string& l_strColumn) {
    remove(m_clLogger.m_strOutPutFileName);
    std::string l_strCopy = l_strColumn;
    const int l_nResult = m_clLogger.fColumnFaultSearchNum(&l_stRule, &l_strCopy[0]);
    EXPECT_EQ(l_strCopy, l_strColumn) << "the column must stay as it was";
    const std::string l_strEvent = Events();
    const size_t l_nStart = l_strEvent.find("] "), l_nEnd = l_strEvent.find(", ORIGINAL_MSG:");
    return std::to_string(l_nResult) + ":" +
           (l_nEnd == std::string::npos ? "" : l_strEvent.substr(l_nStart + 2, l_nEnd - l_nStart - 2));
  }

  std::string Events() const { return ReadFile(m_clLogger.m_strOutPutFileName); }
  static std::string RateEvent(int l_nIndex, int l_nLevel, const std::string& l_strRest) {
    return Sep(std::to_string(l_nIndex) + "|4{|}" + std::to_string(l_nLevel) + "{|}") + l_strRest + "\n";
  }
  static std::string RuleEvent(int l_nIndex, int l_nType, int l_nLevel, int l_nColumn, const std::string& l_strMsg,
                               const std::string& l_strLine) {
    return Sep(std::to_string(l_nIndex) + "|" + std::to_string(l_nType) + "{|}" + std::to_string(l_nLevel) + "{|}") +
           "COLUMN[" + std::to_string(l_nColumn) + "] " + l_strMsg + ", ORIGINAL_MSG:" + l_strLine + "\n";
  }

  TempDir m_clDir;
  CColumnLogger m_clLogger;
  std::string m_strLine;
  std::unique_ptr<char[]> m_upColumn;
};

// The operators at their boundaries; any decide but 1 compares as float.
TEST_F(ColumnEvalTest, NumericRule) {
  const struct { int decide, value; float fvalue; int compare; std::string column, message; } cases[] = {
      {1, 80, 0, 1, "85%", "Value[85] > 80"},          {1, 80, 0, 1, "80.9", ""},  // integer part only
      {2, 0, 80.5f, 1, "80.9", "Value[80.90] > 80.50"}, {1, 80, 0, 2, "80", "Value[80] >= 80"},
      {1, 5, 0, 3, "", "Value[0] < 5"},                 {1, 80, 0, 4, "80", "Value[80] <= 80"},
      {1, 80, 0, 5, "+80", "Value[80] == 80"},          {1, 80, 0, 7, "81", ""},  // unknown compare
      {3, 0, 1.25f, 2, "1.25", "Value[1.25] >= 1.25"},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(testing::Message() << "decide " << c.decide << " compare " << c.compare << " [" << c.column << "]");
    m_nNumFaFoundFlag = 0;
    EXPECT_EQ(Fire(Rule(c.decide, c.value, c.fvalue, c.compare), c.column), "1:" + c.message);
    EXPECT_EQ(m_nNumFaFoundFlag, c.message.empty() ? 0 : 1);
  }
}

// Texts without letters (a letter makes the rule not apply).
const char* const kValueTexts[] = {
    "0", "7", "-7", "+7", " 42", "\t\v\f\r 42", "-0", "-", "+", ".", "-.", "", "  ", ".5", "5.", "-.5",
    "0.05", "000123.4500", "1..2", "1.2.3", "12,5", "9 3", "93%", "+-5", "- 5", "2147483647", "2147483648",
    "-2147483648", "-2147483649", "99999999999999999999999", "-99999999999999999999999", "3.14159265358979",
    "3.141592653589793238", "123456789012345", "1234567890123456", "0.1234567890123456789",
    "0.0000000000000000000001", "0.00000000000000000000001", "16777217", "340282356779733661637539395458142568448",
    "340282366920938463463374607431768211456", "1.00000005960464477539", "80.9", "80.5", "98.5", "%", "/"};

// The value reads as strtol (clamped to int) and strtod (as float) read it; == fires at strtod's reading, bit for bit.
TEST_F(ColumnEvalTest, NumberReadingFollowsTheCLibrary) {
  for (const char* l_pstrText : kValueTexts) {
    SCOPED_TRACE(std::string("value text '") + l_pstrText + "'");
    const long l_lInt = std::min<long>(std::max<long>(strtol(l_pstrText, nullptr, 10), INT_MIN), INT_MAX);
    const float l_fDec = static_cast<float>(strtod(l_pstrText, nullptr));
    char l_strDec[128];
    snprintf(l_strDec, sizeof(l_strDec), "1:Value[%.2f] != %.2f", static_cast<double>(l_fDec), double{-1.5e30f});
    EXPECT_EQ(Fire(Rule(1, 123456789, 0, 6), l_pstrText), "1:Value[" + std::to_string(l_lInt) + "] != 123456789");
    EXPECT_EQ(Fire(Rule(2, 0, -1.5e30f, 6), l_pstrText), l_strDec);
    EXPECT_NE(Fire(Rule(2, 0, l_fDec, 5), l_pstrText), "1:");
  }
}

// The first occurrence of each text around the number counts; a letter in the value: the rule does not apply (-1).
TEST_F(ColumnEvalTest, TextsAroundTheNumberSelectTheValueText) {
  const struct { const char *ext1, *ext2, *column, *message; int result; } kCases[] = {
      {"cpu=", "%", "cpu=93%", "Value[93] != 0", 1},  {"cpu=", "%", "93", "Value[93] != 0", 1},
      {"cpu=", "%", "load=93", "", -1},               {"cpu=", "%", "x cpu=12% cpu=34%", "Value[12] != 0", 1},
      {"cpu=", "%", "cpu=cpu=5%", "", -1},            {"ab", "", "aab7", "Value[7] != 0", 1},
      {"aab", "", "aaab5", "Value[5] != 0", 1},  // a partial match restarts one character on
      {"NULL", "NULL", "xNULL77NULLy", "Value[77] != 0", 1}, {"[", "]", "t[ 8 ]ms", "Value[8] != 0", 1},
      {"[", "]]", "t[8]", "Value[8] != 0", 1},        {"", "%", "50%", "Value[50] != 0", 1},
  };
  for (const auto& c : kCases) {
    SCOPED_TRACE(std::string(c.ext1) + " | " + c.ext2 + " | " + c.column);
    EXPECT_EQ(Fire(Rule(1, 0, 0, 6, c.ext1, c.ext2), c.column), std::to_string(c.result) + ":" + c.message);
  }
}

// The first firing rule (newest first) ends a column's run of numeric rules; text rules have no early stop.
TEST_F(ColumnEvalTest, NumericRunStopsAtFirstFiringRuleTextRulesDoNot) {
  struct Case { bool otherColumnBetween; std::string value; std::vector<int> levels; } cases[] = {
      {false, "95", {2}}, {false, "85", {1}}, {false, "50", {}}, {true, "95", {2, 1}}, {true, "85", {1}}};
  for (const Case& c : cases) {
    SCOPED_TRACE(c.value + (c.otherColumnBetween ? ", another column's rule between" : ""));
    Restart();
    AddNum(1, 3, 1, 80);                               // B: > 80, level 1
    if (c.otherColumnBetween) AddNum(1, 2, 3, 1000);  // column 2, never fires
    AddNum(1, 3, 2, 90);                               // A: > 90, level 2, tried first
    AddNum(2, 3, 7, 0);                                // another log: never applied
    Evaluate("a,b," + c.value);
    std::string l_strExpected;
    for (int l_nLevel : c.levels)
      l_strExpected += RuleEvent(1, 1, l_nLevel, 3, "Value[" + c.value + "] > " + (l_nLevel == 2 ? "90" : "80"),
                                 "a,b," + c.value);
    EXPECT_EQ(Events(), l_strExpected);
    EXPECT_EQ(m_clLogger.m_nFaultSendIncrease, static_cast<int>(c.levels.size()));
  }
  Restart();
  AddNum(1, 1, 2, 90, "cpu=", "%");
  AddChar(1, 1, 1, 1, "cpu=93%");
  AddChar(1, 1, 2, 2, "other");
  Evaluate("cpu=93%,x");
  EXPECT_EQ(Events(), RuleEvent(1, 1, 2, 1, "Value[93] > 90", "cpu=93%,x") +
                          RuleEvent(1, 2, 2, 1, "Value[cpu=93%] != other", "cpu=93%,x") +
                          RuleEvent(1, 2, 1, 1, "Value[cpu=93%] == cpu=93%", "cpu=93%,x"));
}

TEST_F(ColumnEvalTest, TextRule) {
  struct Case { const char* name; int compare; std::string text, column, message; } cases[] = {
      {"equal, case matters", 1, "ERROR", "error", ""}, {"equal", 1, "ERROR", "ERROR", "Value[ERROR] == ERROR"},
      {"equal needs the whole column", 1, "ERROR", "ERROR ", ""}, {"does not differ", 2, "ERROR", "ERROR", ""},
      {"differs, empty column", 2, "ERROR", "", "Value[] != ERROR"}, {"unknown compare", 4, "x", "y", ""},
      {"pattern matches", 3, "ERR", "xERRx", "Value[xERRx] != ERR"}, {"pattern does not match", 3, "ERR", "err", ""},
      {"pattern does not compile", 3, "(ERR", "(ERR", ""},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    Restart();
    AddChar(3, 1, 2, c.compare, c.text);
    Evaluate(c.column + ",z", 3);
    EXPECT_EQ(Events(), c.message.empty() ? "" : RuleEvent(3, 2, 2, 1, c.message, c.column + ",z"));
  }
}

TEST_F(ColumnEvalTest, DateColumnsAndTimeKey) {
  const std::string l_strLong(300, '7');
  using Rules = std::vector<std::pair<int, std::string>>;  // column, layout
  struct Case { const char* name; Rules rules; std::string line, logDate, patternDate; int timeKey; } cases[] = {
      {"date and time", {{1, "YYYY-MM-DD"}, {2, "hh:mm:ss"}}, "2022-06-27,10:11:12,x", "2022-06-27 10:11:12 ",
       "YYYY-MM-DD hh:mm:ss ", 12},
      {"no ss: offset is the layout length", {{1, "HHMMSS"}}, "10111299,x", "10111299 ", "HHMMSS ", 9},
      {"sign", {{1, "ss"}}, "-3", "-3 ", "ss ", -3},
      {"a trailing delimiter opens no column", {{1, "ss"}, {2, "hh"}}, "05,", "05 ", "ss ", 5},
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

// Lines are counted per seconds value over all logs; the highest level reached is reported when the value changes.
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
    ResetRate(c.thresholds);
    for (int l_nLine = 0; l_nLine < c.lines; ++l_nLine) Evaluate("2022-06-27,10:11:05,x");
    EXPECT_EQ(m_clLogger.m_nSameTimeCnt, c.lines);
    const std::string l_strBefore = Events();
    Evaluate("2022-06-27,10:11:06,x");
    EXPECT_EQ(Events().substr(l_strBefore.size()), c.event);
    EXPECT_EQ(m_clLogger.m_nSameTimeCnt, 1);
    EXPECT_EQ(std::string(m_strOldLogDate), "2022-06-27 10:11:06 ");
  }
  // A threshold of 0 is reached at every change of the time key; without date columns " log count[" follows the bar.
  Restart();
  ResetRate({0, -1, -1, -1, -1});
  AddDate(1, 1, "ss");
  for (const char* l_pstrLine : {"05", "05", "06"}) Evaluate(l_pstrLine);
  Evaluate("x", 2);  // log 2 has no date rules: time key 0
  EXPECT_EQ(Events(), RateEvent(1, 0, " log count[1] >= [0]") +
                          RateEvent(1, 0, "05  log count[2] >= [0]") + RateEvent(2, 0, "06  log count[1] >= [0]"));
}

// Separators in the line are copied as they are, a long column is quoted whole, a short column buffer never overrun.
TEST_F(ColumnEvalTest, EventBytesAndBuffers) {
  AddNum(1, 3, 2, 90);
  Evaluate(Sep("x{|}y|z{~}") + ",b,95");
  EXPECT_EQ(Events(), Sep("1|1{|}2{|}COLUMN[3] Value[95] > 90, ORIGINAL_MSG:x{|}y|z{~},b,95\n"));
  const std::string l_strColumn(100 * 1024, 'q');
  Restart();
  AddChar(1, 2, 1, 2, "a-long-second-column");
  Evaluate("id," + l_strColumn);
  EXPECT_TRUE(Events() ==
              RuleEvent(1, 2, 1, 2, "Value[" + l_strColumn + "] != a-long-second-column", "id," + l_strColumn))
      << Events().size() << " bytes";
  Restart();
  AddChar(1, 2, 1, 1, "a-long-second-column");
  Evaluate("first-column,a-long-second-column", 1, 4);
  EXPECT_EQ(Events(), RuleEvent(1, 2, 1, 2, "Value[a-long-second-column] == a-long-second-column",
                                "first-column,a-long-second-column"));
  // No column buffer; one byte short of the line, a stop delimiter and a NUL; exactly that.
  for (long l_lSize : {0, 23, 24}) Evaluate("x,a-long-second-column", 1, l_lSize);
  EXPECT_EQ(m_clLogger.m_nFaultSendIncrease, 4);
}

// The event file gets fopen's mode (0666 less the umask), is opened per event, appended to; no descriptor stays open.
TEST_F(ColumnEvalTest, EventFileWrites) {
  char l_strMsg[] = "m", l_strRaw[] = "raw line\n";
  AddChar(1, 1, 0, 1, "5");
  ST_CHAR_PATTERN_LIST* l_pstChar = m_clLogger.m_pclCharPatternList->fGetHeadNode();
  Evaluate("L");  // the rule does not fire
  const size_t l_nFds = ListDir("/proc/self/fd").size();
  const mode_t l_nOldMask = umask(002);
  EXPECT_EQ(m_clLogger.fMakeOutFile(l_pstChar, 2, l_strMsg), 1);
  umask(l_nOldMask);
  EXPECT_EQ(FileMode(m_clLogger.m_strOutPutFileName), S_IFREG | 0664u);
  remove(m_clLogger.m_strOutPutFileName);  // removed between events: created again
  EXPECT_EQ(m_clLogger.fMakeOutFile(l_pstChar, 2, l_strMsg), 1);
  EXPECT_EQ(m_clLogger.fMakeOutFile(l_strRaw), 1);
  EXPECT_EQ(Events(), RuleEvent(1, 2, 0, 1, "m", "L") + "raw line\n");
  EXPECT_EQ(m_clLogger.m_nFaultSendIncrease, 3);
  EXPECT_EQ(ListDir("/proc/self/fd").size(), l_nFds);
}

// On seeded random rules and lines, a turn (each log's rules gathered once) writes the line-by-line walk's events.
TEST(ColumnEvalTurn, GatheredRulesEvaluateAsTheWalk) {
  std::mt19937 l_clRandom(20261123);
  auto l_fPick = [&](int l_nLow, int l_nHigh) { return std::uniform_int_distribution<int>(l_nLow, l_nHigh)(l_clRandom); };
  const char* const l_vpstrTexts[] = {"ERROR", "OK", "", "^E.*R$", "x|y"};
  const char* const l_vpstrCells[] = {"ERROR", "OK", "v=70%", "v=30", "12:00:0", "", "E R"};
  for (int l_nRound = 0; l_nRound < 20; ++l_nRound) {
    SCOPED_TRACE(l_nRound);
    TempDir l_clDir;
    CColumnLogger l_clLogger;
    std::fill_n(m_nCntFaultArray, 5, -1), m_nCntFaultArray[2] = 2;
    for (int l_nRule = 0; l_nRule < 40; ++l_nRule) {
      const int l_nLog = l_fPick(1, 3), l_nColumn = l_fPick(0, 9) == 0 ? l_fPick(60, 70) : l_fPick(1, 6);
      std::string l_strExt1 = l_fPick(0, 1) ? "v=" : "", l_strExt2 = l_fPick(0, 1) ? "%" : "";
      std::string l_strText = l_vpstrTexts[l_fPick(0, 4)], l_strLayout = "hh:mm:ss";
      const int l_nKind = l_fPick(0, 2);
      if (l_nKind == 0)
        l_clLogger.m_pclNumPatternList->fAddLinkedList(l_nLog, l_nColumn, l_fPick(0, 4), l_fPick(1, 2), 50, 50.5f,
                                                       l_fPick(1, 6), &l_strExt1[0], &l_strExt2[0]);
      else if (l_nKind == 1)
        l_clLogger.m_pclCharPatternList->fAddLinkedList(l_nLog, l_nColumn, l_fPick(0, 4), l_fPick(1, 3), &l_strText[0]);
      else
        l_clLogger.m_pclDatePatternList->fAddLinkedList(l_nLog, l_nColumn, &l_strLayout[0]);
    }
    std::vector<std::string> l_vstrLines(30);
    std::string l_strFile;
    for (std::string& l_strLine : l_vstrLines) {
      const int l_nColumns = l_fPick(0, 9) == 0 ? 70 : l_fPick(1, 8);
      for (int l_nColumn = 1; l_nColumn <= l_nColumns; ++l_nColumn) {
        l_strLine += std::string(l_nColumn > 1 ? "," : "") + l_vpstrCells[l_fPick(0, 6)];
        if (!l_strLine.empty() && l_strLine.back() == '0') l_strLine += std::to_string(l_fPick(0, 1));
      }
      if (l_strLine.empty()) l_strLine = "ERROR";
      l_strFile += l_strLine + "\n";
    }
    std::string l_strName = l_clDir.file("app.log"), l_strNull = "NULL", l_strDelimiter = ",\x03\x1f\x7eNULL";
    ASSERT_TRUE(WriteFile(l_strName, l_strFile));
    for (int l_nLog = 1; l_nLog <= 3; ++l_nLog) {
      ASSERT_EQ(l_clLogger.m_pclLogFileList->fAddLogFile(l_nLog, &l_strName[0], 1, 2), 1);
      ASSERT_EQ(l_clLogger.m_pclLogFileList->fAddLogPattern(l_nLog, &l_strNull[0], 0, 0, &l_strDelimiter[0]), 1);
    }
    for (int l_nLog = 1; l_nLog <= 3; ++l_nLog) {
      SCOPED_TRACE(l_nLog);
      const auto l_fStart = [&](const std::string& l_strOut) {  // the same lines-per-second state for both runs
        l_clLogger.m_nOldTime = l_clLogger.m_nNewTime = l_clLogger.m_nSameTimeCnt = 0, m_strOldLogDate[0] = '\0';
        snprintf(l_clLogger.m_strOutPutFileName, sizeof(l_clLogger.m_strOutPutFileName), "%s",
                 l_clDir.file(l_strOut + std::to_string(l_nLog)).c_str());
      };
      // The walk, line by line, as fColumnIndexFind does outside a turn (cutting into a buffer of its own).
      l_fStart("walk");
      m_chDilimitor1 = ',', l_clLogger.m_nTokFlag = 1;
      for (const std::string& l_strLine : l_vstrLines) {
        std::string l_strBuf = std::string(28, '\0') + l_strLine;
        l_pstrLineBuf = &l_strBuf[0], l_clLogger.m_nFaultSendIncrease = 0;
        l_clLogger.fColumnIndexFind(l_nLog, 0, 0);
      }
      l_pstrLineBuf = nullptr;
      // One turn of the same log over the same lines; the other entries count as served.
      l_fStart("turn");
      for (int l_nOther = 1; l_nOther <= 3; ++l_nOther)
        l_clLogger.m_pclLogFileList->fGetNode(l_nOther)->m_nGatherFlag = l_nOther == l_nLog ? 0 : 1;
      FILE* l_pstFd = fopen(l_strName.c_str(), "r");
      ASSERT_NE(l_pstFd, nullptr);
      EXPECT_EQ(l_clLogger.fReplayTurn(l_clLogger.m_pclLogFileList->fGetNode(l_nLog), l_pstFd, &l_strName[0], 1), 30);
      fclose(l_pstFd);
      const std::string l_strWalk = ReadFile(l_clDir.file("walk" + std::to_string(l_nLog)));
      EXPECT_EQ(ReadFile(l_clDir.file("turn" + std::to_string(l_nLog))), l_strWalk);
      EXPECT_TRUE(l_nRound != 0 || l_nLog != 1 || !l_strWalk.empty()) << "the rules fire";
    }
  }
}
