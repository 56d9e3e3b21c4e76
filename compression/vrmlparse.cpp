// Scene model and VRML text: tokenizer, built-in library, field values,
// nodes, PROTOs and ROUTEs, and the writer, in the order of the work.
#include "vrmlparse.h"

#include <algorithm>
#include <cctype>
#include <charconv>
#include <cstdlib>
#include <cstring>
#include <initializer_list>
#include <string>
#include <string_view>
#include <unordered_map>
#include <unordered_set>
#include <vector>

#include "jsparser.h"
#include "main.h"

namespace {

/* ---------------------------------------------------------------------------
 * Field types and classes
 * ------------------------------------------------------------------------ */

typedef void (*ElementWriter)(FILE* stream, const VPValue* cell);
typedef bool (*ElementEquality)(const VPValue* a, const VPValue* b);

/// Everything that depends on a field type. An MF type's writer and equality
/// are those of one element.
struct FieldTypeInfo {
  const char* word;
  VPValue* (VPFile::*reader)();
  ElementWriter writeElement;
  ElementEquality elementsEqual;
  int tupleLength;  ///< floats in one element of a tuple type, else 0
};

bool floatsEqual(float a, float b) { return !(a < b) && !(b < a); }

bool floatTuplesEqual(const float* a, const float* b, int count) {
  for (int i = 0; i < count; i++) {
    if (!floatsEqual(a[i], b[i])) return false;
  }
  return true;
}

bool intsEqual(const VPValue* a, const VPValue* b) { return a->intValue == b->intValue; }
bool singleFloatsEqual(const VPValue* a, const VPValue* b) {
  return floatsEqual(a->floatValue, b->floatValue);
}
bool pairsEqual(const VPValue* a, const VPValue* b) {
  return floatTuplesEqual(a->floats, b->floats, 2);
}
bool triplesEqual(const VPValue* a, const VPValue* b) {
  return floatTuplesEqual(a->floats, b->floats, 3);
}
bool quadruplesEqual(const VPValue* a, const VPValue* b) {
  return floatTuplesEqual(a->floats, b->floats, 4);
}
bool stringsEqual(const VPValue* a, const VPValue* b) { return strcmp(a->string, b->string) == 0; }

int64_t pixelCount(const VPImage* image) { return int64_t(image->width) * image->height; }

bool imagesEqual(const VPValue* a, const VPValue* b) {
  const VPImage* x = a->image;
  const VPImage* y = b->image;
  if (x->width != y->width || x->height != y->height || x->components != y->components) {
    return false;
  }
  int64_t count = pixelCount(x);
  return count < 1 || memcmp(x->pixels, y->pixels, size_t(count) * sizeof(int32_t)) == 0;
}

bool nodesNotComparable(const VPValue*, const VPValue*) {
  CHECK(0);
  return false;
}

// The bytes of a VRML97 name: all but the controls, the blank and " # ' , . [
// ] \ { }. "=" is left out as well: it begins an EXTERNPROTO field's value.
struct Vrml97NameBytes {
  bool part[256] = {};
  constexpr Vrml97NameBytes() {
    for (int c = 0x21; c < 256; c++) part[c] = c != 0x7f;
    for (const char* p = "\"#',.[]\\{}="; *p != 0; p++) part[static_cast<unsigned char>(*p)] = false;
  }
};
constexpr Vrml97NameBytes vrml97NameBytes;

/// A number ends where a sign begins, and one with a point or an exponent
/// where a point begins: "1-2", "1.5.5" and "1e3.5" are two numbers each.
enum NumberKind { kNoNumber = 0, kWholeNumber = 1, kPointNumber = 2 };

/// The writer's spacing, in the run's record; its `number` is a NumberKind.
/// Default mode writes every gap as it is asked for, one item to a line.
/// --vrml97: a gap is a blank only where the tokens on its two sides would
/// read as one, and each field, declaration and ROUTE begins a line. Blanks
/// between the elements of a list deflate better than line breaks.
WriterSpacing& spacing() { return currentRun->reading.spacing; }

// Names, numbers and words run together; quotes, brackets and braces end a token.
bool continuesToken(char c) {
  return c == '.' || vrml97NameBytes.part[static_cast<unsigned char>(c)];
}

bool needsBlank(char last, int lastNumber, char first) {
  if (!continuesToken(last) || !continuesToken(first)) return false;
  if (lastNumber != kNoNumber && first == '-') return false;
  return !(lastNumber == kPointNumber && first == '.');
}

// --vrml97: the separator that the owed gap or line needs before a token that
// begins with `first`, or 0; the debt is paid.
char separatorBefore(char first) {
  WriterSpacing& owed = spacing();
  char separator = owed.lineOwed                                               ? '\n'
                   : owed.gapOwed && needsBlank(owed.last, owed.number, first) ? ' '
                                                                              : 0;
  owed.gapOwed = owed.lineOwed = false;
  return separator;
}

// Text of one or more tokens, of which the last is a number of the kind given.
void writeTokens(FILE* stream, const char* text, size_t length, int lastNumber) {
  if (vrml97Option() && length > 0) {
    if (char separator = separatorBefore(text[0])) putc(separator, stream);
    spacing().last = text[length - 1];
    spacing().number = lastNumber;
  }
  fwrite(text, 1, length, stream);
}

// Numbers made in `line` behind one byte of room, where the separator owed
// before them goes, so that they leave in one write.
void writeNumbers(FILE* stream, char* line, char* end, int lastNumber) {
  char* text = line + 1;
  if (vrml97Option() && end > text) {
    if (char separator = separatorBefore(*text)) *--text = separator;
    spacing().last = end[-1];
    spacing().number = lastNumber;
  }
  fwrite(text, 1, size_t(end - text), stream);
}

void writeText(FILE* stream, const char* text, size_t length) {
  writeTokens(stream, text, length, kNoNumber);
}

void writeText(FILE* stream, const char* text) { writeText(stream, text, strlen(text)); }

// A gap of the fixed form, ' ' or '\n', between two tokens.
void writeGap(FILE* stream, char gap) {
  if (vrml97Option()) {
    spacing().gapOwed = true;
  } else {
    putc(gap, stream);
  }
}

// --vrml97: what follows begins a line. In the fixed form every item ends one.
void beginLine() {
  if (vrml97Option() && spacing().last != '\n') spacing().lineOwed = true;
}

int numberKind(const char* text, const char* end) {
  for (const char* c = text; c != end; c++) {
    if (*c == '.' || *c == 'e') return kPointNumber;
  }
  return kWholeNumber;
}

// Tokens made in `line`, with a byte of room behind `end`, and a line break
// after them; in the fixed form in one write, as values are most of a world.
void writeLine(FILE* stream, char* line, char* end) {
  if (vrml97Option()) {
    writeText(stream, line, size_t(end - line));
    writeGap(stream, '\n');
  } else {
    *end++ = '\n';
    fwrite(line, 1, size_t(end - line), stream);
  }
}

void writeFloats(FILE* stream, const float* values, int count) {
  char line[4 * 32];
  char* end = line;
  for (int i = 0; i < count; i++) {
    if (i > 0) *end++ = ' ';
    end = formatFloat(end, values[i]);
  }
  writeLine(stream, line, end);
}

void writeInt(FILE* stream, int32_t value) {
  char line[16];
  writeLine(stream, line, std::to_chars(line, line + sizeof line - 1, value).ptr);
}

/// --vrml97: the numbers of a value, gathered and written in chunks, each
/// parted from the one before only where needsBlank asks for it.
class NumberRun {
 public:
  explicit NumberRun(FILE* output) : stream(output) {}
  ~NumberRun() { flush(); }

  void add(const char* text, const char* textEnd) {
    if (end - buffer > int(sizeof buffer) - 48) flush();
    if (lastStart != nullptr) {
      // The kind of the number before counts only before a point.
      int before = *text == '.' ? numberKind(lastStart, end) : kWholeNumber;
      if (needsBlank(end[-1], before, *text)) *end++ = ' ';
    }
    lastStart = end;
    end = std::copy(text, textEnd, end);
  }

 private:
  FILE* stream;
  char buffer[1 + 8192];  ///< one byte of room for the separator before it
  char* end = buffer + 1;
  const char* lastStart = nullptr;

