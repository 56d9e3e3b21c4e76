// String table: chained hashing; the buckets grow when the chains grow long.
#include "stringtable.h"

#include <cctype>
#include <cstddef>
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

namespace {

// The start of the number that ends a key: its last nine digits at most.
// Below 10^9 the numbers of two keys that differ in them alone differ as
// 32-bit values too, so such keys never share a hash.
constexpr ptrdiff_t kNumberDigits = 9;

const char* closingNumber(const char* key, const char* end) {
  const char* number = end;
  while (number != key && end - number < kNumberDigits &&
         isdigit(static_cast<unsigned char>(number[-1]))) {
    number--;
  }
  return number;
}

bool isOddPrime(int32_t number) {
  if (number % 2 == 0) return false;
  for (int32_t divisor = 3; divisor <= number / divisor; divisor += 2) {
    if (number % divisor == 0) return false;
  }
  return true;
}

}  // namespace

// FNV-1a over the bytes before the key's closing number and over the count of
// its digits (N01 is not N1), then a final mix; the number is added last.
// Names of large worlds are mostly numbered (N1, N2, ...) and met in the order
// of their numbers, so consecutive names fall in neighbouring buckets: the
// lookups of a large world go through the buckets and the entries in order,
// and find them in the processor's cache, where random buckets miss it.
uint32_t StringTable::hashString(const char* key) {
  const char* end = key + strlen(key);
  const char* number = closingNumber(key, end);
  uint32_t hash = 2166136261u;
  for (const char* p = key; p != number; p++) {
    hash ^= static_cast<unsigned char>(*p);
    hash *= 16777619u;
  }
  hash ^= uint32_t(end - number);
  hash *= 16777619u;
  hash ^= hash >> 16;
  hash *= 0x85EBCA6Bu;
  hash ^= hash >> 13;
  uint32_t value = 0;
  for (const char* p = number; p != end; p++) value = value * 10 + uint32_t(*p - '0');
  return hash + value;
}

// More entries than buckets: the first prime above twice the buckets. Names
// numbered in steps (N10, N20, ...) hash in the same steps, which a prime
// count of buckets shares no factor with: they spread over all the buckets.
// Each chain keeps its order, so that a key added again still hides the older.
void StringTable::grow() {
  int32_t oldCount = bucketCount;
  Entry** oldBuckets = buckets;
  bucketCount = oldCount * 2 + 1;
  while (!isOddPrime(bucketCount)) bucketCount += 2;
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
