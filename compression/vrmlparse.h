// Scene model and VRML text: the records of a world, the tokenizer, the
// built-in library of the standard nodes, the readers of field values and
// nodes, and the writer. Calls main for reports and the string table for names.
#ifndef WORLDPARE_VRMLPARSE_H
#define WORLDPARE_VRMLPARSE_H

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <string>
#include <unordered_map>
#include <unordered_set>
#include <vector>

#include "main.h"
#include "stringtable.h"

struct VPNode;
struct VPFieldList;
class UndrawnActivity;
struct FieldSet;

/// Where something began in the input text: a line from 1 and a column that
/// counts bytes from 1. Numbers, not pointers: the text may be gone when a
/// pass reports. Line 0: made by a pass, not read.
struct InputPosition {
  int line;
  int column;
};

constexpr int VP_FIELD_CLASS_COUNT = 4;
constexpr int VP_FIELD_TYPE_COUNT = 20;

/// The declaration of one field. Cells of many nodes point at one VPField, and
/// the pointer is what makes two fields the same field everywhere.
struct VPField {
  enum Class { EVENT_IN = 0, EVENT_OUT = 1, EXPOSED_FIELD = 2, FIELD = 3 };
  /// Every single-value type comes before every multi-value type.
  enum Type {
    TypeNone = -1,
    SFBool, SFColor, SFFloat, SFImage, SFInt32, SFNode, SFRotation, SFString, SFTime, SFVec2f,
    SFVec3f, MFColor, MFFloat, MFInt32, MFNode, MFRotation, MFString, MFTime, MFVec2f, MFVec3f
  };

  int theClass;  ///< a Class, -1 before it is set
  int theType;   ///< a Type, TypeNone before it is set
  char* name;    ///< as declared, never an alias form

  bool isMFField() const { return theType >= MFColor; }
  bool hasValue() const { return theClass == EXPOSED_FIELD || theClass == FIELD; }
  bool holdsNodes() const { return theType == SFNode || theType == MFNode; }
  void write(FILE* stream) const;
};

struct VPImage {
  int32_t width, height, components;
  int32_t* pixels;  ///< width * height values, one to a pixel
};

/// One cell of a value list: one cell for an SF field, one per element for an
/// MF field, and an empty MF value is a NULL list. Which member is live is told
/// by the field's type.
struct VPValue {
  VPValue* next;
  union {
    int32_t intValue;  ///< SFBool (0 or 1), SFInt32
    float floatValue;  ///< SFFloat, SFTime
    float* floats;     ///< SFColor, SFVec3f (3), SFVec2f (2), SFRotation (4)
    VPImage* image;    ///< SFImage
    char* string;      ///< SFString: the token as written, quotes and backslashes included
    VPNode* node;      ///< SFNode, MFNode; NULL for the word NULL or a hole
  };

  // Values of the cascade's records (vrmlcascade.cpp).
  /// The zero of an SF type that has one: 0, FALSE, 0.0, a NULL node, zero floats.
  void setZero(int type);
  /// A deep copy of the word of `source`: new float arrays, a new string.
  void copyValue(const VPValue* source, int type);
  RUN_HEAP_OBJECT
};

/// A node list is a node value: the cells of topLevel, of a PROTO body and of
/// an SFNode or MFNode field are the same records.
typedef VPValue VPNodeList;

/// What IS parsed into: a field of the PROTO one level up.
struct VPRedirect {
  VPNode* proto;
  VPField* field;
};

enum {
  FIELD_READ = 1,
  FIELD_WRITE = 2,
  FIELD_ROUTED_IN = 8,
  FIELD_ROUTED_OUT = 16,
  FIELD_ROUTE_SOURCE = 32,  ///< on a declaration's or script interface's cell only
  FIELD_NO_DEFAULT = 64,    ///< an EXTERNPROTO field declared without a value (--vrml97)
};

