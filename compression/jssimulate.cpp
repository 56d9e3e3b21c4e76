// Script simulation: values, calls, the walk of expressions and statements,
// and the rewriting of a script by the marks that the walk left.
#include "jssimulate.h"

#include <cctype>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <new>
#include <string_view>
#include <unordered_set>
#include <vector>

#include "main.h"

namespace {

// The truth of a valueKnown flag, as the checks state it.
constexpr int TRUE = 1;

// Nested simulated calls are bounded, so that no script exhausts the stack.
constexpr int kMaxCallDepth = 1000;

// --vrml97: the work of one entry is bounded, so that code whose paths
// multiply (calls at many places of a recursion, loops in loops) ends in
// time and memory: past the bound the Script is taken to do anything it can.
// The bound grows with the code, so that long code is walked whole; no script
// of a real world comes within a hundredth of it.
constexpr long kLeastEntryWork = 100000;
constexpr long kEntryWorkPerByte = 8;

bool numbersEqual(double a, double b) { return !(a < b) && !(b < a); }

// The value of a number in the script: as written under --vrml97, where the
// script computes in double precision; else a 32-bit float.
double constantValue(const JSExpression* expr) {
  const char* literal = vrml97Option() ? expr->literal : nullptr;
  if (literal == nullptr) return expr->type == JSExpression::INT ? float(expr->intValue) : expr->floatValue;
  double value;
  readLiteral(literal, &value);
  return value;
}

int countValues(const JSAtom* atom) {
  int count = 0;
  for (const JSAtomValue* value = atom->values; value != nullptr; value = value->next) count++;
  return count;
}

bool isKnown(const JSAtom* atom, int type) { return atom->type == type && atom->valueKnown; }

bool isKnownTruth(const JSAtom* atom, int truth) {
  return isKnown(atom, JSAtom::BOOLEAN) && atom->values->truth == truth;
}

// Same number of cells, and each cell of a has a match in b.
template <class Match>
bool cellsCorrespond(const JSAtom* a, const JSAtom* b, Match match) {
  if (countValues(a) != countValues(b)) return false;
  for (const JSAtomValue* x = a->values; x != nullptr; x = x->next) {
    bool found = false;
    for (const JSAtomValue* y = b->values; y != nullptr && !found; y = y->next) found = match(x, y);
    if (!found) return false;
  }
  return true;
}

bool sameCellContent(int type, const JSAtomValue* a, const JSAtomValue* b) {
  switch (type) {
  case JSAtom::FLOAT:
    return numbersEqual(a->number, b->number);
  case JSAtom::BOOLEAN:
    return a->truth == b->truth;
  case JSAtom::OBJECT:
    return a->object == b->object;
  default:
    CHECK(0);
    return false;
  }
}

}  // namespace

/* ---------------------------------------------------------------------------
 * Values: merge, equality and the operators of the domain
 * ------------------------------------------------------------------------ */

JSAtom* JSParser::newAtom(int type) {
  return new (atomMemory.allocate(sizeof(JSAtom))) JSAtom{type, 1, nullptr};
}

JSAtomValue* JSParser::newAtomValue(JSAtomValue value) {
  return new (atomMemory.allocate(sizeof(JSAtomValue))) JSAtomValue(value);
}

void JSParser::pushValue(JSAtom* atom, JSAtomValue value) {
  JSAtomValue* cell = newAtomValue(value);
  cell->next = atom->values;
  atom->values = cell;
}

JSAtom* JSParser::unknownOf(int type) {
  JSAtom* atom = newAtom(type);
  atom->valueKnown = 0;
  return atom;
}

JSAtom* JSParser::singleAtom(int type, JSAtomValue value) {
  JSAtom* atom = newAtom(type);
  pushValue(atom, value);
  return atom;
}

JSAtom* JSParser::knownFloat(double number) {
  JSAtomValue value = {};
  value.number = number;
  return singleAtom(JSAtom::FLOAT, value);
}

JSAtom* JSParser::knownBoolean(int truth) {
  JSAtomValue value = {};
  value.truth = truth ? 1 : 0;
  return singleAtom(JSAtom::BOOLEAN, value);
}

JSAtom* JSParser::objectAtom(JSObject* object) {
  JSAtomValue value = {};
  value.object = object;
  return singleAtom(JSAtom::OBJECT, value);
}

// Releases every atom of the entry with its cells.
void JSParser::releaseAtoms() { atomMemory.release(); }

// The join of two atoms. Only objects grow by merging: two different numbers
// or truth values leave only their kind.
JSAtom* JSParser::mergeAtoms(JSAtom* atom1, JSAtom* atom2) {
  if (atom1 == nullptr) return atom2;
  if (atom2 == nullptr) return atom1;
  if (atom1->type == JSAtom::UNKNOWN) {
    CHECK(atom2->type != JSAtom::OBJECT);
    return atom1;
  }
  if (atom2->type == JSAtom::UNKNOWN) {
    CHECK(atom1->type != JSAtom::OBJECT);
    return atom2;
  }
  CHECK(atom1->type == atom2->type);
  if (atom1->type == JSAtom::VOID || !atom1->valueKnown) return atom1;
  if (!atom2->valueKnown) return atom2;
  switch (atom1->type) {
  case JSAtom::BOOLEAN:
    CHECK(atom1->values != NULL && atom1->values->next == NULL);
    CHECK(atom2->values != NULL && atom2->values->next == NULL);
    return atom1->values->truth == atom2->values->truth ? atom1 : unknownOf(JSAtom::BOOLEAN);
  case JSAtom::FLOAT:
    if (countValues(atom1) == 1 && countValues(atom2) == 1 &&
        numbersEqual(atom1->values->number, atom2->values->number)) {
      return atom1;
    }
    return unknownOf(JSAtom::FLOAT);
  case JSAtom::OBJECT:
    return mergeObjects(atom1, atom2);
  default:
    CHECK(0);
    return nullptr;
  }
}

// The objects of both, those of atom2 that atom1 has already left out; each
// cell goes to the head, so the order of each list is reversed.
JSAtom* JSParser::mergeObjects(JSAtom* atom1, JSAtom* atom2) {
  JSAtom* merged = newAtom(JSAtom::OBJECT);
  for (const JSAtomValue* value = atom1->values; value != nullptr; value = value->next) {
    pushValue(merged, *value);
  }
  for (const JSAtomValue* value = atom2->values; value != nullptr; value = value->next) {
    bool present = false;
    for (const JSAtomValue* old = atom1->values; old != nullptr && !present; old = old->next) {
      present = old->object == value->object || old->object->isSameObject(value->object);
    }
    if (!present) pushValue(merged, *value);
  }
  return merged;
}

bool JSParser::atomsEqual(const JSAtom* a, const JSAtom* b) {
  if (a == b) return true;
  if (a->type != b->type) return false;
  if (a->type == JSAtom::UNKNOWN) return true;
  if (a->valueKnown != b->valueKnown) return false;
  if (!a->valueKnown) return true;
  return cellsCorrespond(a, b, [a](const JSAtomValue* x, const JSAtomValue* y) {
    return sameCellContent(a->type, x, y);
  });
}

// Both atoms are known and neither is UNKNOWN: the caller has made sure.
JSAtom* JSParser::equalOperator(JSAtom* left, JSAtom* right) {
  CHECK(left->type == right->type);
  if (countValues(left) > 1 || countValues(right) > 1) return unknownOf(JSAtom::BOOLEAN);
  switch (left->type) {
  case JSAtom::FLOAT:
    return knownBoolean(numbersEqual(left->values->number, right->values->number));
  case JSAtom::BOOLEAN:
    return knownBoolean(left->values->truth == right->values->truth);
  default:
    CHECK(0);
    return nullptr;
  }
}

