// Script language front end: tokenizer, recursive-descent parser and printer.
#include "jsparser.h"

#include <algorithm>
#include <cctype>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <iterator>

#include "main.h"

// Reads the next token, which must begin with the punctuation character; a
// macro, so that the check quotes the character itself.
#define READ_PUNCTUATION(ch) (nextToken(), CHECK(*token == ch))

JSParser::JSParser() : functionTable(new StringTable(kFirstBucketCount, nullptr)) {}

/* ---------------------------------------------------------------------------
 * Tokenizer: tokens are cut in place by a NUL behind them
 * ------------------------------------------------------------------------ */

namespace {

bool isIdentifierStart(char c) { return isalpha(static_cast<unsigned char>(c)) || c == '_'; }
bool isIdentifierPart(char c) { return isalnum(static_cast<unsigned char>(c)) || c == '_'; }

// A line ends at "\n"; under --vrml97 also at a "\r" that no "\n" follows, as
// it ends one for ECMAScript's statement ends and line comments.
bool endsLine(const char* p) { return *p == '\n' || (vrml97Option() && *p == '\r' && p[1] != '\n'); }

// Skips blanks and comments; an unclosed block comment ends at the end of the
// text, where under --vrml97 the code does not load.
char* skipSpaceAndComments(char* p, int* lineNumber) {
  for (;;) {
    if (endsLine(p)) {
      ++*lineNumber;
      p++;
    } else if (isspace(static_cast<unsigned char>(*p))) {
      p++;
    } else if (p[0] == '/' && p[1] == '/') {
      while (*p != 0 && !endsLine(p)) p++;
    } else if (p[0] == '/' && p[1] == '*') {
      for (p += 2; *p != 0 && !(p[0] == '*' && p[1] == '/'); p++) {
        if (endsLine(p)) ++*lineNumber;
      }
      if (vrml97Option()) CHECK(*p != 0);
      if (*p != 0) p += 2;
    } else {
      return p;
    }
  }
}

// Octal by the digit values of all characters, so "019" is 17.
int32_t readOctal(const char* text) {
  uint32_t value = 0;
  for (; *text != 0; text++) value = value * 8 + uint32_t(*text - '0');
  return int32_t(value);
}

struct OperatorForm {
  const char* text;
  int tokType;
};

// Forms by first character, longest first: the first that matches is taken.
const OperatorForm operatorForms[] = {
    {"!=", TokEquality},    {"!", TokUnary},          {"%=", TokAssign},
    {"%", TokMultiplicative}, {"*=", TokAssign},      {"*", TokMultiplicative},
    {"/=", TokAssign},      {"/", TokMultiplicative}, {"&&", TokLogicalAnd},
    {"&=", TokAssign},      {"&", TokBitAnd},         {"||", TokLogicalOr},
    {"|=", TokAssign},      {"|", TokBitOr},          {"^=", TokAssign},
    {"^", TokBitXor},       {"+=", TokAssign},        {"++", TokUnary},
    {"+", TokAdditive},     {"-=", TokAssign},        {"--", TokUnary},
    {"-", TokAdditive},     {"<<=", TokAssign},       {"<<", TokShift},
    {"<=", TokRelation},    {"<", TokRelation},       {">>=", TokAssign},
    {">>>=", TokAssign},    {">>>", TokShift},        {">>", TokShift},
    {">=", TokRelation},    {">", TokRelation},       {"==", TokEquality},
    {"=", TokAssign},       {"?", TokConditional},    {"~", TokUnary},
    {"(", TokPunctuation},  {")", TokPunctuation},    {",", TokPunctuation},
    {".", TokPunctuation},  {":", TokPunctuation},    {";", TokPunctuation},
    {"[", TokPunctuation},  {"]", TokPunctuation},    {"{", TokPunctuation},
    {"}", TokPunctuation},
};

}  // namespace

void JSParser::nextToken() {
  if (pushedBack) {
    pushedBack = 0;
    return;
  }
  *cursor = savedChar;
  lineBeforeToken = lineNumber;
  cursor = skipSpaceAndComments(cursor, &lineNumber);
  token = cursor;
  tokenLine = lineNumber;
  char c = *cursor;
  if (isIdentifierStart(c)) {
    char* end = cursor;
    while (isIdentifierPart(*end)) end++;
    endToken(end, TokId);
    if (strcmp(token, "true") == 0 || strcmp(token, "false") == 0) {
      tokType = TokBool;
      tokValue.intValue = token[0] == 't';
    }
  } else if (c == '.' || isDecimalDigit(c)) {
    scanNumber();
  } else if (c == '"' || c == '\'') {
    scanString();
  } else if (c == 0) {
    tokType = TokNone;
    savedChar = 0;
  } else {
    scanOperator();
  }
}

void JSParser::endToken(char* end, int type) {
  cursor = end;
  savedChar = *cursor;
  *cursor = 0;
  tokType = type;
}