struct VPFieldList {
  VPFieldList* next;
  VPField* field;
  VPRedirect* redirect;  ///< set for IS; then value is NULL
  VPValue* value;
  int flags;             ///< FIELD_ bits
  InputPosition position;  ///< of the field's name
};

struct VPRoute {
  VPNode* sourceNode;
  VPField* sourceField;  ///< the declaration's or the script interface's field
  VPNode* destNode;
  VPField* destField;
  /// A route from a copy inside an instance: the route out of the instance
  /// that it was made for (redirectRouteOut).
  VPRoute* twinOf;
  InputPosition position;  ///< of the word ROUTE
  VPRouteList* outCell;    ///< its cell in the source's routesOut; NULL once unlinked
  VPRouteList* inCell;     ///< its cell in the destination's routesIn
};

struct VPRouteList {
  VPRouteList* next;
  VPRoute* route;
  VPRouteList** link;  ///< what points at this cell: the head of the list or the cell before
};

/// A field whose eventOut a node is sending, on the stack of one cascade.
struct VPSending {
  VPSending* next;
  const VPField* field;
};

struct VPShadow {
  VPShadow* next;
  VPNode* root;    ///< the PROTO instance through which the body node was copied
  VPNode* shadow;  ///< the copy
  /// Where the copy stands in the order in which the scan makes copies, the
  /// expansions put off until after it counted where they were put off: a
  /// copy made by the scan at count c is (2c + 1, 0), one made afterwards for
  /// an expansion put off at count c is (2c, its rank among those). Lists of
  /// shadows are kept newest first by this order.
  uint64_t madeAt;
  uint64_t madeWithin;
};

struct VPIsLink {
  VPIsLink* next;
  VPField* protoField;
  VPNode* node;
  VPField* nodeField;
  VPIsLink** link;  ///< what points at this cell: the head of the list or the cell before; NULL once unlinked
};

/// Puts a new IS link at the head of the list.
void pushIsLink(VPIsLink** list, VPField* protoField, VPNode* node, VPField* nodeField);
/// Takes the cell out of its list.
void unlinkIsLinkCell(VPIsLink* cell);

struct JSParser;
struct VPFuzzyValue;
struct VPEventRecord;

/// What only a declaration has. Declarations are few and instances many, so
/// an instance does not carry it.
struct VPDeclaration {
  VPValue* urls;            ///< EXTERNPROTO
  VPNodeList* body;         ///< PROTO
  VPNodeList* instances;    ///< PROTO: the OTHER nodes of this type, newest first
  VPIsLink* isLinks;        ///< PROTO
  int isBuiltin;            ///< EXTERNPROTO: a standard node of the built-in library
};

/// A declaration (EXTERNPROTO, PROTO) or an instance (SCRIPT, OTHER).
/// - EXTERNPROTO: name is the type name, fields the declared fields,
///   declaration->urls the URL list.
/// - PROTO: name, fields with defaults, and in `declaration` the body (top
///   nodes), instances, isLinks.
/// - SCRIPT and OTHER: name is the DEF name or NULL, fields the cells set in the
///   file, and everything in `other`; a SCRIPT's interface is other.script.fields.
/// All members of a new node are zero, and so are those of a declaration's record.
struct VPNode {
  enum NodeType { EXTERNPROTO = 0, PROTO = 1, SCRIPT = 2, OTHER = 3 };

  // What every walk reads comes first: the type, the marks, the fields and,
  // at the head of `other`, what an instance or a Script holds besides.
  uint8_t nodeType;     ///< a NodeType
  uint8_t scriptSeen;   ///< --vrml97: 1 a Script may see its values, 2 may also hold it
  /// An instance in a PROTO declaration, or a copy made for one: it never
  /// runs, and the copies of its body exist only for what they tell the body
  /// nodes.
  bool inDeclaration;
  int refCount;         ///< places that refer to the node: 1, plus one per USE
  unsigned visited;     ///< the traversal that marked it last: see visit()
  unsigned reachMark;   ///< the mark of the NodeCollector that met it last
  VPFieldList* fields;