// Known only when every pair of possible numbers agrees.
JSAtom* JSParser::greaterOperator(JSAtom* left, JSAtom* right) {
  if (!isKnown(left, JSAtom::FLOAT) || !isKnown(right, JSAtom::FLOAT)) {
    return unknownOf(JSAtom::BOOLEAN);
  }
  CHECK(left->values != NULL && right->values != NULL);
  bool maybeTrue = false, maybeFalse = false;
  for (const JSAtomValue* x = left->values; x != nullptr; x = x->next) {
    for (const JSAtomValue* y = right->values; y != nullptr; y = y->next) {
      if (x->number > y->number) {
        maybeTrue = true;
      } else {
        maybeFalse = true;
      }
    }
  }
  CHECK(maybeTrue || maybeFalse);
  return maybeTrue && maybeFalse ? unknownOf(JSAtom::BOOLEAN) : knownBoolean(maybeTrue);
}

JSAtom* JSParser::notOperator(JSAtom* src) {
  // --vrml97: the negation of any other value is a truth value as well.
  if (src->type == JSAtom::UNKNOWN || (vrml97Option() && src->type != JSAtom::BOOLEAN)) {
    return unknownOf(JSAtom::BOOLEAN);
  }
  if (src->type != JSAtom::BOOLEAN) CHECK(0);
  if (!src->valueKnown) return src;
  CHECK(src->values != NULL && src->values->next == NULL);
  return knownBoolean(!src->values->truth);
}

JSAtom* JSParser::negateOperator(JSAtom* src) {
  if (src->type == JSAtom::UNKNOWN) return unknownOf(JSAtom::FLOAT);
  CHECK(src->type == JSAtom::FLOAT);
  if (!src->valueKnown) return src;
  JSAtom* negated = newAtom(JSAtom::FLOAT);
  for (const JSAtomValue* value = src->values; value != nullptr; value = value->next) {
    JSAtomValue cell = {};
    cell.number = -value->number;
    pushValue(negated, cell);
  }
  return negated;
}

// False wins over unknown, and true gives way to it: `&&` decides on false,
// `||` on true.
JSAtom* JSParser::logicalOperator(JSAtom* left, JSAtom* right, int decidingTruth) {
  if (left->type == JSAtom::UNKNOWN) left = unknownOf(JSAtom::BOOLEAN);
  if (right->type == JSAtom::UNKNOWN) right = unknownOf(JSAtom::BOOLEAN);
  CHECK(left->type == JSAtom::BOOLEAN && right->type == JSAtom::BOOLEAN);
  if (isKnownTruth(left, decidingTruth)) return left;
  if (isKnownTruth(right, decidingTruth)) return right;
  return !left->valueKnown || right->valueKnown ? left : right;
}

JSAtom* JSParser::andOperator(JSAtom* left, JSAtom* right) {
  return logicalOperator(left, right, 0);
}

JSAtom* JSParser::orOperator(JSAtom* left, JSAtom* right) {
  return logicalOperator(left, right, 1);
}

/* ---------------------------------------------------------------------------
 * Calls and variables: one table of variables per call, no globals
 * ------------------------------------------------------------------------ */

JSAtom* JSVarObject::getElement(JSAtom*) {
  if (value == nullptr) return parser->newAtom(JSAtom::UNKNOWN);
  if (value->type != JSAtom::UNKNOWN) CHECK(0);
  return value;
}

// A member of each object the variable may hold, merged; NULL when none has it.
JSAtom* JSVarObject::getMember(const char* name) {
  if (value == nullptr) return parser->newAtom(JSAtom::UNKNOWN);
  if (value->type == JSAtom::OBJECT) {
    JSAtom* answer = nullptr;
    for (const JSAtomValue* cell = value->values; cell != nullptr; cell = cell->next) {
      answer = parser->mergeAtoms(answer, cell->object->getMember(name));
    }
    if (answer != nullptr) CHECK(answer->valueKnown);
    return answer;
  }
  CHECK(value->type == JSAtom::UNKNOWN);
  return value;
}

// Adds the value: never overwrites. The first assignment stores the atom itself.
int JSVarObject::assign(JSAtom* v) {
  JSAtom* merged = parser->mergeAtoms(value, v);
  if (value != nullptr && JSParser::atomsEqual(merged, value)) return 0;
  value = merged;
  return 1;
}

// A variable read before any assignment is UNKNOWN for good.
JSAtom* JSVarObject::getValue() {
  if (value == nullptr) value = parser->newAtom(JSAtom::UNKNOWN);
  return value;
}

int JSVarObject::isNeeded() { return 1; }

int JSVarObject::isSameObject(JSObject*) {
  CHECK(0);
  return 0;
}

JSVarObject* JSParser::newVariable() {
  JSVarObject* variable = new JSVarObject(this);
  varGarbageList = new JSVarList{varGarbageList, variable};
  return variable;
}

void JSParser::releaseVariables() {
  while (varGarbageList != nullptr) {
    JSVarList* cell = varGarbageList;
    varGarbageList = cell->next;
    delete cell->variable;
    delete cell;
  }
  delete variables;
  variables = nullptr;
}

void JSParser::abandonEntry() {
  for (JSFunction* fn = functions; fn != nullptr; fn = fn->next) {
    while (JSStackEntry* entry = fn->stack) {
      fn->stack = entry->next;
      delete entry;
    }
  }
  if (variables != nullptr) releaseVariables();
  releaseAtoms();
  ourContext = nullptr;
  varGarbageList = nullptr;
  changeCount = 0;
  callDepth = 0;
  prunedFunction = nullptr;
  finishedCalls = nullptr;
  functions = nullptr;
  functionsChanged = true;
  opaque = 1;
}

// Scope: variables of the call, then functions of the script, then the
// context; a name that nothing knows becomes a variable of the call.
JSAtom* JSParser::resolveName(const char* name) {
  if (StringTable::Entry* entry = variables->findString(name)) {
    return static_cast<JSAtom*>(entry->data);
  }
  if (StringTable::Entry* entry = functionTable->findString(name)) {
    JSAtomValue value = {};
    value.function = static_cast<JSFunction*>(entry->data);
    return singleAtom(JSAtom::FUNCTION, value);
  }
  if (JSAtom* atom = ourContext->lookupName(name)) return atom;
  JSAtom* reference = objectAtom(newVariable());
  variables->addString(name, reference);
  return reference;
}

// Scripts of more functions than this find them by an index.
constexpr int kIndexedFunctions = 8;

JSFunction* JSParser::firstFunction(const char* name) {
  int walked = 0;
  for (JSFunction* fn = functions; fn != nullptr; fn = fn->next) {
    if (strcmp(fn->name, name) == 0) return fn;
    if (++walked == kIndexedFunctions) return firstIndexedFunction(name);
  }
  return nullptr;
}

// The index lives in the reading's state, which frees it; the parser's own
// records go with the reading's heap.
JSFunction* JSParser::firstIndexedFunction(const char* name) {
  auto& firstFunctions = currentRun->reading.firstFunctions[this];
  if (functionsChanged) {
    firstFunctions.clear();
    for (JSFunction* fn = functions; fn != nullptr; fn = fn->next) firstFunctions.emplace(fn->name, fn);
    functionsChanged = false;
  }
  JSFunction** found = firstFunctions.find(name);
  return found != nullptr ? *found : nullptr;
}

void JSParser::countEntryWork() {
  if (vrml97Option()) CHECK(++entryWork < kLeastEntryWork + kEntryWorkPerByte * textSize);
}

int JSParser::simulateCall(const char* name, JSContext* context, JSAtomList* args) {
  CHECK(ourContext == NULL);
  ourContext = context;
  entryWork = 0;
  JSFunction* fn = firstFunction(name);
  if (fn != nullptr) {
    CHECK(fn->stack == NULL);
    CHECK(variables == NULL);
    CHECK(varGarbageList == NULL);
    CHECK(changeCount == 0);
    pushContext("Calling function %s", name);
    simulateFunction(fn, args);
    popContext();
  }
  releaseAtoms();
  ourContext = nullptr;
  return fn != nullptr;
}

// Each parameter becomes a variable holding its argument; missing arguments
// leave their parameters to be fresh names (under --vrml97 see declareLocalNames).
void JSParser::bindParameters(JSFunction* fn, JSAtomList* args) {
  JSParam* param = fn->params;
  for (; param != nullptr && args != nullptr; param = param->next, args = args->next) {
    JSVarObject* variable = newVariable();
    variable->assign(args->atom);
    variables->addString(param->name, objectAtom(variable));
  }
  if (param != nullptr) reportAlert("Too few arguments passed to function %s", fn->name);
}

