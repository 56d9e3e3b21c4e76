// The number reader and writer. The first four bytes are a float: the
// --vrml97 writer's text of a finite float reads back to the same bits. The
// rest is a text: the reader gives for the number at its start what the C
// library's strtof gives.
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

#include "main.h"

namespace {

uint32_t bitsOf(float value) {
  uint32_t bits;
  memcpy(&bits, &value, sizeof bits);
  return bits;
}

void checkWrittenFloatReadsBack(const uint8_t* data) {
  float value;
  memcpy(&value, data, sizeof value);
  if (!std::isfinite(value)) return;
  char text[64];
  setRunOptions(1, 0);
  *formatFloat(text, value) = 0;
  setRunOptions(0, 0);
  float read = NAN;
  readFloat(text, &read);
  if (bitsOf(read) != bitsOf(value)) {
    fprintf(stderr, "%a written as %s reads as %a\n", value, text, read);
    abort();
  }
}

// The number as the tokenizers cut it: a sign, digits, a fraction, an exponent.
void checkReadNumberIsStrtof(const char* text) {
  std::string number(text);
  char* start = &number[0] + (number[0] == '-' || number[0] == '+');
  if (!isDecimalDigit(*start) && !(*start == '.' && isDecimalDigit(start[1]))) return;
  bool isFloat;
  *skipDecimalNumber(start, &isFloat) = 0;
  float read = NAN;
  readFloat(number.c_str(), &read);
  float expected = strtof(number.c_str(), nullptr);
  if (bitsOf(read) != bitsOf(expected)) {
    fprintf(stderr, "%s reads as %a, strtof gives %a\n", number.c_str(), read, expected);
    abort();
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  if (size < 4) return 0;
  checkWrittenFloatReadsBack(data);
  std::string text(reinterpret_cast<const char*>(data + 4), size - 4);
  checkReadNumberIsStrtof(text.c_str());
  return 0;
}
