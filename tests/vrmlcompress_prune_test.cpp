#include <gtest/gtest.h>

#include "test_util.h"

namespace {

TEST(ProtoInterfaces, ParameterThatAllInstancesAgreeOnIsFolded) {
  // x is 2 in every instance: the body takes 2 and x goes. spare is used by
  // nothing: it goes with the values that the instances give it.
  EXPECT_EQ(compressedWorld(R"(
PROTO P [ field SFFloat x 1 field SFInt32 spare 0 ] { Sphere { radius IS x } }
Shape { geometry P { x 2 spare 5 } }
Shape { geometry P { x 2 spare 6 } }
)"),
            "#VRML V2.0 utf8\n"
            "PROTO P [\n] {\nSphere {\nradius 2\n}\n}\n"
            "Shape {\ngeometry P {\n}\n}\n"
            "Shape {\ngeometry P {\n}\n}\n");
}

TEST(ProtoInterfaces, ParametersThatCanDifferStay) {
  // Instances that differ, a list, and a node are never folded.
  EXPECT_EQ(compressedWorld(R"(
PROTO P [ field SFFloat x 1 field MFFloat keys [ 0 1 ] field SFNode look NULL ] {
  Sphere { radius IS x }
  ScalarInterpolator { key IS keys }
  Shape { appearance IS look }
}
P { x 2 }
P { x 3 }
)"),
            "#VRML V2.0 utf8\n"
            "PROTO P [\nfield SFFloat x 1\nfield MFFloat keys [\n0\n1\n]\nfield SFNode look NULL\n] {\n"
            "Sphere {\nradius IS x\n}\n"
            "ScalarInterpolator {\nkey IS keys\n}\n"
            "Shape {\nappearance IS look\n}\n"
            "}\n"
            "P {\nx 2\n}\n"
            "P {\nx 3\n}\n");
}

TEST(ProtoInterfaces, ProtoWithoutInstanceKeepsOnlyFieldsTiedByIs) {
  // The eventIn goes at once with its IS; the exposedField stays by its IS.
  EXPECT_EQ(compressedWorld(R"(
PROTO E [ eventIn SFBool go exposedField SFFloat size 1 field SFInt32 unused 0 ] {
  Sphere { radius IS size }
  DEF T TouchSensor { enabled IS go }
}
)"),
            "#VRML V2.0 utf8\n"
            "PROTO E [\nexposedField SFFloat size 1\n] {\n"
            "Sphere {\nradius IS size\n}\n"
            "TouchSensor {\n}\n"
            "}\n");
}

TEST(ProtoInterfaces, FieldThatEventsLeaveKeepsItsIs) {
  // on can only hold TRUE, but events leave the body field through the route
  // out of the instance: it is no constant for the world outside.
  EXPECT_EQ(compressedWorld(R"(
PROTO R [ exposedField SFBool on TRUE ] { PointLight { on IS on } }
DEF I R { }
DEF M DirectionalLight { }
DEF S Script { eventOut SFBool lit url "javascript: function initialize() { lit = true; }" }
ROUTE S.lit TO I.on
ROUTE I.on TO M.on
)"),
            "#VRML V2.0 utf8\n"
            "PROTO R [\nexposedField SFBool on TRUE\n] {\nPointLight {\non IS on\n}\n}\n"
            "DEF I R {\n}\n"
            "DEF M DirectionalLight {\n}\n"
            "DEF S Script {\neventOut SFBool lit\n"
            "url \"javascript:\nfunction initialize() {\nlit=true;\n}\n\"\n}\n"
            "ROUTE I.on TO M.on\n"
            "ROUTE S.lit TO I.on\n");
}

TEST(ProtoInterfaces, InstanceThatGetsTheEventDecidesForTheBody) {
  // Only A receives 2; the body's Switch may show -1 or 2, so children 0 and 1 go.
  EXPECT_EQ(compressedWorld(R"(
PROTO P [ eventIn SFInt32 choose ] {
  Switch { set_whichChoice IS choose choice [ Shape { } Group { } Transform { } ] }
}
DEF A P { }
P { }
Script { field SFNode a USE A url "javascript: function initialize() { a.choose = 2; }" }
)"),
            "#VRML V2.0 utf8\n"
            "PROTO P [\neventIn SFInt32 choose\n] {\n"
            "Switch {\nset_whichChoice IS choose\nchoice [\nGroup {}\nGroup {}\nTransform {\n}\n]\n}\n"
            "}\n"
            "DEF A P {\n}\n"
            "P {\n}\n"
            "Script {\nfield SFNode a USE A\n"
            "url \"javascript:\nfunction initialize() {\na.choose=2;\n}\n\"\n}\n");
}

TEST(Switches, ChildrenThatCanNeverBeChosenBecomeHoles) {
  // S3 may hold 0 or 2: its child 1 goes here and, no longer named by a USE,
  // is written in full, without its DEF, where the USE stood.
  EXPECT_EQ(compressedWorld(R"(
DEF S1 Switch { whichChoice 1 choice [ Shape { } Group { } Transform { } ] }
Switch { whichChoice -1 choice [ Shape { } Group { } ] }
DEF S3 Switch { whichChoice 0 choice [ Shape { } DEF K Group { } Transform { } ] }
Transform { children USE K }
Script { field SFNode s USE S3 url "javascript: function initialize() { s.whichChoice = 2; }" }
)"),
            "#VRML V2.0 utf8\n"
            "Switch {\nwhichChoice 1\nchoice [\nGroup {}\nGroup {\n}\nGroup {}\n]\n}\n"
            "Switch {\nchoice [\nGroup {}\nGroup {}\n]\n}\n"
            "DEF S3 Switch {\nwhichChoice 0\nchoice [\nShape {\n}\nGroup {}\nTransform {\n}\n]\n}\n"
            "Transform {\nchildren Group {\n}\n}\n"
            "Script {\nfield SFNode s USE S3\n"
            "url \"javascript:\nfunction initialize() {\ns.whichChoice=2;\n}\n\"\n}\n");
}

TEST(Switches, ChoiceSetByUnknownValuesKeepsEveryChild) {
  EXPECT_EQ(compressedWorld(R"(
DEF SW Switch { choice [ Shape { } Group { } ] }
DEF I ScalarInterpolator { }
DEF S Script { eventIn SFFloat pick eventOut SFInt32 which url "javascript: function pick(v) { which = v; }" }
ROUTE I.value_changed TO S.pick
ROUTE S.which TO SW.whichChoice
)"),
            "#VRML V2.0 utf8\n"
            "DEF SW Switch {\nchoice [\nShape {\n}\nGroup {\n}\n]\n}\n"
            "DEF I ScalarInterpolator {\n}\n"
            "DEF S Script {\neventIn SFFloat pick\neventOut SFInt32 which\n"
            "url \"javascript:\nfunction pick(v) {\nwhich=v;\n}\n\"\n}\n"
            "ROUTE I.value_changed TO S.pick\n"
            "ROUTE S.which TO SW.whichChoice\n");
}

TEST(Switches, CuttingAScriptOrAnActiveNodeStops) {
  EXPECT_EXIT(compressedWorld(R"(
Switch { choice Script { url "javascript: function f() {}" } }
)"),
              testing::ExitedWithCode(253), checkReport("nodeType == OTHER"));
  EXPECT_EXIT(compressedWorld(R"(
Switch { choice DEF T Transform { translation 1 2 3 } }
DEF P PositionInterpolator { }
DEF M Transform { }
ROUTE P.value_changed TO T.translation
ROUTE T.translation TO M.translation
)"),
              testing::ExitedWithCode(253),
              checkReport("(fields->flags & (FIELD_READ | FIELD_WRITE | FIELD_ROUTED_OUT)) == 0"));
}

TEST(DefNames, OnlyNamesThatAUseOrARouteNeedsStay) {
  // DIM lost its only route with the dead field out; ONE is used once more.
  EXPECT_EQ(compressedWorld(R"(
DEF A Shape { }
DEF ONE Shape { }
Group { children USE ONE }
DEF DIM PointLight { }
DEF S Script { eventOut SFFloat out url "javascript: function f() { out = 1; }" }
ROUTE S.out TO DIM.intensity
)"),
            "#VRML V2.0 utf8\n"
            "Shape {\n}\n"
            "DEF ONE Shape {\n}\n"
            "Group {\nchildren USE ONE\n}\n"
            "PointLight {\n}\n"
            "Script {\nurl \"javascript:\n\"\n}\n");
}

}  // namespace