// A call that repeats the arguments of one already running gives UNKNOWN: the
// height of the domain ends every recursion.
JSAtom* JSParser::simulateFunction(JSFunction* fn, JSAtomList* args) {
  fn->called = 1;
  countEntryWork();
  int count = 0;
  for (JSParam* param = fn->params; param != nullptr; param = param->next) count++;
  for (JSStackEntry* entry = fn->stack; entry != nullptr; entry = entry->next) {
    if (argumentsMatch(count, entry->args, args)) return newAtom(JSAtom::UNKNOWN);
  }
  CHECK(callDepth < kMaxCallDepth);
  callDepth++;
  JSFunction* savedFunction = runningFunction;
  runningFunction = fn;
  JSFinishedCalls calls;
  JSFinishedCalls* savedCalls = finishedCalls;
  finishedCalls = &calls;
  StringTable* savedVariables = variables;
  JSVarList* savedVarGarbageList = varGarbageList;
  int savedChangeCount = changeCount;
  varGarbageList = nullptr;
  changeCount = 0;
  fn->stack = new JSStackEntry{fn->stack, args};
  variables = new StringTable(kFirstBucketCount, nullptr);
  bindParameters(fn, args);
  if (vrml97Option()) declareLocalNames(fn);
  int stop = 0;
  JSAtom* result = simulateStatements(fn->body, &stop);
  releaseVariables();
  JSStackEntry* entry = fn->stack;
  fn->stack = entry->next;
  delete entry;
  variables = savedVariables;
  varGarbageList = savedVarGarbageList;
  changeCount = savedChangeCount;
  runningFunction = savedFunction;
  finishedCalls = savedCalls;
  callDepth--;
  return result != nullptr ? result : newAtom(JSAtom::VOID);
}

namespace {

// Objects match when they denote the same thing, as each read of a node makes
// a new object for it.
bool argumentAtomsMatch(const JSAtom* a, const JSAtom* b) {
  if (a->type != JSAtom::OBJECT || b->type != JSAtom::OBJECT) return JSParser::atomsEqual(a, b);
  return cellsCorrespond(a, b, [](const JSAtomValue* x, const JSAtomValue* y) {
    return x->object == y->object || x->object->isSameObject(y->object);
  });
}

}  // namespace

int argumentsMatch(int count, JSAtomList* list1, JSAtomList* list2) {
  for (int i = 0; i < count; i++, list1 = list1->next, list2 = list2->next) {
    CHECK(list1 != NULL && list2 != NULL);
    if (!argumentAtomsMatch(list1->atom, list2->atom)) return 0;
  }
  return 1;
}

/* ---------------------------------------------------------------------------
 * Expressions: each gives an atom, a reference (an OBJECT atom of places) or
 * a value, and marks the nodes it reaches
 * ------------------------------------------------------------------------ */

JSAtom* JSParser::simulateValue(JSExpression* expr) {
  JSAtom* answer = simulateExpression(expr);
  if (answer == nullptr || answer->type != JSAtom::OBJECT) return answer;
  CHECK(answer->valueKnown);
  CHECK(answer->values != NULL);
  JSAtom* value = nullptr;
  for (const JSAtomValue* cell = answer->values; cell != nullptr; cell = cell->next) {
    value = mergeAtoms(value, cell->object->getValue());
  }
  return value;
}

// A value for every argument; one that yields none counts as UNKNOWN.
JSAtomList* JSParser::simulateArguments(JSArg* argList) {
  JSAtomList* head = nullptr;
  JSAtomList** last = &head;
  for (JSArg* arg = argList; arg != nullptr; arg = arg->next) {
    JSAtom* atom = simulateValue(arg->expr);
    *last = new JSAtomList{nullptr, atom != nullptr ? atom : newAtom(JSAtom::UNKNOWN)};
    last = &(*last)->next;
  }
  return head;
}

namespace {

void releaseList(JSAtomList* list) {
  while (list != nullptr) {
    JSAtomList* next = list->next;
    delete list;
    list = next;
  }
}

}  // namespace

JSAtom* JSParser::simulateExpression(JSExpression* expr) {
  expr->simulated = 1;
  switch (expr->type) {
  case JSExpression::OBJECT:
    return resolveName(expr->object.name);
  case JSExpression::UNARY:
    return simulateUnary(expr);
  case JSExpression::BINARY:
    return simulateBinary(expr);
  case JSExpression::CONDITIONAL:
    return simulateConditional(expr);
  case JSExpression::POSTFIX:
    return simulatePostfix(expr);
  case JSExpression::PAREN:
    return simulateExpression(expr->paren.expr);
  case JSExpression::INDEX:
    return simulateIndex(expr);
  case JSExpression::CALL:
    return simulateCallExpression(expr);
  case JSExpression::NEW:
    return simulateNew(expr);
  case JSExpression::FLOAT:
  case JSExpression::INT:
    return knownFloat(constantValue(expr));
  case JSExpression::BOOLEAN:
    return knownBoolean(expr->boolValue);
  case JSExpression::STRING:
    return newAtom(JSAtom::UNKNOWN);
  case JSExpression::VAR:
    for (JSArg* arg = expr->var.argList; arg != nullptr; arg = arg->next) {
      simulateExpression(arg->expr);
    }
    return nullptr;
  default:
    CHECK(0);
    return nullptr;
  }
}

// An operand that yields no atom is taken for UNKNOWN.
JSAtom* JSParser::atomOrUnknown(JSAtom* atom) {
  return atom != nullptr ? atom : newAtom(JSAtom::UNKNOWN);
}

// Only `!`, `-` and `void` are simulated: prefix `+`, `~`, `++`, `--`,
// `typeof` and `delete` stop the run.
JSAtom* JSParser::simulateUnary(JSExpression* expr) {
  const char* op = expr->unary.token;
  if (op[0] == '!') return notOperator(atomOrUnknown(simulateValue(expr->unary.expr)));
  if (op[0] == '-') {
    if (op[1] != 0) CHECK(0);
    return negateOperator(atomOrUnknown(simulateValue(expr->unary.expr)));
  }
  if (strcmp(op, "void") != 0) CHECK(0);
  simulateValue(expr->unary.expr);
  return nullptr;
}

JSAtom* JSParser::simulateBinary(JSExpression* expr) {
  switch (expr->binary.tokType) {
  case TokAssign:
    return simulateAssign(expr);
  case TokLogicalOr:
    return simulateLogical(expr, 1);
  case TokLogicalAnd:
    return simulateLogical(expr, 0);
  case TokEquality:
  case TokRelation:
    return simulateRelation(expr);
  case TokPunctuation:
    if (expr->binary.token[0] == '.') return simulateMember(expr);
    simulateValue(expr->binary.expr1);
    return simulateValue(expr->binary.expr2);
  default:  // bit, shift and arithmetic operators: no arithmetic, only the kind
    simulateValue(expr->binary.expr1);
    simulateValue(expr->binary.expr2);
    return unknownOf(JSAtom::FLOAT);
  }
}

// The right operand is walked only when the left one does not decide.
JSAtom* JSParser::simulateLogical(JSExpression* expr, int decidingTruth) {
  JSAtom* left = atomOrUnknown(simulateValue(expr->binary.expr1));
  if (isKnownTruth(left, decidingTruth)) return left;
  JSAtom* right = atomOrUnknown(simulateValue(expr->binary.expr2));
  return decidingTruth ? orOperator(left, right) : andOperator(left, right);
}

JSAtom* JSParser::simulateRelation(JSExpression* expr) {
  JSAtom* a = atomOrUnknown(simulateValue(expr->binary.expr1));
  JSAtom* b = atomOrUnknown(simulateValue(expr->binary.expr2));
  if (a->type == JSAtom::UNKNOWN || b->type == JSAtom::UNKNOWN || !a->valueKnown ||
      !b->valueKnown) {
    return unknownOf(JSAtom::BOOLEAN);
  }
  const char* op = expr->binary.token;
  bool orEqual = op[1] == '=';
  switch (op[0]) {
  case '=':
    return equalOperator(a, b);
  case '!':
    return notOperator(equalOperator(a, b));
  case '>':
    return orEqual ? notOperator(greaterOperator(b, a)) : greaterOperator(a, b);
  default:  // '<'
    return orEqual ? notOperator(greaterOperator(a, b)) : greaterOperator(b, a);
  }
}

