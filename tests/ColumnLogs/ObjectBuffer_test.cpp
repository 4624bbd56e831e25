#include "ObjectBuffer.h"
#include "TestSupport.h"

namespace {

char* C(const char* text) { return const_cast<char*>(text); }

// "index:key=value;" of every entry up to index 5.
std::string Entries(CObjectBuffer& buffer) {
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
  // The smallest free index comes back, but the new entry is the last one in
  // insertion order: a lookup by key still finds the older entry first.
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

}  // namespace
