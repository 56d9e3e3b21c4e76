// The record of one run: its options, its memory, its reports and what the
// passes carry from one call to the next. A thread runs one run at a time and
// reaches its record through `currentRun`, which the run sets on the thread
// of its passes; runs on two threads share nothing. Outside any run the
// process's own record serves (a test or a fuzz target calling a pass).
// Includes no other module but the run heap.
#ifndef WORLDPARE_RUNCONTEXT_H
#define WORLDPARE_RUNCONTEXT_H

#include <cstdint>
#include <deque>
#include <string>
#include <string_view>
#include <unordered_map>
#include <unordered_set>
#include <vector>

#include "runheap.h"

struct Diagnostics;
struct JSFunction;
struct JSParser;
struct VPEventRecord;
struct VPField;
struct VPFieldList;
struct VPFuzzyValue;
struct VPNode;
struct VPSending;
struct VPIsLink;
struct VPRoute;
struct VPRouteList;
struct VPShadow;

/// The hash of a key of a FlatMap: a record of pointers hashes itself.
template <class Key>
size_t flatHash(const Key& key) {
  return key.hash();
}
template <class Pointee>
size_t flatHash(Pointee* key) {
  return reinterpret_cast<uintptr_t>(key);
}

/// A text that outlives the map, with its hash: only texts of one hash are
/// compared, so a probe past other keys reads no text of theirs.
struct TextKey {
  std::string_view text;
  size_t textHash = 0;

  TextKey() = default;
  TextKey(std::string_view view) : text(view), textHash(std::hash<std::string_view>()(view)) {}
  TextKey(const char* view) : TextKey(std::string_view(view)) {}
  bool operator==(const TextKey& other) const { return textHash == other.textHash && text == other.text; }
  size_t hash() const { return textHash; }
};

/// Whether a key marks a free slot: the zeroed key, or a text that is no view.
template <class Key>
bool isFreeKey(const Key& key) {
  return key == Key{};
}
inline bool isFreeKey(const TextKey& key) { return key.text.data() == nullptr; }

/// A map from a pointer, a record of pointers or a text, all in one array
/// probed in turn: a lookup in a map of a million keys touches one line of
/// memory where a map of linked entries touches three. A free key
/// (isFreeKey) marks a free slot, so no key may be one; nothing is ever
/// removed. A reference to a value holds until the next insertion.
template <class Key, class Value>
class FlatMap {
 public:
  /// The value of the key, or NULL.
  Value* find(const Key& key) {
    if (slots.empty()) return nullptr;
    Slot& slot = slotOf(key);
    return isFreeKey(slot.key) ? nullptr : &slot.value;
  }
  const Value* find(const Key& key) const { return const_cast<FlatMap*>(this)->find(key); }
  /// The value of the key, made value-initialised if it is new.
  Value& operator[](const Key& key) { return insert(key).first; }
  /// Gives the key the value unless it has one; true if it had none.
  bool emplace(const Key& key, const Value& value) {
    std::pair<Value&, bool> slot = insert(key);
    if (slot.second) slot.first = value;
    return slot.second;
  }
  bool empty() const { return count == 0; }
  template <class Visit>
  void forEachValue(Visit visit) {
    for (Slot& slot : slots) {
      if (!isFreeKey(slot.key)) visit(slot.value);
    }
  }
  void clear() {
    slots.clear();
    count = 0;
  }

 private:
  struct Slot {
    Key key;
    Value value;
  };

  std::pair<Value&, bool> insert(const Key& key) {
    if (2 * (count + 1) > slots.size()) grow();
    Slot& slot = slotOf(key);
    bool isNew = isFreeKey(slot.key);
    if (isNew) {
      slot.key = key;
      count++;
    }
    return {slot.value, isNew};
  }
  // The first slot is the top bits of the hash times an odd constant: each of
  // them depends on every bit of the hash, so keys whose hashes differ only
  // in their high bits (the bits of small doubles) spread as well as any.
  Slot& slotOf(const Key& key) {
    size_t mask = slots.size() - 1;
    int slotBits = __builtin_ctzll(slots.size());
    size_t index = size_t((uint64_t(flatHash(key)) * 0x9E3779B97F4A7C15ull) >> (64 - slotBits));
    while (!isFreeKey(slots[index].key) && !(slots[index].key == key)) index = (index + 1) & mask;
    return slots[index];
  }
  void grow() {
    std::vector<Slot> old(slots.empty() ? 4 : 2 * slots.size());
    old.swap(slots);
    for (Slot& slot : old) {
      if (!isFreeKey(slot.key)) slotOf(slot.key) = std::move(slot);
    }
  }

