// Script language front end: the tokenizer, syntax tree, parser and printer of
// the JavaScript subset of Script nodes. Calls main for reports and records,
// and the string table for the function names; includes no scene header.
#ifndef WORLDPARE_JSPARSER_H
#define WORLDPARE_JSPARSER_H

#include <cstdint>
#include <cstdio>

#include "stringtable.h"

struct JSExpression;
struct JSStatement;
struct JSStackEntry;
struct JSAtom;
struct JSAtomValue;
struct JSAtomList;
struct JSVarList;
struct JSVarObject;
class JSContext;
class JSObject;
struct JSFinishedCalls;

/// Token classes. From TokAssign on, the numbers are the precedence levels of
/// the operators, lowest first: parser and rewriting compare them.
enum JSTokenClass {
  TokNone = 0,
  TokId = 1,
  TokFloat = 2,
  TokInt = 3,
  TokBool = 4,
  TokString = 5,
  TokAssign = 6,
  TokConditional = 7,
  TokLogicalOr = 8,
  TokLogicalAnd = 9,
  TokBitOr = 10,
  TokBitXor = 11,
  TokBitAnd = 12,
  TokEquality = 13,
  TokRelation = 14,
  TokShift = 15,
  TokAdditive = 16,
  TokMultiplicative = 17,
  TokUnary = 18,
  TokPunctuation = 19,
};

struct JSParam {
  JSParam* next;
  char* name;
};

/// An element of an argument list, a `new` list or a `var` list; expr is never NULL.
struct JSArg {
  JSArg* next;
  JSExpression* expr;
};

struct JSExpression {
  enum Kind {
    OBJECT = 1, UNARY = 2, BINARY = 3, CONDITIONAL = 4, POSTFIX = 5, PAREN = 6, INDEX = 7,
    CALL = 8, NEW = 9, FLOAT = 10, INT = 11, BOOLEAN = 12, STRING = 13, VAR = 14
  };

  int type;
  int simulated;
  char* literal;  ///< --vrml97: a number as the script wrote it, printed as written
  union {
    struct {
      char* name;
    } object;
    /// UNARY and POSTFIX; tokType is TokId for delete, typeof and void.
    struct {
      char* token;
      int tokType;
      JSExpression* expr;
    } unary;
    /// BINARY (a comma and a member "." keep TokPunctuation) and INDEX ("[").
    struct {
      char* token;
      int tokType;
      JSExpression* expr1;
      JSExpression* expr2;
    } binary;
    struct {
      JSExpression* test;
      JSExpression* expr1;
      JSExpression* expr2;
    } conditional;
    struct {
      JSExpression* expr;
    } paren;
    struct {
      JSExpression* function;
      JSArg* argList;  ///< NULL for no arguments
    } call;
    struct {
      char* name;
      JSArg* argList;  ///< NULL for none, and for `new` without parentheses
    } construct;
    float floatValue;
    int32_t intValue;
    int32_t boolValue;
    char* string;  ///< the token as written in the script, quotes included
    struct {
      JSArg* argList;
    } var;
  };
};

struct JSStatement {
  enum Kind {
    FOR = 1, IF = 2, BREAK = 3, CONTINUE = 4, WHILE = 5, SWITCH = 7, BLOCK = 8, EXPRESSION = 9,
    RETURN = 10, CASE = 11, EMPTY = 12
  };

  JSStatement* next;
  int simulated;
  int type;
  union {
    struct {
      JSExpression* init;  ///< each of the three heads may be NULL
      JSExpression* test;
      JSExpression* update;
      JSStatement* body;
    } forStmt;
    struct {
      JSExpression* test;
      JSStatement* stmt1;
      JSStatement* stmt2;  ///< NULL without else
      int sometimesTrue;
      int sometimesFalse;
    } ifStmt;
    char* label;  ///< BREAK, CONTINUE: NULL when absent
    struct {
      JSExpression* test;
      JSStatement* body;
    } whileStmt;
    /// The CASE labels stand flat in body between the other statements.
    struct {
      JSExpression* test;
      JSStatement* body;
    } switchStmt;
    JSStatement* stmts;  ///< BLOCK
    JSExpression* expr;  ///< EXPRESSION, CASE; RETURN (NULL when absent)
  };
};

struct JSFunction {
  JSFunction* next;
  char* name;
  JSParam* params;
  JSStatement* body;
  int called;           ///< set by every simulated call; left at 0, the function is dead
  JSStackEntry* stack;  ///< argument lists of the calls now being simulated
  StringTable* locals;  ///< --vrml97: its parameters and var names, made at first need
  JSParam* varNames;    ///< --vrml97: the names that its vars declare, made at first need
  int varNamesFound;    ///< varNames is made
};

