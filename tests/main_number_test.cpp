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

std::string asDenseFloat(float value) {
  setRunOptions(1, 0);
  std::string text = asFormatted(value);
  setRunOptions(0, 0);
  return text;
}

std::string asDenseDouble(double value) {
  char text[64];
  *formatDouble(text, value) = 0;
  return text;
}

// The shortest digits that read back as the same number, laid out plain
// without a leading zero or as a whole number and a power of ten, whichever is
// shorter, plain on a tie. A plain whole number past 2147483647 takes a point,
// as without one the tokenizers read it as a 32-bit integer.
TEST(DenseNumbers, FloatsUnderTheOption) {
  const struct {
    float value;
    const char* text;
  } cases[] = {
      {0.5f, ".5"},           {-0.25f, "-.25"},          {1e5f, "1e5"},
      {2e-7f, "2e-7"},        {100.0f, "100"},           {1000.0f, "1e3"},
      {1200.0f, "1200"},      {12000.0f, "12e3"},        {0.001f, ".001"},
      {0.0001f, "1e-4"},      {1.5f, "1.5"},             {0.1f, ".1"},
      {0.0f, "0"},            {-0.0f, "-0"},             {1.0f, "1"},
      {123.456f, "123.456"},  {1.5e-7f, "15e-8"},        {3.14159265f, "3.1415927"},
      {0.000123f, "123e-6"},  {0.0123f, ".0123"},        {3e9f, "3e9"},
      {2147483648.0f, "2147483600"},                     {4294967296.0f, "42949673e2"},
      {3.4028235e38f, "34028235e31"},                    {1.4e-45f, "1e-45"},
      {124412048.0f, "124412050"},                       {16777216.0f, "16777216"},
  };
  for (const auto& c : cases) EXPECT_EQ(asDenseFloat(c.value), c.text) << c.text;
}

TEST(DenseNumbers, DoublesOfScripts) {
  const struct {
    double value;
    const char* text;
  } cases[] = {
      {1.0, "1"},
      {0.5, ".5"},
      {31.0, "31"},
      {0.1, ".1"},
      {0.1 + 0.2, ".30000000000000004"},
      {1e21, "1e21"},
      {1e-7, "1e-7"},
      {2147483647.0, "2147483647"},
      {2147483648.0, "2147483648."},
      {4294967296.0, "4294967296."},
      {123456789012.0, "123456789012."},
      {5e-324, "5e-324"},
      {1.7976931348623157e308, "17976931348623157e292"},
  };
  for (const auto& c : cases) EXPECT_EQ(asDenseDouble(c.value), c.text) << c.text;
}

// Floats as files write them and random bit patterns: the plain writer gives
// what printf's %g gives, and the text under the option reads back to the
// same float.
TEST(FloatFormat, PrintfFormPlainAndExactRoundTripUnderTheOption) {
  std::mt19937 random(11);
  std::uniform_int_distribution<int> digits(0, 9999999);
  std::uniform_int_distribution<int> exponent(-12, 12);
  for (int i = 0; i < 400000; i++) {
    float value;
    if (i % 2 == 0) {
      char text[32];
      snprintf(text, sizeof text, "%de%d", digits(random), exponent(random));
      value = strtof(text, nullptr);
    } else {
      uint32_t bits = random();
      memcpy(&value, &bits, sizeof value);
      if (!std::isfinite(value)) continue;
    }
    ASSERT_EQ(asFormatted(value), asPrintfWrites(value));
    std::string dense = asDenseFloat(value);
    float back = 0;
    readFloat(dense.c_str(), &back);
    ASSERT_EQ(memcmp(&back, &value, sizeof value), 0) << dense;
  }
}

// The nearest float to the value rounded to N significant digits, written in
// its shortest text, which then has N digits at most.
TEST(DenseNumbers, RoundedToSignificantDigits) {
  const struct {
    float value;
    int digits;
    const char* text;
  } cases[] = {
      {0.123456789f, 6, ".123457"}, {0.123456789f, 3, ".123"},   {1.987654321f, 3, "1.99"},
      {100.7f, 3, "101"},           {9.96f, 2, "10"},           {0.95f, 1, ".9"},
      {123456.7f, 3, "123e3"},      {0.00123456f, 3, ".00123"}, {-9.87654f, 3, "-9.88"},
      {0.5f, 1, ".5"},              {1.0f / 3, 9, ".33333334"}, {2.71828f, 6, "2.71828"},
  };
  for (const auto& c : cases) {
    EXPECT_EQ(asDenseFloat(roundSignificant(c.value, c.digits)), c.text) << c.text;
  }
}

}  // namespace