void JSParser::scanNumber() {
  char* p = cursor;
  if (*p == '.' && !isDecimalDigit(p[1])) {
    endToken(p + 1, TokPunctuation);
    return;
  }
  bool leadingZero = *p == '0';
  while (*p == '0') p++;
  // --vrml97: code with a number that ECMAScript does not read does not load:
  // "00x1", a hexadecimal or an exponent part without digits, a name behind.
  if (*p == 'x' || *p == 'X') {
    char* digits = p + 1;
    char* end = skipHexDigits(digits);
    if (vrml97Option()) CHECK(p == cursor + 1 && end != digits && !isIdentifierPart(*end));
    endToken(end, TokInt);
    tokValue.intValue = 0;
    readHexadecimal(digits, &tokValue.intValue);
    return;
  }
  bool isFloat;
  p = skipDecimalNumber(p, &isFloat);
  if (vrml97Option()) CHECK((isDecimalDigit(p[-1]) || p[-1] == '.') && !isIdentifierPart(*p));
  // --vrml97: a "0" and a digit begin a legacy octal integer, which has no
  // digit 8 or 9 and no fraction or exponent (browsers differ on "019" and
  // "09.5", or refuse them), and is short enough for a double to hold.
  if (vrml97Option() && leadingZero && isDecimalDigit(cursor[1])) {
    size_t length = size_t(p - cursor);
    CHECK(!isFloat && strspn(cursor, "01234567") == length && length <= 18);
  }
  if (isFloat) {
    endToken(p, TokFloat);
    readFloat(token, &tokValue.floatValue);
  } else {
    endToken(p, TokInt);
    if (leadingZero) {
      tokValue.intValue = readOctal(token);
    } else {
      readDecimal(token, &tokValue.intValue);
    }
  }
}

// The token runs to the next quote of its kind, which it includes; a backslash
// protects the character behind it. No escape is resolved. Text that ends
// first ends the token; under --vrml97 such code does not load at all, nor
// code with a line break in a string, escaped or not.
void JSParser::scanString() {
  char quote = *cursor;
  char* p = cursor + 1;
  while (*p != 0 && *p != quote) {
    if (*p == '\\' && p[1] != 0) p++;
    if (vrml97Option()) CHECK(*p != '\n' && *p != '\r');
    p++;
  }
  if (vrml97Option()) CHECK(*p == quote);
  if (*p == quote) p++;
  endToken(p, TokString);
}

// A character that no token can begin with stops the run. Under --vrml97 "<!--"
// does not load: browsers take it for the start of a comment.
void JSParser::scanOperator() {
  if (vrml97Option()) CHECK(strncmp(cursor, "<!--", 4) != 0);
  for (const OperatorForm& form : operatorForms) {
    if (form.text[0] != *cursor) continue;
    size_t length = strlen(form.text);
    if (strncmp(cursor, form.text, length) == 0) {
      endToken(cursor + length, form.tokType);
      return;
    }
  }
  CHECK(0);
}

/* ---------------------------------------------------------------------------
 * Parser: one token of look-ahead; text outside the subset stops at a check
 * ------------------------------------------------------------------------ */

JSExpression* newExpression(int type) {
  JSExpression* expr = newRecord<JSExpression>();
  expr->type = type;
  return expr;
}

JSStatement* newStatement(int type) {
  JSStatement* stmt = newRecord<JSStatement>();
  stmt->type = type;
  return stmt;
}

namespace {

JSExpression* newOperator(int type, const char* token, int tokType, JSExpression* expr1) {
  JSExpression* expr = newExpression(type);
  expr->binary.token = copyString(token);
  expr->binary.tokType = tokType;
  expr->binary.expr1 = expr1;
  return expr;
}

bool isWord(const char* token, const char* word) { return strcmp(token, word) == 0; }

// The words that some edition of ECMAScript that a browser may run takes for
// no name, in the order of strcmp.
const char* const reservedWords[] = {
    "abstract", "await", "boolean", "break", "byte", "case", "catch", "char", "class", "const",
    "continue", "debugger", "default", "delete", "do", "double", "else", "enum", "export",
    "extends", "false", "final", "finally", "float", "for", "function", "goto", "if",
    "implements", "import", "in", "instanceof", "int", "interface", "let", "long", "native",
    "new", "null", "package", "private", "protected", "public", "return", "short", "static",
    "super", "switch", "synchronized", "this", "throw", "throws", "transient", "true", "try",
    "typeof", "var", "void", "volatile", "while", "with", "yield",
};

bool isReservedWord(const char* word) {
  return std::binary_search(std::begin(reservedWords), std::end(reservedWords), word,
                            [](const char* a, const char* b) { return strcmp(a, b) < 0; });
}

// "++" and "--", which write to their operand.
bool isStep(const char* token) { return isWord(token, "++") || isWord(token, "--"); }

// Reserved words that stand for a value, though nothing can be assigned to them.
bool isValueWord(const char* word) { return isWord(word, "this") || isWord(word, "null"); }

// --vrml97: what an assignment, "++" or "--" writes to: a name, a member or an
// element, in parentheses or not. ECMAScript may refuse any other target when
// the code loads.
bool isAssignable(const JSExpression* expr) {
  while (expr->type == JSExpression::PAREN) expr = expr->paren.expr;
  switch (expr->type) {
  case JSExpression::OBJECT:
    return !isValueWord(expr->object.name);
  case JSExpression::INDEX:
    return true;
  case JSExpression::BINARY:
    return isWord(expr->binary.token, ".");
  default:
    return false;
  }
}

// --vrml97: the parser reads an Expression after "delete", ECMAScript a unary
// operand; where they differ, the code does not load here.
bool isUnaryOperand(const JSExpression* expr) {
  if (expr->type == JSExpression::BINARY) return isWord(expr->binary.token, ".");
  return expr->type != JSExpression::CONDITIONAL && expr->type != JSExpression::VAR;
}

// Operators that group to the right: their right operand is of their own level.
bool groupsRight(int level) { return level <= TokBitAnd; }

}  // namespace

