// The floating-point to_chars and from_chars of the WebAssembly build
// (web/wasm/charconv_float.h) against the complete C++ library of this build,
// on floats that take both of its ways: the fast one in double arithmetic and
// the exact one through printf and strtof.
#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <random>
#include <string>
#include <vector>

#include "../web/wasm/charconv_float.h"

namespace {

template <class Number>
std::string libraryShortest(Number value) {
  char text[64];
  return std::string(text, std::to_chars(text, text + sizeof text, value).ptr);
}

template <class Number>
std::string shortest(Number value) {
  char text[64];
  return std::string(text, charconv_float::toCharsShortest(text, text + sizeof text, value).ptr);
}

template <class Number>
std::string libraryScientific(Number value) {
  char text[64];
  return std::string(
      text, std::to_chars(text, text + sizeof text, value, std::chars_format::scientific).ptr);
}

template <class Number>
std::string scientific(Number value) {
  char text[64];
  return std::string(text,
                     charconv_float::toCharsScientific(text, text + sizeof text, value).ptr);
}

std::string libraryGeneral(double value, int precision) {
  char text[64];
  return std::string(
      text,
      std::to_chars(text, text + sizeof text, value, std::chars_format::general, precision).ptr);
}

std::string general(double value, int precision) {
  char text[64];
  return std::string(
      text, charconv_float::toCharsGeneral(text, text + sizeof text, value, precision).ptr);
}

float fromBits(uint32_t bits) {
  float value;
  memcpy(&value, &bits, sizeof value);
  return value;
}

// Every power of two with its neighbours, the floats next to powers of ten,
// integers, decimals as files write them, and random bit patterns.
std::vector<float> sampleFloats() {
  std::vector<float> values;
  for (uint32_t exponent = 0; exponent < 255; exponent++) {
    for (int step = -2; step <= 2; step++) {
      if (exponent == 0 && step < 0) continue;
      values.push_back(fromBits((exponent << 23) + uint32_t(step)));
    }
  }
  for (int power = -45; power <= 38; power++) {
    float value = std::pow(10.0f, float(power));
    values.insert(values.end(), {value, std::nextafter(value, 0.0f),
                                 std::nextafter(value, INFINITY)});
  }
  for (uint32_t integer = 0; integer < (1u << 25); integer += 4099) {
    values.push_back(float(integer));
  }
  std::mt19937 random(5);
  std::uniform_int_distribution<int> digits(0, 9999999);
  std::uniform_int_distribution<int> exponent(-12, 12);
  for (int i = 0; i < 60000; i++) {
    char text[32];
    snprintf(text, sizeof text, "%de%d", digits(random), exponent(random));
    values.push_back(strtof(text, nullptr));
  }
  for (int i = 0; i < 60000; i++) {
    float value = fromBits(random());
    if (!std::isnan(value)) values.push_back(value);
  }
  return values;
}

const std::vector<float>& samples() {
  static const std::vector<float> values = sampleFloats();
  return values;
}

// Each sample written shortest, scientific and general (precision 1, 6, 9),
// and each of its shortest and general texts read back, as the library does.
TEST(CharconvFloat, WritesAndReadsSampleFloatsAsTheLibrary) {
  int mismatches = 0;
  auto expectSame = [&mismatches](const std::string& ours, const std::string& library) {
    if (ours == library || ++mismatches > 10) return;
    ADD_FAILURE() << library << " as " << ours;
  };
  for (float value : samples()) {
    expectSame(shortest(value), libraryShortest(value));
    expectSame(scientific(value), libraryScientific(value));
    for (int precision : {1, 6, 9}) expectSame(general(value, precision), libraryGeneral(value, precision));
    for (const std::string& text : {libraryShortest(value), libraryGeneral(value, 6)}) {
      float expected = 0, read = 0;
      std::from_chars(text.data(), text.data() + text.size(), expected);
      charconv_float::fromChars(text.data(), text.data() + text.size(), read);
      expectSame(text + " read as " + libraryShortest(read), text + " read as " + libraryShortest(expected));
    }
  }
  for (float value : {0.0f, -0.0f, INFINITY, -INFINITY}) {
    EXPECT_EQ(scientific(value), libraryScientific(value));
  }
}

// Doubles as scripts compute them, integers past 2^53 and random bit patterns;
// the shortest digits of some lie next to a power of two.
TEST(CharconvFloat, ShortestDoubleTextsAreTheLibrarys) {
  std::vector<double> values = {0.1 + 0.2, 1.0 / 3, 5e-324, 1.7976931348623157e308, 9007199254740993.0,
                                123456789012345678.0, 1e22, 1e23, -2.5, 0x1p-1022, 1e-5};
  std::mt19937_64 random(7);
  for (int i = 0; i < 20000; i++) {
    uint64_t bits = random();
    double value;
    memcpy(&value, &bits, sizeof value);
    if (!std::isnan(value)) values.push_back(value);
  }
  for (int exponent = -1074; exponent < 1024; exponent += 3) {
    double power = std::ldexp(1.0, exponent);
    values.insert(values.end(), {power, std::nextafter(power, 0.0), std::nextafter(power, INFINITY)});
  }
  int mismatches = 0;
  for (double value : values) {
    if (shortest(value) == libraryShortest(value) &&
        scientific(value) == libraryScientific(value)) {
      continue;
    }
    ADD_FAILURE() << libraryShortest(value) << " written as " << shortest(value) << ", "
                  << libraryScientific(value) << " as " << scientific(value);
    if (++mismatches == 10) break;
  }
}

// How much of each text is read, the error and the value, as the library has them.
TEST(CharconvFloat, ReadsAsMuchOfATextAsTheLibrary) {
  const char* texts[] = {"1e",       "1e+",   "-.5",    ".5",      "5.",    "-0",    "0.000",
                         "1e-50",    "1e50",  "1.5e-45", "3.4028236e38", "-e5", "abc", "00012.500",
                         "1E5x",     "7.038531e-26", "123456789012345678901234",
                         "0.1234567890123456789012e3", "1.00000005960464477539062500001"};
  for (const char* text : texts) {
    const char* last = text + strlen(text);
    float expected = 7, read = 7;
    std::from_chars_result library = std::from_chars(text, last, expected);
    std::from_chars_result ours = charconv_float::fromChars(text, last, read);
    EXPECT_EQ(ours.ptr - text, library.ptr - text) << text;
    EXPECT_EQ(ours.ec, library.ec) << text;
    EXPECT_EQ(memcmp(&expected, &read, sizeof read), 0)
        << text << ": " << read << ", not " << expected;
  }
}

}  // namespace