  struct {
    /// A SCRIPT has `script`, an OTHER node `generic`, in the same memory.
    union {
      struct {
        VPFieldList* fields;  ///< the interface declarations
        JSParser* program;
        VPEventRecord* eventRecords;
      } script;
      struct {
        VPNodeList* implementation;
        VPIsLink* isLinks;
        /// A copy made for an instance in a PROTO declaration whose body was
        /// not copied: the expanded copy of an instance of the same PROTO
        /// with the same values, which stands for it.
        VPNode* representative;
      } generic;
    };
    VPNode* baseProto;      ///< the declaration, never NULL
    VPRouteList* routesIn;  ///< newest first
    VPRouteList* routesOut; ///< newest first
    VPShadow* shadowNodes;
    VPNode* shadowedNode;
    VPNode* shadowRoot;     ///< a copy: the instance it was made for
    VPFuzzyValue* values;
    VPSending* sending;     ///< --vrml97: the fields it sends in the running cascade
  } other;

  char* name;
  InputPosition position;  ///< of the type name of an instance, of the word of a declaration
  VPDeclaration* declaration;  ///< EXTERNPROTO and PROTO only

  VPFieldList* findField(const VPField* field);
  VPFieldList* findFieldByName(const char* fieldName);
  VPField* fieldByName(const char* fieldName);
  VPFieldList* findEffectiveField(const VPField* field);
  /// The one mark of all traversals: marks the node in the running traversal,
  /// false if it was marked already.
  bool visit() {
    if (isVisited()) return false;
    visited = currentRun->reading.traversal;
    return true;
  }
  bool isVisited() const { return visited == currentRun->reading.traversal; }
  void clearVisited();
  /// This node and every node below it through node-valued fields, each once.
  /// Keeps its own marks, so passes that hold the visited marks may call it.
  std::vector<VPNode*> nodesBelow();

  void write(FILE* stream);
  void writeRoutes(FILE* stream);
  void writeFieldList(VPFieldList* list, FILE* stream, int withValues, int isInstance);
  void writeField(VPFieldList* cell, FILE* stream, int withValues, int isInstance);
  /// On an instance: the cell holds its type's default, which the writer leaves
  /// out; node values are always written.
  bool holdsDefault(const VPFieldList* cell);

  // The scan and the expansion of PROTO instances (vrmlcompress.cpp).
  /// withinDeclaration: the node stands in a PROTO's body or in a default of its fields.
  void scanNode(bool withinDeclaration = false);
  void addIsLink(VPFieldList* field);
  /// Gives this instance of a PROTO its private copy of the body.
  void expandInstance();
  /// The copy of a body node under this root, made once.
  VPNode* copyNode(VPNode* originalNode);
  VPFieldList* copyFieldList(VPNode* newNode, VPFieldList* cells);
  VPValue* resolvedValue(const VPFieldList* bodyCell);
  /// On a body node: its copy under the given root, or NULL.
  VPNode* findShadow(const VPNode* root);

  /// Puts off the expansion of a copy made for an instance in a declaration.
  void deferExpansion();
  /// Makes the route and puts it at the head of both ends' lists.
  static VPRoute* addRoute(VPNode* source, VPField* sourceField, VPNode* dest,
                           VPField* destField);
  static void redirectRouteOut(VPRoute* route);
  /// The cell of the field named "url" among the fields that the node sets.
  VPFieldList* findUrlCell();
  bool isProtoInstance() const {
    return nodeType == OTHER && other.baseProto->nodeType == PROTO;
  }

