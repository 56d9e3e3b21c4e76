#include <gtest/gtest.h>

#include "main.h"
#include "test_util.h"

namespace {

// The world through the passes of a run with --vrml97 and --digits when
// `digits` is not 0, written.
std::string paredAsVrml97(const std::string& body, int digits) {
  setRunOptions(1, digits);
  std::string written = compressedWorld(body);
  setRunOptions(0, 0);
  return written;
}

struct SightCase {
  const char* what;
  const char* world;
  const char* exact;    ///< a value written as read
  const char* rounded;  ///< a value written with three digits, or NULL
};

const char kReader[] = R"(DEF S Script { eventIn SFVec3f set field SFNode held NULL
  url "javascript: function set(v) { print(v, held); }" })";

const SightCase kSightCases[] = {
    {"a node that routes to a Script, and one that does not",
     R"(DEF A PositionInterpolator { key [ 0 1 ] keyValue [ 1.23456 0 0, 0 0 0 ] }
PositionInterpolator { key [ 0 1 ] keyValue [ 2.34567 0 0, 0 0 0 ] }
ROUTE A.value_changed TO S.set)",
     "keyValue[1.23456 0 0 0 0 0]", "keyValue[2.35 0 0 0 0 0]"},
    {"a node two routes away from a Script",
     R"(DEF T TimeSensor { cycleInterval 1.23456 }
DEF A PositionInterpolator { key [ 0 1 ] keyValue [ 0 0 0, 0 0 0 ] }
ROUTE T.fraction_changed TO A.set_fraction
ROUTE A.value_changed TO S.set)",
     "cycleInterval 1.23456", nullptr},
    {"a node that a Script holds, and a node below it",
     R"(DEF H Transform { translation 1.23456 0 0 children Transform { scale 2.34567 1 1 } }
Transform { translation 3.45678 0 0 }
Script { field SFNode h USE H url "javascript: function initialize() { print(h); }" })",
     "translation 1.23456 0 0\nchildren Transform{\nscale 2.34567 1 1}", "translation 3.46 0 0"},
    {"a node that routes to a Script does not hand over its children",
     R"(DEF P PositionInterpolator { key [ 0 1 ] keyValue [ 0 0 0, 1 1 1 ] }
DEF A Transform { translation 1.23456 0 0 children Transform { scale 2.34567 1 1 } }
ROUTE P.value_changed TO A.set_translation
ROUTE A.translation_changed TO S.set)",
     "translation 1.23456 0 0", "scale 2.35 1 1"},
    {"a node that sends events computes them from its values: they stay",
     R"(DEF P PositionInterpolator { key [ 0 1 ] keyValue [ 1.23456 0 0, 0 0 0 ] }
DEF T Transform { translation 2.34567 0 0 }
ROUTE P.value_changed TO T.set_translation)",
     "keyValue[1.23456 0 0 0 0 0]", "translation 2.35 0 0"},
    {"a node that a Script sets is not seen by it",
     R"(DEF T Transform { translation 1.23456 0 0 }
DEF W Script { eventOut SFVec3f out url "javascript: function initialize() { out = new SFVec3f(1, 2, 3); }" }
ROUTE W.out TO T.set_translation)",
     "new SFVec3f(1,2,3)", "translation 1.23 0 0"},
    {"a body node that routes to a Script of the body; the instance's cells stay",
     R"(PROTO P [ field SFFloat f 1.23456 ] {
  DEF A ScalarInterpolator { key [ 0 1 ] keyValue [ 2.34567 0 ] }
  Transform { scale 3.45678 1 1 }
  DEF R Script { eventIn SFFloat set field SFFloat f IS f url "javascript: function set(v) { print(v + f); }" }
  ROUTE A.value_changed TO R.set
}
P { f 4.56789 }
P { f 5.67891 })",
     "keyValue[2.34567 0]", "scale 3.46 1 1"},
    {"the instance values of a PROTO stay",
     R"(PROTO M [ field SFVec3f at 0 0 0 ] { Transform { translation IS at } }
M { at 1.23456 0 0 }
M { at 2.34567 0 0 })",
     "M{\nat 1.23456 0 0}M{\nat 2.34567 0 0}", nullptr},
    {"an EXTERNPROTO's body may hold a Script: what it holds stays",
     R"(EXTERNPROTO E [ field SFNode n ] "e.wrl"
E { n Transform { translation 1.23456 0 0 } })",
     "translation 1.23456 0 0", nullptr},
};

TEST(Digits, WhatAScriptCanSeeStaysExact) {
  for (const SightCase& c : kSightCases) {
    std::string written = paredAsVrml97(std::string(kReader) + "\n" + c.world, 3);
    EXPECT_NE(written.find(c.exact), std::string::npos) << c.what << "\n" << written;
    if (c.rounded != nullptr) {
      EXPECT_NE(written.find(c.rounded), std::string::npos) << c.what << "\n" << written;
    }
  }
}


