// Compression passes: scan, PROTO defaults, interface pruning, Switch choices
// and DEF names.
#include "vrmlcompress.h"

#include <cstring>

#include "jsparser.h"
#include "main.h"

/* ---------------------------------------------------------------------------
 * Scan: IS links of PROTOs, script programs, private copies of PROTO bodies
 * ------------------------------------------------------------------------ */

namespace {

const char* nameOrNull(const char* name) { return name != nullptr ? name : "(null)"; }

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

VPFieldList* findUrlCell(VPFieldList* fields) {
  for (VPFieldList* cell = fields; cell != nullptr; cell = cell->next) {
    if (strcmp(cell->field->name, "url") == 0) return cell;
  }
  return nullptr;
}

}  // namespace

void VPFile::scanNodes() {
  for (VPNodeList* cell = topLevel; cell != nullptr; cell = cell->next) {
    if (cell->node != nullptr) cell->node->scanNode();
  }
  clearVisited();
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
  for (VPNodeList* value = cell->value; value != nullptr; value = value->next) {
    if (value->node == nullptr) continue;
    CHECK(nodeType == OTHER || nodeType == SCRIPT);
    pushContext("Scanning %s node %s, field %s", other.baseProto->name, nameOrNull(name),
                cell->field->name);
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
  VPFieldList* urlCell = findUrlCell(fields);
  bool found = urlCell != nullptr;
  CHECK(found);
  char* text = extractScript(urlCell);
  other.script.program = new JSParser;
  other.script.program->parseScript(text);
  for (VPFieldList* cell = other.script.fields; cell != nullptr; cell = cell->next) {
    scanCell(cell);
  }
  popContext();
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
    (*last)->node = copyNode(cell->node);
    last = &(*last)->next;
  }
  // Events that the body sends out through an IS leave straight from the copy.
  for (VPRouteList* cell = other.routesOut; cell != nullptr; cell = cell->next) {
    VPRoute* route = cell->route;
    CHECK(route->sourceNode == this);
    for (VPIsLink* link = other.generic.isLinks; link != nullptr; link = link->next) {
      if (link->protoField == route->sourceField) {
        addRoute(link->node, link->nodeField, route->destNode, route->destField);
      }
    }
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
        copy->value = findEffectiveField(cell->redirect->field)->value;
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

void VPFile::pruneProtoInterfaces() {}

void VPFile::pruneSwitches() {}

void VPFile::dropDefNames() {}
