// Compression passes: scan, PROTO defaults, interface pruning, Switch choices
// and DEF names.
#include "vrmlcompress.h"

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <iterator>
#include <string>
#include <unordered_map>
#include <unordered_set>
#include <vector>

#include "jsparser.h"
#include "main.h"
#include "vrmlcascade.h"

/* ---------------------------------------------------------------------------
 * Scan: IS links of PROTOs, script programs, private copies of PROTO bodies
 * ------------------------------------------------------------------------ */

namespace {

const char* const kInlineSchemes[] = {"javascript:", "vrmlscript:", "ecmascript:"};

// --vrml97: the code of a url entry that holds inline code, as a new string,
// or NULL. A backslash escapes only a quote and a backslash.
char* inlineScriptText(const char* entry) {
  if (*entry++ != '"') return nullptr;
  const char* code = nullptr;
  for (const char* scheme : kInlineSchemes) {
    if (strncmp(entry, scheme, strlen(scheme)) == 0) code = entry + strlen(scheme);
  }
  if (code == nullptr) return nullptr;
  char* text = copyString(code);
  char* out = text;
  for (const char* t = code; *t != 0 && *t != '"'; t++) {
    if (*t == '\\' && (t[1] == '"' || t[1] == '\\')) t++;
    *out++ = *t;
  }
  *out = 0;
  return text;
}

// --vrml97: code that reaches what the simulation cannot follow: routes made
// and nodes made from text while the world runs.
bool changesTheWorldAtRunTime(const char* text) {
  return strstr(text, "addRoute") != nullptr || strstr(text, "deleteRoute") != nullptr ||
         strstr(text, "createVrmlFrom") != nullptr || strstr(text, "loadURL") != nullptr ||
         strstr(text, "replaceWorld") != nullptr;
}

// Turns the url string, as the file wrote it, into the plain script text, in
// place: the quote and the scheme go, and each backslash escape is resolved.
char* extractScript(VPFieldList* urlCell) {
  VPValue* value = urlCell->value;
  CHECK(value != NULL);
  CHECK(value->next == NULL);
  char* s = value->string;
  CHECK(*s == '"');
  s++;
  CHECK(strncmp (s, "javascript:", 11) == 0 || strncmp (s, "vrmlscript:", 11) == 0);
  char* text = value->string;
  char* out = text;
  for (char* t = s + 11; *t != 0; t++) {
    if (*t == '"') {
      CHECK(t[1] == 0);
      break;
    }
    if (*t == '\\') {
      t++;
      CHECK(*t != 0);
    }
    *out++ = *t;
  }
  *out = 0;
  return text;
}

}  // namespace

VPFieldList* VPNode::findUrlCell() {
  for (VPFieldList* cell = fields; cell != nullptr; cell = cell->next) {
    if (strcmp(cell->field->name, "url") == 0) return cell;
  }
  return nullptr;
}

void VPFile::scanNodes() {
  DeclarationCopies& copies = currentRun->reading.declarationCopies;
  copies = DeclarationCopies();
  copies.deferring = !bodyNamesOuterNode;
  for (VPNodeList* cell = topLevel; cell != nullptr; cell = cell->next) {
    if (cell->node != nullptr) cell->node->scanNode();
  }
  expandDeferredCopies();
  if (vrml97Option()) addStandIns();
  clearVisited();
}

// --vrml97: a PROTO without instance here may be instantiated by another world
// with any values. Its stand-in holds a value it cannot know in each field
// that holds no nodes; node fields keep their defaults. An instance inside the
// body of such a PROTO is expanded with the stand-in, so newest first order
// needs no stand-in for it.
void VPFile::addStandIns() {
  forEachNode(allProtos, [this](VPNode* proto) {
    if (proto->declaration->instances != nullptr) return;
    VPNode* standIn = newRecord<VPNode>();
    standIn->nodeType = VPNode::OTHER;
    standIn->other.baseProto = proto;
    VPFieldList** last = &standIn->fields;
    for (VPFieldList* cell = proto->fields; cell != nullptr; cell = cell->next) {
      if (!cell->field->hasValue() || cell->field->holdsNodes()) continue;
      *last = newRecord<VPFieldList>();
      **last = {nullptr, cell->field, nullptr, cell->value, FIELD_NO_DEFAULT, cell->position};
      last = &(*last)->next;
    }
    VPNodeList* listCell = newRecord<VPNodeList>();
    listCell->next = standIns;
    listCell->node = standIn;
    standIns = listCell;
    pushContext("Scanning PROTO %s", proto->name);
    standIn->scanNode();
    popContext();
  });
}

void pushIsLink(VPIsLink** list, VPField* protoField, VPNode* node, VPField* nodeField) {
  VPIsLink* cell = newRecord<VPIsLink>();
  *cell = {*list, protoField, node, nodeField, list};
  if (cell->next != nullptr) cell->next->link = &cell->next;
  *list = cell;
  currentRun->reading.isLinksAdded++;
}

void unlinkIsLinkCell(VPIsLink* cell) {
  CHECK(*cell->link == cell);
  *cell->link = cell->next;
  if (cell->next != nullptr) cell->next->link = cell->link;
  cell->link = nullptr;
}

void VPNode::addIsLink(VPFieldList* field) {
  CHECK(field->redirect != NULL);
  pushIsLink(&field->redirect->proto->declaration->isLinks, field->redirect->field, this,
             field->field);
}

// One cell of a node's field list: its IS, and the nodes it holds.
void VPNode::scanCell(VPFieldList* cell, bool withinDeclaration) {
  if (cell->redirect != nullptr) {
    CHECK(nodeType == OTHER || nodeType == SCRIPT);
    addIsLink(cell);
  }
  if (!cell->field->holdsNodes()) return;
  // --vrml97: node values as defaults of PROTO and EXTERNPROTO fields.
  bool isDefault = vrml97Option() && (nodeType == PROTO || nodeType == EXTERNPROTO);
  for (VPNodeList* value = cell->value; value != nullptr; value = value->next) {
    if (value->node == nullptr) continue;
    if (isDefault) {
      pushContext("Scanning %s, field %s", name, cell->field->name);
    } else {
      CHECK(nodeType == OTHER || nodeType == SCRIPT);
      pushContext("Scanning %s node %s, field %s", other.baseProto->name, nameOrNull(name),
                  cell->field->name);
    }
    withStackRoom([&]() { value->node->scanNode(withinDeclaration); });
    popContext();
  }
}

void VPNode::scanNode(bool withinDeclaration) {
  if (!visit()) return;
  bool declares = withinDeclaration || nodeType == PROTO;
  for (VPFieldList* cell = fields; cell != nullptr; cell = cell->next) scanCell(cell, declares);
  switch (nodeType) {
  case OTHER:
    // --vrml97: an instance inside a declaration runs only in the copies of
    // the body that instances and stand-ins make, each expanded as it is
    // copied; a copy of its own would add the values of an instance that never
    // runs, and a chain of PROTOs would copy each body once per level.
    if (vrml97Option() && withinDeclaration) return;
    inDeclaration = withinDeclaration;
    expandInstance();
    return;
  case PROTO:
    pushContext("Scanning PROTO %s", name);
    for (VPNodeList* cell = declaration->body; cell != nullptr; cell = cell->next) {
      if (cell->node != nullptr) cell->node->scanNode(true);
    }
    popContext();
    return;
  case SCRIPT:
    scanScript(withinDeclaration);
    return;
  default:
    return;
  }
}

// The code first, then the interface cells with the nodes they hold.
void VPNode::scanScript(bool withinDeclaration) {
  pushContext("Parsing Script node %s", nameOrNull(name));
  VPFieldList* urlCell = findUrlCell();
  bool found = urlCell != nullptr;
  other.script.program = new JSParser;
  if (vrml97Option()) {
    scanVrml97Script(urlCell);
  } else {
    CHECK(found);
    other.script.program->parseScript(extractScript(urlCell));
  }
  for (VPFieldList* cell = other.script.fields; cell != nullptr; cell = cell->next) {
    scanCell(cell, withinDeclaration);
  }
  popContext();
}