  void flush() {
    if (lastStart == nullptr) return;
    writeNumbers(stream, buffer, end, numberKind(lastStart, end));
    writeGap(stream, ' ');
    end = buffer + 1;
    lastStart = nullptr;
  }
};

void writeBool(FILE* stream, const VPValue* cell) {
  CHECK(cell->intValue == 0 || cell->intValue == 1);
  writeText(stream, cell->intValue == 1 ? "TRUE" : "FALSE");
  writeGap(stream, '\n');
}

void writeInt32(FILE* stream, const VPValue* cell) { writeInt(stream, cell->intValue); }
void writeFloat(FILE* stream, const VPValue* cell) { writeFloats(stream, &cell->floatValue, 1); }
void writeVec2f(FILE* stream, const VPValue* cell) { writeFloats(stream, cell->floats, 2); }
void writeTriple(FILE* stream, const VPValue* cell) { writeFloats(stream, cell->floats, 3); }
void writeRotation(FILE* stream, const VPValue* cell) { writeFloats(stream, cell->floats, 4); }

void writeString(FILE* stream, const VPValue* cell) {
  writeText(stream, cell->string);
  writeGap(stream, '\n');
}

// Width, height and components, then the pixels six to a line, each line
// starting below the three integers.
void writeImage(FILE* stream, const VPValue* cell) {
  const VPImage* image = cell->image;
  char text[48];
  snprintf(text, sizeof text, "%d %d %d", image->width, image->height, image->components);
  writeText(stream, text);
  int64_t count = pixelCount(image);
  for (int64_t i = 0; i < count; i++) {
    writeGap(stream, i % 6 == 0 ? '\n' : ' ');
    text[0] = '0';
    text[1] = 'x';
    char* end = std::to_chars(text + 2, text + sizeof text, uint32_t(image->pixels[i]), 16).ptr;
    writeText(stream, text, size_t(end - text));
  }
  writeGap(stream, '\n');
}

void writeNode(FILE* stream, const VPValue* cell) {
  if (cell->node == nullptr) {
    writeText(stream, "NULL");
    writeGap(stream, '\n');
  } else {
    withStackRoom([&]() { cell->node->write(stream); });
  }
}

// NULL is no valid element of an MFNode, and the place of an element counts for
// whichChoice, so a hole is printed as an empty Group.
void writeNodeOrHole(FILE* stream, const VPValue* cell) {
  if (cell->node == nullptr) {
    writeText(stream, "Group");
    writeGap(stream, ' ');
    writeText(stream, "{}");
    writeGap(stream, '\n');
  } else {
    withStackRoom([&]() { cell->node->write(stream); });
  }
}

const FieldTypeInfo fieldTypes[] = {
    {"SFBool", &VPFile::parseSFBool, writeBool, intsEqual, 0},
    {"SFColor", &VPFile::parseSFColor, writeTriple, triplesEqual, 3},
    {"SFFloat", &VPFile::parseSFFloat, writeFloat, singleFloatsEqual, 0},
    {"SFImage", &VPFile::parseSFImage, writeImage, imagesEqual, 0},
    {"SFInt32", &VPFile::parseSFInt32, writeInt32, intsEqual, 0},
    {"SFNode", &VPFile::parseNodeOrProto, writeNode, nodesNotComparable, 0},
    {"SFRotation", &VPFile::parseSFRotation, writeRotation, quadruplesEqual, 4},
    {"SFString", &VPFile::parseSFString, writeString, stringsEqual, 0},
    {"SFTime", &VPFile::parseSFTime, writeFloat, singleFloatsEqual, 0},
    {"SFVec2f", &VPFile::parseSFVec2f, writeVec2f, pairsEqual, 2},
    {"SFVec3f", &VPFile::parseSFVec3f, writeTriple, triplesEqual, 3},
    {"MFColor", &VPFile::parseMFColor, writeTriple, triplesEqual, 3},
    {"MFFloat", &VPFile::parseMFFloat, writeFloat, singleFloatsEqual, 0},
    {"MFInt32", &VPFile::parseMFInt32, writeInt32, intsEqual, 0},
    {"MFNode", &VPFile::parseMFNode, writeNodeOrHole, nodesNotComparable, 0},
    {"MFRotation", &VPFile::parseMFRotation, writeRotation, quadruplesEqual, 4},
    {"MFString", &VPFile::parseMFString, writeString, stringsEqual, 0},
    {"MFTime", &VPFile::parseMFTime, writeFloat, singleFloatsEqual, 0},
    {"MFVec2f", &VPFile::parseMFVec2f, writeVec2f, pairsEqual, 2},
    {"MFVec3f", &VPFile::parseMFVec3f, writeTriple, triplesEqual, 3},
};
static_assert(sizeof fieldTypes / sizeof fieldTypes[0] == VP_FIELD_TYPE_COUNT,
              "one row for each field type");

const char* const fieldClassWords[] = {"eventIn", "eventOut", "exposedField", "field"};
static_assert(sizeof fieldClassWords / sizeof fieldClassWords[0] == VP_FIELD_CLASS_COUNT,
              "one word for each field class");

const FieldTypeInfo& fieldType(int type) {
  if (type < 0 || type >= VP_FIELD_TYPE_COUNT) CHECK(0);
  return fieldTypes[type];
}

int findWord(const char* const* words, int count, const char* text) {
  for (int i = 0; i < count; i++) {
    if (strcmp(words[i], text) == 0) return i;
  }
  return -1;
}

int findTypeWord(const char* text) {
  for (int i = 0; i < VP_FIELD_TYPE_COUNT; i++) {
    if (strcmp(fieldTypes[i].word, text) == 0) return i;
  }
  return VPField::TypeNone;
}

bool isNumberType(int type) {
  return type == VPField::SFInt32 || type == VPField::MFInt32 || type == VPField::SFFloat ||
         type == VPField::MFFloat || type == VPField::SFTime || type == VPField::MFTime ||
         tupleLength(type) != 0;
}

// --vrml97: the numbers of a value in as few writes as they fit.
void writeNumberValue(FILE* stream, int type, const VPValue* value) {
  bool integers = type == VPField::SFInt32 || type == VPField::MFInt32;
  int length = tupleLength(type);
  {
    NumberRun run(stream);
    for (const VPValue* cell = value; cell != nullptr; cell = cell->next) {
      const float* floats = length != 0 ? cell->floats : &cell->floatValue;
      for (int i = 0; i < (length != 0 ? length : 1); i++) {
        char text[32];
        run.add(text, integers ? std::to_chars(text, text + sizeof text, cell->intValue).ptr
                               : formatFloat(text, floats[i]));
      }
    }
  }
  writeGap(stream, '\n');
}

void writeValue(FILE* stream, int type, const VPValue* value) {
  bool list = type >= VPField::MFColor && value->next != nullptr;
  if (list) {
    writeText(stream, "[");
    writeGap(stream, '\n');
  }
  if (vrml97Option() && isNumberType(type)) {
    writeNumberValue(stream, type, value);
  } else {
    ElementWriter writeElement = fieldType(type).writeElement;
    for (const VPValue* cell = value; cell != nullptr; cell = cell->next) writeElement(stream, cell);
  }
  if (list) {
    writeText(stream, "]");
    writeGap(stream, '\n');
  }
}

}  // namespace

bool elementsEqual(int type, const VPValue* a, const VPValue* b) {
  if (type == VPField::SFNode || type == VPField::MFNode) return a->node == b->node;
  return fieldType(type).elementsEqual(a, b);
}

int tupleLength(int type) { return fieldType(type).tupleLength; }

bool fieldValuesEqual(const VPFieldList* cell, const VPFieldList* other) {
  const VPField* field = cell->field;
  CHECK(field->theClass == other->field->theClass && field->theType == other->field->theType);
  ElementEquality elementsEqual = fieldType(field->theType).elementsEqual;
  const VPValue* a = cell->value;
  const VPValue* b = other->value;
  for (; a != nullptr && b != nullptr; a = a->next, b = b->next) {
    if (!elementsEqual(a, b)) return false;
  }
  return a == nullptr && b == nullptr;
}

/* ---------------------------------------------------------------------------
 * Scene model
 * ------------------------------------------------------------------------ */

namespace {

enum { SET_ALIAS = 1, CHANGED_ALIAS = 2 };

bool isChangedShaped(const char* name, size_t length) {
  return length >= 9 && strcmp(name + length - 8, "_changed") == 0;
}

// The name, or an alias form of it where `aliases` allows one; aliases apply
// to exposedFields only.
bool matchesFieldName(const VPFieldList* cell, const char* name, int aliases) {
  const char* cellName = cell->field->name;
  if (strcmp(cellName, name) == 0) return true;
  if (cell->field->theClass != VPField::EXPOSED_FIELD) return false;
  if ((aliases & SET_ALIAS) && strncmp(name, "set_", 4) == 0 && strcmp(cellName, name + 4) == 0) {
    return true;
  }
  size_t length = strlen(name);
  return (aliases & CHANGED_ALIAS) && isChangedShaped(name, length) &&
         strlen(cellName) == length - 8 && strncmp(cellName, name, length - 8) == 0;
}

// Lists shorter than this are walked.
constexpr size_t kIndexedFields = 32;

bool isLongList(const VPFieldList* list) {
  size_t length = 0;
  for (const VPFieldList* cell = list; cell != nullptr; cell = cell->next) {
    if (++length >= kIndexedFields) return true;
  }
  return false;
}

void indexCell(FieldListIndex* index, VPFieldList* cell) {
  std::pair<size_t, VPFieldList*> place = {index->length++, cell};
  index->firstNamed.emplace(cell->field->name, place);
  index->lastNamed[cell->field->name] = place;
  if (cell->field->theClass == VPField::EXPOSED_FIELD) index->firstExposed.emplace(cell->field->name, place);
  index->firstOfField.emplace(cell->field, cell);
  index->tail = cell;
}

// The index of a long list, made anew when a cell has left any list since.
FieldListIndex& indexOfList(VPFieldList* list) {
  FieldListIndex& index = currentRun->reading.fieldIndexes[list];
  if (index.tail == nullptr || index.unlinked != currentRun->reading.fieldCellsUnlinked) {
    index = FieldListIndex();
    index.unlinked = currentRun->reading.fieldCellsUnlinked;
    for (VPFieldList* cell = list; cell != nullptr; cell = cell->next) indexCell(&index, cell);
  }
  while (index.tail->next != nullptr) indexCell(&index, index.tail->next);
  return index;
}

// The first cell that the name means, as the walk of matchesFieldName finds it.
VPFieldList* findInIndex(const FieldListIndex& index, const char* name, int aliases) {
  const std::pair<size_t, VPFieldList*>* first = nullptr;
  auto consider = [&first](const auto& table, std::string_view key) {
    const std::pair<size_t, VPFieldList*>* found = table.find(key);
    if (found != nullptr && (first == nullptr || found->first < first->first)) first = found;
  };
  consider(index.firstNamed, name);
  size_t length = strlen(name);
  if ((aliases & SET_ALIAS) && strncmp(name, "set_", 4) == 0) consider(index.firstExposed, name + 4);
  if ((aliases & CHANGED_ALIAS) && isChangedShaped(name, length)) {
    consider(index.firstExposed, std::string_view(name, length - 8));
  }
  return first != nullptr ? first->second : nullptr;
}

VPFieldList* findInList(VPFieldList* list, const char* name, int aliases) {
  if (isLongList(list)) return findInIndex(indexOfList(list), name, aliases);
  for (VPFieldList* cell = list; cell != nullptr; cell = cell->next) {
    if (matchesFieldName(cell, name, aliases)) return cell;
  }
  return nullptr;
}

// The declared cell that a name means on an instance: its type's fields, then
// a Script's interface.
VPFieldList* findInstanceField(VPNode* node, const char* name, int aliases) {
  // --vrml97: a field declared under the very name wins over an alias of
  // another, as eventIn set_x beside exposedField x.
  if (vrml97Option() && aliases != 0) {
    if (VPFieldList* exact = findInstanceField(node, name, 0)) return exact;
  }
  VPFieldList* cell = findInList(node->other.baseProto->fields, name, aliases);
  if (cell == nullptr && node->nodeType == VPNode::SCRIPT) {
    cell = findInList(node->other.script.fields, name, aliases);
  }
  return cell;
}

VPFieldList* findCellOf(VPFieldList* list, const VPField* field) {
  if (isLongList(list)) {
    VPFieldList* const* found = indexOfList(list).firstOfField.find(field);
    return found != nullptr ? *found : nullptr;
  }
  for (VPFieldList* cell = list; cell != nullptr; cell = cell->next) {
    if (cell->field == field) return cell;
  }
  return nullptr;
}

// The marked nodes still to clear. What the walk clears does not depend on
// its order, so it keeps its own stack: a world 100000 deep costs no frames.
using UnclearedNodes = std::vector<VPNode*>;

void pushMarked(UnclearedNodes& work, VPNode* node) {
  if (node != nullptr && node->isVisited()) work.push_back(node);
}

void pushMarkedNodes(UnclearedNodes& work, const VPNodeList* list) {
  for (const VPNodeList* cell = list; cell != nullptr; cell = cell->next) pushMarked(work, cell->node);
}

void pushMarkedNodeFields(UnclearedNodes& work, const VPFieldList* list) {
  forEachNodeIn(list, [&work](VPNode* node) { pushMarked(work, node); });
}

// A node's mark goes, then the marks of what it holds, as far as marked
// nodes lead: an unmarked node turns the walk back.
void clearMarks(UnclearedNodes& work) {
  while (!work.empty()) {
    VPNode* node = work.back();
    work.pop_back();
    if (!node->isVisited()) continue;
    node->visited = 0;
    switch (node->nodeType) {
    case VPNode::EXTERNPROTO:
      pushMarkedNodeFields(work, node->fields);  // --vrml97Option: defaults that hold nodes
      break;
    case VPNode::PROTO:
      pushMarkedNodes(work, node->declaration->body);
      pushMarkedNodeFields(work, node->fields);
      break;
    default:
      pushMarkedNodeFields(work, node->fields);
      if (node->nodeType == VPNode::OTHER) {
        pushMarkedNodes(work, node->other.generic.implementation);
      } else {
        pushMarkedNodeFields(work, node->other.script.fields);
      }
    }
  }
}

void clearVisitedNodes(const VPNodeList* list) {
  UnclearedNodes work;
  pushMarkedNodes(work, list);
  clearMarks(work);
}

}  // namespace

VPFieldList* VPNode::findField(const VPField* field) {
  VPFieldList* cell = findCellOf(fields, field);
  if (cell == nullptr && nodeType == SCRIPT) cell = findCellOf(other.script.fields, field);
  return cell;
}

VPFieldList* VPNode::findFieldByName(const char* fieldName) {
  if (nodeType == PROTO) {
    VPFieldList* exact = vrml97Option() ? findInList(fields, fieldName, 0) : nullptr;
    return exact != nullptr ? exact : findInList(fields, fieldName, SET_ALIAS | CHANGED_ALIAS);
  }
  CHECK(nodeType == SCRIPT || nodeType == OTHER);
  return findInstanceField(this, fieldName, SET_ALIAS | CHANGED_ALIAS);
}

