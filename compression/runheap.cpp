// Memory of a run: every allocation carries a link in a ring of its heap, so
// that the end of the run frees whatever is left. Small records are cut from
// blocks of that ring; under the sanitizers each record is its own allocation,
// so that the redzones guard it.
#include "runheap.h"

#include <cstdlib>
#include <cstring>
#include <new>

#include "main.h"

namespace {

#ifndef WORLDPARE_SANITIZE
constexpr size_t kBlockSize = size_t(1) << 20;
#endif

RunHeap::Link* linkOf(void* object) { return static_cast<RunHeap::Link*>(object) - 1; }

}  // namespace

void* allocateObject(size_t size) {
  auto* link = static_cast<RunHeap::Link*>(calloc(1, sizeof(RunHeap::Link) + size));
  if (link == nullptr) throw std::bad_alloc();
  RunHeap::Link* ring = &currentRun->heap->objects;
  link->previous = ring;
  link->next = ring->next;
  ring->next->previous = link;
  ring->next = link;
  return link + 1;
}

void releaseObject(void* object) {
  if (object == nullptr) return;
  RunHeap::Link* link = linkOf(object);
  link->previous->next = link->next;
  link->next->previous = link->previous;
  free(link);
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
  if (size > kBlockSize / 4) return allocateObject(size);
  RunHeap* heap = currentRun->heap;
  if (size_t(heap->blockEnd - heap->blockNext) < size) {
    heap->blockNext = static_cast<char*>(allocateObject(kBlockSize));
    heap->blockEnd = heap->blockNext + kBlockSize;
  }
  void* record = heap->blockNext;
  heap->blockNext += size;
  return record;
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
  currentRun->heap = heap->outer;
}