// The member of the first object of the left side; NULL when it has none.
JSAtom* JSParser::simulateMember(JSExpression* expr) {
  JSAtom* left = atomOrUnknown(simulateExpression(expr->binary.expr1));
  CHECK(expr->binary.expr2->type == JSExpression::OBJECT);
  if (left->type == JSAtom::UNKNOWN) return left;
  CHECK(left->type == JSAtom::OBJECT && left->valueKnown && left->values != NULL);
  return left->values->object->getMember(expr->binary.expr2->object.name);
}

// Left before right; what is assigned through something unknown is lost, and a
// compound assignment stores only UNKNOWN and has no value.
JSAtom* JSParser::simulateAssign(JSExpression* expr) {
  JSAtom* left = simulateExpression(expr->binary.expr1);
  JSAtom* v = simulateValue(expr->binary.expr2);
  bool plain = strcmp(expr->binary.token, "=") == 0;
  JSAtom* result = plain ? v : nullptr;
  if (vrml97Option() && v != nullptr && v->type == JSAtom::OBJECT) {
    requireFollowedStore(expr->binary.expr1, left);
  }
  if (left == nullptr || left->type == JSAtom::UNKNOWN) {
    if (vrml97Option()) assignComponentOwner(expr->binary.expr1);
    return result;
  }
  CHECK(left->type == JSAtom::OBJECT && left->valueKnown && left->values != NULL &&
        left->values->next == NULL);
  if (v == nullptr) return result;
  if (left->values->object->assign(plain ? v : newAtom(JSAtom::UNKNOWN))) changeCount++;
  return result;
}

namespace {

template <class Declare>
void forEachDeclaredName(const JSExpression* expr, Declare declare) {
  if (expr == nullptr || expr->type != JSExpression::VAR) return;
  for (const JSArg* arg = expr->var.argList; arg != nullptr; arg = arg->next) {
    const JSExpression* declared = arg->expr;
    if (declared->type == JSExpression::BINARY) declared = declared->binary.expr1;
    if (declared->type == JSExpression::OBJECT) declare(declared->object.name);
  }
}

// The names that `var` declares in the statements, nested ones too.
template <class Declare>
void forEachDeclaredName(const JSStatement* stmt, Declare declare) {
  for (; stmt != nullptr; stmt = stmt->next) {
    switch (stmt->type) {
    case JSStatement::FOR:
      forEachDeclaredName(stmt->forStmt.init, declare);
      forEachDeclaredName(stmt->forStmt.body, declare);
      break;
    case JSStatement::IF:
      forEachDeclaredName(stmt->ifStmt.stmt1, declare);
      forEachDeclaredName(stmt->ifStmt.stmt2, declare);
      break;
    case JSStatement::WHILE:
      forEachDeclaredName(stmt->whileStmt.body, declare);
      break;
    case JSStatement::SWITCH:
      forEachDeclaredName(stmt->switchStmt.body, declare);
      break;
    case JSStatement::BLOCK:
      forEachDeclaredName(stmt->stmts, declare);
      break;
    case JSStatement::EXPRESSION:
      forEachDeclaredName(stmt->expr, declare);
      break;
    default:
      break;
    }
  }
}

}  // namespace

// --vrml97: a call's parameters and var names are its own from its start,
// those without an argument too, and wherever the var stands, even in code
// that never runs, as ECMAScript hoists them: such a name reaches no field or
// function of the Script. Those not bound yet become fresh variables. Outside
// the functions a var name is global; one that is also a name of the
// Script's interface or the browser's is not followed.
// The var names are found once: the cuts keep each declared.
void JSParser::declareLocalNames(JSFunction* fn) {
  if (!fn->varNamesFound) {
    JSParam** last = &fn->varNames;
    forEachDeclaredName(fn->body, [&last](char* name) {
      *last = newRecord<JSParam>();
      (*last)->name = name;
      last = &(*last)->next;
    });
    fn->varNamesFound = 1;
  }
  bool global = strcmp(fn->name, kLoadFunctionName) == 0;
  auto declare = [this, global](const char* name) {
    if (global) CHECK(ourContext->lookupName(name) == NULL);
    if (variables->findString(name) == nullptr) variables->addString(name, objectAtom(newVariable()));
  };
  for (JSParam* param = fn->params; param != nullptr; param = param->next) declare(param->name);
  for (JSParam* name = fn->varNames; name != nullptr; name = name->next) declare(name->name);
}

// A name that lives no longer than a call of the running function: one of its
// parameters or var names. The statements outside the functions have none.
bool JSParser::isLocalName(const char* name) {
  JSFunction* fn = runningFunction;
  if (fn == nullptr || strcmp(fn->name, kLoadFunctionName) == 0) return false;
  if (fn->locals == nullptr) {
    fn->locals = new StringTable(kFirstBucketCount, nullptr);
    for (JSParam* param = fn->params; param != nullptr; param = param->next) {
      fn->locals->addString(param->name, nullptr);
    }
    forEachDeclaredName(fn->body, [fn](const char* local) { fn->locals->addString(local, nullptr); });
  }
  return fn->locals->findString(name) != nullptr;
}

// --vrml97: `v[0] = x` and `v.x = x` change the whole of v, which may be a
// field whose change is an event: v takes an unknown value.
void JSParser::assignComponentOwner(JSExpression* target) {
  bool isComponent = target->type == JSExpression::INDEX ||
                     (target->type == JSExpression::BINARY && *target->binary.token == '.');
  if (!isComponent) return;
  JSAtom* owner = simulateExpression(target->binary.expr1);
  if (owner == nullptr || owner->type != JSAtom::OBJECT) return;
  for (JSAtomValue* cell = owner->values; cell != nullptr; cell = cell->next) {
    if (cell->object->assign(newAtom(JSAtom::UNKNOWN))) changeCount++;
  }
}

// --vrml97: an object stored where the simulation loses it (an element of an
// unknown value, a global that outlives the call) would let an unknown value
// stand for a node of the world; such code is not followed (opaque).
void JSParser::requireFollowedStore(JSExpression* target, JSAtom* left) {
  bool followed = left != nullptr && left->type == JSAtom::OBJECT;
  if (followed && target->type == JSExpression::OBJECT &&
      variables->findString(target->object.name) != nullptr) {
    followed = isLocalName(target->object.name);
  }
  CHECK(followed);
}

JSAtom* JSParser::simulateConditional(JSExpression* expr) {
  JSAtom* ifResult = simulateValue(expr->conditional.test);
  CHECK(ifResult != NULL);
  bool first = true, second = true;
  if (isKnown(ifResult, JSAtom::BOOLEAN)) {
    CHECK(ifResult->values != NULL);
    CHECK(ifResult->values->next == NULL);
    first = ifResult->values->truth;
    second = !first;
  } else if (ifResult->type != JSAtom::BOOLEAN) {
    CHECK(ifResult->type == JSAtom::UNKNOWN);
  }
  JSAtom* r1 = first ? simulateValue(expr->conditional.expr1) : nullptr;
  JSAtom* r2 = second ? simulateValue(expr->conditional.expr2) : nullptr;
  return mergeAtoms(r1, r2);
}

JSAtom* JSParser::simulatePostfix(JSExpression* expr) {
  JSAtom* var = atomOrUnknown(simulateExpression(expr->unary.expr));
  if (var->type == JSAtom::UNKNOWN) return var;
  CHECK(var->type == JSAtom::OBJECT && var->valueKnown && var->values != NULL &&
        var->values->next == NULL);
  JSAtom* number = unknownOf(JSAtom::FLOAT);
  if (var->values->object->assign(number)) changeCount++;
  return number;
}

