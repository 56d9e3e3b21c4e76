#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <random>

#include "main.h"

namespace {

std::string asPrintfWrites(float value) {
  char text[64];
  snprintf(text, sizeof text, "%g", double(value));
  return text;
}

std::string asFormatted(float value) {
  char text[64];
  *formatFloat(text, value) = 0;
  return text;
}

TEST(FloatFormat, MatchesPrintfGeneralFormatOnChosenValues) {
  const float values[] = {0.0f, -0.0f, 1.0f, -1.0f, 0.1f, 0.5f, 1e-7f, 1e-5f, 1e-4f, 0.0001234f,
                          123456.0f, 999999.0f, 1e6f, 1234567.0f, 9999995.0f, 0.999999f,
                          0.9999995f, 3.14159265f, 1e38f, 1.17549435e-38f, 1.4e-45f,
                          INFINITY, -INFINITY, 100.0f, 2.5e-5f};
  for (float value : values) EXPECT_EQ(asFormatted(value), asPrintfWrites(value)) << value;
}

TEST(FloatFormat, MatchesPrintfGeneralFormatOnRandomBitPatterns) {
  std::mt19937 random(7);
  int mismatches = 0;
  for (int i = 0; i < 2000000 && mismatches < 10; i++) {
    uint32_t bits = random();
    float value;
    memcpy(&value, &bits, sizeof value);
    if (std::isnan(value)) continue;
    if (asFormatted(value) != asPrintfWrites(value)) {
      ADD_FAILURE() << asPrintfWrites(value) << " written as " << asFormatted(value);
      mismatches++;
    }
  }
}

TEST(FloatFormat, MatchesPrintfOnDecimalsAsFilesWriteThem) {
  std::mt19937 random(11);
  std::uniform_int_distribution<int> digits(0, 9999999);
  std::uniform_int_distribution<int> exponent(-12, 12);
  for (int i = 0; i < 500000; i++) {
    char text[32];
    snprintf(text, sizeof text, "%de%d", digits(random), exponent(random));
    float value = strtof(text, nullptr);
    ASSERT_EQ(asFormatted(value), asPrintfWrites(value)) << text;
  }
}

}  // namespace