  // Fuzzy values and events (vrmlcascade.cpp).
  VPFuzzyValue* findFuzzy(const VPField* field);
  void storeEvent(VPFuzzyValue* eventData);
  void getFuzzyValue(VPFuzzyValue* result, VPField* field, int mapShadows);
  void sendEvent(VPFuzzyValue* eventData);
  void receiveEvent(VPFuzzyValue* eventData) { receiveEvent(eventData, false); }
  /// --vrml97: a change of an exposedField of a body node reaches the other
  /// body fields IS the same exposedField of the interface.
  void shareThroughInterface(VPFuzzyValue* eventData);

  // The passes of the cascade (vrmlcascade.cpp), and what each does at a Script.
  void initializeNode();
  void runInitialize();
  void simulateNodeEvents();
  void simulateAnyUse();
  void mergeShadows(int mergeValues);
  void pruneScripts();
  void pruneOwnScript();
  void clearSimulation();
  void nukeDeadScriptFields(UndrawnActivity& activity);
  void nukeOwnDeadFields(UndrawnActivity& activity);

  // Removal (vrmlcompress.cpp).
  int removeField(VPField* field, VPField* protoField);
  int removeFields(const FieldSet& gone);
  void removeIsLink(VPFieldList* cell);
  void dropReference();

  // Pruning after the cascade (vrmlcompress.cpp).
  void foldNode();
  void foldConstantFields(VPFieldList* cells);
  void pruneSwitchChoices(UndrawnActivity& activity);
  void dropDefName();
  /// On a PROTO: folds constant parameters into the body, removes dead fields.
  void pruneInterface();

 private:
  void writeDeclaration(FILE* stream);
  void writeInstance(FILE* stream);
  void writeProgram(FILE* stream, const VPValue* alternatives);
  void scanCell(VPFieldList* cell, bool withinDeclaration);
  void scanScript(bool withinDeclaration);
  void scanVrml97Script(VPFieldList* urlCell);
  void simulateRouteSources();
  void receiveEvent(VPFuzzyValue* eventData, bool fromInterface);
  bool handToBody(VPFuzzyValue* eventData, const VPNode* exceptNode, const VPField* exceptField);
  void mergeShadow(VPShadow* shadowIter, VPFuzzyValue*** cursor, int mergeValues);
  bool getLinkedValue(VPFuzzyValue* result, VPField* field, int mapShadows);
  ScriptEvents& currentEvents();
  void releaseEventRecords();
  bool mergeLinks(VPFuzzyValue* result, VPField* field, int mapShadows);
  bool eventAlreadySimulated(const VPFuzzyValue* eventData);
  bool takesAsUnknown(const VPFuzzyValue* eventData);
  void runScriptEvent(VPFuzzyValue* eventData);
  void runScriptFunction(VPFuzzyValue* eventData);
  void simulateOpaqueScript();
  bool isOpaqueScript() const;
  void cutSwitchChoices(UndrawnActivity& activity);
  void unlinkFieldCell(VPFieldList** link);
  void removeIsLinksOf(const FieldSet& gone, VPFieldList* cells);
  void removeCopiedFields(const FieldSet& gone);
  void removeLinkedFields(VPField* field, const std::vector<VPIsLink*>& links);
};


/// The nodes of one walk, each once, in the order met: a walk marks the
/// nodes with a number of its own, so that passes holding the visited marks
/// may walk, and no set of pointers is needed.
struct NodeCollector {
  unsigned mark;
  std::vector<VPNode*> nodes;

  NodeCollector();
  /// False if the walk met the node before.
  bool add(VPNode* node);
  /// Adds the nodes in the fields of the nodes collected, and theirs in turn.
  void addBelow();
};

/// Fields that leave a node together, in order; a long set answers by hash.
struct FieldSet {
  std::vector<VPField*> inOrder;
  std::unordered_set<const VPField*> members;  ///< filled from kHashedFields fields on

  static constexpr size_t kHashedFields = 16;
  FieldSet() = default;
  explicit FieldSet(VPField* field);
  void add(VPField* field);
  bool contains(const VPField* field) const;
};