  std::vector<Slot> slots;  ///< a power of two of them, at most half full
  size_t count = 0;
};

/// A field of a node, read with or without shadows mapped to body nodes.
struct LinkedValueKey {
  const VPNode* node;
  const VPField* field;
  int mapShadows;
  bool operator==(const LinkedValueKey& other) const {
    return node == other.node && field == other.field && mapShadows == other.mapShadows;
  }
  size_t hash() const {
    return reinterpret_cast<uintptr_t>(node) * 31 + reinterpret_cast<uintptr_t>(field) * 2 +
           size_t(mapShadows);
  }
};

/// The events that a Script ran since the latest new fuzzy value: where its
/// list of records ends, and the names of those that ran with a value that
/// nothing is known of, which need not run again.
struct ScriptEvents {
  int changeCount = 0;  ///< the fuzzyChangeCount of every record in the list
  VPEventRecord** tail = nullptr;
  FlatMap<TextKey, bool> unknownNames;  ///< field names, which last as long as the run
  FlatMap<TextKey, uint32_t> knownEvents;  ///< --vrml97: events of known value, by field name
};

/// The records of a node with many, by field: in step with the node's first
/// record, as records come only at the head of the list, except while the
/// merges of shadows build a body node's list (CascadeState::recordListEdits).
struct RecordIndex {
  const VPFuzzyValue* head = nullptr;
  long edits = -1;
  FlatMap<const VPField*, VPFuzzyValue*> byField;
};

/// What the cascade counts and keeps while it simulates.
struct CascadeState {
  int fuzzyChangeCount = 0;   ///< new records made by storeEvent: the measure of progress
  long recordChanges = 0;     ///< changes that storeEvent made to records, new or old
  int cascadeEventCount = 0;  ///< deliveries since the last new record (--vrml97: or since
                              ///< the event entered the cascade)
  int loopCheckArmed = 1;     ///< falls to 0 when the loop message has been given
  int eventDepth = 0;         ///< deliveries now nested in one event chain
  VPSending* freeSendings = nullptr;  ///< --vrml97: marks of fields that sent, for reuse
  /// --vrml97: the nodes that an opaque Script reaches through node fields.
  std::unordered_set<const VPNode*> opaqueReach;
  /// By Script node, while its list of event records is not empty.
  std::unordered_map<const VPNode*, ScriptEvents> scriptEvents;
  /// While the shadows' values are merged nothing changes them: what a field
  /// of an instance's copy takes through its IS links is gathered once
  /// (NULL: the field has no link). Keyed by node, field and mapShadows.
  bool linkedValuesKept = false;
  FlatMap<LinkedValueKey, VPFuzzyValue*> linkedValues;
  std::unordered_map<const VPNode*, RecordIndex> recordIndexes;
  long recordListEdits = 0;  ///< lists of records built by merges of shadows
};

/// Where each name and each field first stands in a long field list, so that
/// a Script with thousands of fields finds one at once. The cells that the
/// list has gained at its end since are added at the next search.
struct FieldListIndex {
  const VPFieldList* tail = nullptr;  ///< the last cell indexed
  size_t length = 0;
  int unlinked = 0;  ///< RunContext::fieldCellsUnlinked when the index was made
  /// By name, the position and cell of the first cell of that name, and of
  /// the first exposedField of that name.
  FlatMap<TextKey, std::pair<size_t, VPFieldList*>> firstNamed;
  FlatMap<TextKey, std::pair<size_t, VPFieldList*>> firstExposed;
  /// By name, the position and cell of the last cell of that name.
  FlatMap<TextKey, std::pair<size_t, VPFieldList*>> lastNamed;
  FlatMap<const VPField*, VPFieldList*> firstOfField;
};

/// The IS links of a long list by node, node field and PROTO field, each in
/// the order of the list; cells unlinked since stay until their key's turn.
struct IsLinkIndex {
  long isLinksAdded = 0;  ///< RunContext::isLinksAdded when the index was made
  std::unordered_map<std::string, std::vector<VPIsLink*>> byKey;
};

