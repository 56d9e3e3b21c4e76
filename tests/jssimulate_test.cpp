#include <gtest/gtest.h>
#include <pthread.h>

#include <functional>

#include "jssimulate_test_util.h"

namespace {

// Calls each function named, then rewrites and prints the script.
std::string prunedAfter(const std::string& script, std::vector<const char*> calls) {
  Simulation simulation(script);
  for (const char* name : calls) simulation.call(name);
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

}  // namespace
