// The value text of a numeric rule is read as strtol (integer rules) and
// strtod narrowed to float (decimal rules) read it: every text of the table
// must give the message that the C library's reading gives.
#include <climits>
#include <cstdio>
#include <cstdlib>
#include <string>

#include <gtest/gtest.h>

#include "ColumnLogger.h"
#include "TestSupport.h"

namespace {

using testsupport::ReadFile;
using testsupport::TempDir;

// Texts without letters (a letter makes the rule not apply).
const char* const kValueTexts[] = {
    "0", "7", "-7", "+7", " 42", "\t\v\f\r 42", "-0", "-", "+", ".", "-.", "", "  ", ".5", "5.", "-.5",
    "0.05", "000123.4500", "1..2", "1.2.3", "12,5", "9 3", "93%", "+-5", "- 5", "2147483647", "2147483648",
    "-2147483648", "-2147483649", "99999999999999999999999", "-99999999999999999999999", "3.14159265358979",
    "3.141592653589793238", "123456789012345", "1234567890123456", "0.1234567890123456789",
    "0.0000000000000000000001", "0.00000000000000000000001", "16777217", "340282356779733661637539395458142568448",
    "340282366920938463463374607431768211456", "1.00000005960464477539", "80.9", "80.5", "98.5", "%", "/"};

class ColumnEvalNumbers : public ::testing::Test {
 protected:
  void SetUp() override {
    snprintf(m_clLogger.m_strOutPutFileName, sizeof(m_clLogger.m_strOutPutFileName), "%s",
             m_clDir.file("ing_numbers").c_str());
  }
  // The message of the one event a rule writes for `l_strColumn`, or "" when none.
  std::string Message(ST_NUM_PATTERN_LIST* l_pstRule, const std::string& l_strColumn, int* l_pnResult) {
    remove(m_clLogger.m_strOutPutFileName);
    std::string l_strCopy = l_strColumn;
    *l_pnResult = m_clLogger.fColumnFaultSearchNum(l_pstRule, &l_strCopy[0]);
    EXPECT_EQ(l_strCopy, l_strColumn) << "the column must stay as it was";
    const std::string l_strEvent = ReadFile(m_clLogger.m_strOutPutFileName);
    const size_t l_nStart = l_strEvent.find("] ");
    const size_t l_nEnd = l_strEvent.find(", ORIGINAL_MSG:");
    if (l_nStart == std::string::npos || l_nEnd == std::string::npos) return "";
    return l_strEvent.substr(l_nStart + 2, l_nEnd - l_nStart - 2);
  }

  TempDir m_clDir;
  CColumnLogger m_clLogger;
};

// Comparison 6 (!=) with a threshold no text gives: every applied rule fires
// and its message shows the value read.
TEST_F(ColumnEvalNumbers, IntegerRuleReadsAsStrtol) {
  ST_NUM_PATTERN_LIST l_stRule{};
  l_stRule.m_nFaultDecide = 1;
  l_stRule.m_nFaultValue = 123456789;
  l_stRule.m_nCompareNum = 6;
  for (const char* l_pstrText : kValueTexts) {
    SCOPED_TRACE(std::string("value text '") + l_pstrText + "'");
    long l_lExpected = strtol(l_pstrText, nullptr, 10);
    if (l_lExpected > INT_MAX) l_lExpected = INT_MAX;
    if (l_lExpected < INT_MIN) l_lExpected = INT_MIN;
    int l_nResult = 0;
    EXPECT_EQ(Message(&l_stRule, l_pstrText, &l_nResult), "Value[" + std::to_string(l_lExpected) + "] != 123456789");
    EXPECT_EQ(l_nResult, 1);
  }
}

// Comparison 6 (!=) shows the value read; a threshold equal to strtod's
// reading makes comparison 5 (==) fire: the reading is bit for bit.
TEST_F(ColumnEvalNumbers, DecimalRuleReadsAsStrtodNarrowedToFloat) {
  ST_NUM_PATTERN_LIST l_stRule{};
  l_stRule.m_nFaultDecide = 2;
  for (const char* l_pstrText : kValueTexts) {
    SCOPED_TRACE(std::string("value text '") + l_pstrText + "'");
    const float l_fExpected = static_cast<float>(strtod(l_pstrText, nullptr));
    char l_strExpected[128];
    snprintf(l_strExpected, sizeof(l_strExpected), "Value[%.2f] != %.2f", static_cast<double>(l_fExpected),
             static_cast<double>(-1.5e30f));
    l_stRule.m_fFaultValue = -1.5e30f;
    l_stRule.m_nCompareNum = 6;
    int l_nResult = 0;
    EXPECT_EQ(Message(&l_stRule, l_pstrText, &l_nResult), l_strExpected);
    EXPECT_EQ(l_nResult, 1);
    l_stRule.m_fFaultValue = l_fExpected;
    l_stRule.m_nCompareNum = 5;
    EXPECT_NE(Message(&l_stRule, l_pstrText, &l_nResult), "");
  }
}

// Texts around the number: the first occurrence of each counts, a text that
// is not there leaves the whole column (or the rest of it), and a letter in
// the value text means the rule does not apply.
TEST_F(ColumnEvalNumbers, TextsAroundTheNumberSelectTheValueText) {
  struct Case {
    const char* ext1;
    const char* ext2;
    const char* column;
    const char* message;  // "" = no event
    int result;
  } const kCases[] = {
      {"cpu=", "%", "cpu=93%", "Value[93] != 0", 1},
      {"cpu=", "%", "93", "Value[93] != 0", 1},
      {"cpu=", "%", "load=93", "", -1},
      {"cpu=", "%", "x cpu=12% cpu=34%", "Value[12] != 0", 1},
      {"cpu=", "%", "cpu=cpu=5%", "", -1},
      {"=", "", "a=b=7", "", -1},
      {"ab", "", "aab7", "Value[7] != 0", 1},
      {"aab", "", "aaab5", "Value[5] != 0", 1},
      {"abc", "", "ab", "", -1},
      {"NULL", "NULL", "1234", "Value[1234] != 0", 1},
      {"NULL", "NULL", "xNULL77NULLy", "Value[77] != 0", 1},
      {"[", "]", "t[ 8 ]ms", "Value[8] != 0", 1},
      {"[", "]]", "t[8]", "Value[8] != 0", 1},
      {"", "%", "50%", "Value[50] != 0", 1},
      {"", "", "0", "", 1},
  };
  for (const Case& l_stCase : kCases) {
    SCOPED_TRACE(std::string(l_stCase.ext1) + " | " + l_stCase.ext2 + " | " + l_stCase.column);
    ST_NUM_PATTERN_LIST l_stRule{};
    l_stRule.m_nFaultDecide = 1;
    l_stRule.m_nFaultValue = 0;
    l_stRule.m_nCompareNum = 6;
    snprintf(l_stRule.m_strExt1, sizeof(l_stRule.m_strExt1), "%s", l_stCase.ext1);
    snprintf(l_stRule.m_strExt2, sizeof(l_stRule.m_strExt2), "%s", l_stCase.ext2);
    int l_nResult = 0;
    EXPECT_EQ(Message(&l_stRule, l_stCase.column, &l_nResult), l_stCase.message);
    EXPECT_EQ(l_nResult, l_stCase.result);
  }
}

}  // namespace
