// Compression passes: scan, PROTO defaults, interface pruning, Switch choices
// and DEF names.
#include "vrmlcompress.h"

#include <algorithm>
#include <cstring>
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
  for (VPNodeList* cell = topLevel; cell != nullptr; cell = cell->next) {
    if (cell->node != nullptr) cell->node->scanNode();
  }
  if (vrml97Option) addStandIns();
  clearVisited();
}

// --vrml97: a PROTO without instance here may be instantiated by another world
// with any values. Its stand-in holds a value it cannot know in each field
// that holds no nodes; node fields keep their defaults. An instance inside the
// body of such a PROTO is expanded with the stand-in, so newest first order
// needs no stand-in for it.
void VPFile::addStandIns() {
  forEachNode(allProtos, [this](VPNode* proto) {
    if (proto->instances != nullptr) return;
    VPNode* standIn = newRecord<VPNode>();
    standIn->nodeType = VPNode::OTHER;
    standIn->other.baseProto = proto;
    VPFieldList** last = &standIn->fields;
    for (VPFieldList* cell = proto->fields; cell != nullptr; cell = cell->next) {
      if (!cell->field->hasValue() || cell->field->holdsNodes()) continue;
      *last = newRecord<VPFieldList>();
      **last = {nullptr, cell->field, nullptr, cell->value, FIELD_NO_DEFAULT};
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

void VPNode::addIsLink(VPFieldList* field) {
  CHECK(field->redirect != NULL);
  VPNode* proto = field->redirect->proto;
  VPIsLink* link = newRecord<VPIsLink>();
  *link = {proto->isLinks, field->redirect->field, this, field->field};
  proto->isLinks = link;
}

// One cell of a node's field list: its IS, and the nodes it holds.
void VPNode::scanCell(VPFieldList* cell) {
  if (cell->redirect != nullptr) {
    CHECK(nodeType == OTHER || nodeType == SCRIPT);
    addIsLink(cell);
  }
  if (!cell->field->holdsNodes()) return;
  // --vrml97: node values as defaults of PROTO and EXTERNPROTO fields.
  bool isDefault = vrml97Option && (nodeType == PROTO || nodeType == EXTERNPROTO);
  for (VPNodeList* value = cell->value; value != nullptr; value = value->next) {
    if (value->node == nullptr) continue;
    if (isDefault) {
      pushContext("Scanning %s, field %s", name, cell->field->name);
    } else {
      CHECK(nodeType == OTHER || nodeType == SCRIPT);
      pushContext("Scanning %s node %s, field %s", other.baseProto->name, nameOrNull(name),
                  cell->field->name);
    }
    value->node->scanNode();
    popContext();
  }
}

void VPNode::scanNode() {
  if (visited) return;
  visited = 1;
  for (VPFieldList* cell = fields; cell != nullptr; cell = cell->next) scanCell(cell);
  switch (nodeType) {
  case OTHER:
    expandInstance();
    return;
  case PROTO:
    pushContext("Scanning PROTO %s", name);
    for (VPNodeList* cell = body; cell != nullptr; cell = cell->next) {
      if (cell->node != nullptr) cell->node->scanNode();
    }
    popContext();
    return;
  case SCRIPT:
    scanScript();
    return;
  default:
    return;
  }
}

// The code first, then the interface cells with the nodes they hold.
void VPNode::scanScript() {
  pushContext("Parsing Script node %s", nameOrNull(name));
  VPFieldList* urlCell = findUrlCell();
  bool found = urlCell != nullptr;
  other.script.program = new JSParser;
  if (vrml97Option) {
    scanVrml97Script(urlCell);
  } else {
    CHECK(found);
    other.script.program->parseScript(extractScript(urlCell));
  }
  for (VPFieldList* cell = other.script.fields; cell != nullptr; cell = cell->next) {
    scanCell(cell);
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
  for (VPNodeList* cell = proto->body; cell != nullptr; cell = cell->next) {
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
    redirectRouteOut(this, route->sourceField, route->destNode, route->destField);
  }
}

// The value that this root gives a body field tied to a parameter by IS. Node
// values that the root does not give itself (--vrml97: defaults with nodes)
// are copied for this root, as a browser makes them for each instance.
VPValue* VPNode::resolvedValue(const VPFieldList* bodyCell) {
  VPField* parameter = bodyCell->redirect->field;
  VPFieldList* effective = findEffectiveField(parameter);
  if (!vrml97Option || !parameter->holdsNodes() || effective == findField(parameter)) {
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
void VPNode::redirectRouteOut(VPNode* source, VPField* sourceField, VPNode* dest,
                              VPField* destField) {
  for (VPIsLink* link = source->other.generic.isLinks; link != nullptr; link = link->next) {
    if (link->protoField == sourceField) addRoute(link->node, link->nodeField, dest, destField);
  }
}

VPNode* VPNode::findShadow(const VPNode* root) {
  for (VPShadow* shadow = other.shadowNodes; shadow != nullptr; shadow = shadow->next) {
    if (shadow->root == root) return shadow->shadow;
  }
  return nullptr;
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
  for (VPRouteList* cell = originalNode->other.routesIn; cell != nullptr; cell = cell->next) {
    VPNode* sourceCopy = cell->route->sourceNode->findShadow(this);
    if (sourceCopy != nullptr) {
      addRoute(sourceCopy, cell->route->sourceField, newNode, cell->route->destField);
      // --vrml97: also when the copy is an instance that was expanded before
      // this node was copied.
      if (vrml97Option && sourceCopy->isProtoInstance()) {
        redirectRouteOut(sourceCopy, cell->route->sourceField, newNode, cell->route->destField);
      }
    }
  }
  VPShadow* shadow = newRecord<VPShadow>();
  *shadow = {originalNode->other.shadowNodes, this, newNode};
  originalNode->other.shadowNodes = shadow;
  newNode->other.shadowedNode = originalNode;
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
  newNode->expandInstance();
  return newNode;
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
    if (cell->redirect == nullptr && cell->field->holdsNodes()) {
      VPValue** lastValue = &copy->value;
      for (VPValue* value = cell->value; value != nullptr; value = value->next) {
        *lastValue = newRecord<VPValue>();
        (*lastValue)->node = copyNode(value->node);
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
      VPIsLink* link = newRecord<VPIsLink>();
      *link = {other.generic.isLinks, cell->redirect->field, newNode, cell->field};
      other.generic.isLinks = link;
    }
    *last = copy;
    last = &copy->next;
  }
  return head;
}

namespace {

// The cell whose value every instance of the PROTO has for the field, or NULL
// when it has no instance or two instances differ.
VPFieldList* valueOfAllInstances(VPNode* proto, VPField* field) {
  VPFieldList* reference = nullptr;
  for (VPNodeList* instance = proto->instances; instance != nullptr; instance = instance->next) {
    VPNode* node = instance->node;
    CHECK(node->nodeType == VPNode::SCRIPT || node->nodeType == VPNode::OTHER);
    CHECK(node->other.baseProto == proto);
    VPFieldList* effective = node->findEffectiveField(field);
    // --vrml97: an exposedField IS a field of the PROTO around gets its value
    // from each instance of that PROTO: no value agreed on.
    if (vrml97Option && effective->field->theClass != field->theClass) return nullptr;
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

bool unlinkRouteCell(VPRouteList** list, const VPRoute* route) {
  for (VPRouteList** link = list; *link != nullptr; link = &(*link)->next) {
    if ((*link)->route == route) {
      *link = (*link)->next;
      return true;
    }
  }
  return false;
}

bool unlinkIsLink(VPIsLink** list, const VPNode* node, const VPField* nodeField,
                  const VPField* protoField) {
  for (VPIsLink** link = list; *link != nullptr; link = &(*link)->next) {
    VPIsLink* cell = *link;
    if (cell->node == node && cell->nodeField == nodeField && cell->protoField == protoField) {
      *link = cell->next;  // records live in the run's arena
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

// Unlinks every route of the list whose field at this end is `field`.
void unlinkRoutesAt(VPNode* node, VPRouteList* list, const VPField* field, bool outgoing) {
  while (list != nullptr) {
    VPRoute* route = list->route;
    list = list->next;
    if (outgoing ? route->sourceField != field : route->destField != field) continue;
    if (outgoing) {
      CHECK(route->sourceNode == node);
    } else {
      CHECK(route->destNode == node);
    }
    unlinkRoute(route);
  }
}

}  // namespace

void unlinkRoute(VPRoute* route) {
  bool foundOtherSide = unlinkRouteCell(&route->sourceNode->other.routesOut, route);
  CHECK(foundOtherSide);
  foundOtherSide = unlinkRouteCell(&route->destNode->other.routesIn, route);
  CHECK(foundOtherSide);
}

int VPNode::removeField(VPField* field, VPField* protoField) {
  CHECK(nodeType == OTHER || nodeType == SCRIPT);
  VPFieldList** link = nodeType == OTHER ? &fields : &other.script.fields;
  // --vrml97: a field that goes from a node takes the IS links of its cells
  // along, as that of an instance in another PROTO's body.
  if (vrml97Option && protoField == nullptr) {
    for (VPFieldList* cell = *link; cell != nullptr; cell = cell->next) {
      if (cell->field == field && cell->redirect != nullptr) removeIsLink(cell);
    }
  }
  while (*link != nullptr && !((*link)->field == field && redirectedField(*link) == protoField)) {
    link = &(*link)->next;
  }
  VPFieldList* cell = *link;
  if (cell != nullptr && protoField != nullptr && nodeType == SCRIPT) {
    cell->redirect = nullptr;
    return 1;
  }
  if (cell != nullptr) {
    if (field->holdsNodes()) forEachNode(cell->value, [](VPNode* node) { node->dropReference(); });
    *link = cell->next;
  } else if (protoField != nullptr) {
    requireNoRedirect(protoField);
  }
  // --vrml97: through an IS link only the IS goes; the node keeps its field,
  // with its routes and, on an instance, what its body does with it.
  if (vrml97Option && protoField != nullptr) return 1;
  if (protoField != nullptr && protoField->theClass != field->theClass) {
    CHECK(field->theClass == VPField::EXPOSED_FIELD);
    return 1;
  }
  unlinkRoutesAt(this, other.routesIn, field, false);
  unlinkRoutesAt(this, other.routesOut, field, true);
  if (isProtoInstance()) {
    requireNoRedirect(protoField);
    VPIsLink** isLink = &other.generic.isLinks;
    while (VPIsLink* linkCell = *isLink) {
      if (linkCell->protoField != field) {
        isLink = &linkCell->next;
        continue;
      }
      int childHadField = linkCell->node->removeField(linkCell->nodeField, field);
      CHECK(childHadField);
      *isLink = linkCell->next;
    }
  }
  // --vrml97: an exposedField may have a second cell, as set_x IS a beside x_changed IS b.
  if (vrml97Option && protoField == nullptr && cell != nullptr) removeField(field, nullptr);
  return cell != nullptr;
}

void VPNode::removeProtoField(VPField* field) {
  forEachNode(instances, [field](VPNode* instance) { instance->removeField(field, nullptr); });
  VPIsLink** link = &isLinks;
  while (VPIsLink* cell = *link) {
    if (cell->protoField != field) {
      link = &cell->next;
      continue;
    }
    int fieldFound = cell->node->removeField(cell->nodeField, field);
    CHECK(fieldFound);
    *link = cell->next;
  }
}

void VPNode::removeIsLink(VPFieldList* cell) {
  CHECK(nodeType == OTHER || nodeType == SCRIPT);
  VPRedirect* redirect = cell->redirect;
  CHECK(redirect != NULL);
  cell->redirect = nullptr;
  bool removed = unlinkIsLink(&redirect->proto->isLinks, this, cell->field, redirect->field);
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
  if (--other.refCount != 0) return;
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

void VPFile::pruneProtoInterfaces() {
  forEachNode(allProtos, [](VPNode* proto) {
    CHECK(proto->nodeType == VPNode::PROTO);
    forEachNode(proto->body, [](VPNode* node) {
      if (node->nodeType != VPNode::PROTO && node->nodeType != VPNode::EXTERNPROTO) node->foldNode();
    });
    forEachNode(proto->body, [](VPNode* node) { node->clearVisited(); });
    VPFieldList** link = &proto->fields;
    while (VPFieldList* cell = *link) {
      if (proto->isInterfaceFieldLive(cell)) {
        link = &cell->next;
        continue;
      }
      proto->removeProtoField(cell->field);
      *link = cell->next;
    }
  });
}

// An interface field stays while something happened to it, or while a body
// field still takes its value by IS.
bool VPNode::isInterfaceFieldLive(const VPFieldList* cell) {
  if (cell->flags & (FIELD_READ | FIELD_WRITE | FIELD_ROUTED_IN | FIELD_ROUTED_OUT)) return true;
  if (!cell->field->hasValue()) return false;
  for (const VPIsLink* link = isLinks; link != nullptr; link = link->next) {
    if (link->protoField == cell->field) return true;
  }
  return false;
}

void VPNode::foldNode() {
  if (visited) return;
  visited = 1;
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
  forEachNode(topLevel, [](VPNode* node) { node->pruneSwitchChoices(); });
  clearVisited();
}

void VPNode::pruneSwitchChoices() {
  if (visited) return;
  visited = 1;
  auto prune = [](VPNode* node) { node->pruneSwitchChoices(); };
  forEachNodeIn(fields, prune);
  switch (nodeType) {
  case SCRIPT:
    forEachNodeIn(other.script.fields, prune);
    return;
  case PROTO:
    forEachNode(body, prune);
    return;
  case OTHER:
    if (strcmp(other.baseProto->name, "Switch") == 0) cutSwitchChoices();
    return;
  default:
    return;
  }
}

// Children whose index whichChoice can never hold become holes, so that every
// other child keeps its index.
void VPNode::cutSwitchChoices() {
  VPNode* baseProto = other.baseProto;
  CHECK(baseProto->nodeType == EXTERNPROTO);
  VPField* field = fieldByName("whichChoice");
  CHECK(field->theType == VPField::SFInt32);
  VPFuzzyValue record(field);
  getFuzzyValue(&record, field, 0);
  bool known = record.valueKnown;
  std::vector<int32_t> choices;
  for (const VPValue* cell = record.values; cell != nullptr; cell = cell->next) {
    choices.push_back(cell->intValue);
  }
  record.freeValues();
  VPFieldList* children = findField(fieldByName("choice"));
  if (vrml97Option && (children == nullptr || isReachedByOpaqueScript(this))) return;
  CHECK(children != NULL);
  if (!known || children->redirect != nullptr) return;
  int32_t index = 0;
  for (VPNodeList* cell = children->value; cell != nullptr; cell = cell->next, index++) {
    VPNode* child = cell->node;
    if (child == nullptr || std::find(choices.begin(), choices.end(), index) != choices.end()) {
      continue;
    }
    if (vrml97Option && !child->canBeDropped()) continue;
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

// A Script, a route, a PROTO instance (whose removal does not reach its body
// copies) or a bindable node anywhere below keeps the subtree in the world.
bool VPNode::canBeDropped() {
  std::vector<VPNode*> nodes = nodesBelow();
  return std::none_of(nodes.begin(), nodes.end(), canActUndrawn);
}

void VPFile::dropDefNames() {
  forEachNode(topLevel, [](VPNode* node) { node->dropDefName(); });
  clearVisited();
}

void VPNode::dropDefName() {
  if (visited) return;
  visited = 1;
  // --vrml97: an Anchor's url "#name" names a Viewpoint by its DEF.
  bool namedByAnchors = vrml97Option && nodeType == OTHER &&
                        strcmp(other.baseProto->name, "Viewpoint") == 0;
  if ((nodeType == OTHER || nodeType == SCRIPT) && other.refCount == 1 &&
      other.routesIn == nullptr && other.routesOut == nullptr && !isReachedByOpaqueScript(this) &&
      !namedByAnchors) {
    name = nullptr;
  }
  auto drop = [](VPNode* node) { node->dropDefName(); };
  forEachNodeIn(fields, drop);
  if (nodeType == PROTO) forEachNode(body, drop);
  if (nodeType == SCRIPT) forEachNodeIn(other.script.fields, drop);
}
