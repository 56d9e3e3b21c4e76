// Event cascade: what can happen to each field of the scene. Fuzzy values and
// the counters of progress, the scene as simulated scripts see it, the journey
// of events along routes and IS links, and the driver, a member of VPFile
// (vrmlparse.h) called by the pipeline (main).
#ifndef WORLDPARE_VRMLCASCADE_H
#define WORLDPARE_VRMLCASCADE_H

#include "jssimulate.h"
#include "runcontext.h"
#include "vrmlparse.h"

struct VPCellIndex;

/// What a field of a node may hold: a finite set of values, or anything.
/// Stands alone (next NULL) as an event in flight or a read result; in a
/// node's other.values list it is that node's record of the field.
struct VPFuzzyValue {
  VPFuzzyValue* next = nullptr;
  VPField* field;     ///< identity of the pointer selects the record
  int valueKnown = 1; ///< 0: anything; values is then NULL
  VPValue* values = nullptr;  ///< owned cells, in no meaningful order
  VPCellIndex* index = nullptr;  ///< owned; the cells of a long record, for merges
  /// A read that asks only whether the field may hold more than one value:
  /// its merges stop adding once it holds two, so that the question costs
  /// the same however many values a Script's field has collected.
  bool stopsAtTwoValues = false;

  explicit VPFuzzyValue(VPField* recordField) : field(recordField) {}
  VPFuzzyValue(const VPFuzzyValue&) = delete;
  VPFuzzyValue& operator=(const VPFuzzyValue&) = delete;
  RUN_HEAP_OBJECT
  /// Releases the chain of next records, not the cells.
  ~VPFuzzyValue();

  /// Adds to this record everything that `other` allows; with mapShadows a
  /// node that is a PROTO body copy counts as its body node. Whether this
  /// record changed.
  bool merge(const VPFuzzyValue* other, int mapShadows);
  void freeValues();
  VPFuzzyValue* clone() const;
  /// Both records say nothing is known; two known records never match.
  bool sameUnknown(const VPFuzzyValue* other) const;

 private:
  void becomeUnknown();
  bool holdsTooManyValues() const;
  VPCellIndex* cellIndex();
  bool holdsValue(const VPValue* value);
  void dropIndex();
};

/// The node that a node value stands for: with mapShadows a copy inside an
/// instance stands for its body node, which the output holds.
VPNode* mappedNode(VPNode* node, int mapShadows);

/// --vrml97: whether an opaque Script can reach the node (or the body node of
/// this copy) through node-valued fields: nothing there may be cut or folded.
bool isReachedByOpaqueScript(const VPNode* node);

/// An event already simulated into a Script: an unknown value on the same
/// eventIn is not simulated again until some new record appears.
struct VPEventRecord {
  VPEventRecord* next;
  char* name;  ///< the eventIn's name, owned
  int changeCount;
  VPFuzzyValue* value;
  RUN_HEAP_OBJECT
};

/// An event that a script call sent, delivered after the call has returned.
struct VPQueuedEvent {
  VPQueuedEvent* next;
  VPNode* node;
  VPFuzzyValue* eventData;  ///< owned until delivered
  RUN_HEAP_OBJECT
};

class VPJSObject;

struct VPJSObjectList {
  VPJSObjectList* next;
  VPJSObject* object;
  RUN_HEAP_OBJECT
};

/// The scene as one call into one Script node sees it. Lives on the stack for
/// the call and the delivery of what the call sent.
class VPJSContext final : public JSContext {
 public:
  VPNode* scriptNode;
  JSParser* parser;
  VPQueuedEvent* eventQueue = nullptr;  ///< newest first: the last event sent goes first
  int mapShadows;                       ///< 1 while a script is rewritten, else 0
  VPJSObjectList* objects = nullptr;    ///< every object made, released at the end

  VPJSContext(VPNode* node, JSParser* program, int mapShadowNodes);
  ~VPJSContext();
  VPJSContext(const VPJSContext&) = delete;
  VPJSContext& operator=(const VPJSContext&) = delete;

  JSAtom* lookupName(const char* name) override;
  JSAtom* callFunction(const char* name, JSAtomList* args) override;
  long worldVersion() override;
  const void* eventsMark() override;
  void resendEvents(const void* from, const void* to) override;

  VPJSObject* newObject();
  JSAtom* lookupField(VPNode* node, const char* name);
  JSAtom* makeAtom(VPFuzzyValue* fuzzy, int isArray);
  /// Stores the value in the target now; takes over eventData.
  void queueEvent(VPNode* node, VPFuzzyValue* eventData);
  void flushEvents();
};

/// A set of nodes (fieldName NULL), or the field of that name of each node of
/// the set (a reference, read or assigned later).
class VPJSObject final : public JSObject {
 public:
  /// The class identity of every VPJSObject, taken before any run.
  static void* const vptr;

  VPJSContext* context;
  VPNodeList* nodes = nullptr;  ///< owned cells, no NULL node
  char* fieldName = nullptr;    ///< owned
  int isArray = 0;              ///< the whole of an MF field, or a node set read from an MFNode

  explicit VPJSObject(VPJSContext* owner);
  RUN_HEAP_OBJECT
  ~VPJSObject();
  VPJSObject(const VPJSObject&) = delete;
  VPJSObject& operator=(const VPJSObject&) = delete;

  JSAtom* getElement(JSAtom* index) override;
  JSAtom* getMember(const char* memberName) override;
  int assign(JSAtom* val) override;
  JSAtom* getValue() override;
  int isNeeded() override;
  int isSameObject(JSObject* other) override;

  void markField(int flags);
  /// All that the field may hold over all nodes; the caller owns the record.
  VPFuzzyValue* currentFuzzy(bool stopsAtTwoValues = false);
  /// A node object for all the nodes that the node-valued field may hold.
  VPJSObject* fieldNodes();

 private:
  VPJSObject* memberOfNodes();
};

#endif