// --vrml97: the first entry of the url is the script when it holds inline code
// that the simulator can follow; any other Script is opaque: it keeps its url
// as read and is taken to do anything that it can (vrmlcascade.cpp).
void VPNode::scanVrml97Script(VPFieldList* urlCell) {
  JSParser* program = other.script.program;
  char* text = nullptr;
  if (urlCell == nullptr) {
    text = copyString("");  // a Script without code does nothing
  } else if (urlCell->value != nullptr) {
    text = inlineScriptText(urlCell->value->string);
  }
  program->makesRoutes = text != nullptr && changesTheWorldAtRunTime(text);
  bool simulated = text != nullptr && !program->makesRoutes &&
                   runTrial([program, text]() { program->parseScript(text); });
  if (!simulated) program->abandonEntry();
  if (text != nullptr && !program->makesRoutes && !simulated) {
    reportAtInput(urlCell->position.line, urlCell->position.column,
                  "found a script that does not parse where JavaScript was expected: the Script "
                  "is kept as written and taken to do anything it can");
  }
}

/* ---------------------------------------------------------------------------
 * PROTO instance expansion: each instance gets private copies of the body
 * ------------------------------------------------------------------------ */

void VPNode::expandInstance() {
  VPNode* proto = other.baseProto;
  if (proto->nodeType == EXTERNPROTO) return;
  CHECK(proto->nodeType == PROTO);
  CHECK(other.generic.implementation == NULL);
  VPNodeList** last = &other.generic.implementation;
  for (VPNodeList* cell = proto->declaration->body; cell != nullptr; cell = cell->next) {
    *last = newRecord<VPNodeList>();
    // --vrml97: a PROTO declared in the body has nothing to copy.
    bool isDeclaration = cell->node != nullptr && (cell->node->nodeType == PROTO ||
                                                   cell->node->nodeType == EXTERNPROTO);
    (*last)->node = isDeclaration ? nullptr : copyNode(cell->node);
    last = &(*last)->next;
  }
  for (VPRouteList* cell = other.routesOut; cell != nullptr; cell = cell->next) {
    VPRoute* route = cell->route;
    CHECK(route->sourceNode == this);
    redirectRouteOut(route);
  }
}

// The value that this root gives a body field tied to a parameter by IS. Node
// values that the root does not give itself (--vrml97: defaults with nodes)
// are copied for this root, as a browser makes them for each instance.
VPValue* VPNode::resolvedValue(const VPFieldList* bodyCell) {
  VPField* parameter = bodyCell->redirect->field;
  VPFieldList* effective = findEffectiveField(parameter);
  if (!vrml97Option() || !parameter->holdsNodes() || effective == findField(parameter)) {
    return effective->value;
  }
  VPValue* head = nullptr;
  VPValue** last = &head;
  for (VPValue* value = effective->value; value != nullptr; value = value->next) {
    *last = newRecord<VPValue>();
    (*last)->node = copyNode(value->node);
    last = &(*last)->next;
  }
  return head;
}

// Events that the body of an instance sends out through an IS leave straight
// from the copy inside it: a route out of the instance is added from each.
void VPNode::redirectRouteOut(VPRoute* route) {
  VPIsLink* links = route->sourceNode->other.generic.isLinks;
  for (VPIsLink* link = links; link != nullptr; link = link->next) {
    if (link->protoField != route->sourceField) continue;
    VPRoute* twin = addRoute(link->node, link->nodeField, route->destNode, route->destField);
    twin->twinOf = route;
    // --vrml97: a copy that is an instance itself was expanded when it was
    // copied; the event leaves from the copy inside it that sends it.
    if (vrml97Option() && link->node->isProtoInstance()) redirectRouteOut(twin);
  }
}

VPNode* VPNode::findShadow(const VPNode* root) {
  VPNode** found = currentRun->reading.shadowCopies.find({this, root});
  return found != nullptr ? *found : nullptr;
}

// A route between two body nodes is copied once, by the end copied second; the
// shadow is entered between the two walks so that a route from a node to
// itself is copied by the second walk alone.
VPNode* VPNode::copyNode(VPNode* originalNode) {
  if (originalNode == nullptr) return nullptr;
  CHECK(originalNode->nodeType == SCRIPT || originalNode->nodeType == OTHER);
  VPNode* existing = originalNode->findShadow(this);
  if (existing != nullptr) return existing;
  VPNode* newNode = newRecord<VPNode>();
  newNode->nodeType = originalNode->nodeType;
  newNode->other.baseProto = originalNode->other.baseProto;
  newNode->name = originalNode->name;
  newNode->position = originalNode->position;
  for (VPRouteList* cell = originalNode->other.routesIn; cell != nullptr; cell = cell->next) {
    VPNode* sourceCopy = cell->route->sourceNode->findShadow(this);
    if (sourceCopy != nullptr) {
      VPRoute* copied = addRoute(sourceCopy, cell->route->sourceField, newNode,
                                 cell->route->destField);
      // --vrml97: also when the copy is an instance that was expanded before
      // this node was copied.
      if (vrml97Option() && sourceCopy->isProtoInstance()) redirectRouteOut(copied);
    }
  }
  VPShadow* shadow = newRecord<VPShadow>();
  *shadow = {originalNode->other.shadowNodes, this, newNode, 0, 0};
  originalNode->other.shadowNodes = shadow;
  DeclarationCopies& copies = currentRun->reading.declarationCopies;
  if (copies.expanding == nullptr) {
    shadow->madeAt = 2 * copies.copiesMade++ + 1;
  } else {
    copies.expanding->copies.push_back(shadow);
    copies.lateShadowed.push_back(originalNode);
  }
  currentRun->reading.shadowCopies[{originalNode, this}] = newNode;
  newNode->other.shadowedNode = originalNode;
  newNode->other.shadowRoot = this;
  for (VPRouteList* cell = originalNode->other.routesOut; cell != nullptr; cell = cell->next) {
    VPNode* destCopy = cell->route->destNode->findShadow(this);
    if (destCopy != nullptr) {
      addRoute(newNode, cell->route->sourceField, destCopy, cell->route->destField);
    }
  }
  newNode->fields = copyFieldList(newNode, originalNode->fields);
  if (newNode->nodeType == SCRIPT) {
    newNode->other.script.fields = copyFieldList(newNode, originalNode->other.script.fields);
    newNode->other.script.program = originalNode->other.script.program;
    return newNode;
  }
  CHECK(newNode->nodeType == OTHER);
  newNode->inDeclaration = inDeclaration;
  if (copies.deferring && inDeclaration && newNode->isProtoInstance()) {
    newNode->deferExpansion();
  } else {
    newNode->expandInstance();
  }
  return newNode;
}

void VPNode::deferExpansion() {
  DeclarationCopies& copies = currentRun->reading.declarationCopies;
  DeferredExpansion& expansion = copies.expansions.emplace_back();
  expansion.root = this;
  if (copies.expanding == nullptr) {
    expansion.position = copies.copiesMade;
    copies.deferredByScan.push_back(&expansion);
  } else {
    expansion.position = copies.expanding->copies.size();
    copies.expanding->nested.push_back(&expansion);
  }
}