JSAtom* JSParser::simulateIndex(JSExpression* expr) {
  JSAtom* var = atomOrUnknown(simulateExpression(expr->binary.expr1));
  JSAtom* index = simulateValue(expr->binary.expr2);
  if (var->type == JSAtom::UNKNOWN) return var;
  CHECK(var->type == JSAtom::OBJECT && var->valueKnown && var->values != NULL);
  return var->values->object->getElement(index);
}

// A function of the script is simulated; anything else that can be called is
// unknown, and its call gives UNKNOWN. The arguments are walked either way.
JSAtom* JSParser::simulateCallExpression(JSExpression* expr) {
  JSAtom* function = atomOrUnknown(simulateValue(expr->call.function));
  JSAtomList* args = simulateArguments(expr->call.argList);
  JSAtom* result;
  if (function->type == JSAtom::FUNCTION) {
    CHECK(function->valueKnown == TRUE && function->values != NULL &&
          function->values->next == NULL);
    JSFunction* fn = function->values->function;
    pushContext("Calling function %s", fn->name);
    result = finishedCalls != nullptr ? simulateOrRepeat(fn, args) : simulateFunction(fn, args);
    popContext();
  } else {
    CHECK(function->type == JSAtom::UNKNOWN);
    result = newAtom(JSAtom::UNKNOWN);
  }
  releaseList(args);
  return result;
}

namespace {

// The same value to the bit, cells in the same order: a call given either
// walks the same path.
bool identicalAtoms(const JSAtom* a, const JSAtom* b) {
  if (a == b) return true;
  if (a->type != b->type || a->valueKnown != b->valueKnown) return false;
  const JSAtomValue* x = a->values;
  const JSAtomValue* y = b->values;
  for (; x != nullptr && y != nullptr; x = x->next, y = y->next) {
    bool same = a->type == JSAtom::FLOAT     ? memcmp(&x->number, &y->number, sizeof x->number) == 0
                : a->type == JSAtom::BOOLEAN ? x->truth == y->truth
                : a->type == JSAtom::OBJECT  ? x->object == y->object
                                             : a->type == JSAtom::FUNCTION && x->function == y->function;
    if (!same) return false;
  }
  return x == y;
}

bool identicalArguments(const JSFinishedCalls& finished, const JSFinishedCall& call,
                        const JSAtomList* args) {
  const JSAtom* const* kept = finished.arguments.data() + call.firstArgument;
  size_t i = 0;
  for (; args != nullptr; args = args->next, i++) {
    if (i == call.argumentCount || !identicalAtoms(kept[i], args->atom)) return false;
  }
  return i == call.argumentCount;
}

size_t mixedHash(size_t hash, uint64_t value) {
  return hash ^ (value + 0x9e3779b97f4a7c15u + (hash << 6) + (hash >> 2));
}

// What identicalAtoms compares of a cell.
uint64_t cellBits(int type, const JSAtomValue* cell) {
  uint64_t bits = 0;
  if (type == JSAtom::FLOAT) memcpy(&bits, &cell->number, sizeof bits);
  if (type == JSAtom::BOOLEAN) bits = uint64_t(cell->truth);
  if (type == JSAtom::OBJECT) bits = reinterpret_cast<uintptr_t>(cell->object);
  if (type == JSAtom::FUNCTION) bits = reinterpret_cast<uintptr_t>(cell->function);
  return bits;
}

// Equal for calls whose arguments are identical atoms.
JSFinishedCallKey callKey(const JSFunction* fn, const JSAtomList* args) {
  size_t hash = reinterpret_cast<uintptr_t>(fn);
  for (; args != nullptr; args = args->next) {
    const JSAtom* atom = args->atom;
    hash = mixedHash(hash, uint64_t(atom->type) << 1 | uint64_t(atom->valueKnown != 0));
    for (const JSAtomValue* cell = atom->values; cell != nullptr; cell = cell->next) {
      hash = mixedHash(hash, cellBits(atom->type, cell));
    }
  }
  return {fn, hash};
}

const JSFinishedCall* findFinishedCall(JSFinishedCalls& finished, const JSFinishedCallKey& key,
                                       const JSAtomList* args) {
  const JSFinishedCall* call = finished.newestOfKey.find(key);
  return call != nullptr && identicalArguments(finished, *call, args) ? call : nullptr;
}

void addFinishedCall(JSFinishedCalls* finished, const JSFinishedCallKey& key, JSFinishedCall call,
                     const JSAtomList* args) {
  call.firstArgument = finished->arguments.size();
  for (; args != nullptr; args = args->next) finished->arguments.push_back(args->atom);
  call.argumentCount = finished->arguments.size() - call.firstArgument;
  finished->newestOfKey[key] = call;
}

void forgetFinishedCalls(JSFinishedCalls* finished, long version) {
  finished->version = version;
  finished->arguments.clear();
  finished->newestOfKey.clear();
}

}  // namespace

// Whatever a script reads through the context, and the reports: while this
// stands, a call walks as it walked before.
long JSParser::simulationVersion() { return ourContext->worldVersion() + reportCount(); }

// A call that repeats a finished one of the same running call sends the events
// of that one again and gives its result, instead of being walked: calls at
// many places of a recursive function would otherwise be walked once for each
// path of calls that leads to them.
JSAtom* JSParser::simulateOrRepeat(JSFunction* fn, JSAtomList* args) {
  JSFinishedCalls* finished = finishedCalls;
  long version = simulationVersion();
  if (finished->version != version) forgetFinishedCalls(finished, version);
  JSFinishedCallKey key = callKey(fn, args);
  if (const JSFinishedCall* call = findFinishedCall(*finished, key, args)) {
    ourContext->resendEvents(call->eventsFrom, call->eventsTo);
    return call->result;
  }
  const void* eventsFrom = ourContext->eventsMark();
  JSAtom* result = simulateFunction(fn, args);
  // Kept also when the call changed something: the next lookup finds another
  // version and forgets it.
  addFinishedCall(finished, key, {0, 0, result, eventsFrom, ourContext->eventsMark()}, args);
  return result;
}

JSAtom* JSParser::simulateNew(JSExpression* expr) {
  JSAtomList* args = simulateArguments(expr->construct.argList);
  JSAtom* result = ourContext->callFunction(expr->construct.name, args);
  releaseList(args);
  return result;
}

/* ---------------------------------------------------------------------------
 * Statements: branches by the test, loops to a fixed point, returns that stop
 * ------------------------------------------------------------------------ */

// `stop` is set when every path so far has returned; what follows is not walked.
JSAtom* JSParser::simulateStatements(JSStatement* stmts, int* stop) {
  JSAtom* result = nullptr;
  for (JSStatement* stmt = stmts; stmt != nullptr && !*stop; stmt = stmt->next) {
    result = mergeAtoms(result, simulateStatement(stmt, stop));
  }
  return result;
}

JSAtom* JSParser::simulateStatement(JSStatement* stmt, int* stop) {
  stmt->simulated = 1;
  countEntryWork();
  switch (stmt->type) {
  case JSStatement::FOR:
    if (stmt->forStmt.init != nullptr) simulateExpression(stmt->forStmt.init);
    return simulateLoop(stmt->forStmt.test, stmt->forStmt.update, stmt->forStmt.body);
  case JSStatement::WHILE:
    return simulateLoop(stmt->whileStmt.test, nullptr, stmt->whileStmt.body);
  case JSStatement::IF:
    return simulateIf(stmt, stop);
  case JSStatement::BLOCK:
    return simulateStatements(stmt->stmts, stop);
  case JSStatement::SWITCH:
    return simulateSwitch(stmt);
  case JSStatement::EXPRESSION:
    simulateExpression(stmt->expr);
    return nullptr;
  case JSStatement::RETURN:
    *stop = 1;
    return stmt->expr != nullptr ? simulateValue(stmt->expr) : newAtom(JSAtom::VOID);
  case JSStatement::CASE:
    simulateExpression(stmt->expr);
    return nullptr;
  case JSStatement::BREAK:
  case JSStatement::CONTINUE:
  case JSStatement::EMPTY:
    return nullptr;  // a break leaves nothing: what follows is walked as well
  default:
    CHECK(0);
    return nullptr;
  }
}

