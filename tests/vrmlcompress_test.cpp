#include <gtest/gtest.h>

#include <cstring>

#include "test_util.h"

namespace {

// Reads two values of one type as the defaults of a PROTO's fields a and b.
bool valuesEqual(const char* type, const char* a, const char* b) {
  std::string world = std::string("PROTO P [ field ") + type + " a " + a + " field " + type +
                      " b " + b + " ] { }\n";
  VPFile* file = parseWorld(world);
  VPFieldList* first = file->allProtos->node->fields;
  VPFieldList* second = first->next;
  // The two cells are of different VPFields: compare under one declaration.
  VPFieldList copy = *second;
  copy.field = first->field;
  return fieldValuesEqual(first, &copy);
}

TEST(FieldValuesEqual, ComparesExactlyByType) {
  struct {
    const char* type;
    const char* a;
    const char* b;
    bool equal;
  } cases[] = {
      {"SFBool", "TRUE", "TRUE", true},
      {"SFBool", "TRUE", "FALSE", false},
      {"SFInt32", "0x10", "16", true},
      {"SFFloat", "0.1", "0.100000001", true},  // one float
      {"SFFloat", "1", "1.0000001", false},     // one bit apart
      {"SFFloat", "0", "-0", true},
      {"SFTime", "16777216", "16777217", true},
      {"SFVec2f", "1 2", "1 2.5", false},
      {"SFVec3f", "1 2 3", "1 2 3", true},
      {"SFColor", "1 0 0", "1 0 0.5", false},
      {"SFRotation", "0 0 1 0", "0 0 1 0", true},
      {"SFRotation", "0 0 1 0", "0 1 0 0", false},
      {"SFString", "\"a\"", "\"a\"", true},
      {"SFString", "\"a\"", "\"\\a\"", false},
      {"SFImage", "0 0 0", "0 0 0", true},
      {"SFImage", "0 0 1", "0 0 3", false},
      {"SFImage", "1 1 1 0xff", "1 1 1 255", true},
      {"SFImage", "1 1 1 1", "1 1 1 2", false},
      {"MFFloat", "[]", "[]", true},
      {"MFFloat", "[]", "0", false},
      {"MFFloat", "1", "[ 1 ]", true},
      {"MFFloat", "[ 1 2 ]", "[ 1 ]", false},
      {"MFString", "[ \"a\" \"b\" ]", "[ \"a\" \"b\" ]", true},
      {"MFVec3f", "[ 1 2 3, 4 5 6 ]", "[ 1 2 3, 4 5 7 ]", false},
  };
  for (const auto& c : cases) {
    EXPECT_EQ(valuesEqual(c.type, c.a, c.b), c.equal) << c.type << " " << c.a << " / " << c.b;
  }
}

TEST(FieldValuesEqual, NodeValuesAndMismatchedFieldsStop) {
  EXPECT_EXIT(valuesEqual("SFNode", "NULL", "NULL"), testing::ExitedWithCode(253),
              checkReport("0"));
  VPFile* file = parseWorld("PROTO P [ field SFFloat a 1 field SFInt32 b 1 ] { }\n");
  VPFieldList* a = file->allProtos->node->fields;
  EXPECT_EXIT(fieldValuesEqual(a, a->next), testing::ExitedWithCode(253),
              checkReport("field->theClass == other->field->theClass && "
                          "field->theType == other->field->theType"));
}

TEST(HoistProtoDefaults, ValuesAllInstancesAgreeOnMoveIntoTheInterface) {
  EXPECT_EQ(rewrittenWorld("PROTO Unused [ field SFFloat f 1 ] { }\n"
                           "PROTO Once [ field SFFloat f 1 field SFInt32 n 0 ] { }\n"
                           "Once { f 2 }\n"),
            "#VRML V2.0 utf8\n"
            "PROTO Unused [\nfield SFFloat f 1\n] {\n}\n"
            "PROTO Once [\nfield SFFloat f 2\nfield SFInt32 n 0\n] {\n}\n"
            "Once {\n}\n");
  // f differs between the instances, g agrees, and h agrees only with the default.
  EXPECT_EQ(rewrittenWorld("PROTO Two [ field SFFloat f 1 field SFFloat g 1 "
                           "exposedField SFFloat h 5 eventIn SFFloat e ] { }\n"
                           "Two { f 2 g 3 h 5 }\nTwo { f 4 g 3 }\n"),
            "#VRML V2.0 utf8\n"
            "PROTO Two [\nfield SFFloat f 1\nfield SFFloat g 3\nexposedField SFFloat h 5\n"
            "eventIn SFFloat e\n] {\n}\n"
            "Two {\nf 2\n}\nTwo {\nf 4\n}\n");
  EXPECT_EQ(rewrittenWorld("PROTO Mixed [ field SFFloat h 5 ] { }\n"
                           "Mixed { h 5 }\nMixed { h 6 }\nMixed { }\n"),
            "#VRML V2.0 utf8\n"
            "PROTO Mixed [\nfield SFFloat h 5\n] {\n}\n"
            "Mixed {\n}\nMixed {\nh 6\n}\nMixed {\n}\n");
}

TEST(HoistProtoDefaults, InstanceWithIsCountsWithTheOuterDefault) {
  // Outer is newer, so it hoists first: its r becomes 7, which the Inner in
  // its body then sees through IS, agreeing with the top-level Inner.
  EXPECT_EQ(rewrittenWorld("PROTO Inner [ field SFFloat r 1 ] { Sphere { radius IS r } }\n"
                           "PROTO Outer [ field SFFloat r 2 ] { Inner { r IS r } }\n"
                           "Outer { r 7 }\nInner { r 7 }\n"),
            "#VRML V2.0 utf8\n"
            "PROTO Inner [\nfield SFFloat r 7\n] {\nSphere {\nradius IS r\n}\n}\n"
            "PROTO Outer [\nfield SFFloat r 7\n] {\nInner {\nr IS r\n}\n}\n"
            "Outer {\n}\nInner {\n}\n");
}

TEST(HoistProtoDefaults, NodeFieldsAreNeverCompared) {
  EXPECT_EQ(rewrittenWorld("PROTO N [ field SFNode n NULL field MFNode m [] ] { }\n"
                           "N { n Group { } m [ Group { } ] }\n"),
            "#VRML V2.0 utf8\n"
            "PROTO N [\nfield SFNode n NULL\nfield MFNode m []\n] {\n}\n"
            "N {\nn Group {\n}\nm Group {\n}\n}\n");
}

}  // namespace
