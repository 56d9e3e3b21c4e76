// Event cascade: fuzzy values, the scene objects of scripts, the routing of
// events, and the driver that simulates the whole world twice.
#include "vrmlcascade.h"

#include <cmath>
#include <cstdlib>
#include <cstring>
#include <optional>
#include <string_view>
#include <unordered_set>
#include <vector>

#include "main.h"

namespace {

// The counters and sets of the cascade, in the state of the reading.
CascadeState& cascade() { return currentRun->reading.cascade; }

constexpr int kEventLimit = 10000;
// --vrml97: a record of more values than this may hold, as far as the
// simulation knows, any value, and more events of known value on one eventIn
// of a Script run its function as one of unknown value. Each read of a field
// copies its cells, so a Script that read a field of n values in each of n
// statements cost n * n; the simulation need not know which of hundreds of
// values a field holds to keep what the world does. Node values stay known:
// they say which nodes a Script can reach.
constexpr uint32_t kMostKnownValues = 256;
constexpr int kActivityMask = FIELD_READ | FIELD_WRITE | FIELD_ROUTED_IN | FIELD_ROUTED_OUT;

// Types whose records follow values one by one; every other type's record
// falls to unknown at the first merge.
bool hasValueSets(int type) {
  switch (type) {
  case VPField::SFBool:
  case VPField::SFColor:
  case VPField::SFFloat:
  case VPField::SFInt32:
  case VPField::SFNode:
  case VPField::SFRotation:
  case VPField::SFString:
  case VPField::SFTime:
  case VPField::SFVec2f:
  case VPField::SFVec3f:
  case VPField::MFNode:
    return true;
  default:
    return false;
  }
}

// Types whose new records start from the field's value; the others start unknown.
bool isSeededType(int type) {
  switch (type) {
  case VPField::SFBool:
  case VPField::SFFloat:
  case VPField::SFInt32:
  case VPField::SFNode:
  case VPField::SFTime:
  case VPField::MFNode:
    return true;
  default:
    return false;
  }
}

VPValue* findEqualCell(VPValue* list, int type, const VPValue* cell) {
  for (VPValue* iter = list; iter != nullptr; iter = iter->next) {
    if (elementsEqual(type, iter, cell)) return iter;
  }
  return nullptr;
}

// Records shorter than this are walked.
constexpr int kIndexedLength = 32;

uint64_t mixedBits(uint64_t hash, uint64_t bits) {
  hash ^= bits + 0x9e3779b97f4a7c15u + (hash << 6) + (hash >> 2);
  hash ^= hash >> 31;
  hash *= 0xbf58476d1ce4e5b9u;
  return hash ^ (hash >> 29);
}

bool floatsHash(const float* floats, int count, uint64_t* hash) {
  uint64_t mixed = 0;
  for (int i = 0; i < count; i++) {
    if (std::isnan(floats[i])) return false;
    float value = floats[i] + 0.0f;  // -0 becomes 0, which it equals
    uint32_t bits;
    memcpy(&bits, &value, sizeof bits);
    mixed = mixedBits(mixed, bits);
  }
  *hash = mixed;
  return true;
}

// A hash that equal values share; false for a value with a float NaN, which
// equals every float and so no hash can place.
bool cellHash(int type, const VPValue* cell, uint64_t* hash) {
  switch (type) {
  case VPField::SFNode:
  case VPField::MFNode:
    *hash = mixedBits(0, reinterpret_cast<uintptr_t>(cell->node));
    return true;
  case VPField::SFBool:
  case VPField::SFInt32:
    *hash = mixedBits(0, uint32_t(cell->intValue));
    return true;
  case VPField::SFString:
    *hash = std::hash<std::string_view>()(cell->string);
    return true;
  case VPField::SFFloat:
  case VPField::SFTime:
    return floatsHash(&cell->floatValue, 1, hash);
  default:
    return floatsHash(cell->floats, tupleLength(type), hash);
  }
}

}  // namespace

// The cells of a long record by their values, so that a merge looks a value
// up instead of walking the record: a record may take a value from each of
// many events, or a body node a node from each of many instances. Open
// addressing in the run's heap. A record that holds a NaN, and a value that
// has one, are walked.
struct VPCellIndex {
  const VPValue* head;  ///< the record's first cell when the index was last in step
  const VPValue** slots;
  uint32_t mask;        ///< the number of slots less one, a power of two less one
  uint32_t count;       ///< cells in the slots
  uint32_t unhashed;    ///< cells with a NaN, left out of the slots
  RUN_HEAP_OBJECT

  ~VPCellIndex() { releaseObject(slots); }

  void add(int type, const VPValue* cell) {
    uint64_t hash;
    if (!cellHash(type, cell, &hash)) {
      unhashed++;
      return;
    }
    if (2 * (count + 1) > mask + 1) grow(type);
    place(cell, hash);
  }

  bool holds(int type, const VPValue* value, uint64_t hash) const {
    for (uint32_t slot = uint32_t(hash) & mask; slots[slot] != nullptr; slot = (slot + 1) & mask) {
      if (elementsEqual(type, slots[slot], value)) return true;
    }
    return false;
  }

 private:
  void place(const VPValue* cell, uint64_t hash) {
    uint32_t slot = uint32_t(hash) & mask;
    while (slots[slot] != nullptr) slot = (slot + 1) & mask;
    slots[slot] = cell;
    count++;
  }

  void grow(int type) {
    const VPValue** old = slots;
    uint32_t oldSize = mask + 1;
    mask = 2 * oldSize - 1;
    slots = newObjectArray<const VPValue*>(size_t(mask) + 1);
    count = 0;
    for (uint32_t i = 0; i < oldSize; i++) {
      uint64_t hash;
      if (old[i] != nullptr && cellHash(type, old[i], &hash)) place(old[i], hash);
    }
    releaseObject(old);
  }
};

namespace {

// Deletes record cells and their float arrays; strings stay with the run.
void releaseCells(VPValue* cells, int type) {
  while (cells != nullptr) {
    VPValue* next = cells->next;
    if (tupleLength(type) != 0) releaseObject(cells->floats);
    delete cells;
    cells = next;
  }
}

VPValue* pushCell(VPValue** list) {
  VPValue* cell = new VPValue{};
  cell->next = *list;
  *list = cell;
  return cell;
}

VPValue* reversedCells(VPValue* cells) {
  VPValue* reversed = nullptr;
  while (cells != nullptr) {
    VPValue* next = cells->next;
    cells->next = reversed;
    reversed = cells;
    cells = next;
  }
  return reversed;
}

// --vrml97: an EXTERNPROTO of the input does what it likes with its
// exposedFields, at any time; only the standard nodes are known.
bool isOpaqueField(const VPNode* node, const VPField* field) {
  return vrml97Option() && field->theClass == VPField::EXPOSED_FIELD && !field->holdsNodes() &&
         node->nodeType == VPNode::OTHER && node->other.baseProto->nodeType == VPNode::EXTERNPROTO &&
         !node->other.baseProto->declaration->isBuiltin;
}

bool isEventClass(const VPField* field) {
  return field->theClass == VPField::EVENT_IN || field->theClass == VPField::EVENT_OUT;
}

// The number of a script, truncated toward zero into the range of SFInt32.
int32_t truncateToInt32(double number) {
  if (std::isnan(number)) return 0;
  if (number >= 2147483647.0) return INT32_MAX;
  if (number <= -2147483648.0) return INT32_MIN;
  return int32_t(number);
}

// Marks what happened at a node's cell of a field. --vrml97: on an instance of
// a PROTO at the PROTO's cell as well, from which the pruning of the interface
// learns that the field is used, also when the instance's own cell is an IS
// that goes before.
void markActivity(VPNode* node, VPFieldList* cell, int flags) {
  cell->flags |= flags;
  if (!vrml97Option() || !node->isProtoInstance() || node->findField(cell->field) != cell) return;
  VPFieldList* declared = node->other.baseProto->findField(cell->field);
  CHECK(declared != NULL);
  declared->flags |= flags;
}

}  // namespace

VPNode* mappedNode(VPNode* node, int mapShadows) {
  if (mapShadows && (node->nodeType == VPNode::OTHER || node->nodeType == VPNode::SCRIPT) &&
      node->other.shadowedNode != nullptr) {
    return node->other.shadowedNode;
  }
  return node;
}

/* ---------------------------------------------------------------------------
 * Fuzzy values
 * ------------------------------------------------------------------------ */

