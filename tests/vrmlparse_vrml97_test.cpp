#include <gtest/gtest.h>

#include "main.h"
#include "test_util.h"

namespace {

std::string compressedAsVrml97(const std::string& body) {
  setRunOptions(1, 0);
  std::string written = compressedWorld(body);
  setRunOptions(0, 0);
  return written;
}

const char kHeader[] = "#VRML V2.0 utf8\n";

// Constructs that stop a run without --vrml97 or read otherwise; with it each
// runs (the golden cases vrml97-* of the same names).
struct Construct {
  const char* what;
  const char* world;
  const char* withoutOption;  ///< the start of the report that stops the run, or the output
};

const Construct kConstructs[] = {
    {"EXTERNPROTO fields without values hold unknown values",
     R"(EXTERNPROTO Lamp [ exposedField SFBool on eventIn SFBool toggle ] "lamp.wrl"
DEF L Lamp { }
DEF S Script { field SFNode lamp USE L eventOut SFBool lit
  url "javascript: function initialize() { lit = lamp.on; }" }
ROUTE S.lit TO L.toggle)",
     "Assertion failed \"*token == '=' || field->theClass == VPField::EVENT_IN"},
    {"a Script interface after its url",
     R"(DEF S Script { url "javascript: function initialize() { lit = true; }" eventOut SFBool lit }
DEF L PointLight { }
ROUTE S.lit TO L.on)",
     "Assertion failed \"*token == '}'\""},
    {"names with VRML97 characters",
     R"(DEF a+b Transform { }
DEF x%1 PositionInterpolator { }
DEF _@P Group { children USE a+b }
ROUTE x%1.value_changed TO a+b.translation
USE _@P)",
     "#VRML V2.0 utf8\n"},
    {"a DEF name defined again; the routed earlier node gets a name of its own",
     R"(DEF A Transform { translation 1 0 0 }
DEF P PositionInterpolator { }
ROUTE P.value_changed TO A.translation
DEF A Transform { translation 2 0 0 }
Group { children USE A })",
     "Error: Duplicate definition for node A (deleting)!"},
    {"a Script that holds itself",
     R"(DEF S Script { field SFNode self USE S url "javascript: function initialize() { var x = self; }" })",
     "Assertion failed \"node != NULL\""},
    {"a PROTO declared again",
     R"(PROTO P [ ] { Box { } }
P { }
PROTO P [ ] { Sphere { } }
P { })",
     "Error: Duplicate definition found for PROTO P (deleting)!"},
    {"a PROTO in a PROTO body hides the outer one there alone",
     R"(PROTO Inner [ ] { Box { } }
PROTO Outer [ ] {
  PROTO Inner [ ] { Sphere { } }
  Inner { }
}
Outer { }
Inner { })",
     "Assertion failed \"currentProto == NULL\""},
    {"a PROTO among the fields of a node stands before the node",
     R"(Transform { PROTO R [ ] { Box { } } children R { } })",
     "Assertion failed \"*token == '}'\""},
    {"a Viewpoint keeps its DEF for the url \"#name\" of an Anchor",
     R"(DEF Front Viewpoint { } Anchor { url "#Front" } DEF a+b Group { })",
     "#VRML V2.0 utf8\nViewpoint {\n}\nAnchor {\nurl \"#Front\"\n}\n"},
    {"a node as the default of a PROTO field",
     R"(PROTO Stand [ field MFNode base Switch { whichChoice 0 choice [ Box { } Sphere { } ] } ] {
  Group { children IS base }
}
Stand { }
Stand { })",
     "Assertion failed \"nodeType == OTHER || nodeType == SCRIPT\""},
};

TEST(Vrml97, EachConstructStopsOrReadsOtherwiseWithoutTheOption) {
  for (const Construct& c : kConstructs) {
    if (strncmp(c.withoutOption, kHeader, strlen(kHeader)) == 0) {
      EXPECT_EQ(compressedWorld(c.world), c.withoutOption) << c.what;
    } else {
      EXPECT_EXIT(compressedWorld(c.world), testing::ExitedWithCode(253),
                  literally(c.withoutOption))
          << c.what;
    }
  }
}

TEST(Vrml97, BackslashEscapesOnlyAQuoteAndABackslash) {
  const char* world = R"(Script { url "javascript: function initialize() { print('a\nb', \"c\\d\"); }" })";
  std::string body = "Script {\nurl \"javascript:\nfunction initialize() {\n";
  EXPECT_EQ(compressedWorld(world),
            kHeader + body + "print('anb',\\\"c\\\\d\\\");\n}\n\"\n}\n");
  EXPECT_EQ(compressedAsVrml97(world),
            std::string(kHeader) + "Script{\nurl\"javascript:\nfunction initialize() {\n"
                                   "print('a\\\\nb',\\\"c\\\\d\\\");\n}\n\"}");
}

