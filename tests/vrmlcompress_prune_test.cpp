#include <gtest/gtest.h>

#include <string>

#include "test_util.h"

namespace {

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

// The routes of the eventOuts that nothing sets go with them, also from the
// long route lists of a Script with many (and of a node that many feed); the
// routes that stay keep their order.
TEST(Removal, RoutesOfDeadFieldsLeaveLongListsInOrder) {
  std::string world = "DEF Y Transform { }\nDEF S Script {";
  std::string sets, expected;
  for (int k = 0; k < 40; k++) world += " eventOut SFVec3f o" + std::to_string(k);
  for (int k = 0; k < 40; k += 3) sets += "o" + std::to_string(k) + " = new SFVec3f(1, 0, 0); ";
  world += " url \"javascript: function initialize() { " + sets + "}\" }\n";
  for (int k = 0; k < 40; k++) {
    std::string x = "X" + std::to_string(k), o = "S.o" + std::to_string(k);
    world += "DEF " + x + " Transform { }\n";
    world += "ROUTE " + o + " TO " + x + ".set_translation\nROUTE " + o + " TO Y.set_translation\n";
    if (k % 3 == 0) expected += "ROUTE " + o + " TO " + x + ".translation\nROUTE " + o + " TO Y.translation\n";
  }
  for (int vrml97 : {0, 1}) {
    setRunOptions(vrml97, 0);
    std::string written = compressedWorld(world);
    setRunOptions(0, 0);
    size_t routes = written.find("ROUTE ");
    ASSERT_NE(routes, std::string::npos) << written;
    // --vrml97 breaks a line only before the next item.
    EXPECT_EQ(written.substr(routes), vrml97 ? expected.substr(0, expected.size() - 1) : expected);
  }
}

// A parameter that every instance gives one value becomes that value at each
// IS to it, in a short body and in one whose IS links fill long lists.
TEST(Removal, AConstantParameterLeavesEveryIsOfItsLinks) {
  for (int count : {2, 40}) {
    std::string body, expected;
    for (int i = 0; i < count; i++) {
      body += " Transform { translation IS t }";
      expected += "Transform {\ntranslation 1 2 3\n}\n";
    }
    EXPECT_EQ(compressedWorld("PROTO Q [ exposedField SFVec3f t 0 0 0 ] { Group { children [" + body +
                              " ] } }\nQ { t 1 2 3 }\n"),
              "#VRML V2.0 utf8\nPROTO Q [\n] {\nGroup {\nchildren [\n" + expected + "]\n}\n}\nQ {\n}\n")
        << count;
  }
}

}  // namespace

// The dead fields of an interface go from it, from every instance and from
// the IS of the body, few or many; under --vrml97 a dead field of an instance
// in another body takes its IS along, which leaves that PROTO's field dead.
TEST(Removal, DeadInterfaceFieldsLeaveInstancesAndBody) {
  for (int count : {3, 40}) {
    std::string interface, body, first, second, liveInterface, liveBody, liveFirst, liveSecond;
    for (int i = 0; i < count; i++) {
      std::string f = "f" + std::to_string(i), one = std::to_string(i + 1), two = std::to_string(i + 2);
      interface += (i % 3 == 0 ? " exposedField SFFloat " : " field SFFloat ") + f + " 0";
      first += " " + f + " " + one;
      second += " " + f + " " + two;
      if (i % 3 != 0) continue;
      body += " DirectionalLight { intensity IS " + f + " }";
      liveInterface += "exposedField SFFloat " + f + " 0\n";
      liveBody += "DirectionalLight {\nintensity IS " + f + "\n}\n";
      liveFirst += f + " " + one + "\n";
      liveSecond += f + " " + two + "\n";
    }
    std::string world = "PROTO Q [" + interface + " eventIn SFFloat go ] { Group { children [" + body +
                        " ] } ScalarInterpolator { set_fraction IS go } }\nQ {" + first + " }\nQ {" +
                        second + " }\n";
    // A list of one node is written without brackets.
    if (count > 3) liveBody = "[\n" + liveBody + "]\n";
    EXPECT_EQ(compressedWorld(world), "#VRML V2.0 utf8\nPROTO Q [\n" + liveInterface +
                                          "] {\nGroup {\nchildren " + liveBody +
                                          "}\nScalarInterpolator {\n}\n}\nQ {\n" + liveFirst +
                                          "}\nQ {\n" + liveSecond + "}\n")
        << count;
    setRunOptions(1, 0);
    std::string written = compressedWorld(world + "PROTO R [ field SFFloat h 0 ] { Q { f1 IS h } }\nR { h 5 }\n");
    setRunOptions(0, 0);
    EXPECT_NE(written.find("PROTO R[]{Q{}}R{}"), std::string::npos) << written;
    EXPECT_EQ(written.find("f1 "), std::string::npos) << written;
    EXPECT_EQ(written.find("go"), std::string::npos) << written;
  }
}