void VPValue::setZero(int type) {
  switch (type) {
  case VPField::SFBool:
  case VPField::SFInt32:
    intValue = 0;
    return;
  case VPField::SFFloat:
  case VPField::SFTime:
    floatValue = 0;
    return;
  case VPField::SFNode:
    node = nullptr;
    return;
  case VPField::SFColor:
  case VPField::SFRotation:
  case VPField::SFVec2f:
  case VPField::SFVec3f:
    floats = newObjectArray<float>(size_t(tupleLength(type)));
    return;
  default:
    CHECK(0);
  }
}

void VPValue::copyValue(const VPValue* source, int type) {
  switch (type) {
  case VPField::SFBool:
  case VPField::SFInt32:
    intValue = source->intValue;
    return;
  case VPField::SFFloat:
  case VPField::SFTime:
    floatValue = source->floatValue;
    return;
  case VPField::SFNode:
  case VPField::MFNode:
    node = source->node;
    return;
  case VPField::SFColor:
  case VPField::SFRotation:
  case VPField::SFVec2f:
  case VPField::SFVec3f:
    floats = newObjectArray<float>(size_t(tupleLength(type)));
    memcpy(floats, source->floats, sizeof(float) * tupleLength(type));
    return;
  case VPField::SFString:
    string = copyString(source->string);
    return;
  default:
    CHECK(0);
  }
}

VPFuzzyValue::~VPFuzzyValue() {
  dropIndex();
  VPFuzzyValue* chain = next;
  while (chain != nullptr) {
    VPFuzzyValue* following = chain->next;
    chain->next = nullptr;
    delete chain;
    chain = following;
  }
}

void VPFuzzyValue::freeValues() {
  int type = field->theType;
  switch (type) {
  case VPField::SFBool:
  case VPField::SFFloat:
  case VPField::SFInt32:
  case VPField::SFNode:
  case VPField::SFTime:
  case VPField::MFNode:
  case VPField::SFColor:
  case VPField::SFRotation:
  case VPField::SFVec2f:
  case VPField::SFVec3f:
    break;
  default:
    if (values != nullptr) CHECK(0);
  }
  releaseCells(values, type);
  values = nullptr;
  dropIndex();
}

void VPFuzzyValue::becomeUnknown() {
  valueKnown = 0;
  freeValues();
}

void VPFuzzyValue::dropIndex() {
  delete index;
  index = nullptr;
}

// The index of a long record, in step with its cells; NULL for a short one.
VPCellIndex* VPFuzzyValue::cellIndex() {
  if (index != nullptr && index->head == values) return index;
  dropIndex();
  int length = 0;
  for (const VPValue* cell = values; cell != nullptr && length < kIndexedLength; cell = cell->next) {
    length++;
  }
  if (length < kIndexedLength) return nullptr;
  index = new VPCellIndex{values, newObjectArray<const VPValue*>(4 * kIndexedLength),
                          4 * kIndexedLength - 1, 0, 0};
  for (const VPValue* cell = values; cell != nullptr; cell = cell->next) index->add(field->theType, cell);
  return index;
}

bool VPFuzzyValue::holdsValue(const VPValue* value) {
  int type = field->theType;
  VPCellIndex* cells = cellIndex();
  uint64_t hash;
  if (cells == nullptr || cells->unhashed != 0 || !cellHash(type, value, &hash)) {
    return findEqualCell(values, type, value) != nullptr;
  }
  return cells->holds(type, value, hash);
}

bool VPFuzzyValue::holdsTooManyValues() const {
  return vrml97Option() && !field->holdsNodes() && index != nullptr && index->head == values &&
         index->count + index->unhashed > kMostKnownValues;
}

bool VPFuzzyValue::merge(const VPFuzzyValue* other, int mapShadows) {
  if (!valueKnown) return false;
  if (!other->valueKnown) {
    becomeUnknown();
    return true;
  }
  int type = field->theType;
  if (!hasValueSets(type)) {
    CHECK(values == NULL);
    valueKnown = 0;
    return true;
  }
  bool changed = false;
  for (const VPValue* iter = other->values; iter != nullptr; iter = iter->next) {
    if (stopsAtTwoValues && values != nullptr && values->next != nullptr) break;
    VPValue mapped = *iter;
    if (field->holdsNodes()) {
      if (iter->node == nullptr) continue;
      mapped.node = mappedNode(iter->node, mapShadows);
    }
    if (holdsValue(&mapped)) continue;
    if (type == VPField::SFBool && values != nullptr) {
      CHECK(iter->intValue != values->intValue);
      becomeUnknown();
      return true;
    }
    VPValue* cell = pushCell(&values);
    cell->copyValue(&mapped, type);
    if (index != nullptr && index->head == cell->next) {
      index->add(type, cell);
      index->head = cell;
    }
    if (holdsTooManyValues()) {
      becomeUnknown();
      return true;
    }
    changed = true;
  }
  return changed;
}

VPFuzzyValue* VPFuzzyValue::clone() const {
  VPFuzzyValue* copy = new VPFuzzyValue(field);
  copy->valueKnown = valueKnown;
  VPValue** last = &copy->values;
  for (const VPValue* cell = values; cell != nullptr; cell = cell->next) {
    *last = new VPValue{};
    (*last)->copyValue(cell, field->theType);
    last = &(*last)->next;
  }
  return copy;
}

bool VPFuzzyValue::sameUnknown(const VPFuzzyValue* other) const {
  CHECK(other->field->theType == field->theType);
  return !valueKnown && !other->valueKnown;
}

namespace {

// Nodes that opaque Scripts can reach, with the body nodes of those that are copies.

// An event of any value of the field's type; a node value is any of `nodes`.
VPFuzzyValue* anyValueEvent(VPField* field, const std::vector<VPNode*>& nodes) {
  VPFuzzyValue* event = new VPFuzzyValue(field);
  if (!field->holdsNodes()) {
    event->valueKnown = 0;
    return event;
  }
  for (VPNode* node : nodes) pushCell(&event->values)->node = node;
  return event;
}

// What a field of an opaque Script may hold: anything, or any node it reaches.
void mergeAnyValue(VPNode* script, VPFuzzyValue* result, int mapShadows) {
  VPFuzzyValue* any = anyValueEvent(result->field, script->nodesBelow());
  result->merge(any, mapShadows);
  any->freeValues();
  delete any;
}

}  // namespace

bool isReachedByOpaqueScript(const VPNode* node) {
  return cascade().opaqueReach.count(node) != 0;
}

bool VPNode::isOpaqueScript() const { return nodeType == SCRIPT && other.script.program->opaque; }

namespace {

// One entry into a script's code. Under --vrml97 a check that fails in it
// makes the code opaque instead of stopping the run: what the entry did so far
// stands, and another round of the simulation lets the opaque Script act.
template <class Entry>
void enterScript(JSParser* program, Entry entry) {
  if (!vrml97Option()) {
    entry();
  } else if (!program->opaque && !runTrial(entry)) {
    program->abandonEntry();
    cascade().fuzzyChangeCount++;
  }
}

}  // namespace

namespace {

// Lists of records longer than this are looked up in an index.
constexpr int kIndexedRecords = 32;

RecordIndex& recordIndexOf(VPNode* node) {
  CascadeState& state = cascade();
  RecordIndex& index = state.recordIndexes[node];
  if (index.head != node->other.values || index.edits != state.recordListEdits) {
    index.byField.clear();
    for (VPFuzzyValue* record = node->other.values; record != nullptr; record = record->next) {
      index.byField.emplace(record->field, record);
    }
    index.head = node->other.values;
    index.edits = state.recordListEdits;
  }
  return index;
}

// A record new at the head of the node's list joins an index in step with the list.
void indexNewRecord(VPNode* node, VPFuzzyValue* record) {
  CascadeState& state = cascade();
  auto found = state.recordIndexes.find(node);
  if (found == state.recordIndexes.end()) return;
  RecordIndex& index = found->second;
  if (index.head != record->next || index.edits != state.recordListEdits) return;
  index.byField[record->field] = record;
  index.head = record;
}

}  // namespace

VPFuzzyValue* VPNode::findFuzzy(const VPField* field) {
  int walked = 0;
  for (VPFuzzyValue* record = other.values; record != nullptr; record = record->next) {
    if (record->field == field) return record;
    if (++walked == kIndexedRecords) {
      RecordIndex& index = recordIndexOf(this);
      VPFuzzyValue** found = index.byField.find(field);
      return found != nullptr ? *found : nullptr;
    }
  }
  return nullptr;
}

