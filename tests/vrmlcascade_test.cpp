#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>

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
  currentRun->reading.cascade.fuzzyChangeCount++;  // as a new record anywhere in the scene would
  script->receiveEvent(&event);
  EXPECT_EQ(eventRecordNames(script), "set");  // the stale record went, a new one came
  event.valueKnown = 1;
  event.values = new VPValue{};
  script->receiveEvent(&event);
  script->receiveEvent(&event);
  EXPECT_EQ(eventRecordNames(script), "set set set");
  event.freeValues();
}

// Under --vrml97 an eventIn's 257th event of known value since the latest new
// record runs the function as one of unknown value, and later ones run nothing
// new; node values stay known.
TEST(Events, Vrml97TakesEventsPast256OfKnownValueAsOneOfAnyValue) {
  struct Case {
    int vrml97;
    const char* eventIn;
    int records, knownRecords;
  } cases[] = {
      {0, "set", 300, 300},
      {1, "set", 257, 256},
      {1, "node", 300, 300},
  };
  for (const Case& c : cases) {
    setRunOptions(c.vrml97, 0);
    VPFile* file = scannedWorld(R"(
DEF X Script { eventIn SFInt32 set eventIn SFNode node url "javascript: function set(v) {} function node(v) {}" }
)");
    VPNode* script = file->findNamedNode("X");
    for (int k = 0; k < 300; k++) {
      VPFuzzyValue event(script->fieldByName(c.eventIn));
      event.values = new VPValue{};
      event.values->intValue = k;
      if (event.field->holdsNodes()) event.values->node = script;
      script->receiveEvent(&event);
      event.freeValues();
    }
    setRunOptions(0, 0);
    int records = 0, knownRecords = 0;
    for (VPEventRecord* record = script->other.script.eventRecords; record != nullptr; record = record->next) {
      records++;
      knownRecords += record->value->valueKnown;
    }
    EXPECT_EQ(records, c.records) << c.vrml97 << " " << c.eventIn;
    EXPECT_EQ(knownRecords, c.knownRecords) << c.vrml97 << " " << c.eventIn;
  }
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

// A value, as its floats, in a cell of the field's type.
VPValue* cellOf(int type, const std::vector<float>& value) {
  VPValue* cell = new VPValue{};
  if (type == VPField::SFInt32) {
    cell->intValue = int32_t(value[0]);
  } else if (type == VPField::SFFloat) {
    cell->floatValue = value[0];
  } else {
    cell->floats = newObjectArray<float>(value.size());
    std::copy(value.begin(), value.end(), cell->floats);
  }
  return cell;
}

// Long records find a value as a walk of every cell would: floats equal when
// neither is less, so -0 is 0 and a NaN equals any float in its place.
TEST(Records, LongRecordsFindEqualValuesAsAWalkWould) {
  VPFile* file = scannedWorld(R"(
DEF T Transform { }
DEF S Script { field SFFloat f 0 field SFInt32 i 0 url "javascript: function x() {}" }
)");
  const float nan = std::nanf("");
  std::vector<std::vector<float>> forty;
  for (int i = 0; i < 40; i++) forty.push_back({float(i), 0, 0});
  auto fortyThen = [&forty](std::vector<std::vector<float>> more) {
    std::vector<std::vector<float>> values = forty;
    values.insert(values.end(), more.begin(), more.end());
    return values;
  };
  const std::string fortyNew(40, '1');
  struct Case {
    VPNode* node;
    const char* field;
    std::vector<std::vector<float>> values;
    std::string changes;  // 1 where a merge adds a cell
    int cells;
  } cases[] = {
      {file->findNamedNode("S"), "i", fortyThen({{7}, {40}}), fortyNew + "01", 41},
      {file->findNamedNode("S"), "f", fortyThen({{-0.0f}, {nan}, {0.5f}}), fortyNew + "001", 41},
      {file->findNamedNode("S"), "f", {{nan}, {1}, {2}}, "100", 1},
      {file->findNamedNode("T"), "translation",
       fortyThen({{-0.0f, 0, 0}, {nan, 0, 0}, {nan, 1, 0}, {5, 1, 0}, {5, 2, 0}}), fortyNew + "00101",
       42},
  };
  for (const Case& c : cases) {
    VPField* field = c.node->fieldByName(c.field);
    VPFuzzyValue record(field);
    std::string changes;
    for (const std::vector<float>& value : c.values) {
      VPFuzzyValue event(field);
      event.values = cellOf(field->theType, value);
      changes += record.merge(&event, 0) ? '1' : '0';
      event.freeValues();
    }
    int cells = 0;
    for (const VPValue* cell = record.values; cell != nullptr; cell = cell->next) cells++;
    EXPECT_EQ(changes, c.changes) << c.field;
    EXPECT_EQ(cells, c.cells) << c.field;
    record.freeValues();
  }
}

// Under --vrml97 a record that would hold a 257th number may hold any value;
// a record of nodes holds every node.
TEST(Records, Vrml97TakesMoreThan256NumbersAsAnyValueButKeepsEveryNode) {
  std::string world = "DEF S Script { field SFInt32 i 0 field MFNode n [] url \"javascript: function x() {}\" }\n";
  for (int k = 0; k < 300; k++) world += "DEF N" + std::to_string(k) + " Transform { }\n";
  struct Case {
    int vrml97;
    const char* field;
    std::string changes;  // 1 where a merge changes the record
    int valueKnown, cells;
  } cases[] = {
      {0, "i", std::string(300, '1'), 1, 300},
      {1, "i", std::string(257, '1') + std::string(43, '0'), 0, 0},
      {1, "n", std::string(300, '1'), 1, 300},
  };
  for (const Case& c : cases) {
    setRunOptions(c.vrml97, 0);
    VPFile* file = scannedWorld(world);
    VPField* field = file->findNamedNode("S")->fieldByName(c.field);
    VPFuzzyValue record(field);
    std::string changes;
    for (int k = 0; k < 300; k++) {
      VPFuzzyValue event(field);
      event.values = new VPValue{};
      event.values->intValue = k;
      if (field->holdsNodes()) event.values->node = file->findNamedNode(("N" + std::to_string(k)).c_str());
      changes += record.merge(&event, 0) ? '1' : '0';
      event.freeValues();
    }
    setRunOptions(0, 0);
    int cells = 0;
    for (const VPValue* cell = record.values; cell != nullptr; cell = cell->next) cells++;
    EXPECT_EQ(changes, c.changes) << c.vrml97 << " " << c.field;
    EXPECT_EQ(record.valueKnown, c.valueKnown) << c.vrml97 << " " << c.field;
    EXPECT_EQ(cells, c.cells) << c.vrml97 << " " << c.field;
    record.freeValues();
  }
}

// The numbers that a record allows, in order.
std::vector<int> recordInts(VPNode* node, const char* fieldName) {
  VPFuzzyValue* record = node->findFuzzy(node->fieldByName(fieldName));
  std::vector<int> ints;
  if (record == nullptr) return ints;
  for (const VPValue* cell = record->values; cell != nullptr; cell = cell->next) ints.push_back(cell->intValue);
  std::sort(ints.begin(), ints.end());
  return ints;
}

// Forty eventOuts of one Script, each set once and routed to a Switch of its
// own: each has one record, from the zero of an event and its number, and each
// number reaches only its Switch, through long lists of records and routes.
TEST(Records, ManyFieldsOfOneNodeEachKeepTheirOwnRecord) {
  std::string sets, world = "DEF S Script {";
  for (int k = 0; k < 40; k++) {
    world += " eventOut SFInt32 o" + std::to_string(k);
    sets += "o" + std::to_string(k) + " = " + std::to_string(k) + "; ";
  }
  world += " url \"javascript: function initialize() { " + sets + "}\" }\n";
  for (int k = 0; k < 40; k++) {
    world += "DEF W" + std::to_string(k) + " Switch { }\nROUTE S.o" + std::to_string(k) + " TO W" +
             std::to_string(k) + ".whichChoice\n";
  }
  for (int vrml97 : {0, 1}) {
    setRunOptions(vrml97, 0);
    VPFile* file = cascadedWorld(world);
    setRunOptions(0, 0);
    VPNode* script = file->findNamedNode("S");
    int records = 0;
    for (VPFuzzyValue* record = script->other.values; record != nullptr; record = record->next) records++;
    EXPECT_EQ(records, 40) << vrml97;
    for (int k = 0; k < 40; k++) {
      std::string name = std::to_string(k);
      std::vector<int> sent = k == 0 ? std::vector<int>{0} : std::vector<int>{0, k};
      EXPECT_EQ(recordInts(script, ("o" + name).c_str()), sent) << k << " " << vrml97;
      EXPECT_EQ(recordInts(file->findNamedNode(("W" + name).c_str()), "whichChoice"),
                (std::vector<int>{-1, k}))
          << k << " " << vrml97;
    }
  }
}

}  // namespace