/// --vrml97: whether a node or any node in its fields, and theirs in turn, can
/// act without being drawn (a Script, a route, a PROTO instance whose removal
/// does not reach its body copies, a bindable node). One search of strongly
/// connected components answers every node that it meets, so asking under
/// each of n nested nodes costs O(n), and a node used inside itself ends it.
/// The answers hold while no node gains or loses a way to act, as when a pass
/// only cuts subtrees that cannot act.
class UndrawnActivity {
 public:
  bool below(VPNode* root);

 private:
  struct State {
    unsigned order;  ///< in which the search entered the node
    unsigned low;    ///< the least order that the node reaches among open nodes
    bool open;       ///< its component is not yet closed
    bool active;
  };
  struct Frame {
    VPNode* node;
    size_t begin;  ///< its children in `children` start here...
    size_t next;   ///< ...and are taken up to here
  };
  std::unordered_map<VPNode*, State> states;
  std::vector<VPNode*> openNodes;
  std::vector<Frame> frames;
  std::vector<VPNode*> children;

  void enter(VPNode* node);
  void close(VPNode* root, State& rootState);
};

/// Takes one route out of both of its lists.
void unlinkRoute(VPRoute* route);
/// The routes of a node's list whose field at this end (the source's when
/// `outgoing`) is `field`, in the order of the list; a long list answers from
/// an index by field.
std::vector<VPRoute*> routesAt(VPRouteList** list, const VPField* field, bool outgoing);

/// The text of a DEF name in reports: "(null)" when the node has none.
inline const char* nameOrNull(const char* name) { return name != nullptr ? name : "(null)"; }

/// Calls `visit` on each node held by the node-valued cells of the list, in order.
template <class Visit>
void forEachNodeIn(const VPFieldList* list, Visit visit) {
  for (const VPFieldList* cell = list; cell != nullptr; cell = cell->next) {
    if (!cell->field->holdsNodes()) continue;
    for (const VPNodeList* value = cell->value; value != nullptr; value = value->next) {
      if (value->node != nullptr) withStackRoom([&]() { visit(value->node); });
    }
  }
}

/// Calls `visit` on each non-NULL node of a node list.
template <class Visit>
void forEachNode(const VPNodeList* list, Visit visit) {
  for (const VPNodeList* cell = list; cell != nullptr; cell = cell->next) {
    if (cell->node != nullptr) withStackRoom([&]() { visit(cell->node); });
  }
}

/// What the entry of a node (or its leaving) names next, in order: nodes,
/// each walked to its end before the next, and the point where it is left.
struct NodeWalkSteps {
  struct Step {
    VPNode* node;
    bool leaving;  ///< the step that leaves `node`, not one that enters it
  };
  VPNode* current = nullptr;
  std::vector<Step> steps;

  void child(VPNode* node) { steps.push_back({node, false}); }
  void childrenIn(const VPFieldList* cells) {
    forEachNodeIn(cells, [this](VPNode* node) { child(node); });
  }
  void children(const VPNodeList* list) {
    forEachNode(list, [this](VPNode* node) { child(node); });
  }
  void leave() { steps.push_back({current, true}); }
};

/// A walk in the order of a recursive one that marks each node as it enters
/// it: `enter (node, walk)` does what a node does on entry and names what
/// follows it; `leave (node, walk)` runs at the point that the entry named
/// with `walk.leave ()`, and may name further nodes. The walk keeps its own
/// stack, so depth costs no frames.
template <class Enter, class Leave>
void walkNodes(VPNode* root, Enter enter, Leave leave) {
  std::vector<NodeWalkSteps::Step> pending = {{root, false}};
  NodeWalkSteps walk;
  while (!pending.empty()) {
    NodeWalkSteps::Step step = pending.back();
    pending.pop_back();
    if (!step.leaving && !step.node->visit()) continue;
    walk.current = step.node;
    walk.steps.clear();
    if (step.leaving) {
      leave(step.node, walk);
    } else {
      enter(step.node, walk);
    }
    pending.insert(pending.end(), walk.steps.rbegin(), walk.steps.rend());
  }
}

