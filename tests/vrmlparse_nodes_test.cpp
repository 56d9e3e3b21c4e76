#include <gtest/gtest.h>

#include <cstring>
#include <string>

#include "test_util.h"

namespace {

struct CheckCase {
  const char* world;
  const char* check;
};

// Each input stops the run with the check that guards it.
TEST(VrmlParserChecks, BadInputStopsWithItsCheck) {
  const CheckCase cases[] = {
      {"Transform [ ]", "*token == '{'"},
      {"PROTO P [ ] Group { }", "*token == '{'"},
      {"Transform { size 1 }", "*token == '}'"},
      {"Script { url \"\" eventIn SFBool go }", "*token == '}'"},
      {"PROTO P [ ] { Group { } ] }", "*token == '}'"},
      {"DEF 3 Group { }", "tokType == TokId"},
      {"USE \"A\"", "tokType == TokId"},
      {"PROTO 3 [ ] { }", "tokType == TokId"},
      {"EXTERNPROTO \"E\" [ ] \"e.wrl\"", "tokType == TokId"},
      {"PROTO P [ field SFBool 3 TRUE ] { }", "tokType == TokId"},
      {"USE A", "node != NULL"},
      {"PROTO P { }", "*token == '['"},
      {"EXTERNPROTO E { }", "*token == '['"},
      {"PROTO P [ bogus SFBool x ] { }", "*token == ']'"},
      {"PROTO P [ field SFBogus x 1 ] { }", "field->theType != VPField::TypeNone"},
      {"EXTERNPROTO E [ field SFBool x ] \"e.wrl\"",
       "*token == '=' || field->theClass == VPField::EVENT_IN || "
       "field->theClass == VPField::EVENT_OUT"},
      {"EXTERNPROTO Box [ ] \"box.wrl\"", "protos->findString (result->node->name) == 0"},
      {"PROTO P [ ] { PROTO Q [ ] { } }", "currentProto == NULL"},
      {"Sphere { radius IS r }", "currentProto != NULL"},
      {"PROTO P [ field SFFloat r IS s ] { }", "currentProto != NULL"},
      {"PROTO P [ ] { Sphere { radius IS r } }", "0"},
      {"PROTO P [ ] { Script { eventIn SFBool go IS go } }", "iter != NULL"},
      {"PROTO P [ field SFInt32 r 1 ] { Sphere { radius IS r } }",
       "result->redirect->field->theType == bestFit->field->theType"},
      {"Transform { set_translation 1 2 3 }", "result->redirect != NULL"},
      {"PROTO P [ field SFVec3f t 0 0 0 ] { Transform { set_translation IS t } }",
       "result->redirect->field->theClass == VPField::EVENT_IN"},
      {"PROTO P [ eventIn SFVec3f t ] { Transform { translation_changed IS t } }",
       "result->redirect->field->theClass == VPField::EVENT_OUT"},
      {"PROTO P [ eventOut SFFloat r ] { Sphere { radius_changed IS r } }",
       "bestFit->field->theClass == VPField::EXPOSED_FIELD"},
      {"ROUTE A.isActive TO B.enabled", "sourceNode != NULL"},
      {"DEF A TouchSensor { } ROUTE A.isActive TO B.enabled", "destNode != NULL"},
      {"DEF A TouchSensor { } ROUTE A isActive TO A.enabled", "token[0] == '.' && token[1] == 0"},
      {"DEF A TouchSensor { } ROUTE A.bogus TO A.enabled", "sourceField != NULL"},
      {"DEF A Transform { } ROUTE A.set_translation TO A.translation", "sourceField != NULL"},
      {"DEF A TouchSensor { } ROUTE A.isActive A.enabled", "strcmp (token, \"TO\") == 0"},
      {"DEF A TouchSensor { } ROUTE A.isActive TO A.bogus", "destField != NULL"},
  };
  for (const CheckCase& c : cases) {
    EXPECT_EXIT(parseWorld(c.world), testing::ExitedWithCode(253), checkReport(c.check))
        << c.world;
  }
}

TEST(VrmlParserChecks, AcceptedEdgesOfTheGrammar) {
  VPFile* file = parseWorld("EXTERNPROTO E [ field SFBool x=TRUE eventIn SFBool y ] \"e.wrl\"\n"
                            "PROTO P [ ] { }\n"
                            "Script { url \"\" }\n"
                            "NULL\n"
                            "DEF A Transform { } ROUTE A.translation_changed TO A.set_translation\n"
                            "PROTO Q [ eventIn SFVec3f go ] { Transform { translation IS go } }\n");
  int items = 0;
  for (VPNodeList* cell = file->topLevel; cell != nullptr; cell = cell->next) items++;
  EXPECT_EQ(items, 6);
}

// A walk meets the nodes in the order of a recursive walk: a shared node at
// its first place only, a leave step after the children named before it, and
// what a leave step names after it. The marks hold until the traversal ends.
TEST(NodeWalks, OrderOfARecursiveWalkAndMarksOfOneTraversal) {
  VPFile* file = parseWorld(
      "DEF A Group { children [ DEF B Group { children DEF D Shape { } }\n"
      "  DEF C Group { children DEF E Shape { } } USE D ] }\n"
      "DEF F Shape { }\n");
  VPNode* root = file->findNamedNode("A");
  std::string order;
  auto walk = [&]() {
    auto enter = [&order](VPNode* node, NodeWalkSteps& steps) {
      order += std::string("+") + node->name;
      steps.childrenIn(node->fields);
      if (strcmp(node->other.baseProto->name, "Group") == 0) steps.leave();
    };
    walkNodes(root, enter, [&](VPNode* node, NodeWalkSteps& steps) {
      order += std::string("-") + node->name;
      if (node == root) steps.child(file->findNamedNode("F"));
    });
  };
  walk();
  EXPECT_EQ(order, "+A+B+D-B+C+E-C-A+F");
  walk();
  EXPECT_EQ(order, "+A+B+D-B+C+E-C-A+F");
  file->clearVisited();
  order.clear();
  walk();
  EXPECT_EQ(order, "+A+B+D-B+C+E-C-A+F");
}

// The field that each name in an instance means, and the field of the PROTO
// around that each IS names, whether the interfaces are short or long: the
// very name first, then "set_" or "_changed" around the name of a field.
TEST(FieldNames, InstanceFieldsMeanTheSameInShortAndLongInterfaces) {
  for (int padding : {0, 40}) {
    std::string pad;
    for (int i = 0; i < padding; i++) pad += " exposedField SFFloat p" + std::to_string(i) + " 0";
    VPFile* file = parseWorld(
        "PROTO Q [" + pad + " exposedField SFFloat x 0 eventIn SFFloat set_y exposedField SFFloat y 0"
        " exposedField SFFloat z 0 ] { Group { } }\n"
        "PROTO P [" + pad + " eventIn SFFloat e eventOut SFFloat o eventIn SFFloat e2 ]"
        " { Q { set_x IS e z_changed IS o set_y IS e2 } }\n");
    VPNode* proto = file->topLevel->next->node;
    ASSERT_EQ(proto->nodeType, VPNode::PROTO);
    std::string fields;
    VPNode* bodyNode = proto->declaration->body->node;
    for (VPFieldList* cell = bodyNode->fields; cell != nullptr; cell = cell->next) {
      fields += std::string(cell->field->name) + " IS " + cell->redirect->field->name + ";";
    }
    EXPECT_EQ(fields, "x IS e;z IS o;set_y IS e2;") << padding;
  }
}

}  // namespace