VPField* VPNode::fieldByName(const char* fieldName) {
  VPFieldList* cell = findFieldByName(fieldName);
  return cell != nullptr ? cell->field : nullptr;
}

namespace {

// A cell of the field that holds its value here: not one redirected to an event.
VPFieldList* findValueCell(VPFieldList* list, const VPField* field) {
  for (VPFieldList* cell = findCellOf(list, field); cell != nullptr; cell = cell->next) {
    if (cell->field == field && (cell->redirect == nullptr || cell->redirect->field->hasValue())) {
      return cell;
    }
  }
  return nullptr;
}

}  // namespace

VPFieldList* VPNode::findEffectiveField(const VPField* field) {
  CHECK(field->theClass == VPField::EXPOSED_FIELD || field->theClass == VPField::FIELD);
  CHECK(nodeType == SCRIPT || nodeType == OTHER);
  VPFieldList* cell = findValueCell(fields, field);
  if (cell == nullptr && nodeType == SCRIPT) cell = findValueCell(other.script.fields, field);
  if (cell == nullptr) {
    VPFieldList* nodeField = other.baseProto->findField(field);
    CHECK(nodeField != NULL);
    CHECK(nodeField->redirect == NULL);
    return nodeField;
  }
  if (cell->redirect == nullptr) return cell;
  VPFieldList* protoField = cell->redirect->proto->findField(cell->redirect->field);
  CHECK(protoField != NULL);
  CHECK(protoField->redirect == NULL);
  return protoField;
}

void VPNode::clearVisited() {
  UnclearedNodes work;
  pushMarked(work, this);
  clearMarks(work);
}

NodeCollector::NodeCollector() : mark(++currentRun->reading.reachWalks) {}

bool NodeCollector::add(VPNode* node) {
  if (node->reachMark == mark) return false;
  node->reachMark = mark;
  nodes.push_back(node);
  return true;
}

void NodeCollector::addBelow() {
  auto reach = [this](VPNode* child) { add(child); };
  for (size_t i = 0; i < nodes.size(); i++) {
    forEachNodeIn(nodes[i]->fields, reach);
    if (nodes[i]->nodeType == VPNode::SCRIPT) forEachNodeIn(nodes[i]->other.script.fields, reach);
  }
}

std::vector<VPNode*> VPNode::nodesBelow() {
  NodeCollector collector;
  collector.add(this);
  collector.addBelow();
  return std::move(collector.nodes);
}

namespace {

VPRouteList* pushRouteCell(VPRouteList** list, VPRoute* route) {
  VPRouteList* cell = newRecord<VPRouteList>();
  *cell = {*list, route, list};
  if (cell->next != nullptr) cell->next->link = &cell->next;
  *list = cell;
  return cell;
}

}  // namespace

VPRoute* VPNode::addRoute(VPNode* source, VPField* sourceField, VPNode* dest,
                          VPField* destField) {
  CHECK(source->nodeType == OTHER || source->nodeType == SCRIPT);
  CHECK(dest->nodeType == OTHER || dest->nodeType == SCRIPT);
  VPRoute* route = newRecord<VPRoute>();
  *route = {source, sourceField, dest, destField, nullptr, {0, 0}, nullptr, nullptr};
  route->outCell = pushRouteCell(&source->other.routesOut, route);
  route->inCell = pushRouteCell(&dest->other.routesIn, route);
  currentRun->reading.routesAdded++;
  return route;
}

// Ends a traversal from topLevel and the stand-ins. It reached every node that
// it marked through marked nodes, or took the node out of the scene since, so
// a new number clears every mark that a walk from there could meet.
void VPFile::clearVisited() { currentRun->reading.traversal++; }

// Ends a traversal from other roots: the marks go as far as a walk from
// topLevel and the stand-ins through marked nodes leads. A declaration that
// stands in a node's field keeps its mark until a later traversal leads there.
void VPFile::clearVisitedFromTop() {
  UnclearedNodes work;
  pushMarkedNodes(work, topLevel);
  pushMarkedNodes(work, standIns);
  clearMarks(work);
}

VPNode* VPFile::findNamedNode(const char* name) {
  if (currentProto != nullptr) {
    StringTable::Entry* entry = currentProtoNamedNodes->findString(name);
    if (entry != nullptr) return static_cast<VPNode*>(entry->data);
  }
  StringTable::Entry* entry = namedNodes->findString(name);
  if (entry == nullptr) return nullptr;
  if (currentProto != nullptr) bodyNamesOuterNode = true;
  return static_cast<VPNode*>(entry->data);
}

namespace {

// Reads items into the list that `last` ends, till a token that begins none.
// PROTOs declared among the fields of a node (--vrml97Option) stand before its item.
void parseItems(VPFile* file, VPNodeList** last) {
  std::vector<VPNodeList*> outerDeclarations = std::move(file->nestedDeclarations);
  file->nestedDeclarations.clear();
  for (;;) {
    CHECK((*last) == NULL);
    VPNodeList* item = file->parseNodeOrProto();
    for (VPNodeList* declaration : file->nestedDeclarations) {
      *last = declaration;
      while (*last != nullptr) last = &(*last)->next;
    }
    file->nestedDeclarations.clear();
    if (item == nullptr) break;
    *last = item;
    last = &item->next;
  }
  file->nestedDeclarations = std::move(outerDeclarations);
}

// --vrml97: the byte order mark that editors on Windows write before the
// header, which browsers pass over.
char* skipByteOrderMark(char* text) {
  return vrml97Option() && strncmp(text, "\xEF\xBB\xBF", 3) == 0 ? text + 3 : text;
}

const char* describeHeader(const char* text) {
  if (strncmp(text, "#VRML V1.0", 10) == 0) return "a VRML 1.0 header";
  if (strncmp(text, "#X3D", 4) == 0) return "an X3D header";
  if (strncmp(text, "#VRML", 5) == 0) return "another VRML header";
  return "no VRML header";
}

}  // namespace

void VPFile::parseText(char* text) {
  startText(skipByteOrderMark(text));
  skipSpace();
  if (strncmp(cursor, "#VRML V2.0 utf8", 15) != 0) {
    reportAtInput(lineNumber, int(cursor - lineStart) + 1,
                  "found %s where \"#VRML V2.0 utf8\" was expected: worldPare reads VRML 2.0",
                  describeHeader(cursor));
    printMessage("This is not a VRML 2.0 file\n");
    CHECK(0);
  }
  hiddenNodes.assign(1, {});
  parseItems(this, &topLevel);
  // A browser refuses a world whose text goes on after what it can read; the
  // part before it alone would not do what the world does.
  if (vrml97Option()) {
    nextToken();
    CHECK_AT(tokType == TokNone, tokenLine, tokenColumn,
             "found %s where a node, PROTO, EXTERNPROTO or ROUTE was expected",
             describeToken().c_str());
  }
  renameHiddenNodes(namedNodes);
  hiddenNodes.clear();
}

void VPFile::startText(char* text) {
  cursor = text;
  savedChar = static_cast<unsigned char>(*text);
  pushedBack = 0;
  lineNumber = 1;
  lineStart = text;
}

void VPFile::skipSpace() {
  *cursor = char(savedChar);
  while (isspace(static_cast<unsigned char>(*cursor))) {
    if (*cursor == '\n') {
      lineNumber++;
      lineStart = cursor + 1;
    }
    cursor++;
  }
  savedChar = static_cast<unsigned char>(*cursor);
}

/* ---------------------------------------------------------------------------
 * Tokenizer: tokens are cut in place by a NUL behind them
 * ------------------------------------------------------------------------ */

namespace {

inline bool isIdentifierStart(unsigned char c) { return isalpha(c) || c == '_'; }
inline bool isIdentifierPart(unsigned char c) { return isalnum(c) || c == '_' || c == '-'; }

inline bool isVrml97NameStart(unsigned char c) {
  return vrml97NameBytes.part[c] && !isdigit(c) && c != '+' && c != '-';
}

}  // namespace

void VPFile::nextToken() {
  if (pushedBack) {
    pushedBack = 0;
    return;
  }
  *cursor = char(savedChar);
  for (;;) {
    unsigned char c = *cursor;
    if (c == '\n') {
      lineNumber++;
      lineStart = ++cursor;
    } else if (isspace(c) || c == ',') {
      cursor++;
    } else if (c == '#') {
      while (*cursor != 0 && *cursor != '\n') cursor++;
    } else {
      break;
    }
  }
  token = cursor;
  tokenLine = lineNumber;
  tokenColumn = int(cursor - lineStart) + 1;
  unsigned char c = *cursor;
  if (vrml97Option() ? isVrml97NameStart(c) : isIdentifierStart(c)) {
    scanIdentifier();
  } else if (c == '-' || c == '+' || c == '.' || isdigit(c)) {
    scanNumber();
  } else if (c == '"') {
    scanString();
  } else if (c == 0) {
    tokType = TokNone;
    savedChar = 0;
  } else {
    cursor++;
    endToken(TokSymbol);
  }
}

void VPFile::endToken(int type) {
  savedChar = static_cast<unsigned char>(*cursor);
  *cursor = 0;
  tokType = type;
}

void VPFile::scanIdentifier() {
  if (vrml97Option()) {
    while (vrml97NameBytes.part[static_cast<unsigned char>(*cursor)]) cursor++;
  } else {
    while (isIdentifierPart(static_cast<unsigned char>(*cursor))) cursor++;
  }
  endToken(TokId);
  if (strcmp(token, "TRUE") == 0) {
    tokType = TokBool;
    tokValue.intValue = 1;
  } else if (strcmp(token, "FALSE") == 0) {
    tokType = TokBool;
    tokValue.intValue = 0;
  }
}

void VPFile::scanNumber() {
  char* p = cursor;
  if (*p == '.' && !isDecimalDigit(p[1])) {
    cursor++;
    endToken(TokSymbol);
    return;
  }
  if (*p == '-' || *p == '+') p++;
  while (*p == '0') p++;
  if (*p == 'x' || *p == 'X') {
    char* digits = p + 1;
    cursor = skipHexDigits(digits);
    endToken(TokInt);
    readHexadecimal(digits, &tokValue.intValue);
    return;
  }
  bool isFloat;
  cursor = skipDecimalNumber(p, &isFloat);
  if (isFloat) {
    endToken(TokFloat);
    readFloat(token, &tokValue.floatValue);
  } else {
    endToken(TokInt);
    readDecimal(token, &tokValue.intValue);
  }
}

// The token keeps its quotes and backslashes; an escaped quote does not end it.
void VPFile::scanString() {
  char* p = cursor + 1;
  while (*p != 0 && *p != '"') {
    if (*p == '\\') {
      p++;
      if (*p == 0) break;
    }
    if (*p == '\n') {
      lineNumber++;
      lineStart = p + 1;
    }
    p++;
  }
  if (*p == '"') p++;
  cursor = p;
  endToken(TokString);
}

/* ---------------------------------------------------------------------------
 * Built-in library: the standard nodes as EXTERNPROTOs with default values
 * ------------------------------------------------------------------------ */

