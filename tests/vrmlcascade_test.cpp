#include <gtest/gtest.h>

#include "test_util.h"
#include "vrmlcascade.h"

namespace {

std::string eventRecordNames(VPNode* script) {
  std::string names;
  for (VPEventRecord* record = script->other.script.eventRecords; record != nullptr;
       record = record->next) {
    names += std::string(names.empty() ? "" : " ") + record->name;
  }
  return names;
}

TEST(Events, NewestRouteIsFollowedFirst) {
  VPFile* file = scannedWorld(R"(
DEF T Transform { }
DEF X Script { eventIn SFVec3f a eventIn SFVec3f b url "javascript: function a() {}" }
ROUTE T.translation TO X.a
ROUTE T.translation TO X.b
)");
  VPNode* source = file->findNamedNode("T");
  VPFuzzyValue event(source->fieldByName("translation"));
  event.valueKnown = 0;
  source->sendEvent(&event);
  VPNode* script = file->findNamedNode("X");
  EXPECT_EQ(eventRecordNames(script), "b a");  // b has no function and still has a record
  EXPECT_NE(script->findFieldByName("b")->flags & FIELD_ROUTED_IN, 0);
  EXPECT_NE(source->findFieldByName("translation")->flags & FIELD_ROUTED_OUT, 0);
}

TEST(Events, LastAssignmentIsDeliveredFirst) {
  VPFile* file = scannedWorld(R"(
DEF S Script { eventOut SFInt32 a eventOut SFInt32 b
  url "javascript: function initialize() { a = 1; b = 2; }" }
DEF X Script { eventIn SFInt32 ia eventIn SFInt32 ib url "javascript: function ia(v) {}" }
ROUTE S.a TO X.ia
ROUTE S.b TO X.ib
)");
  file->findNamedNode("S")->initializeNode();
  file->clearVisited();
  EXPECT_EQ(eventRecordNames(file->findNamedNode("X")), "ib ia");
}

TEST(Events, KnownValuesRunTheFunctionEachTimeUnknownOnce) {
  VPFile* file = scannedWorld(R"(
DEF X Script { eventIn SFInt32 set url "javascript: function set(v) {}" }
)");
  VPNode* script = file->findNamedNode("X");
  VPFuzzyValue event(script->fieldByName("set"));
  event.valueKnown = 0;
  script->receiveEvent(&event);
  script->receiveEvent(&event);
  EXPECT_EQ(eventRecordNames(script), "set");
  currentRun->cascade.fuzzyChangeCount++;  // as a new record anywhere in the scene would
  script->receiveEvent(&event);
  EXPECT_EQ(eventRecordNames(script), "set");  // the stale record went, a new one came
  event.valueKnown = 1;
  event.values = new VPValue{};
  script->receiveEvent(&event);
  script->receiveEvent(&event);
  EXPECT_EQ(eventRecordNames(script), "set set set");
  event.freeValues();
}

TEST(Events, ScriptCycleOfUnknownValuesEndsByItself) {
  std::string written = compressedWorld(R"(
DEF I ScalarInterpolator { }
DEF S1 Script { eventIn SFFloat take eventOut SFFloat give url "javascript: function take(v) { give = v; }" }
DEF S2 Script { eventIn SFFloat take eventOut SFFloat give url "javascript: function take(v) { give = v; }" }
ROUTE I.value_changed TO S1.take
ROUTE S1.give TO S2.take
ROUTE S2.give TO S1.take
)");
  EXPECT_NE(written.find("ROUTE S2.give TO S1.take"), std::string::npos) << written;
}

TEST(Events, EndlessCyclesStopWithTheLoopMessage) {
  const char* cycles[] = {
      // Two exposedFields of standard nodes pass any event on for ever.
      R"(DEF P PositionInterpolator { }
DEF A Transform { } DEF B Transform { }
ROUTE P.value_changed TO A.translation
ROUTE A.translation TO B.translation
ROUTE B.translation TO A.translation)",
      // Two scripts that send each other known values.
      R"(DEF I ScalarInterpolator { }
DEF S1 Script { eventIn SFFloat take eventOut SFFloat give url "javascript: function take(v) { give = 1; }" }
DEF S2 Script { eventIn SFFloat take eventOut SFFloat give url "javascript: function take(v) { give = 2; }" }
ROUTE I.value_changed TO S1.take
ROUTE S1.give TO S2.take
ROUTE S2.give TO S1.take)",
  };
  for (const char* world : cycles) {
    EXPECT_EXIT(onLargeStack([world] { cascadedWorld(world); }), testing::ExitedWithCode(253),
                "Error: Infinite or near infinite loop detected!\nStack dump:\n"
                "  Simulating events from ")
        << world;
  }
}

}  // namespace