/// --vrml97: the statements outside the functions of a script stand, in their
/// order, in the body of a function of this name, which no script can call.
constexpr char kLoadFunctionName[] = "(load)";

/// --vrml97: the value of a number literal as a script reads it, a double
/// (the tokenizer lets a legacy octal such as "017" through with octal digits
/// alone); false when it is too large for a double, and then infinite.
bool readLiteral(const char* literal, double* value);

/// Zeroed records of the syntax tree, kept to the end of the run.
JSExpression* newExpression(int type);
JSStatement* newStatement(int type);

/// The program of one Script node: tokenizer state, the parsed functions, and
/// the state of the simulation (jssimulate.cpp).
struct JSParser {
  /// Tokenizer: nonzero when the next nextToken gives the current token again.
  /// One level only.
  int pushedBack = 0;
  char* cursor = nullptr;  ///< after a scan, at the NUL that ends the current token
  char savedChar = 0;      ///< the character that the token's NUL overwrote
  char* token = nullptr;
  int tokenLine = 0;       ///< the line on which the current token starts
  int lineBeforeToken = 0; ///< the line on which the token before it ends
  int tokType = TokNone;
  union {
    int32_t intValue;
    float floatValue;
  } tokValue = {0};
  int lineNumber = 1;
  /// Where the parser stands, for the statements that ECMAScript allows in
  /// some places only: Return in a function, Break in a loop or a Switch,
  /// Continue in a loop, Case among the statements of a Switch.
  bool inFunction = false;
  int loopDepth = 0;
  int switchDepth = 0;
  bool caseMayFollow = false;

  StringTable* functionTable;    ///< by name; a name declared twice stands twice
  JSFunction* functions = nullptr;  ///< in order of declaration
  /// `functions` changed since its index (RunContext::firstFunctions) was made.
  bool functionsChanged = true;

  JSContext* ourContext = nullptr;       ///< of the running entry; NULL between entries
  StringTable* variables = nullptr;      ///< of the running call: name to reference
  JSVarList* varGarbageList = nullptr;   ///< the variables of the running call
  RunArena atomMemory;  ///< every atom made since the entry began, and its values
  int changeCount = 0;   ///< assignments of the running call that changed something
  int callDepth = 0;     ///< simulated calls now nested
  JSFunction* prunedFunction = nullptr;  ///< the function being rewritten
  /// --vrml97: code that the simulator does not follow; it has no functions,
  /// and its Script is written as read and taken to do anything it can.
  int opaque = 0;
  /// --vrml97: the code makes routes or nodes while the world runs.
  int makesRoutes = 0;
  JSFunction* runningFunction = nullptr;  ///< of the innermost simulated call
  JSFinishedCalls* finishedCalls = nullptr;  ///< made by the innermost simulated call
  /// --vrml97: statements and calls walked and events sent by the running
  /// call of the script; a call that does too much is given up.
  long entryWork = 0;
  long textSize = 0;  ///< of the code parsed

  JSParser();
  RUN_HEAP_OBJECT

  /// Parses the whole text, which must be writable and NUL-ended.
  void parseScript(char* text);
  void printFunctions(FILE* stream);

  void nextToken();
  void pushBack() { pushedBack = 1; }

  // Values (jssimulate.cpp).
  JSAtom* newAtom(int type);
  JSAtomValue* newAtomValue(JSAtomValue value);
  void pushValue(JSAtom* atom, JSAtomValue value);
  JSAtom* mergeAtoms(JSAtom* atom1, JSAtom* atom2);
  static bool atomsEqual(const JSAtom* a, const JSAtom* b);
  JSAtom* equalOperator(JSAtom* left, JSAtom* right);
  JSAtom* greaterOperator(JSAtom* left, JSAtom* right);
  JSAtom* notOperator(JSAtom* src);
  JSAtom* negateOperator(JSAtom* src);
  JSAtom* andOperator(JSAtom* left, JSAtom* right);
  JSAtom* orOperator(JSAtom* left, JSAtom* right);

  // Calls: an entry is one simulateCall or one pruneScript.
  int simulateCall(const char* name, JSContext* context, JSAtomList* args);
  /// --vrml97: one more step of the entry's work, checked against the bound.
  void countEntryWork();
  /// The first function of the name in order of declaration, or NULL.
  JSFunction* firstFunction(const char* name);
  JSFunction* firstIndexedFunction(const char* name);
  JSAtom* simulateFunction(JSFunction* fn, JSAtomList* args);
  JSAtom* resolveName(const char* name);
  void declareLocalNames(JSFunction* fn);
  JSVarObject* newVariable();

