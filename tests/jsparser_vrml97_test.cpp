#include <gtest/gtest.h>

#include "main.h"
#include "test_util.h"

namespace {

// Runs `body` as a run with --vrml97 would.
template <class Body>
auto asVrml97(Body body) {
  setRunOptions(1, 0);
  auto result = body();
  setRunOptions(0, 0);
  return result;
}

TEST(Vrml97Scripts, SemicolonsAreInsertedAsEcmaScriptSays) {
  struct {
    const char* script;
    const char* printed;
  } cases[] = {
      {"function f() { a = 1\n b = 2 }", "function f() {\na=1;\nb=2;\n}\n"},
      {"function f() { x = 1 }", "function f() {\nx=1;\n}\n"},
      {"function f() { if (a) b = 1\n else c = 2\n }", "function f() {\nif(a)b=1;\nelse c=2;\n}\n"},
      // The restricted forms: a line break ends return and break, and comes
      // before a prefix, not a postfix, operator.
      {"function f() { return\n a }", "function f() {\nreturn;\na;\n}\n"},
      {"function f() { while (a) { break\n b } }", "function f() {\nwhile(a){\nbreak;\nb;\n}\n}\n"},
      {"function f() { a\n++b }", "function f() {\na;\n++b;\n}\n"},
      // A carriage return that no line feed follows ends a line too, and with
      // it a line comment.
      {"function f() { return\r a }", "function f() {\nreturn;\na;\n}\n"},
      {"function f() { // c\r a = 1 }", "function f() {\na=1;\n}\n"},
      {"function f() { return\r\n a }", "function f() {\nreturn;\na;\n}\n"},
      // A member of a number written with digits alone takes a point of its own.
      {"function f() { a = 0 .b; c = 1.5.d; }", "function f() {\na=0..b;\nc=1.5.d;\n}\n"},
      // Statements outside the functions come first, in their order.
      {"var k = 2\nfunction f() { }\nk = 3", "var k=2;\nk=3;\nfunction f() {\n}\n"},
      // A "<" keeps a blank before "!--": browsers read "<!--" as the start of
      // a comment, not after "<<" or "<=".
      {"function f() { a = t < !--v; b = t < !--v * 2; c = t <= !--v; d = t << !--v; e = t < !v--; }",
       "function f() {\na=t< !--v;\nb=t< !--v*2;\nc=t<=!--v;\nd=t<<!--v;\ne=t<!v--;\n}\n"},
  };
  for (const auto& c : cases) {
    EXPECT_EQ(asVrml97([&]() { return printedScript(c.script); }), c.printed) << c.script;
  }
  EXPECT_EXIT(printedScript("function f() { a = 1\n b = 2 }"), testing::ExitedWithCode(253),
              literally("Error: Line 2: ';' expected, got 'b'"));
  EXPECT_EXIT(printedScript("var k = 2; function f() { }"), testing::ExitedWithCode(253),
              checkReport("tokType == TokNone"));
}

// A literal in the shortest text of its double; one that reads as a whole
// number keeps a point before a member point.
TEST(Vrml97Scripts, NumbersInTheShortestTextOfTheirDouble) {
  const struct {
    const char* literal;
    const char* printed;
  } cases[] = {
      {"1.0", "1"},          {"0.50", ".5"},           {"0x1F", "31"},
      {"017", "15"},         {"00", "0"},               {"100000", "1e5"},
      {"0.0000002", "2e-7"}, {"4294967296.0", "4294967296."},
      {"1e999", "1e999"},    {"1..toString()", "1..toString()"},
      {"0x1F.toString()", "31..toString()"},         {"1.5.toFixed(1)", "1.5.toFixed(1)"},
      {"1000.0.toFixed(1)", "1e3.toFixed(1)"},       {"a- -0.5", "a- -.5"},
      // 17 octal digits hold 51 bits, exact in a double.
      {"077777777777777777", "2251799813685247."},
  };
  for (const auto& c : cases) {
    std::string script = std::string("function f() { x = ") + c.literal + "; }";
    EXPECT_EQ(asVrml97([&]() { return printedScript(script); }),
              std::string("function f() {\nx=") + c.printed + ";\n}\n")
        << c.literal;
  }
}

// ECMAScript runs the last function of a name; the earlier ones never run.
TEST(Vrml97Scripts, TheLastFunctionOfANameReplacesTheOthers) {
  EXPECT_EQ(asVrml97([]() {
              return printedScript("function f() { a = 1; } function g() { } function f() { a = 2; }");
            }),
            "function g() {\n}\nfunction f() {\na=2;\n}\n");
}

// Points of scripts that stop a run without --vrml97; with it each runs (the
// golden cases vrml97-* of the same names).
struct ScriptCase {
  const char* what;
  const char* world;
  const char* withoutOption;  ///< the start of the report that stops the run
};

const ScriptCase kScriptCases[] = {
    {"statements outside the functions run before initialize",
     R"(DEF S Script { eventOut SFBool lit url "javascript: lit = true; function initialize() { }" }
DEF L PointLight { }
ROUTE S.lit TO L.on)",
     "Assertion failed \"tokType == TokNone\""},
    {"a url whose first entry is inline code keeps its other entries",
     R"(DEF S Script { eventOut SFBool lit
  url [ "javascript: function initialize() { lit = true; }" "lit.js" ] }
DEF L PointLight { }
ROUTE S.lit TO L.on)",
     "Assertion failed \"value->next == NULL\""},
    {"an opaque Script: the url as read, the whole interface, every child of what it reaches",
     R"(DEF SW Switch { whichChoice 0 choice [ Box { } Sphere { } ] }
DEF L PointLight { }
DEF S Script { field SFNode sw USE SW eventOut SFBool unused eventOut SFBool lit
  url [ "switcher.class" "javascript: function initialize() { }" ] }
ROUTE S.lit TO L.on)",
     "Assertion failed \"value->next == NULL\""},
    {"a method of a node is read as an unknown value",
     R"(DEF G Group { }
Script { field SFNode g USE G url "javascript: function initialize() { print(g.toString()); }" })",
     "Error: Node Group::G does not have a field named toString"},
    {"a Script that a check stops becomes opaque",
     R"(DEF G Group { }
Script { field SFNode g USE G url "javascript: function initialize() { g.children = new MFNode(); }" })",
     "Assertion failed \"eventData->valueKnown && fuzzy->valueKnown\""},
};