// A known truth value takes one branch; anything else takes both.
JSAtom* JSParser::simulateIf(JSStatement* stmt, int* stop) {
  JSAtom* ifResult = simulateValue(stmt->ifStmt.test);
  CHECK(ifResult != NULL);
  bool takeTrue = true, takeFalse = true;
  if (isKnown(ifResult, JSAtom::BOOLEAN)) {
    CHECK(ifResult->values != NULL);
    CHECK(ifResult->values->next == NULL);
    takeTrue = ifResult->values->truth;
    takeFalse = !takeTrue;
  }
  int stop1 = 1, stop2 = 1;
  JSAtom* r1 = nullptr;
  JSAtom* r2 = nullptr;
  if (takeTrue) {
    stmt->ifStmt.sometimesTrue = 1;
    stop1 = 0;
    r1 = simulateStatement(stmt->ifStmt.stmt1, &stop1);
  }
  if (takeFalse) {
    stmt->ifStmt.sometimesFalse = 1;
    stop2 = 0;
    if (stmt->ifStmt.stmt2 != nullptr) r2 = simulateStatement(stmt->ifStmt.stmt2, &stop2);
  }
  if (stop1 && stop2) *stop = 1;
  return mergeAtoms(r1, r2);
}

// The body is walked until a pass changes nothing; the test is not looked at,
// and a return in the body ends that pass only. What the test and update of a
// later pass change counts for that pass.
JSAtom* JSParser::simulateLoop(JSExpression* test, JSExpression* update, JSStatement* body) {
  if (test != nullptr) simulateExpression(test);
  if (update != nullptr) simulateExpression(update);
  int count = changeCount;
  JSAtom* result = nullptr;
  for (;;) {
    int stop = 0;
    result = mergeAtoms(result, simulateStatement(body, &stop));
    if (changeCount == count) return result;
    count = changeCount;
    if (test != nullptr) simulateExpression(test);
    if (update != nullptr) simulateExpression(update);
  }
}

// The test and every case label are walked; all cases in order, as one list,
// and a return ends only the statements up to the next case label. Nothing
// behind the switch is cut because of a return in it.
JSAtom* JSParser::simulateSwitch(JSStatement* stmt) {
  simulateExpression(stmt->switchStmt.test);
  JSAtom* result = nullptr;
  int caseStop = 0;
  for (JSStatement* member = stmt->switchStmt.body; member != nullptr; member = member->next) {
    if (member->type == JSStatement::CASE) caseStop = 0;
    if (!caseStop) result = mergeAtoms(result, simulateStatement(member, &caseStop));
  }
  return result;
}

/* ---------------------------------------------------------------------------
 * Rewriting: what was never reached goes, what has no effect goes, what is
 * constant becomes a constant
 * ------------------------------------------------------------------------ */

namespace {

bool isConstant(const JSExpression* expr) {
  return expr->type == JSExpression::FLOAT || expr->type == JSExpression::INT;
}

JSExpression* newFloat(float number) {
  JSExpression* expr = newExpression(JSExpression::FLOAT);
  expr->floatValue = number;
  return expr;
}

// --vrml97: a number that the script wrote, or that was folded from such
// numbers, which the script computes with in double precision.
bool isExactConstant(const JSExpression* expr) { return isConstant(expr) && expr->literal != nullptr; }

JSExpression* newNumberOfText(double number, char* text, char* end) {
  *end = 0;
  JSExpression* expr = newFloat(float(number));
  expr->literal = copyString(text);
  return expr;
}

// --vrml97: a number in the shortest text that reads back as the same double.
JSExpression* newExactNumber(double number) {
  char text[32];
  return newNumberOfText(number, text, formatDouble(text, number));
}

// --vrml97: the value of a field in the text that the world gives it, so that
// arithmetic with it folds as with the numbers that the script wrote, and a
// run on the output folds what this run folded.
JSExpression* newFieldNumber(double number) {
  if (double(float(number)) != number) return newExactNumber(number);
  char text[32];
  return newNumberOfText(number, text, formatFloat(text, float(number)));
}

bool isToken(const JSExpression* expr, const char* token) {
  return strcmp(expr->binary.token, token) == 0;
}

bool isStep(const JSExpression* expr) { return isToken(expr, "++") || isToken(expr, "--"); }

bool isComma(const JSExpression* expr) {
  return expr->type == JSExpression::BINARY && isToken(expr, ",");
}

bool isVarStatement(const JSStatement* stmt) {
  return stmt->type == JSStatement::EXPRESSION && stmt->expr->type == JSExpression::VAR;
}

// How tightly an expression binds, by the token classes that are precedence levels.
int bindingOf(const JSExpression* expr) {
  if (expr->type == JSExpression::CONDITIONAL) return TokConditional;
  if (expr->type == JSExpression::UNARY || expr->type == JSExpression::BINARY) {
    return expr->binary.tokType;
  }
  return TokPunctuation;
}

// Whether an else behind this statement would pair with an if inside it.
bool endsInOpenIf(const JSStatement* stmt) {
  switch (stmt->type) {
  case JSStatement::IF:
    return stmt->ifStmt.stmt2 == nullptr || endsInOpenIf(stmt->ifStmt.stmt2);
  case JSStatement::WHILE:
    return endsInOpenIf(stmt->whileStmt.body);
  case JSStatement::FOR:
    return endsInOpenIf(stmt->forStmt.body);
  default:
    return false;
  }
}

JSStatement* blockOf(JSStatement* stmt) {
  JSStatement* block = newStatement(JSStatement::BLOCK);
  block->stmts = stmt;
  return block;
}

// The branch takes the place of its if in the chain.
JSStatement* takePlaceOf(JSStatement* stmt, JSStatement* branch) {
  branch->next = stmt->next;
  stmt->next = nullptr;
  return branch;
}

JSStatement* onlyStatement(JSStatement* stmt) {
  CHECK(stmt->next == NULL);
  return stmt;
}

// `end` moves on to the last link of the list before `more` is put there: a
// run of appends to one list walks each argument once.
void appendArguments(JSArg**& end, JSArg* more) {
  while (*end != nullptr) end = &(*end)->next;
  *end = more;
}

}  // namespace

int hasSideEffects(JSExpression* expr) {
  if (!expr->simulated) return 0;
  switch (expr->type) {
  case JSExpression::OBJECT:
  case JSExpression::FLOAT:
  case JSExpression::INT:
  case JSExpression::BOOLEAN:
    return 0;
  case JSExpression::UNARY:
  case JSExpression::POSTFIX:
    return isStep(expr) || hasSideEffects(expr->unary.expr);
  case JSExpression::BINARY:
  case JSExpression::INDEX:
    return expr->binary.tokType == TokAssign || hasSideEffects(expr->binary.expr1) ||
           hasSideEffects(expr->binary.expr2);
  case JSExpression::PAREN:
    return hasSideEffects(expr->paren.expr);
  case JSExpression::CALL:
  case JSExpression::NEW:
  case JSExpression::VAR:
    return 1;
  default:
    CHECK(0);
    return 0;
  }
}

// Unreached functions go; the others are rewritten without binding their
// parameters: the variables only give assignment targets a place to resolve.
void JSParser::pruneScript(JSContext* context) {
  CHECK(ourContext == NULL);
  ourContext = context;
  entryWork = 0;
  JSFunction** link = &functions;
  while (JSFunction* fn = *link) {
    if (!fn->called) {
      functionTable->removeString(fn->name);
      *link = fn->next;
      functionsChanged = true;
      continue;
    }
    CHECK(variables == NULL);
    variables = new StringTable(kFirstBucketCount, nullptr);
    CHECK(varGarbageList == NULL);
    prunedFunction = fn;
    runningFunction = fn;
    if (vrml97Option()) declareLocalNames(fn);
    pruneFunctionBody(fn);
    runningFunction = nullptr;
    prunedFunction = nullptr;
    releaseVariables();
    link = &fn->next;
  }
  releaseAtoms();
  ourContext = nullptr;
}

