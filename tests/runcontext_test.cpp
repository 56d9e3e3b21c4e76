// The flat map of the run's record: keys stay found across its growth, keys
// that differ in one member are apart, a NULL value is a value (a field with
// no IS link), and a walk meets every value once; texts are found by their
// bytes, and emplace keeps the first value of a key.
#include "runcontext.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace {

TEST(FlatMap, KeysStayFoundAsTheMapGrowsAndAreVisitedOnce) {
  constexpr int kKeys = 1000;  // many growths from the first 4 slots
  std::vector<VPNode*> nodes(kKeys);
  char bytes[kKeys];
  for (int i = 0; i < kKeys; i++) nodes[i] = reinterpret_cast<VPNode*>(&bytes[i]);
  const VPNode* root = nodes[0];
  FlatMap<ShadowKey, VPNode*> map;
  EXPECT_EQ(map.find({root, root}), nullptr);
  for (int i = 0; i < kKeys; i++) map[{nodes[i], root}] = nodes[kKeys - 1 - i];
  for (int i = 0; i < kKeys; i++) {
    VPNode** found = map.find({nodes[i], root});
    ASSERT_NE(found, nullptr) << i;
    EXPECT_EQ(*found, nodes[kKeys - 1 - i]) << i;
    EXPECT_EQ(map.find({nodes[i], nodes[1]}), nullptr) << i;  // same node, another root
  }
  map[{nodes[5], root}] = nodes[5];  // a present key keeps its slot
  EXPECT_EQ(*map.find({nodes[5], root}), nodes[5]);
  map[{nodes[7], nodes[2]}] = nullptr;
  VPNode** none = map.find({nodes[7], nodes[2]});
  ASSERT_NE(none, nullptr);
  EXPECT_EQ(*none, nullptr);
  std::vector<int> visits(kKeys);
  int nullVisits = 0;
  map.forEachValue([&](VPNode* value) {
    if (value == nullptr) {
      nullVisits++;
    } else {
      visits[reinterpret_cast<char*>(value) - bytes]++;
    }
  });
  EXPECT_EQ(nullVisits, 1);
  for (int i = 0; i < kKeys; i++) EXPECT_EQ(visits[i], i == kKeys - 1 - 5 ? 0 : i == 5 ? 2 : 1) << i;
  map.clear();
  EXPECT_EQ(map.find({nodes[3], root}), nullptr);
}

// A key whose hash is its number in the top 12 bits, as the hash of a small
// double is; it counts the comparisons that probes make.
struct HighBitsKey {
  uint64_t number;
  static inline long comparisons = 0;
  bool operator==(const HighBitsKey& other) const {
    comparisons++;
    return number == other.number;
  }
  size_t hash() const { return size_t(number << 52); }
};

TEST(FlatMap, KeysWhoseHashesDifferInTheirHighBitsSpread) {
  HighBitsKey::comparisons = 0;
  FlatMap<HighBitsKey, int> map;
  for (uint64_t k = 1; k <= 4000; k++) map[{k}] = int(k);
  for (uint64_t k = 1; k <= 4000; k++) EXPECT_EQ(*map.find({k}), int(k));
  // Two lookups of each key, and the growths: a few comparisons each, where
  // keys in one chain of slots take tens of millions.
  EXPECT_LT(HighBitsKey::comparisons, 100000);
}

TEST(FlatMap, TextsAreFoundByTheirBytesAndEmplaceKeepsTheFirst) {
  constexpr int kKeys = 500;
  std::vector<std::string> names, probes;
  for (int i = 0; i < kKeys; i++) {
    names.push_back("e" + std::to_string(i));
    probes.push_back("e" + std::to_string(i));  // the same bytes elsewhere
  }
  FlatMap<TextKey, int> map;
  EXPECT_TRUE(map.empty());
  for (int i = 0; i < kKeys; i++) EXPECT_TRUE(map.emplace(names[i].c_str(), i));
  EXPECT_FALSE(map.empty());
  EXPECT_FALSE(map.emplace(probes[7].c_str(), -1));
  for (int i = 0; i < kKeys; i++) {
    const int* found = map.find(probes[i].c_str());
    ASSERT_NE(found, nullptr) << i;
    EXPECT_EQ(*found, i);
  }
  EXPECT_EQ(map.find("e"), nullptr);        // a prefix of every key
  EXPECT_EQ(map.find("e10x"), nullptr);     // a key with more after it
  const int* shorter = map.find(std::string_view("e12", 2));  // a view ends where it says
  ASSERT_NE(shorter, nullptr);
  EXPECT_EQ(*shorter, 1);
}

}  // namespace