TEST(Vrml97Scripts, EachPointStopsWithoutTheOption) {
  for (const ScriptCase& c : kScriptCases) {
    EXPECT_EXIT(compressedWorld(c.world), testing::ExitedWithCode(253), literally(c.withoutOption))
        << c.what;
  }
}

std::string scriptWorld(const char* script) {
  return std::string("Script { url \"javascript: ") + script + "\" }";
}

// A Script whose code is opaque is written under --vrml97 as it was read.
void expectWrittenAsRead(const char* script) {
  EXPECT_EQ(asVrml97([&]() { return compressedWorld(scriptWorld(script)); }),
            std::string("#VRML V2.0 utf8\nScript{\nurl\"javascript: ") + script + "\"}")
      << script;
}

TEST(Vrml97Scripts, ConstructsThatTheSimulatorDoesNotModelMakeTheScriptOpaque) {
  const char* scripts[] = {
      "function initialize() { do { n = n + 1; } while (n < 3); }",
      "function initialize() { var a = [1, 2]; }",
      "function initialize() { try { f(); } catch (e) { } }",
      "var f = function () { };",
  };
  for (const char* script : scripts) {
    EXPECT_EXIT(compressedWorld(scriptWorld(script)), testing::ExitedWithCode(253), "") << script;
    expectWrittenAsRead(script);
  }
}

// Code that cannot load does nothing; the Script keeps it as read: a string
// that the text ends before its closing quote, a number or a string behind a
// member's dot, a number that begins with a dot where a member could stand,
// numbers that ECMAScript does not read or that browsers read differently,
// an unclosed comment, a return outside a function.
TEST(Vrml97Scripts, CodeThatCannotLoadMakesTheScriptOpaque) {
  const char* scripts[] = {
      "function initialize() { } s = 'open",
      "function initialize() { v = a.7; }",
      "function initialize() { v = a.'x'; }",
      "function initialize() { v = a .5 c; }",
      "function initialize() { v = 1e\n+2; }",
      "function initialize() { v = 0x; }",
      "function initialize() { v = 00x1; }",
      "function initialize() { v = 0x1g; }",
      "function initialize() { v = 019; }",
      "function initialize() { v = 09.5; }",
      "function initialize() { v = 017e1; }",
      "function initialize() { v = 00.5; }",
      "function initialize() { v = 0777777777777777777; }",
      "function initialize() { } /* open",
      "return; function initialize() { }",
      "function initialize(a b) { }",
  };
  for (const char* script : scripts) expectWrittenAsRead(script);
}