struct RouteIndex {
  long routesAdded = 0;  ///< RunContext::routesAdded when the index was made
  /// In the order of the list; routes unlinked since stay until their field's turn.
  FlatMap<const VPField*, std::vector<VPRoute*>> byField;
};

/// A body node of a PROTO and the instance for which it was copied.
struct ShadowKey {
  const VPNode* original;
  const VPNode* root;
  bool operator==(const ShadowKey& other) const {
    return original == other.original && root == other.root;
  }
  size_t hash() const {
    return reinterpret_cast<uintptr_t>(original) * 31 + reinterpret_cast<uintptr_t>(root);
  }
};

/// The expansion of a copy of an instance, made for an instance in a PROTO
/// declaration, put off until the scan has made all other copies.
struct DeferredExpansion {
  VPNode* root;
  /// Where it was put off: the copies made before it, by the scan or by the
  /// expansion that made the root.
  uint64_t position;
  std::vector<VPShadow*> copies;  ///< made by this expansion, in order
  std::vector<DeferredExpansion*> nested;  ///< put off by this expansion, in order
};

/// Copies made for the instances in PROTO declarations. Nothing runs them;
/// they only add their values to the records of the body nodes. Copies made
/// for two instances of one PROTO with the same values add the same values, so
/// after the scan only the newest of them is expanded: its copies stand before
/// the others' in the lists of shadows, and the records take the same values
/// in the same order (see VPShadow::madeAt).
struct DeclarationCopies {
  bool deferring = false;  ///< the scene's events cannot reach a PROTO body
  uint64_t copiesMade = 0;  ///< by the scan
  DeferredExpansion* expanding = nullptr;  ///< the late expansion under way
  std::deque<DeferredExpansion> expansions;
  std::vector<DeferredExpansion*> deferredByScan;  ///< in the order put off
  std::vector<VPNode*> lateShadowed;  ///< body nodes that a late expansion copied
};

/// Where the VRML writer stands between two pieces of text.
struct WriterSpacing {
  char last = '\n';       ///< the last byte written
  int number = 0;         ///< what the last token was: no number, a whole one, one with a point
  bool gapOwed = false;   ///< a gap stands before the next token
  bool lineOwed = false;  ///< the next token begins a line
};

/// What one reading of a world keeps beside its records: the cascade's state,
/// the writer's, and indexes that point into the records. It ends with them.
struct ReadingState {
  CascadeState cascade;
  WriterSpacing spacing;
  /// The copy of each body node made for each instance, as its shadow list
  /// holds it: found at once, however many instances a PROTO has.
  FlatMap<ShadowKey, VPNode*> shadowCopies;
  DeclarationCopies declarationCopies;
  /// The indexes of long field lists, by their first cell; each cell taken
  /// out of a field list counts here and makes every index be made again.
  std::unordered_map<const VPFieldList*, FieldListIndex> fieldIndexes;
  int fieldCellsUnlinked = 0;
  /// The routes of each field at one end of a long route list, by the list's
  /// head; an index is made again when routes have been added since.
  std::unordered_map<const VPRouteList* const*, RouteIndex> routeIndexes;
  long routesAdded = 0;
  /// The indexes of long IS link lists, by the list's head; made again when
  /// links have been added since.
  std::unordered_map<VPIsLink* const*, IsLinkIndex> isLinkIndexes;
  long isLinksAdded = 0;
  unsigned traversal = 1;  ///< the running traversal: the mark that visit() sets
  unsigned reachWalks = 0;  ///< the walks that collected nodes by their reach marks
  /// By script program, the first of its functions of each name.
  std::unordered_map<const JSParser*, FlatMap<TextKey, JSFunction*>> firstFunctions;
};

struct RunContext {
  int vrml97 = 0;  ///< --vrml97
  int digits = 0;  ///< --digits N with --vrml97, else 0
  RunHeap* heap;   ///< where records of the run come from
  Diagnostics* diagnostics;
  ReadingState reading;
  size_t heapBytes = 0;  ///< held by the records and objects of the run's heaps
  size_t heapLimit = 0;  ///< the most heapBytes may reach; 0: no limit
};

/// The record of the run on this thread. A plain thread-local pointer: it
/// needs no dynamic initialisation, so reading it costs one load.
extern __thread RunContext* currentRun;

#endif