namespace {

// A new record starts from where the field began: the zero of an event, the
// effective value of a field.
void seedRecord(VPNode* node, VPFuzzyValue* fuzzy) {
  VPField* field = fuzzy->field;
  int type = field->theType;
  if (!isSeededType(type)) {
    fuzzy->valueKnown = 0;
    return;
  }
  if (isEventClass(field)) {
    if (type != VPField::MFNode) pushCell(&fuzzy->values)->setZero(type);
    return;
  }
  VPFieldList* fieldList = node->findEffectiveField(field);
  if (fieldList->flags & FIELD_NO_DEFAULT) {
    if (!field->holdsNodes()) fuzzy->valueKnown = 0;
    return;
  }
  if (type == VPField::MFNode) {
    for (VPNodeList* cell = fieldList->value; cell != nullptr; cell = cell->next) {
      if (cell->node != nullptr) pushCell(&fuzzy->values)->node = cell->node;
    }
    return;
  }
  CHECK(fieldList->value != NULL);
  CHECK(fieldList->value->next == NULL);
  pushCell(&fuzzy->values)->copyValue(fieldList->value, type);
}

}  // namespace

void VPNode::storeEvent(VPFuzzyValue* eventData) {
  CHECK(nodeType == OTHER || nodeType == SCRIPT);
  VPField* field = eventData->field;
  if (isProtoInstance()) {
    bool linked = false;
    for (VPIsLink* link = other.generic.isLinks; link != nullptr; link = link->next) {
      if (link->protoField != field) continue;
      linked = true;
      eventData->field = link->nodeField;
      link->node->storeEvent(eventData);
      eventData->field = field;
    }
    if (linked) return;
  }
  VPFuzzyValue* fuzzy = findFuzzy(field);
  bool changed = fuzzy == nullptr;
  if (fuzzy == nullptr) {
    CHECK(findField (field) || other.baseProto->findField (field));
    cascade().cascadeEventCount = 0;
    cascade().fuzzyChangeCount++;
    fuzzy = new VPFuzzyValue(field);
    fuzzy->next = other.values;
    other.values = fuzzy;
    indexNewRecord(this, fuzzy);
    seedRecord(this, fuzzy);
  }
  if (field->holdsNodes()) CHECK(eventData->valueKnown && fuzzy->valueKnown);
  if (fuzzy->merge(eventData, 0)) changed = true;
  if (changed) cascade().recordChanges++;
}

// The values that a field of an instance takes from the body nodes it is IS
// to; false if it is IS to none. Kept while they cannot change: an instance n
// deep in others is read through once, not once for each around it.
bool VPNode::getLinkedValue(VPFuzzyValue* result, VPField* field, int mapShadows) {
  CascadeState& state = cascade();
  if (!state.linkedValuesKept) return mergeLinks(result, field, mapShadows);
  LinkedValueKey key = {this, field, mapShadows};
  VPFuzzyValue** found = state.linkedValues.find(key);
  if (found == nullptr) {
    VPFuzzyValue* gathered = new VPFuzzyValue(field);
    if (!mergeLinks(gathered, field, mapShadows)) {
      delete gathered;
      gathered = nullptr;
    }
    // Merged into a record, the reversed list adds its values in the order
    // that merging link after link into that record would have.
    if (gathered != nullptr) gathered->values = reversedCells(gathered->values);
    found = &(state.linkedValues[key] = gathered);
  }
  if (*found == nullptr) return false;
  result->merge(*found, mapShadows);
  return true;
}

bool VPNode::mergeLinks(VPFuzzyValue* result, VPField* field, int mapShadows) {
  bool linked = false;
  for (VPIsLink* link = other.generic.isLinks; link != nullptr; link = link->next) {
    if (link->protoField != field) continue;
    linked = true;
    link->node->getFuzzyValue(result, link->nodeField, mapShadows);
  }
  return linked;
}

void VPNode::getFuzzyValue(VPFuzzyValue* result, VPField* field, int mapShadows) {
  CHECK(nodeType == OTHER || nodeType == SCRIPT);
  VPNode* representative = nodeType == OTHER ? other.generic.representative : nullptr;
  if (representative != nullptr) {
    representative->getFuzzyValue(result, field, mapShadows);
    return;
  }
  // --vrml97: a body node stands for its copies in all instances, whose records
  // hold what scripts and routes did to fields that the body does not list.
  if (vrml97Option() && other.shadowNodes != nullptr) {
    for (VPShadow* shadow = other.shadowNodes; shadow != nullptr; shadow = shadow->next) {
      shadow->shadow->getFuzzyValue(result, field, 1);
    }
    return;
  }
  if (isProtoInstance() && getLinkedValue(result, field, mapShadows)) return;
  if (VPFuzzyValue* record = findFuzzy(field)) {
    result->merge(record, mapShadows);
    if (!isOpaqueScript()) return;
  }
  VPFuzzyValue current(field);
  if (isOpaqueScript()) {
    mergeAnyValue(this, result, mapShadows);
    return;
  }
  if (field->hasValue()) {
    VPFieldList* effective = findEffectiveField(field);
    // An EXTERNPROTO field without a value may hold anything, and no node of this world.
    if ((effective->flags & FIELD_NO_DEFAULT) && !field->holdsNodes()) current.valueKnown = 0;
    if (isOpaqueField(this, field)) current.valueKnown = 0;
    current.values = effective->value;  // shared for this merge only
    result->merge(&current, mapShadows);
    current.values = nullptr;
    return;
  }
  if (!field->isMFField()) pushCell(&current.values)->setZero(field->theType);
  result->merge(&current, mapShadows);
  current.freeValues();
}

/* ---------------------------------------------------------------------------
 * The scene as scripts see it
 * ------------------------------------------------------------------------ */

namespace {

// The class identity of an object made on the stack, before any run.
void* classIdentity() {
  VPJSObject probe(nullptr);
  return *(void**)&probe;
}

}  // namespace

void* const VPJSObject::vptr = classIdentity();

VPJSContext::VPJSContext(VPNode* node, JSParser* program, int mapShadowNodes)
    : scriptNode(node), parser(program), mapShadows(mapShadowNodes) {
  CHECK(scriptNode->nodeType == VPNode::SCRIPT);
}

VPJSContext::~VPJSContext() {
  while (objects != nullptr) {
    VPJSObjectList* cell = objects;
    objects = cell->next;
    delete cell->object;
    delete cell;
  }
}

namespace {

JSAtom* singleCellAtom(JSParser* parser, int type, JSAtomValue value) {
  JSAtom* atom = parser->newAtom(type);
  atom->values = parser->newAtomValue(value);
  atom->values->next = nullptr;
  return atom;
}

JSAtom* objectAtom(JSParser* parser, JSObject* object) {
  JSAtomValue value = {};
  value.object = object;
  return singleCellAtom(parser, JSAtom::OBJECT, value);
}

void appendAtomValue(JSParser* parser, JSAtomValue*** last, JSAtomValue value) {
  **last = parser->newAtomValue(value);
  (**last)->next = nullptr;
  *last = &(**last)->next;
}

// One cell per node, at the head, skipping NULL nodes.
VPNodeList* copyNodeCells(const VPNodeList* list) {
  VPNodeList* copy = nullptr;
  for (const VPNodeList* cell = list; cell != nullptr; cell = cell->next) {
    if (cell->node != nullptr) pushCell(&copy)->node = cell->node;
  }
  return copy;
}

bool listHoldsNode(const VPNodeList* list, const VPNode* node) {
  for (const VPNodeList* cell = list; cell != nullptr; cell = cell->next) {
    if (cell->node == node) return true;
  }
  return false;
}

int countNodes(const VPNodeList* list) {
  int count = 0;
  for (; list != nullptr; list = list->next) count++;
  return count;
}

}  // namespace

JSAtom* VPJSContext::lookupName(const char* name) {
  JSAtomValue truth = {};
  if (strcmp(name, "TRUE") == 0) {
    truth.truth = 1;
    return singleCellAtom(parser, JSAtom::BOOLEAN, truth);
  }
  if (strcmp(name, "FALSE") == 0) return singleCellAtom(parser, JSAtom::BOOLEAN, truth);
  return lookupField(scriptNode, name);
}

JSAtom* VPJSContext::callFunction(const char*, JSAtomList*) {
  return parser->newAtom(JSAtom::UNKNOWN);
}

VPJSObject* VPJSContext::newObject() {
  VPJSObject* object = new VPJSObject(this);
  objects = new VPJSObjectList{objects, object};
  return object;
}

JSAtom* VPJSContext::lookupField(VPNode* node, const char* name) {
  VPField* field = node->fieldByName(name);
  if (field == nullptr) return nullptr;
  VPJSObject* object = newObject();
  pushCell(&object->nodes)->node = node;
  object->fieldName = copyObjectString(name);
  object->isArray = field->isMFField();
  return objectAtom(parser, object);
}

