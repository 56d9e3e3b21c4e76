// The floating-point std::to_chars and std::from_chars that the tool uses, for
// the C++ library of the WebAssembly build, which has only the integer ones.
// They give the same text and values as a complete library: the shortest
// text that reads back as the same float or double (fixed or scientific,
// whichever is shorter, fixed on a tie, or scientific alone), %g- and
// %e-style text of a given precision, and a correctly rounded float from text.
//
// The C library's printf and strtof are exact but slow in WebAssembly,
// where they compute in a software long double. Most numbers take a fast way
// instead: one rounded double operation between an integer below 2^53 and an
// exact power of ten (up to 10^22) gives the double nearest to the exact
// result, and what follows from it is exact unless that double stands too
// near a rounding boundary (a half between integers, a half between floats);
// there, and out of that range, the slow way decides.
#ifndef WORLDPARE_CHARCONV_FLOAT_H
#define WORLDPARE_CHARCONV_FLOAT_H

#include <cerrno>
#include <cfloat>
#include <cstdarg>
#include <charconv>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <system_error>

namespace charconv_float {

constexpr double kPowersOfTen[] = {1e0,  1e1,  1e2,  1e3,  1e4,  1e5,  1e6,  1e7,
                                   1e8,  1e9,  1e10, 1e11, 1e12, 1e13, 1e14, 1e15,
                                   1e16, 1e17, 1e18, 1e19, 1e20, 1e21, 1e22};
constexpr int kExactPowers = 22;

// value x 10^power, rounded once, when 10^power is exact.
inline bool scaled(double value, int power, double* result) {
  if (power > kExactPowers || power < -kExactPowers) return false;
  *result = power >= 0 ? value * kPowersOfTen[power] : value / kPowersOfTen[-power];
  return true;
}

// The integer nearest to x, a rounded product below 2^33: false where the
// rounding may have moved x across a half.
inline bool nearestInteger(double x, uint64_t* integer) {
  double whole = std::floor(x);
  if (std::fabs(x - whole - 0.5) < 0x1p-20) return false;
  *integer = uint64_t(x - whole < 0.5 ? whole : whole + 1);
  return true;
}

// The float nearest to a double that is the exact value rounded once: false
// where that double is a half between two floats, or out of the normal floats.
inline bool nearestFloat(double value, float* result) {
  double magnitude = std::fabs(value);
  if (magnitude < 2 * double(FLT_MIN) || magnitude > double(FLT_MAX)) return false;
  uint64_t bits;
  memcpy(&bits, &value, sizeof bits);
  constexpr uint64_t kBelowFloat = (uint64_t(1) << 29) - 1;  // bits a float has not
  if ((bits & kBelowFloat) == uint64_t(1) << 28) return false;
  *result = float(value);
  return true;
}

// The exponent of the power of ten at or below a positive value, where that
// power is exact and the value stands clear of it and of the next power:
// closer, the rounded quotient could not tell the side.
inline bool decimalExponent(double magnitude, int* exponent) {
  constexpr double kLog10Of2 = 0.30102999566398120;
  int guess = int(std::floor(std::ilogb(magnitude) * kLog10Of2));
  for (int tries = 0; tries < 3; tries++) {
    double x;
    if (!scaled(magnitude, -guess, &x)) return false;
    bool nearOne = x != 1 && std::fabs(x - 1) < 0x1p-40;
    bool nearTen = x != 10 && std::fabs(x - 10) < 0x1p-36;
    if (nearOne || nearTen) return false;
    if (x >= 1 && x < 10) {
      *exponent = guess;
      return true;
    }
    guess += x < 1 ? -1 : 1;
  }
  return false;
}

// A decimal d.ddd x 10^exponent with `count` significant digits.
struct Decimal {
  char digits[24];
  int count;
  int exponent;
};

inline void dropTrailingZeros(Decimal* decimal) {
  while (decimal->count > 1 && decimal->digits[decimal->count - 1] == '0') decimal->count--;
}

// integer x 10^-power as a decimal, trailing zeros dropped.
inline Decimal integerDecimal(uint64_t integer, int power) {
  Decimal decimal = {{}, 0, 0};
  char* end = std::to_chars(decimal.digits, decimal.digits + sizeof decimal.digits, integer).ptr;
  decimal.count = int(end - decimal.digits);
  decimal.exponent = decimal.count - 1 - power;
  dropTrailingZeros(&decimal);
  return decimal;
}

enum class Reading { kNo, kYes, kUnsure };

// The slow and exact way to the shortest text, through printf and strtof.
struct PrintedWay {
  // Nine digits: no float comes close enough to a power of ten to round up to it.
  static bool exponent(float value, int* exponent) {
    char text[32];
    snprintf(text, sizeof text, "%.8e", double(value));
    *exponent = atoi(strchr(text, 'e') + 1);
    return true;
  }
  // The integer nearest to value x 10^power, of count = power + 1 + exponent digits.
  static bool nearest(float value, int exponent, int power, uint64_t* integer) {
    char text[48];
    snprintf(text, sizeof text, "%.*e", power + exponent, double(value));
    const char* p = text;
    for (*integer = 0; *p != 'e'; p++) {
      if (*p != '.') *integer = *integer * 10 + uint64_t(*p - '0');
    }
    if (atoi(p + 1) > exponent) *integer *= 10;  // 9.99 rounded up to 10.0
    return true;
  }
  static Reading readsBack(uint64_t integer, int power, float value) {
    return strtof(text(integer, power).c_str(), nullptr) == value ? Reading::kYes : Reading::kNo;
  }
  static bool below(uint64_t integer, int power, float value) {
    return strtod(text(integer, power).c_str(), nullptr) < double(value);
  }
  static std::string text(uint64_t integer, int power) {
    char text[48];
    snprintf(text, sizeof text, "%llue%d", static_cast<unsigned long long>(integer), -power);
    return text;
  }
};

// The same decisions in double arithmetic, unsure where it is not exact.
struct ComputedWay {
  static bool exponent(float value, int* exponent) {
    return decimalExponent(double(value), exponent);
  }
  static bool nearest(float value, int, int power, uint64_t* integer) {
    double x;
    return scaled(double(value), power, &x) && nearestInteger(x, integer);
  }
  static Reading readsBack(uint64_t integer, int power, float value) {
    double read;
    float nearestFloatValue;
    if (!scaled(double(integer), -power, &read) || !nearestFloat(read, &nearestFloatValue)) {
      return Reading::kUnsure;
    }
    return nearestFloatValue == value ? Reading::kYes : Reading::kNo;
  }
  static bool below(uint64_t integer, int power, float value) {
    double x;
    scaled(double(value), power, &x);
    return double(integer) < x;
  }
};

// The fewest digits that read back as `value` (finite, positive); of those,
// the nearest. Next to a power of two the nearest may fall outside the
// narrower half of the interval that reads back, while its neighbour on the
// other side falls inside. False where the way is unsure.
template <class Way>
bool shortestDecimal(float value, Decimal* shortest) {
  int exponent;
  if (!Way::exponent(value, &exponent)) return false;
  for (int count = 1; count <= 9; count++) {
    int power = count - 1 - exponent;
    uint64_t nearest;
    if (!Way::nearest(value, exponent, power, &nearest)) return false;
    uint64_t found = nearest;
    Reading reading = Way::readsBack(nearest, power, value);
    if (reading == Reading::kNo) {
      found = Way::below(nearest, power, value) ? nearest + 1 : nearest - 1;
      reading = Way::readsBack(found, power, value);
    }
    if (reading == Reading::kUnsure) return false;
    if (reading == Reading::kYes) {
      *shortest = integerDecimal(found, power);
      return true;
    }
  }
  return false;
}

// printf's %.*g digits of a positive value where double arithmetic settles
// them: `precision` digits, trailing zeros kept.
inline bool computedDigits(double magnitude, int precision, Decimal* digits) {
  int exponent;
  uint64_t nearest;
  if (precision > 9 || !decimalExponent(magnitude, &exponent)) return false;
  double x;
  if (!scaled(magnitude, precision - 1 - exponent, &x) || !nearestInteger(x, &nearest)) {
    return false;
  }
  if (nearest == uint64_t(kPowersOfTen[precision])) {  // 9.99... rounded up to 10.0...
    nearest /= 10;
    exponent++;
  }
  char* end = std::to_chars(digits->digits, digits->digits + sizeof digits->digits, nearest).ptr;
  digits->count = int(end - digits->digits);
  digits->exponent = exponent;
  return true;
}

/* Text */

inline int fixedLength(const Decimal& decimal) {
  if (decimal.exponent >= decimal.count - 1) return decimal.exponent + 1;
  if (decimal.exponent >= 0) return decimal.count + 1;
  return decimal.count + 1 - decimal.exponent;
}

inline int scientificLength(const Decimal& decimal) {
  int exponentDigits = decimal.exponent <= -100 || decimal.exponent >= 100 ? 3 : 2;
  return decimal.count + (decimal.count > 1 ? 1 : 0) + 2 + exponentDigits;
}

// Text of a number, built in place.
struct Text {
  char characters[64];
  size_t length = 0;