// Code that ECMAScript refuses as it loads, in a branch that never runs: the
// simulation would cut the branch, and the Script would load where it did not.
TEST(Vrml97Scripts, CodeThatCannotLoadInABranchThatNeverRunsIsKept) {
  const char* pieces[] = {
      // What no assignment, "++" or "--" can write to; a postfix "!" or "~".
      "a!;", "a ~;", "3 = 4;", "++3;", "a++--;", "f() = 1;", "(a + 1)++;", "this = 1;",
      // Reserved words as names.
      "x = while;", "var if;", "x.if = 1;", "x = a.this;", "x = int;", "f(class);",
      // Statements out of their place.
      "case 1: x = 1;", "break;", "continue;", "switch (a) { case 1: continue; }",
      "switch (a) { b(); case 1: }", "while (a) break out;", "x = (var y);", "if (var y) x = 1;",
      // What an operator, a string or a comment means to a browser alone.
      "delete x = 1;", "x = a <!-- b;", "x = 'a\nb';", "x = 019;", "x = new a.b;",
  };
  for (const char* piece : pieces) {
    std::string script = std::string("function initialize() { if (false) { ") + piece + " } }";
    expectWrittenAsRead(script.c_str());
  }
  // Code that loads goes; the names it declared stay declared.
  const struct {
    const char* piece;
    const char* pared;
  } loading[] = {
      {"(a)++; a.b--; --a[0]; x = this.y; x = null; var p, q = 1; delete x.y; x = a < !--b;",
       "var p,q;\n"},
      {"for (;;) { if (a) continue; break; } switch (a) { case 1: break; } x = 00;", ""},
  };
  for (const auto& c : loading) {
    std::string script = std::string("function initialize() { if (false) { ") + c.piece + " } }";
    EXPECT_EQ(asVrml97([&]() { return compressedWorld(scriptWorld(script.c_str())); }),
              std::string("#VRML V2.0 utf8\nScript{\nurl\"javascript:\nfunction initialize() {\n") +
                  c.pared + "}\n\"}")
        << c.piece;
  }
}

TEST(Vrml97Scripts, EventsThatOnlyTheWiderRulesSeeKeepTheirReceivers) {
  struct {
    const char* what;
    const char* world;
  } cases[] = {
      {"a component assignment changes the whole eventOut",
       R"(DEF TS TouchSensor { }
DEF A Script { eventIn SFTime go eventOut SFVec3f out url "javascript: function go(t) { out[0] = 1; }" }
DEF R Script { eventIn SFVec3f receive url "javascript: function receive(v) { print(v); }" }
ROUTE TS.touchTime TO A.go
ROUTE A.out TO R.receive)"},
      {"a Script that makes routes may deliver to every eventIn it reaches",
       R"(DEF R Script { eventIn SFVec3f receive url "javascript: function receive(v) { print(v); }" }
Script { field SFNode r USE R
  url "javascript: function initialize() { Browser.addRoute(r, 'receive', r, 'receive'); }" })"},
  };
  for (const auto& c : cases) {
    EXPECT_EQ(compressedWorld(c.world).find("function receive"), std::string::npos) << c.what;
    std::string written = asVrml97([&]() { return compressedWorld(c.world); });
    EXPECT_NE(written.find("function receive(v) {\nprint(v);\n}"), std::string::npos)
        << c.what << "\n" << written;
  }
}

// A var name is the call's own from its start, even where the var never runs:
// `out` below is a local, and no event leaves. So is a parameter that no
// argument fills: `y` is undefined, not the field y. Outside the functions a
// var of a name of the interface means what the browser makes of it: not
// followed.
TEST(Vrml97Scripts, VarNamesAndParametersAreTheCallsOwn) {
  const char* world = R"(DEF T TouchSensor { }
DEF S Script { eventIn SFTime touch eventOut SFFloat out
  url "javascript: function touch(t) { out = 1; if (false) { var out; } }" }
DEF P PositionInterpolator { }
ROUTE T.touchTime TO S.touch
ROUTE S.out TO P.set_fraction)";
  std::string written = asVrml97([&]() { return compressedWorld(world); });
  EXPECT_NE(written.find("function touch(t) {\nvar out;\nout=1;\n}"), std::string::npos) << written;
  EXPECT_EQ(written.find("ROUTE S.out"), std::string::npos) << written;
  const char* missing = R"(DEF S Script { field SFBool y TRUE eventOut SFFloat out
  url "javascript: function h(x, y) { if (y) { out = 1; } else { out = 2; } } function initialize() { h(1); }" }
