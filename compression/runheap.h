// Memory of a run: records that live as long as the run, and objects that a
// pass may free sooner. Everything taken here is freed when the run ends,
// however it ends, so one process can run the tool any number of times.
// Includes no other module.
#ifndef WORLDPARE_RUNHEAP_H
#define WORLDPARE_RUNHEAP_H

#include <cstddef>

/// Zeroed memory for a record or string that lives until the run ends.
void* allocateRecord(size_t size);
template <class Record>
Record* newRecord() {
  return static_cast<Record*>(allocateRecord(sizeof(Record)));
}
template <class Element>
Element* newArray(size_t count) {
  return static_cast<Element*>(allocateRecord(sizeof(Element) * count));
}
/// An owned copy of the first `length` bytes of `text`, NUL-ended.
char* copyString(const char* text, size_t length);
char* copyString(const char* text);

/// Zeroed memory, 8-aligned, of an object that may be given back before the run ends.
void* allocateObject(size_t size);
void releaseObject(void* object);
template <class Element>
Element* newObjectArray(size_t count) {
  return static_cast<Element*>(allocateObject(sizeof(Element) * count));
}
char* copyObjectString(const char* text);

/// Class-wide new and delete of a type whose objects come from the run's heap.
#define RUN_HEAP_OBJECT                                                       \
  static void* operator new(size_t size) { return allocateObject(size); }    \
  static void operator delete(void* object) { releaseObject(object); }

/// Memory for pieces that all end together: release() gives back at once all
/// that was allocated since the last release. Its blocks grow from small, so
/// that an arena that holds little costs little. It needs no destructor while
/// it is empty, and the heap that made its blocks frees them in any case.
class RunArena {
 public:
  /// Uninitialised memory for a piece, 8-aligned.
  void* allocate(size_t size);
  void release();

 private:
  struct Block {
    Block* next;
  };
  Block* blocks = nullptr;  ///< the newest first
  size_t blockSize = 0;     ///< of the newest
  char* free = nullptr;     ///< the unused part of the newest
  char* end = nullptr;
};

/// The memory of one run. Made the current heap by beginRunHeap; endRunHeap
/// frees all that it still holds and makes the heap before it current again.
/// Outside any run a heap of the process serves, never freed.
struct RunHeap {
  struct Link {
    size_t size;  ///< of the allocation, this link included
    Link* previous;
    Link* next;  ///< the word before the allocation's memory: an aligned address
  };
  static constexpr size_t kObjectClasses = 32;  ///< small objects: 8, 16, ... 256 bytes
  Link objects = {0, &objects, &objects};  ///< a ring of the blocks and of the larger objects
  char* blockNext = nullptr;            ///< the free part of the block of small records
  char* blockEnd = nullptr;
  void* freeObjects[kObjectClasses] = {};  ///< given-back small objects, by size
  RunHeap* outer = nullptr;
};
void beginRunHeap(RunHeap* heap);
void endRunHeap(RunHeap* heap);

#endif
