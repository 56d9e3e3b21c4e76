// Memory of a run: every block and every large object carries a link in a
// ring of its heap, so that the end of the run frees whatever is left. Small
// records and small objects are cut from the blocks; a small object given back
// waits for the next of its size, so that the heap of a long run is not walked
// again and again by the allocator's merging of freed chunks. Under the
// sanitizers each record and object is its own allocation, so that the
// redzones guard it and a use after its release is seen.
#include "runheap.h"

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <new>

#include "main.h"

namespace {

RunHeap::Link* linkOf(void* object) { return static_cast<RunHeap::Link*>(object) - 1; }

// A run that would hold more than its limit stops as one that the system
// refused memory: before the system kills it for taking all there is.
void* allocateLinked(size_t size) {
  size += sizeof(RunHeap::Link);
  RunContext& run = *currentRun;
  if (run.heapLimit != 0 && size > run.heapLimit - std::min(run.heapBytes, run.heapLimit)) {
    throw std::bad_alloc();
  }
  auto* link = static_cast<RunHeap::Link*>(calloc(1, size));
  if (link == nullptr) throw std::bad_alloc();
  run.heapBytes += size;
  link->size = size;
  RunHeap::Link* ring = &run.heap->objects;
  link->previous = ring;
  link->next = ring->next;
  ring->next->previous = link;
  ring->next = link;
  return link + 1;
}

#ifndef WORLDPARE_SANITIZE
constexpr size_t kBlockSize = size_t(1) << 20;
constexpr size_t kObjectGrain = 8;

char* cutFromBlock(RunHeap* heap, size_t size) {
  if (size_t(heap->blockEnd - heap->blockNext) < size) {
    heap->blockNext = static_cast<char*>(allocateLinked(kBlockSize));
    heap->blockEnd = heap->blockNext + kBlockSize;
  }
  char* piece = heap->blockNext;
  heap->blockNext += size;
  return piece;
}

// A small object is preceded by one word: the address of the free list that
// takes it back (that of its size in the heap that made it) with the low bit
// set. The word before a linked allocation is the next link of its ring, an
// aligned address, so the bit tells the two apart.
void* allocateSmall(size_t size) {
  size_t sizeClass = (size - 1) / kObjectGrain;
  size = (sizeClass + 1) * kObjectGrain;
  RunHeap* heap = currentRun->heap;
  void*& freeList = heap->freeObjects[sizeClass];
  if (freeList != nullptr) {
    void* object = freeList;
    freeList = *static_cast<void**>(object);
    return memset(object, 0, size);
  }
  auto* header = reinterpret_cast<uintptr_t*>(cutFromBlock(heap, sizeof(uintptr_t) + size));
  *header = reinterpret_cast<uintptr_t>(&freeList) | 1;
  return header + 1;
}
#endif

}  // namespace

void* allocateObject(size_t size) {
#ifndef WORLDPARE_SANITIZE
  if (size != 0 && size <= RunHeap::kObjectClasses * kObjectGrain) return allocateSmall(size);
#endif
  return allocateLinked(size);
}

void releaseObject(void* object) {
  if (object == nullptr) return;
  uintptr_t header = static_cast<uintptr_t*>(object)[-1];
  if ((header & 1) != 0) {
    auto** freeList = reinterpret_cast<void**>(header & ~uintptr_t(1));
    *static_cast<void**>(object) = *freeList;
    *freeList = object;
    return;
  }
  RunHeap::Link* link = linkOf(object);
  link->previous->next = link->next;
  link->next->previous = link->previous;
  currentRun->heapBytes -= std::min(currentRun->heapBytes, link->size);
  free(link);
}

#ifdef WORLDPARE_SANITIZE
// Each piece is its own object, so that a use after the release is seen.
constexpr size_t kFirstArenaBlock = 0;
#else
constexpr size_t kFirstArenaBlock = size_t(1) << 10;
#endif
constexpr size_t kLargestArenaBlock = size_t(64) << 10;

void* RunArena::allocate(size_t size) {
  size = (size + 7) & ~size_t(7);
  if (size_t(end - free) < size) {
    blockSize = std::max(size, blocks == nullptr ? kFirstArenaBlock
                                                 : std::min(2 * blockSize, kLargestArenaBlock));
    auto* block = static_cast<Block*>(allocateObject(sizeof(Block) + blockSize));
    block->next = blocks;
    blocks = block;
    free = reinterpret_cast<char*>(block + 1);
    end = free + blockSize;
  }
  void* piece = free;
  free += size;
  return piece;
}

void RunArena::release() {
  while (blocks != nullptr) {
    Block* next = blocks->next;
    releaseObject(blocks);
    blocks = next;
  }
  blockSize = 0;
  free = end = nullptr;
}

char* copyObjectString(const char* text) {
  size_t length = strlen(text);
  char* copy = newObjectArray<char>(length + 1);
  memcpy(copy, text, length);
  return copy;
}

void* allocateRecord(size_t size) {
#ifdef WORLDPARE_SANITIZE
  return allocateObject(size != 0 ? size : 1);
#else
  size = (size + 7) & ~size_t(7);
  if (size > kBlockSize / 4) return allocateLinked(size);
  return cutFromBlock(currentRun->heap, size);
#endif
}

char* copyString(const char* text, size_t length) {
  char* copy = newArray<char>(length + 1);
  memcpy(copy, text, length);
  return copy;
}

char* copyString(const char* text) { return copyString(text, strlen(text)); }

void beginRunHeap(RunHeap* heap) {
  heap->outer = currentRun->heap;
  currentRun->heap = heap;
}

void endRunHeap(RunHeap* heap) {
  RunHeap::Link* ring = &heap->objects;
  while (ring->next != ring) releaseObject(ring->next + 1);
  heap->blockNext = heap->blockEnd = nullptr;
  for (void*& freeList : heap->freeObjects) freeList = nullptr;
  currentRun->heap = heap->outer;
}
