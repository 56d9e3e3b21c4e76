// The run heap: every object comes zeroed and aligned, also when it reuses
// the memory of one given back, and no object overlaps another of any size;
// an arena's pieces stand apart over many blocks, round after round.
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
      ASSERT_EQ(reinterpret_cast<uintptr_t>(object) % 8, 0u) << size;
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

// Pieces of every size an arena takes, over several blocks, each filled with
// a byte of its own: a piece that overlapped another, or a block taken twice
// in one round, leaves a byte that is not its own.
TEST(RunArena, PiecesStandApartOverBlocksAndRounds) {
  RunHeap heap;
  beginRunHeap(&heap);
  RunArena arena;
  for (int round = 0; round < 3; round++) {
    std::vector<std::pair<unsigned char*, size_t>> pieces;
    for (int i = 0; i < 3000; i++) {
      // The first larger than any block, some later ones than the first block.
      size_t size = i == 0 ? 100000 : 1 + (i * 37 + round) % 1500;
      auto* piece = static_cast<unsigned char*>(arena.allocate(size));
      ASSERT_EQ(reinterpret_cast<uintptr_t>(piece) % 8, 0u) << size;
      memset(piece, i & 0xFF, size);
      pieces.push_back({piece, size});
    }
    for (size_t i = 0; i < pieces.size(); i++) {
      EXPECT_TRUE(allBytesAre(pieces[i].first, pieces[i].second, i & 0xFF)) << round << " " << i;
    }
    arena.release();
  }
  endRunHeap(&heap);
}

}  // namespace