// Script: { Function } end of text
// --vrml97: Script: { Function | Statement } end of text
void JSParser::parseScript(char* text) {
  textSize = long(strlen(text));
  // --vrml97: ECMAScript also ends lines at U+2028 and U+2029, in comments and
  // strings too; code that holds one is kept as written.
  if (vrml97Option()) CHECK(!strstr(text, "\xE2\x80\xA8") && !strstr(text, "\xE2\x80\xA9"));
  lineNumber = 1;
  cursor = text;
  savedChar = *text;
  pushedBack = 0;
  JSFunction** last = &functions;
  JSFunction* load = nullptr;
  JSStatement** lastLoaded = nullptr;
  for (;;) {
    if (JSFunction* function = parseFunction()) {
      *last = function;
      last = &function->next;
      continue;
    }
    nextToken();
    pushBack();
    if (!vrml97Option() || tokType == TokNone) break;
    if (load == nullptr) {
      load = newRecord<JSFunction>();
      load->name = copyString(kLoadFunctionName);
      lastLoaded = &load->body;
    }
    *lastLoaded = parseStatement();
    CHECK(*lastLoaded != NULL);
    while (*lastLoaded != nullptr) lastLoaded = &(*lastLoaded)->next;
  }
  if (vrml97Option()) dropReplacedFunctions();
  if (load != nullptr) {
    load->next = functions;
    functions = load;
  }
  functionsChanged = true;
  nextToken();
  CHECK(tokType == TokNone);
}

// --vrml97: of the functions of one name the last declared is the one that
// runs, as in ECMAScript; the others go, and the names index the last alone.
void JSParser::dropReplacedFunctions() {
  JSFunction** link = &functions;
  while (JSFunction* fn = *link) {
    if (functionTable->findString(fn->name)->data != fn) {
      *link = fn->next;
    } else {
      link = &fn->next;
    }
  }
}

// Function: "function" Id "(" [ Id { "," Id } ] ")" "{" StatementList "}"
JSFunction* JSParser::parseFunction() {
  nextToken();
  if (!isWord(token, "function")) {
    pushBack();
    return nullptr;
  }
  readName();
  JSFunction* function = newRecord<JSFunction>();
  function->name = copyString(token);
  // --vrml97: the function replaces an earlier one of its name (dropReplacedFunctions).
  if (vrml97Option()) functionTable->removeString(function->name);
  functionTable->addString(function->name, function);
  READ_PUNCTUATION('(');
  JSParam** last = &function->params;
  nextToken();
  while (tokType == TokId) {
    if (vrml97Option()) CHECK(!isReservedWord(token));
    *last = newRecord<JSParam>();
    (*last)->name = copyString(token);
    last = &(*last)->next;
    nextToken();
    if (*token == ',') {
      readName();
    } else if (vrml97Option()) {
      CHECK(*token == ')');  // names without commas between them
    }
  }
  CHECK(*token == ')');
  READ_PUNCTUATION('{');
  inFunction = true;
  function->body = parseStatementList();
  inFunction = false;
  READ_PUNCTUATION('}');
  return function;
}

// Id: a name; under --vrml97 no reserved word.
void JSParser::readName() {
  nextToken();
  CHECK(tokType == TokId);
  if (vrml97Option()) CHECK(!isReservedWord(token));
}

// StatementList: { Statement }; a Case only among those of a Switch.
JSStatement* JSParser::parseStatementList(bool ofSwitch) {
  JSStatement* head = nullptr;
  JSStatement** last = &head;
  for (;;) {
    caseMayFollow = ofSwitch;
    JSStatement* stmt = parseStatement();
    if (stmt == nullptr) return head;
    *last = stmt;
    last = &stmt->next;
  }
}

// Statement: Block | ";" | For | If | While | Break | Continue | Return | Switch
//          | Case | Expression StatementEnd
JSStatement* JSParser::parseStatement() {
  bool mayBeCase = caseMayFollow;
  caseMayFollow = false;
  nextToken();
  if (*token == '{') return parseBlock();
  if (*token == ';') return newStatement(JSStatement::EMPTY);
  if (isWord(token, "for")) return parseFor();
  if (isWord(token, "if")) return parseIf();
  if (isWord(token, "while")) return parseWhile();
  if (isWord(token, "break")) return parseJump(JSStatement::BREAK);
  if (isWord(token, "continue")) return parseJump(JSStatement::CONTINUE);
  if (isWord(token, "return")) return parseReturn();
  if (isWord(token, "switch")) return parseSwitch();
  if (isWord(token, "case")) {
    if (vrml97Option()) CHECK(mayBeCase);
    return parseCase();
  }
  CHECK(strcmp (token, "with") != 0);
  CHECK(strcmp (token, "do") != 0);
  CHECK(strcmp (token, "default") != 0);
  pushBack();
  return parseExpressionStatement();
}