  void add(const char* text, size_t size) {
    memcpy(characters + length, text, size);
    length += size;
  }
  void add(char character) { characters[length++] = character; }
  void repeat(char character, int count) {
    memset(characters + length, character, size_t(count));
    length += size_t(count);
  }
};

inline void addFixed(const Decimal& decimal, Text* text) {
  if (decimal.exponent >= decimal.count - 1) {
    text->add(decimal.digits, size_t(decimal.count));
    text->repeat('0', decimal.exponent - decimal.count + 1);
  } else if (decimal.exponent >= 0) {
    text->add(decimal.digits, size_t(decimal.exponent) + 1);
    text->add('.');
    text->add(decimal.digits + decimal.exponent + 1, size_t(decimal.count - decimal.exponent - 1));
  } else {
    text->add("0.", 2);
    text->repeat('0', -decimal.exponent - 1);
    text->add(decimal.digits, size_t(decimal.count));
  }
}

// d.ddde+XX, the exponent of two digits at least.
inline void addScientific(const Decimal& decimal, Text* text) {
  text->add(decimal.digits[0]);
  if (decimal.count > 1) {
    text->add('.');
    text->add(decimal.digits + 1, size_t(decimal.count - 1));
  }
  text->add('e');
  text->add(decimal.exponent < 0 ? '-' : '+');
  int magnitude = decimal.exponent < 0 ? -decimal.exponent : decimal.exponent;
  if (magnitude < 10) text->add('0');
  char digits[8];
  text->add(digits, size_t(std::to_chars(digits, digits + sizeof digits, magnitude).ptr - digits));
}

inline std::to_chars_result copyText(char* first, char* last, const char* text, size_t size) {
  if (last - first < std::ptrdiff_t(size)) return {last, std::errc::value_too_large};
  memcpy(first, text, size);
  return {first + size, std::errc()};
}

inline std::to_chars_result copyPrinted(char* first, char* last, const char* format, ...) {
  char text[64];
  va_list arguments;
  va_start(arguments, format);
  int size = vsnprintf(text, sizeof text, format, arguments);
  va_end(arguments);
  return copyText(first, last, text, size_t(size));
}

// The fewest digits that read back as a finite positive double, through
// printf and strtod: doubles are the times and numbers of scripts, few in a world.
// Where the nearest text of a length does not read back, a neighbour may.
inline Decimal shortestDoubleDecimal(double value) {
  for (int precision = 0;; precision++) {
    char text[48];
    snprintf(text, sizeof text, "%.*e", precision, value);
    uint64_t nearest = 0;
    const char* p = text;
    for (; *p != 'e'; p++) {
      if (*p != '.') nearest = nearest * 10 + uint64_t(*p - '0');
    }
    int power = precision - atoi(p + 1);
    for (uint64_t candidate : {nearest, nearest + 1, nearest - 1}) {
      if (strtod(PrintedWay::text(candidate, power).c_str(), nullptr) == value) {
        return integerDecimal(candidate, power);
      }
    }
  }
}

// The fast way where it is sure, else the exact one.
inline Decimal shortestDecimalOf(float magnitude) {
  Decimal decimal;
  if (!shortestDecimal<ComputedWay>(magnitude, &decimal)) {
    shortestDecimal<PrintedWay>(magnitude, &decimal);
  }
  return decimal;
}

inline Decimal shortestDecimalOf(double magnitude) { return shortestDoubleDecimal(magnitude); }

template <class Number>
std::to_chars_result toCharsShortest(char* first, char* last, Number value) {
  if (!std::isfinite(value) || value == 0) return copyPrinted(first, last, "%g", double(value));
  Decimal decimal = shortestDecimalOf(std::fabs(value));
  if (decimal.exponent >= decimal.count - 1 && fixedLength(decimal) <= scientificLength(decimal)) {
    // An integer is written with its exact digits, which are no longer.
    return copyPrinted(first, last, "%.0f", double(value));
  }
  Text text;
  if (value < 0) text.add('-');
  if (fixedLength(decimal) <= scientificLength(decimal)) {
    addFixed(decimal, &text);
  } else {
    addScientific(decimal, &text);
  }
  return copyText(first, last, text.characters, text.length);
}

// The shortest digits in scientific notation: "1.5e-07", "0e+00".
template <class Number>
std::to_chars_result toCharsScientific(char* first, char* last, Number value) {
  if (!std::isfinite(value)) return copyPrinted(first, last, "%g", double(value));
  Decimal decimal = {{'0'}, 1, 0};
  if (value != 0) decimal = shortestDecimalOf(std::fabs(value));
  Text text;
  if (std::signbit(value)) text.add('-');
  addScientific(decimal, &text);
  return copyText(first, last, text.characters, text.length);
}

// printf's %.*g: fixed notation where the exponent lies in [-4, precision),
// else scientific; trailing zeros and a lone point dropped.
inline std::to_chars_result toCharsGeneral(char* first, char* last, double value, int precision) {
  Decimal digits;
  bool computed = value != 0 && std::isfinite(value) &&
                  computedDigits(std::fabs(value), precision, &digits);
  if (!computed) return copyPrinted(first, last, "%.*g", precision, value);
  dropTrailingZeros(&digits);
  Text text;
  if (value < 0) text.add('-');
  if (digits.exponent >= -4 && digits.exponent < precision) {
    addFixed(digits, &text);
  } else {
    addScientific(digits, &text);
  }
  return copyText(first, last, text.characters, text.length);
}

/* Reading */

// What from_chars takes of a decimal number: [-]digits[.digits][e[+-]digits],
// with a digit somewhere before the exponent. The significand's first 19
// digits, the power of ten that they stand under, and whether digits past
// them were not all zero.
struct DecimalText {
  const char* end = nullptr;
  bool negative = false;
  uint64_t significand = 0;
  int power = 0;
  bool inexact = false;
};

inline int readExponent(const char** cursor, const char* last) {
  const char* p = *cursor;
  if (p == last || (*p != 'e' && *p != 'E')) return 0;
  p++;
  bool negative = p != last && *p == '-';
  if (p != last && (*p == '-' || *p == '+')) p++;
  if (p == last || !isdigit(static_cast<unsigned char>(*p))) return 0;
  int exponent = 0;
  for (; p != last && isdigit(static_cast<unsigned char>(*p)); p++) {
    if (exponent < 100000) exponent = exponent * 10 + (*p - '0');
  }
  *cursor = p;
  return negative ? -exponent : exponent;
}

inline bool readDecimalText(const char* first, const char* last, DecimalText* number) {
  const char* p = first;
  number->negative = p != last && *p == '-';
  if (number->negative) p++;
  int digits = 0, kept = 0;
  bool point = false;
  for (; p != last; p++) {
    if (*p == '.' && !point) {
      point = true;
      continue;
    }
    if (!isdigit(static_cast<unsigned char>(*p))) break;
    digits++;
    if (number->significand == 0 && *p == '0') {  // leading zeros count for nothing
      if (point) number->power--;
      continue;
    }
    if (kept < 19) {
      number->significand = number->significand * 10 + uint64_t(*p - '0');
      kept++;
      if (point) number->power--;
    } else {
      number->inexact |= *p != '0';
      if (!point) number->power++;
    }
  }
  if (digits == 0) return false;
  number->power += readExponent(&p, last);
  number->end = p;
  return true;
}

inline std::from_chars_result fromChars(const char* first, const char* last, float& value) {
  DecimalText number;
  if (!readDecimalText(first, last, &number)) {
    bool named = last - first >= 3 && (strncasecmp(first + (*first == '-'), "inf", 3) == 0 ||
                                       strncasecmp(first + (*first == '-'), "nan", 3) == 0);
    if (!named) return {first, std::errc::invalid_argument};
    number.end = last;
  }
  double read;
  float nearest;
  if (number.significand == 0 && number.end != last && !number.inexact) {
    value = number.negative ? -0.0f : 0.0f;
    return {number.end, std::errc()};
  }
  if (!number.inexact && number.significand <= (uint64_t(1) << 53) &&
      scaled(double(number.significand), number.power, &read) && nearestFloat(read, &nearest)) {
    value = number.negative ? -nearest : nearest;
    return {number.end, std::errc()};
  }
  std::string text(first, number.end);
  char* end;
  errno = 0;
  float exact = strtof(text.c_str(), &end);
  const char* stop = first + (end - text.c_str());
  // Out of range: too large for a float, or too small for any but zero; a
  // subnormal result is in range.
  if (errno == ERANGE && (std::isinf(exact) || exact == 0)) {
    return {stop, std::errc::result_out_of_range};
  }
  value = exact;
  return {stop, std::errc()};
}

}  // namespace charconv_float

