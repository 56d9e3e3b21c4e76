// The run heap: every object comes zeroed and aligned, also when it reuses
// the memory of one given back, and no object overlaps another of any size.
#include "runheap.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <cstring>
#include <utility>
#include <vector>

#include "main.h"

namespace {

bool allBytesAre(const unsigned char* bytes, size_t size, unsigned char value) {
  for (size_t i = 0; i < size; i++) {
    if (bytes[i] != value) return false;
  }
  return true;
}

TEST(RunHeap, ObjectsComeZeroedAlignedAndApartAlsoWhenReused) {
  RunHeap heap;
  beginRunHeap(&heap);
  constexpr size_t kLargest = 400;  // past the sizes that are kept for reuse
  std::vector<std::pair<unsigned char*, size_t>> standing;
  for (int round = 0; round < 3; round++) {
    for (size_t size = 1; size <= kLargest; size++) {
      auto* object = static_cast<unsigned char*>(allocateObject(size));
      ASSERT_EQ(reinterpret_cast<uintptr_t>(object) % alignof(std::max_align_t), 0u) << size;
      ASSERT_TRUE(allBytesAre(object, size, 0)) << "round " << round << ", size " << size;
      memset(object, 0xFF, size);
      standing.push_back({object, size});
    }
    // Every other object goes back; the next round takes their memory again.
    std::vector<std::pair<unsigned char*, size_t>> kept;
    for (size_t i = 0; i < standing.size(); i++) {
      if (i % 2 == 0) {
        releaseObject(standing[i].first);
      } else {
        kept.push_back(standing[i]);
      }
    }
    standing.swap(kept);
  }
  for (auto [object, size] : standing) EXPECT_TRUE(allBytesAre(object, size, 0xFF)) << size;
  endRunHeap(&heap);
}

}  // namespace