// Rewrites each statement of the list, then joins neighbouring var lists.
JSStatement* JSParser::pruneStatements(JSStatement* stmts) {
  for (JSStatement** link = &stmts; *link != nullptr; link = &(*link)->next) {
    *link = pruneStatement(*link, 1);
    if (*link == nullptr) break;
  }
  JSArg** varEnd = nullptr;
  for (JSStatement* stmt = stmts; stmt != nullptr && stmt->next != nullptr;) {
    JSStatement* next = stmt->next;
    if (isVarStatement(stmt) && isVarStatement(next)) {
      if (varEnd == nullptr) varEnd = &stmt->expr->var.argList;
      appendArguments(varEnd, next->expr->var.argList);
      next->expr->var.argList = nullptr;
      stmt->next = next->next;
    } else {
      varEnd = nullptr;
      stmt = next;
    }
  }
  return stmts;
}

// The first statement of the chain that survives, rewritten; the statements
// behind it are left to the caller.
JSStatement* JSParser::pruneStatement(JSStatement* stmt, int inList) {
  while (stmt != nullptr) {
    if (!stmt->simulated) {
      stmt = stmt->next;
      continue;
    }
    bool goOn = false;
    switch (stmt->type) {
    case JSStatement::FOR:
      if (stmt->forStmt.init) stmt->forStmt.init = pruneExpression(stmt->forStmt.init, 0);
      if (stmt->forStmt.test) stmt->forStmt.test = pruneExpression(stmt->forStmt.test, 0);
      if (stmt->forStmt.update) stmt->forStmt.update = pruneExpression(stmt->forStmt.update, 0);
      stmt->forStmt.body = pruneRequired(stmt->forStmt.body, 0);
      return stmt;
    case JSStatement::WHILE:
      stmt->whileStmt.test = pruneExpression(stmt->whileStmt.test, 0);
      stmt->whileStmt.body = pruneRequired(stmt->whileStmt.body, 0);
      return stmt;
    case JSStatement::SWITCH:
      stmt->switchStmt.test = pruneExpression(stmt->switchStmt.test, 0);
      stmt->switchStmt.body = pruneStatements(stmt->switchStmt.body);
      return stmt;
    case JSStatement::RETURN:
      if (stmt->expr != nullptr) stmt->expr = pruneExpression(stmt->expr, 0);
      return stmt;
    case JSStatement::BREAK:
    case JSStatement::CONTINUE:
    case JSStatement::CASE:
    case JSStatement::EMPTY:
      return stmt;
    case JSStatement::EXPRESSION:
      stmt->expr = pruneExpression(stmt->expr, 0);
      // A comma that is the whole statement needs no parentheses.
      if (stmt->expr->type == JSExpression::PAREN && isComma(stmt->expr->paren.expr)) {
        stmt->expr = stmt->expr->paren.expr;
      }
      if (hasEffects(stmt->expr)) return stmt;
      stmt = stmt->next;
      continue;
    case JSStatement::IF:
      stmt = pruneIf(stmt, &goOn);
      break;
    case JSStatement::BLOCK:
      stmt = pruneBlock(stmt, inList, &goOn);
      break;
    default:
      CHECK(0);
    }
    if (!goOn) return stmt;
  }
  return nullptr;
}

// Under --vrml97 a name that the function declares stays declared when the
// code that declared it goes, as a name that no var declares is global: the
// names of cut code are declared again, in a var before the body.
void JSParser::pruneFunctionBody(JSFunction* fn) {
  std::vector<const char*> declared;
  if (vrml97Option()) forEachDeclaredName(fn->body, [&declared](const char* name) { declared.push_back(name); });
  fn->body = pruneStatements(fn->body);
  if (declared.empty()) return;
  std::unordered_set<std::string_view> stillDeclared;
  forEachDeclaredName(fn->body, [&stillDeclared](const char* name) { stillDeclared.insert(name); });
  JSArg* names = nullptr;
  JSArg** last = &names;
  for (const char* name : declared) {
    if (!stillDeclared.insert(name).second) continue;
    *last = newRecord<JSArg>();
    (*last)->expr = newExpression(JSExpression::OBJECT);
    (*last)->expr->object.name = copyString(name);
    last = &(*last)->next;
  }
  if (names == nullptr) return;
  JSStatement* declaration = newStatement(JSStatement::EXPRESSION);
  declaration->expr = newExpression(JSExpression::VAR);
  declaration->expr->var.argList = names;
  declaration->next = fn->body;
  fn->body = declaration;
}

// Whether the reached part of the expression can change anything or, under
// --vrml97, end the call with an exception, which the code after it then
// does not run: a read of a name that nothing declares, a member or element
// of what may be undefined.
bool JSParser::hasEffects(JSExpression* expr) {
  return hasSideEffects(expr) || (vrml97Option() && mayThrow(expr));
}

bool JSParser::mayThrow(JSExpression* expr) {
  if (!expr->simulated) return false;
  switch (expr->type) {
  case JSExpression::OBJECT:
    return !isBoundName(expr->object.name);
  case JSExpression::FLOAT:
  case JSExpression::INT:
  case JSExpression::BOOLEAN:
    return false;
  case JSExpression::UNARY:
  case JSExpression::POSTFIX:
    return mayThrow(expr->unary.expr);
  case JSExpression::BINARY:
    return isToken(expr, ".") || mayThrow(expr->binary.expr1) || mayThrow(expr->binary.expr2);
  case JSExpression::PAREN:
    return mayThrow(expr->paren.expr);
  default:
    return true;
  }
}

// --vrml97: a name that a read finds: a parameter or var name of the function,
// a function of the script, a field of the Script.
bool JSParser::isBoundName(const char* name) {
  return isLocalName(name) || functionTable->findString(name) != nullptr ||
         ourContext->lookupName(name) != nullptr;
}

JSStatement* JSParser::pruneRequired(JSStatement* stmt, int inList) {
  JSStatement* result = pruneStatement(stmt, inList);
  return result != nullptr ? result : newStatement(JSStatement::EMPTY);
}

// A test that was always false or always true, and changes nothing, leaves its
// branch in the place of the if; `goOn` says that the loop of pruneStatement
// goes on with what is returned. An else never comes to pair with another if:
// a then-branch that ends in an if without else gets braces.
JSStatement* JSParser::pruneIf(JSStatement* stmt, bool* goOn) {
  *goOn = true;
  if (!stmt->ifStmt.sometimesTrue && !hasEffects(stmt->ifStmt.test)) {
    CHECK(stmt->ifStmt.sometimesFalse);
    if (stmt->ifStmt.stmt2 == nullptr) return stmt->next;
    CHECK(stmt->ifStmt.stmt2->simulated);
    CHECK(stmt->ifStmt.stmt2->next == NULL);
    return takePlaceOf(stmt, stmt->ifStmt.stmt2);
  }
  if (!stmt->ifStmt.sometimesFalse && !hasEffects(stmt->ifStmt.test)) {
    CHECK(stmt->ifStmt.sometimesTrue);
    CHECK(stmt->ifStmt.stmt1->next == NULL);
    return takePlaceOf(stmt, stmt->ifStmt.stmt1);
  }
  *goOn = false;
  stmt->ifStmt.test = pruneExpression(stmt->ifStmt.test, 0);
  bool elseReached = stmt->ifStmt.stmt2 != nullptr && stmt->ifStmt.stmt2->simulated;
  stmt->ifStmt.stmt1 = pruneRequired(stmt->ifStmt.stmt1, 0);
  if (elseReached) stmt->ifStmt.stmt2 = pruneStatement(stmt->ifStmt.stmt2, 0);
  if (stmt->ifStmt.stmt2 != nullptr && endsInOpenIf(stmt->ifStmt.stmt1)) {
    stmt->ifStmt.stmt1 = blockOf(stmt->ifStmt.stmt1);
  }
  return stmt;
}

