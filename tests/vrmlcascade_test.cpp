#include <gtest/gtest.h>

#include <algorithm>

#include "test_util.h"
#include "vrmlcascade.h"

namespace {

std::string cellText(const VPField* field, const VPValue* cell) {
  switch (field->theType) {
  case VPField::SFBool:
    return cell->intValue ? "TRUE" : "FALSE";
  case VPField::SFInt32:
    return std::to_string(cell->intValue);
  case VPField::SFNode:
  case VPField::MFNode:
    return cell->node == nullptr ? "NULL" : nameOrNull(cell->node->name);
  default:
    return "?";
  }
}

// A record as sorted cell texts, "unknown", or "none" when the node has no record.
std::string recordText(VPNode* node, const char* fieldName) {
  VPFuzzyValue* record = node->findFuzzy(node->fieldByName(fieldName));
  if (record == nullptr) return "none";
  if (!record->valueKnown) return "unknown";
  std::vector<std::string> cells;
  for (VPValue* cell = record->values; cell != nullptr; cell = cell->next) {
    cells.push_back(cellText(record->field, cell));
  }
  std::sort(cells.begin(), cells.end());
  std::string text;
  for (const std::string& cell : cells) text += (text.empty() ? "" : " ") + cell;
  return text;
}

std::string eventRecordNames(VPNode* script) {
  std::string names;
  for (VPEventRecord* record = script->other.script.eventRecords; record != nullptr;
       record = record->next) {
    names += std::string(names.empty() ? "" : " ") + record->name;
  }
  return names;
}

VPFile* scannedWorld(const std::string& body) {
  VPFile* file = parseWorld(body);
  file->scanNodes();
  return file;
}

TEST(FuzzyValues, RecordsClimbByTypeFromTheFileValue) {
  VPFile* file = cascadedWorld(R"(
DEF OFF DirectionalLight { on FALSE }
DEF ON DirectionalLight { }
DEF SW Switch { whichChoice 0 choice [ ] }
DEF T Transform { }
DEF G Group { children DEF A Group { } }
DEF H Group { children [ DEF B Group { } DEF C Group { } ] }
DEF SH Shape { } DEF AP Appearance { }
Script {
  field SFNode off USE OFF field SFNode on USE ON field SFNode sw USE SW
  field SFNode t USE T field SFNode g USE G field SFNode h USE H field SFNode sh USE SH field SFNode ap USE AP
  url "javascript: function initialize() {
    off.on = TRUE; on.on = TRUE; on.on = true;
    sw.whichChoice = 0; sw.whichChoice = 5; sw.whichChoice = 5.9;
    t.translation = new SFVec3f(0, 0, 0); t.scale = t.scale;
    g.children = h.children; sh.appearance = ap;
  }"
}
)");
  struct {
    const char* node;
    const char* field;
    const char* record;
  } cases[] = {
      {"OFF", "on", "unknown"},         // FALSE, then TRUE: a second value
      {"ON", "on", "TRUE"},             // TRUE stays one value
      {"SW", "whichChoice", "0 5"},     // 5.9 truncates to 5
      {"T", "translation", "unknown"},  // a vector record is unknown at once
      {"T", "scale", "unknown"},        // even for the value it holds
      {"G", "children", "A B C"},       // the union of all nodes
      {"SH", "appearance", "AP NULL"},  // the NULL it started from stays
      {"H", "children", "none"},        // read, never written
  };
  for (const auto& c : cases) {
    EXPECT_EQ(recordText(file->findNamedNode(c.node), c.field), c.record) << c.node;
  }
}

TEST(FuzzyValues, EventIntoAnInstanceStoresInEveryBodyCopy) {
  VPFile* file = cascadedWorld(R"(
PROTO P [ eventIn SFInt32 choose ] {
  DEF A Switch { set_whichChoice IS choose }
  DEF B Switch { set_whichChoice IS choose }
}
DEF I P { }
DEF J P { }
Script { field SFNode i USE I url "javascript: function initialize() { i.choose = 3; }" }
)");
  VPNode* instance = file->findNamedNode("I");
  EXPECT_EQ(instance->other.values, nullptr);
  VPNode* other = file->findNamedNode("J");
  VPNode* bodyA = file->allProtos->node->body->node;
  VPNode* bodyB = file->allProtos->node->body->next->node;
  EXPECT_EQ(recordText(bodyA->findShadow(instance), "whichChoice"), "-1 3");
  EXPECT_EQ(recordText(bodyB->findShadow(instance), "whichChoice"), "-1 3");
  EXPECT_EQ(recordText(bodyA->findShadow(other), "whichChoice"), "none");
  // The body node holds the union over both instances.
  EXPECT_EQ(recordText(bodyA, "whichChoice"), "-1 3");
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
    EXPECT_EXIT(cascadedWorld(world), testing::ExitedWithCode(253),
                "Error: Infinite or near infinite loop detected!\nStack dump:\n"
                "  Simulating events from ")
        << world;
  }
}

TEST(Cascade, DeadScriptFieldsGoWithTheirRoutes) {
  // debug is a constant FALSE: the branch that read it and wrote out goes,
  // and with it debug, out and the route from out.
  EXPECT_EQ(compressedWorld(R"(
DEF TS TouchSensor { }
DEF L PointLight { }
DEF S Script {
  eventIn SFTime touch
  field SFBool debug FALSE
  eventOut SFFloat out
  eventOut SFBool lit
  url "javascript: function touch(t) { lit = true; if (debug) out = 1; }"
}
ROUTE TS.touchTime TO S.touch
ROUTE S.out TO L.intensity
ROUTE S.lit TO L.on
)"),
            "#VRML V2.0 utf8\n"
            "DEF TS TouchSensor {\n}\n"
            "DEF L PointLight {\n}\n"
            "DEF S Script {\n"
            "eventIn SFTime touch\n"
            "eventOut SFBool lit\n"
            "url \"javascript:\nfunction touch(t) {\nlit=true;\n}\n\"\n"
            "}\n"
            "ROUTE TS.touchTime TO S.touch\n"
            "ROUTE S.lit TO L.on\n");
}

TEST(Cascade, ScriptsOfAProtoWithoutInstanceLoseEverything) {
  EXPECT_EQ(compressedWorld(R"(
PROTO P [ ] {
  Script { eventIn SFBool go field SFInt32 n 0 url "javascript: function go(v) { n = 1; }" }
}
)"),
            "#VRML V2.0 utf8\n"
            "PROTO P [\n] {\n"
            "Script {\n"
            "url \"javascript:\n\"\n"
            "}\n"
            "}\n");
}

}  // namespace