namespace {

// The atom of a truth value or a number: unknown, or one cell per value of the
// record; an event field that nobody set reads as zero.
JSAtom* scalarAtom(JSParser* parser, const VPFuzzyValue* fuzzy) {
  VPField* field = fuzzy->field;
  bool isBool = field->theType == VPField::SFBool;
  JSAtom* atom = parser->newAtom(isBool ? JSAtom::BOOLEAN : JSAtom::FLOAT);
  if (!fuzzy->valueKnown) {
    atom->valueKnown = 0;
    return atom;
  }
  JSAtomValue value = {};
  if (fuzzy->values == nullptr) {
    CHECK(field->theClass == VPField::EVENT_OUT || field->theClass == VPField::EVENT_IN);
    atom->values = parser->newAtomValue(value);
    return atom;
  }
  JSAtomValue** last = &atom->values;
  if (isBool) {
    VPValue* fieldValue = fuzzy->values;
    CHECK(fieldValue->next == NULL);
    value.truth = fieldValue->intValue;
    appendAtomValue(parser, &last, value);
    return atom;
  }
  for (VPValue* cell = fuzzy->values; cell != nullptr; cell = cell->next) {
    value.number = field->theType != VPField::SFInt32 ? cell->floatValue
                   : vrml97Option()                       ? double(cell->intValue)
                                                        : float(cell->intValue);
    appendAtomValue(parser, &last, value);
  }
  return atom;
}

}  // namespace

JSAtom* VPJSContext::makeAtom(VPFuzzyValue* fuzzy, int isArray) {
  VPField* field = fuzzy->field;
  switch (field->theType) {
  case VPField::SFBool:
  case VPField::SFFloat:
  case VPField::SFInt32:
  case VPField::SFTime:
    return scalarAtom(parser, fuzzy);
  case VPField::SFNode:
  case VPField::MFNode: {
    int valueKnown = fuzzy->valueKnown;
    CHECK(valueKnown);
    VPJSObject* object = newObject();
    object->nodes = copyNodeCells(fuzzy->values);
    if (isArray) {
      CHECK(field->theType == VPField::MFNode);
      object->isArray = 1;
    }
    return objectAtom(parser, object);
  }
  case VPField::SFString:
    if (vrml97Option()) return parser->newAtom(JSAtom::UNKNOWN);  // strings are not followed
    CHECK(0);
    return nullptr;
  default:
    return parser->newAtom(JSAtom::UNKNOWN);
  }
}

namespace {

// An event that its owner releases unless it is handed on, also when a failed
// check of a trial unwinds the call (--vrml97).
struct PendingEvent {
  VPFuzzyValue* event;
  ~PendingEvent() {
    if (event == nullptr) return;
    event->freeValues();
    delete event;
  }
  VPFuzzyValue* handOn() {
    VPFuzzyValue* handed = event;
    event = nullptr;
    return handed;
  }
};

// --vrml97: an exposedField that a script sets passes the value on.
bool passesOn(const VPField* field) {
  return vrml97Option() && field->theClass == VPField::EXPOSED_FIELD;
}

// Whether a queued event enters its node rather than leaves it. --vrml97: a
// value set in an exposedField of a PROTO instance enters its body, whose nodes
// send it on, also along the ROUTEs inside the body.
bool arrives(const VPNode* node, const VPField* field) {
  return field->theClass == VPField::EVENT_IN || (passesOn(field) && node->isProtoInstance());
}

// An event that leaves a field no route leaves, and that no interface around
// shares, would do nothing at all when delivered.
bool goesNowhere(VPNode* node, const VPField* field) {
  if (arrives(node, field) || (passesOn(field) && node->other.shadowRoot != nullptr)) return false;
  return routesAt(&node->other.routesOut, field, true).empty();
}

}  // namespace

void VPJSContext::queueEvent(VPNode* node, VPFuzzyValue* eventData) {
  PendingEvent pending = {eventData};
  node->storeEvent(eventData);
  VPField* field = eventData->field;
  if (field->theClass == VPField::FIELD || goesNowhere(node, field)) return;
  parser->countEntryWork();
  eventQueue = new VPQueuedEvent{eventQueue, node, pending.handOn()};
}

long VPJSContext::worldVersion() { return cascade().recordChanges; }

const void* VPJSContext::eventsMark() { return eventQueue; }

// The events between the marks stand newest first; they go to the head again
// oldest first, so the queue holds them twice in the same order.
void VPJSContext::resendEvents(const void* from, const void* to) {
  std::vector<const VPQueuedEvent*> sent;
  for (auto e = static_cast<const VPQueuedEvent*>(to); e != from; e = e->next) sent.push_back(e);
  for (auto e = sent.rbegin(); e != sent.rend(); ++e) {
    parser->countEntryWork();
    eventQueue = new VPQueuedEvent{eventQueue, (*e)->node, (*e)->eventData->clone()};
  }
}

void VPJSContext::flushEvents() {
  while (eventQueue != nullptr) {
    VPQueuedEvent* e = eventQueue;
    eventQueue = e->next;
    VPField* field = e->eventData->field;
    VPNode* node = e->node;
    bool exposed = passesOn(field);
    bool entering = arrives(node, field);
    pushContext(entering ? "Event sent to %s::%s.%s" : "Event sent from %s::%s.%s",
                node->other.baseProto->name, nameOrNull(node->name), field->name);
    if (entering) {
      node->receiveEvent(e->eventData);
    } else {
      node->sendEvent(e->eventData);
      if (exposed) node->shareThroughInterface(e->eventData);
    }
    popContext();
    e->eventData->freeValues();
    delete e->eventData;
    delete e;
  }
}

VPJSObject::VPJSObject(VPJSContext* owner) : context(owner) {}

VPJSObject::~VPJSObject() {
  releaseCells(nodes, VPField::MFNode);
  releaseObject(fieldName);
}

void VPJSObject::markField(int flags) {
  CHECK(fieldName != NULL);
  for (VPNodeList* cell = nodes; cell != nullptr; cell = cell->next) {
    VPNode* node = cell->node;
    CHECK(node->nodeType == VPNode::OTHER || node->nodeType == VPNode::SCRIPT);
    VPFieldList* fieldList = node->findFieldByName(fieldName);
    CHECK(fieldList != NULL);
    markActivity(node, fieldList, flags);
  }
}

VPFuzzyValue* VPJSObject::currentFuzzy(bool stopsAtTwoValues) {
  VPFuzzyValue* currentFuzzy = nullptr;
  for (VPNodeList* cell = nodes; cell != nullptr; cell = cell->next) {
    VPFieldList* fieldList = cell->node->findFieldByName(fieldName);
    CHECK(fieldList != NULL);
    VPField* field = fieldList->field;
    if (currentFuzzy == nullptr) {
      currentFuzzy = new VPFuzzyValue(field);
      currentFuzzy->stopsAtTwoValues = stopsAtTwoValues;
    } else {
      CHECK(currentFuzzy->field->theType == field->theType);
    }
    if (field->theClass == VPField::EVENT_IN) {
      reportAlert("Trying to read the value from eventIn %s", field->name);
    }
    cell->node->getFuzzyValue(currentFuzzy, field, context->mapShadows);
  }
  return currentFuzzy;
}

VPJSObject* VPJSObject::fieldNodes() {
  VPJSObject* object = context->newObject();
  VPFuzzyValue* values = currentFuzzy();
  CHECK(values->field->theType == VPField::SFNode || values->field->theType == VPField::MFNode);
  CHECK(values->valueKnown);
  object->nodes = values->values;
  values->values = nullptr;
  delete values;
  return object;
}

namespace {

// A read result owns copies of the cells; the strings stay with the run.
void releaseReadResult(VPFuzzyValue* result) {
  releaseCells(result->values, result->field->theType);
  result->values = nullptr;
  delete result;
}

}  // namespace

JSAtom* VPJSObject::getValue() {
  CHECK(fieldName != NULL);
  markField(FIELD_READ);
  VPFuzzyValue* currentFuzzy = this->currentFuzzy();
  CHECK(currentFuzzy->next == NULL);
  JSAtom* atom = context->makeAtom(currentFuzzy, isArray);
  releaseReadResult(currentFuzzy);
  return atom;
}