  // Expressions and statements.
  JSAtom* simulateExpression(JSExpression* expr);
  JSAtom* simulateValue(JSExpression* expr);
  JSAtomList* simulateArguments(JSArg* argList);
  JSAtom* simulateStatements(JSStatement* stmts, int* stop);
  JSAtom* simulateStatement(JSStatement* stmt, int* stop);

  // Rewriting by what the simulation marked.
  void pruneScript(JSContext* context);
  /// Ends an entry that a failed check broke off, and makes the code opaque.
  void abandonEntry();
  JSStatement* pruneStatements(JSStatement* stmts);
  JSStatement* pruneStatement(JSStatement* stmt, int inList);
  JSStatement* pruneRequired(JSStatement* stmt, int inList);
  void pruneFunctionBody(JSFunction* fn);
  bool hasEffects(JSExpression* expr);
  bool mayThrow(JSExpression* expr);
  bool isBoundName(const char* name);
  JSExpression* pruneExpression(JSExpression* expr, int precedence);
  JSExpression* pruneBinary(JSExpression* expr, int precedence);
  void pruneArguments(JSArg* argList);

 private:
  void endToken(char* end, int type);
  void scanNumber();
  void scanString();
  void scanOperator();

  JSFunction* parseFunction();
  void dropReplacedFunctions();
  void readName();
  JSStatement* parseStatementList(bool ofSwitch = false);
  JSStatement* parseStatement();
  JSStatement* parseBlock();
  JSStatement* parseFor();
  JSStatement* parseIf();
  JSStatement* parseWhile();
  JSStatement* parseLoopBody();
  JSStatement* parseJump(int type);
  JSStatement* parseReturn();
  JSStatement* parseSwitch();
  JSStatement* parseCase();
  JSStatement* parseExpressionStatement();
  void parseStatementEnd();
  bool lineBreakBeforeToken() const;
  JSExpression* parseExpression(bool mayDeclare = false);
  JSExpression* parseVar();
  JSExpression* parseAssignment();
  JSExpression* parseConditional();
  JSExpression* parseBinary(int level);
  JSExpression* parseUnary();
  JSExpression* parsePostfix();
  JSExpression* parseMember();
  JSExpression* parsePrimary();
  JSArg* parseExpressionList();

  JSAtom* singleAtom(int type, JSAtomValue value);
  JSAtom* knownFloat(double number);
  JSAtom* knownBoolean(int truth);
  JSAtom* unknownOf(int type);
  JSAtom* objectAtom(JSObject* object);
  JSAtom* mergeObjects(JSAtom* atom1, JSAtom* atom2);
  JSAtom* logicalOperator(JSAtom* left, JSAtom* right, int decidingTruth);
  void releaseAtoms();
  void releaseVariables();
  void bindParameters(JSFunction* fn, JSAtomList* args);
  JSAtom* atomOrUnknown(JSAtom* atom);
  JSAtom* simulateUnary(JSExpression* expr);
  JSAtom* simulateBinary(JSExpression* expr);
  JSAtom* simulateRelation(JSExpression* expr);
  JSAtom* simulateAssign(JSExpression* expr);
  void requireFollowedStore(JSExpression* target, JSAtom* left);
  void assignComponentOwner(JSExpression* target);
  bool isLocalName(const char* name);
  JSAtom* simulateConditional(JSExpression* expr);
  JSAtom* simulatePostfix(JSExpression* expr);
  JSAtom* simulateIndex(JSExpression* expr);
  JSAtom* simulateCallExpression(JSExpression* expr);
  JSAtom* simulateOrRepeat(JSFunction* fn, JSAtomList* args);
  long simulationVersion();
  JSAtom* simulateNew(JSExpression* expr);
  JSAtom* simulateMember(JSExpression* expr);
  JSAtom* simulateLogical(JSExpression* expr, int decidingTruth);
  JSAtom* simulateIf(JSStatement* stmt, int* stop);
  JSAtom* simulateLoop(JSExpression* test, JSExpression* update, JSStatement* body);
  JSAtom* simulateSwitch(JSStatement* stmt);
  JSStatement* pruneIf(JSStatement* stmt, bool* goOn);
  JSStatement* pruneBlock(JSStatement* stmt, int inList, bool* goOn);
  JSExpression* pruneName(JSExpression* expr);
  JSExpression* pruneAssignment(JSExpression* expr, int precedence);
  JSExpression* foldConstants(JSExpression* expr);
  JSExpression* foldExactly(JSExpression* expr);
  bool isProtectedName(const char* name);
};

#endif