template <class Enter>
void walkNodes(VPNode* root, Enter enter) {
  walkNodes(root, enter, [](VPNode*, NodeWalkSteps&) {});
}

/// The one object of a run: the scene, the tokenizer's state and the tables of names.
struct VPFile {
  /// Classes of VRML tokens, the values of tokType.
  enum TokenClass { TokNone = 0, TokId, TokFloat, TokInt, TokBool, TokString, TokSymbol };

  VPNodeList* topLevel = nullptr;  ///< the items of the scene in file order
  /// Tokenizer: nonzero when the next nextToken gives the current token again.
  /// One level only: pushing back twice is pushing back once.
  int pushedBack = 0;
  char* cursor = nullptr;  ///< scan position; the current token ends with a NUL written here
  int savedChar = 0;       ///< the character that the token's NUL overwrote
  char* token = nullptr;   ///< the current token, NUL-ended, inside the text
  int tokType = TokNone;
  union {
    int32_t intValue;  ///< TokInt, TokBool
    float floatValue;  ///< TokFloat
  } tokValue = {0};
  int lineNumber = 1;
  char* lineStart = nullptr;  ///< where the line of the scan position begins
  int tokenLine = 1;          ///< where the current token began
  int tokenColumn = 1;
  VPNode* currentProto = nullptr;  ///< the PROTO whose body is being parsed
  StringTable* currentProtoNamedNodes = nullptr;
  StringTable* protos;             ///< every PROTO and EXTERNPROTO by type name
  StringTable* namedNodes;         ///< DEF names outside PROTO bodies
  /// A PROTO body names a node of the scene outside it (USE, ROUTE), through
  /// which the scene's events may reach the body.
  bool bodyNamesOuterNode = false;
  VPNodeList* allProtos = nullptr; ///< the input's PROTOs, newest first
  /// --vrml97: an unwritten instance of each PROTO that the file never instantiates,
  /// simulated as another world could use it (vrmlcompress.cpp, vrmlcascade.cpp).
  VPNodeList* standIns = nullptr;
  /// --vrml97: a PROTO declared in a PROTO body hides the PROTO of its name
  /// until the body ends. localProtos holds the innermost declaration of
  /// each name; each body being read keeps what its declarations hid,
  /// innermost last, so that one lookup finds a name however deep the bodies.
  StringTable* localProtos;
  struct HiddenProto {
    StringTable::Entry* entry;  ///< of localProtos
    void* outer;                ///< its datum before the declaration
  };
  std::vector<std::vector<HiddenProto>> localScopes;
  /// --vrml97: PROTOs declared among the fields of the node being read, in order.
  std::vector<VPNodeList*> nestedDeclarations;
  /// --vrml97: nodes whose DEF name a later DEF took, by scope, innermost last.
  std::vector<std::vector<VPNode*>> hiddenNodes;
  bool isLibrary = false;  ///< reads one declaration of the library, and knows no other

  /// Makes the tables; the standard nodes are read as the world names them.
  VPFile();
  /// A PROTO or EXTERNPROTO of the file's top scope, or a standard node, by type name.
  StringTable::Entry* findTopProto(const char* name);

  void parseText(char* text);
  void startText(char* text);
  void skipSpace();
  void write(FILE* stream);
  void clearVisited();
  void clearVisitedFromTop();
  VPNode* findNamedNode(const char* name);

  // Tokenizer.
  void nextToken();
  void pushBack() { pushedBack = 1; }
  InputPosition tokenPosition() const { return {tokenLine, tokenColumn}; }
  /// The current token in a report's sentence: quoted, or "the end of the file".
  std::string describeToken() const;

