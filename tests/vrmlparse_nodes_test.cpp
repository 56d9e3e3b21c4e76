#include <gtest/gtest.h>

#include <cstring>

#include "test_util.h"

namespace {

const char* const standardNodes[] = {
    "Anchor", "Appearance", "AudioClip", "Background", "Billboard", "Box", "Collision", "Color",
    "ColorInterpolator", "Cone", "Coordinate", "CoordinateInterpolator", "Cylinder",
    "CylinderSensor", "DirectionalLight", "ElevationGrid", "Extrusion", "Fog", "FontStyle", "Group",
    "ImageTexture", "IndexedFaceSet", "IndexedLineSet", "Inline", "LOD", "Material",
    "MovieTexture", "NavigationInfo", "Normal", "NormalInterpolator", "OrientationInterpolator",
    "PixelTexture", "PlaneSensor", "PointLight", "PointSet", "PositionInterpolator",
    "ProximitySensor", "ScalarInterpolator", "Script", "Shape", "Sound", "Sphere", "SphereSensor",
    "SpotLight", "Switch", "Text", "TextureCoordinate", "TextureTransform", "TimeSensor",
    "TouchSensor", "Transform", "Viewpoint", "VisibilitySensor", "WorldInfo"};

VPNode* declaration(VPFile* file, const char* name) {
  StringTable::Entry* entry = file->findTopProto(name);
  return entry != nullptr ? static_cast<VPNode*>(entry->data) : nullptr;
}

TEST(VrmlLibrary, KnowsTheStandardNodesAndNothingElse) {
  VPFile& file = *newFile();
  EXPECT_EQ(file.topLevel, nullptr);
  EXPECT_EQ(file.allProtos, nullptr);
  ASSERT_EQ(sizeof standardNodes / sizeof standardNodes[0], 54u);
  for (const char* name : standardNodes) {
    VPNode* node = declaration(&file, name);
    ASSERT_NE(node, nullptr) << name;
    EXPECT_EQ(node->nodeType, VPNode::EXTERNPROTO) << name;
    ASSERT_NE(node->urls, nullptr) << name;
    EXPECT_EQ(node->urls->next, nullptr) << name;
  }
  EXPECT_EQ(declaration(&file, "Sphere")->fields->field->theType, VPField::SFFloat);
  EXPECT_EQ(declaration(&file, "Sphere")->fields->value->floatValue, 1.0f);
  EXPECT_EQ(declaration(&file, "NurbsSurface"), nullptr);
}

TEST(VrmlLibrary, FieldsStandInDeclaredOrderWithTheirClasses) {
  VPFile& file = *newFile();
  std::string fields;
  for (VPFieldList* cell = declaration(&file, "Viewpoint")->fields; cell; cell = cell->next) {
    fields += printedText([cell](FILE* stream) { cell->field->write(stream); }) + ";";
  }
  EXPECT_EQ(fields,
            "eventIn SFBool set_bind;eventOut SFBool isBound;exposedField SFFloat fieldOfView;"
            "exposedField SFBool jump;exposedField SFRotation orientation;"
            "exposedField SFVec3f position;field SFString description;eventOut SFTime bindTime;");
}

TEST(VrmlScene, FieldNamesMatchTheirAliasesOnExposedFieldsOnly) {
  VPFile* file = parseWorld("DEF T Transform { }\n"
                            "DEF S Script { eventIn SFBool set_on exposedField SFInt32 count 0 }\n");
  VPNode* transform = file->findNamedNode("T");
  VPNode* script = file->findNamedNode("S");
  struct {
    VPNode* node;
    const char* name;
    const char* found;  // NULL: no field of that name
  } cases[] = {
      {transform, "translation", "translation"},
      {transform, "set_translation", "translation"},
      {transform, "translation_changed", "translation"},
      {transform, "set_bboxCenter", nullptr},  // a field has no alias
      {transform, "addChildren", "addChildren"},
      {transform, "_changed", nullptr},
      {transform, "children_changed", "children"},
      {script, "url", "url"},
      {script, "set_url", "url"},
      {script, "set_on", "set_on"},
      {script, "on", nullptr},
      {script, "set_count", "count"},
      {script, "count_changed", "count"},
  };
  for (const auto& c : cases) {
    VPField* field = c.node->fieldByName(c.name);
    if (c.found == nullptr) {
      EXPECT_EQ(field, nullptr) << c.name;
    } else {
      ASSERT_NE(field, nullptr) << c.name;
      EXPECT_STREQ(field->name, c.found);
    }
  }
}

TEST(VrmlScene, EffectiveFieldFollowsIsToTheEnclosingDefault) {
  VPFile* file = parseWorld("PROTO P [ field SFFloat r 2 eventIn SFFloat grow ] {\n"
                            "DEF A Sphere { radius IS r }\n"
                            "DEF B Sphere { radius IS grow radius 3 }\n"
                            "DEF C Sphere { }\n"
                            "}\n");
  VPNode* proto = file->allProtos->node;
  VPNode* a = proto->body->node;
  VPNode* b = proto->body->next->node;
  VPNode* c = proto->body->next->next->node;
  VPField* radius = a->fieldByName("radius");
  EXPECT_EQ(a->findEffectiveField(radius), proto->fields);
  EXPECT_EQ(b->findEffectiveField(radius), b->fields->next);  // the IS to an event does not count
  EXPECT_EQ(c->findEffectiveField(radius)->value->floatValue, 1.0f);
}

TEST(VrmlScene, DefIsKnownInsideItsOwnNode) {
  VPFile* file = parseWorld("DEF A Transform { children [ USE A ] }\nUSE A\n");
  VPNode* node = file->topLevel->node;
  EXPECT_EQ(node->fields->value->node, node);
  EXPECT_EQ(node->other.refCount, 3);
  EXPECT_EQ(file->topLevel->next->node, node);
}

TEST(VrmlScene, RoutesAreTakenBetweenElementsAndFields) {
  VPFile* file = parseWorld("DEF T Transform { children [\n"
                            "DEF S TouchSensor { }\n"
                            "ROUTE S.isActive TO S.set_enabled\n"
                            "DEF L PointLight { ROUTE S.isOver TO L.on intensity 0.5 }\n"
                            "] }\n"
                            "DEF V Viewpoint { }\n"
                            "ROUTE S.isActive TO V.set_bind\n");
  VPNode* sensor = file->findNamedNode("S");
  EXPECT_EQ(file->topLevel->node->fields->value->next->next, nullptr);  // two children
  std::string routes;
  for (VPRouteList* cell = sensor->other.routesOut; cell; cell = cell->next) {
    routes += std::string(cell->route->destNode->name) + "." + cell->route->destField->name + ";";
  }
  EXPECT_EQ(routes, "V.set_bind;L.on;S.enabled;");  // newest first
  EXPECT_TRUE(sensor->findFieldByName("isActive")->flags & FIELD_ROUTE_SOURCE);
  EXPECT_FALSE(sensor->findFieldByName("enabled")->flags & FIELD_ROUTE_SOURCE);
  EXPECT_EQ(file->findNamedNode("V")->other.routesIn->route->sourceNode, sensor);
}

TEST(VrmlScene, ProtoInstancesAreListedNewestFirst) {
  VPFile* file = parseWorld("PROTO P [ ] { }\nDEF A P { }\nDEF B P { }\nPROTO Q [ ] { P { } }\n");
  VPNode* p = file->allProtos->next->node;
  ASSERT_STREQ(p->name, "P");
  EXPECT_STREQ(file->allProtos->node->name, "Q");
  EXPECT_EQ(p->instances->next->node, file->findNamedNode("B"));
  EXPECT_EQ(p->instances->next->next->node, file->findNamedNode("A"));
  EXPECT_EQ(p->instances->node, file->allProtos->node->body->node);
}

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

}  // namespace