TEST(Vrml97, RouteFromANestedInstanceToALaterBodyNodeCarriesItsEvents) {
  // SCR is copied after the copy of A1 was expanded: the route must still
  // leave from the TouchSensor inside A1, or touch and its function go.
  const char* world = R"(PROTO Arrow [ eventOut SFTime touchTime ] { TouchSensor { touchTime IS touchTime } }
PROTO Panel [ ] {
  DEF A1 Arrow { }
  DEF SCR Script { eventIn SFTime touch url "javascript: function touch(t) { print(t); }" }
  ROUTE A1.touchTime TO SCR.touch
}
Panel { })";
  EXPECT_EQ(compressedWorld(world).find("function touch"), std::string::npos);
  std::string written = compressedAsVrml97(world);
  EXPECT_NE(written.find("PROTO Arrow[\neventOut SFTime touchTime]"),
            std::string::npos)
      << written;
  EXPECT_NE(written.find("function touch(t) {\nprint(t);\n}"), std::string::npos) << written;
}

TEST(Vrml97, NumbersKeepTheirValues) {
  // Six digits change 0.1234567; the shortest text of its float does not.
  // A script's number is a double: the shortest text of the same double.
  const char* world = R"(Transform { translation 0.1234567 0.5 0 }
Script { url "javascript: function initialize() { print(3.14159265358979, 0x1F); }" })";
  const char* script = "Script {\nurl \"javascript:\nfunction initialize() {\n";
  EXPECT_EQ(compressedWorld(world), std::string(kHeader) +
                                        "Transform {\ntranslation 0.123457 0.5 0\n}\n" + script +
                                        "print(3.14159,31);\n}\n\"\n}\n");
  EXPECT_EQ(compressedAsVrml97(world),
            std::string(kHeader) + "Transform{\ntranslation .1234567.5 0}Script{\nurl\"javascript:\n"
                                   "function initialize() {\nprint(3.14159265358979,31);\n}\n\"}");
}

// A blank only where two tokens would read as one: between names, words and
// numbers, never at a quote, a bracket or a brace, nor before a number's sign
// or before a point behind a number that has one; a line break before each
// field, declaration and ROUTE; none at the end.
TEST(Vrml97, WriterSeparatesOnlyTokensThatWouldJoin) {
  const char* world = R"(EXTERNPROTO Lamp [ exposedField SFBool on ] [ "lamp.wrl" "urn:x" ]
PROTO Tile [ field SFColor tint 1 0 0 ] { Material { diffuseColor IS tint } }
DEF G Group { children [ DEF L Lamp { on FALSE } USE L USE L Shape { } ] }
WorldInfo { info [ "a" "b" ] title "t" }
Transform { translation -1 0.5 -0.25 scale 1.5 0.5 2 }
IndexedFaceSet { coordIndex [ 0 1 2 -1 ] }
PixelTexture { image 2 1 1 0x00 0xFF }
DEF T TouchSensor { }
ROUTE T.isActive TO L.set_on)";
  setRunOptions(1, 0);
  std::string written = rewrittenWorld(world);
  setRunOptions(0, 0);
  EXPECT_EQ(written, std::string(kHeader) +
                         "EXTERNPROTO Lamp[\n"
                         "exposedField SFBool on][\"lamp.wrl\"\"urn:x\"]PROTO Tile[\n"
                         "field SFColor tint 1 0 0]{Material{\n"
                         "diffuseColor IS tint}}DEF G Group{\n"
                         "children[DEF L Lamp{\n"
                         "on FALSE}USE L USE L Shape{}]}WorldInfo{\n"
                         "info[\"a\"\"b\"]\n"
                         "title\"t\"}Transform{\n"
                         "translation -1 .5-.25\n"
                         "scale 1.5.5 2}IndexedFaceSet{\n"
                         "coordIndex[0 1 2-1]}PixelTexture{\n"
                         "image 2 1 1 0x0 0xff}DEF T TouchSensor{}\n"
                         "ROUTE T.isActive TO L.on");
}

TEST(Vrml97, ExternprotoFieldWithoutValueIsNeverAConstant) {
  // Without a value the Switch may show anything: nothing is cut.
  const char* world = R"(EXTERNPROTO Chooser [ exposedField SFInt32 which ] "chooser.wrl"
DEF C Chooser { }
DEF SW Switch { choice [ Box { } Sphere { } ] }
ROUTE C.which TO SW.whichChoice
DEF S Script { field SFNode c USE C url "javascript: function initialize() { c.which = c.which; }" })";
  std::string written = compressedAsVrml97(world);
  EXPECT_NE(written.find("choice[Box{}Sphere{}]"), std::string::npos)
      << written;
}

}  // namespace