// Block: "{" StatementList "}"
JSStatement* JSParser::parseBlock() {
  JSStatement* stmt = newStatement(JSStatement::BLOCK);
  stmt->stmts = parseStatementList();
  READ_PUNCTUATION('}');
  return stmt;
}

// For: "for" "(" [ Expression ] ";" [ Expression ] ";" [ Expression ] ")" Statement
JSStatement* JSParser::parseFor() {
  JSStatement* stmt = newStatement(JSStatement::FOR);
  READ_PUNCTUATION('(');
  stmt->forStmt.init = parseExpression(true);
  READ_PUNCTUATION(';');
  stmt->forStmt.test = parseExpression();
  READ_PUNCTUATION(';');
  stmt->forStmt.update = parseExpression();
  READ_PUNCTUATION(')');
  stmt->forStmt.body = parseLoopBody();
  CHECK(stmt->forStmt.body != NULL);
  return stmt;
}

// If: "if" "(" Expression ")" Statement [ "else" Statement ]
JSStatement* JSParser::parseIf() {
  JSStatement* stmt = newStatement(JSStatement::IF);
  READ_PUNCTUATION('(');
  stmt->ifStmt.test = parseExpression();
  CHECK(stmt->ifStmt.test != NULL);
  READ_PUNCTUATION(')');
  stmt->ifStmt.stmt1 = parseStatement();
  CHECK(stmt->ifStmt.stmt1 != NULL);
  nextToken();
  if (isWord(token, "else")) {
    stmt->ifStmt.stmt2 = parseStatement();
    CHECK(stmt->ifStmt.stmt2 != NULL);
  } else {
    pushBack();
  }
  return stmt;
}

// While: "while" "(" Expression ")" Statement
JSStatement* JSParser::parseWhile() {
  JSStatement* stmt = newStatement(JSStatement::WHILE);
  READ_PUNCTUATION('(');
  stmt->whileStmt.test = parseExpression();
  CHECK(stmt->whileStmt.test != NULL);
  READ_PUNCTUATION(')');
  stmt->whileStmt.body = parseLoopBody();
  CHECK(stmt->whileStmt.body != NULL);
  return stmt;
}

// The Statement that a For or While repeats, where Break and Continue may stand.
JSStatement* JSParser::parseLoopBody() {
  loopDepth++;
  JSStatement* body = parseStatement();
  loopDepth--;
  return body;
}

// Break: "break" [ Id ] StatementEnd; Continue likewise. Under --vrml97 a
// Break stands in a loop or a Switch, a Continue in a loop, and neither names
// a label, as no statement here can carry one.
JSStatement* JSParser::parseJump(int type) {
  if (vrml97Option()) CHECK(loopDepth > 0 || (type == JSStatement::BREAK && switchDepth > 0));
  JSStatement* stmt = newStatement(type);
  nextToken();
  if (tokType == TokId && !lineBreakBeforeToken()) {
    CHECK(!vrml97Option());  // a label, which no statement here can carry
    stmt->label = copyString(token);
    nextToken();
  }
  pushBack();
  parseStatementEnd();
  return stmt;
}

// Return: "return" [ Expression ] StatementEnd
JSStatement* JSParser::parseReturn() {
  if (vrml97Option()) CHECK(inFunction);
  JSStatement* stmt = newStatement(JSStatement::RETURN);
  nextToken();
  pushBack();
  if (!lineBreakBeforeToken()) stmt->expr = parseExpression();
  parseStatementEnd();
  return stmt;
}

// Switch: "switch" "(" Expression ")" "{" StatementList "}"
JSStatement* JSParser::parseSwitch() {
  JSStatement* stmt = newStatement(JSStatement::SWITCH);
  READ_PUNCTUATION('(');
  stmt->switchStmt.test = parseExpression();
  CHECK(stmt->switchStmt.test != NULL);
  READ_PUNCTUATION(')');
  READ_PUNCTUATION('{');
  switchDepth++;
  stmt->switchStmt.body = parseStatementList(true);
  switchDepth--;
  JSStatement* first = stmt->switchStmt.body;
  if (vrml97Option()) CHECK(first == NULL || first->type == JSStatement::CASE);
  READ_PUNCTUATION('}');
  return stmt;
}

// Case: "case" Expression ":"
JSStatement* JSParser::parseCase() {
  JSStatement* stmt = newStatement(JSStatement::CASE);
  stmt->expr = parseExpression();
  CHECK(stmt->expr != NULL);
  READ_PUNCTUATION(':');
  return stmt;
}

// ExpressionStatement: Expression StatementEnd
JSStatement* JSParser::parseExpressionStatement() {
  JSExpression* expr = parseExpression(true);
  if (expr == nullptr) return nullptr;
  JSStatement* stmt = newStatement(JSStatement::EXPRESSION);
  stmt->expr = expr;
  parseStatementEnd();
  return stmt;
}