// Node values are copied, other values shared; an IS to a value takes this
// instance's value once and for all, an IS to an event stays a redirect.
VPFieldList* VPNode::copyFieldList(VPNode* newNode, VPFieldList* cells) {
  CHECK(nodeType == OTHER);
  VPFieldList* head = nullptr;
  VPFieldList** last = &head;
  for (VPFieldList* cell = cells; cell != nullptr; cell = cell->next) {
    VPFieldList* copy = newRecord<VPFieldList>();
    copy->field = cell->field;
    copy->position = cell->position;
    if (cell->redirect == nullptr && cell->field->holdsNodes()) {
      VPValue** lastValue = &copy->value;
      for (VPValue* value = cell->value; value != nullptr; value = value->next) {
        *lastValue = newRecord<VPValue>();
        withStackRoom([&]() { (*lastValue)->node = copyNode(value->node); });
        lastValue = &(*lastValue)->next;
      }
    } else if (cell->redirect == nullptr) {
      copy->value = cell->value;
    } else {
      if (cell->redirect->field->hasValue()) {
        copy->value = resolvedValue(cell);
        // --vrml97: a value that a stand-in cannot know stays unknown in the copy.
        copy->flags = findEffectiveField(cell->redirect->field)->flags & FIELD_NO_DEFAULT;
      } else {
        copy->redirect = cell->redirect;
      }
      pushIsLink(&other.generic.isLinks, cell->redirect->field, newNode, cell->field);
    }
    *last = copy;
    last = &copy->next;
  }
  return head;
}

namespace {

bool holdsSingleFloats(int type) {
  return type == VPField::SFFloat || type == VPField::SFTime || type == VPField::MFFloat ||
         type == VPField::MFTime;
}

bool holdsStrings(int type) { return type == VPField::SFString || type == VPField::MFString; }

// What a value adds to a record, as a key: the bits of floats (0 and -0 are
// equal to a record, which keeps the first of them it meets), the bytes of
// strings, and for a node the body node it stands for, as records are read.
std::string elementKey(int type, const VPValue* cell) {
  if (VPField::SFNode == type || VPField::MFNode == type) {
    const VPNode* node = cell->node != nullptr ? mappedNode(cell->node, 1) : nullptr;
    return std::string(reinterpret_cast<const char*>(&node), sizeof node);
  }
  if (int length = tupleLength(type)) {
    return std::string(reinterpret_cast<const char*>(cell->floats), length * sizeof(float));
  }
  if (holdsSingleFloats(type)) {
    return std::string(reinterpret_cast<const char*>(&cell->floatValue), sizeof(float));
  }
  if (holdsStrings(type)) return std::string(cell->string) + '\0';
  if (type == VPField::SFImage) {
    const VPImage* image = cell->image;
    std::string key(reinterpret_cast<const char*>(image), 3 * sizeof(int32_t));
    int64_t pixels = int64_t(image->width) * image->height;
    if (pixels <= 0) return key;
    return key.append(reinterpret_cast<const char*>(image->pixels), pixels * sizeof(int32_t));
  }
  return std::string(reinterpret_cast<const char*>(&cell->intValue), sizeof(int32_t));
}

// Keys of instances: an instance's PROTO and the value that each field of the
// interface with a value has in it. Two copies of instances with equal keys
// make copies of the body that add the same values to the same records, and
// read alike. A value list is keyed by its content once, where lists are
// shared by instances from one to the next.
class ExpansionKeys {
 public:
  std::string of(VPNode* root) {
    VPNode* proto = root->other.baseProto;
    std::string key(reinterpret_cast<const char*>(&proto), sizeof proto);
    for (VPFieldList* cell = proto->fields; cell != nullptr; cell = cell->next) {
      if (!cell->field->hasValue()) continue;
      size_t id = listId(cell->field->theType, root->findEffectiveField(cell->field)->value);
      key.append(reinterpret_cast<const char*>(&id), sizeof id);
    }
    return key;
  }

 private:
  size_t listId(int type, const VPValue* list) {
    auto known = idOfList.find(list);
    if (known != idOfList.end()) return known->second;
    std::string content;
    for (const VPValue* value = list; value != nullptr; value = value->next) {
      content += elementKey(type, value);
    }
    size_t id = idOfContent.emplace(content, idOfContent.size()).first->second;
    idOfList.emplace(list, id);
    return id;
  }

  std::unordered_map<const VPValue*, size_t> idOfList;
  std::unordered_map<std::string, size_t> idOfContent;
};

// The copies of a late expansion, and those of the expansions that it put off,
// take their places: an expansion put off comes before the copy that was made
// next where it was put off.
void rankLateCopies(DeferredExpansion* expansion, uint64_t madeAt, uint64_t* rank) {
  auto nested = expansion->nested.begin();
  for (size_t made = 0;; made++) {
    for (; nested != expansion->nested.end() && (*nested)->position == made; ++nested) {
      withStackRoom([&]() { rankLateCopies(*nested, madeAt, rank); });
    }
    if (made == expansion->copies.size()) return;
    expansion->copies[made]->madeAt = madeAt;
    expansion->copies[made]->madeWithin = (*rank)++;
  }
}

bool madeLater(const VPShadow* a, const VPShadow* b) {
  return a->madeAt != b->madeAt ? a->madeAt > b->madeAt : a->madeWithin > b->madeWithin;
}

void sortShadowsNewestFirst(VPNode* original) {
  std::vector<VPShadow*> shadows;
  for (VPShadow* shadow = original->other.shadowNodes; shadow != nullptr; shadow = shadow->next) {
    shadows.push_back(shadow);
  }
  std::sort(shadows.begin(), shadows.end(), madeLater);
  VPShadow** last = &original->other.shadowNodes;
  for (VPShadow* shadow : shadows) {
    *last = shadow;
    last = &shadow->next;
  }
  *last = nullptr;
}

}  // namespace

// The expansions put off by the scan, newest first, and within each the ones
// that it puts off, newest first: the first of each key met is the newest and
// is expanded, the others take it as their representative. Then the late
// copies take their places in the lists of shadows.
void VPFile::expandDeferredCopies() {
  DeclarationCopies& copies = currentRun->reading.declarationCopies;
  ExpansionKeys keys;
  std::unordered_map<std::string, VPNode*> expanded;
  std::vector<DeferredExpansion*> work = copies.deferredByScan;
  while (!work.empty()) {
    DeferredExpansion* expansion = work.back();
    work.pop_back();
    VPNode* root = expansion->root;
    auto entry = expanded.emplace(keys.of(root), root);
    if (!entry.second) {
      root->other.generic.representative = entry.first->second;
      continue;
    }
    copies.expanding = expansion;
    root->expandInstance();
    copies.expanding = nullptr;
    work.insert(work.end(), expansion->nested.begin(), expansion->nested.end());
  }
  for (DeferredExpansion* expansion : copies.deferredByScan) {
    uint64_t rank = 0;
    rankLateCopies(expansion, 2 * expansion->position, &rank);
  }
  std::vector<VPNode*>& originals = copies.lateShadowed;
  std::sort(originals.begin(), originals.end());
  originals.erase(std::unique(originals.begin(), originals.end()), originals.end());
  for (VPNode* original : originals) sortShadowsNewestFirst(original);
}

namespace {

// The cell whose value every instance of the PROTO has for the field, or NULL
// when it has no instance or two instances differ.
VPFieldList* valueOfAllInstances(VPNode* proto, VPField* field) {
  VPFieldList* reference = nullptr;
  for (VPNodeList* instance = proto->declaration->instances; instance != nullptr;
       instance = instance->next) {
    VPNode* node = instance->node;
    CHECK(node->nodeType == VPNode::SCRIPT || node->nodeType == VPNode::OTHER);
    CHECK(node->other.baseProto == proto);
    VPFieldList* effective = node->findEffectiveField(field);
    // --vrml97: an exposedField IS a field of the PROTO around gets its value
    // from each instance of that PROTO: no value agreed on.
    if (vrml97Option() && effective->field->theClass != field->theClass) return nullptr;
    if (reference == nullptr) {
      reference = effective;
    } else if (!fieldValuesEqual(reference, effective)) {
      return nullptr;
    }
  }
  return reference;
}

}  // namespace

