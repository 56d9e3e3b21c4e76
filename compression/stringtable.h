// String table: the one associative container of the program, a chained hash
// table from NUL-ended strings to one pointer. It grows with its entries, so
// that a lookup stays short however many names a world has; nothing walks it,
// so no output depends on its bucket count.
// Its memory is the run's (runheap.h); includes no other module.
#ifndef WORLDPARE_STRINGTABLE_H
#define WORLDPARE_STRINGTABLE_H

#include <cstdint>

#include "runheap.h"

/// The buckets of a new table. Most tables hold a few names (the DEF names
/// of one PROTO body, the variables of one call), and a table grows as it
/// fills, so each starts small.
constexpr int32_t kFirstBucketCount = 7;

class StringTable {
 public:
  /// One key and its datum; the chain of a bucket is newest first. The key's
  /// bytes follow the entry in the same object, so that a lookup that finds
  /// the entry finds its key in the same line of memory.
  struct Entry {
    Entry* next;
    void* data;     ///< not owned unless releaseData says so
    uint32_t hash;  ///< full hash of the key, not reduced by the bucket count
    const char* key() const { return reinterpret_cast<const char*>(this + 1); }
  };

  StringTable(int32_t bucketCount, void (*releaseData)(void*));
  ~StringTable();
  StringTable(const StringTable&) = delete;
  StringTable& operator=(const StringTable&) = delete;
  RUN_HEAP_OBJECT

  /// Puts a new entry at the head of its chain; a present key is hidden, not replaced.
  Entry* addString(const char* key, void* data);
  Entry* findString(const char* key) const;
  void removeString(const char* key);

  static uint32_t hashString(const char* key);

 private:
  Entry** chainOf(uint32_t hash) const { return &buckets[hash % uint32_t(bucketCount)]; }
  void grow();

  int32_t bucketCount;
  int32_t entryCount = 0;
  Entry** buckets;
  void (*releaseData)(void*);
};

#endif
