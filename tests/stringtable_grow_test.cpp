// The string table grows past one entry a bucket: every key is still found,
// and a key added again before and after a growth hides the older entry until
// it is removed. Numbered names, as large worlds have them, hash apart.
#include "stringtable.h"

#include <gtest/gtest.h>

#include <string>
#include <unordered_set>
#include <vector>

namespace {

TEST(StringTableGrowth, KeysAndHiddenEntriesSurviveGrowing) {
  StringTable table(3, nullptr);  // grows at 7, 15, 31, ... entries
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

}  // namespace