// A value on which all instances of a PROTO agree becomes its default, so the
// writer leaves it out of every instance. Newest PROTO first: an outer PROTO,
// declared after those it uses, hoists before its body's instances are compared.
void VPFile::hoistProtoDefaults() {
  for (VPNodeList* protoCell = allProtos; protoCell != nullptr; protoCell = protoCell->next) {
    VPNode* proto = protoCell->node;
    CHECK(proto->nodeType == VPNode::PROTO);
    for (VPFieldList* protoField = proto->fields; protoField != nullptr;
         protoField = protoField->next) {
      VPField* field = protoField->field;
      if (!field->hasValue() || field->holdsNodes()) continue;
      CHECK(protoField->redirect == NULL);
      VPFieldList* agreed = valueOfAllInstances(proto, field);
      if (agreed != nullptr) protoField->value = agreed->value;  // shared, not copied
    }
  }
}

/* ---------------------------------------------------------------------------
 * Removal of fields, routes, IS links and nodes
 * ------------------------------------------------------------------------ */

namespace {

void unlinkRouteCell(VPRouteList* cell) {
  CHECK(*cell->link == cell);
  *cell->link = cell->next;
  if (cell->next != nullptr) cell->next->link = cell->link;
}

// Lists shorter than this are walked.
constexpr int kIndexedLinks = 32;

std::string isLinkKey(const VPNode* node, const VPField* nodeField, const VPField* protoField) {
  const void* parts[] = {node, nodeField, protoField};
  return std::string(reinterpret_cast<const char*>(parts), sizeof parts);
}

IsLinkIndex& isLinkIndexOf(VPIsLink** list) {
  IsLinkIndex& index = currentRun->reading.isLinkIndexes[list];
  if (index.byKey.empty() || index.isLinksAdded != currentRun->reading.isLinksAdded) {
    index = IsLinkIndex();
    index.isLinksAdded = currentRun->reading.isLinksAdded;
    for (VPIsLink* cell = *list; cell != nullptr; cell = cell->next) {
      index.byKey[isLinkKey(cell->node, cell->nodeField, cell->protoField)].push_back(cell);
    }
  }
  return index;
}

bool isLongLinkList(const VPIsLink* list) {
  int length = 0;
  for (; list != nullptr; list = list->next) {
    if (++length >= kIndexedLinks) return true;
  }
  return false;
}

// Unlinks the first link of the list between the node's field and the PROTO
// field; a long list through its index, so that many IS links leave one list
// in time linear in their number.
bool unlinkIsLink(VPIsLink** list, const VPNode* node, const VPField* nodeField,
                  const VPField* protoField) {
  if (isLongLinkList(*list)) {
    std::vector<VPIsLink*>& links = isLinkIndexOf(list).byKey[isLinkKey(node, nodeField, protoField)];
    auto linked = std::find_if(links.begin(), links.end(), [](VPIsLink* cell) { return cell->link != nullptr; });
    if (linked == links.end()) return false;
    unlinkIsLinkCell(*linked);
    links.erase(links.begin(), linked + 1);
    return true;
  }
  for (VPIsLink* cell = *list; cell != nullptr; cell = cell->next) {
    if (cell->node == node && cell->nodeField == nodeField && cell->protoField == protoField) {
      unlinkIsLinkCell(cell);  // records live in the run's arena
      return true;
    }
  }
  return false;
}

const VPField* redirectedField(const VPFieldList* cell) {
  return cell->redirect != nullptr ? cell->redirect->field : nullptr;
}

// A removal that comes through an IS link and cannot be carried out stops here.
void requireNoRedirect(const VPField* redirect) { CHECK(redirect == NULL); }

const VPField* fieldAtEnd(const VPRoute* route, bool outgoing) {
  return outgoing ? route->sourceField : route->destField;
}

// Lists shorter than this are walked.
constexpr int kIndexedRoutes = 32;

bool isLongRouteList(const VPRouteList* list) {
  int length = 0;
  for (; list != nullptr; list = list->next) {
    if (++length >= kIndexedRoutes) return true;
  }
  return false;
}

RouteIndex& routeIndexOf(VPRouteList** list, bool outgoing) {
  RouteIndex& index = currentRun->reading.routeIndexes[list];
  if (index.routesAdded != currentRun->reading.routesAdded || index.byField.empty()) {
    index = RouteIndex();
    index.routesAdded = currentRun->reading.routesAdded;
    for (VPRouteList* cell = *list; cell != nullptr; cell = cell->next) {
      index.byField[fieldAtEnd(cell->route, outgoing)].push_back(cell->route);
    }
  }
  return index;
}

// Unlinks every route of the list whose field at this end is `field`. An
// unlink may take other routes with it (the twins of a route out of an
// instance, which end at the same field).
void unlinkRoutesAt(VPNode* node, VPRouteList** list, const VPField* field, bool outgoing) {
  for (VPRoute* route : routesAt(list, field, outgoing)) {
    if (route->outCell == nullptr) continue;
    if (outgoing) {
      CHECK(route->sourceNode == node);
    } else {
      CHECK(route->destNode == node);
    }
    unlinkRoute(route);
  }
}

}  // namespace

std::vector<VPRoute*> routesAt(VPRouteList** list, const VPField* field, bool outgoing) {
  if (isLongRouteList(*list)) {
    RouteIndex& index = routeIndexOf(list, outgoing);
    std::vector<VPRoute*>* found = index.byField.find(field);
    if (found == nullptr) return {};
    std::vector<VPRoute*> routes;
    for (VPRoute* route : *found) {
      if (route->outCell != nullptr) routes.push_back(route);
    }
    return routes;
  }
  std::vector<VPRoute*> routes;
  for (VPRouteList* cell = *list; cell != nullptr; cell = cell->next) {
    if (fieldAtEnd(cell->route, outgoing) == field) routes.push_back(cell->route);
  }
  return routes;
}

namespace {

// --vrml97: a route out of an instance has a twin from each copy inside it
// that sends the event through an IS (redirectRouteOut); the twins go with it,
// also where the IS link went before.
VPRoute* findTwin(const VPRoute* route) {
  for (VPRouteList* cell = route->destNode->other.routesIn; cell != nullptr; cell = cell->next) {
    if (cell->route->twinOf == route) return cell->route;
  }
  return nullptr;
}

}  // namespace

void unlinkRoute(VPRoute* route) {
  if (vrml97Option() && route->sourceNode->isProtoInstance()) {
    while (VPRoute* twin = findTwin(route)) unlinkRoute(twin);
  }
  bool foundOtherSide = route->outCell != nullptr;
  CHECK(foundOtherSide);
  unlinkRouteCell(route->outCell);
  unlinkRouteCell(route->inCell);
  route->outCell = route->inCell = nullptr;
}

FieldSet::FieldSet(VPField* field) : inOrder(1, field) {}

void FieldSet::add(VPField* field) {
  inOrder.push_back(field);
  if (inOrder.size() == kHashedFields) members.insert(inOrder.begin(), inOrder.end());
  if (inOrder.size() > kHashedFields) members.insert(field);
}

bool FieldSet::contains(const VPField* field) const {
  if (inOrder.size() >= kHashedFields) return members.count(field) != 0;
  return std::find(inOrder.begin(), inOrder.end(), field) != inOrder.end();
}

int VPNode::removeField(VPField* field, VPField* protoField) {
  CHECK(nodeType == OTHER || nodeType == SCRIPT);
  if (protoField == nullptr) return removeFields(FieldSet(field));
  VPFieldList** link = nodeType == OTHER ? &fields : &other.script.fields;
  while (*link != nullptr && !((*link)->field == field && redirectedField(*link) == protoField)) {
    link = &(*link)->next;
  }
  VPFieldList* cell = *link;
  if (cell != nullptr && nodeType == SCRIPT) {
    cell->redirect = nullptr;
    return 1;
  }
  if (cell != nullptr) {
    unlinkFieldCell(link);
  } else {
    requireNoRedirect(protoField);
  }
  // --vrml97: through an IS link only the IS goes; the node keeps its field,
  // with its routes and, on an instance, what its body does with it.
  if (vrml97Option()) return 1;
  if (protoField->theClass != field->theClass) {
    CHECK(field->theClass == VPField::EXPOSED_FIELD);
    return 1;
  }
  unlinkRoutesAt(this, &other.routesIn, field, false);
  unlinkRoutesAt(this, &other.routesOut, field, true);
  if (isProtoInstance()) requireNoRedirect(protoField);
  return cell != nullptr;
}