namespace {

const char* const libraryChunks[] = {
    R"vrml(#VRML V2.0 utf8
EXTERNPROTO Anchor [
eventIn MFNode addChildren
eventIn MFNode removeChildren
exposedField MFNode children=[]
field SFVec3f bboxCenter=0 0 0
field SFVec3f bboxSize=-1 -1 -1
exposedField SFString description=""
exposedField MFString parameter=[]
exposedField MFString url=[]
] "urn:wp:#QvAnchor"
EXTERNPROTO Appearance [
exposedField SFNode material=NULL
exposedField SFNode texture=NULL
exposedField SFNode textureTransform=NULL
] "urn:wp:#QvAppearance"
EXTERNPROTO AudioClip [
exposedField SFString description=""
exposedField SFBool loop=FALSE
exposedField SFFloat pitch=1.0
exposedField SFTime startTime=0
exposedField SFTime stopTime=0
exposedField MFString url=[]
eventOut SFTime duration_changed
eventOut SFBool isActive
] "urn:wp:#QvAudioClip"
EXTERNPROTO Background [
eventIn SFBool set_bind
eventOut SFBool isBound
exposedField MFFloat groundAngle=[]
exposedField MFColor groundColor=[]
exposedField MFString backUrl=[]
exposedField MFString bottomUrl=[]
exposedField MFString frontUrl=[]
exposedField MFString leftUrl=[]
exposedField MFString rightUrl=[]
exposedField MFString topUrl=[]
exposedField MFFloat skyAngle=[]
exposedField MFColor skyColor=[ 0 0 0 ]
] "urn:wp:#QvBackground"
EXTERNPROTO Billboard [
eventIn MFNode addChildren
eventIn MFNode removeChildren
exposedField MFNode children=[]
field SFVec3f bboxCenter=0 0 0
field SFVec3f bboxSize=-1 -1 -1
exposedField SFVec3f axisOfRotation=0 1 0
] "urn:wp:#QvBillboard"
EXTERNPROTO Box [
field SFVec3f size=2 2 2
] "urn:wp:#QvBox"
EXTERNPROTO Collision [
eventIn MFNode addChildren
eventIn MFNode removeChildren
exposedField MFNode children=[]
field SFVec3f bboxCenter=0 0 0
field SFVec3f bboxSize=-1 -1 -1
exposedField SFBool collide=TRUE
field SFNode proxy=NULL
eventOut SFTime collideTime
] "urn:wp:#QvCollision"
)vrml",
    R"vrml(#VRML V2.0 utf8
EXTERNPROTO Color [
exposedField MFColor color=[]
] "urn:wp:#QvColor"
EXTERNPROTO ColorInterpolator [
eventIn SFFloat set_fraction
exposedField MFFloat key=[]
exposedField MFColor keyValue=[]
eventOut SFColor value_changed
] "urn:wp:#QvColorInterpolator"
EXTERNPROTO Cone [
field SFFloat bottomRadius=1
field SFFloat height=2
field SFBool side=TRUE
field SFBool bottom=TRUE
] "urn:wp:#QvCone"
EXTERNPROTO Coordinate [
exposedField MFVec3f point=[]
] "urn:wp:#QvCoordinate"
EXTERNPROTO CoordinateInterpolator [
eventIn SFFloat set_fraction
exposedField MFFloat key=[]
exposedField MFVec3f keyValue=[]
eventOut MFVec3f value_changed
] "urn:wp:#QvCoordinateInterpolator"
EXTERNPROTO Cylinder [
field SFBool bottom=TRUE
field SFFloat height=2
field SFFloat radius=1
field SFBool side=TRUE
field SFBool top=TRUE
] "urn:wp:#QvCylinder"
EXTERNPROTO CylinderSensor [
exposedField SFBool enabled=TRUE
eventOut SFBool isActive
exposedField SFBool autoOffset=TRUE
exposedField SFFloat diskAngle=0.262
exposedField SFFloat maxAngle=-1
exposedField SFFloat minAngle=0
exposedField SFFloat offset=0
eventOut SFRotation rotation_changed
eventOut SFVec3f trackPoint_changed
] "urn:wp:#QvCylinderSensor"
EXTERNPROTO DirectionalLight [
exposedField SFFloat ambientIntensity=0
exposedField SFColor color=1 1 1
exposedField SFFloat intensity=1
exposedField SFBool on=TRUE
exposedField SFVec3f direction=0 0 -1
] "urn:wp:#QvDirectionalLight"
EXTERNPROTO ElevationGrid [
eventIn MFFloat set_height
exposedField SFNode color=NULL
exposedField SFNode normal=NULL
exposedField SFNode texCoord=NULL
field MFFloat height=[]
field SFBool ccw=TRUE
field SFBool colorPerVertex=TRUE
field SFFloat creaseAngle=0
field SFBool normalPerVertex=TRUE
field SFBool solid=TRUE
field SFInt32 xDimension=0
field SFFloat xSpacing=1.0
field SFInt32 zDimension=0
field SFFloat zSpacing=1.0
] "urn:wp:#QvElevationGrid"
)vrml",
    R"vrml(#VRML V2.0 utf8
EXTERNPROTO Extrusion [
eventIn MFVec2f set_crossSection
eventIn MFRotation set_orientation
eventIn MFVec2f set_scale
eventIn MFVec3f set_spine
field SFBool beginCap=TRUE
field SFBool ccw=TRUE
field SFBool convex=TRUE
field SFFloat creaseAngle=0
field MFVec2f crossSection=[ 1 1, 1 -1, -1 -1, -1 1, 1 1 ]
field SFBool endCap=TRUE
field MFRotation orientation=0 0 1 0
field MFVec2f scale=1 1
field SFBool solid=TRUE
field MFVec3f spine=[ 0 0 0, 0 1 0 ]
] "urn:wp:#QvExtrusion"
EXTERNPROTO Fog [
eventIn SFBool set_bind
eventOut SFBool isBound
exposedField SFColor color=1 1 1
exposedField SFString fogType="LINEAR"
exposedField SFFloat visibilityRange=0
] "urn:wp:#QvFog"
EXTERNPROTO FontStyle [
field MFString family=[ "SERIF" ]
field SFBool horizontal=TRUE
field MFString justify="BEGIN"
field SFString language=""
field SFBool leftToRight=TRUE
field SFFloat size=1.0
field SFFloat spacing=1.0
field SFString style="PLAIN"
field SFBool topToBottom=TRUE
] "urn:wp:#QvFontStyle"
EXTERNPROTO Group [
eventIn MFNode addChildren
eventIn MFNode removeChildren
exposedField MFNode children=[]
field SFVec3f bboxCenter=0 0 0
field SFVec3f bboxSize=-1 -1 -1
] "urn:wp:#QvGroup"
EXTERNPROTO ImageTexture [
field SFBool repeatS=TRUE
field SFBool repeatT=TRUE
exposedField MFString url=[]
] "urn:wp:#QvImageTexture"
EXTERNPROTO IndexedFaceSet [
eventIn MFInt32 set_colorIndex
eventIn MFInt32 set_coordIndex
eventIn MFInt32 set_normalIndex
eventIn MFInt32 set_texCoordIndex
exposedField SFNode color=NULL
exposedField SFNode coord=NULL
exposedField SFNode normal=NULL
exposedField SFNode texCoord=NULL
field SFBool ccw=TRUE
field MFInt32 colorIndex=[]
field SFBool colorPerVertex=TRUE
field SFBool convex=TRUE
field MFInt32 coordIndex=[]
field SFFloat creaseAngle=0
field MFInt32 normalIndex=[]
field SFBool normalPerVertex=TRUE
field SFBool solid=TRUE
field MFInt32 texCoordIndex=[]
] "urn:wp:#QvIndexedFaceSet"
)vrml",
    R"vrml(#VRML V2.0 utf8
EXTERNPROTO IndexedLineSet [
eventIn MFInt32 set_colorIndex
eventIn MFInt32 set_coordIndex
exposedField SFNode color=NULL
exposedField SFNode coord=NULL
field MFInt32 colorIndex=[]
field SFBool colorPerVertex=TRUE
field MFInt32 coordIndex=[]
] "urn:wp:#QvIndexedLineSet"
EXTERNPROTO Inline [
exposedField MFString url=[]
field SFVec3f bboxCenter=0 0 0
field SFVec3f bboxSize=-1 -1 -1
] "urn:wp:#QvInline"
EXTERNPROTO LOD [
exposedField MFNode level=[]
field SFVec3f center=0 0 0
field MFFloat range=[]
] "urn:wp:#QvLOD"
EXTERNPROTO Material [
exposedField SFFloat ambientIntensity=0.2
exposedField SFColor diffuseColor=0.8 0.8 0.8
exposedField SFColor emissiveColor=0 0 0
exposedField SFFloat shininess=0.2
exposedField SFColor specularColor=0 0 0
exposedField SFFloat transparency=0
] "urn:wp:#QvMaterial"
EXTERNPROTO MovieTexture [
field SFBool repeatS=TRUE
field SFBool repeatT=TRUE
exposedField SFBool loop=FALSE
exposedField SFFloat speed=1.0
exposedField SFTime startTime=0
exposedField SFTime stopTime=0
exposedField MFString url=[]
eventOut SFTime duration_changed
eventOut SFBool isActive
] "urn:wp:#QvMovieTexture"
EXTERNPROTO NavigationInfo [
eventIn SFBool set_bind
eventOut SFBool isBound
exposedField MFFloat avatarSize=[ 0.25, 1.6, 0.75 ]
exposedField SFBool headlight=TRUE
exposedField SFFloat speed=1.0
exposedField MFString type="WALK"
exposedField SFFloat visibilityLimit=0.0
] "urn:wp:#QvNavigationInfo"
EXTERNPROTO Normal [
exposedField MFVec3f vector=[]
] "urn:wp:#QvNormal"
EXTERNPROTO NormalInterpolator [
eventIn SFFloat set_fraction
exposedField MFFloat key=[]
exposedField MFVec3f keyValue=[]
eventOut MFVec3f value_changed
] "urn:wp:#QvNormalInterpolator"
EXTERNPROTO OrientationInterpolator [
eventIn SFFloat set_fraction
exposedField MFFloat key=[]
exposedField MFRotation keyValue=[]
eventOut SFRotation value_changed
] "urn:wp:#QvOrientationInterpolator"
)vrml",
    R"vrml(#VRML V2.0 utf8
EXTERNPROTO PixelTexture [
field SFBool repeatS=TRUE
field SFBool repeatT=TRUE
exposedField SFImage image=0 0 0
] "urn:wp:#QvPixelTexture"
EXTERNPROTO PlaneSensor [
exposedField SFBool enabled=TRUE
eventOut SFBool isActive
exposedField SFBool autoOffset=TRUE
exposedField SFVec2f maxPosition=-1 -1
exposedField SFVec2f minPosition=0 0
exposedField SFVec3f offset=0 0 0
eventOut SFVec3f trackPoint_changed
eventOut SFVec3f translation_changed
] "urn:wp:#QvPlaneSensor"
EXTERNPROTO PointLight [
exposedField SFFloat ambientIntensity=0
exposedField SFColor color=1 1 1
exposedField SFFloat intensity=1
exposedField SFBool on=TRUE
exposedField SFVec3f attenuation=1 0 0
exposedField SFVec3f location=0 0 0
exposedField SFFloat radius=100
] "urn:wp:#QvPointLight"
EXTERNPROTO PointSet [
exposedField SFNode color=NULL
exposedField SFNode coord=NULL
] "urn:wp:#QvPointSet"
EXTERNPROTO PositionInterpolator [
eventIn SFFloat set_fraction
exposedField MFFloat key=[]
exposedField MFVec3f keyValue=[]
eventOut SFVec3f value_changed
] "urn:wp:#QvPositionInterpolator"
EXTERNPROTO ProximitySensor [
exposedField SFVec3f center=0 0 0
exposedField SFVec3f size=0 0 0
exposedField SFBool enabled=TRUE
eventOut SFBool isActive
eventOut SFVec3f position_changed
eventOut SFRotation orientation_changed
eventOut SFTime enterTime
eventOut SFTime exitTime
] "urn:wp:#QvProximitySensor"
EXTERNPROTO ScalarInterpolator [
eventIn SFFloat set_fraction
exposedField MFFloat key=[]
exposedField MFFloat keyValue=[]
eventOut SFFloat value_changed
] "urn:wp:#QvScalarInterpolator"
EXTERNPROTO Script [
exposedField MFString url=[]
field SFBool directOutput=FALSE
field SFBool mustEvaluate=FALSE
] "urn:wp:#QvScript"
EXTERNPROTO Shape [
exposedField SFNode appearance=NULL
exposedField SFNode geometry=NULL
] "urn:wp:#QvShape"
)vrml",
    R"vrml(#VRML V2.0 utf8
