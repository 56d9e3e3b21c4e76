#include <gtest/gtest.h>

#include <cstring>

#include "test_util.h"

namespace {

// Reads two values of one type as the defaults of a PROTO's fields a and b.
bool valuesEqual(const char* type, const char* a, const char* b) {
  std::string world = std::string("PROTO P [ field ") + type + " a " + a + " field " + type +
                      " b " + b + " ] { }\n";
  VPFile* file = parseWorld(world);
  VPFieldList* first = file->allProtos->node->fields;
  VPFieldList* second = first->next;
  // The two cells are of different VPFields: compare under one declaration.
  VPFieldList copy = *second;
  copy.field = first->field;
  return fieldValuesEqual(first, &copy);
}

TEST(FieldValuesEqual, ComparesExactlyByType) {
  struct {
    const char* type;
    const char* a;
    const char* b;
    bool equal;
  } cases[] = {
      {"SFBool", "TRUE", "TRUE", true},
      {"SFBool", "TRUE", "FALSE", false},
      {"SFInt32", "0x10", "16", true},
      {"SFFloat", "0.1", "0.100000001", true},  // one float
      {"SFFloat", "1", "1.0000001", false},     // one bit apart
      {"SFFloat", "0", "-0", true},
      {"SFTime", "16777216", "16777217", true},
      {"SFVec2f", "1 2", "1 2.5", false},
      {"SFVec3f", "1 2 3", "1 2 3", true},
      {"SFColor", "1 0 0", "1 0 0.5", false},
      {"SFRotation", "0 0 1 0", "0 0 1 0", true},
      {"SFRotation", "0 0 1 0", "0 1 0 0", false},
      {"SFString", "\"a\"", "\"a\"", true},
      {"SFString", "\"a\"", "\"\\a\"", false},
      {"SFImage", "0 0 0", "0 0 0", true},
      {"SFImage", "0 0 1", "0 0 3", false},
      {"SFImage", "1 1 1 0xff", "1 1 1 255", true},
      {"SFImage", "1 1 1 1", "1 1 1 2", false},
      {"MFFloat", "[]", "[]", true},
      {"MFFloat", "[]", "0", false},
      {"MFFloat", "1", "[ 1 ]", true},
      {"MFFloat", "[ 1 2 ]", "[ 1 ]", false},
      {"MFString", "[ \"a\" \"b\" ]", "[ \"a\" \"b\" ]", true},
      {"MFVec3f", "[ 1 2 3, 4 5 6 ]", "[ 1 2 3, 4 5 7 ]", false},
  };
  for (const auto& c : cases) {
    EXPECT_EQ(valuesEqual(c.type, c.a, c.b), c.equal) << c.type << " " << c.a << " / " << c.b;
  }
}

}  // namespace
