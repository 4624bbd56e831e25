#include "ObjectList.h"

#include <gtest/gtest.h>

#include <vector>

namespace {

std::vector<int> Keys(CObjectList& list) {
  std::vector<int> keys;
  for (auto* node = list.fGetHeadNode(); node != nullptr; node = node->m_pstNext) keys.push_back(node->m_nIndex);
  return keys;
}

// Data pointers tell older and newer nodes with equal keys apart.
std::vector<int> Tags(CObjectList& list) {
  std::vector<int> tags;
  for (auto* node = list.fGetHeadNode(); node != nullptr; node = node->m_pstNext)
    tags.push_back(*static_cast<int*>(node->m_pvdData));
  return tags;
}

void Add(CObjectList& list, const std::vector<int>& keys, std::vector<int>& tags) {
  tags.resize(keys.size());
  for (size_t i = 0; i < keys.size(); ++i) {
    tags[i] = static_cast<int>(i);
    ST_OBJECTLIST_LNKLST node{keys[i], &tags[i], nullptr, nullptr};
    list.fAddNode(&node);
  }
}

TEST(CObjectList, InsertionOrders) {
  struct Case {
    int orderType;
    std::vector<int> added;
    std::vector<int> keys;
    std::vector<int> tags;  // insertion positions, showing which equal key is older
  };
  const Case cases[] = {
      {3, {5, 3, 5, 1}, {1, 3, 5, 5}, {3, 1, 0, 2}},
      {4, {5, 3, 5, 1}, {5, 5, 3, 1}, {0, 2, 1, 3}},
      {2, {1, 2, 3}, {3, 2, 1}, {2, 1, 0}},
      {1, {1, 2, 3}, {1, 2, 3}, {0, 1, 2}},
      {9, {5, 3, 5, 1}, {1, 3, 5, 5}, {3, 1, 0, 2}},   // out of range: ascending
      {0, {2, 1}, {1, 2}, {1, 0}},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.orderType);
    CObjectList list(c.orderType);
    std::vector<int> tags;
    Add(list, c.added, tags);
    EXPECT_EQ(Keys(list), c.keys);
    EXPECT_EQ(Tags(list), c.tags);
    EXPECT_EQ(list.fGetNodeCnt(), static_cast<long>(c.added.size()));
    EXPECT_EQ(list.fGetEndNode()->m_pstNext, nullptr);
    EXPECT_EQ(list.fGetHeadNode()->m_pstPrev, nullptr);
  }
}

TEST(CObjectList, DefaultConstructorsAndLimits) {
  CObjectList plain;
  std::vector<int> tags;
  Add(plain, {2, 1}, tags);
  EXPECT_EQ(Keys(plain), (std::vector<int>{1, 2}));
  EXPECT_EQ(plain.fGetNodeMaxCnt(), 1000000000L);
  CObjectList limited(1, 7);
  EXPECT_EQ(limited.fGetNodeMaxCnt(), 7);
}

TEST(CObjectList, DuplicateRule) {
  struct Case {
    int dupFlag;
    int secondResult;
    long count;
  };
  for (const Case& c : {Case{0, 0, 1}, Case{1, 1, 2}, Case{-3, 1, 2}, Case{7, 1, 2}}) {
    SCOPED_TRACE(c.dupFlag);
    CObjectList list(1, 100, c.dupFlag);
    ST_OBJECTLIST_LNKLST node{4, nullptr, nullptr, nullptr};
    EXPECT_EQ(list.fAddNode(&node), 1);
    EXPECT_EQ(list.fAddNode(&node), c.secondResult);
    EXPECT_EQ(list.fGetNodeCnt(), c.count);
    EXPECT_EQ(list.fGetErrorCode(), 0);
  }
}

TEST(CObjectList, NullNodeIsAnError) {
  CObjectList list;
  EXPECT_EQ(list.fAddNode(nullptr), -1);
  EXPECT_EQ(list.fGetErrorCode(), -1);
  EXPECT_STREQ(list.fGetErrorMsg(), "[-1] Add node is NULL");
  EXPECT_EQ(list.fGetNodeCnt(), 0);
}

