#include <gtest/gtest.h>

#include "jssimulate_test_util.h"

namespace {

// Calls each function named, with two arguments of any value, then rewrites
// and prints the script.
std::string prunedAfter(const std::string& script, std::vector<const char*> calls) {
  Simulation simulation(script);
  for (const char* name : calls) simulation.call(name, {anything(), anything()});
  return simulation.pruned();
}

TEST(ScriptPruning, FunctionsThatNothingReachedGo) {
  EXPECT_EQ(prunedAfter("function initialize() { used(); }\n"
                        "function used() { x = 1; }\n"
                        "function unused() { y = 2; }\n",
                        {"initialize"}),
            "function initialize() {\nused();\n}\nfunction used() {\nx=1;\n}\n");
  EXPECT_EQ(prunedAfter("function unused() { }", {}), "");
}

TEST(ScriptPruning, IfByItsTestsOverAllCalls) {
  Simulation simulation("function f(a) {\n"
                        "  if (true) g(); else h();\n"
                        "  if (false) h();\n"
                        "  if (a) g(); else h();\n"
                        "  if (1) g(); else h();\n"
                        "  if (true) { g(); g(); } g();\n"
                        "}\n"
                        "function g() {}\nfunction h() {}\n");
  simulation.call("f", {truth(1)});
  simulation.call("f", {truth(0)});
  EXPECT_EQ(simulation.pruned(),
            "function f(a) {\n"
            "g();\n"
            "if(a)g();\nelse h();\n"
            "if(1)g();\nelse h();\n"
            "g();\ng();\ng();\n"
            "}\n"
            "function g() {\n}\n"
            "function h() {\n}\n");
}

TEST(ScriptPruning, TestWithEffectsStaysWithTheBranchNeverTaken) {
  EXPECT_EQ(prunedAfter("function f() { if (g()) a(); else b(); if (h()) a(); else b(); }\n"
                        "function g() { return true; }\nfunction h() { return false; }\n"
                        "function a() {}\nfunction b() {}\n",
                        {"f"}),
            "function f() {\nif(g())a();\nelse b();\nif(h());\nelse b();\n}\n"
            "function g() {\nreturn true;\n}\nfunction h() {\nreturn false;\n}\n"
            "function a() {\n}\nfunction b() {\n}\n");
}

TEST(ScriptSimulation, LoopsRunToAFixedPoint) {
  Simulation simulation("function f(u) { x = 1; while (u) { y = x; x = 2; } }\n"
                        "function g() { for (i = 0; i < 3; i++) z = i; }\n");
  TestField* y = simulation.context.field("y", anything());
  TestField* z = simulation.context.field("z", anything());
  simulation.call("f", {someTruth()});
  simulation.call("g");
  EXPECT_EQ(y->assigned, (std::set<std::string>{"1", "number"}));
  EXPECT_EQ(z->assigned, (std::set<std::string>{"number"}));
}

TEST(ScriptSimulation, VariablesMergeWhatTheyAreGiven) {
  Simulation simulation("function f(c) { x = 1; y = x; x = 2; a = y; b = x;\n"
                        "  if (c) v = 1; else v = 2; w = v; q = 3; q = 3; r = q; }\n");
  TestField* a = simulation.context.field("a", anything());
  TestField* b = simulation.context.field("b", anything());
  TestField* w = simulation.context.field("w", anything());
  TestField* r = simulation.context.field("r", anything());
  simulation.call("f", {someTruth()});
  EXPECT_EQ(a->assigned, (std::set<std::string>{"1"}));
  EXPECT_EQ(b->assigned, (std::set<std::string>{"number"}));
  EXPECT_EQ(w->assigned, (std::set<std::string>{"number"}));
  EXPECT_EQ(r->assigned, (std::set<std::string>{"3"}));
}

// Each expression is assigned to a field of its own, which notes the value.
TEST(ScriptSimulation, ExpressionsGiveWhatCanDecideABranch) {
  struct {
    const char* expr;
    const char* assigned;  // "" when nothing reaches the field
  } cases[] = {
      {"1 < 2", "true"},           {"2 <= 2", "true"},        {"1 == 1", "true"},
      {"1 != 1", "false"},         {"3 >= 4", "false"},       {"1 > 2", "false"},
      {"u == 'x'", "truth"},       {"1 + 2", "number"},       {"-1", "-1"},
      {"u < 1", "truth"},          {"true ? 1 : 2", "1"},     {"u ? 1 : 2", "number"},
      {"x = y = 1", "1"},          {"(v += 1)", ""},          {"!(void u)", "truth"},
      {"(void u) < 1", "truth"},   {"(u += 1).m", "unknown"}, {"(void u)()", "unknown"},
      {"k < 2", "true"},           {"new Foo(g(), 2)", "unknown"}, {"o.m(u)", "unknown"},
      {"false && g()", "false"},   {"g()", "void"},           {"(1, 2)", "2"},
      {"-k", "-0|-1"},             {"n.missing", ""},         {"p = n", "object"},
      {"p.missing", ""},           {"\"s\"", "unknown"},      {"k", "1|0"},
  };
  std::string script = "function f(u) {\n";
  for (size_t i = 0; i < sizeof cases / sizeof cases[0]; i++) {
    script += "r" + std::to_string(i) + " = " + cases[i].expr + ";\n";
  }
  Simulation simulation(script + "}\nfunction g() { return; }\n");
  std::vector<TestField*> fields;
  for (size_t i = 0; i < sizeof cases / sizeof cases[0]; i++) {
    fields.push_back(simulation.context.field("r" + std::to_string(i), anything()));
  }
  simulation.context.field("k", numbers({0, 1}));
  simulation.context.field("n", node());
  simulation.call("f", {anything()});
  for (size_t i = 0; i < sizeof cases / sizeof cases[0]; i++) {
    std::string assigned = fields[i]->assigned.empty() ? "" : *fields[i]->assigned.begin();
    EXPECT_EQ(assigned, cases[i].assigned) << cases[i].expr;
    EXPECT_LE(fields[i]->assigned.size(), 1u) << cases[i].expr;
  }
  EXPECT_EQ(simulation.context.constructed, (std::vector<std::string>{"Foo void 2"}));
}

TEST(ScriptPruning, ConstantsFoldAndNeedlessParenthesesGo) {
  EXPECT_EQ(prunedAfter("function f(x) {\n"
                        "  a = x * 1; b = 0 + x; b = x + 0; b = x - 0; b = x / 1;\n"
                        "  c = 1 / 0.0001; d = 1 / 0.0002; d = 1 / 0;\n"
                        "  e = -(2); e = -x; e = 0 - x; e = 1 / x;\n"
                        "  g = a + (b * c); h = (a + b) * c; i = a - (b - c); i = (a = u) ? c : d;\n"
                        "  i = (u ? b : c); k((a)); i = -(a * b);\n"
                        "  j = u || k(); m = true || k(); m = false && k(); n = x * 0; o = k() * 0;\n"
                        "  return 2 * 3;\n"
                        "}\n"
                        "function k() { return true; }\n",
                        {"f"}),
            "function f(x) {\n"
            "a=x;\nb=x;\nb=x;\nb=x;\nb=x;\n"
            "c=1/0.0001;\nd=5000;\nd=1/0;\n"
            "e=-2;\ne=-x;\ne=0-x;\ne=1/x;\n"
            "g=a+b*c;\nh=(a+b)*c;\ni=a-(b-c);\ni=(a=u)?c:d;\n"
            "i=u?b:c;\nk(a);\ni=-a*b;\n"
            "j=u||k();\nm=true;\nm=false;\nn=0;\no=k()*0;\n"
            "return 6;\n"
            "}\n"
            "function k() {\nreturn true;\n}\n");
}

// Operators group by level, and within a level from the left: the folded
// value shows the grouping.
TEST(ScriptPruning, OperatorsGroupByLevelThenFromTheLeft) {
  EXPECT_EQ(prunedAfter("function f() { a = 8 - 4 - 2; b = 12 / 2 / 3; c = 2 + 3 * 4;\n"
                        "  d = 0x10 + 017 + 1.5e1; e = true || true && false; }\n",
                        {"f"}),
            "function f() {\na=2;\nb=2;\nc=14;\nd=46;\ne=true;\n}\n");
}

TEST(ScriptPruning, StatementsWithoutEffectGoAndVarListsJoin) {
  EXPECT_EQ(prunedAfter("function f() {\n"
                        "  x; 1 + 2; (x); x++; k(); var a; var b = 1; var e; ; { } { k(); k(); }\n"
                        "  while (u) { x; } while (false) k(); var c; var d = 2;\n"
                        "  for (i = 0; i < 2; i++) { }\n"
                        "  return; k();\n"
                        "}\n"
                        "function k() { }\n",
                        {"f"}),
            "function f() {\n"
            "x++;\nk();\nvar a,b=1,e;\n;\nk();\nk();\n"
            "while(u);\nwhile(false)k();\nvar c,d=2;\n"
            "for(i=0;i<2;i++);\n"
            "return;\n"
            "}\n"
            "function k() {\n}\n");
}

TEST(ScriptPruning, FieldsThatNothingNeedsAndConstantFields) {
  Simulation simulation("function f(p) { y = k; k2 = 1; k3 = g(); y = p + g; z = k + k4; }\n"
                        "function g() { return 1; }\n");
  simulation.context.field("y", anything());
  simulation.context.field("z", anything());
  simulation.context.field("k", number(5));
  simulation.context.field("p", number(3));
  simulation.context.field("g", number(4));
  simulation.context.field("k4", someNumber());
  simulation.context.field("k2", anything())->needed = 0;
  simulation.context.field("k3", anything())->needed = 0;
  simulation.call("f", {number(9)});
  EXPECT_EQ(simulation.pruned(),
            "function f(p) {\ny=5;\ng();\ny=p+g;\nz=5+k4;\n}\n"
            "function g() {\nreturn 1;\n}\n");
}

TEST(ScriptPruning, SwitchCasesAreWalkedAndAReturnEndsOnlyItsCase) {
  EXPECT_EQ(prunedAfter("function f(a) {\n"
                        "  switch (a) { case g(): return 1; h(); case 2: i(); }\n"
                        "  j();\n"
                        "}\n"
                        "function g() { return 1; }\nfunction h() {}\n"
                        "function i() {}\nfunction j() {}\n",
                        {"f"}),
            "function f(a) {\n"
            "switch (a) {\ncase g():\nreturn 1;\ncase 2:\ni();\n}\n"
            "j();\n"
            "}\n"
            "function g() {\nreturn 1;\n}\nfunction i() {\n}\nfunction j() {\n}\n");
}

TEST(ScriptPruning, ParenthesesAroundACommaStay) {
  EXPECT_EQ(prunedAfter("function f() { x = (a, b); (c = 1, d = 2); g((a, b)); }\n"
                        "function g() {}\n",
                        {"f"}),
            "function f() {\nx=(a,b);\nc=1,d=2;\ng((a,b));\n}\nfunction g() {\n}\n");
}

TEST(ScriptPruning, AnElseKeepsTheIfItBelongedTo) {
  Simulation simulation("function f(u, v) {\n"
                        "  if (u) { if (v) a(); } else b();\n"
                        "  if (u) { if (v) a(); else c(); } else b();\n"
                        "  if (u) if (v) a(); else c();\n"
                        "  if (u) { a(); }\n"
                        "  if (u) { if (v) a(); else if (w) c(); } else b();\n"
                        "  if (u) { if (v) a(); else if (false) c(); } else b();\n"
                        "  if (g()) { if (v) a(); } else b();\n"
                        "  if (u) { while (v) { if (w) a(); } } else b();\n"
                        "  if (true) { if (v) a(); } else b();\n"
                        "}\n"
                        "function a() {}\nfunction b() {}\nfunction c() {}\n"
                        "function g() { return true; }\n");
  simulation.call("f", {someTruth(), someTruth()});
  EXPECT_EQ(simulation.pruned(),
            "function f(u,v) {\n"
            "if(u){\nif(v)a();\n}\nelse b();\n"
            "if(u)if(v)a();\nelse c();\nelse b();\n"
            "if(u)if(v)a();\nelse c();\n"
            "if(u)a();\n"
            "if(u){\nif(v)a();\nelse if(w)c();\n}\nelse b();\n"
            "if(u){\nif(v)a();\n}\nelse b();\n"
            "if(g()){\nif(v)a();\n}\nelse b();\n"
            "if(u){\nwhile(v)if(w)a();\n}\nelse b();\n"
            "if(v)a();\n"
            "}\n"
            "function a() {\n}\nfunction b() {\n}\nfunction c() {\n}\n"
            "function g() {\nreturn true;\n}\n");
}

// f0 calls f1, which calls f2, ... a chain of `depth` distinct functions.
std::string chainOfCalls(int depth) {
  std::string script;
  for (int i = 0; i < depth; i++) {
    script += "function f" + std::to_string(i) + "() { f" + std::to_string(i + 1) + "(); }\n";
  }
  return script + "function f" + std::to_string(depth) + "() { }\n";
}

TEST(ScriptSimulation, RecursionEndsByRepeatedArgumentsAndNestingIsBounded) {
  Simulation simulation("function r(a) { r(a); r(a - 1); }\n"
                        "function s(o) { s(n); }\n"
                        "function t() { s(n); t(); }\n");
  TestField* n = simulation.context.field("n", node());
  n->freshEachRead = true;
  EXPECT_EQ(simulation.call("t"), 1);
  EXPECT_EQ(n->reads, 2);  // the second s(n) denotes the same node: cut
  EXPECT_EQ(simulation.call("r", {number(5)}), 1);
  EXPECT_EQ(simulation.call("missing"), 0);
  int lastCalled = 0;
  onLargeStack([&lastCalled] {
    Simulation deep(chainOfCalls(999));
    deep.call("f0");
    JSFunction* last = deep.program->functions;
    while (last->next != nullptr) last = last->next;
    lastCalled = last->called;
  });
  EXPECT_EQ(lastCalled, 1);
  EXPECT_EXIT(onLargeStack([] { Simulation(chainOfCalls(1000)).call("f0"); }),
              testing::ExitedWithCode(253), checkReport("callDepth < kMaxCallDepth"));
}

TEST(ScriptSimulation, TooFewArgumentsIsAnAlert) {
  EXPECT_EXIT(
      {
        Simulation simulation(
            "function f(a, b) { x = b; } function g() { f(1); f(1); f(1, 2, 3); }");
        simulation.call("g");
        exit(0);
      },
      testing::ExitedWithCode(0),
      "^(Alert: Too few arguments passed to function f\nStack dump:\n"
      "  Calling function g\n  Calling function f\n){2}$");
}

// A call that repeats one of the same caller while nothing it reads changed is
// not walked again; an assignment to a field in between makes it walk again.
TEST(ScriptSimulation, RepeatedCallsOfOneCallerAreWalkedOnce) {
  std::string repeated;
  for (int i = 0; i < 50; i++) repeated += "g(1); ";
  std::string many;  // more calls than the first table of finished calls holds
  for (int i = 0; i < 200; i++) many += "g(" + std::to_string(i % 100) + "); ";
  Simulation simulation("function f() { " + repeated + "}\n"
                        "function g(a) { r = s; h(); h(); }\n"
                        "function h() { r = s; }\n"
                        "function e() { g(1); g(2); t = 1; g(1); }\n"
                        "function k() { " + many + "}\n");
  TestField* s = simulation.context.field("s", number(1));
  simulation.context.field("t", number(0));
  simulation.call("f");
  EXPECT_EQ(s->reads, 2);  // the first g(1) and its first h()
  s->reads = 0;
  simulation.call("e");
  EXPECT_EQ(s->reads, 6);  // g(1), g(2) and g(1) once more, each with one h()
  s->reads = 0;
  simulation.call("k");
  EXPECT_EQ(s->reads, 200);  // g(0) to g(99) once, each with one h()
}

// A name declared twice calls its first declaration, among the first few
// functions of a script and past them.
TEST(ScriptSimulation, ACallFindsTheFirstFunctionOfItsName) {
  std::string others;
  for (int i = 0; i < 8; i++) others += "function o" + std::to_string(i) + "() { }\n";
  Simulation simulation("function o() { }\nfunction f() { r = s; }\n" + others +
                        "function g() { r = u; }\nfunction f() { r = t; }\n"
                        "function g() { r = v; }\n");
  TestField* fields[] = {simulation.context.field("s", number(1)),
                         simulation.context.field("t", number(1)),
                         simulation.context.field("u", number(1)),
                         simulation.context.field("v", number(1))};
  EXPECT_EQ(simulation.call("f"), 1);
  EXPECT_EQ(simulation.call("g"), 1);
  EXPECT_EQ(simulation.call("h"), 0);
  int expectedReads[] = {1, 0, 1, 0};
  for (int i = 0; i < 4; i++) EXPECT_EQ(fields[i]->reads, expectedReads[i]) << i;
}

// Each script stops the simulation, or the rewriting, with its check.
TEST(ScriptSimulation, ScriptsOutsideTheDomainStopWithTheirCheck) {
  struct {
    const char* body;
    const char* check;
  } cases[] = {
      {"x = 1; x = true;", "atom1->type == atom2->type"},
      {"x = u; x = n;", "atom2->type != JSAtom::OBJECT"},
      {"x = n; x = u;", "atom1->type != JSAtom::OBJECT"},
      {"x = g; x = g;", "0"},
      {"if (1 == true) ;", "left->type == right->type"},
      {"if (n == n) ;", "0"},
      {"if (g() == g()) ;", "0"},
      {"x = !1;", "0"},
      {"x = -true;", "src->type == JSAtom::FLOAT"},
      {"if (1 && 2) ;", "left->type == JSAtom::BOOLEAN && right->type == JSAtom::BOOLEAN"},
      {"x = 1; y = x[0];", "0"},
      {"x = 1; y = x.m;", "value->type == JSAtom::UNKNOWN"},
      {"x = +u;", "0"},
      {"x = ~u;", "0"},
      {"++x;", "0"},
      {"--x;", "0"},
      {"x = typeof u;", "0"},
      {"delete u;", "0"},
      {"g = 1;", "left->type == JSAtom::OBJECT && left->valueKnown && left->values != NULL && "
                 "left->values->next == NULL"},
      {"true = 1;", "left->type == JSAtom::OBJECT && left->valueKnown && left->values != NULL && "
                    "left->values->next == NULL"},
      {"1++;", "var->type == JSAtom::OBJECT && var->valueKnown && var->values != NULL && "
               "var->values->next == NULL"},
      {"x = g[0];", "var->type == JSAtom::OBJECT && var->valueKnown && var->values != NULL"},
      {"x = g.m;", "left->type == JSAtom::OBJECT && left->valueKnown && left->values != NULL"},
      {"x = a. 1;", "expr->binary.expr2->type == JSExpression::OBJECT"},
      {"x = 1; x();", "function->type == JSAtom::UNKNOWN"},
      {"x = (void u) ? 1 : 2;", "ifResult != NULL"},
      {"x = 1 ? 2 : 3;", "ifResult->type == JSAtom::UNKNOWN"},
      {"if (x += 1) ;", "ifResult != NULL"},
      {"u ? g() : g();", "0"},
      {"\"text\";", "0"},
      {"a[\"x\"] = 1;", "0"},
  };
  for (const auto& c : cases) {
    EXPECT_EXIT(
        {
          Simulation simulation(std::string("function f(u) { ") + c.body +
                                " }\nfunction g() { }\n");
          simulation.context.field("n", node());
          simulation.call("f", {anything()});
          simulation.pruned();
        },
        testing::ExitedWithCode(253), checkReport(c.check))
        << c.body;
  }
}

TEST(ScriptSimulation, RecursionLimitsOfTheDomainStop) {
  EXPECT_EXIT(
      {
        Simulation simulation("function r(a, b) { r(a); }");
        simulation.call("r", {number(1), number(2)});
      },
      testing::ExitedWithCode(253), checkReport("list1 != NULL && list2 != NULL"));
  EXPECT_EXIT(
      {
        Simulation simulation("function r(h) { r(g); } function f() { r(g); } function g() {}");
        simulation.call("f");
      },
      testing::ExitedWithCode(253), checkReport("0"));
}

}  // namespace