EXTERNPROTO Sound [
exposedField SFVec3f direction=0 0 1
exposedField SFFloat intensity=1
exposedField SFVec3f location=0 0 0
exposedField SFFloat maxBack=10
exposedField SFFloat maxFront=10
exposedField SFFloat minBack=1
exposedField SFFloat minFront=1
exposedField SFFloat priority=0
exposedField SFNode source=NULL
field SFBool spatialize=TRUE
] "urn:wp:#QvSound"
EXTERNPROTO Sphere [
field SFFloat radius=1
] "urn:wp:#QvSphere"
EXTERNPROTO SphereSensor [
exposedField SFBool enabled=TRUE
eventOut SFBool isActive
exposedField SFBool autoOffset=TRUE
exposedField SFRotation offset=0 1 0 0
eventOut SFRotation rotation_changed
eventOut SFVec3f trackPoint_changed
] "urn:wp:#QvSphereSensor"
EXTERNPROTO SpotLight [
exposedField SFFloat ambientIntensity=0
exposedField SFColor color=1 1 1
exposedField SFFloat intensity=1
exposedField SFBool on=TRUE
exposedField SFVec3f attenuation=1 0 0
exposedField SFVec3f location=0 0 0
exposedField SFFloat radius=100
exposedField SFFloat beamWidth=1.570796
exposedField SFFloat cutOffAngle=0.785398
exposedField SFVec3f direction=0 0 -1
] "urn:wp:#QvSpotLight"
EXTERNPROTO Switch [
exposedField MFNode choice=[]
exposedField SFInt32 whichChoice=-1
] "urn:wp:#QvSwitch"
EXTERNPROTO Text [
exposedField MFString string=[]
exposedField SFNode fontStyle=NULL
exposedField MFFloat length=[]
exposedField SFFloat maxExtent=0.0
] "urn:wp:#QvText"
EXTERNPROTO TextureCoordinate [
exposedField MFVec2f point=[]
] "urn:wp:#QvTextureCoordinate"
EXTERNPROTO TextureTransform [
exposedField SFVec2f center=0 0
exposedField SFFloat rotation=0
exposedField SFVec2f scale=1 1
exposedField SFVec2f translation=0 0
] "urn:wp:#QvTextureTransform"
)vrml",
    R"vrml(#VRML V2.0 utf8
EXTERNPROTO TimeSensor [
exposedField SFTime cycleInterval=1
exposedField SFBool enabled=TRUE
exposedField SFBool loop=FALSE
exposedField SFTime startTime=0
exposedField SFTime stopTime=0
eventOut SFTime cycleTime
eventOut SFFloat fraction_changed
eventOut SFBool isActive
eventOut SFTime time
] "urn:wp:#QvTimeSensor"
EXTERNPROTO TouchSensor [
exposedField SFBool enabled=TRUE
eventOut SFBool isActive
eventOut SFVec3f hitNormal_changed
eventOut SFVec3f hitPoint_changed
eventOut SFVec2f hitTexCoord_changed
eventOut SFBool isOver
eventOut SFTime touchTime
] "urn:wp:#QvTouchSensor"
EXTERNPROTO Transform [
eventIn MFNode addChildren
eventIn MFNode removeChildren
exposedField MFNode children=[]
field SFVec3f bboxCenter=0 0 0
field SFVec3f bboxSize=-1 -1 -1
exposedField SFVec3f center=0 0 0
exposedField SFRotation rotation=0 0 1 0
exposedField SFVec3f scale=1 1 1
exposedField SFRotation scaleOrientation=0 0 1 0
exposedField SFVec3f translation=0 0 0
] "urn:wp:#QvTransform"
EXTERNPROTO Viewpoint [
eventIn SFBool set_bind
eventOut SFBool isBound
exposedField SFFloat fieldOfView=0.785398
exposedField SFBool jump=TRUE
exposedField SFRotation orientation=0 0 1 0
exposedField SFVec3f position=0 0 10
field SFString description=""
eventOut SFTime bindTime
] "urn:wp:#QvViewpoint"
EXTERNPROTO VisibilitySensor [
exposedField SFVec3f center=0 0 0
exposedField SFBool enabled=TRUE
exposedField SFVec3f size=0 0 0
eventOut SFTime enterTime
eventOut SFTime exitTime
eventOut SFBool isActive
] "urn:wp:#QvVisibilitySensor"
EXTERNPROTO WorldInfo [
field MFString info=[]
field SFString title=""
] "urn:wp:#QvWorldInfo"
)vrml",
};

using DeclarationIndex = std::unordered_map<std::string_view, std::string_view>;

// Each standard node's declaration in the library text, from its line
// "EXTERNPROTO name [" to the end of its url; the first of a name counts.
DeclarationIndex indexLibrary() {
  static const char kStart[] = "\nEXTERNPROTO ";
  DeclarationIndex declarations;
  for (const char* chunk : libraryChunks) {
    for (const char* found = strstr(chunk, kStart); found != nullptr; found = strstr(found + 1, kStart)) {
      const char* name = found + strlen(kStart);
      const char* nameEnd = strchr(name, ' ');
      if (nameEnd == nullptr || strncmp(nameEnd, " [\n", 3) != 0) continue;
      const char* url = strstr(found, "\n] \"");
      const char* end = strchr(url + 4, '"');
      declarations.emplace(std::string_view(name, nameEnd - name),
                           std::string_view(found, end + 1 - found));
    }
  }
  return declarations;
}

// The library text never changes: it is indexed once for the process, and a
// name that no standard node has costs one lookup, not a search of the text.
std::string_view builtinDeclaration(const char* name) {
  static const DeclarationIndex declarations = indexLibrary();
  auto found = declarations.find(name);
  return found != declarations.end() ? found->second : std::string_view();
}

}  // namespace

VPFile::VPFile() {
  protos = new StringTable(kFirstBucketCount, nullptr);
  namedNodes = new StringTable(kFirstBucketCount, nullptr);
  localProtos = new StringTable(kFirstBucketCount, nullptr);
}

// The standard nodes are declared when the world first names one: a world
// uses few of them, and reading them all took most of a small world's run.
// Each is read by a file of its own, whose tokenizer this one's does not disturb.
StringTable::Entry* VPFile::findTopProto(const char* name) {
  StringTable::Entry* entry = protos->findString(name);
  if (entry != nullptr || isLibrary) return entry;
  std::string_view declaration = builtinDeclaration(name);
  if (declaration.empty()) return nullptr;
  std::string text = "#VRML V2.0 utf8" + std::string(declaration);
  std::vector<char> buffer(text.begin(), text.end());
  buffer.push_back(0);  // the tokenizer writes into it
  VPFile library;
  library.isLibrary = true;
  library.parseText(buffer.data());
  VPNode* builtin = library.topLevel->node;
  builtin->declaration->isBuiltin = 1;
  return protos->addString(name, builtin);
}

/* ---------------------------------------------------------------------------
 * Field values: a reader gives a cell, or NULL with the token pushed back
 * ------------------------------------------------------------------------ */

namespace {

VPFieldList* findDeclaredField(VPFieldList* list, const char* name) { return findInList(list, name, 0); }

VPRedirect* newRedirect(VPNode* proto, VPField* field) {
  VPRedirect* redirect = newRecord<VPRedirect>();
  *redirect = {proto, field};
  return redirect;
}

VPValue* newIntCell(int32_t value) {
  VPValue* cell = newRecord<VPValue>();
  cell->intValue = value;
  return cell;
}

VPValue* newFloatCell(float value) {
  VPValue* cell = newRecord<VPValue>();
  cell->floatValue = value;
  return cell;
}

}  // namespace

void VPFile::parseFieldValue(VPFieldList* cell) {
  nextToken();
  if (strcmp(token, "IS") == 0) {
    CHECK_AT(currentProto != NULL, tokenLine, tokenColumn,
             "found IS outside a PROTO body, where a value was expected");
    nextToken();
    VPFieldList* declared = findDeclaredField(currentProto->fields, token);
    if (declared == nullptr) CHECK_AT(0, tokenLine, tokenColumn, "%s", isTargetSentence().c_str());
    cell->redirect = newRedirect(currentProto, declared->field);
    return;
  }
  pushBack();
  withStackRoom([&]() { cell->value = (this->*fieldType(cell->field->theType).reader)(); });
}

bool VPFile::parseFloatToken(float* result) {
  nextToken();
  if (tokType == TokInt) {
    // --vrml97: a whole number of any size, not its low 32 bits. A sign alone
    // reads as no number and keeps the value that the token has.
    *result = float(tokValue.intValue);
    if (vrml97Option() && strpbrk(token, "xX") == nullptr) readFloat(token, result);
  } else if (tokType == TokFloat) {
    *result = tokValue.floatValue;
  } else {
    pushBack();
    return false;
  }
  return true;
}

// A value of `count` numbers. Cut short after its first number, it is reported
// on the error stream and lost.
VPValue* VPFile::parseFloatTuple(int count, const char* partialWord) {
  float values[4];
  if (!parseFloatToken(&values[0])) return nullptr;
  for (int i = 1; i < count; i++) {
    if (!parseFloatToken(&values[i])) {
      reportAtInput(tokenLine, tokenColumn, "found %s where a number was expected: an SF%s has %d",
                    describeToken().c_str(), partialWord, count);
      printMessage("Partial %s on line %d\n", partialWord, lineNumber);
      return nullptr;
    }
  }
  VPValue* cell = newRecord<VPValue>();
  cell->floats = newArray<float>(size_t(count));
  memcpy(cell->floats, values, sizeof(float) * size_t(count));
  return cell;
}

VPValue* VPFile::parseSFBool() {
  nextToken();
  if (tokType != TokBool) {
    pushBack();
    return nullptr;
  }
  return newIntCell(tokValue.intValue);
}

VPValue* VPFile::parseSFInt32() {
  nextToken();
  if (tokType != TokInt) {
    pushBack();
    return nullptr;
  }
  return newIntCell(tokValue.intValue);
}

VPValue* VPFile::parseSFFloat() {
  float value;
  return parseFloatToken(&value) ? newFloatCell(value) : nullptr;
}

VPValue* VPFile::parseSFTime() { return parseSFFloat(); }
VPValue* VPFile::parseSFColor() { return parseFloatTuple(3, "Color"); }
VPValue* VPFile::parseSFRotation() { return parseFloatTuple(4, "Rotation"); }
VPValue* VPFile::parseSFVec2f() { return parseFloatTuple(2, "Vec2f"); }
VPValue* VPFile::parseSFVec3f() { return parseFloatTuple(3, "Vec3f"); }

VPValue* VPFile::parseSFString() {
  nextToken();
  if (tokType != TokString) {
    pushBack();
    return nullptr;
  }
  VPValue* cell = newRecord<VPValue>();
  cell->string = copyString(token);
  return cell;
}