namespace {

VPJSObject* sceneObject(JSObject* myObject) {
  CHECK(*(void **) myObject == VPJSObject::vptr);
  return static_cast<VPJSObject*>(myObject);
}

// The event that a known script value makes for one field.
void fillEvent(VPFuzzyValue* e, JSAtom* val, int targetIsArray) {
  VPField* field = e->field;
  VPValue** last = &e->values;
  auto append = [&last]() {
    *last = new VPValue{};
    VPValue* cell = *last;
    last = &cell->next;
    return cell;
  };
  switch (field->theType) {
  case VPField::SFBool:
    CHECK(val->type == JSAtom::BOOLEAN);
    CHECK(val->values != NULL);
    CHECK(val->values->next == NULL);
    append()->intValue = val->values->truth;
    return;
  case VPField::SFFloat:
  case VPField::SFInt32:
  case VPField::SFTime:
    CHECK(val->type == JSAtom::FLOAT);
    for (JSAtomValue* number = val->values; number != nullptr; number = number->next) {
      if (field->theType == VPField::SFInt32) {
        append()->intValue = truncateToInt32(number->number);
      } else {
        append()->floatValue = float(number->number);
      }
    }
    return;
  case VPField::SFNode:
  case VPField::MFNode: {
    CHECK(val->type == JSAtom::OBJECT);
    CHECK(val->values != NULL);
    CHECK(val->values->next == NULL);
    VPJSObject* myObject = sceneObject(val->values->object);
    if (targetIsArray) {
      CHECK(field->theType == VPField::MFNode);
      CHECK(myObject->isArray);
    } else {
      CHECK(!myObject->isArray);
    }
    for (VPNodeList* cell = myObject->nodes; cell != nullptr; cell = cell->next) {
      append()->node = cell->node;
    }
    return;
  }
  default:
    CHECK(0);
  }
}

}  // namespace

int VPJSObject::assign(JSAtom* val) {
  int changeCountBefore = cascade().fuzzyChangeCount;
  CHECK(fieldName != NULL);
  markField(FIELD_WRITE);
  for (VPNodeList* cell = nodes; cell != nullptr; cell = cell->next) {
    PendingEvent e = {new VPFuzzyValue(cell->node->fieldByName(fieldName))};
    if (val->type == JSAtom::UNKNOWN || !val->valueKnown) {
      e.event->valueKnown = 0;
    } else {
      fillEvent(e.event, val, isArray);
    }
    context->queueEvent(cell->node, e.handOn());
  }
  return cascade().fuzzyChangeCount != changeCountBefore;
}

// The nodes in which a member of this object is looked up.
VPJSObject* VPJSObject::memberOfNodes() {
  if (fieldName != nullptr) {
    markField(FIELD_READ);
    return fieldNodes();
  }
  VPJSObject* result = context->newObject();
  for (VPNodeList* cell = nodes; cell != nullptr; cell = cell->next) {
    VPNode* node = mappedNode(cell->node, context->mapShadows);
    if (!listHoldsNode(result->nodes, node)) pushCell(&result->nodes)->node = node;
  }
  return result;
}

namespace {

// The field of that name on the first node of the list that has one.
VPField* firstFieldNamed(const VPNodeList* nodes, const char* name) {
  for (; nodes != nullptr; nodes = nodes->next) {
    if (VPField* field = nodes->node->fieldByName(name)) return field;
  }
  return nullptr;
}

}  // namespace

JSAtom* VPJSObject::getMember(const char* memberName) {
  if (isArray) {
    CHECK(strcmp (memberName, "length") == 0);
    if (fieldName != nullptr) markField(FIELD_READ | FIELD_WRITE);
    return context->parser->newAtom(JSAtom::UNKNOWN);
  }
  if (fieldName != nullptr) {
    VPField* field = firstFieldNamed(nodes, fieldName);
    if (field == nullptr) return nullptr;
    if (!field->holdsNodes()) {
      markField(FIELD_READ | FIELD_WRITE);
      return context->parser->newAtom(JSAtom::UNKNOWN);
    }
  }
  VPJSObject* result = memberOfNodes();
  result->fieldName = copyObjectString(memberName);
  bool found = false;
  for (VPNodeList* cell = result->nodes; cell != nullptr; cell = cell->next) {
    VPNode* node = cell->node;
    VPField* field2 = node->fieldByName(memberName);
    if (field2 == nullptr) {
      if (!context->mapShadows && !vrml97Option()) {
        reportError("Node %s::%s does not have a field named %s", node->other.baseProto->name,
                    nameOrNull(node->name), memberName);
      }
    } else if (!found) {
      found = true;
      result->isArray = field2->isMFField();
    } else if (result->isArray) {
      CHECK(field2->isMFField ());
    } else {
      CHECK(!field2->isMFField ());
    }
  }
  if (found) return objectAtom(context->parser, result);
  // --vrml97: a member that no node has is a method or a property of the
  // script's own, such as toString: its value is not followed.
  return vrml97Option() ? context->parser->newAtom(JSAtom::UNKNOWN) : nullptr;
}

JSAtom* VPJSObject::getElement(JSAtom*) {
  CHECK(fieldName != NULL);
  VPField* field = nodes->node->fieldByName(fieldName);
  CHECK(field != NULL);
  switch (field->theType) {
  case VPField::SFColor:
  case VPField::SFRotation:
  case VPField::SFVec2f:
  case VPField::SFVec3f:
  case VPField::MFColor:
  case VPField::MFFloat:
  case VPField::MFInt32:
  case VPField::MFRotation:
  case VPField::MFString:
  case VPField::MFVec2f:
  case VPField::MFVec3f:
    markField(FIELD_READ | FIELD_WRITE);
    return context->parser->newAtom(JSAtom::UNKNOWN);
  case VPField::MFNode: {
    CHECK(isArray);
    VPJSObject* element = context->newObject();
    element->fieldName = copyObjectString(fieldName);
    element->nodes = copyNodeCells(nodes);
    return objectAtom(context->parser, element);
  }
  default:
    CHECK(0);
    return nullptr;
  }
}

namespace {

// --vrml97: a node that may answer a set of one of its fields with events of
// its own, also a set to the value the field holds: a sensor set enabled, an
// interpolator, an instance of a PROTO or of an EXTERNPROTO of the input.
bool mayAnswerSets(const VPNode* node) {
  if (node->nodeType != VPNode::OTHER) return false;
  const VPNode* type = node->other.baseProto;
  if (type->nodeType == VPNode::PROTO || !type->declaration->isBuiltin) return true;
  for (const VPFieldList* cell = type->fields; cell != nullptr; cell = cell->next) {
    if (cell->field->theClass == VPField::EVENT_OUT) return true;
  }
  return false;
}

// Whether a field over all nodes of the set can only hold one value.
bool holdsOneValue(VPJSObject* object) {
  VPFuzzyValue* fuzzyValue = object->currentFuzzy(true);
  bool single = false;
  if (fuzzyValue->valueKnown) {
    CHECK(fuzzyValue->values != NULL);
    single = fuzzyValue->values->next == nullptr;
  }
  releaseReadResult(fuzzyValue);
  return single;
}

}  // namespace

int VPJSObject::isNeeded() {
  CHECK(fieldName != NULL);
  int flags = 0;
  bool allSingleValued = true;
  for (VPNodeList* cell = nodes; cell != nullptr; cell = cell->next) {
    VPFieldList* fieldList = cell->node->findFieldByName(fieldName);
    CHECK(fieldList != NULL);
    if (fieldList->field->theClass == VPField::EVENT_IN) return 1;
    if (vrml97Option() && mayAnswerSets(cell->node)) return 1;
    flags |= fieldList->flags;
    // --vrml97: events leave from the node's own cell of the field, where it has one.
    VPFieldList* own = vrml97Option() ? cell->node->findField(fieldList->field) : nullptr;
    if (own != nullptr) flags |= own->flags;
    // --vrml97: a read of a node field skips NULL, so one node read is not one value.
    if (fieldList->field->isMFField() || (vrml97Option() && fieldList->field->holdsNodes())) {
      allSingleValued = false;
    }
  }
  if (flags & FIELD_ROUTED_OUT) return 1;
  if (allSingleValued && holdsOneValue(this)) return 0;
  if (flags & FIELD_READ) return 1;
  for (VPNodeList* cell = nodes; cell != nullptr; cell = cell->next) {
    VPFieldList* fieldList = cell->node->findFieldByName(fieldName);
    CHECK(fieldList != NULL);
    if (cell->node->nodeType != VPNode::SCRIPT && fieldList->field->theClass != VPField::EVENT_OUT) {
      return 1;
    }
    if (VPRedirect* redirect = fieldList->redirect) {
      int protoFlags = redirect->proto->findField(redirect->field)->flags;
      if (protoFlags & FIELD_READ) return 1;
      CHECK((protoFlags & FIELD_ROUTED_OUT) == 0);
    }
  }
  return 0;
}

