#include <gtest/gtest.h>

#include "test_util.h"

namespace {

TEST(VrmlValues, EveryFieldTypeIsReadAndWrittenBack) {
  EXPECT_EQ(rewrittenWorld("PROTO All [\n"
                           "field SFBool b FALSE\n"
                           "field SFColor c 1 0.5 0\n"
                           "field SFFloat f 7\n"
                           "field SFImage i 2 1 3 0xFF 255\n"
                           "field SFInt32 n -3\n"
                           "field SFNode node NULL\n"
                           "field SFRotation r 0 1 0 3.14159\n"
                           "field SFString s \"a\\\"b\"\n"
                           "field SFTime t 16777217\n"
                           "field SFVec2f v2 1 2\n"
                           "field SFVec3f v3 1 2 3\n"
                           "field MFColor mc [ 1 0 0, 0 1 0 ]\n"
                           "field MFFloat mf [ ]\n"
                           "field MFInt32 mi [ 1 2 ]\n"
                           "field MFNode mn [ NULL Group { } ]\n"
                           "field MFRotation mr 0 0 1 0\n"
                           "field MFString ms [ \"x\" ]\n"
                           "field MFTime mt [ 0.5 ]\n"
                           "field MFVec2f mv2 [ 1 1, 2 2 ]\n"
                           "field MFVec3f mv3 [ ]\n"
                           "] { }\n"),
            "#VRML V2.0 utf8\n"
            "PROTO All [\n"
            "field SFBool b FALSE\n"
            "field SFColor c 1 0.5 0\n"
            "field SFFloat f 7\n"
            "field SFImage i 2 1 3\n0xff 0xff\n"
            "field SFInt32 n -3\n"
            "field SFNode node NULL\n"
            "field SFRotation r 0 1 0 3.14159\n"
            "field SFString s \"a\\\"b\"\n"
            "field SFTime t 1.67772e+07\n"
            "field SFVec2f v2 1 2\n"
            "field SFVec3f v3 1 2 3\n"
            "field MFColor mc [\n1 0 0\n0 1 0\n]\n"
            "field MFFloat mf []\n"
            "field MFInt32 mi [\n1\n2\n]\n"
            "field MFNode mn [\nGroup {}\nGroup {\n}\n]\n"
            "field MFRotation mr 0 0 1 0\n"
            "field MFString ms \"x\"\n"
            "field MFTime mt 0.5\n"
            "field MFVec2f mv2 [\n1 1\n2 2\n]\n"
            "field MFVec3f mv3 []\n"
            "] {\n}\n");
}

TEST(VrmlValues, DefaultsAreLeftOutExactly) {
  EXPECT_EQ(rewrittenWorld("Transform { translation 0 0 0 scale 1 1 1.0000001 center 0 0 0 }\n"
                           "Group { children [] }\n"
                           "Shape { geometry NULL }\n"
                           "Material { diffuseColor 0.8 0.8 0.8 shininess 0.2 }\n"
                           "Extrusion { scale 1 1 crossSection [ 1 1, 1 -1, -1 -1, -1 1, 1 1 ] }\n"
                           "FontStyle { family \"SERIF\" justify [ \"BEGIN\" ] }\n"
                           "Script { url [] }\n"),
            "#VRML V2.0 utf8\n"
            "Transform {\nscale 1 1 1\n}\n"
            "Group {\nchildren []\n}\n"
            "Shape {\ngeometry NULL\n}\n"
            "Material {\n}\n"
            "Extrusion {\n}\n"
            "FontStyle {\n}\n"
            "Script {\n}\n");
}

TEST(VrmlValues, WrongTokenLeavesTheValueOut) {
  // A float is no SFInt32: the field has no value and the float ends the node.
  EXPECT_EXIT(parseWorld("Switch { whichChoice 1.5 }\n"), testing::ExitedWithCode(253),
              checkReport("*token == '}'"));
  // An integer is an SFBool nowhere.
  EXPECT_EXIT(parseWorld("Cone { side 0 }\n"), testing::ExitedWithCode(253),
              checkReport("*token == '}'"));
  EXPECT_EXIT(parseWorld("PixelTexture { image 2 2 1 1 2 3 }\n"), testing::ExitedWithCode(253),
              checkReport("tokType == TokInt"));
  EXPECT_EXIT(parseWorld("Coordinate { point [ 1 2 3 \"x\" ] }\n"), testing::ExitedWithCode(253),
              checkReport("*token == ']'"));
}

}  // namespace
