// The generic ordered list (the registries' engine too) and the configuration store's keyed buffer built on it.
#include <cstdint>

#include "ObjectBuffer.h"
#include "ObjectList.h"
#include "TestSupport.h"

// Adds nodes with these keys; each data pointer is the insertion position, carried but never touched or freed.
void Add(CObjectList& list, const std::vector<int>& keys) {
  for (size_t i = 0; i < keys.size(); ++i) {
    ST_OBJECTLIST_LNKLST node{keys[i], reinterpret_cast<void*>(i), nullptr, nullptr};
    list.fAddNode(&node);
  }
}

// "key/position " of every node from the head; checks the back links, the end and the count.
std::string Dump(CObjectList& list) {
  std::string out;
  ST_OBJECTLIST_LNKLST* prev = nullptr;
  long count = 0;
  for (auto* node = list.fGetHeadNode(); node != nullptr; prev = node, node = node->m_pstNext, ++count) {
    EXPECT_EQ(node->m_pstPrev, prev);
    out += std::to_string(node->m_nIndex) + "/" + std::to_string(reinterpret_cast<uintptr_t>(node->m_pvdData)) + " ";
  }
  EXPECT_EQ(list.fGetEndNode(), prev);
  EXPECT_EQ(list.fGetNodeCnt(), count);
  return out;
}

// Equal keys keep their insertion order when sorted; a refused duplicate is no error, a null node is.
TEST(CObjectList, InsertionOrdersAndDuplicates) {
  const struct { int orderType, dupFlag; std::vector<int> added; std::string dump; } cases[] = {
      {3, 1, {5, 3, 5, 1}, "1/3 3/1 5/0 5/2 "}, {1, 1, {3, 1, 2}, "3/0 1/1 2/2 "},
      {0, 1, {2, 1}, "1/1 2/0 "},  // out of range: ascending
      {1, 0, {4, 4}, "4/0 "},      {1, 7, {4, 4}, "4/0 4/1 "},
  };
  for (const auto& c : cases) {
    CObjectList list(c.orderType, 100, c.dupFlag);
    Add(list, c.added);
    EXPECT_EQ(Dump(list), c.dump) << c.orderType << " " << c.dupFlag;
    EXPECT_EQ(list.fGetErrorCode(), 0);
  }
  CObjectList list;
  EXPECT_EQ(list.fAddNode(nullptr), -1);
  EXPECT_EQ(std::to_string(list.fGetErrorCode()) + list.fGetErrorMsg(), "-1[-1] Add node is NULL");
}

// Deleting removes every node with the key; the cursor on a removed node moves: head -> next, else -> previous.
TEST(CObjectList, DeleteRemovesEveryMatchingNodeAndMovesTheCursor) {
  // After `steps` calls of fMoveNext, `deleted` goes; `cursor`: the key under the cursor after it (0: none).
  const struct { std::vector<int> keys; int steps, deleted, result; std::string left; int cursor; } cases[] = {
      {{1, 2, 3}, 0, 1, 1, "2/1 3/2 ", 2}, {{1, 2, 3}, 1, 2, 1, "1/0 3/2 ", 1},
      {{1, 2, 3}, 2, 3, 1, "1/0 2/1 ", 2}, {{1, 2, 3}, 3, 2, 1, "1/0 3/2 ", 0},
      {{7, 7, 8}, 0, 7, 1, "8/2 ", 8},     {{1, 7, 2, 7}, 1, 7, 1, "1/0 2/2 ", 1},
      {{1, 2}, 0, 7, 0, "1/0 2/1 ", 1},    {{3, 3, 3}, 0, 3, 1, "", 0},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(testing::Message() << c.deleted << " from " << testing::PrintToString(c.keys) << " after " << c.steps);
    CObjectList list(1);
    Add(list, c.keys);
    list.fMoveFirst();
    for (int i = 0; i < c.steps; ++i) list.fMoveNext();
    EXPECT_EQ(list.fDeleteNode(c.deleted), c.result);
    EXPECT_EQ(Dump(list), c.left);
    EXPECT_EQ(list.fGetNode() ? list.fGetNode()->m_nIndex : 0, c.cursor);
  }
}

// A walk of an empty list ends at once; lookup by key takes the first from the head.
TEST(CObjectList, CursorLookupAndFreeAll) {
  CObjectList list(1);
  EXPECT_EQ(list.fMoveFirst(), 0);
  EXPECT_EQ(list.fMoveNext(), nullptr);
  Add(list, {4, 9, 4});
  EXPECT_EQ(list.fGetNode(4)->m_pvdData, nullptr);  // the first from the head: position 0
  EXPECT_EQ(list.fGetNode(5), nullptr);
  EXPECT_EQ(list.fFreeAll(), 3);
  EXPECT_EQ(list.fGetNode(), nullptr);  // no cursor left on a freed node
  EXPECT_EQ(list.fFreeAll(), 0);
  EXPECT_EQ(Dump(list), "");
}

char* C(const char* text) { return const_cast<char*>(text); }  // values are kept by pointer: literals outlive them

std::string Entries(CObjectBuffer& buffer) {  // "index:key=value;" of every entry up to index 5
  std::string out;
  for (int i = 1; i <= 5; ++i) {
    const char* key = buffer.fGetObjectKey(i);
    if (key != nullptr) out += std::to_string(i) + ":" + key + "=" + static_cast<char*>(buffer.fGetObject(i)) + ";";
  }
  return out;
}

TEST(CObjectBuffer, FreedIndicesAreReusedAndTheFirstEqualKeyWins) {
  CObjectBuffer buffer;
  char key[] = "c";
  EXPECT_EQ(buffer.fObjectPut(C("a"), C("1")), 1);
  EXPECT_EQ(buffer.fObjectPut(C("b"), C("2")), 2);
  EXPECT_EQ(buffer.fObjectPut(key, C("3")), 3);
  key[0] = 'X';  // the buffer holds its own copy
  EXPECT_EQ(buffer.fObjectRemove(C("b")), 1);
  // The smallest free index comes back, but a lookup by key still finds the older entry first.
  EXPECT_EQ(buffer.fObjectPut(C("c"), C("new")), 2);
  EXPECT_STREQ(static_cast<char*>(buffer.fSetObject(C("c"), C("three"))), "three");
  EXPECT_EQ(Entries(buffer), "1:a=1;2:c=new;3:c=three;");
  for (const char* absent : {"C", "c ", "", "X"}) EXPECT_EQ(buffer.fGetObject(C(absent)), nullptr) << absent;
  EXPECT_EQ(buffer.fObjectRemove(C("c")), 1);
  EXPECT_STREQ(static_cast<char*>(buffer.fGetObject(C("c"))), "new");
  EXPECT_EQ(buffer.fObjectPut(C("d"), C("4")), 3);
  EXPECT_EQ(buffer.fGetSize(), 3);
  EXPECT_EQ(buffer.fFreeObjects(), 1);
  EXPECT_EQ(Entries(buffer), "");
  EXPECT_EQ(buffer.fObjectPut(C("z"), C("v")), 1);
}