int VPJSObject::isSameObject(JSObject* other) {
  CHECK(*(void **) other == VPJSObject::vptr);
  VPJSObject* that = static_cast<VPJSObject*>(other);
  if (isArray != that->isArray || fieldName != that->fieldName) return 0;
  if (countNodes(nodes) != countNodes(that->nodes)) return 0;
  for (VPNodeList* cell = nodes; cell != nullptr; cell = cell->next) {
    if (!listHoldsNode(that->nodes, cell->node)) return 0;
  }
  return 1;
}

/* ---------------------------------------------------------------------------
 * Events
 * ------------------------------------------------------------------------ */

namespace {

// The cell that carries the routing flags of a field: the node's own, else its declaration's.
VPFieldList* routingCell(VPNode* node, VPField* field) {
  VPFieldList* fieldList = node->findField(field);
  if (fieldList == nullptr) fieldList = node->other.baseProto->findField(field);
  CHECK(fieldList != NULL);
  return fieldList;
}

void releaseEventRecord(VPEventRecord* record) {
  releaseObject(record->name);
  record->value->freeValues();
  delete record->value;
  delete record;
}

}  // namespace

namespace {

// --vrml97: a browser sends at most one event from an eventOut in one
// cascade, which breaks the loops of routes; an event that comes back round
// to a field that its node is sending still sets the field, but goes no further.
bool isSending(const VPNode* node, const VPField* field) {
  for (const VPSending* mark = node->other.sending; mark != nullptr; mark = mark->next) {
    if (mark->field == field) return true;
  }
  return false;
}

// Marks a field as sending while it lives, also when a stop unwinds the
// cascade; its records are taken again from a free list.
struct SendingMark {
  VPNode* node;
  SendingMark(VPNode* sender, const VPField* field) : node(sender) {
    VPSending*& spare = cascade().freeSendings;
    VPSending* mark = spare != nullptr ? spare : newRecord<VPSending>();
    if (mark == spare) spare = mark->next;
    *mark = {node->other.sending, field};
    node->other.sending = mark;
  }
  ~SendingMark() {
    VPSending* mark = node->other.sending;
    node->other.sending = mark->next;
    VPSending*& spare = cascade().freeSendings;
    mark->next = spare;
    spare = mark;
  }
  SendingMark(const SendingMark&) = delete;
  SendingMark& operator=(const SendingMark&) = delete;
};

}  // namespace

void VPNode::sendEvent(VPFuzzyValue* eventData) {
  CHECK(nodeType == OTHER || nodeType == SCRIPT);
  VPField* field = eventData->field;
  if (vrml97Option() && isSending(this, field)) return;
  std::optional<SendingMark> sending;
  if (vrml97Option()) sending.emplace(this, field);
  for (VPRoute* route : routesAt(&other.routesOut, field, true)) {
    CHECK(route->sourceNode == this);
    markActivity(this, routingCell(this, field), FIELD_ROUTED_OUT);
    // --vrml97: the event leaves the instances around through their eventOuts.
    for (VPRoute* outer = route->twinOf; vrml97Option() && outer != nullptr; outer = outer->twinOf) {
      markActivity(outer->sourceNode, routingCell(outer->sourceNode, outer->sourceField),
                   FIELD_ROUTED_OUT);
    }
    VPNode* dest = route->destNode;
    pushContext("Event sent to %s::%s.%s", dest->other.baseProto->name, nameOrNull(dest->name),
                route->destField->name);
    eventData->field = route->destField;
    withStackRoom([&]() { dest->receiveEvent(eventData); });
    eventData->field = field;
    popContext();
  }
}

void VPNode::releaseEventRecords() {
  while (VPEventRecord* record = other.script.eventRecords) {
    other.script.eventRecords = record->next;
    releaseEventRecord(record);
  }
  cascade().scriptEvents.erase(this);
}

// The records are made in the order of the cascade, so a new fuzzy value
// makes every record older than it: they all go.
ScriptEvents& VPNode::currentEvents() {
  CascadeState& state = cascade();
  auto found = state.scriptEvents.find(this);
  if (found != state.scriptEvents.end() && found->second.changeCount == state.fuzzyChangeCount) {
    return found->second;
  }
  releaseEventRecords();
  ScriptEvents& events = state.scriptEvents[this];
  events.changeCount = state.fuzzyChangeCount;
  events.tail = &other.script.eventRecords;
  return events;
}

// Only an event of unknown value that ran before with an unknown value since
// the latest new fuzzy value has nothing new to show.
bool VPNode::eventAlreadySimulated(const VPFuzzyValue* eventData) {
  const ScriptEvents& events = currentEvents();
  return !eventData->valueKnown && events.unknownNames.find(eventData->field->name) != nullptr;
}

// --vrml97: past so many events of known value on one eventIn since the
// latest new record, an event runs the function as one of unknown value
// does, and so once: a Script sent hundreds of values ran its function for
// each. Node values stay known, as in the records.
bool VPNode::takesAsUnknown(const VPFuzzyValue* eventData) {
  if (!vrml97Option() || !eventData->valueKnown || eventData->field->holdsNodes()) return false;
  return ++currentEvents().knownEvents[eventData->field->name] > kMostKnownValues;
}

void VPNode::runScriptEvent(VPFuzzyValue* eventData) {
  VPFuzzyValue anyValue(eventData->field);
  anyValue.valueKnown = 0;
  VPFuzzyValue* event = takesAsUnknown(eventData) ? &anyValue : eventData;
  if (!eventAlreadySimulated(event)) runScriptFunction(event);
}

// Runs the script function of the eventIn, then delivers what it sent.
void VPNode::runScriptFunction(VPFuzzyValue* eventData) {
  VPField* field = eventData->field;
  ScriptEvents& events = currentEvents();
  *events.tail = new VPEventRecord{nullptr, copyObjectString(field->name), cascade().fuzzyChangeCount,
                                   eventData->clone()};
  events.tail = &(*events.tail)->next;
  if (!eventData->valueKnown) events.unknownNames.emplace(field->name, true);
  JSParser* program = other.script.program;
  VPJSContext context(this, program, 0);
  JSAtom* timestamp = program->newAtom(JSAtom::FLOAT);
  timestamp->valueKnown = 0;
  JSAtomList second = {nullptr, timestamp};
  JSAtomList args = {&second, context.makeAtom(eventData, field->isMFField())};
  enterScript(program, [&]() {
    program->simulateCall(field->name, &context, &args);
    if (vrml97Option()) program->simulateCall("eventsProcessed", &context, nullptr);
  });
  context.flushEvents();
}

// Hands an event of this instance's interface field to the body fields IS it,
// all but one; whether any body field is IS it.
bool VPNode::handToBody(VPFuzzyValue* eventData, const VPNode* exceptNode, const VPField* exceptField) {
  VPField* field = eventData->field;
  bool linked = false;
  for (VPIsLink* link = other.generic.isLinks; link != nullptr; link = link->next) {
    if (link->protoField != field) continue;
    linked = true;
    VPNode* node = link->node;
    if (node == exceptNode && link->nodeField == exceptField) continue;
    eventData->field = link->nodeField;
    pushContext("Event routing to %s::%s.%s", node->other.baseProto->name,
                nameOrNull(node->name), link->nodeField->name);
    node->receiveEvent(eventData, true);
    popContext();
    eventData->field = field;
  }
  return linked;
}

// A browser keeps an exposedField of the interface and the body fields IS it
// as one field: what one of them takes from inside the body, the others take
// too, and so does the interface of the instance around, if it is IS further.
void VPNode::shareThroughInterface(VPFuzzyValue* eventData) {
  VPNode* root = other.shadowRoot;
  if (root == nullptr) return;
  VPField* field = eventData->field;
  for (VPIsLink* link = root->other.generic.isLinks; link != nullptr; link = link->next) {
    if (link->node != this || link->nodeField != field) continue;
    if (link->protoField->theClass != VPField::EXPOSED_FIELD) continue;
    eventData->field = link->protoField;
    root->handToBody(eventData, this, field);
    root->shareThroughInterface(eventData);
    eventData->field = field;
  }
}

