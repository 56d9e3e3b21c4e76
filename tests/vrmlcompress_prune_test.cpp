#include <gtest/gtest.h>

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

}  // namespace