// The cell goes, and with it its hold on the nodes it holds.
void VPNode::unlinkFieldCell(VPFieldList** link) {
  VPFieldList* cell = *link;
  if (cell->field->holdsNodes()) forEachNode(cell->value, [](VPNode* node) { node->dropReference(); });
  *link = cell->next;
  currentRun->reading.fieldCellsUnlinked++;
}

// The fields go from the node with their routes and, on an instance, with what
// its body copies take from them by IS. One walk of each list serves them all.
// A field's first cell that is not tied by IS goes; under --vrml97 the IS links
// of its cells go first, as those of an instance in another PROTO's body, and
// every cell of it goes from an instance, where an exposedField may have a
// second cell (set_x IS a beside x_changed IS b).
int VPNode::removeFields(const FieldSet& gone) {
  VPFieldList** head = nodeType == OTHER ? &fields : &other.script.fields;
  if (vrml97Option()) removeIsLinksOf(gone, *head);
  bool everyCell = vrml97Option() && nodeType == OTHER;
  size_t firstsLeft = gone.inOrder.size();
  FieldSet removed;
  VPFieldList** link = head;
  while (*link != nullptr && (everyCell || firstsLeft != 0)) {
    VPFieldList* cell = *link;
    if (cell->redirect != nullptr || !gone.contains(cell->field) ||
        (!everyCell && removed.contains(cell->field))) {
      link = &cell->next;
      continue;
    }
    if (!removed.contains(cell->field)) {
      removed.add(cell->field);
      firstsLeft--;
    }
    unlinkFieldCell(link);
  }
  for (VPField* field : gone.inOrder) {
    unlinkRoutesAt(this, &other.routesIn, field, false);
    unlinkRoutesAt(this, &other.routesOut, field, true);
  }
  if (isProtoInstance()) removeCopiedFields(gone);
  return !removed.inOrder.empty();
}

// A Script's interface declares each field once: the walk ends at the last.
void VPNode::removeIsLinksOf(const FieldSet& gone, VPFieldList* cells) {
  size_t seen = 0;
  for (VPFieldList* cell = cells; cell != nullptr; cell = cell->next) {
    if (!gone.contains(cell->field)) continue;
    if (cell->redirect != nullptr) removeIsLink(cell);
    if (nodeType == SCRIPT && ++seen == gone.inOrder.size()) break;
  }
}

void VPNode::removeCopiedFields(const FieldSet& gone) {
  VPIsLink** isLink = &other.generic.isLinks;
  while (VPIsLink* linkCell = *isLink) {
    if (!gone.contains(linkCell->protoField)) {
      isLink = &linkCell->next;
      continue;
    }
    int childHadField = linkCell->node->removeField(linkCell->nodeField, linkCell->protoField);
    CHECK(childHadField);
    unlinkIsLinkCell(linkCell);
  }
}

// The links are those of the field among the PROTO's IS links, in list order;
// a link that an earlier removal took out is passed over.
void VPNode::removeLinkedFields(VPField* field, const std::vector<VPIsLink*>& links) {
  for (VPIsLink* cell : links) {
    if (cell->link == nullptr) continue;
    int fieldFound = cell->node->removeField(cell->nodeField, field);
    CHECK(fieldFound);
    unlinkIsLinkCell(cell);
  }
}

void VPNode::removeIsLink(VPFieldList* cell) {
  CHECK(nodeType == OTHER || nodeType == SCRIPT);
  VPRedirect* redirect = cell->redirect;
  CHECK(redirect != NULL);
  cell->redirect = nullptr;
  bool removed =
      unlinkIsLink(&redirect->proto->declaration->isLinks, this, cell->field, redirect->field);
  CHECK(removed);
  for (VPShadow* shadow = other.shadowNodes; shadow != nullptr; shadow = shadow->next) {
    VPNode* root = shadow->root;
    CHECK(root->nodeType == OTHER);
    removed = unlinkIsLink(&root->other.generic.isLinks, shadow->shadow, cell->field,
                           redirect->field);
    CHECK(removed);
  }
}

void VPNode::dropReference() {
  CHECK(nodeType == OTHER);
  if (--refCount != 0) return;
  while (other.routesIn != nullptr) unlinkRoute(other.routesIn->route);
  while (other.routesOut != nullptr) unlinkRoute(other.routesOut->route);
  while (fields != nullptr) {
    CHECK((fields->flags & (FIELD_READ | FIELD_WRITE | FIELD_ROUTED_OUT)) == 0);
    if (fields->redirect != nullptr) removeIsLink(fields);
    removeField(fields->field, NULL);
  }
}

/* ---------------------------------------------------------------------------
 * PROTO interfaces: constant parameters folded, dead fields removed
 * ------------------------------------------------------------------------ */

// --vrml97: oldest first, so that a PROTO comes after those that its body
// instantiates: a field that goes from one of those takes its IS link along,
// which may leave a field of the PROTO dead in the same run.
void VPFile::pruneProtoInterfaces() {
  std::vector<VPNode*> declarations;
  forEachNode(allProtos, [&declarations](VPNode* proto) { declarations.push_back(proto); });
  if (vrml97Option()) std::reverse(declarations.begin(), declarations.end());
  for (VPNode* proto : declarations) proto->pruneInterface();
}

namespace {

// The IS links of a PROTO by interface field, in list order, as they stood
// before its dead fields went: the removal of one field may take links of
// others along, when it drops the nodes that hold them, but adds none.
using LinksByField = std::unordered_map<const VPField*, std::vector<VPIsLink*>>;

// An interface field stays while something happened to it, or while a body
// field still takes its value by IS.
bool isInterfaceFieldLive(const VPFieldList* cell, LinksByField& links) {
  if (cell->flags & (FIELD_READ | FIELD_WRITE | FIELD_ROUTED_IN | FIELD_ROUTED_OUT)) return true;
  if (!cell->field->hasValue()) return false;
  const std::vector<VPIsLink*>& tied = links[cell->field];
  return std::any_of(tied.begin(), tied.end(), [](const VPIsLink* link) { return link->link != nullptr; });
}

}  // namespace

// The dead fields go from the instances, then from the body, then from the
// interface. What keeps a field alive does not change as others go: no
// removal takes an IS link of the PROTO's own body along.
void VPNode::pruneInterface() {
  CHECK(nodeType == PROTO);
  forEachNode(declaration->body, [](VPNode* node) {
    if (node->nodeType != PROTO && node->nodeType != EXTERNPROTO) node->foldNode();
  });
  forEachNode(declaration->body, [](VPNode* node) { node->clearVisited(); });
  LinksByField links;
  for (VPIsLink* link = declaration->isLinks; link != nullptr; link = link->next) {
    links[link->protoField].push_back(link);
  }
  FieldSet dead;
  for (VPFieldList* cell = fields; cell != nullptr; cell = cell->next) {
    if (!isInterfaceFieldLive(cell, links)) dead.add(cell->field);
  }
  if (dead.inOrder.empty()) return;
  forEachNode(declaration->instances, [&dead](VPNode* instance) { instance->removeFields(dead); });
  for (VPField* field : dead.inOrder) removeLinkedFields(field, links[field]);
  VPFieldList** link = &fields;
  while (VPFieldList* cell = *link) {
    if (!dead.contains(cell->field)) {
      link = &cell->next;
      continue;
    }
    *link = cell->next;
    currentRun->reading.fieldCellsUnlinked++;
  }
}

void VPNode::foldNode() {
  if (!visit()) return;
  CHECK(nodeType == SCRIPT || nodeType == OTHER);
  foldConstantFields(fields);
  if (nodeType == SCRIPT) foldConstantFields(other.script.fields);
  auto fold = [](VPNode* node) { node->foldNode(); };
  forEachNodeIn(fields, fold);
  if (nodeType == SCRIPT) forEachNodeIn(other.script.fields, fold);
}