void VPNode::receiveEvent(VPFuzzyValue* eventData, bool fromInterface) {
  CHECK(nodeType == OTHER || nodeType == SCRIPT);
  VPField* field = eventData->field;
  markActivity(this, routingCell(this, field), FIELD_ROUTED_IN);
  // Under -l an endless cycle is not stopped by the loop message; a bound of
  // 100000 nested deliveries ends it in order.
  int& eventDepth = cascade().eventDepth;
  int& cascadeEventCount = cascade().cascadeEventCount;
  CHECK(eventDepth < 100000);
  // --vrml97: a loop of routes ends where an event comes back to a field still
  // being sent, so however many events a world delivers it settles. Only routes
  // that fork and join again are counted, from each event that enters the cascade.
  if (vrml97Option() && eventDepth == 0) cascadeEventCount = 0;
  eventDepth++;
  if (isProtoInstance()) {
    bool linked = handToBody(eventData, nullptr, nullptr);
    // --vrml97: an exposedField of the interface that no body field stands
    // for passes each event on, as an exposedField does; one that is IS an
    // exposedField of the PROTO around changes that one too.
    bool exposed = vrml97Option() && field->theClass == VPField::EXPOSED_FIELD;
    if (exposed && !linked) {
      storeEvent(eventData);
      sendEvent(eventData);
    }
    if (exposed && !fromInterface) shareThroughInterface(eventData);
  } else {
    if (++cascadeEventCount >= kEventLimit && cascade().loopCheckArmed && !vrml97Option()) {
      cascade().loopCheckArmed = 0;
      reportError("Infinite or near infinite loop detected!");
    }
    // Under -l the loop message lets the cascade go on, and routes that fork
    // and join again deliver twice as often with every fork: a million
    // deliveries without a new record are taken as endless.
    CHECK(cascadeEventCount < 1000000);
    if (field->theClass == VPField::EXPOSED_FIELD) {
      storeEvent(eventData);
      sendEvent(eventData);
      if (vrml97Option() && !fromInterface) shareThroughInterface(eventData);
    } else {
      CHECK(field->theClass == VPField::EVENT_IN);
      if (nodeType == SCRIPT) runScriptEvent(eventData);
    }
  }
  eventDepth--;
}

/* ---------------------------------------------------------------------------
 * The driver
 * ------------------------------------------------------------------------ */

namespace {

void keepLinkedValues(bool keep) {
  CascadeState& state = cascade();
  state.linkedValuesKept = keep;
  state.linkedValues.forEachValue([](VPFuzzyValue* kept) {
    if (kept == nullptr) return;
    kept->freeValues();
    delete kept;
  });
  state.linkedValues.clear();
}

}  // namespace

void VPFile::runCascade() {
  auto forTopLevel = [this](auto visit) {
    forEachNode(topLevel, visit);
    forEachNode(standIns, visit);
    clearVisited();
  };
  auto overTopLevel = [&forTopLevel](void (VPNode::*pass)()) {
    forTopLevel([pass](VPNode* node) { (node->*pass)(); });
  };
  auto overProtos = [this](int mergeValues) {
    forEachNode(allProtos, [mergeValues](VPNode* proto) { proto->mergeShadows(mergeValues); });
    clearVisitedFromTop();
  };
  // --vrml97: nothing fixes the order in which scripts initialize, so each
  // initialize runs again until what the others did shows it nothing new.
  auto initializeAll = [&overTopLevel]() {
    int changeCountBefore;
    do {
      changeCountBefore = cascade().fuzzyChangeCount;
      overTopLevel(&VPNode::initializeNode);
    } while (vrml97Option() && cascade().fuzzyChangeCount != changeCountBefore);
  };
  initializeAll();
  int changeCountBefore;
  do {
    changeCountBefore = cascade().fuzzyChangeCount;
    cascade().cascadeEventCount = 0;
    overTopLevel(&VPNode::simulateNodeEvents);
    forEachNode(standIns, [](VPNode* standIn) { standIn->simulateAnyUse(); });
  } while (cascade().fuzzyChangeCount != changeCountBefore);
  keepLinkedValues(true);
  overProtos(1);
  keepLinkedValues(false);
  overTopLevel(&VPNode::pruneScripts);
  overTopLevel(&VPNode::clearSimulation);
  initializeAll();
  overTopLevel(&VPNode::simulateNodeEvents);
  forEachNode(standIns, [](VPNode* standIn) { standIn->simulateAnyUse(); });
  overProtos(0);
  UndrawnActivity activity;
  forTopLevel([&activity](VPNode* node) { node->nukeDeadScriptFields(activity); });
}

namespace {

// The walk of the simulations: each instance and Script under its context
// line, what it holds first (the nodes of its fields, then the copies inside
// an instance or the nodes of a Script's interface), then `atNode`.
template <class PushNodeContext, class AtNode>
void walkSimulatedNodes(VPNode* root, PushNodeContext pushNodeContext, AtNode atNode) {
  auto enter = [&pushNodeContext](VPNode* node, NodeWalkSteps& walk) {
    if (node->nodeType != VPNode::SCRIPT && node->nodeType != VPNode::OTHER) return;
    pushNodeContext(node);
    walk.childrenIn(node->fields);
    if (node->nodeType == VPNode::OTHER) {
      walk.children(node->other.generic.implementation);
    } else {
      walk.childrenIn(node->other.script.fields);
    }
    walk.leave();
  };
  walkNodes(root, enter, [&atNode](VPNode* node, NodeWalkSteps&) {
    atNode(node);
    popContext();
  });
}

}  // namespace

void VPNode::initializeNode() {
  auto pushNodeContext = [](VPNode* node) {
    pushContext("Initializing %s::%s", node->other.baseProto->name, nameOrNull(node->name));
  };
  walkSimulatedNodes(this, pushNodeContext, [](VPNode* node) {
    if (node->nodeType == SCRIPT) node->runInitialize();
  });
}

void VPNode::runInitialize() {
  JSParser* program = other.script.program;
  VPJSContext context(this, program, 0);
  if (vrml97Option()) {
    enterScript(program, [&]() { program->simulateCall(kLoadFunctionName, &context, nullptr); });
    context.flushEvents();
  }
  enterScript(program, [&]() { program->simulateCall("initialize", &context, nullptr); });
  context.flushEvents();
}

// A standard node, or an instance of an EXTERNPROTO, may fire each routed
// eventOut at any time with any value.
namespace {

// Calls `send` with the source field of each route out of the node. One
// sending of a field takes every route from it: --vrml97 sends each field
// once, so that a field with n routes delivers n events, not n * n.
template <class Send>
void forEachRoutedField(const VPNode* node, Send send) {
  std::unordered_set<const VPField*> sent;
  for (VPRouteList* cell = node->other.routesOut; cell != nullptr; cell = cell->next) {
    VPRoute* route = cell->route;
    CHECK(route->sourceNode == node);
    if (vrml97Option() && !sent.insert(route->sourceField).second) continue;
    send(route->sourceField);
  }
}

}  // namespace

void VPNode::simulateRouteSources() {
  forEachRoutedField(this, [this](VPField* field) {
    if (field->theClass != VPField::EVENT_OUT && !isOpaqueField(this, field)) return;
    VPFuzzyValue event(field);
    event.valueKnown = 0;
    pushContext("Simulating the %s event", field->name);
    sendEvent(&event);
    popContext();
  });
}

namespace {

bool hasDirectOutput(VPNode* script) {
  VPField* field = script->fieldByName("directOutput");
  VPFieldList* cell = field != nullptr ? script->findEffectiveField(field) : nullptr;
  return cell != nullptr && cell->value != nullptr && cell->value->intValue;
}

// With directOutput, an opaque Script may set any field of a node it reaches.
void setAnyField(VPNode* node, VPFieldList* declarations, const std::vector<VPNode*>& reach) {
  for (VPFieldList* cell = declarations; cell != nullptr; cell = cell->next) {
    VPField* field = cell->field;
    if (field->theClass == VPField::EVENT_OUT) continue;
    VPFuzzyValue* event = anyValueEvent(field, reach);
    pushContext("Setting %s::%s.%s", node->other.baseProto->name, nameOrNull(node->name),
                field->name);
    if (field->theClass == VPField::FIELD) {
      node->storeEvent(event);
    } else {
      node->receiveEvent(event);
    }
    popContext();
    event->freeValues();
    delete event;
  }
}

}  // namespace