// Two copies that something can tell from one node stay two.
TEST(Sharing, CopiesThatCanBeToldApartStay) {
  const struct {
    const char* reason;
    const char* world;
  } cases[] = {
      {"a ROUTE reaches a node of one",
       R"(DEF C ColorInterpolator { key [ 0 1 ] keyValue [ 1 0 0, 0 1 0 ] }
Transform { children Shape { appearance Appearance { material DEF M Material { } } } }
Transform { children Shape { appearance Appearance { material Material { } } } }
ROUTE C.value_changed TO M.set_diffuseColor)"},
      {"an IS link reaches them",
       R"(PROTO P [ field SFColor c 1 0 0 ] {
  Group { children [
    Shape { appearance Appearance { material Material { diffuseColor IS c } } }
    Shape { appearance Appearance { material Material { diffuseColor IS c } } } ] }
}
P { c 0 1 0 }
P { c 0 0 1 })"},
      {"a Script holds one, and may set it",
       R"(DEF T Transform { translation 1 2 3 }
Transform { translation 1 2 3 }
Script { directOutput TRUE field SFNode t USE T
  url "javascript: function initialize() { t.translation = new SFVec3f(1, 2, 3); }" })"},
      {"they hold a sensor", "Transform { children TouchSensor { } }\nTransform { children TouchSensor { } }"},
      {"they hold a Script",
       "Transform { children Script { } }\nTransform { children Script { } }"},
      {"they hold a bindable node",
       "Transform { children Viewpoint { } }\nTransform { children Viewpoint { } }"},
      {"they hold a TimeSensor",
       "Transform { children TimeSensor { } }\nTransform { children TimeSensor { } }"},
      {"they hold an AudioClip",
       "Sound { source AudioClip { url \"a.wav\" } }\nSound { source AudioClip { url \"a.wav\" } }"},
      {"they hold a MovieTexture",
       R"(Shape { appearance Appearance { texture MovieTexture { url "m.mpg" } } }
Shape { appearance Appearance { texture MovieTexture { url "m.mpg" } } })"},
      {"they hold an Inline",
       "Transform { children Inline { url \"i.wrl\" } }\nTransform { children Inline { url \"i.wrl\" } }"},
      {"they hold a PROTO instance",
       "PROTO Q [ ] { Group { } }\nTransform { children Q { } }\nTransform { children Q { } }"},
  };
  for (const auto& c : cases) {
    // A copy written as USE of the other: a new name, and a USE more.
    std::string written = paredAsVrml97(c.world, 0);
    auto uses = [](const std::string& text) {
      size_t count = 0;
      for (size_t at = text.find("USE "); at != std::string::npos; at = text.find("USE ", at + 1)) count++;
      return count;
    };
    EXPECT_EQ(uses(written), uses(c.world)) << c.reason << "\n" << written;
    EXPECT_EQ(written.find("DEF A "), std::string::npos) << c.reason << "\n" << written;
  }
}


// A run on the output of a run writes it again, byte for byte: what one run
// folds, rounds and shares, a second finds done.
TEST(FixedPoint, ARunOnTheOutputWritesItAgain) {
  const struct {
    const char* what;
    const char* world;
    int digits;
    const char* written;  ///< a part of the first output
  } cases[] = {
      {"a field's value folds with the script's numbers",
       R"(DEF S Script { field SFFloat half 0.5 field SFInt32 big 16777217 eventOut SFFloat x eventOut SFInt32 n
  url "javascript: function initialize() { x = half * 2; n = big + 1; }" }
DEF T Transform { } DEF C Switch { }
ROUTE S.x TO T.set_scale ROUTE S.n TO C.set_whichChoice)",
       0, "x=1;\nn=16777218;"},
      {"shared nodes and their names",
       R"(DEF B Group { } Transform { children USE B }
Shape { appearance Appearance { material Material { } } }
Shape { appearance Appearance { material Material { } } geometry Box { } })",
       0, "appearance DEF A Appearance{"},
      {"rounded floats, and one that rounds to its default",
       R"(Transform { translation 0.123456789 -0 3000000000 scale 1.0000001 1 1 })", 6,
       "translation .123457-0 3e9}"},
  };
  for (const auto& c : cases) {
    std::string first = paredAsVrml97(c.world, c.digits);
    EXPECT_NE(first.find(c.written), std::string::npos) << c.what << "\n" << first;
    std::string body = first.substr(first.find('\n') + 1);
    EXPECT_EQ(paredAsVrml97(body, c.digits), first) << c.what;
  }
}

}  // namespace
