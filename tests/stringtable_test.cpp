#include "stringtable.h"

#include <gtest/gtest.h>

namespace {

TEST(StringTableHash, ShiftsWrapBelowTwentyFour) {
  struct {
    const char* key;
    uint32_t hash;
  } cases[] = {
      {"", 0},
      {"a", 0x61},
      {"ab", 0x61 ^ (0x62 << 5)},
      // Eleven bytes of 1 land on bits 0, 5, 10, 15, 20, 2, 7, 12, 17, 22, 4.
      {"\x01\x01\x01\x01\x01\x01\x01\x01\x01\x01\x01",
       (1u << 0) | (1u << 5) | (1u << 10) | (1u << 15) | (1u << 20) | (1u << 2) | (1u << 7) |
           (1u << 12) | (1u << 17) | (1u << 22) | (1u << 4)},
      // A byte above 127 is sign-extended: all high bits set.
      {"\xff", 0xFFFFFFFFu},
      {"\xff\xff", 0xFFFFFFFFu ^ 0xFFFFFFE0u},
  };
  for (const auto& c : cases) EXPECT_EQ(StringTable::hashString(c.key), c.hash) << c.key;
}

TEST(StringTable, FindsByExactKeyWithCase) {
  StringTable table(211, nullptr);
  int transform = 1, empty = 2;
  table.addString("Transform", &transform);
  table.addString("", &empty);
  ASSERT_NE(table.findString("Transform"), nullptr);
  EXPECT_EQ(table.findString("Transform")->data, &transform);
  EXPECT_EQ(table.findString("transform"), nullptr);
  EXPECT_EQ(table.findString("Transfor"), nullptr);
  ASSERT_NE(table.findString(""), nullptr);
  EXPECT_EQ(table.findString("")->data, &empty);
}

TEST(StringTable, NewestEntryHidesAndRemovalUncovers) {
  StringTable table(211, nullptr);
  int first = 1, second = 2;
  table.addString("A", &first);
  table.addString("A", &second);
  EXPECT_EQ(table.findString("A")->data, &second);
  table.removeString("A");
  EXPECT_EQ(table.findString("A")->data, &first);
  table.removeString("A");
  EXPECT_EQ(table.findString("A"), nullptr);
  table.removeString("A");  // absent: no change
  EXPECT_EQ(table.findString("A"), nullptr);
}

TEST(StringTable, CollidingKeysShareABucket) {
  // Keys that hash to 1 and 212 fall in bucket 1 together.
  StringTable table(211, nullptr);
  int one = 1, other = 2;
  const char* a = "\x01";
  const char* b = "\x14\x06";  // 0x14 ^ (0x06 << 5) = 20 ^ 192 = 212
  ASSERT_EQ(StringTable::hashString(b) % 211, StringTable::hashString(a) % 211);
  table.addString(a, &one);
  table.addString(b, &other);
  EXPECT_EQ(table.findString(a)->data, &one);
  EXPECT_EQ(table.findString(b)->data, &other);
  table.removeString(b);
  EXPECT_EQ(table.findString(a)->data, &one);
}

}  // namespace