// --vrml97: a Script whose code is not simulated may read every node it
// reaches, set any of their fields with directOutput (or by routes that it
// makes), and send any value from any of its fields at any time.
void VPNode::simulateOpaqueScript() {
  std::vector<VPNode*> reach = nodesBelow();
  bool direct = hasDirectOutput(this) || other.script.program->makesRoutes;
  for (VPNode* node : reach) {
    // A PROTO declared in a field's value is no node of the scene.
    if (node->nodeType != SCRIPT && node->nodeType != OTHER) continue;
    std::unordered_set<const VPNode*>& opaqueReach = cascade().opaqueReach;
    opaqueReach.insert(node);
    if (node->other.shadowedNode != nullptr) opaqueReach.insert(node->other.shadowedNode);
    VPFieldList* interface = node->nodeType == SCRIPT ? node->other.script.fields : nullptr;
    for (VPFieldList* cell = node->other.baseProto->fields; cell != nullptr; cell = cell->next) {
      cell->flags |= FIELD_READ | FIELD_WRITE;
    }
    for (VPFieldList* cell = interface; cell != nullptr; cell = cell->next) {
      cell->flags |= FIELD_READ | FIELD_WRITE;
    }
    if (!direct || node == this) continue;
    setAnyField(node, node->other.baseProto->fields, reach);
    setAnyField(node, interface, reach);
  }
  forEachRoutedField(this, [this, &reach](VPField* field) {
    VPFuzzyValue* event = anyValueEvent(field, reach);
    pushContext("Simulating the %s event", field->name);
    sendEvent(event);
    popContext();
    event->freeValues();
    delete event;
  });
}

// --vrml97: another world may instantiate the PROTO of a stand-in, route to
// and from every field of its interface and send any value at any time.
void VPNode::simulateAnyUse() {
  for (VPFieldList* cell = other.baseProto->fields; cell != nullptr; cell = cell->next) {
    cell->flags |= kActivityMask;
    VPField* field = cell->field;
    if (field->theClass != VPField::EVENT_IN && field->theClass != VPField::EXPOSED_FIELD) continue;
    VPFuzzyValue* event = anyValueEvent(field, {});
    pushContext("Simulating the %s event", field->name);
    receiveEvent(event);
    popContext();
    event->freeValues();
    delete event;
  }
}

void VPNode::simulateNodeEvents() {
  auto pushNodeContext = [](VPNode* node) {
    pushContext("Simulating events from %s::%s", node->other.baseProto->name,
                nameOrNull(node->name));
  };
  walkSimulatedNodes(this, pushNodeContext, [](VPNode* node) {
    if (node->nodeType == SCRIPT) {
      if (node->other.script.program->opaque) node->simulateOpaqueScript();
    } else if (node->other.baseProto->nodeType == EXTERNPROTO) {
      node->simulateRouteSources();
    }
  });
}

// The flags of each cell of one shadow, and with mergeValues its values, go
// into the cells of this body node; the cursor walks other.values in step.
void VPNode::mergeShadow(VPShadow* shadowIter, VPFuzzyValue*** cursor, int mergeValues) {
  VPNode* shadow = shadowIter->shadow;
  auto mergeCells = [&](VPFieldList* cells, VPFieldList* shadowField) {
    for (VPFieldList* cell = cells; cell != nullptr; cell = cell->next) {
      VPField* field = cell->field;
      CHECK(shadowField != NULL);
      CHECK(field == shadowField->field);
      cell->flags |= shadowField->flags;
      shadowField = shadowField->next;
      if (!mergeValues || (field->isMFField() && field->theType != VPField::MFNode)) continue;
      VPFuzzyValue** values = *cursor;
      if (*values == nullptr) {
        CHECK(shadowIter == other.shadowNodes);
        *values = new VPFuzzyValue(field);
      } else {
        CHECK((*values)->field == field);
      }
      shadow->getFuzzyValue(*values, field, 0);
      *cursor = &(*values)->next;
    }
  };
  mergeCells(fields, shadow->fields);
  if (nodeType == SCRIPT) mergeCells(other.script.fields, shadow->other.script.fields);
}

void VPNode::mergeShadows(int mergeValues) {
  if (!visit()) return;
  auto merge = [mergeValues](VPNode* node) { node->mergeShadows(mergeValues); };
  if (nodeType == PROTO) {
    forEachNode(declaration->body, merge);
    forEachNodeIn(fields, merge);
    for (VPIsLink* link = declaration->isLinks; link != nullptr; link = link->next) {
      int linkClass = link->nodeField->theClass;
      if (linkClass != VPField::EVENT_OUT && linkClass != VPField::EXPOSED_FIELD) continue;
      VPFieldList* nodeFieldList = link->node->findField(link->nodeField);
      CHECK(nodeFieldList != NULL);
      if (!(nodeFieldList->flags & FIELD_ROUTED_OUT)) continue;
      VPFieldList* protoField = findField(link->protoField);
      CHECK(protoField != NULL);
      if (protoField->flags & FIELD_ROUTE_SOURCE) protoField->flags |= FIELD_ROUTED_OUT;
    }
    return;
  }
  if (nodeType != SCRIPT && nodeType != OTHER) return;
  if (mergeValues) CHECK(other.values == NULL);
  for (VPShadow* shadowIter = other.shadowNodes; shadowIter != nullptr; shadowIter = shadowIter->next) {
    VPNode* shadow = shadowIter->shadow;
    CHECK(shadow->nodeType == nodeType);
    VPFuzzyValue** cursor = &other.values;
    mergeShadow(shadowIter, &cursor, mergeValues);
    cascade().recordListEdits++;
  }
  forEachNodeIn(fields, merge);
  if (nodeType == SCRIPT) forEachNodeIn(other.script.fields, merge);
}

void VPNode::pruneScripts() {
  auto enter = [](VPNode* node, NodeWalkSteps& walk) {
    walk.childrenIn(node->fields);
    if (node->nodeType == PROTO) walk.children(node->declaration->body);
    if (node->nodeType == SCRIPT) walk.leave();
  };
  walkNodes(this, enter, [](VPNode* node, NodeWalkSteps& walk) {
    node->pruneOwnScript();
    walk.childrenIn(node->other.script.fields);
  });
}

void VPNode::pruneOwnScript() {
  bool found = findUrlCell() != nullptr;
  if (!vrml97Option()) CHECK(found);
  JSParser* program = other.script.program;
  VPJSContext context(this, program, 1);
  enterScript(program, [&]() { program->pruneScript(&context); });
  CHECK(context.eventQueue == NULL);
}

void VPNode::clearSimulation() {
  auto enter = [](VPNode* node, NodeWalkSteps& walk) {
    for (VPFieldList* cell = node->fields; cell != nullptr; cell = cell->next) {
      cell->flags &= ~kActivityMask;
    }
    walk.childrenIn(node->fields);
    switch (node->nodeType) {
    case PROTO:
      walk.children(node->declaration->body);
      return;
    case OTHER:
      walk.children(node->other.generic.implementation);
      return;
    case SCRIPT:
      walk.leave();
      return;
    default:
      return;
    }
  };
  walkNodes(this, enter, [](VPNode* node, NodeWalkSteps& walk) {
    for (VPFieldList* cell = node->other.script.fields; cell != nullptr; cell = cell->next) {
      cell->flags &= ~kActivityMask;
    }
    node->releaseEventRecords();
    walk.childrenIn(node->other.script.fields);
  });
}

namespace {

// --vrml97: a dead field still keeps what it holds in the world if that can act.
// The answers hold for the whole pass: a dead field has no routes, and what it
// drops can act in no way.
bool holdsActiveNodes(const VPFieldList* cell, UndrawnActivity& activity) {
  if (!vrml97Option() || !cell->field->holdsNodes()) return false;
  for (VPNodeList* value = cell->value; value != nullptr; value = value->next) {
    if (value->node != nullptr && activity.below(value->node)) return true;
  }
  return false;
}

}  // namespace

void VPNode::nukeDeadScriptFields(UndrawnActivity& activity) {
  auto enter = [](VPNode* node, NodeWalkSteps& walk) {
    walk.childrenIn(node->fields);
    if (node->nodeType == PROTO) walk.children(node->declaration->body);
    if (node->nodeType == SCRIPT && !node->other.script.program->opaque) walk.leave();
  };
  walkNodes(this, enter, [&activity](VPNode* node, NodeWalkSteps& walk) {
    node->nukeOwnDeadFields(activity);
    walk.childrenIn(node->other.script.fields);
  });
}

void VPNode::nukeOwnDeadFields(UndrawnActivity& activity) {
  VPFieldList* cell = other.script.fields;
  while (cell != nullptr) {
    VPFieldList* next = cell->next;
    if ((cell->flags & kActivityMask) == 0 && !holdsActiveNodes(cell, activity)) {
      if (cell->redirect != nullptr) removeIsLink(cell);
      int fieldNuked = removeField(cell->field, nullptr);
      CHECK(fieldNuked);
    }
    cell = next;
  }
}