// --vrml97: the token stands on a later line than the one before it, which
// ends a statement that can end there (automatic semicolon insertion).
bool JSParser::lineBreakBeforeToken() const { return vrml97Option() && tokenLine > lineBeforeToken; }

// StatementEnd: ";" — a missing one is a recoverable error. Under --vrml97 a
// line break, a "}" or the end of the text stands for it.
void JSParser::parseStatementEnd() {
  nextToken();
  if (*token == ';') return;
  pushBack();
  if (vrml97Option() && (tokType == TokNone || *token == '}' || lineBreakBeforeToken())) return;
  reportError("Line %d: ';' expected, got '%s'", tokenLine, token);
}

// Expression: "delete" Expression | "var" ExpressionList | Assignment [ "," Assignment ]
// Under --vrml97 a "var" begins a statement or the head of a For alone
// (`mayDeclare`), as ECMAScript has it.
JSExpression* JSParser::parseExpression(bool mayDeclare) {
  nextToken();
  if (tokType == TokId && isWord(token, "delete")) {
    JSExpression* expr = newOperator(JSExpression::UNARY, token, TokId, nullptr);
    expr->unary.expr = parseExpression();
    CHECK(expr->unary.expr != NULL);
    if (vrml97Option()) CHECK(isUnaryOperand(expr->unary.expr));
    return expr;
  }
  if (isWord(token, "var")) {
    if (vrml97Option()) CHECK(mayDeclare);
    return parseVar();
  }
  pushBack();
  JSExpression* first = parseAssignment();
  if (first == nullptr) return nullptr;
  nextToken();
  if (*token != ',') {
    pushBack();
    return first;
  }
  JSExpression* expr = newOperator(JSExpression::BINARY, token, tokType, first);
  expr->binary.expr2 = parseAssignment();
  CHECK(expr->binary.expr2 != NULL);
  return expr;
}

// Var: "var" ExpressionList, of names, each with an optional "=" Assignment
JSExpression* JSParser::parseVar() {
  JSExpression* expr = newExpression(JSExpression::VAR);
  expr->var.argList = parseExpressionList();
  CHECK(expr->var.argList != NULL);
  for (JSArg* arg = expr->var.argList; arg != nullptr; arg = arg->next) {
    JSExpression* myexpr = arg->expr;
    if (myexpr->type == JSExpression::OBJECT) {
      // "var this": with a value, the assignment has checked its name.
      if (vrml97Option()) CHECK(isAssignable(myexpr));
      continue;
    }
    CHECK(myexpr->type == JSExpression::BINARY);
    CHECK(myexpr->binary.token[0] == '=' && myexpr->binary.token[1] == 0);
    CHECK(myexpr->binary.expr1->type == JSExpression::OBJECT);
  }
  return expr;
}

// Assignment: Conditional [ AssignOperator Assignment ]
JSExpression* JSParser::parseAssignment() {
  JSExpression* target = parseConditional();
  if (target == nullptr) return nullptr;
  nextToken();
  if (tokType != TokAssign) {
    pushBack();
    return target;
  }
  if (vrml97Option()) CHECK(isAssignable(target));
  JSExpression* expr = newOperator(JSExpression::BINARY, token, tokType, target);
  expr->binary.expr2 = parseAssignment();
  CHECK(expr->binary.expr2 != NULL);
  return expr;
}

// Conditional: LogicalOr [ "?" Conditional ":" Conditional ]
JSExpression* JSParser::parseConditional() {
  JSExpression* test = parseBinary(TokLogicalOr);
  if (test == nullptr) return nullptr;
  nextToken();
  if (tokType != TokConditional) {
    pushBack();
    return test;
  }
  JSExpression* expr = newExpression(JSExpression::CONDITIONAL);
  expr->conditional.test = test;
  expr->conditional.expr1 = parseConditional();
  CHECK(expr->conditional.expr1 != NULL);
  READ_PUNCTUATION(':');
  expr->conditional.expr2 = parseConditional();
  CHECK(expr->conditional.expr2 != NULL);
  return expr;
}

// Binary(level): Binary(level + 1) { operator-of-level Binary(level + 1) }, the
// levels LogicalOr to Multiplicative, whose token classes are their levels.
// LogicalOr to BitAnd group to the right, Equality to Multiplicative to the left.
JSExpression* JSParser::parseBinary(int level) {
  auto parseOperand = [this, level]() {
    return level == TokMultiplicative ? parseUnary() : parseBinary(level + 1);
  };
  JSExpression* left = parseOperand();
  if (left == nullptr) return nullptr;
  for (;;) {
    nextToken();
    if (tokType != level) {
      pushBack();
      return left;
    }
    JSExpression* expr = newOperator(JSExpression::BINARY, token, tokType, left);
    expr->binary.expr2 = groupsRight(level) ? parseBinary(level) : parseOperand();
    CHECK(expr->binary.expr2 != NULL);
    if (groupsRight(level)) return expr;
    left = expr;
  }
}

