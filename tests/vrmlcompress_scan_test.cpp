#include <gtest/gtest.h>

#include "main.h"
#include "test_util.h"

namespace {

VPFile* scannedWorld(const std::string& body) {
  VPFile* file = parseWorld(body);
  file->scanNodes();
  return file;
}

int countShadows(VPNode* node) {
  int count = 0;
  for (VPShadow* shadow = node->other.shadowNodes; shadow != nullptr; shadow = shadow->next) count++;
  return count;
}

int countRoutesOut(VPNode* node) {
  int count = 0;
  for (VPRouteList* cell = node->other.routesOut; cell != nullptr; cell = cell->next) count++;
  return count;
}

const char kTwoInstances[] =
    "PROTO P [ field SFFloat r 2 eventIn SFBool go exposedField SFColor c 1 0 0 ] {\n"
    "DEF G Group { children [ DEF A Shape { geometry Sphere { radius IS r } } USE A ] }\n"
    "DEF B TouchSensor { enabled IS go }\n"
    "DEF C TouchSensor { }\n"
    "ROUTE C.isActive TO B.enabled\n"
    "ROUTE B.isActive TO B.enabled\n"
    "}\n"
    "DEF ONE P { r 5 }\n"
    "DEF TWO P { }\n";

TEST(ProtoExpansion, EachInstanceGetsItsOwnCopyOfTheBody) {
  VPFile* file = scannedWorld(kTwoInstances);
  VPNode* proto = file->allProtos->node;
  VPNode* one = file->findNamedNode("ONE");
  VPNode* two = file->findNamedNode("TWO");
  VPNode* group = proto->body->node;
  VPNode* shape = group->fields->value->node;
  ASSERT_EQ(countShadows(group), 2);
  EXPECT_EQ(group->other.shadowNodes->root, two);  // newest first
  EXPECT_EQ(group->other.shadowNodes->next->root, one);
  // The shape used twice in the body is one shared copy in each shadow.
  VPNode* oneGroup = one->other.generic.implementation->node;
  EXPECT_EQ(oneGroup, group->findShadow(one));
  EXPECT_EQ(oneGroup->other.shadowedNode, group);
  VPNode* oneShape = oneGroup->fields->value->node;
  EXPECT_NE(oneShape, shape);
  EXPECT_EQ(oneGroup->fields->value->next->node, oneShape);
  EXPECT_EQ(countShadows(shape), 2);
  EXPECT_EQ(oneShape->other.refCount, 0);
}

TEST(ProtoExpansion, IsTakesTheInstanceValueOrKeepsTheEventRedirect) {
  VPFile* file = scannedWorld(kTwoInstances);
  VPNode* one = file->findNamedNode("ONE");
  VPNode* two = file->findNamedNode("TWO");
  auto sphereRadius = [](VPNode* instance) {
    VPNode* shape = instance->other.generic.implementation->node->fields->value->node;
    return shape->fields->value->node->fields;
  };
  EXPECT_EQ(sphereRadius(one)->redirect, nullptr);
  EXPECT_EQ(sphereRadius(one)->value->floatValue, 5.0f);
  EXPECT_EQ(sphereRadius(two)->value->floatValue, 2.0f);
  VPNode* oneSensor = one->other.generic.implementation->next->node;
  ASSERT_NE(oneSensor->fields->redirect, nullptr);
  EXPECT_STREQ(oneSensor->fields->redirect->field->name, "go");
  // One IS link for each copied IS: radius and enabled.
  int links = 0;
  for (VPIsLink* link = one->other.generic.isLinks; link != nullptr; link = link->next) links++;
  EXPECT_EQ(links, 2);
  EXPECT_EQ(one->other.generic.isLinks->node, oneSensor);
  // And the PROTO's own links over its body, from the scan.
  EXPECT_STREQ(file->allProtos->node->isLinks->protoField->name, "go");
}

TEST(ProtoExpansion, RoutesInsideTheBodyAreCopiedOncePerInstance) {
  VPFile* file = scannedWorld(kTwoInstances);
  VPNode* proto = file->allProtos->node;
  VPNode* b = proto->body->next->node;
  VPNode* c = proto->body->next->next->node;
  for (VPNode* instance : {file->findNamedNode("ONE"), file->findNamedNode("TWO")}) {
    VPNode* bCopy = b->findShadow(instance);
    VPNode* cCopy = c->findShadow(instance);
    EXPECT_EQ(countRoutesOut(cCopy), 1);
    EXPECT_EQ(cCopy->other.routesOut->route->destNode, bCopy);
    EXPECT_EQ(countRoutesOut(bCopy), 1);  // the route to itself, once
    EXPECT_EQ(bCopy->other.routesOut->route->destNode, bCopy);
  }
  EXPECT_EQ(countRoutesOut(c), 1);
}

TEST(ProtoExpansion, RouteWrittenBeforeItsSourceIsCopiedWithTheLaterNode) {
  VPFile* file = scannedWorld("PROTO P [ ] {\n"
                              "DEF B TouchSensor { }\n"
                              "DEF A TouchSensor { }\n"
                              "ROUTE A.isActive TO B.enabled\n"
                              "}\n"
                              "DEF I P { }\n");
  VPNode* instance = file->findNamedNode("I");
  VPNode* bCopy = instance->other.generic.implementation->node;
  VPNode* aCopy = instance->other.generic.implementation->next->node;
  ASSERT_EQ(countRoutesOut(aCopy), 1);
  EXPECT_EQ(aCopy->other.routesOut->route->destNode, bCopy);
  EXPECT_EQ(bCopy->other.routesIn->route->sourceNode, aCopy);
}

TEST(ProtoExpansion, RouteOutOfAnInstanceLeavesFromEachLinkedCopy) {
  VPFile* file = scannedWorld("PROTO P [ eventOut SFBool on ] {\n"
                              "TouchSensor { isActive IS on }\n"
                              "TouchSensor { isOver IS on }\n"
                              "}\n"
                              "DEF I P { }\n"
                              "DEF L PointLight { }\n"
                              "ROUTE I.on TO L.on\n");
  VPNode* light = file->findNamedNode("L");
  int routesIn = 0;
  for (VPRouteList* cell = light->other.routesIn; cell != nullptr; cell = cell->next) routesIn++;
  EXPECT_EQ(routesIn, 3);  // the written route and one from each copy
}

TEST(ProtoExpansion, NestedInstancesGetCopiesOfTheirOwn) {
  VPFile* file = scannedWorld("PROTO In [ field SFFloat r 1 ] { Sphere { radius IS r } }\n"
                              "PROTO Out [ field SFFloat r 3 ] { In { r IS r } }\n"
                              "DEF O Out { r 4 }\n");
  VPNode* outer = file->findNamedNode("O");
  VPNode* innerCopy = outer->other.generic.implementation->node;
  ASSERT_NE(innerCopy->other.generic.implementation, nullptr);
  VPNode* sphere = innerCopy->other.generic.implementation->node;
  EXPECT_EQ(sphere->fields->value->floatValue, 4.0f);
  VPNode* innerInBody = file->allProtos->node->body->node;
  EXPECT_EQ(innerCopy->other.shadowedNode, innerInBody);
}

TEST(Scan, ScriptsAreParsedOnceFromTheirUrl) {
  VPFile* file = scannedWorld("DEF S Script {\n"
                              "field SFNode n Shape { geometry Sphere { } }\n"
                              "url [ \"vrmlscript: function f() { x = \\\"a\\\"; }\" ]\n"
                              "}\n"
                              "Group { children USE S }\n");
  VPNode* script = file->findNamedNode("S");
  ASSERT_NE(script->other.script.program, nullptr);
  EXPECT_EQ(printedText([script](FILE* s) { script->other.script.program->printFunctions(s); }),
            "function f() {\nx=\\\"a\\\";\n}\n");
  EXPECT_EQ(writtenWorld(file),
            "#VRML V2.0 utf8\n"
            "DEF S Script {\n"
            "field SFNode n Shape {\ngeometry Sphere {\n}\n}\n"
            "url \"javascript:\nfunction f() {\nx=\\\"a\\\";\n}\n\"\n"
            "}\n"
            "Group {\nchildren USE S\n}\n");
}

TEST(Scan, EmptyProgramIsWrittenAsTwoLines) {
  VPFile* file = scannedWorld("Script { url \"javascript:\" }\n");
  EXPECT_EQ(writtenWorld(file), "#VRML V2.0 utf8\nScript {\nurl \"javascript:\n\"\n}\n");
}

TEST(Scan, UrlsThatHoldNoInlineScriptStop) {
  struct {
    const char* world;
    const char* check;
  } cases[] = {
      {"Script { }", "found"},
      {"Script { url [] }", "value != NULL"},
      {"PROTO P [ field MFString u [] ] { Script { url IS u } }\nP { }", "value != NULL"},
      {"Script { url [ \"javascript: \" \"other.js\" ] }", "value->next == NULL"},
      {"Script { url \"code.js\" }",
       "strncmp (s, \"javascript:\", 11) == 0 || strncmp (s, \"vrmlscript:\", 11) == 0"},
      {"Script { url \" javascript:\" }",
       "strncmp (s, \"javascript:\", 11) == 0 || strncmp (s, \"vrmlscript:\", 11) == 0"},
      {"PROTO P [ field SFNode n Group { } ] { }", "nodeType == OTHER || nodeType == SCRIPT"},
      {"Script { url \"javascript: function f() { x = 1 # 2; }\" }", "0"},
  };
  for (const auto& c : cases) {
    EXPECT_EXIT(scannedWorld(c.world), testing::ExitedWithCode(253), checkReport(c.check))
        << c.world;
  }
  // The tokenizer lets no string end in a lone backslash inside a whole node.
  VPFile* file = parseWorld("Script { url \"javascript:\" }");
  file->topLevel->node->fields->value->string = copyString("\"javascript:x\\");
  EXPECT_EXIT(file->scanNodes(), testing::ExitedWithCode(253), checkReport("*t != 0"));
  EXPECT_EXIT(scannedWorld("Transform { children DEF S Script {\n"
                           "url \"javascript: function f() { return }\" } }"),
              testing::ExitedWithCode(253),
              "^Error: Line 1: ';' expected, got '}'\nStack dump:\n"
              "  Scanning Transform node \\(null\\), field children\n"
              "  Parsing Script node S\n$");
}

}  // namespace