TEST(CObjectList, DeleteRemovesEveryMatchingNode) {
  struct Case {
    std::vector<int> keys;
    int deleted;
    int result;
    std::vector<int> left;
  };
  const Case cases[] = {
      {{7, 7, 8}, 7, 1, {8}},
      {{1, 2}, 7, 0, {1, 2}},
      {{1, 7, 2, 7}, 7, 1, {1, 2}},
      {{7}, 7, 1, {}},
      {{3, 3, 3}, 3, 1, {}},
  };
  for (const auto& c : cases) {
    CObjectList list(1);
    std::vector<int> tags;
    Add(list, c.keys, tags);
    EXPECT_EQ(list.fDeleteNode(c.deleted), c.result);
    EXPECT_EQ(Keys(list), c.left);
    EXPECT_EQ(list.fGetNodeCnt(), static_cast<long>(c.left.size()));
    if (c.left.empty()) {
      EXPECT_EQ(list.fGetHeadNode(), nullptr);
      EXPECT_EQ(list.fGetEndNode(), nullptr);
      EXPECT_EQ(list.fGetNode(), nullptr);
    }
  }
}

TEST(CObjectList, CursorWalkAndItsEnd) {
  CObjectList list(1);
  EXPECT_EQ(list.fMoveFirst(), 0);
  EXPECT_EQ(list.fMoveNext(), nullptr);
  std::vector<int> tags;
  Add(list, {1, 2}, tags);
  EXPECT_EQ(list.fMoveFirst(), 1);
  EXPECT_EQ(list.fMoveNext()->m_nIndex, 1);
  EXPECT_EQ(list.fMoveNext()->m_nIndex, 2);
  EXPECT_EQ(list.fMoveNext(), nullptr);
  EXPECT_EQ(list.fMoveNext(), nullptr);
  EXPECT_EQ(list.fMoveLast(), 1);
  EXPECT_EQ(list.fMovePrev()->m_nIndex, 2);
  EXPECT_EQ(list.fMovePrev()->m_nIndex, 1);
  EXPECT_EQ(list.fMovePrev(), nullptr);
}

// Removing the node under the cursor leaves the cursor where the removal
// rules put it: head -> successor, end or middle -> predecessor.
TEST(CObjectList, RemovalMovesTheCursor) {
  struct Case {
    int steps;        // fMoveNext calls after fMoveFirst
    int removed;
    int cursorAfter;  // key under the cursor afterwards, 0 for null
  };
  const Case cases[] = {{0, 1, 2}, {1, 2, 1}, {2, 3, 2}, {3, 2, 0}};
  for (const auto& c : cases) {
    SCOPED_TRACE(c.removed);
    CObjectList list(1);
    std::vector<int> tags;
    Add(list, {1, 2, 3}, tags);
    list.fMoveFirst();
    for (int i = 0; i < c.steps; ++i) list.fMoveNext();
    list.fDeleteNode(c.removed);
    auto* cursor = list.fGetNode();
    EXPECT_EQ(cursor ? cursor->m_nIndex : 0, c.cursorAfter);
  }
}

TEST(CObjectList, FreeAllCountsAndLeavesDataAlone) {
  CObjectList list(1);
  std::vector<int> tags;
  Add(list, {1, 2, 3}, tags);
  EXPECT_EQ(list.fFreeAll(), 3);
  EXPECT_EQ(list.fFreeAll(), 0);
  EXPECT_EQ(list.fGetNodeCnt(), 0);
  EXPECT_EQ(tags, (std::vector<int>{0, 1, 2}));
}

TEST(CObjectList, LookupFindsFirstFromHead) {
  CObjectList list(1);
  std::vector<int> tags;
  Add(list, {4, 9, 4}, tags);
  EXPECT_EQ(*static_cast<int*>(list.fGetNode(4)->m_pvdData), 0);
  EXPECT_EQ(list.fGetNode(5), nullptr);
}

}  // namespace