// Unary: ( UnaryOperator | AdditiveOperator | "typeof" | "void" ) Unary | Postfix
JSExpression* JSParser::parseUnary() {
  nextToken();
  bool isWordOperator = tokType == TokId && (isWord(token, "typeof") || isWord(token, "void"));
  if (tokType != TokUnary && tokType != TokAdditive && !isWordOperator) {
    pushBack();
    return parsePostfix();
  }
  JSExpression* expr = newOperator(JSExpression::UNARY, token, tokType, nullptr);
  withStackRoom([&]() { expr->unary.expr = parseUnary(); });
  CHECK(expr->unary.expr != NULL);
  if (vrml97Option() && isStep(expr->unary.token)) CHECK(isAssignable(expr->unary.expr));
  return expr;
}

// Postfix: Member { UnaryOperator }. Under --vrml97 one "++" or "--" at most,
// on what an assignment could write to.
JSExpression* JSParser::parsePostfix() {
  JSExpression* expr = parseMember();
  if (expr == nullptr) return nullptr;
  for (;;) {
    nextToken();
    if (tokType != TokUnary || lineBreakBeforeToken()) {
      pushBack();
      return expr;
    }
    if (vrml97Option()) CHECK(isStep(token) && isAssignable(expr));
    JSExpression* postfix = newOperator(JSExpression::POSTFIX, token, tokType, expr);
    expr = postfix;
  }
}

// Member: Primary { "." Primary | "[" Expression "]" | "(" ExpressionList ")" }
// Under --vrml97 the dot is a dot, not a number such as ".5", and a name that
// is no reserved word follows it.
JSExpression* JSParser::parseMember() {
  JSExpression* expr = parsePrimary();
  if (expr == nullptr) return nullptr;
  for (;;) {
    nextToken();
    if (*token == '.' && (!vrml97Option() || tokType == TokPunctuation)) {
      expr = newOperator(JSExpression::BINARY, token, tokType, expr);
      expr->binary.expr2 = parsePrimary();
      CHECK(expr->binary.expr2 != NULL);
      JSExpression* member = expr->binary.expr2;
      if (vrml97Option()) {
        CHECK(member->type == JSExpression::OBJECT && !isReservedWord(member->object.name));
      }
    } else if (*token == '[') {
      expr = newOperator(JSExpression::INDEX, token, tokType, expr);
      expr->binary.expr2 = parseExpression();
      CHECK(expr->binary.expr2 != NULL);
      READ_PUNCTUATION(']');
    } else if (*token == '(') {
      JSExpression* call = newExpression(JSExpression::CALL);
      call->call.function = expr;
      call->call.argList = parseExpressionList();
      READ_PUNCTUATION(')');
      expr = call;
    } else {
      pushBack();
      return expr;
    }
  }
}

// Primary: "(" Expression ")" | "new" Id [ "(" ExpressionList ")" ] | Id | constant
JSExpression* JSParser::parsePrimary() {
  nextToken();
  JSExpression* expr = nullptr;
  if (*token == '(') {
    expr = newExpression(JSExpression::PAREN);
    withStackRoom([&]() { expr->paren.expr = parseExpression(); });
    CHECK(expr->paren.expr != NULL);
    READ_PUNCTUATION(')');
  } else if (tokType == TokId && isWord(token, "new")) {
    readName();
    expr = newExpression(JSExpression::NEW);
    expr->construct.name = copyString(token);
    nextToken();
    if (*token == '(') {
      expr->construct.argList = parseExpressionList();
      READ_PUNCTUATION(')');
    } else {
      // --vrml97: ECMAScript reads "new a.b" and "new a[0]" as new (a.b).
      if (vrml97Option()) CHECK(*token != '.' && *token != '[');
      pushBack();
    }
  } else if (tokType == TokId) {
    if (vrml97Option()) CHECK(!isReservedWord(token) || isValueWord(token));
    expr = newExpression(JSExpression::OBJECT);
    expr->object.name = copyString(token);
  } else if (tokType == TokFloat) {
    expr = newExpression(JSExpression::FLOAT);
    expr->floatValue = tokValue.floatValue;
    if (vrml97Option()) expr->literal = copyString(token);
  } else if (tokType == TokInt) {
    expr = newExpression(JSExpression::INT);
    expr->intValue = tokValue.intValue;
    if (vrml97Option()) expr->literal = copyString(token);
  } else if (tokType == TokBool) {
    expr = newExpression(JSExpression::BOOLEAN);
    expr->boolValue = tokValue.intValue;
  } else if (tokType == TokString) {
    expr = newExpression(JSExpression::STRING);
    expr->string = copyString(token);
  } else {
    pushBack();
  }
  return expr;
}

// ExpressionList: [ Assignment { "," Assignment } ]
JSArg* JSParser::parseExpressionList() {
  JSExpression* first = parseAssignment();
  if (first == nullptr) return nullptr;
  JSArg* head = newRecord<JSArg>();
  head->expr = first;
  JSArg* last = head;
  for (;;) {
    nextToken();
    if (*token != ',') {
      pushBack();
      return head;
    }
    JSArg* next = newRecord<JSArg>();
    next->expr = parseAssignment();
    CHECK(next->expr != NULL);
    last->next = next;
    last = next;
  }
}