namespace {

void growPixels(VPImage* image, int64_t kept, int64_t room) {
  int32_t* pixels = newArray<int32_t>(size_t(room));
  if (kept > 0) {
    std::copy(image->pixels, image->pixels + kept, pixels);
    releaseObject(image->pixels);
  }
  image->pixels = pixels;
}

}  // namespace

// Width, height, components, then width * height pixels; past the first
// integer, every token must be an integer.
VPValue* VPFile::parseSFImage() {
  nextToken();
  if (tokType != TokInt) {
    pushBack();
    return nullptr;
  }
  VPImage* image = newRecord<VPImage>();
  image->width = tokValue.intValue;
  nextToken();
  CHECK_AT(tokType == TokInt, tokenLine, tokenColumn,
           "found %s where a whole number was expected: the height of an SFImage",
           describeToken().c_str());
  image->height = tokValue.intValue;
  nextToken();
  CHECK_AT(tokType == TokInt, tokenLine, tokenColumn,
           "found %s where a whole number was expected: the components of an SFImage",
           describeToken().c_str());
  image->components = tokValue.intValue;
  int64_t count = pixelCount(image);
  // The array grows with the pixels read: a short text may announce an image
  // of billions of pixels and then end.
  int64_t room = 0;
  for (int64_t i = 0; i < count; i++) {
    nextToken();
    CHECK_AT(tokType == TokInt, tokenLine, tokenColumn,
             "found %s where a whole number was expected: pixel %d of the %d of an SFImage",
             describeToken().c_str(), int(i + 1), int(count));
    if (i == room) growPixels(image, i, room = std::min(count, std::max<int64_t>(2 * room, 1024)));
    image->pixels[i] = tokValue.intValue;
  }
  VPValue* cell = newRecord<VPValue>();
  cell->image = image;
  return cell;
}

// List: "[" { element } "]" | element
VPValue* VPFile::parseList(VPValue* (VPFile::*elementReader)()) {
  nextToken();
  if (token[0] != '[') {
    pushBack();
    return (this->*elementReader)();
  }
  int openLine = tokenLine;
  VPValue* head = nullptr;
  VPValue** nextValue = &head;
  while (VPValue* cell = (this->*elementReader)()) {
    CHECK((*nextValue) == NULL);
    *nextValue = cell;
    nextValue = &cell->next;
  }
  nextToken();
  CHECK_AT(*token == ']', tokenLine, tokenColumn,
           "found %s where ']' was expected to close the '[' of line %d", describeToken().c_str(),
           openLine);
  return head;
}

VPValue* VPFile::parseMFColor() { return parseList(&VPFile::parseSFColor); }
VPValue* VPFile::parseMFFloat() { return parseList(&VPFile::parseSFFloat); }
VPValue* VPFile::parseMFInt32() { return parseList(&VPFile::parseSFInt32); }
VPValue* VPFile::parseMFNode() { return parseList(&VPFile::parseNodeOrProto); }
VPValue* VPFile::parseMFRotation() { return parseList(&VPFile::parseSFRotation); }
VPValue* VPFile::parseMFString() { return parseList(&VPFile::parseSFString); }
VPValue* VPFile::parseMFTime() { return parseList(&VPFile::parseSFTime); }
VPValue* VPFile::parseMFVec2f() { return parseList(&VPFile::parseSFVec2f); }
VPValue* VPFile::parseMFVec3f() { return parseList(&VPFile::parseSFVec3f); }

/* ---------------------------------------------------------------------------
 * Nodes, PROTOs and ROUTEs
 * ------------------------------------------------------------------------ */

VPNodeList* VPFile::newNodeList(VPNode* node) {
  VPNodeList* cell = newRecord<VPNodeList>();
  cell->node = node;
  return cell;
}

VPNodeList* VPFile::newDeclaration(int nodeType) {
  VPNodeList* cell = newNodeList(newRecord<VPNode>());
  cell->node->nodeType = nodeType;
  cell->node->position = tokenPosition();
  cell->node->declaration = newRecord<VPDeclaration>();
  return cell;
}

// NodeOrProto: EXTERNPROTO ... | PROTO ... | NULL | DEF Id Node | USE Id
//            | ROUTE ... NodeOrProto | Node
VPNodeList* VPFile::parseNodeOrProto() {
  for (;;) {
    nextToken();
    if (strcmp(token, "EXTERNPROTO") == 0) return parseExternProto();
    if (strcmp(token, "PROTO") == 0) return parseProto();
    if (strcmp(token, "NULL") == 0) return newNodeList(nullptr);
    if (strcmp(token, "DEF") == 0 || strcmp(token, "USE") == 0) {
      bool isUse = token[0] == 'U';
      nextToken();
      CHECK_AT(tokType == TokId, tokenLine, tokenColumn, "found %s where a name was expected",
               describeToken().c_str());
      if (!isUse) return parseNode(copyString(token));
      VPNode* node = findNamedNode(token);
      CHECK_AT(node != NULL, tokenLine, tokenColumn, "%s", definedNameSentence().c_str());
      node->refCount++;
      return newNodeList(node);
    }
    if (strcmp(token, "ROUTE") != 0) break;
    parseRoute();
  }
  pushBack();
  return parseNode(nullptr);
}

void VPFile::enterNodeName(char* nodeName, VPNode* node) {
  if (currentProto != nullptr) {
    CHECK(currentProtoNamedNodes->findString (nodeName) == 0);
    currentProtoNamedNodes->addString(nodeName, node);
  } else {
    CHECK(namedNodes->findString (nodeName) == 0);
    namedNodes->addString(nodeName, node);
  }
}

// Node: TypeName "{" [ Interface ] NodeFields "}"
// The DEF name is entered before the fields, so the node's own subtree can
// refer to it. A duplicate name keeps the earlier node in this place.
VPNodeList* VPFile::parseNode(char* nodeName) {
  nextToken();
  VPNode* proto = findProto(token);
  if (proto == nullptr) {
    if (tokType == TokId) reportUnknownNodeType();
    pushBack();
    return nullptr;
  }
  InputPosition position = tokenPosition();
  nextToken();
  CHECK_AT(*token == '{', tokenLine, tokenColumn, "found %s where '{' was expected after %s",
           describeToken().c_str(), proto->name);
  int openLine = tokenLine;
  VPNodeList* result = newNodeList(newRecord<VPNode>());
  VPNode* node = result->node;
  node->position = position;
  node->refCount = 1;
  node->other.baseProto = proto;
  node->nodeType = strcmp(proto->name, "Script") == 0 ? VPNode::SCRIPT : VPNode::OTHER;
  VPNode* earlier = nullptr;
  if (vrml97Option()) {
    if (nodeName != nullptr) nameNode(node, nodeName);
    parseScriptFields(node, proto->fields);
  } else {
    if (node->nodeType == VPNode::SCRIPT) node->other.script.fields = parseInterface(1);
    if (nodeName != nullptr) {
      node->name = nodeName;
      earlier = findNamedNode(nodeName);
      if (earlier != nullptr) {
        reportError("Duplicate definition for node %s (deleting)!", nodeName);
        earlier->refCount++;
      } else {
        enterNodeName(nodeName, node);
      }
    }
    node->fields = parseNodeFields(proto->fields);
  }
  nextToken();
  CHECK_AT(*token == '}', tokenLine, tokenColumn, "%s", nodeEndSentence(proto, openLine).c_str());
  if (earlier != nullptr) {
    result->node = earlier;
  } else if (proto->nodeType == VPNode::PROTO) {
    CHECK(result->node->nodeType == VPNode::OTHER);
    VPNodeList* instance = newNodeList(node);
    instance->next = proto->declaration->instances;
    proto->declaration->instances = instance;
  }
  return result;
}

void VPFile::reportUnknownNodeType() {
  reportAtInput(tokenLine, tokenColumn,
                "found %s where a node was expected: no standard node, PROTO or EXTERNPROTO has "
                "this name",
                describeToken().c_str());
  markStopPlaced();
  printMessage("Line %d node type %s unknown!\n", lineNumber, token);
}

namespace {

// Fields that X3D added to the nodes of VRML 2.0, which worlds of X3D tools carry.
bool isX3dField(const char* name) {
  for (const char* x3dField : {"metadata", "visible", "bboxDisplay", "castShadow"}) {
    if (strcmp(name, x3dField) == 0) return true;
  }
  return false;
}

}  // namespace

// What stands where a node's fields end: a field that its type lacks, or the
// end of the text where its '}' is missing.
std::string VPFile::nodeEndSentence(const VPNode* proto, int openLine) const {
  std::string found = "found " + describeToken();
  if (tokType == TokNone) {
    return found + " where '}' was expected to close the '{' of line " + std::to_string(openLine);
  }
  std::string expected = " where a field of " + std::string(proto->name) + " or '}' was expected";
  if (tokType != TokId) return found + expected;
  return found + (isX3dField(token) ? ", an X3D field that " : ", a field that ") + proto->name +
         " does not have," + expected;
}

// --vrml97Option: a Script's interface declarations and its other fields in any order.
// Other nodes have no declarations, and read their fields as ever.
void VPFile::parseScriptFields(VPNode* node, VPFieldList* declared) {
  VPFieldList** lastDeclaration = &node->other.script.fields;
  VPFieldList** lastField = &node->fields;
  for (;;) {
    VPFieldList* declarations = node->nodeType == VPNode::SCRIPT ? parseInterface(1) : nullptr;
    VPFieldList* fields = parseNodeFields(declared);
    if (declarations == nullptr && fields == nullptr) return;
    *lastDeclaration = declarations;
    while (*lastDeclaration != nullptr) lastDeclaration = &(*lastDeclaration)->next;
    *lastField = fields;
    while (*lastField != nullptr) lastField = &(*lastField)->next;
  }
}

// --vrml97Option: a name defined again names the new node from here on, in its scope
// alone: the top level or one PROTO body. The node it was taken from is
// renamed at the end of the scope if a route names it.
void VPFile::nameNode(VPNode* node, char* nodeName) {
  node->name = nodeName;
  StringTable* names = currentProto != nullptr ? currentProtoNamedNodes : namedNodes;
  if (StringTable::Entry* entry = names->findString(nodeName)) {
    hiddenNodes.back().push_back(static_cast<VPNode*>(entry->data));
    entry->data = node;
  } else {
    names->addString(nodeName, node);
  }
}

// The routes of a scope are written behind all its nodes, where a name means
// its last definition: a node that lost its name to a later DEF and has a
// route gets a name of its own, the old one with "_" and the first number that
// the scope does not use.
// Names only come, so the search for an old name goes on where the last
// one ended.
void VPFile::renameHiddenNodes(StringTable* names) {
  std::unordered_map<std::string_view, int> firstUnused;
  for (VPNode* node : hiddenNodes.back()) {
    if (node->other.routesIn == nullptr && node->other.routesOut == nullptr) continue;
    int& number = firstUnused.emplace(node->name, 1).first->second;
    for (;; number++) {
      std::string candidate = std::string(node->name) + "_" + std::to_string(number);
      if (names->findString(candidate.c_str()) != nullptr) continue;
      node->name = copyString(candidate.c_str());
      names->addString(node->name, node);
      break;
    }
  }
}

// A PROTO declared in a PROTO body is known in that body alone, before the
// PROTOs around it.
VPNode* VPFile::findProto(const char* name) {
  StringTable::Entry* local = localProtos->findString(name);
  if (local != nullptr && local->data != nullptr) return static_cast<VPNode*>(local->data);
  StringTable::Entry* entry = findTopProto(name);
  return entry != nullptr ? static_cast<VPNode*>(entry->data) : nullptr;
}

