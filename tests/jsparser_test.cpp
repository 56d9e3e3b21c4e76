#include "jsparser.h"

#include <gtest/gtest.h>

#include "test_util.h"

namespace {

// The tokens of the text as "class:text", with "=value" behind numbers and
// truth values.
std::vector<std::string> scriptTokens(const std::string& input) {
  static JSParser* parser = newParser();
  std::string text = input;
  parser->cursor = &text[0];
  parser->savedChar = text[0];
  parser->lineNumber = 1;
  parser->pushedBack = 0;
  std::vector<std::string> tokens;
  for (parser->nextToken(); parser->tokType != TokNone; parser->nextToken()) {
    char value[32] = "";
    if (parser->tokType == TokInt || parser->tokType == TokBool) {
      snprintf(value, sizeof value, "=%d", parser->tokValue.intValue);
    } else if (parser->tokType == TokFloat) {
      snprintf(value, sizeof value, "=%g", parser->tokValue.floatValue);
    }
    tokens.push_back(std::to_string(parser->tokType) + ":" + parser->token + value);
  }
  return tokens;
}

// Classes: 1 name, 2 float, 3 integer, 4 boolean, 5 string, 6 assign, 7 ?,
// 8 ||, 9 &&, 10 |, 11 ^, 12 &, 13 equality, 14 relation, 15 shift,
// 16 additive, 17 multiplicative, 18 unary, 19 punctuation.
TEST(ScriptTokenizer, CutsTextIntoTokens) {
  struct {
    const char* text;
    std::vector<std::string> tokens;
  } cases[] = {
      {"", {}},
      {"  // only a comment\n /* and another */ ", {}},
      {"a/*x*/b", {"1:a", "1:b"}},
      {"a//x", {"1:a"}},
      {"1. .5 . 1.e3 2e", {"2:1.=1", "2:.5=0.5", "19:.", "2:1.e3=1000", "2:2e=2"}},
      {"0 00 0x 010 019 0x1F 0X1f 00x10",
       {"3:0=0", "3:00=0", "3:0x=0", "3:010=8", "3:019=17", "3:0x1F=31", "3:0X1f=31",
        "3:00x10=16"}},
      {"0.5 0e1 12abc", {"2:0.5=0.5", "2:0e1=0", "3:12=12", "1:abc"}},
      {"a+++b", {"1:a", "18:++", "16:+", "1:b"}},
      {"a>>>=b>>>c>>=d>>e>=f>g", {"1:a", "6:>>>=", "1:b", "15:>>>", "1:c", "6:>>=", "1:d",
                                  "15:>>", "1:e", "14:>=", "1:f", "14:>", "1:g"}},
      {"<<= << <= < == = != ! === !==",
       {"6:<<=", "15:<<", "14:<=", "14:<", "13:==", "6:=", "13:!=", "18:!", "13:==", "6:=",
        "13:!=", "6:="}},
      {"&& &= & || |= | ^= ^ %= % *= * /= / += -= -- ~ ?",
       {"9:&&", "6:&=", "12:&", "8:||", "6:|=", "10:|", "6:^=", "11:^", "6:%=", "17:%", "6:*=",
        "17:*", "6:/=", "17:/", "6:+=", "6:-=", "18:--", "18:~", "7:?"}},
      {"( ) , : ; [ ] { }",
       {"19:(", "19:)", "19:,", "19::", "19:;", "19:[", "19:]", "19:{", "19:}"}},
      {"'say \"hi\"' \"it's\" 'it\\'s'", {"5:'say \"hi\"'", "5:\"it's\"", "5:'it\\'s'"}},
      {"true false truex TRUE", {"4:true=1", "4:false=0", "1:truex", "1:TRUE"}},
      {"\"open", {"5:\"open"}},
  };
  for (const auto& c : cases) EXPECT_EQ(scriptTokens(c.text), c.tokens) << c.text;
}

TEST(ScriptTokenizer, CharacterOutsideEveryTokenStops) {
  for (const char* text : {"a # b", "$x", "@", "\\", "`", "\x01", "\xc3\xa9"}) {
    EXPECT_EXIT(scriptTokens(text), testing::ExitedWithCode(253), checkReport("0")) << text;
  }
}

TEST(ScriptParser, BreakTakesTheNameOnTheNextLineAsItsLabel) {
  JSParser* program = parseProgram("function f() { while (a) { break\nouter; } }");
  EXPECT_STREQ(program->functions->body->whileStmt.body->stmts->label, "outer");
}

// Each text stops the parse with the check that guards it.
TEST(ScriptParser, TextOutsideTheSubsetStopsWithItsCheck) {
  struct {
    const char* script;
    const char* check;
  } cases[] = {
      {"var x = 1; function f() {}", "tokType == TokNone"},
      {"function f() {} x", "tokType == TokNone"},
      {"function () {}", "tokType == TokId"},
      {"function f {}", "*token == '('"},
      {"function f(a,) {}", "tokType == TokId"},
      {"function f(a; b) {}", "*token == ')'"},
      {"function f() return;", "*token == '{'"},
      {"function f() { a; ) }", "*token == '}'"},
      {"function f() {", "*token == '}'"},
      {"function f() { with (a) b; }", "strcmp (token, \"with\") != 0"},
      {"function f() { do a; while (b); }", "strcmp (token, \"do\") != 0"},
      {"function f() { switch (a) { default: b; } }", "strcmp (token, \"default\") != 0"},
      {"function f() { for (a, b, c; ;) ; }", "*token == ';'"},
      {"function f() { for (i in a) ; }", "*token == ';'"},
      {"function f() { for (;;) }", "stmt->forStmt.body != NULL"},
      {"function f() { if () a; }", "stmt->ifStmt.test != NULL"},
      {"function f() { if (a) }", "stmt->ifStmt.stmt1 != NULL"},
      {"function f() { if (a) b; else }", "stmt->ifStmt.stmt2 != NULL"},
      {"function f() { while () a; }", "stmt->whileStmt.test != NULL"},
      {"function f() { while (a) }", "stmt->whileStmt.body != NULL"},
      {"function f() { switch () { } }", "stmt->switchStmt.test != NULL"},
      {"function f() { switch (a) }", "*token == '{'"},
      {"function f() { switch (a) { case : b; } }", "stmt->expr != NULL"},
      {"function f() { switch (a) { case 1 b; } }", "*token == ':'"},
      {"function f() { delete; }", "expr->unary.expr != NULL"},
      {"function f() { var; }", "expr->var.argList != NULL"},
      {"function f() { var 1; }", "myexpr->type == JSExpression::BINARY"},
      {"function f() { var a += 1; }",
       "myexpr->binary.token[0] == '=' && myexpr->binary.token[1] == 0"},
      {"function f() { var a == 1; }",
       "myexpr->binary.token[0] == '=' && myexpr->binary.token[1] == 0"},
      {"function f() { var a.b = 1; }", "myexpr->binary.expr1->type == JSExpression::OBJECT"},
      {"function f() { a = ; }", "expr->binary.expr2 != NULL"},
      {"function f() { a == = b; }", "expr->binary.expr2 != NULL"},
      {"function f() { a || ; }", "expr->binary.expr2 != NULL"},
      {"function f() { a, ; }", "expr->binary.expr2 != NULL"},
      {"function f() { a. ; }", "expr->binary.expr2 != NULL"},
      {"function f() { a[]; }", "expr->binary.expr2 != NULL"},
      {"function f() { a[1; }", "*token == ']'"},
      {"function f() { -; }", "expr->unary.expr != NULL"},
      {"function f() { a ? : b; }", "expr->conditional.expr1 != NULL"},
      {"function f() { a ? b ; }", "*token == ':'"},
      {"function f() { a ? b : ; }", "expr->conditional.expr2 != NULL"},
      {"function f() { (); }", "expr->paren.expr != NULL"},
      {"function f() { (a; }", "*token == ')'"},
      {"function f() { f(a,); }", "next->expr != NULL"},
      {"function f() { f(a; }", "*token == ')'"},
      {"function f() { new 3; }", "tokType == TokId"},
  };
  for (const auto& c : cases) {
    EXPECT_EXIT(parseProgram(c.script), testing::ExitedWithCode(253), checkReport(c.check))
        << c.script;
  }
}

TEST(ScriptParser, MissingSemicolonIsARecoverableError) {
  EXPECT_EXIT(parseProgram("function f() {\n a = 1\n b = 2; }"), testing::ExitedWithCode(253),
              "^Error: Line 3: ';' expected, got 'b'\nStack dump:\n$");
  EXPECT_EXIT(parseProgram("function f() { a, b, c; }"), testing::ExitedWithCode(253),
              "Error: Line 1: ';' expected, got ','");
  EXPECT_EXIT(parseProgram("function f() { return }"), testing::ExitedWithCode(253),
              "Error: Line 1: ';' expected, got '}'");
  EXPECT_EXIT(parseProgram("function f() { function g() {} }"), testing::ExitedWithCode(253),
              "Error: Line 1: ';' expected, got 'g'");
}

TEST(ScriptPrinter, WritesEveryKindInNormalForm) {
  EXPECT_EQ(printedScript(R"js(function f(a, b, c) {
  // a comment
  for (var i = 0x10, n = 017; i < n; i++) { x += 1.50; }
  for (;;) ;
  if (a) ; else b = 'it\'s';
  if (a) { b(); }
  while (a) continue outer;
  switch (a) { case 1: break; case "x": return; }
  return typeof a + void b - -c + +d;
  x = new Foo + new Bar(1, 2.0) + 3.14159265 + 1e-7 + 1e21;
  delete x.y; a - --b; a + ++b; a++ + b; -(-a); !~a;
  x = a ? b : c; x = s[i]; x = "q\\";
}
function g() {}
)js"),
            R"vrml(function f(a,b,c) {
for(var i=16,n=15;i<n;i++){
x+=1.5;
}
for(;;);
if(a);
else b='it\\'s';
if(a){
b();
}
while(a)continue outer;
switch (a) {
case 1:
break;
case \"x\":
return;
}
return typeof a+void b- -c+ +d;
x=new Foo()+new Bar(1,2)+3.14159+1e-07+1e+21;
delete x.y;
a- --b;
a+ ++b;
a+++b;
-(-a);
!~a;
x=a?b:c;
x=s[i];
x=\"q\\\\\";
}
function g() {
}
)vrml");
}