  // Values.
  void parseFieldValue(VPFieldList* cell);
  bool parseFloatToken(float* result);
  VPValue* parseList(VPValue* (VPFile::*elementReader)());
  VPValue* parseSFBool();
  VPValue* parseSFColor();
  VPValue* parseSFFloat();
  VPValue* parseSFImage();
  VPValue* parseSFInt32();
  VPValue* parseSFRotation();
  VPValue* parseSFString();
  VPValue* parseSFTime();
  VPValue* parseSFVec2f();
  VPValue* parseSFVec3f();
  VPValue* parseMFColor();
  VPValue* parseMFFloat();
  VPValue* parseMFInt32();
  VPValue* parseMFNode();
  VPValue* parseMFRotation();
  VPValue* parseMFString();
  VPValue* parseMFTime();
  VPValue* parseMFVec2f();
  VPValue* parseMFVec3f();

  // Nodes, PROTOs and ROUTEs.
  VPNodeList* parseNodeOrProto();
  VPNodeList* parseNode(char* nodeName);
  VPFieldList* parseNodeFields(VPFieldList* declared);
  VPFieldList* parseInterface(int withValues);
  VPNodeList* parseExternProto();
  VPNodeList* parseProto();
  void parseRoute();

  // Passes, in the order of the pipeline (vrmlcompress.cpp, vrmlcascade.cpp).
  void scanNodes();
  void expandDeferredCopies();
  void addStandIns();
  void hoistProtoDefaults();
  void runCascade();
  void pruneProtoInterfaces();
  void pruneSwitches();
  void dropDefNames();
  /// --digits: the floats of nodes whose values no Script can see, rounded.
  void roundUnseenFloats(int digits);
  /// Whether a second pass over the written world may cut more: where a
  /// Script (PROTO bodies included) or a PROTO stands, what one pass cut can
  /// fold a test to a constant or leave a parameter with one value.
  bool mayCutMoreAgain();
  /// --vrml97: a node equal to one written before it in its scope, where
  /// nothing can tell two copies from one node, becomes a USE of that one.
  void shareIdenticalNodes();

 private:
  void endToken(int type);
  void scanIdentifier();
  void scanNumber();
  void scanString();
  void expectPoint();
  // The sentences of reports about the input at the current token.
  std::string isTargetSentence() const;
  std::string isTypeSentence(const VPField* field, const VPField* protoField) const;
  std::string nodeEndSentence(const VPNode* proto, int openLine) const;
  void reportUnknownNodeType();
  std::string interfaceEndSentence(int openLine) const;
  std::string definedNameSentence() const;
  std::string routeFieldSentence(const VPNode* node, const char* event) const;
  VPValue* parseFloatTuple(int count, const char* partialWord);
  VPNodeList* newNodeList(VPNode* node);
  /// A new EXTERNPROTO or PROTO at the token, in a list cell of its own.
  VPNodeList* newDeclaration(int nodeType);
  VPFieldList* parseDeclaration(int withValues);
  void parseEventIs(VPFieldList* cell);
  void checkAliasForm(VPFieldList* result, VPFieldList* bestFit, bool setForm, bool changedForm);
  void enterNodeName(char* nodeName, VPNode* node);
  VPNode* findProto(const char* name);
  bool declareProto(VPNode* proto);
  /// Gives back the names that the declarations of the body just read hid.
  void endLocalScope();
  void parseScriptFields(VPNode* node, VPFieldList* declared);
  void nameNode(VPNode* node, char* nodeName);
  void renameHiddenNodes(StringTable* names);
  std::vector<VPNode*> allNodes();
  void markScriptSight();
};

/// Two cells of one field hold equal values: exact, by type, for all but node types.
bool fieldValuesEqual(const VPFieldList* cell, const VPFieldList* other);
/// Two elements of a type are equal: exactly, by components; nodes by identity.
bool elementsEqual(int type, const VPValue* a, const VPValue* b);
/// The floats in one element of SFColor, SFRotation, SFVec2f, SFVec3f and their
/// MF types; 0 for every other type.
int tupleLength(int type);

#endif