// A body field tied to a parameter that every instance leaves at one value
// gets that value of its own.
void VPNode::foldConstantFields(VPFieldList* cells) {
  if (isReachedByOpaqueScript(this)) return;
  for (VPFieldList* cell = cells; cell != nullptr; cell = cell->next) {
    VPField* field = cell->field;
    if (cell->redirect == nullptr || field->isMFField() || field->theType == VPField::SFNode) {
      continue;
    }
    if (!cell->redirect->field->hasValue()) continue;
    CHECK(field->theClass == VPField::FIELD || field->theClass == VPField::EXPOSED_FIELD);
    VPFuzzyValue* fuzzyValue = findFuzzy(field);
    if (fuzzyValue == nullptr || !fuzzyValue->valueKnown) continue;
    CHECK(fuzzyValue->values);
    if (fuzzyValue->values->next != nullptr || (cell->flags & FIELD_ROUTED_OUT)) continue;
    removeIsLink(cell);
    VPValue* constant = newRecord<VPValue>();
    constant->copyValue(fuzzyValue->values, field->theType);
    cell->value = constant;
  }
}

/* ---------------------------------------------------------------------------
 * Switch children that can never be chosen, and DEF names nothing needs
 * ------------------------------------------------------------------------ */

void VPFile::pruneSwitches() {
  UndrawnActivity activity;
  forEachNode(topLevel, [&activity](VPNode* node) { node->pruneSwitchChoices(activity); });
  clearVisited();
}

void VPNode::pruneSwitchChoices(UndrawnActivity& activity) {
  auto enter = [](VPNode* node, NodeWalkSteps& walk) {
    walk.childrenIn(node->fields);
    switch (node->nodeType) {
    case SCRIPT:
      walk.childrenIn(node->other.script.fields);
      return;
    case PROTO:
      walk.children(node->declaration->body);
      return;
    case OTHER:
      if (strcmp(node->other.baseProto->name, "Switch") == 0) walk.leave();
      return;
    default:
      return;
    }
  };
  walkNodes(this, enter,
            [&activity](VPNode* node, NodeWalkSteps&) { node->cutSwitchChoices(activity); });
}

// Children whose index whichChoice can never hold become holes, so that every
// other child keeps its index.
void VPNode::cutSwitchChoices(UndrawnActivity& activity) {
  VPNode* baseProto = other.baseProto;
  CHECK(baseProto->nodeType == EXTERNPROTO);
  VPField* field = fieldByName("whichChoice");
  CHECK(field->theType == VPField::SFInt32);
  VPFuzzyValue record(field);
  getFuzzyValue(&record, field, 0);
  bool known = record.valueKnown;
  std::unordered_set<int32_t> choices;
  for (const VPValue* cell = record.values; cell != nullptr; cell = cell->next) {
    choices.insert(cell->intValue);
  }
  record.freeValues();
  VPFieldList* children = findField(fieldByName("choice"));
  if (vrml97Option() && (children == nullptr || isReachedByOpaqueScript(this))) return;
  CHECK(children != NULL);
  if (!known || children->redirect != nullptr) return;
  int32_t index = 0;
  for (VPNodeList* cell = children->value; cell != nullptr; cell = cell->next, index++) {
    VPNode* child = cell->node;
    if (child == nullptr || choices.count(index) != 0) {
      continue;
    }
    if (vrml97Option() && activity.below(child)) continue;
    cell->node = nullptr;
    child->dropReference();
  }
}

namespace {

// Nodes that act without being drawn: a browser binds them wherever they stand.
bool isBindable(const VPNode* node) {
  const char* type = node->other.baseProto->name;
  return strcmp(type, "Viewpoint") == 0 || strcmp(type, "NavigationInfo") == 0 ||
         strcmp(type, "Background") == 0 || strcmp(type, "Fog") == 0;
}

bool canActUndrawn(const VPNode* node) {
  if (node->nodeType != VPNode::OTHER || node->isProtoInstance() || isBindable(node) ||
      isReachedByOpaqueScript(node) ||
      node->other.routesIn != nullptr || node->other.routesOut != nullptr) {
    return true;
  }
  for (const VPFieldList* cell = node->fields; cell != nullptr; cell = cell->next) {
    if (cell->flags & (FIELD_READ | FIELD_WRITE | FIELD_ROUTED_OUT)) return true;
  }
  return false;
}

}  // namespace

bool UndrawnActivity::below(VPNode* root) {
  auto found = states.find(root);
  if (found != states.end()) return found->second.active;
  enter(root);
  while (!frames.empty()) {
    Frame& frame = frames.back();
    State& state = states[frame.node];
    if (frame.next < children.size()) {
      VPNode* child = children[frame.next++];
      auto seen = states.find(child);
      if (seen == states.end()) {
        enter(child);
      } else if (seen->second.open) {
        state.low = std::min(state.low, seen->second.order);
      } else {
        state.active |= seen->second.active;
      }
      continue;
    }
    VPNode* node = frame.node;
    children.resize(frame.begin);
    frames.pop_back();
    if (state.low == state.order) close(node, state);
    if (!frames.empty()) {
      State& parent = states[frames.back().node];
      parent.low = std::min(parent.low, state.low);
      parent.active |= state.active;
    }
  }
  return states[root].active;
}

void UndrawnActivity::enter(VPNode* node) {
  unsigned order = static_cast<unsigned>(states.size());
  states[node] = {order, order, true, canActUndrawn(node)};
  openNodes.push_back(node);
  size_t begin = children.size();
  auto push = [this](VPNode* child) { children.push_back(child); };
  forEachNodeIn(node->fields, push);
  if (node->nodeType == VPNode::SCRIPT) forEachNodeIn(node->other.script.fields, push);
  frames.push_back({node, begin, begin});
}

// The nodes of one component reach each other, so they share one answer.
void UndrawnActivity::close(VPNode* root, State& rootState) {
  size_t first = openNodes.size();
  do {
    first--;
    rootState.active |= states[openNodes[first]].active;
  } while (openNodes[first] != root);
  for (size_t i = first; i < openNodes.size(); i++) {
    State& state = states[openNodes[i]];
    state.open = false;
    state.active = rootState.active;
  }
  openNodes.resize(first);
}

void VPFile::dropDefNames() {
  forEachNode(topLevel, [](VPNode* node) { node->dropDefName(); });
  clearVisited();
}

void VPNode::dropDefName() {
  walkNodes(this, [](VPNode* node, NodeWalkSteps& walk) {
    // --vrml97: an Anchor's url "#name" names a Viewpoint by its DEF.
    bool namedByAnchors = vrml97Option() && node->nodeType == OTHER &&
                          strcmp(node->other.baseProto->name, "Viewpoint") == 0;
    if ((node->nodeType == OTHER || node->nodeType == SCRIPT) && node->refCount == 1 &&
        node->other.routesIn == nullptr && node->other.routesOut == nullptr &&
        !isReachedByOpaqueScript(node) && !namedByAnchors) {
      node->name = nullptr;
    }
    walk.childrenIn(node->fields);
    if (node->nodeType == PROTO) walk.children(node->declaration->body);
    if (node->nodeType == SCRIPT) walk.childrenIn(node->other.script.fields);
  });
}

/* ---------------------------------------------------------------------------
 * --digits: floats that no Script can see, rounded
 * ------------------------------------------------------------------------ */

// Every node record: declarations, instances, and the copies inside instances.
std::vector<VPNode*> VPFile::allNodes() {
  NodeCollector collector;
  std::vector<VPNode*>& nodes = collector.nodes;
  auto reach = [&collector](VPNode* node) { collector.add(node); };
  forEachNode(topLevel, reach);
  forEachNode(standIns, reach);
  forEachNode(allProtos, reach);
  for (size_t i = 0; i < nodes.size(); i++) {
    VPNode* node = nodes[i];
    forEachNodeIn(node->fields, reach);
    if (node->nodeType == VPNode::PROTO) forEachNode(node->declaration->body, reach);
    if (node->nodeType == VPNode::OTHER) forEachNode(node->other.generic.implementation, reach);
    if (node->nodeType == VPNode::SCRIPT) forEachNodeIn(node->other.script.fields, reach);
  }
  return std::move(nodes);
}