DEF P PositionInterpolator { }
ROUTE S.out TO P.set_fraction)";
  written = asVrml97([&]() { return compressedWorld(missing); });
  EXPECT_NE(written.find("function h(x,y) {\nif(y)out=1;\nelse out=2;\n}"), std::string::npos) << written;
  const char* global = R"(Script { eventOut SFFloat out url "javascript: var out; function initialize() { }" })";
  EXPECT_EQ(asVrml97([&]() { return compressedWorld(global); }),
            "#VRML V2.0 utf8\nScript{\neventOut SFFloat out\n"
            "url\"javascript: var out; function initialize() { }\"}");
}

// What the cuts leave must throw where the script threw, and bind each name
// as it did: a read of a name that nothing declares and a member of what may
// be undefined stay, though they change nothing (the call ends there); a var
// in cut code is declared again.
TEST(Vrml97Scripts, CutsKeepWhatThrowsAndWhatDeclares) {
  const struct {
    const char* body;
    const char* pared;
  } cases[] = {
      {"zz; t; out = 1;", "function touch(t) {\nzz;\nout=1;\n}"},
      {"var v; v.x; out = 1;", "function touch(t) {\nvar v;\nv.x;\nout=1;\n}"},
      {"q = 5; if (false) { var q, r; } out = q;", "function touch(t) {\nvar q,r;\nq=5;\nout=q;\n}"},
      // A local of the name of a field is written, though the field is not.
      {"var f = 1; f = t; out = f;", "function touch(t) {\nvar f=1;\nf=t;\nout=f;\n}"},
  };
  for (const auto& c : cases) {
    std::string world = std::string(R"(DEF T TouchSensor { }
DEF S Script { eventIn SFTime touch field SFFloat f 3 eventOut SFFloat out
  url "javascript: function touch(t) { )") +
                        c.body + R"( }" }
DEF P PositionInterpolator { }
ROUTE T.touchTime TO S.touch
ROUTE S.out TO P.set_fraction)";
    std::string written = asVrml97([&]() { return compressedWorld(world); });
    EXPECT_NE(written.find(c.pared), std::string::npos) << c.body << "\n" << written;
  }
}

TEST(Vrml97Scripts, NegationOfANumberAndStringReadsAreFollowed) {
  const char* world = R"(DEF S Script { eventIn SFInt32 set field SFString label "a" eventOut SFBool lit
  url "javascript: function set(n) { lit = !n; print(label); }" }
DEF I Script { eventOut SFInt32 n url "javascript: function initialize() { n = 2; }" }
DEF L PointLight { }
ROUTE I.n TO S.set
ROUTE S.lit TO L.on)";
  EXPECT_EXIT(compressedWorld(world), testing::ExitedWithCode(253), checkReport("0"));
  std::string written = asVrml97([&]() { return compressedWorld(world); });
  EXPECT_NE(written.find("function set(n) {\nlit=!n;\nprint(label);\n}"), std::string::npos)
      << written;
}

TEST(Vrml97Scripts, AssignmentOfTheOneNodeAFieldCanHoldIsKept) {
  // slot is NULL, then SW: the read that skips NULL sees SW alone, yet the
  // assignment changes slot, so it stays (and with it the field s).
  const char* world = R"(DEF SW Switch { choice [ ] }
DEF SLOT Script { field SFNode slot NULL url "javascript: function initialize() { var x = slot; print(x); }" }
Script { field SFNode s USE SLOT field SFNode sw USE SW
  url "javascript: function initialize() { s.slot = sw; }" })";
  EXPECT_EXIT(compressedWorld(world), testing::ExitedWithCode(253), checkReport("nodeType == OTHER"));
  std::string written = asVrml97([&]() { return compressedWorld(world); });
  EXPECT_NE(written.find("s.slot=sw;"), std::string::npos) << written;
}

}  // namespace