// --vrml97Option: a declaration of a name that the input declared before replaces it
// from here on. The standard nodes keep their names: false, nothing declared.
bool VPFile::declareProto(VPNode* proto) {
  StringTable::Entry* builtin = findTopProto(proto->name);
  if (builtin != nullptr && static_cast<VPNode*>(builtin->data)->declaration->isBuiltin) {
    return false;
  }
  if (localScopes.empty()) {
    if (StringTable::Entry* entry = protos->findString(proto->name)) {
      entry->data = proto;
    } else {
      protos->addString(proto->name, proto);
    }
    return true;
  }
  StringTable::Entry* entry = localProtos->findString(proto->name);
  if (entry == nullptr) entry = localProtos->addString(proto->name, nullptr);
  localScopes.back().push_back({entry, entry->data});
  entry->data = proto;
  return true;
}

void VPFile::endLocalScope() {
  std::vector<HiddenProto>& hidden = localScopes.back();
  for (auto shadow = hidden.rbegin(); shadow != hidden.rend(); ++shadow) {
    shadow->entry->data = shadow->outer;
  }
  localScopes.pop_back();
}

namespace {

/// The declared field that a name in a node's field list means.
struct FieldFit {
  VPFieldList* cell;
  bool setForm;      ///< the name was "set_" and the field's name
  bool changedForm;  ///< the name was the field's name and "_changed"
};

// An exact name ends the search; an alias form holds until a later cell
// fits, so an exact match further down beats it. Aliases apply here to every
// field class.
// As the walk below finds it: the first cell of the name, else the last cell
// of an alias form, with each form that some cell has.
FieldFit findBestFitInIndex(const FieldListIndex& index, const char* token) {
  if (const auto* exact = index.firstNamed.find(token)) return {exact->second, false, false};
  FieldFit fit = {nullptr, false, false};
  size_t fitPosition = 0;
  auto consider = [&index, &fit, &fitPosition](std::string_view name, bool FieldFit::*form) {
    const std::pair<size_t, VPFieldList*>* found = index.lastNamed.find(name);
    if (found == nullptr) return;
    fit.*form = true;
    if (fit.cell == nullptr || found->first > fitPosition) {
      fit.cell = found->second;
      fitPosition = found->first;
    }
  };
  size_t n = strlen(token);
  if (strncmp(token, "set_", 4) == 0) consider(token + 4, &FieldFit::setForm);
  if (n > 8 && strcmp(token + n - 8, "_changed") == 0) {
    consider(std::string_view(token, n - 8), &FieldFit::changedForm);
  }
  return fit;
}

FieldFit findBestFit(VPFieldList* declared, const char* token) {
  if (isLongList(declared)) return findBestFitInIndex(indexOfList(declared), token);
  FieldFit fit = {nullptr, false, false};
  size_t n = strlen(token);
  for (VPFieldList* cell = declared; cell != nullptr; cell = cell->next) {
    const char* name = cell->field->name;
    if (strcmp(name, token) == 0) return {cell, false, false};
    if (strncmp(token, "set_", 4) == 0 && strcmp(name, token + 4) == 0) {
      fit.cell = cell;
      fit.setForm = true;
    } else if (n > 8 && strcmp(token + n - 8, "_changed") == 0 && strlen(name) == n - 8 &&
               strncmp(name, token, n - 8) == 0) {
      fit.cell = cell;
      fit.changedForm = true;
    }
  }
  return fit;
}

}  // namespace

// An alias form is valid only with IS to an event of its direction.
void VPFile::checkAliasForm(VPFieldList* result, VPFieldList* bestFit, bool setForm,
                            bool changedForm) {
  if (setForm) {
    CHECK(result->redirect != NULL);
    CHECK(result->redirect->field->theClass == VPField::EVENT_IN);
    if (bestFit->field->theClass != VPField::EXPOSED_FIELD) {
      const char* name = bestFit->field->name;
      reportAtInput(result->position.line, result->position.column,
                    "found set_%s where %s was expected: %s is no exposedField", name, name, name);
      printMessage("Warning: Line %d, set_%s converted to %s\n", lineNumber, name, name);
    }
  } else if (changedForm) {
    CHECK(result->redirect != NULL);
    CHECK(result->redirect->field->theClass == VPField::EVENT_OUT);
    CHECK(bestFit->field->theClass == VPField::EXPOSED_FIELD);
  }
}

// NodeFields: { ROUTE ... | FieldName FieldValue }, in file order.
VPFieldList* VPFile::parseNodeFields(VPFieldList* declared) {
  VPFieldList* head = nullptr;
  VPFieldList** last = &head;
  for (;;) {
    nextToken();
    for (;;) {
      if (strcmp(token, "ROUTE") == 0) {
        parseRoute();
      } else if (vrml97Option() && (strcmp(token, "PROTO") == 0 || strcmp(token, "EXTERNPROTO") == 0)) {
        pushBack();
        nestedDeclarations.push_back(parseNodeOrProto());  // belongs to the scope around the node
      } else {
        break;
      }
      nextToken();
    }
    FieldFit fit = findBestFit(declared, token);
    VPFieldList* bestFit = fit.cell;
    if (bestFit == nullptr) {
      pushBack();
      return head;
    }
    VPFieldList* result = newRecord<VPFieldList>();
    result->field = bestFit->field;
    result->position = tokenPosition();
    parseFieldValue(result);
    if (result->redirect != nullptr) {
      CHECK_AT(result->redirect->field->theType == bestFit->field->theType, tokenLine, tokenColumn,
               "%s", isTypeSentence(bestFit->field, result->redirect->field).c_str());
    }
    checkAliasForm(result, bestFit, fit.setForm, fit.changedForm);
    *last = result;
    last = &result->next;
  }
}

// Interface: { Declaration }, in file order.
VPFieldList* VPFile::parseInterface(int withValues) {
  VPFieldList* head = nullptr;
  VPFieldList** last = &head;
  while (VPFieldList* cell = parseDeclaration(withValues)) {
    *last = cell;
    last = &cell->next;
  }
  return head;
}

// Declaration: ClassWord TypeWord Id ( FieldValue | [ IS Id ] )
// Without values (an EXTERNPROTO), a field's default follows an "=".
VPFieldList* VPFile::parseDeclaration(int withValues) {
  nextToken();
  int theClass = tokType == TokId ? findWord(fieldClassWords, VP_FIELD_CLASS_COUNT, token) : -1;
  if (theClass < 0) {
    pushBack();
    return nullptr;
  }
  VPField* field = newRecord<VPField>();
  field->theClass = theClass;
  InputPosition position = tokenPosition();
  nextToken();
  field->theType = findTypeWord(token);
  CHECK_AT(field->theType != VPField::TypeNone, tokenLine, tokenColumn,
           "found %s where a field type was expected", describeToken().c_str());
  nextToken();
  CHECK_AT(tokType == TokId, tokenLine, tokenColumn, "found %s where the name of a %s was expected",
           describeToken().c_str(), fieldClassWords[theClass]);
  field->name = copyString(token);
  VPFieldList* cell = newRecord<VPFieldList>();
  cell->field = field;
  cell->position = position;
  if (!withValues) {
    nextToken();
    if (*token != '=') {
      if (vrml97Option() && field->hasValue()) {
        cell->flags |= FIELD_NO_DEFAULT;
      } else {
        CHECK(*token == '=' || field->theClass == VPField::EVENT_IN ||
              field->theClass == VPField::EVENT_OUT);
      }
      pushBack();
      return cell;
    }
  }
  if (field->hasValue()) {
    parseFieldValue(cell);
  } else {
    parseEventIs(cell);
  }
  // A Script's field tied to a PROTO field of another type would read the
  // values of one type as the other.
  if (cell->redirect != nullptr) {
    CHECK_AT(cell->redirect->field->theType == field->theType, tokenLine, tokenColumn, "%s",
             isTypeSentence(field, cell->redirect->field).c_str());
  }
  return cell;
}

void VPFile::parseEventIs(VPFieldList* cell) {
  nextToken();
  if (strcmp(token, "IS") != 0) {
    pushBack();
    return;
  }
  CHECK_AT(currentProto != NULL, tokenLine, tokenColumn,
           "found IS outside a PROTO body, where an event's IS or a declaration was expected");
  nextToken();
  VPFieldList* iter = findDeclaredField(currentProto->fields, token);
  CHECK_AT(iter != NULL, tokenLine, tokenColumn, "%s", isTargetSentence().c_str());
  cell->redirect = newRedirect(currentProto, iter->field);
}

// ExternProto: EXTERNPROTO Id "[" Interface "]" MFString
VPNodeList* VPFile::parseExternProto() {
  VPNodeList* result = newDeclaration(VPNode::EXTERNPROTO);
  nextToken();
  CHECK_AT(tokType == TokId, tokenLine, tokenColumn, "found %s where a name was expected",
           describeToken().c_str());
  result->node->name = copyString(token);
  nextToken();
  CHECK_AT(*token == '[', tokenLine, tokenColumn, "found %s where '[' was expected",
           describeToken().c_str());
  int openLine = tokenLine;
  result->node->fields = parseInterface(0);
  nextToken();
  CHECK_AT(*token == ']', tokenLine, tokenColumn, "%s", interfaceEndSentence(openLine).c_str());
  result->node->declaration->urls = parseMFString();
  if (!vrml97Option() || !declareProto(result->node)) {
    findTopProto(result->node->name);  // declares a standard node of that name
    CHECK(protos->findString (result->node->name) == 0);
    protos->addString(result->node->name, result->node);
  }
  return result;
}

// Proto: PROTO Id "[" Interface "]" "{" { NodeOrProto } "}"
// The name is known only behind the body, so no PROTO holds an instance of itself.
VPNodeList* VPFile::parseProto() {
  VPNodeList* result = newDeclaration(VPNode::PROTO);
  VPNode* proto = result->node;
  nextToken();
  CHECK_AT(tokType == TokId, tokenLine, tokenColumn, "found %s where a name was expected",
           describeToken().c_str());
  proto->name = copyString(token);
  pushContext("Parsing PROTO %s", proto->name);
  nextToken();
  CHECK_AT(*token == '[', tokenLine, tokenColumn, "found %s where '[' was expected",
           describeToken().c_str());
  int openLine = tokenLine;
  proto->fields = parseInterface(1);
  nextToken();
  CHECK_AT(*token == ']', tokenLine, tokenColumn, "%s", interfaceEndSentence(openLine).c_str());
  nextToken();
  CHECK_AT(*token == '{', tokenLine, tokenColumn, "found %s where '{' was expected",
           describeToken().c_str());
  openLine = tokenLine;
  if (!vrml97Option()) CHECK(currentProto == NULL);
  VPNode* outerProto = currentProto;
  StringTable* outerNamedNodes = currentProtoNamedNodes;
  currentProto = proto;
  currentProtoNamedNodes = new StringTable(kFirstBucketCount, nullptr);
  localScopes.emplace_back();
  hiddenNodes.emplace_back();
  parseItems(this, &proto->declaration->body);
  renameHiddenNodes(currentProtoNamedNodes);
  hiddenNodes.pop_back();
  endLocalScope();
  delete currentProtoNamedNodes;
  currentProtoNamedNodes = outerNamedNodes;
  currentProto = outerProto;
  nextToken();
  CHECK_AT(*token == '}', tokenLine, tokenColumn,
           "found %s where a node or '}' was expected to close the '{' of line %d",
           describeToken().c_str(), openLine);
  popContext();
  if (!vrml97Option() || !declareProto(proto)) {
    if (findTopProto(proto->name) != nullptr) {
      reportError("Duplicate definition found for PROTO %s (deleting)!", proto->name);
      return parseNodeOrProto();
    }
    protos->addString(proto->name, proto);
  }
  VPNodeList* cell = newNodeList(proto);
  cell->next = allProtos;
  allProtos = cell;
  return result;
}