namespace {

// How far a Script sees a node (VPNode::scriptSeen).
enum { kValuesSeen = 1, kHeld = 2 };

// A node whose values go where the simulation does not follow them: a Script,
// and an instance of an EXTERNPROTO of the input, whose body may hold one.
// So do the stand-ins, which another world may route to its Scripts.
bool isSightSeed(const VPNode* node) {
  if (node->nodeType == VPNode::SCRIPT) return true;
  if (node->nodeType != VPNode::OTHER) return false;
  const VPNode* type = node->other.baseProto;
  return type->nodeType == VPNode::EXTERNPROTO && !type->declaration->isBuiltin;
}

// What a Script that sees this node's values, or holds it, sees too: the
// nodes that route into it (held when the event carries nodes), the body node
// that a copy stands for, the instance whose values come into the copy by IS,
// and the declaration of an instance. What it holds, it reaches through.
template <class See>
void forEachSightOf(VPNode* node, See see) {
  if (node->scriptSeen == kHeld) {
    auto hold = [&see](VPNode* child) { see(child, kHeld); };
    forEachNodeIn(node->fields, hold);
    if (node->nodeType == VPNode::SCRIPT) forEachNodeIn(node->other.script.fields, hold);
  }
  if (node->nodeType != VPNode::SCRIPT && node->nodeType != VPNode::OTHER) return;
  for (VPRouteList* cell = node->other.routesIn; cell != nullptr; cell = cell->next) {
    see(cell->route->sourceNode, cell->route->sourceField->holdsNodes() ? kHeld : kValuesSeen);
  }
  if (VPNode* original = node->other.shadowedNode) {
    see(original, node->scriptSeen);
    see(node->other.shadowRoot, kValuesSeen);
  }
  if (node->isProtoInstance()) see(node->other.baseProto, kValuesSeen);
}

// Rounds the floats of one cell; a rounded list is a new one, as lists may be
// shared with cells whose values stay.
void roundCell(VPFieldList* cell, int digits) {
  int type = cell->field->theType;
  int length = tupleLength(type);
  bool single = type == VPField::SFFloat || type == VPField::SFTime ||
                type == VPField::MFFloat || type == VPField::MFTime;
  if (cell->redirect != nullptr || (length == 0 && !single)) return;
  VPValue* head = nullptr;
  VPValue** last = &head;
  for (const VPValue* value = cell->value; value != nullptr; value = value->next) {
    *last = newRecord<VPValue>();
    if (single) {
      (*last)->floatValue = roundSignificant(value->floatValue, digits);
    } else {
      (*last)->floats = newArray<float>(size_t(length));
      for (int i = 0; i < length; i++) {
        (*last)->floats[i] = roundSignificant(value->floats[i], digits);
      }
    }
    last = &(*last)->next;
  }
  cell->value = head;
}

}  // namespace

// A Script holds the nodes of its fields and what they hold; it sees the
// values of the nodes that send it events, directly or along a chain of
// routes, and of the instance that gives a node it sees its values by IS.
void VPFile::markScriptSight() {
  std::vector<VPNode*> nodes = allNodes();
  std::vector<VPNode*> work;
  auto see = [&work](VPNode* node, int sight) {
    if (node->scriptSeen >= sight) return;
    node->scriptSeen = sight;
    work.push_back(node);
  };
  for (VPNode* node : nodes) {
    if (isSightSeed(node)) see(node, kHeld);
  }
  forEachNode(standIns, [&see](VPNode* node) { see(node, kHeld); });
  while (!work.empty()) {
    VPNode* node = work.back();
    work.pop_back();
    forEachSightOf(node, see);
  }
}

namespace {

// A node that sends events, or whose copy in an instance does: an
// interpolator or a TimeSensor computes them from its values, and small
// errors of those grow where the results come near zero.
bool sendsEvents(const VPNode* node) {
  if (node->other.routesOut != nullptr) return true;
  for (const VPShadow* shadow = node->other.shadowNodes; shadow != nullptr; shadow = shadow->next) {
    if (sendsEvents(shadow->shadow)) return true;
  }
  return false;
}

}  // namespace

// The cells of PROTO instances and the defaults of declarations stay exact:
// the PROTO passes compared them before the rounding, and must find what a
// run on the output finds. So do the values of a node that sends events.
void VPFile::roundUnseenFloats(int digits) {
  markScriptSight();
  for (VPNode* node : allNodes()) {
    if (node->nodeType != VPNode::OTHER || node->scriptSeen || node->isProtoInstance() ||
        node->other.shadowedNode != nullptr || sendsEvents(node)) {
      continue;
    }
    for (VPFieldList* cell = node->fields; cell != nullptr; cell = cell->next) {
      roundCell(cell, digits);
    }
  }
}

bool VPFile::mayCutMoreAgain() {
  if (allProtos != nullptr) return true;
  std::vector<VPNode*> nodes = allNodes();
  return std::any_of(nodes.begin(), nodes.end(),
                     [](const VPNode* node) { return node->nodeType == VPNode::SCRIPT; });
}

/* ---------------------------------------------------------------------------
 * --vrml97: identical nodes shared
 * ------------------------------------------------------------------------ */

namespace {

// Nodes that a browser tells apart from their copies: they sense, keep time,
// play, bind (an Anchor's url "#name" names a Viewpoint) or load.
const char* const kSingularTypes[] = {
    "Anchor",          "AudioClip",      "Background",       "Collision",
    "CylinderSensor",  "Fog",            "Inline",           "MovieTexture",
    "NavigationInfo",  "PlaneSensor",    "ProximitySensor",  "Sound",
    "SphereSensor",    "TimeSensor",     "TouchSensor",      "Viewpoint",
    "VisibilitySensor",
};

bool isSingularType(const VPNode* node) {
  const char* type = node->other.baseProto->name;
  for (const char* singular : kSingularTypes) {
    if (strcmp(type, singular) == 0) return true;
  }
  return false;
}

uint64_t mixHash(uint64_t hash, uint64_t value) {
  return (hash ^ value) * 0x100000001b3ull + (hash >> 29);
}

// Four bytes at a time; the values hashed are arrays of 32-bit numbers and
// strings, whose last bytes go one by one.
uint64_t hashBytes(uint64_t hash, const void* data, size_t size) {
  const unsigned char* bytes = static_cast<const unsigned char*>(data);
  size_t i = 0;
  for (; i + 4 <= size; i += 4) {
    uint32_t word;
    memcpy(&word, bytes + i, 4);
    hash = mixHash(hash, word);
  }
  for (; i < size; i++) hash = mixHash(hash, bytes[i]);
  return hash;
}

// The bytes of one element as the writer sees them: floats by their bits, so
// that -0 and 0 differ as their texts do.
uint64_t hashElement(uint64_t hash, int type, const VPValue* value) {
  if (type == VPField::SFString || type == VPField::MFString) {
    return hashBytes(hash, value->string, strlen(value->string));
  }
  if (type == VPField::SFImage) {
    const VPImage* image = value->image;
    hash = hashBytes(hash, image, 3 * sizeof(int32_t));
    int64_t count = int64_t(image->width) * image->height;
    return count < 1 ? hash : hashBytes(hash, image->pixels, size_t(count) * sizeof(int32_t));
  }
  if (int length = tupleLength(type)) {
    return hashBytes(hash, value->floats, size_t(length) * sizeof(float));
  }
  return mixHash(hash, uint32_t(value->intValue));  // also the bits of a float
}

bool sameElements(int type, const VPValue* a, const VPValue* b) {
  if (type == VPField::SFString || type == VPField::MFString) {
    return strcmp(a->string, b->string) == 0;
  }
  if (type == VPField::SFImage) {
    const VPImage* x = a->image;
    const VPImage* y = b->image;
    int64_t count = int64_t(x->width) * x->height;
    return memcmp(x, y, 3 * sizeof(int32_t)) == 0 &&
           (count < 1 || memcmp(x->pixels, y->pixels, size_t(count) * sizeof(int32_t)) == 0);
  }
  if (int length = tupleLength(type)) {
    return memcmp(a->floats, b->floats, size_t(length) * sizeof(float)) == 0;
  }
  return a->intValue == b->intValue;
}

// The elements of a value that go into the hash of its node.
constexpr int kHashedElements = 8;

/// What the sharing knows of a subtree, in one word: a million nodes take
/// 16 bytes each in the map of shapes.
struct SubtreeShape {
  uint64_t hash : 62;
  bool shareable : 1;  ///< nothing in it can tell it from a copy
  bool tree : 1;       ///< no node in it is referred to from anywhere else
};

// The pass over one scope: the top level, or the body of one PROTO.
struct NodeSharing {
  FlatMap<VPNode*, SubtreeShape> shapes;
  std::unordered_map<uint64_t, std::vector<VPNode*>> firstNodes;  ///< by hash
  NodeCollector walked;
  FlatMap<TextKey, bool> names;  ///< taken in the scope
  size_t nameCounter = 0;

