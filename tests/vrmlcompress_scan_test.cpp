#include <gtest/gtest.h>

#include "main.h"
#include "test_util.h"

namespace {

TEST(Scan, ScriptsAreParsedOnceFromTheirUrl) {
  VPFile* file = scannedWorld("DEF S Script {\n"
                              "field SFNode n Shape { geometry Sphere { } }\n"
                              "url [ \"vrmlscript: function f() { x = \\\"a\\\"; }\" ]\n"
                              "}\n"
                              "Group { children USE S }\n");
  VPNode* script = file->findNamedNode("S");
  ASSERT_NE(script->other.script.program, nullptr);
  EXPECT_EQ(printedText([script](FILE* s) { script->other.script.program->printFunctions(s); }),
            "function f() {\nx=\\\"a\\\";\n}\n");
  EXPECT_EQ(writtenWorld(file),
            "#VRML V2.0 utf8\n"
            "DEF S Script {\n"
            "field SFNode n Shape {\ngeometry Sphere {\n}\n}\n"
            "url \"javascript:\nfunction f() {\nx=\\\"a\\\";\n}\n\"\n"
            "}\n"
            "Group {\nchildren USE S\n}\n");
}

TEST(Scan, UrlsThatHoldNoInlineScriptStop) {
  struct {
    const char* world;
    const char* check;
  } cases[] = {
      {"Script { }", "found"},
      {"Script { url [] }", "value != NULL"},
      {"PROTO P [ field MFString u [] ] { Script { url IS u } }\nP { }", "value != NULL"},
      {"Script { url [ \"javascript: \" \"other.js\" ] }", "value->next == NULL"},
      {"Script { url \"code.js\" }",
       "strncmp (s, \"javascript:\", 11) == 0 || strncmp (s, \"vrmlscript:\", 11) == 0"},
      {"Script { url \" javascript:\" }",
       "strncmp (s, \"javascript:\", 11) == 0 || strncmp (s, \"vrmlscript:\", 11) == 0"},
      {"PROTO P [ field SFNode n Group { } ] { }", "nodeType == OTHER || nodeType == SCRIPT"},
      {"Script { url \"javascript: function f() { x = 1 # 2; }\" }", "0"},
  };
  for (const auto& c : cases) {
    EXPECT_EXIT(scannedWorld(c.world), testing::ExitedWithCode(253), checkReport(c.check))
        << c.world;
  }
  // The tokenizer lets no string end in a lone backslash inside a whole node.
  VPFile* file = parseWorld("Script { url \"javascript:\" }");
  file->topLevel->node->fields->value->string = copyString("\"javascript:x\\");
  EXPECT_EXIT(file->scanNodes(), testing::ExitedWithCode(253), checkReport("*t != 0"));
  EXPECT_EXIT(scannedWorld("Transform { children DEF S Script {\n"
                           "url \"javascript: function f() { return }\" } }"),
              testing::ExitedWithCode(253),
              "^Error: Line 1: ';' expected, got '}'\nStack dump:\n"
              "  Scanning Transform node \\(null\\), field children\n"
              "  Parsing Script node S\n$");
}

}  // namespace
