// String table: chained hashing; the buckets grow when the chains grow long.
#include "stringtable.h"

#include <cstring>

StringTable::StringTable(int32_t count, void (*release)(void*))
    : bucketCount(count), buckets(newObjectArray<Entry*>(size_t(count))), releaseData(release) {}

StringTable::~StringTable() {
  for (int32_t i = 0; i < bucketCount; i++) {
    Entry* entry = buckets[i];
    while (entry != nullptr) {
      Entry* next = entry->next;
      if (releaseData != nullptr) releaseData(entry->data);
      releaseObject(entry);
      entry = next;
    }
  }
  releaseObject(buckets);
}

// FNV-1a over the bytes, then a final mix so that keys that differ in their
// last bytes only (N1, N2, ...) spread over the low bits that pick the bucket.
// Keys with equal full hashes share every chain that they fall in, so the
// hash must tell apart the names of large worlds, which are often numbered.
uint32_t StringTable::hashString(const char* key) {
  uint32_t hash = 2166136261u;
  for (const char* p = key; *p != 0; p++) {
    hash ^= static_cast<unsigned char>(*p);
    hash *= 16777619u;
  }
  hash ^= hash >> 16;
  hash *= 0x85EBCA6Bu;
  hash ^= hash >> 13;
  return hash;
}

// More entries than buckets: twice the buckets and one more.
// Each chain keeps its order, so that a key added again still hides the older.
void StringTable::grow() {
  int32_t oldCount = bucketCount;
  Entry** oldBuckets = buckets;
  bucketCount = oldCount * 2 + 1;
  buckets = newObjectArray<Entry*>(size_t(bucketCount));
  Entry*** tails = newObjectArray<Entry**>(size_t(bucketCount));
  for (int32_t i = 0; i < bucketCount; i++) tails[i] = &buckets[i];
  for (int32_t i = 0; i < oldCount; i++) {
    for (Entry* entry = oldBuckets[i]; entry != nullptr;) {
      Entry* next = entry->next;
      Entry**& tail = tails[entry->hash % uint32_t(bucketCount)];
      entry->next = nullptr;
      *tail = entry;
      tail = &entry->next;
      entry = next;
    }
  }
  releaseObject(tails);
  releaseObject(oldBuckets);
}

StringTable::Entry* StringTable::addString(const char* key, void* data) {
  if (++entryCount > bucketCount) grow();
  size_t length = strlen(key);
  auto* entry = static_cast<Entry*>(allocateObject(sizeof(Entry) + length + 1));
  memcpy(entry + 1, key, length + 1);
  entry->hash = hashString(key);
  entry->data = data;
  Entry** chain = chainOf(entry->hash);
  entry->next = *chain;
  *chain = entry;
  return entry;
}

StringTable::Entry* StringTable::findString(const char* key) const {
  uint32_t hash = hashString(key);
  for (Entry* entry = *chainOf(hash); entry != nullptr; entry = entry->next) {
    if (entry->hash == hash && strcmp(entry->key(), key) == 0) return entry;
  }
  return nullptr;
}

void StringTable::removeString(const char* key) {
  uint32_t hash = hashString(key);
  for (Entry** link = chainOf(hash); *link != nullptr; link = &(*link)->next) {
    Entry* entry = *link;
    if (entry->hash == hash && strcmp(entry->key(), key) == 0) {
      *link = entry->next;
      entryCount--;
      releaseObject(entry);
      return;
    }
  }
}