#ifdef __EMSCRIPTEN__
namespace std {

inline to_chars_result to_chars(char* first, char* last, float value) {
  return charconv_float::toCharsShortest(first, last, value);
}

inline to_chars_result to_chars(char* first, char* last, double value) {
  return charconv_float::toCharsShortest(first, last, value);
}

// Of the formats with a precision, the tool asks for these two alone.
inline to_chars_result to_chars(char* first, char* last, double value, chars_format format,
                                int precision) {
  if (format == chars_format::scientific) {
    return charconv_float::copyPrinted(first, last, "%.*e", precision, value);
  }
  if (format != chars_format::general) abort();
  return charconv_float::toCharsGeneral(first, last, value, precision);
}

inline to_chars_result to_chars(char* first, char* last, float value, chars_format format,
                                int precision) {
  return to_chars(first, last, double(value), format, precision);
}

// Of the formats without a precision, the scientific one alone.
template <class Number>
to_chars_result to_chars(char* first, char* last, Number value, chars_format format) {
  if (format != chars_format::scientific) abort();
  return charconv_float::toCharsScientific(first, last, value);
}

inline from_chars_result from_chars(const char* first, const char* last, float& value,
                                    chars_format = chars_format::general) {
  return charconv_float::fromChars(first, last, value);
}

}  // namespace std
#endif

#endif