std::string VPFile::describeToken() const {
  if (tokType == TokNone) return "the end of the file";
  if (tokType == TokString) return token;
  return std::string("'") + token + "'";
}

std::string VPFile::isTargetSentence() const {
  return "found " + describeToken() + " after IS where a field of PROTO " + currentProto->name +
         " was expected";
}

// A field and the PROTO field that it IS must be of one type.
std::string VPFile::isTypeSentence(const VPField* field, const VPField* protoField) const {
  return "found IS " + describeToken() + ", a field of type " +
         fieldType(protoField->theType).word + ", where a field of type " +
         fieldType(field->theType).word + " was expected for " + field->name;
}

// A declaration's class word, or the ']' that closes the '[' of the line.
std::string VPFile::interfaceEndSentence(int openLine) const {
  return "found " + describeToken() +
         " where a declaration or ']' was expected to close the '[' of line " +
         std::to_string(openLine);
}

void VPFile::expectPoint() {
  nextToken();
  CHECK_AT(token[0] == '.' && token[1] == 0, tokenLine, tokenColumn,
           "found %s where '.' was expected", describeToken().c_str());
}

// Route: ROUTE Id "." Id TO Id "." Id
// The source knows the "_changed" alias, the destination the "set_" alias.
void VPFile::parseRoute() {
  InputPosition position = tokenPosition();
  nextToken();
  VPNode* sourceNode = findNamedNode(token);
  CHECK_AT(sourceNode != NULL, tokenLine, tokenColumn, "%s", definedNameSentence().c_str());
  CHECK(sourceNode->nodeType == VPNode::OTHER || sourceNode->nodeType == VPNode::SCRIPT);
  expectPoint();
  nextToken();
  VPFieldList* sourceCell = findInstanceField(sourceNode, token, CHANGED_ALIAS);
  VPField* sourceField = sourceCell != nullptr ? sourceCell->field : nullptr;
  CHECK_AT(sourceField != NULL, tokenLine, tokenColumn, "%s",
           routeFieldSentence(sourceNode, "an eventOut").c_str());
  sourceCell->flags |= FIELD_ROUTE_SOURCE;
  nextToken();
  CHECK_AT(strcmp (token, "TO") == 0, tokenLine, tokenColumn, "found %s where TO was expected",
           describeToken().c_str());
  nextToken();
  VPNode* destNode = findNamedNode(token);
  CHECK_AT(destNode != NULL, tokenLine, tokenColumn, "%s", definedNameSentence().c_str());
  CHECK(destNode->nodeType == VPNode::OTHER || destNode->nodeType == VPNode::SCRIPT);
  expectPoint();
  nextToken();
  VPFieldList* destCell = findInstanceField(destNode, token, SET_ALIAS);
  VPField* destField = destCell != nullptr ? destCell->field : nullptr;
  CHECK_AT(destField != NULL, tokenLine, tokenColumn, "%s",
           routeFieldSentence(destNode, "an eventIn").c_str());
  VPNode::addRoute(sourceNode, sourceField, destNode, destField)->position = position;
}

std::string VPFile::definedNameSentence() const {
  return "found " + describeToken() +
         " where the name of a node that DEF named before was expected";
}

// `event` is the class of field that the end of the route needs, besides an exposedField.
std::string VPFile::routeFieldSentence(const VPNode* node, const char* event) const {
  return "found " + describeToken() + " where " + event + " or exposedField of " +
         node->other.baseProto->name + " " + node->name + " was expected";
}

/* ---------------------------------------------------------------------------
 * Writer: one item to a line, no indentation, defaults left out
 * ------------------------------------------------------------------------ */

namespace {

// Writes the words with a blank's gap between each two.
void writeWords(FILE* stream, std::initializer_list<const char*> words) {
  for (const char* word : words) {
    if (word != *words.begin()) writeGap(stream, ' ');
    writeText(stream, word);
  }
}

}  // namespace

void VPFile::write(FILE* stream) {
  spacing() = WriterSpacing();
  writeText(stream, "#VRML V2.0 utf8\n");
  for (VPNodeList* cell = topLevel; cell != nullptr; cell = cell->next) {
    writeNode(stream, cell);
  }
  clearVisited();
  for (VPNodeList* cell = topLevel; cell != nullptr; cell = cell->next) {
    if (cell->node != nullptr) cell->node->writeRoutes(stream);
  }
  clearVisited();
}

void VPField::write(FILE* stream) const {
  CHECK(theClass >= 0 && theClass < VP_FIELD_CLASS_COUNT);
  CHECK(theType >= 0 && theType < VP_FIELD_TYPE_COUNT);
  writeWords(stream, {fieldClassWords[theClass], fieldTypes[theType].word, name});
}

void VPNode::write(FILE* stream) {
  if (nodeType == EXTERNPROTO || nodeType == PROTO) {
    if (!visit()) return;
    writeDeclaration(stream);
  } else if (!visit()) {
    CHECK(name != NULL);
    writeWords(stream, {"USE", name});
    writeGap(stream, '\n');
  } else {
    writeInstance(stream);
  }
}

// The routes of a PROTO's body stand inside its braces, behind the body.
void VPNode::writeDeclaration(FILE* stream) {
  writeWords(stream, {nodeType == EXTERNPROTO ? "EXTERNPROTO" : "PROTO", name, "["});
  writeGap(stream, '\n');
  writeFieldList(fields, stream, nodeType == PROTO, 0);
  writeText(stream, "]");
  writeGap(stream, ' ');
  if (nodeType == EXTERNPROTO) {
    if (declaration->urls != nullptr) writeValue(stream, VPField::MFString, declaration->urls);
    return;
  }
  writeText(stream, "{");
  writeGap(stream, '\n');
  VPNodeList* body = declaration->body;
  for (VPNodeList* cell = body; cell != nullptr; cell = cell->next) writeNode(stream, cell);
  clearVisitedNodes(body);
  for (VPNodeList* cell = body; cell != nullptr; cell = cell->next) {
    if (cell->node != nullptr) cell->node->writeRoutes(stream);
  }
  writeText(stream, "}");
  writeGap(stream, '\n');
}

// A Script's interface, with its field values, comes before its other fields.
void VPNode::writeInstance(FILE* stream) {
  if (name != nullptr) {
    writeWords(stream, {"DEF", name});
    writeGap(stream, ' ');
  }
  writeWords(stream, {other.baseProto->name, "{"});
  writeGap(stream, '\n');
  if (nodeType == SCRIPT) writeFieldList(other.script.fields, stream, 1, 0);
  for (VPFieldList* cell = fields; cell != nullptr; cell = cell->next) {
    if (nodeType == SCRIPT && other.script.program != nullptr && !other.script.program->opaque &&
        strcmp(cell->field->name, "url") == 0) {
      writeProgram(stream, cell->value != nullptr ? cell->value->next : nullptr);
    } else {
      writeField(cell, stream, 1, 1);
    }
  }
  writeText(stream, "}");
  writeGap(stream, '\n');
}

// The parsed script replaces the url's string: one javascript: URL, whatever
// scheme the input had. The other entries (--vrml97Option) follow it as read.
void VPNode::writeProgram(FILE* stream, const VPValue* alternatives) {
  beginLine();
  writeText(stream, "url");
  writeGap(stream, ' ');
  if (alternatives != nullptr) {
    writeText(stream, "[");
    writeGap(stream, '\n');
  }
  writeText(stream, "\"javascript:\n");
  other.script.program->printFunctions(stream);
  writeText(stream, "\"");
  writeGap(stream, '\n');
  if (alternatives == nullptr) return;
  for (; alternatives != nullptr; alternatives = alternatives->next) writeString(stream, alternatives);
  writeText(stream, "]");
  writeGap(stream, '\n');
}

void VPNode::writeFieldList(VPFieldList* list, FILE* stream, int withValues, int isInstance) {
  for (VPFieldList* cell = list; cell != nullptr; cell = cell->next) {
    writeField(cell, stream, withValues, isInstance);
  }
}

namespace {

// The name of a field as an instance's cell gives it: an exposedField tied by
// IS to an event by the alias for which the IS is valid; --vrml97: by its own
// name where the alias names another field of the node's type, as eventIn
// set_x beside exposedField x.
std::string cellName(VPNode* node, const VPFieldList* cell) {
  const VPField* field = cell->field;
  if (cell->redirect == nullptr || field->theClass != VPField::EXPOSED_FIELD) return field->name;
  int redirectClass = cell->redirect->field->theClass;
  std::string alias = field->name;
  if (redirectClass == VPField::EVENT_IN) alias = std::string("set_") + field->name;
  if (redirectClass == VPField::EVENT_OUT) alias = std::string(field->name) + "_changed";
  if (vrml97Option() && findInstanceField(node, alias.c_str(), 0) != nullptr) return field->name;
  return alias;
}

}  // namespace

bool VPNode::holdsDefault(const VPFieldList* cell) {
  CHECK(nodeType == OTHER || nodeType == SCRIPT);
  if (cell->redirect != nullptr || cell->field->holdsNodes()) return false;
  VPFieldList* protoField = other.baseProto->findField(cell->field);
  CHECK(protoField != NULL);
  return fieldValuesEqual(cell, protoField);
}

// An instance's value equal to its type's default is left out.
void VPNode::writeField(VPFieldList* cell, FILE* stream, int withValues, int isInstance) {
  VPField* field = cell->field;
  if (isInstance && withValues && holdsDefault(cell)) return;
  beginLine();
  if (!isInstance) {
    field->write(stream);
  } else {
    writeText(stream, cellName(this, cell).c_str());
  }
  if (cell->redirect != nullptr) {
    CHECK(withValues);
    writeGap(stream, ' ');
    writeWords(stream, {"IS", cell->redirect->field->name});
    writeGap(stream, '\n');
  } else if (!withValues || !field->hasValue()) {
    writeGap(stream, '\n');
  } else {
    writeGap(stream, ' ');
    if (cell->value != nullptr) {
      writeValue(stream, field->theType, cell->value);
    } else {
      CHECK(field->isMFField ());
      writeText(stream, "[]");
      writeGap(stream, '\n');
    }
  }
}

namespace {

// The routes that leave one node, in input order.
void writeRoutesFrom(const VPNode* node, FILE* stream) {
  std::vector<const VPRoute*> routes;
  for (const VPRouteList* cell = node->other.routesOut; cell != nullptr; cell = cell->next) {
    routes.push_back(cell->route);
  }
  for (auto route = routes.rbegin(); route != routes.rend(); ++route) {
    std::string source = std::string((*route)->sourceNode->name) + "." + (*route)->sourceField->name;
    std::string dest = std::string((*route)->destNode->name) + "." + (*route)->destField->name;
    beginLine();
    writeWords(stream, {"ROUTE", source.c_str(), "TO", dest.c_str()});
    writeGap(stream, '\n');
  }
}

}  // namespace

// The routes of a subtree, grouped by source node, depth first; the routes of
// one source in input order.
void VPNode::writeRoutes(FILE* stream) {
  walkNodes(this, [stream](VPNode* node, NodeWalkSteps& walk) {
    if (node->nodeType == PROTO || node->nodeType == EXTERNPROTO) return;
    writeRoutesFrom(node, stream);
    walk.childrenIn(node->fields);
    if (node->nodeType == SCRIPT) walk.childrenIn(node->other.script.fields);
  });
}
