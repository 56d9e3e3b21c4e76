// Compression passes: scan, PROTO defaults, interface pruning, Switch choices
// and DEF names.
#include "vrmlcompress.h"

#include "main.h"

void VPFile::scanNodes() {}

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
