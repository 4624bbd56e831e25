#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "CharPatternList.h"
#include "DatePatternList.h"
#include "NumPatternList.h"
#include "StrPattern.h"
#include "TestSupport.h"

using testsupport::Sep;

namespace {

char* Text(std::string& s) { return s.data(); }

// Each registry gets rules with (entry number, tag); the tag goes into the
// column number, so the order of equal keys can be told apart.
void AddRule(CNumPatternList& list, int indx, int tag) {
  std::string ext = "NULL";
  list.fAddLinkedList(indx, tag, 1, 1, 0, 0.0f, 1, Text(ext), Text(ext));
}
void AddRule(CCharPatternList& list, int indx, int tag) {
  std::string text = "FAIL";
  list.fAddLinkedList(indx, tag, 1, 1, Text(text));
}
void AddRule(CDatePatternList& list, int indx, int tag) {
  std::string layout = "hh:mm:ss";
  list.fAddLinkedList(indx, tag, Text(layout));
}

template <typename List>
std::vector<int> WalkTags(List& list) {
  std::vector<int> tags;
  list.fMoveFirst();
  while (auto* rule = list.fMoveNext()) tags.push_back(rule->m_nComumnNum);
  return tags;
}

template <typename List>
void CheckRegistry() {
  const int A = 10, B = 11, C = 12, D = 13;
  struct Case {
    std::vector<std::pair<int, int>> added;  // (entry number, tag)
    std::vector<int> order;
  };
  const Case cases[] = {
      {{{1, A}, {1, B}, {2, C}, {1, D}}, {D, B, A, C}},
      {{{2, A}, {1, B}, {2, C}}, {C, A, B}},
      {{{3, A}}, {A}},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.added.size());
    List list;
    for (const auto& rule : c.added) AddRule(list, rule.first, rule.second);
    EXPECT_EQ(WalkTags(list), c.order);
    EXPECT_EQ(list.fGetLinkedListCnt(), static_cast<long>(c.added.size()));
    EXPECT_EQ(list.fGetNode(c.added.back().first)->m_nComumnNum, c.added.back().second);
  }

  List list;
  EXPECT_EQ(list.fGetNodeMaxCnt(), 90000);
  for (int indx : {1, 1, 2}) AddRule(list, indx, indx);
  EXPECT_EQ(list.fDelLinkedList(1), 1);
  EXPECT_EQ(list.fGetLinkedListCnt(), 1);
  EXPECT_EQ(list.fGetHeadNode()->m_nIndex, 2);
  EXPECT_EQ(list.fDelLinkedList(9), 0);
  for (int indx : {1, 3, 3}) AddRule(list, indx, indx);
  EXPECT_EQ(list.fClearLinkedList(), 4);
  EXPECT_EQ(list.fGetLinkedListCnt(), 0);
  EXPECT_EQ(list.fGetHeadNode(), nullptr);
  EXPECT_EQ(list.fGetErrorCode(), 0);
}

TEST(CNumPatternList, OrderRemovalAndCounts) { CheckRegistry<CNumPatternList>(); }
TEST(CCharPatternList, OrderRemovalAndCounts) { CheckRegistry<CCharPatternList>(); }
TEST(CDatePatternList, OrderRemovalAndCounts) { CheckRegistry<CDatePatternList>(); }

// Rules 1, 2, 3 in registry order; one is removed while the cursor is on it.
TEST(CNumPatternList, RemovingTheCursorRuleDuringAWalk) {
  struct Case {
    int steps;        // fMoveNext calls before the removal
    int removedTag;   // the rule under the cursor
    std::vector<int> rest;  // what the walk yields afterwards
  };
  const Case cases[] = {
      {0, 1, {2, 3}},     // head: cursor moves to the successor
      {1, 2, {1, 3}},     // middle: cursor moves back to the predecessor
      {2, 3, {2}},        // end: cursor moves to the predecessor
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.removedTag);
    CNumPatternList list;
    for (int tag : {1, 2, 3}) AddRule(list, tag, tag);
    list.fMoveFirst();
    for (int i = 0; i < c.steps; ++i) list.fMoveNext();
    ASSERT_EQ(list.fGetNode()->m_nComumnNum, c.removedTag);
    list.fDeleteLinkedList(list.fGetNode());
    std::vector<int> rest;
    while (auto* rule = list.fMoveNext()) rest.push_back(rule->m_nComumnNum);
    EXPECT_EQ(rest, c.rest);
    EXPECT_EQ(list.fGetLinkedListCnt(), 2);
  }
  CNumPatternList single;
  AddRule(single, 1, 1);
  single.fMoveFirst();
  single.fDeleteLinkedList(single.fGetNode());
  EXPECT_EQ(single.fGetNode(), nullptr);
  EXPECT_EQ(single.fGetEndNode(), nullptr);
  single.fDeleteLinkedList(nullptr);
  EXPECT_EQ(single.fGetLinkedListCnt(), 0);
}

TEST(CNumPatternList, FieldsAreCopiedAndTextsBounded) {
  CNumPatternList list;
  std::string ext1 = "=";
  std::string ext2(70, 'x');
  ASSERT_EQ(list.fAddLinkedList(4, 7, 2, 2, 90, 90.5f, 3, Text(ext1), Text(ext2)), 1);
  ASSERT_EQ(list.fAddLinkedList(5, 1, 0, 1, 0, 0.0f, 6, nullptr, nullptr), 1);
  const ST_NUM_PATTERN_LIST* rule = list.fGetNode(4);
  EXPECT_EQ(rule->m_nComumnNum, 7);
  EXPECT_EQ(rule->m_nFaultLevel, 2);
  EXPECT_EQ(rule->m_nFaultDecide, 2);
  EXPECT_EQ(rule->m_nFaultValue, 90);
  EXPECT_FLOAT_EQ(rule->m_fFaultValue, 90.5f);
  EXPECT_EQ(rule->m_nCompareNum, 3);
  EXPECT_STREQ(rule->m_strExt1, "=");
  EXPECT_EQ(std::string(rule->m_strExt2), std::string(63, 'x'));
  EXPECT_STREQ(list.fGetNode(5)->m_strExt1, "");
}

