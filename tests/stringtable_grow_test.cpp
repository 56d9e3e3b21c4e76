// The string table grows past two entries a bucket: every key is still found,
// and a key added again before and after a growth hides the older entry until
// it is removed.
#include "stringtable.h"

#include <gtest/gtest.h>

#include <string>
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

}  // namespace
