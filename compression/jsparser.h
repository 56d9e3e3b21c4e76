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
};

/// The program of one Script node: tokenizer state, then the parsed functions.
struct JSParser {
  /// Tokenizer: nonzero when the next nextToken gives the current token again.
  /// One level only.
  int pushedBack = 0;
  char* cursor = nullptr;  ///< after a scan, at the NUL that ends the current token
  char savedChar = 0;      ///< the character that the token's NUL overwrote
  char* token = nullptr;
  int tokenLine = 0;       ///< the line on which the current token starts
  int tokType = TokNone;
  union {
    int32_t intValue;
    float floatValue;
  } tokValue = {0};
  int lineNumber = 1;

  StringTable* functionTable;    ///< by name; a name declared twice stands twice
  JSFunction* functions = nullptr;  ///< in order of declaration

  JSParser();

  /// Parses the whole text, which must be writable and NUL-ended.
  void parseScript(char* text);
  void printFunctions(FILE* stream);

  void nextToken();
  void pushBack() { pushedBack = 1; }

 private:
  void endToken(char* end, int type);
  void scanNumber();
  void scanString();
  void scanOperator();

  JSFunction* parseFunction();
  JSStatement* parseStatementList();
  JSStatement* parseStatement();
  JSStatement* parseBlock();
  JSStatement* parseFor();
  JSStatement* parseIf();
  JSStatement* parseWhile();
  JSStatement* parseJump(int type);
  JSStatement* parseReturn();
  JSStatement* parseSwitch();
  JSStatement* parseCase();
  JSStatement* parseExpressionStatement();
  void parseStatementEnd();
  JSExpression* parseExpression();
  JSExpression* parseVar();
  JSExpression* parseAssignment();
  JSExpression* parseConditional();
  JSExpression* parseBinary(int level);
  JSExpression* parseUnary();
  JSExpression* parsePostfix();
  JSExpression* parseMember();
  JSExpression* parsePrimary();
  JSArg* parseExpressionList();
};

#endif