TEST(CCharPatternList, TextsAreBounded) {
  CCharPatternList chars;
  CDatePatternList dates;
  std::string text(1100, 't');
  chars.fAddLinkedList(1, 2, 3, 1, Text(text));
  dates.fAddLinkedList(1, 2, Text(text));
  EXPECT_EQ(std::string(chars.fGetNode(1)->m_strFaultPattern), std::string(1023, 't'));
  EXPECT_EQ(chars.fGetNode(1)->m_nCompareNum, 1);
  EXPECT_EQ(chars.fGetNode(1)->m_vpclStrPattern[0], nullptr);
  EXPECT_EQ(std::string(dates.fGetNode(1)->m_strDatePattern), std::string(511, 't'));
}

TEST(CCharPatternList, PatternGoesToTheRuleAddedLast) {
  CCharPatternList list;
  std::string x = "ERROR";
  std::string y = "^FAIL";
  list.fAddLinkedList(3, 1, 1, 1, Text(x));
  list.fAddLinkedList(3, 2, 2, 3, Text(y));
  ASSERT_EQ(list.fAddPatternLinkedList(3, Text(y)), 1);
  ST_CHAR_PATTERN_LIST* ruleY = list.fGetNode(3);
  ST_CHAR_PATTERN_LIST* ruleX = ruleY->m_pstNext;
  EXPECT_EQ(ruleY->m_nCompareNum, 3);
  EXPECT_STREQ(ruleY->m_vstrLogPattern[0], "^FAIL");
  std::string subject = "FAIL: disk";
  ASSERT_NE(ruleY->m_vpclStrPattern[0], nullptr);
  EXPECT_EQ(ruleY->m_vpclStrPattern[0]->fPatternEx(Text(subject)), 1);
  EXPECT_EQ(ruleX->m_vpclStrPattern[0], nullptr);
  EXPECT_EQ(list.fAddPatternLinkedList(8, Text(y)), -1);
  EXPECT_EQ(list.fGetLinkedListCnt(), 2);
}

TEST(CCharPatternList, PatternSlotFilling) {
  const std::string p2048(2048, 'q');
  struct Case {
    std::string value;  // readable notation
    int result;
    std::vector<std::string> texts;
  };
  const Case cases[] = {
      {"disk full", 1, {"disk full"}},
      {"5{|}a{~}b", 1, {"a", "b"}},  // text before the bar is dropped
      {"a{~}b{~}c{~}d{~}e{~}f", 1, {"a", "b", "c", "d", "e"}},
      {p2048, 0, {}},
      {"", 1, {}},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.value.substr(0, 20));
    CCharPatternList list;
    std::string value = Sep(c.value);
    list.fAddLinkedList(1, 1, 1, 3, Text(value));
    std::string earlier = "old{~}older";
    earlier = Sep(earlier);
    list.fAddPatternLinkedList(1, Text(earlier));  // replaced below
    EXPECT_EQ(list.fAddPatternLinkedList(1, Text(value)), c.result);
    const ST_CHAR_PATTERN_LIST* rule = list.fGetNode(1);
    for (size_t slot = 0; slot < PATTERN_SLOT_CNT; ++slot) {
      SCOPED_TRACE(slot);
      const bool used = slot < c.texts.size();
      EXPECT_EQ(rule->m_vstrLogPattern[slot], used ? c.texts[slot] : "");
      EXPECT_EQ(rule->m_vpclStrPattern[slot] != nullptr, used);
    }
  }
}

TEST(CCharPatternList, SlotOperationsAndRemovalRelease) {
  CCharPatternList list;
  std::string text = "error";
  std::string bad = "(a";
  for (int indx : {1, 2, 2}) {
    list.fAddLinkedList(indx, 1, 1, 3, Text(text));
    list.fAddPatternLinkedList(indx, Text(text));
  }
  ST_CHAR_PATTERN_LIST* rule = list.fGetNode(1);
  EXPECT_EQ(list.fPatternComp(rule, 1, Text(text)), 1);
  EXPECT_EQ(list.fPatternComp(rule, 1, Text(bad)), 0);
  EXPECT_EQ(rule->m_vpclStrPattern[1], nullptr);
  EXPECT_EQ(list.fPatternComp(rule, 5, Text(text)), 0);
  EXPECT_EQ(list.fPatternComp(nullptr, 0, Text(text)), 0);
  EXPECT_EQ(list.fPatternClear(nullptr, 0), -1);
  EXPECT_EQ(list.fClearPattern(1), 1);
  EXPECT_EQ(rule->m_vpclStrPattern[0], nullptr);
  EXPECT_STREQ(rule->m_vstrLogPattern[0], "");
  EXPECT_EQ(list.fClearPattern(7), -1);
  // Rules holding compiled patterns are freed with them (checked by the
  // leak sanitizer build).
  EXPECT_EQ(list.fDelLinkedList(2), 1);
  list.fAddPatternLinkedList(1, Text(text));
  list.fDeleteLinkedList(list.fGetNode(1));
  list.fAddLinkedList(4, 1, 1, 3, Text(text));
  list.fAddPatternLinkedList(4, Text(text));
  EXPECT_EQ(list.fGetLinkedListCnt(), 1);
}

}  // namespace
