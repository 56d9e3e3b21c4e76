// A context and objects of the tests' own for the script simulator: they stand
// for a Script node's fields, with values the test chooses, and note what the
// script reads and assigns.
#ifndef WORLDPARE_JSSIMULATE_TEST_UTIL_H
#define WORLDPARE_JSSIMULATE_TEST_UTIL_H

#include <map>
#include <set>
#include <string>
#include <vector>

#include "jssimulate.h"
#include "test_util.h"

/// What a test field holds: a number, several numbers, a truth value, a number
/// or truth value of unknown value, or anything at all.
struct FieldValue {
  enum Kind { NUMBERS, TRUTH, SOME_NUMBER, SOME_TRUTH, ANYTHING, NODE } kind;
  std::vector<float> numbers;
  int truth;
};

inline FieldValue number(float value) { return {FieldValue::NUMBERS, {value}, 0}; }
inline FieldValue numbers(std::vector<float> values) { return {FieldValue::NUMBERS, values, 0}; }
inline FieldValue truth(int value) { return {FieldValue::TRUTH, {}, value}; }
inline FieldValue someNumber() { return {FieldValue::SOME_NUMBER, {}, 0}; }
inline FieldValue someTruth() { return {FieldValue::SOME_TRUTH, {}, 0}; }
inline FieldValue anything() { return {FieldValue::ANYTHING, {}, 0}; }
/// An object: its value is itself, and its members are further fields.
inline FieldValue node() { return {FieldValue::NODE, {}, 0}; }

/// An atom of the value, made in the parser's atom memory as the scene would make it.
inline JSAtom* makeAtom(JSParser* parser, const FieldValue& value, JSObject* self = nullptr) {
  static const int types[] = {JSAtom::FLOAT,   JSAtom::BOOLEAN, JSAtom::FLOAT,
                              JSAtom::BOOLEAN, JSAtom::UNKNOWN, JSAtom::OBJECT};
  JSAtom* atom = parser->newAtom(types[value.kind]);
  auto push = [parser, atom](JSAtomValue cell) { parser->pushValue(atom, cell); };
  JSAtomValue cell = {};
  switch (value.kind) {
  case FieldValue::NUMBERS:
    for (float n : value.numbers) {
      cell.number = n;
      push(cell);
    }
    break;
  case FieldValue::TRUTH:
    cell.truth = value.truth;
    push(cell);
    break;
  case FieldValue::SOME_NUMBER:
  case FieldValue::SOME_TRUTH:
    atom->valueKnown = 0;
    break;
  case FieldValue::NODE:
    cell.object = self;
    push(cell);
    break;
  case FieldValue::ANYTHING:
    break;
  }
  return atom;
}

/// Text of an atom for the tests' records: "1", "1|2", "true", "number", ...
inline std::string describe(const JSAtom* atom) {
  if (atom == nullptr) return "none";
  static const char* const kinds[] = {"number", "truth", "string", "object",
                                      "function", "void", "unknown"};
  if (!atom->valueKnown || atom->values == nullptr) return kinds[atom->type];
  std::string text;
  for (const JSAtomValue* cell = atom->values; cell != nullptr; cell = cell->next) {
    if (!text.empty()) text += "|";
    char number[32];
    switch (atom->type) {
    case JSAtom::FLOAT:
      snprintf(number, sizeof number, "%g", cell->number);
      text += number;
      break;
    case JSAtom::BOOLEAN:
      text += cell->truth ? "true" : "false";
      break;
    default:
      text += kinds[atom->type];
    }
  }
  return text;
}

/// A field of the test's Script node.
class TestField final : public JSObject {
 public:
  TestField(JSParser* owner, FieldValue v) : parser(owner), value(v) {}

  JSAtom* getElement(JSAtom*) override { return parser->newAtom(JSAtom::UNKNOWN); }
  JSAtom* getMember(const char*) override { return nullptr; }
  int assign(JSAtom* v) override {
    if (changes != nullptr) ++*changes;
    return assigned.insert(describe(v)).second;
  }
  JSAtom* getValue() override {
    reads++;
    if (freshEachRead) {
      TestField* copy = new TestField(*this);
      copy->freshEachRead = false;
      copies.push_back(copy);
      return makeAtom(parser, value, copy);
    }
    return makeAtom(parser, value, this);
  }
  int isNeeded() override { return needed; }
  int isSameObject(JSObject* other) override {
    return other == twin || static_cast<TestField*>(other)->identity == identity;
  }

  JSParser* parser;
  FieldValue value;
  int needed = 1;
  int reads = 0;
  std::set<std::string> assigned;         ///< descriptions of what was assigned
  JSObject* twin = nullptr;   ///< another object that denotes the same thing
  /// Each read gives a new object that denotes this one, as reads of nodes do.
  bool freshEachRead = false;
  const void* identity = this;
  std::vector<TestField*> copies;
  long* changes = nullptr;  ///< the context's count of assignments
};

/// The Script node of a test: its fields by name; `new` gives UNKNOWN.
class TestContext final : public JSContext {
 public:
  explicit TestContext(JSParser* owner) : parser(owner) {}

  JSAtom* lookupName(const char* name) override {
    auto field = fields.find(name);
    if (field == fields.end()) return nullptr;
    return makeAtom(parser, node(), field->second);
  }
  JSAtom* callFunction(const char* name, JSAtomList* args) override {
    constructed.push_back(name);
    for (; args != nullptr; args = args->next) constructed.back() += " " + describe(args->atom);
    return parser->newAtom(JSAtom::UNKNOWN);
  }
  // Every assignment may change what a read gives; no call that made one is
  // repeated, so there are never events to send again.
  long worldVersion() override { return changes; }
  const void* eventsMark() override { return nullptr; }
  void resendEvents(const void*, const void*) override {}

  TestField* field(const std::string& name, FieldValue value) {
    fields[name] = new TestField(parser, value);
    fields[name]->changes = &changes;
    return fields[name];
  }

  JSParser* parser;
  long changes = 0;
  std::map<std::string, TestField*> fields;
  std::vector<std::string> constructed;
};

/// A script with its context: calls by name, then the rewriting and the text.
struct Simulation {
  explicit Simulation(const std::string& script)
      : program(parseProgram(script)), context(newContext(program)) {}

  // Contexts stay reachable to the end of the tests, as a scene's would.
  static TestContext& newContext(JSParser* program) {
    static std::vector<TestContext*>* const contexts = new std::vector<TestContext*>;
    contexts->push_back(new TestContext(program));
    return *contexts->back();
  }

  /// Simulates one call; the arguments are made as the scene makes them.
  int call(const char* name, std::vector<FieldValue> args = {}) {
    JSAtomList* list = nullptr;
    for (auto arg = args.rbegin(); arg != args.rend(); ++arg) {
      list = new JSAtomList{list, makeAtom(program, *arg)};
    }
    int found = program->simulateCall(name, &context, list);
    while (list != nullptr) {
      JSAtomList* next = list->next;
      delete list;
      list = next;
    }
    return found;
  }

  /// The script as the printer writes it after the rewriting.
  std::string pruned() {
    program->pruneScript(&context);
    JSParser* printed = program;
    return printedText([printed](FILE* stream) { printed->printFunctions(stream); });
  }

  JSParser* program;
  TestContext& context;
};

#endif
