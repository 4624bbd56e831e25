// The three rule registries over the ordered-list engine (tested in ObjectList), and a text rule's patterns.
#include "CharPatternList.h"
#include "DatePatternList.h"
#include "NumPatternList.h"
#include "StrPattern.h"
#include "TestSupport.h"

// The tag goes into the column number, so that the order of equal keys shows.
void AddRule(CNumPatternList& list, int indx, int tag) {
  list.fAddLinkedList(indx, tag, 1, 1, 0, 0, 1, Text(""), Text(""));
}
void AddRule(CCharPatternList& list, int indx, int tag) { list.fAddLinkedList(indx, tag, 1, 1, Text("FAIL")); }
void AddRule(CDatePatternList& list, int indx, int tag) { list.fAddLinkedList(indx, tag, Text("hh:mm:ss")); }

// A rule goes directly before its entry's first rule, else to the end: A, B, C, D for entries 1, 1, 2, 1 walk D B A C.
template <typename List>
void CheckOrder() {
  const struct { std::vector<std::pair<int, int>> added; std::string order; } cases[] = {  // (entry, tag)
      {{{1, 10}, {1, 11}, {2, 12}, {1, 13}}, "13 11 10 12 "}, {{{2, 10}, {1, 11}, {2, 12}}, "12 10 11 "}};
  for (const auto& c : cases) {
    SCOPED_TRACE(c.order);
    List list;
    for (const auto& rule : c.added) AddRule(list, rule.first, rule.second);
    std::string order;
    for (list.fMoveFirst(); auto* rule = list.fMoveNext();) order += std::to_string(rule->m_nComumnNum) + " ";
    EXPECT_EQ(order, c.order);
    EXPECT_EQ(list.fGetLinkedListCnt(), static_cast<long>(c.added.size()));
    EXPECT_EQ(list.fGetNode(c.added.back().first)->m_nComumnNum, c.added.back().second);
  }
}

TEST(CNumPatternList, Order) { CheckOrder<CNumPatternList>(); }
TEST(CCharPatternList, Order) { CheckOrder<CCharPatternList>(); }
TEST(CDatePatternList, Order) { CheckOrder<CDatePatternList>(); }

// Patterns go to the entry's newest rule, replacing what it held; the text before a bar is dropped.
TEST(CCharPatternList, PatternSlotsOfTheNewestRule) {
  CCharPatternList list;
  std::string rule = "ERROR", value = Sep("5{|}a{~}b"), tooLong(2048, 'q');
  for (int column : {1, 2}) list.fAddLinkedList(3, column, 1, 3, Text(rule));
  EXPECT_EQ(list.fAddPatternLinkedList(8, Text(value)), -1);
  EXPECT_EQ(list.fAddPatternLinkedList(3, Text(value)), 1);
  const ST_CHAR_PATTERN_LIST* newest = list.fGetNode(3);
  ASSERT_EQ(newest->m_nComumnNum, 2);
  EXPECT_EQ(std::string(newest->m_vstrLogPattern[0]) + newest->m_vstrLogPattern[1], "ab");
  EXPECT_NE(newest->m_vpclStrPattern[1], nullptr);
  EXPECT_EQ(newest->m_pstNext->m_vpclStrPattern[0], nullptr);
  // A refused value empties every slot; compiled patterns are freed with their rules (the leak sanitizer checks).
  EXPECT_EQ(list.fAddPatternLinkedList(3, Text(tooLong)), 0);
  for (int slot = 0; slot < PATTERN_SLOT_CNT; ++slot) {
    EXPECT_STREQ(newest->m_vstrLogPattern[slot], "") << slot;
    EXPECT_EQ(newest->m_vpclStrPattern[slot], nullptr) << slot;
  }
  EXPECT_EQ(list.fPatternComp(newest->m_pstNext, 5, Text(rule)), 0);
  EXPECT_EQ(list.fPatternClear(newest->m_pstNext, -1), -1);
  list.fAddPatternLinkedList(3, Text(value));
  list.fAddLinkedList(4, 1, 1, 3, Text(rule));
  list.fAddPatternLinkedList(4, Text(value));
  list.fDeleteLinkedList(list.fGetNode(3));
  EXPECT_EQ(list.fGetLinkedListCnt(), 2);  // entry 4 and the older rule of 3 are left for the destructor
}
