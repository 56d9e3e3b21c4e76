#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "test_util.h"

namespace {

std::vector<std::string> tokensOf(const std::string& input) {
  static VPFile* file = newFile();
  std::string text = input;
  file->startText(&text[0]);
  return tokenTexts(file);
}

// Classes: 1 identifier, 2 float, 3 integer, 4 boolean, 5 string, 6 symbol.
TEST(VrmlTokenizer, CutsTextIntoTokens) {
  struct {
    const char* text;
    std::vector<std::string> tokens;
  } cases[] = {
      {"1,2,,3", {"3:1=1", "3:2=2", "3:3=3"}},
      {"abc#def\nx", {"1:abc", "1:x"}},
      {"\"a # b\"", {"5:\"a # b\""}},
      {"a # comment at the end", {"1:a"}},
      {"TRUE FALSE true", {"4:TRUE=1", "4:FALSE=0", "1:true"}},
      {"a-b a.b _x", {"1:a-b", "1:a", "6:.", "1:b", "1:_x"}},
      {"+5 -5 -.5 +1e3", {"3:+5=5", "3:-5=-5", "2:-.5=-0.5", "2:+1e3=1000"}},
      {"1e 1.", {"2:1e=1", "2:1.=1"}},
      {"0 000 007 010", {"3:0=0", "3:000=0", "3:007=7", "3:010=10"}},
      {"a.1", {"1:a", "2:.1=0.1"}},
      {"1.5.3 12abc", {"2:1.5=1.5", "2:.3=0.3", "3:12=12", "1:abc"}},
      {"0x1F 00x1F 0XfF -0x10", {"3:0x1F=31", "3:00x1F=31", "3:0XfF=255", "3:-0x10=16"}},
      {"\"say \\\"hi\\\"\" [ ] { } =", {"5:\"say \\\"hi\\\"\"", "6:[", "6:]", "6:{", "6:}", "6:="}},
      {"\"unterminated", {"5:\"unterminated"}},
      {"\"ends in \\", {"5:\"ends in \\"}},
  };
  for (const auto& c : cases) EXPECT_EQ(tokensOf(c.text), c.tokens) << c.text;
}

TEST(VrmlTokenizer, IntegersKeepTheirLowThirtyTwoBits) {
  EXPECT_EQ(tokensOf("2147483647 2147483648 4294967297 -2147483649"),
            (std::vector<std::string>{"3:2147483647=2147483647", "3:2147483648=-2147483648",
                                      "3:4294967297=1", "3:-2147483649=2147483647"}));
  EXPECT_EQ(tokensOf("0xFFFFFFFF 0x1FFFFFFFF 0x100000000"),
            (std::vector<std::string>{"3:0xFFFFFFFF=-1", "3:0x1FFFFFFFF=-1",
                                      "3:0x100000000=0"}));
}

TEST(VrmlTokenizer, SignAloneKeepsThePreviousValue) {
  EXPECT_EQ(tokensOf("7 -"), (std::vector<std::string>{"3:7=7", "3:-=7"}));
  EXPECT_EQ(tokensOf("2.5 -e"), (std::vector<std::string>{"2:2.5=2.5", "2:-e=2.5"}));
}

TEST(VrmlTokenizer, FloatsOutOfRangeBecomeInfinityOrZero) {
  EXPECT_EQ(tokensOf("1e39 -1e39 1e-50"),
            (std::vector<std::string>{"2:1e39=inf", "2:-1e39=-inf", "2:1e-50=0"}));
}

TEST(VrmlTokenizer, CountsLinesInCommentsAndStrings) {
  VPFile& file = *newFile();
  std::string text = "a # one\n\"two\nthree\\\nfour\" b\r\nc";
  file.startText(&text[0]);
  int lines[3];
  for (int& line : lines) {
    do file.nextToken();
    while (file.tokType == VPFile::TokString);
    line = file.lineNumber;
  }
  EXPECT_EQ(lines[0], 1);
  EXPECT_EQ(lines[1], 4);
  EXPECT_EQ(lines[2], 5);
}

TEST(VrmlTokenizer, PushBackGivesTheSameTokenAgain) {
  VPFile& file = *newFile();
  std::string text = "first\n2.5\nthird";
  file.startText(&text[0]);
  file.nextToken();
  file.nextToken();
  file.pushBack();
  file.pushBack();  // one level only
  file.nextToken();
  EXPECT_STREQ(file.token, "2.5");
  EXPECT_EQ(file.tokType, VPFile::TokFloat);
  EXPECT_EQ(file.lineNumber, 2);
  file.nextToken();
  EXPECT_STREQ(file.token, "third");
  for (int i = 0; i < 3; i++) {
    file.nextToken();
    EXPECT_EQ(file.tokType, VPFile::TokNone);
  }
  EXPECT_EQ(text, "first\n2.5\nthird");  // every NUL undone
}

}  // namespace
