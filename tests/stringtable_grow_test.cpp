// The string table grows past one entry a bucket: every key is still found,
// and a key added again before and after a growth hides the older entry until
// it is removed. Numbered names, as large worlds have them, hash apart, and
// consecutive numbers to consecutive hashes.
#include "stringtable.h"

#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <unordered_set>
#include <vector>

namespace {

TEST(StringTableGrowth, KeysAndHiddenEntriesSurviveGrowing) {
  StringTable table(3, nullptr);  // grows at 4, 8, 18, 38, ... entries
  std::vector<int> data(1000);
  int older = -1, newer = -2;
  table.addString("again", &older);
  for (int i = 0; i < 500; i++) table.addString(("N" + std::to_string(i)).c_str(), &data[i]);
  table.addString("again", &newer);
  for (int i = 500; i < 1000; i++) table.addString(("N" + std::to_string(i)).c_str(), &data[i]);
  for (int i = 0; i < 1000; i++) {
    StringTable::Entry* entry = table.findString(("N" + std::to_string(i)).c_str());
    ASSERT_NE(entry, nullptr) << i;
    EXPECT_EQ(entry->data, &data[i]) << i;
  }
  EXPECT_EQ(table.findString("again")->data, &newer);
  table.removeString("again");
  EXPECT_EQ(table.findString("again")->data, &older);
  table.removeString("again");
  EXPECT_EQ(table.findString("again"), nullptr);
  EXPECT_EQ(table.findString("N1000"), nullptr);
}

// Keys of one full hash share a chain whatever the bucket count: a few such
// pairs among 200,000 names are chance, many make every lookup walk them.
TEST(StringTableGrowth, NumberedNamesHashApart) {
  for (const char* prefix : {"N", "Transform_"}) {
    std::unordered_set<uint32_t> hashes;
    for (int i = 0; i < 200000; i++) {
      hashes.insert(StringTable::hashString((prefix + std::to_string(i)).c_str()));
    }
    EXPECT_GE(hashes.size(), 199990u) << prefix;
  }
}

// The number that ends a key, its last nine digits, is added to the hash of
// the rest and of the count of digits: keys of one length and one beginning
// never share a hash, as numbers of more digits taken modulo 2^32 would.
TEST(StringTableGrowth, ConsecutiveNumbersHashToConsecutiveValues) {
  struct Neighbours {
    const char* key;
    const char* next;
  } const kNeighbours[] = {
      {"N123", "N124"}, {"Transform_9", "Transform_10"},  // one digit more: not neighbours
      {"T7_0", "T7_1"}, {"x123456789012", "x123456789013"}, {"N01", "N02"},
  };
  for (const Neighbours& pair : kNeighbours) {
    bool sameDigits = strlen(pair.key) == strlen(pair.next);
    EXPECT_EQ(StringTable::hashString(pair.next) - StringTable::hashString(pair.key) == 1, sameDigits)
        << pair.key;
  }
  EXPECT_NE(StringTable::hashString("N1"), StringTable::hashString("N01"));
  EXPECT_NE(StringTable::hashString("x1000000000"), StringTable::hashString("x2000000000"));
  EXPECT_NE(StringTable::hashString("N10000000000"), StringTable::hashString("N14294967296"));
  EXPECT_NE(StringTable::hashString("a"), StringTable::hashString("b"));
}

}  // namespace