// In a list a block dissolves into it; as a branch or body it keeps its braces
// only around two or more statements. An empty block goes.
JSStatement* JSParser::pruneBlock(JSStatement* stmt, int inList, bool* goOn) {
  *goOn = false;
  if (inList) {
    JSStatement* first = stmt->stmts != nullptr ? pruneStatement(stmt->stmts, 1) : nullptr;
    if (first == nullptr) {
      *goOn = true;
      return stmt->next;
    }
    JSStatement* last = first;
    while (last->next != nullptr) last = last->next;
    last->next = stmt->next;
    return first;
  }
  stmt->stmts = pruneStatements(stmt->stmts);
  if (stmt->stmts == nullptr) {
    *goOn = true;
    return stmt->next;
  }
  if (stmt->stmts->next != nullptr) return stmt;
  return onlyStatement(stmt->stmts);
}

JSExpression* JSParser::pruneExpression(JSExpression* expr, int precedence) {
  switch (expr->type) {
  case JSExpression::OBJECT:
    return pruneName(expr);
  case JSExpression::UNARY:
  case JSExpression::POSTFIX: {
    if (isStep(expr)) return expr;
    // delete, typeof and void bind as the other prefix operators do.
    int level = expr->unary.tokType == TokId ? int(TokUnary) : expr->unary.tokType;
    expr->unary.expr = pruneExpression(expr->unary.expr, level);
    if (isToken(expr, "-") && isExactConstant(expr->unary.expr)) {
      double negated = -constantValue(expr->unary.expr);
      return std::isfinite(negated) ? newExactNumber(negated) : expr;
    }
    if (isToken(expr, "-") && isConstant(expr->unary.expr)) {
      return newFloat(float(-constantValue(expr->unary.expr)));
    }
    return expr;
  }
  case JSExpression::BINARY:
    return pruneBinary(expr, precedence);
  case JSExpression::CONDITIONAL:
    if (!hasEffects(expr->conditional.test)) {
      if (!expr->conditional.expr1->simulated) {
        return pruneExpression(expr->conditional.expr2, precedence);
      }
      if (!expr->conditional.expr2->simulated) {
        return pruneExpression(expr->conditional.expr1, precedence);
      }
    }
    expr->conditional.test = pruneExpression(expr->conditional.test, TokConditional);
    expr->conditional.expr1 = pruneExpression(expr->conditional.expr1, TokConditional);
    expr->conditional.expr2 = pruneExpression(expr->conditional.expr2, TokConditional);
    return expr;
  case JSExpression::PAREN:
    // Parentheses go where what is inside binds tighter than what is around;
    // around a comma they stay, as it would split an argument list.
    expr->paren.expr = pruneExpression(expr->paren.expr, 0);
    if (!isComma(expr->paren.expr) && bindingOf(expr->paren.expr) > precedence) {
      return expr->paren.expr;
    }
    return expr;
  case JSExpression::INDEX:
    expr->binary.expr2 = pruneExpression(expr->binary.expr2, 0);
    return expr;
  case JSExpression::CALL:
    pruneArguments(expr->call.argList);
    return expr;
  case JSExpression::NEW:
    pruneArguments(expr->construct.argList);
    return expr;
  default:
    return expr;
  }
}

void JSParser::pruneArguments(JSArg* argList) {
  for (JSArg* arg = argList; arg != nullptr; arg = arg->next) {
    arg->expr = pruneExpression(arg->expr, 0);
  }
}

// Parameters and function names stand for themselves, whatever field of the
// Script node bears the same name; under --vrml97 var names too.
bool JSParser::isProtectedName(const char* name) {
  if (vrml97Option() && isLocalName(name)) return true;
  for (JSParam* param = prunedFunction->params; param != nullptr; param = param->next) {
    if (strcmp(param->name, name) == 0) return true;
  }
  return functionTable->findString(name) != nullptr;
}

// A name of the context that can hold only one number becomes that number.
JSExpression* JSParser::pruneName(JSExpression* expr) {
  if (isProtectedName(expr->object.name)) return expr;
  JSAtom* answer = ourContext->lookupName(expr->object.name);
  if (answer == nullptr || answer->type != JSAtom::OBJECT) return expr;
  CHECK(answer->valueKnown);
  CHECK(answer->values != NULL);
  CHECK(answer->values->next == NULL);
  JSAtom* value = answer->values->object->getValue();
  if (value != nullptr && isKnown(value, JSAtom::FLOAT) && countValues(value) == 1) {
    double number = value->values->number;
    return vrml97Option() ? newFieldNumber(number) : newFloat(float(number));
  }
  return expr;
}

JSExpression* JSParser::pruneBinary(JSExpression* expr, int precedence) {
  int level = expr->binary.tokType;
  if ((level == TokLogicalOr || level == TokLogicalAnd) && !expr->binary.expr2->simulated) {
    return pruneExpression(expr->binary.expr1, precedence);
  }
  if (level == TokAssign) return pruneAssignment(expr, precedence);
  bool member = isToken(expr, ".");
  // A number would not do in front of a member dot: the name stays.
  if (!member || expr->binary.expr1->type != JSExpression::OBJECT) {
    expr->binary.expr1 = pruneExpression(expr->binary.expr1, level);
  }
  if (!member) expr->binary.expr2 = pruneExpression(expr->binary.expr2, level);
  return foldConstants(expr);
}

// An assignment that nothing needs leaves only its right side, whose own
// effects stay.
JSExpression* JSParser::pruneAssignment(JSExpression* expr, int precedence) {
  if (!hasEffects(expr->binary.expr1)) {
    JSAtom* left = simulateExpression(expr->binary.expr1);
    bool needed = left != nullptr;
    if (left != nullptr && left->type == JSAtom::OBJECT) {
      CHECK(left->valueKnown == TRUE);
      needed = false;
      for (const JSAtomValue* cell = left->values; cell != nullptr; cell = cell->next) {
        needed = needed || cell->object->isNeeded();
      }
    }
    if (!needed) return pruneExpression(expr->binary.expr2, precedence);
  }
  expr->binary.expr2 = pruneExpression(expr->binary.expr2, expr->binary.tokType);
  return expr;
}

// Arithmetic of constants in 32-bit floats, and the neutral elements.
JSExpression* JSParser::foldConstants(JSExpression* expr) {
  if (vrml97Option()) return foldExactly(expr);
  JSExpression* e1 = expr->binary.expr1;
  JSExpression* e2 = expr->binary.expr2;
  bool c1 = isConstant(e1), c2 = isConstant(e2);
  float l = c1 ? float(constantValue(e1)) : 0, r = c2 ? float(constantValue(e2)) : 0;
  if (isToken(expr, "*")) {
    if (c1 && l == 0 && !hasSideEffects(e2)) return newFloat(0);
    if (c2 && r == 0 && !hasSideEffects(e1)) return newFloat(0);
    if (c1 && l == 1) return e2;
    if (c2 && r == 1) return e1;
    if (c1 && c2) return newFloat(l * r);
  } else if (isToken(expr, "+")) {
    if (c1 && l == 0) return e2;
    if (c2 && r == 0) return e1;
    if (c1 && c2) return newFloat(l + r);
  } else if (isToken(expr, "-")) {
    if (c2 && r == 0) return e1;
    if (c1 && c2) return newFloat(l - r);
  } else if (isToken(expr, "/")) {
    if (c2 && r == 1) return e1;
    if (c1 && c2 && !(double(r) > -0.0001 && double(r) < 0.0001)) return newFloat(l / r);
  }
  return expr;
}

// --vrml97: arithmetic of the numbers that the script wrote, in double
// precision as the script does it; a result that is not finite stays as
// written. No neutral elements: `x + 0` is text when x is a string, and
// `x * 1` a number when x is one.
JSExpression* JSParser::foldExactly(JSExpression* expr) {
  JSExpression* e1 = expr->binary.expr1;
  JSExpression* e2 = expr->binary.expr2;
  if (!isExactConstant(e1) || !isExactConstant(e2)) return expr;
  double l = constantValue(e1), r = constantValue(e2), result;
  if (isToken(expr, "*")) {
    result = l * r;
  } else if (isToken(expr, "+")) {
    result = l + r;
  } else if (isToken(expr, "-")) {
    result = l - r;
  } else if (isToken(expr, "/")) {
    result = l / r;
  } else {
    return expr;
  }
  return std::isfinite(result) ? newExactNumber(result) : expr;
}