TEST(ScriptPrinter, NegativeConstantBehindAMinusKeepsItsBlank) {
  JSParser* program = parseProgram("function f() { a - b; }");
  JSExpression* minus = program->functions->body->expr;
  minus->binary.expr2->type = JSExpression::INT;  // as folding leaves it
  minus->binary.expr2->intValue = -5;
  EXPECT_EQ(printedText([program](FILE* stream) { program->printFunctions(stream); }),
            "function f() {\na- -5;\n}\n");
}

// The printed text with the escapes of the VRML string undone.
std::string scriptOfPrinted(const std::string& printed) {
  std::string text;
  for (size_t i = 0; i < printed.size(); i++) {
    if (printed[i] == '\\') i++;
    text += printed[i];
  }
  return text;
}

// Printing, parsing what was printed and printing again gives the same text.
void expectFixedPoint(const std::string& script) {
  std::string printed = printedScript(script);
  EXPECT_EQ(printedScript(scriptOfPrinted(printed)), printed) << script;
}

TEST(ScriptPrinter, PrintedTextReadsBackToItself) {
  const char* scripts[] = {
      R"js(function f(a) { if (a) if (b) c; else d; else { e; } })js",
      R"js(function f() { x = a - -b + - - c - --d + (e, f) * (g = h) ? i : j; })js",
      R"js(function f() { for (i = 0, j = 1; i < j; i += 2) while (k) { break; } })js",
      R"js(function f() { x = 'single "double" \\ \''; y = "a\"b"; })js",
      R"js(function f() { a = b >>> 2 >> 1 << 3 & 4 | 5 ^ 6 && !7 || ~8 % 9 / 10; })js",
      R"js(function f() { a = 1e-10 + 123456789 + 0.000123 + 017 + 0xffffffff; })js",
      R"js(function f() { switch (x) { case 1: case 2: a(); break; } return a.b[c](d)(e); })js",
      R"js(function f() { ; ; {} var a = new X, b = new Y(1); a++ + +b; typeof typeof a; })js",
      R"js(function f() { x = a <= b >= c != d == e; x -= 1; x *= 2; x /= 3; x %= 4; })js",
      R"js(function f() { x <<= 1; x >>= 2; x >>>= 3; x &= 4; x |= 5; x ^= 6; })js",
      R"js(function f() { delete a.b; void 0; x = a > b, y = a < b; while (a) continue l; })js",
      R"js(function f() { while (a) { if (b) break; else continue; } return !a++ + -b--; })js",
  };
  for (const char* script : scripts) expectFixedPoint(script);
}

}  // namespace
