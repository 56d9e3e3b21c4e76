// Script simulation: the abstract values of script expressions, the context and
// objects through which a simulated script meets the world, the walk of
// expressions and statements, and the rewriting of a script by what the walk
// marked. The operations are members of JSParser (jsparser.h); includes no
// scene header: the scene implements JSContext and JSObject.
#ifndef WORLDPARE_JSSIMULATE_H
#define WORLDPARE_JSSIMULATE_H

#include <cstdint>
#include <vector>

#include "jsparser.h"
#include "runcontext.h"

/// One possible value of an atom, read by the atom's type.
struct JSAtomValue {
  JSAtomValue* next;
  union {
    double number;         ///< FLOAT: a 32-bit float, but under --vrml97 as the script computes it
    int32_t truth;         ///< BOOLEAN: 0 or 1
    JSObject* object;      ///< OBJECT
    JSFunction* function;  ///< FUNCTION
  };
};

/// What an expression may evaluate to. Numbers and truth values are known
/// exactly or only by kind (valueKnown 0, no cells); objects are a set; UNKNOWN
/// is anything but objects. A NULL atom pointer is no value at all. Atoms are
/// never changed once made, and live to the end of the entry.
struct JSAtom {
  enum Type { FLOAT = 0, BOOLEAN = 1, STRING = 2, OBJECT = 3, FUNCTION = 4, VOID = 5, UNKNOWN = 6 };

  int type;
  int valueKnown;
  JSAtomValue* values;
};

struct JSAtomList {
  JSAtomList* next;
  JSAtom* atom;
  RUN_HEAP_OBJECT
};

/// The world that a script runs in.
class JSContext {
 public:
  /// The atom of a name that is no variable and no function, or NULL when the
  /// context does not know it; an OBJECT atom holds one cell.
  virtual JSAtom* lookupName(const char* name) = 0;
  /// The value of `new name(args)`; never NULL.
  virtual JSAtom* callFunction(const char* name, JSAtomList* args) = 0;
  /// Moves whenever something that a script can read through the context changes.
  virtual long worldVersion() = 0;
  /// Where the events that the entry sent so far end.
  virtual const void* eventsMark() = 0;
  /// Sends once more, in their order, the events sent between two marks.
  virtual void resendEvents(const void* from, const void* to) = 0;

 protected:
  ~JSContext() = default;
};

/// Anything that a script can read, assign or take a member of.
class JSObject {
 public:
  virtual JSAtom* getElement(JSAtom* index) = 0;
  /// NULL when there is no such member.
  virtual JSAtom* getMember(const char* name) = 0;
  /// Takes the value as one more thing the object may hold; nonzero if that changed it.
  virtual int assign(JSAtom* value) = 0;
  virtual JSAtom* getValue() = 0;
  /// Zero when an assignment to the object cannot matter, so it may be dropped.
  virtual int isNeeded() = 0;
  virtual int isSameObject(JSObject* other) = 0;

 protected:
  ~JSObject() = default;
};

/// A variable of the running call. Its value is the merge of all values it was
/// given in the call, never the last one.
struct JSVarObject final : public JSObject {
  JSParser* parser;
  JSAtom* value = nullptr;

  explicit JSVarObject(JSParser* owner) : parser(owner) {}
  JSAtom* getElement(JSAtom* index) override;
  JSAtom* getMember(const char* name) override;
  int assign(JSAtom* v) override;
  JSAtom* getValue() override;
  int isNeeded() override;
  int isSameObject(JSObject* other) override;
  RUN_HEAP_OBJECT
};

struct JSVarList {
  JSVarList* next;
  JSVarObject* variable;
  RUN_HEAP_OBJECT
};

struct JSStackEntry {
  JSStackEntry* next;
  JSAtomList* args;
  RUN_HEAP_OBJECT
};

/// A call that finished while nothing that scripts read changed and nothing
/// was reported. A call of the same function from the same running call, with
/// the same arguments and all that still so, would walk the same path: it
/// finds every stack as this one did, reads the same values and sends the same
/// events, and the marks it would set are set.
struct JSFinishedCall {
  size_t firstArgument;  ///< where its arguments begin in JSFinishedCalls::arguments
  size_t argumentCount;
  JSAtom* result;
  const void* eventsFrom;
  const void* eventsTo;
};

/// A function and a hash of the bits of its arguments.
struct JSFinishedCallKey {
  const JSFunction* fn;
  size_t argumentsHash;
  bool operator==(const JSFinishedCallKey& other) const {
    return fn == other.fn && argumentsHash == other.argumentsHash;
  }
  size_t hash() const { return argumentsHash; }
};

/// The finished calls of one running call, kept while the version stands.
struct JSFinishedCalls {
  long version = -1;
  std::vector<const JSAtom*> arguments;  ///< of all the calls, one after another
  /// The newest call of each key. Of two calls whose arguments differ but
  /// hash alike only the newer is kept: the older is walked again, as if it
  /// had never finished.
  FlatMap<JSFinishedCallKey, JSFinishedCall> newestOfKey;
};

/// Whether the first `count` arguments of two calls are the same values.
int argumentsMatch(int count, JSAtomList* list1, JSAtomList* list2);
/// Whether a reached part of the expression can change anything.
int hasSideEffects(JSExpression* expr);

#endif
