#include "ObjectBuffer.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace {

char* C(const char* text) { return const_cast<char*>(text); }

// (index, key, value) of every entry, in the key table's order.
std::vector<std::string> Entries(CObjectBuffer& buffer, int maxIndex = 10) {
  std::vector<std::string> out;
  for (int i = 1; i <= maxIndex; ++i) {
    const char* key = buffer.fGetObjectKey(i);
    if (key == nullptr) continue;
    const char* value = static_cast<const char*>(buffer.fGetObject(i));
    out.push_back(std::to_string(i) + ":" + key + "=" + (value ? value : "<null>"));
  }
  return out;
}

TEST(CObjectBuffer, IndicesCountUpAndFreedOnesAreReused) {
  CObjectBuffer buffer;
  EXPECT_EQ(buffer.fObjectPut(C("a"), C("1")), 1);
  EXPECT_EQ(buffer.fObjectPut(C("b"), C("2")), 2);
  EXPECT_EQ(buffer.fObjectPut(C("c"), C("3")), 3);
  EXPECT_EQ(buffer.fObjectRemove(C("b")), 1);
  EXPECT_EQ(buffer.fGetSize(), 2);
  // The smallest free index comes back, but the new entry is the last one
  // in insertion order: a lookup by key still finds older entries first.
  EXPECT_EQ(buffer.fObjectPut(C("c"), C("new")), 2);
  EXPECT_STREQ(static_cast<char*>(buffer.fGetObject(C("c"))), "3");
  EXPECT_STREQ(static_cast<char*>(buffer.fGetObject(2)), "new");
  EXPECT_EQ(Entries(buffer), (std::vector<std::string>{"1:a=1", "2:c=new", "3:c=3"}));
  EXPECT_EQ(buffer.fObjectPut(C("d"), C("4")), 4);
  EXPECT_EQ(buffer.fObjectRemove(C("a")), 1);
  EXPECT_EQ(buffer.fObjectRemove(C("d")), 1);
  EXPECT_EQ(buffer.fObjectPut(C("e"), C("5")), 1);
}

TEST(CObjectBuffer, DuplicateKeysFirstEntryWinsUntilRemoved) {
  CObjectBuffer buffer;
  buffer.fObjectPut(C("KEY"), C("first"));
  buffer.fObjectPut(C("KEY"), C("second"));
  EXPECT_EQ(buffer.fGetSize(), 2);
  EXPECT_STREQ(static_cast<char*>(buffer.fGetObject(C("KEY"))), "first");
  EXPECT_EQ(buffer.fObjectRemove(C("KEY")), 1);
  EXPECT_STREQ(static_cast<char*>(buffer.fGetObject(C("KEY"))), "second");
  EXPECT_EQ(buffer.fObjectRemove(C("KEY")), 1);
  EXPECT_EQ(buffer.fObjectRemove(C("KEY")), 0);
  EXPECT_EQ(buffer.fGetSize(), 0);
}

TEST(CObjectBuffer, KeysAreCopiedAndComparedExactly) {
  CObjectBuffer buffer;
  char key[] = "Key";
  buffer.fObjectPut(key, C("v"));
  key[0] = 'X';  // the buffer holds its own copy
  EXPECT_STREQ(buffer.fGetObjectKey(1), "Key");
  struct Case {
    const char* key;
    bool found;
  };
  const Case cases[] = {{"Key", true}, {"key", false}, {"Key ", false}, {"Ke", false}, {"", false}};
  for (const auto& c : cases) {
    SCOPED_TRACE(c.key);
    EXPECT_EQ(buffer.fGetObject(C(c.key)) != nullptr, c.found);
  }
  // The empty key is a key like any other.
  buffer.fObjectPut(C(""), C("empty"));
  EXPECT_STREQ(static_cast<char*>(buffer.fGetObject(C(""))), "empty");
}

TEST(CObjectBuffer, SetReplacesTheValuePointerOnly) {
  CObjectBuffer buffer;
  buffer.fObjectPut(C("a"), C("1"));
  buffer.fObjectPut(C("a"), C("2"));
  char replaced[] = "one";
  EXPECT_EQ(buffer.fSetObject(C("a"), replaced), replaced);
  EXPECT_EQ(buffer.fGetObject(1), replaced);
  EXPECT_STREQ(static_cast<char*>(buffer.fGetObject(2)), "2");
  char byIndex[] = "two";
  EXPECT_EQ(buffer.fSetObject(2, byIndex), byIndex);
  EXPECT_EQ(buffer.fSetObject(C("absent"), byIndex), nullptr);
  EXPECT_EQ(buffer.fSetObject(7, byIndex), nullptr);
  EXPECT_EQ(buffer.fGetSize(), 2);
}

TEST(CObjectBuffer, NullKeysAndMissingIndicesGiveNothing) {
  CObjectBuffer buffer;
  EXPECT_EQ(buffer.fObjectPut(nullptr, C("v")), 0);
  EXPECT_EQ(buffer.fGetSize(), 0);
  buffer.fObjectPut(C("a"), C("1"));
  EXPECT_EQ(buffer.fGetObject(static_cast<char*>(nullptr)), nullptr);
  EXPECT_EQ(buffer.fSetObject(static_cast<char*>(nullptr), C("x")), nullptr);
  EXPECT_EQ(buffer.fObjectRemove(nullptr), 0);
  for (int index : {0, -1, 2}) {
    SCOPED_TRACE(index);
    EXPECT_EQ(buffer.fGetObject(index), nullptr);
    EXPECT_EQ(buffer.fGetObjectKey(index), nullptr);
  }
}

TEST(CObjectBuffer, FreeObjectsEmptiesBothListsAndRestartsIndices) {
  CObjectBuffer buffer;
  for (const char* key : {"a", "b", "c"}) buffer.fObjectPut(C(key), C("v"));
  EXPECT_EQ(buffer.fFreeObjects(), 1);
  EXPECT_EQ(buffer.fGetSize(), 0);
  EXPECT_EQ(buffer.fGetObject(1), nullptr);
  EXPECT_EQ(buffer.fGetObject(C("a")), nullptr);
  EXPECT_EQ(buffer.fObjectPut(C("z"), C("v")), 1);
}

}  // namespace