bool readLiteral(const char* literal, double* value) {
  bool legacyOctal = literal[0] == '0' && isDecimalDigit(literal[1]);
  *value = legacyOctal ? double(strtoull(literal, nullptr, 8)) : strtod(literal, nullptr);
  return std::isfinite(*value);
}

/* ---------------------------------------------------------------------------
 * Printer: statements one to a line, no indentation, no blanks but where needed
 * ------------------------------------------------------------------------ */

namespace {

void printExpression(FILE* stream, const JSExpression* expr);
void printStatements(FILE* stream, const JSStatement* stmt);

void printText(FILE* stream, const char* text) { fputs(text, stream); }

void printOptional(FILE* stream, const JSExpression* expr) {
  if (expr != nullptr) printExpression(stream, expr);
}

void printList(FILE* stream, const JSArg* list) {
  for (const JSArg* arg = list; arg != nullptr; arg = arg->next) {
    if (arg != list) printText(stream, ",");
    printExpression(stream, arg->expr);
  }
}

// The script text stands inside a VRML string: quotes and backslashes are escaped.
void printString(FILE* stream, const char* text) {
  for (const char* c = text; *c != 0; c++) {
    if (*c == '"' || *c == '\\') putc('\\', stream);
    putc(*c, stream);
  }
}

// Room for the text of a number that the printer makes.
constexpr size_t kNumberTextSize = 32;

// The text of a number: under --vrml97 a literal in the shortest text of its
// double ("1.0" as "1", "0x1F" as "31") or else as written; a folded constant
// as the writer prints a float. Made in `buffer` unless it is the literal.
const char* numberText(char* buffer, const JSExpression* expr) {
  double value;
  if (expr->literal != nullptr) {
    if (!readLiteral(expr->literal, &value)) return expr->literal;
    *formatDouble(buffer, value) = 0;
  } else if (expr->type == JSExpression::FLOAT) {
    *formatFloat(buffer, expr->floatValue) = 0;
  } else {
    snprintf(buffer, kNumberTextSize, "%d", expr->intValue);
  }
  return buffer;
}

// What stands between a number written with digits alone and a member point
// behind it, which would otherwise join the number: a second point ("1..x").
// Empty for any other expression.
const char* memberPointGap(const JSExpression* expr) {
  if (expr->type != JSExpression::FLOAT && expr->type != JSExpression::INT) return "";
  char buffer[kNumberTextSize];
  const char* text = numberText(buffer, expr);
  return strspn(text, "0123456789") == strlen(text) ? "." : "";
}

// The part of the expression whose text comes first: itself, or its leftmost
// operand, down as far as the text begins there.
const JSExpression* leftmost(const JSExpression* expr) {
  for (;;) {
    switch (expr->type) {
    case JSExpression::BINARY:
    case JSExpression::INDEX:
      expr = expr->binary.expr1;
      break;
    case JSExpression::CONDITIONAL:
      expr = expr->conditional.test;
      break;
    case JSExpression::POSTFIX:
      expr = expr->unary.expr;
      break;
    case JSExpression::CALL:
      expr = expr->call.function;
      break;
    default:
      return expr;
    }
  }
}

// The first character that the expression's text will have.
char leadingChar(const JSExpression* expr) {
  const JSExpression* first = leftmost(expr);
  switch (first->type) {
  case JSExpression::UNARY:
    return first->unary.token[0];
  case JSExpression::FLOAT:
  case JSExpression::INT: {
    char buffer[kNumberTextSize];
    return numberText(buffer, first)[0];
  }
  default:
    return 0;  // a name, a word, a quote or a parenthesis: never a sign
  }
}

bool beginsWithUnary(const JSExpression* expr, const char* token) {
  const JSExpression* first = leftmost(expr);
  return first->type == JSExpression::UNARY && isWord(first->unary.token, token);
}

// Whether the operand's text begins with "!--": after a "<" browsers would
// read "<!--" as the start of a comment.
bool beginsWithNotDecrement(const JSExpression* operand) {
  return beginsWithUnary(operand, "!") && beginsWithUnary(leftmost(operand)->unary.expr, "--");
}

// An operator ending in a sign gets a blank before an operand that begins with
// the same sign, so that "- -b" is not read back as "--b"; under --vrml97 a
// "<" gets one before "!--".
void printOperand(FILE* stream, const char* token, const JSExpression* operand) {
  printText(stream, token);
  char last = token[strlen(token) - 1];
  if ((last == '+' || last == '-') && leadingChar(operand) == last) printText(stream, " ");
  if (vrml97Option() && isWord(token, "<") && beginsWithNotDecrement(operand)) {
    printText(stream, " ");
  }
  printExpression(stream, operand);
}

void printExpression(FILE* stream, const JSExpression* expr) {
  switch (expr->type) {
  case JSExpression::OBJECT:
    printText(stream, expr->object.name);
    return;
  case JSExpression::UNARY:
    if (expr->unary.tokType == TokId) {
      fprintf(stream, "%s ", expr->unary.token);
      printExpression(stream, expr->unary.expr);
    } else {
      printOperand(stream, expr->unary.token, expr->unary.expr);
    }
    return;
  case JSExpression::BINARY: {
    printExpression(stream, expr->binary.expr1);
    if (vrml97Option() && isWord(expr->binary.token, ".")) {
      printText(stream, memberPointGap(expr->binary.expr1));
    }
    printOperand(stream, expr->binary.token, expr->binary.expr2);
    return;
  }
  case JSExpression::CONDITIONAL:
    printExpression(stream, expr->conditional.test);
    printText(stream, "?");
    printExpression(stream, expr->conditional.expr1);
    printText(stream, ":");
    printExpression(stream, expr->conditional.expr2);
    return;
  case JSExpression::POSTFIX:
    printExpression(stream, expr->unary.expr);
    printText(stream, expr->unary.token);
    return;
  case JSExpression::PAREN:
    printText(stream, "(");
    printExpression(stream, expr->paren.expr);
    printText(stream, ")");
    return;
  case JSExpression::INDEX:
    printExpression(stream, expr->binary.expr1);
    printText(stream, "[");
    printExpression(stream, expr->binary.expr2);
    printText(stream, "]");
    return;
  case JSExpression::CALL:
    printExpression(stream, expr->call.function);
    printText(stream, "(");
    printList(stream, expr->call.argList);
    printText(stream, ")");
    return;
  case JSExpression::NEW:
    fprintf(stream, "new %s(", expr->construct.name);
    printList(stream, expr->construct.argList);
    printText(stream, ")");
    return;
  case JSExpression::FLOAT:
  case JSExpression::INT: {
    char buffer[kNumberTextSize];
    printText(stream, numberText(buffer, expr));
    return;
  }
  case JSExpression::BOOLEAN:
    printText(stream, expr->boolValue ? "true" : "false");
    return;
  case JSExpression::STRING:
    printString(stream, expr->string);
    return;
  case JSExpression::VAR:
    printText(stream, "var ");
    printList(stream, expr->var.argList);
    return;
  default:
    CHECK(0);
  }
}

void printStatement(FILE* stream, const JSStatement* stmt) {
  switch (stmt->type) {
  case JSStatement::FOR:
    printText(stream, "for(");
    printOptional(stream, stmt->forStmt.init);
    printText(stream, ";");
    printOptional(stream, stmt->forStmt.test);
    printText(stream, ";");
    printOptional(stream, stmt->forStmt.update);
    printText(stream, ")");
    printStatements(stream, stmt->forStmt.body);
    return;
  case JSStatement::IF:
    printText(stream, "if(");
    printExpression(stream, stmt->ifStmt.test);
    printText(stream, ")");
    printStatements(stream, stmt->ifStmt.stmt1);
    if (stmt->ifStmt.stmt2 != nullptr) {
      printText(stream, "else ");
      printStatements(stream, stmt->ifStmt.stmt2);
    }
    return;
  case JSStatement::WHILE:
    printText(stream, "while(");
    printExpression(stream, stmt->whileStmt.test);
    printText(stream, ")");
    printStatements(stream, stmt->whileStmt.body);
    return;
  case JSStatement::BLOCK:
    printText(stream, "{\n");
    printStatements(stream, stmt->stmts);
    printText(stream, "}\n");
    return;
  case JSStatement::SWITCH:
    printText(stream, "switch (");
    printExpression(stream, stmt->switchStmt.test);
    printText(stream, ") {\n");
    printStatements(stream, stmt->switchStmt.body);
    printText(stream, "}\n");
    return;
  case JSStatement::CASE:
    printText(stream, "case ");
    printExpression(stream, stmt->expr);
    printText(stream, ":\n");
    return;
  case JSStatement::BREAK:
  case JSStatement::CONTINUE:
    printText(stream, stmt->type == JSStatement::BREAK ? "break" : "continue");
    if (stmt->label != nullptr) fprintf(stream, " %s", stmt->label);
    printText(stream, ";\n");
    return;
  case JSStatement::RETURN:
    printText(stream, "return");
    if (stmt->expr != nullptr) {
      printText(stream, " ");
      printExpression(stream, stmt->expr);
    }
    printText(stream, ";\n");
    return;
  case JSStatement::EXPRESSION:
    printExpression(stream, stmt->expr);
    printText(stream, ";\n");
    return;
  case JSStatement::EMPTY:
    printText(stream, ";\n");
    return;
  default:
    CHECK(0);
  }
}

void printStatements(FILE* stream, const JSStatement* stmt) {
  for (; stmt != nullptr; stmt = stmt->next) printStatement(stream, stmt);
}

}  // namespace

void JSParser::printFunctions(FILE* stream) {
  for (const JSFunction* function = functions; function != nullptr; function = function->next) {
    if (strcmp(function->name, kLoadFunctionName) == 0) {
      printStatements(stream, function->body);
      continue;
    }
    fprintf(stream, "function %s(", function->name);
    for (const JSParam* param = function->params; param != nullptr; param = param->next) {
      fprintf(stream, param == function->params ? "%s" : ",%s", param->name);
    }
    printText(stream, ") {\n");
    printStatements(stream, function->body);
    printText(stream, "}\n");
  }
}