  void shareAt(VPNode** place);
  VPNode* findEqual(VPNode* node);
  SubtreeShape shapeOf(VPNode* node);
  bool canShare(VPNode* node);
  bool sameSubtree(VPNode* a, VPNode* b);
  void collectNames(VPNodeList* list);
  char* freeName();
};

bool NodeSharing::canShare(VPNode* node) {
  if (node->nodeType != VPNode::OTHER || node->isProtoInstance() ||
      !node->other.baseProto->declaration->isBuiltin ||
      isSingularType(node) || node->scriptSeen || node->other.routesIn != nullptr ||
      node->other.routesOut != nullptr) {
    return false;
  }
  for (const VPFieldList* cell = node->fields; cell != nullptr; cell = cell->next) {
    if (cell->redirect != nullptr) return false;
  }
  return true;
}

// The hash of the written cells and of the children, with what they allow.
SubtreeShape NodeSharing::shapeOf(VPNode* node) {
  if (const SubtreeShape* known = shapes.find(node)) return *known;
  SubtreeShape shape = {mixHash(0, reinterpret_cast<uintptr_t>(node->other.baseProto)),
                        canShare(node), node->refCount == 1};
  // A node below itself (a USE inside its own DEF) is shared with nothing:
  // while its children are hashed it stands as one that cannot be.
  shapes[node] = {shape.hash, false, false};
  for (VPFieldList* cell = shape.shareable ? node->fields : nullptr; cell != nullptr;
       cell = cell->next) {
    if (node->holdsDefault(cell)) continue;
    shape.hash = mixHash(shape.hash, reinterpret_cast<uintptr_t>(cell->field));
    int hashed = 0;  // long lists are told apart by their first values; sameSubtree decides
    for (VPValue* value = cell->value; value != nullptr; value = value->next) {
      if (!cell->field->holdsNodes()) {
        if (hashed++ < kHashedElements) {
          shape.hash = hashElement(shape.hash, cell->field->theType, value);
        }
      } else if (value->node == nullptr) {
        shape.hash = mixHash(shape.hash, 1);
      } else {
        SubtreeShape child = shapeOf(value->node);
        shape.hash = mixHash(shape.hash, child.hash);
        shape.shareable = shape.shareable && child.shareable;
        shape.tree = shape.tree && child.tree;
      }
    }
  }
  shapes[node] = shape;
  return shape;
}

// Equal as the writer writes them: the same type and, cell by cell, the same
// fields with the same values and equal children.
bool NodeSharing::sameSubtree(VPNode* a, VPNode* b) {
  if (a == b) return true;
  if (a->other.baseProto != b->other.baseProto) return false;
  VPFieldList* x = a->fields;
  VPFieldList* y = b->fields;
  for (;; x = x->next, y = y->next) {
    while (x != nullptr && a->holdsDefault(x)) x = x->next;
    while (y != nullptr && b->holdsDefault(y)) y = y->next;
    if (x == nullptr || y == nullptr) return x == y;
    if (x->field != y->field) return false;
    const VPValue* u = x->value;
    const VPValue* v = y->value;
    for (; u != nullptr && v != nullptr; u = u->next, v = v->next) {
      bool same = !x->field->holdsNodes() ? sameElements(x->field->theType, u, v)
                  : u->node == nullptr || v->node == nullptr ? u->node == v->node
                                                             : sameSubtree(u->node, v->node);
      if (!same) return false;
    }
    if (u != v) return false;
  }
}

VPNode* NodeSharing::findEqual(VPNode* node) {
  auto candidates = firstNodes.find(shapeOf(node).hash);
  if (candidates == firstNodes.end()) return nullptr;
  for (VPNode* first : candidates->second) {
    if (sameSubtree(first, node)) return first;
  }
  return nullptr;
}

// A node that the writer meets for the first time: a copy of a node met
// before, in a tree of its own, becomes that node; else it may serve later
// copies, and its children are walked.
void NodeSharing::shareAt(VPNode** place) {
  VPNode* node = *place;
  if (node == nullptr || node->nodeType != VPNode::OTHER || !walked.add(node)) return;
  SubtreeShape shape = shapeOf(node);
  if (shape.shareable) {
    VPNode* first = shape.tree ? findEqual(node) : nullptr;
    if (first != nullptr) {
      if (first->name == nullptr) first->name = freeName();
      first->refCount++;
      *place = first;
      return;
    }
    firstNodes[shape.hash].push_back(node);
  }
  for (VPFieldList* cell = node->fields; cell != nullptr; cell = cell->next) {
    if (!cell->field->holdsNodes()) continue;
    for (VPValue* value = cell->value; value != nullptr; value = value->next) shareAt(&value->node);
  }
}

// The names of the scope, which a new name must not take.
void NodeSharing::collectNames(VPNodeList* list) {
  NodeCollector collector;
  forEachNode(list, [&collector](VPNode* node) {
    if (node->nodeType != VPNode::PROTO && node->nodeType != VPNode::EXTERNPROTO) collector.add(node);
  });
  collector.addBelow();
  for (VPNode* below : collector.nodes) {
    if (below->name != nullptr) names.emplace(below->name, true);
  }
}

// The shortest names first: A to Z, a to z and _, then two characters, and so on.
char* NodeSharing::freeName() {
  static const char kFirst[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz_";
  static const char kLater[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz_0123456789";
  static const char* const kWords[] = {"IS", "TO", "DEF", "USE", "NULL", "TRUE", "FALSE"};
  for (;;) {
    std::string name;
    size_t number = nameCounter++;
    name += kFirst[number % (sizeof kFirst - 1)];
    for (number /= sizeof kFirst - 1; number > 0; number = (number - 1) / (sizeof kLater - 1)) {
      name += kLater[(number - 1) % (sizeof kLater - 1)];
    }
    bool reserved = std::any_of(std::begin(kWords), std::end(kWords),
                                [&name](const char* word) { return name == word; });
    if (reserved || names.find(name.c_str()) != nullptr) continue;
    char* kept = copyString(name.c_str());
    names.emplace(kept, true);
    return kept;
  }
}

// The scopes are the top level and each PROTO body; nodes in the defaults of
// PROTO fields are left as they are.
void shareScope(VPNodeList* list) {
  NodeSharing sharing;
  sharing.collectNames(list);
  for (VPNodeList* cell = list; cell != nullptr; cell = cell->next) sharing.shareAt(&cell->node);
  forEachNode(list, [](VPNode* node) {
    if (node->nodeType == VPNode::PROTO) shareScope(node->declaration->body);
  });
}

}  // namespace

void VPFile::shareIdenticalNodes() {
  markScriptSight();
  shareScope(topLevel);
}
