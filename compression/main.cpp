// Driver and diagnostics: the passes of a run behind pareWorld, the command
// line around it, the context stack, the reports and the orderly stop.
#include "main.h"
#include "mainsite.h"

#include <sys/stat.h>
#include <unistd.h>
#ifndef __EMSCRIPTEN__
#include <libdeflate.h>
#include <pthread.h>
#endif

#include <algorithm>
#include <cctype>
#include <charconv>
#include <cmath>
#include <condition_variable>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <exception>
#include <memory>
#include <mutex>
#include <new>
#include <string>
#include <utility>
#include <vector>

#include "pareworld.h"
#include "vrmlcascade.h"
#include "vrmlparse.h"

namespace {

// One line of the context stack, kept as its format and arguments: most are
// popped unread, so the text is made only when a report dumps the stack. The
// arguments are names that live as long as the reading of the world; a stop
// dumps the stack before it unwinds the reading.
struct ContextCell {
  static constexpr int kMaxArguments = 3;
  const char* format;
  union Argument {
    const char* string;
    int integer;
  } arguments[kMaxArguments];
};

}  // namespace

// What the reports and the stops of a run act on. Outside any run the
// process's own serves: its reports go to stderr and a stop ends the process.
struct Diagnostics {
  int leniency = 0;
  const char* inputName = "";       // FILE of the reports about a place in the input
  bool stopPlaced = false;          // the coming stop's place is already reported
  std::string* messages = nullptr;  // the run's messages; NULL: stderr
  std::vector<ContextCell> contextStack;  // oldest first
  int warningCount = 0;
  int alertCount = 0;
  // The depth of the context stack at the start of each trial now running.
  std::vector<size_t> trialDepths;
};

namespace {

RunHeap processHeap;
Diagnostics processDiagnostics;
RunContext processContext = {0, 0, &processHeap, &processDiagnostics, {}};

Diagnostics* diagnostics() { return currentRun->diagnostics; }

// What ends a run early: thrown by a stop, caught where the passes began.
struct RunStopped {
  int status;
};

size_t contextDepth() { return diagnostics()->contextStack.size(); }

const char kUsage[] =
    "Usage: worldPare [-l] <file_in> <file_out>\n\n"
    "  -l   Sets the leniency flag.  Recoverable errors changed to warnings.\n";

// A report stays readable and small also when the world is not: a text keeps
// its first kLongText characters (the most a line of a report had in the
// first versions of the tool), and a dump of more than kLongDump bytes keeps
// kDumpEnd bytes of lines at each end. A DEF name of 60000 characters on a
// node in a cycle of events would otherwise print on each of 10000 lines.
constexpr size_t kLongText = 1023;
constexpr size_t kLongDump = size_t(5) << 20;
constexpr size_t kDumpEnd = size_t(256) << 10;

// The arguments of a format as a report passes them.
struct PassedArguments {
  va_list& list;
  const char* string() { return va_arg(list, const char*); }
  int integer() { return va_arg(list, int); }
};

// The arguments of a format as a context cell keeps them.
struct KeptArguments {
  const ContextCell::Argument* next;
  const char* string() { return (next++)->string; }
  int integer() { return (next++)->integer; }
};

// Walks a format of the reports in order: each character of its text, and
// its conversions %s and %d; %% stands for a '%' of the text.
template <class Text, class Conversion>
void walkFormat(const char* format, Text text, Conversion conversion) {
  for (const char* p = format; *p != 0; p++) {
    if (*p != '%') {
      text(p);
    } else if (*++p == 's' || *p == 'd') {
      conversion(*p);
    } else {
      CHECK(*p == '%');
      text(p);
    }
  }
}

// The text of a report's format. A string is measured, never copied past the
// kept part, so that a name of 600000 characters on each of 100000 lines
// costs little.
template <class Arguments>
std::string formatText(const char* format, Arguments arguments) {
  std::string text;
  size_t length = 0;
  auto append = [&text, &length](const char* part, size_t size) {
    if (text.size() < kLongText) text.append(part, std::min(size, kLongText - text.size()));
    length += size;
  };
  walkFormat(format, [&append](const char* p) { append(p, 1); }, [&](char conversion) {
    if (conversion == 's') {
      const char* string = arguments.string();
      if (string == nullptr) string = "(null)";
      append(string, strlen(string));
    } else {
      char number[16];
      append(number, size_t(snprintf(number, sizeof number, "%d", arguments.integer())));
    }
  });
  if (length <= kLongText) return text;
  bool endsLine = format[strlen(format) - 1] == '\n';
  return text + " [... " + std::to_string(length - kLongText) + " more characters]" +
         (endsLine ? "\n" : "");
}

std::string formatText(const char* format, va_list args) {
  va_list list;
  va_copy(list, args);
  std::string text = formatText(format, PassedArguments{list});
  va_end(list);
  return text;
}

std::string contextText(const ContextCell& cell) {
  return formatText(cell.format, KeptArguments{cell.arguments});
}

void emit(const std::string& text) {
  if (diagnostics()->messages != nullptr) {
    diagnostics()->messages->append(text);
  } else {
    fputs(text.c_str(), stderr);
  }
}

// How many lines from the start of the range fill no more than kDumpEnd bytes.
template <class Iterator>
size_t linesWithin(Iterator line, Iterator end) {
  size_t bytes = 0, count = 0;
  for (; line != end && bytes + line->size() + 3 <= kDumpEnd; ++line, ++count) {
    bytes += line->size() + 3;
  }
  return count;
}

void dumpContext() {
  emit("Stack dump:\n");
  std::vector<std::string> lines;  // oldest first
  size_t bytes = 0;
  for (const ContextCell& cell : diagnostics()->contextStack) {
    lines.push_back(contextText(cell));
    bytes += lines.back().size() + 3;
  }
  auto print = [](const std::string& line) { emit("  " + line + "\n"); };
  if (bytes <= kLongDump) {
    for (const std::string& line : lines) print(line);
    return;
  }
  size_t head = linesWithin(lines.begin(), lines.end());
  size_t tail = linesWithin(lines.rbegin(), lines.rend());
  for (size_t i = 0; i < head; i++) print(lines[i]);
  emit("  [... " + std::to_string(lines.size() - head - tail) + " lines left out]\n");
  for (size_t i = lines.size() - tail; i < lines.size(); i++) print(lines[i]);
}

// The report of the first three calls, one line for the fourth, then silence.
void reportCounted(int* count, const char* prefix, const char* suppressed, const char* format,
                   va_list args) {
  std::string text = formatText(format, args);
  ++*count;
  if (*count <= 3) {
    emit(prefix + (": " + text) + "\n");
    dumpContext();
  } else if (*count == 4) {
    emit(suppressed);
  }
}

}  // namespace

void printMessage(const char* format, ...) {
  va_list args;
  va_start(args, format);
  emit(formatText(format, args));
  va_end(args);
}

void pushContext(const char* format, ...) {
  ContextCell cell = {format, {}};
  va_list args;
  va_start(args, format);
  int count = 0;
  walkFormat(format, [](const char*) {}, [&](char conversion) {
    CHECK(count < ContextCell::kMaxArguments);
    ContextCell::Argument& argument = cell.arguments[count++];
    if (conversion == 's') {
      argument.string = va_arg(args, const char*);
    } else {
      argument.integer = va_arg(args, int);
    }
  });
  va_end(args);
  diagnostics()->contextStack.push_back(cell);
}

void popContext() {
  std::vector<ContextCell>& stack = diagnostics()->contextStack;
  const ContextCell* myStack = stack.empty() ? NULL : &stack.back();
  CHECK(myStack != NULL);
  stack.pop_back();
}

void beginTrial() { diagnostics()->trialDepths.push_back(contextDepth()); }

void endTrial() { diagnostics()->trialDepths.pop_back(); }

void abandonTrial() {
  while (contextDepth() > diagnostics()->trialDepths.back()) popContext();
  diagnostics()->trialDepths.pop_back();
}

void reportError(const char* format, ...) {
  if (!diagnostics()->trialDepths.empty()) throw TrialFailed{};
  va_list args;
  va_start(args, format);
  int leniency = diagnostics()->leniency;
  reportCounted(&diagnostics()->warningCount, leniency ? "Warning" : "Error",
                "Further warnings suppressed\n", format, args);
  va_end(args);
  if (diagnostics()->warningCount <= 3 && !leniency) stopRun();
}

void reportAlert(const char* format, ...) {
  va_list args;
  va_start(args, format);
  reportCounted(&diagnostics()->alertCount, "Alert", "Further alerts suppressed\n", format, args);
  va_end(args);
}

int reportCount() { return diagnostics()->warningCount + diagnostics()->alertCount; }

void assertionFailed(const char* expression, const char* file, int line) {
  if (!diagnostics()->trialDepths.empty()) throw TrialFailed{};
  const char* slash = strrchr(file, '/');
  printMessage("Assertion failed \"%s\", File: %s, Line: %d:\n", expression,
               slash != nullptr ? slash + 1 : file, line);
  dumpContext();
  stopRun();
}

namespace {

void emitPlace(int line, int column, const char* format, va_list args) {
  emit(std::string(diagnostics()->inputName) + ":" + std::to_string(line) + ":" +
       std::to_string(column) + ": " + formatText(format, args) + "\n");
}

}  // namespace

void reportAtInput(int line, int column, const char* format, ...) {
  if (!vrml97Option()) return;
  va_list args;
  va_start(args, format);
  emitPlace(line, column, format, args);
  va_end(args);
}

void markStopPlaced() { diagnostics()->stopPlaced = true; }

void inputCheckFailed(const char* expression, const char* file, int sourceLine, int line,
                      int column, const char* format, ...) {
  if (vrml97Option() && diagnostics()->trialDepths.empty() && !diagnostics()->stopPlaced) {
    va_list args;
    va_start(args, format);
    emitPlace(line, column, format, args);
    va_end(args);
  }
  assertionFailed(expression, file, sourceLine);
}

__thread RunContext* currentRun = &processContext;
__thread uintptr_t stackSegmentLimit = 0;

void setRunOptions(int vrml97, int digits) {
  currentRun->vrml97 = vrml97;
  currentRun->digits = digits;
}

void stopRun() {
  if (diagnostics()->messages == nullptr) exit(-3);
  throw RunStopped{-3};
}

/* ---------------------------------------------------------------------------
 * gzip
 * ------------------------------------------------------------------------ */

bool isGzipData(const char* data, size_t size) {
  return size >= 2 && (unsigned char)data[0] == 0x1f && (unsigned char)data[1] == 0x8b;
}

#ifdef __EMSCRIPTEN__
// The WebAssembly build has no libdeflate: its page inflates and compresses
// worlds with the browser's own streams, and a gzip stream that reaches the run
// is one that the browser could not inflate either.
char* gunzipData(const char*, size_t, size_t*) { return nullptr; }

bool writeGzipData(FILE*, const char*, size_t) { return false; }
#else
namespace {

// The highest level of libdeflate, whose output any gzip reader inflates.
constexpr int kGzipLevel = 12;

// The size that the last member's trailer gives, taken as a first guess of the
// whole text when it is plausible: deflate shrinks at most about 1032 to 1.
size_t guessInflatedSize(const unsigned char* data, size_t size) {
  size_t lastSize = size >= 4 ? size_t(data[size - 4]) | size_t(data[size - 3]) << 8 |
                                    size_t(data[size - 2]) << 16 | size_t(data[size - 1]) << 24
                              : 0;
  return lastSize <= size * 1032 ? std::max(lastSize, size * 4) : size * 4;
}

// Inflates one member after another into `*text`, growing it and inflating a
// member again when it does not fit; false when a member is damaged or cut.
bool inflateMembers(libdeflate_decompressor* inflater, const unsigned char* data, size_t size,
                    char** text, size_t* capacity, size_t* textSize) {
  size_t position = 0;
  *textSize = 0;
  while (position < size) {
    size_t used = 0, produced = 0;
    libdeflate_result result =
        libdeflate_gzip_decompress_ex(inflater, data + position, size - position, *text + *textSize,
                                      *capacity - *textSize, &used, &produced);
    if (result == LIBDEFLATE_INSUFFICIENT_SPACE) {
      *capacity *= 2;
      char* larger = static_cast<char*>(realloc(*text, *capacity + 1));
      if (larger == nullptr) return false;
      *text = larger;
      continue;
    }
    if (result != LIBDEFLATE_SUCCESS) return false;
    position += used;
    *textSize += produced;
  }
  return true;
}

}  // namespace

// A stream of several members inflates to their texts one after another.
char* gunzipData(const char* data, size_t size, size_t* textSize) {
  const unsigned char* bytes = reinterpret_cast<const unsigned char*>(data);
  size_t capacity = guessInflatedSize(bytes, size);
  char* text = static_cast<char*>(malloc(capacity + 1));
  libdeflate_decompressor* inflater = libdeflate_alloc_decompressor();
  bool inflated = text != nullptr && inflater != nullptr &&
                  inflateMembers(inflater, bytes, size, &text, &capacity, textSize);
  libdeflate_free_decompressor(inflater);
  if (!inflated) {
    free(text);
    return nullptr;
  }
  text[*textSize] = 0;
  return text;
}

bool writeGzipData(FILE* stream, const char* data, size_t size) {
  libdeflate_compressor* deflater = libdeflate_alloc_compressor(kGzipLevel);
  if (deflater == nullptr) return false;
  size_t bound = libdeflate_gzip_compress_bound(deflater, size);
  char* packed = static_cast<char*>(malloc(bound));
  size_t packedSize =
      packed != nullptr ? libdeflate_gzip_compress(deflater, data, size, packed, bound) : 0;
  libdeflate_free_compressor(deflater);
  bool written = packedSize != 0 && fwrite(packed, 1, packedSize, stream) == packedSize;
  free(packed);
  return written;
}
#endif

/* ---------------------------------------------------------------------------
 * Number text
 * ------------------------------------------------------------------------ */

bool isHexDigit(char c) { return isxdigit(static_cast<unsigned char>(c)); }

char* skipHexDigits(char* p) {
  while (isHexDigit(*p)) p++;
  return p;
}

namespace {

char* skipDigits(char* p) {
  while (isDecimalDigit(*p)) p++;
  return p;
}

}  // namespace

char* skipDecimalNumber(char* p, bool* isFloat) {
  p = skipDigits(p);
  *isFloat = false;
  if (*p == '.') {
    *isFloat = true;
    p = skipDigits(p + 1);
  }
  if (*p == 'E' || *p == 'e') {
    *isFloat = true;
    p++;
    if (*p == '-' || *p == '+') p++;
    p = skipDigits(p);
  }
  return p;
}

void readDecimal(const char* text, int32_t* value) {
  bool negative = *text == '-';
  if (*text == '-' || *text == '+') text++;
  if (!isDecimalDigit(*text)) return;
  uint32_t magnitude = 0;
  for (; isDecimalDigit(*text); text++) magnitude = magnitude * 10 + uint32_t(*text - '0');
  *value = int32_t(negative ? 0u - magnitude : magnitude);
}

void readHexadecimal(const char* digits, int32_t* value) {
  if (!isHexDigit(*digits)) return;
  uint32_t result = 0;
  for (; isHexDigit(*digits); digits++) {
    char c = char(tolower(static_cast<unsigned char>(*digits)));
    result = result * 16 + uint32_t(isDecimalDigit(c) ? c - '0' : c - 'a' + 10);
  }
  *value = int32_t(result);
}

void readFloat(const char* text, float* value) {
  const char* start = *text == '+' ? text + 1 : text;
  float result;
  std::from_chars_result read = std::from_chars(start, start + strlen(start), result);
  if (read.ec == std::errc()) {
    *value = result;
  } else if (read.ec == std::errc::result_out_of_range) {
    *value = strtof(text, nullptr);
  }
}

namespace {

/// The significant digits of a number and the place of its decimal point:
/// the value is 0.digits times ten to the power `point`.
struct DecimalDigits {
  bool negative;
  char digits[24];
  int count;
  int point;
};

// Reads to_chars' scientific text, "-d.ddde+xx"; trailing zeros of the digits go.
DecimalDigits readScientific(const char* text) {
  DecimalDigits number = {*text == '-', {}, 0, 0};
  const char* p = number.negative ? text + 1 : text;
  for (; *p != 'e'; p++) {
    if (*p != '.') number.digits[number.count++] = *p;
  }
  while (number.count > 1 && number.digits[number.count - 1] == '0') number.count--;
  number.point = atoi(p + 1) + 1;
  return number;
}

char* writeZeros(char* out, int count) {
  for (int i = 0; i < count; i++) *out++ = '0';
  return out;
}

// Without a point or an exponent, the tokenizers read a number as a 32-bit
// integer: that form serves whole numbers up to 2147483647 only; others get a point.
char* writePlain(char* out, const DecimalDigits& number) {
  const char* digits = number.digits;
  if (number.point <= 0) {
    *out++ = '.';
    out = writeZeros(out, -number.point);
    return std::copy(digits, digits + number.count, out);
  }
  if (number.point < number.count) {
    out = std::copy(digits, digits + number.point, out);
    *out++ = '.';
    return std::copy(digits + number.point, digits + number.count, out);
  }
  char* start = out;
  out = writeZeros(std::copy(digits, digits + number.count, out), number.point - number.count);
  if (out - start > 10 || (out - start == 10 && memcmp(start, "2147483647", 10) > 0)) *out++ = '.';
  return out;
}

// The digits as a whole number and the power of ten: "15e-8".
char* writeExponent(char* out, const DecimalDigits& number) {
  out = std::copy(number.digits, number.digits + number.count, out);
  *out++ = 'e';
  return std::to_chars(out, out + 8, number.point - number.count).ptr;
}

// The shorter of the plain form without a leading zero (".5", "1200") and the
// exponent form ("1e5", "2e-7"); the plain one when both are as long.
char* writeDense(char* buffer, const char* scientific) {
  DecimalDigits number = readScientific(scientific);
  char* out = buffer;
  if (number.negative) *out++ = '-';
  char plain[352], exponent[32];  // ".", 323 zeros and 17 digits at most
  size_t plainLength = size_t(writePlain(plain, number) - plain);
  size_t exponentLength = size_t(writeExponent(exponent, number) - exponent);
  if (plainLength <= exponentLength) return std::copy(plain, plain + plainLength, out);
  return std::copy(exponent, exponent + exponentLength, out);
}

// The text of to_chars is the dense one already, but for a leading zero,
// when it is plain and no exponent form is as short: not "1e+05", "0.0001",
// nor "12000". A whole number of eight digits or more it writes with all the
// digits of its value, not the shortest ones, and it may need a point.
bool isNearlyDense(const char* text, const char* end) {
  const char* digits = *text == '-' ? text + 1 : text;
  ptrdiff_t length = end - digits;
  // to_chars writes an exponent with a sign and two or three digits.
  if (!isDecimalDigit(*digits) || (length >= 5 && (end[-4] == 'e' || end[-5] == 'e'))) return false;
  if (digits[0] == '0' && digits[1] == '.') return strncmp(digits + 2, "000", 3) != 0;
  if (memchr(digits, '.', size_t(length)) != nullptr) return true;
  return length < 8 && (length < 4 || memcmp(end - 3, "000", 3) != 0);
}

template <class Number>
char* formatShortest(char* buffer, Number value) {
  char* shortest = std::to_chars(buffer, buffer + 32, value).ptr;
  *shortest = 0;
  if (isNearlyDense(buffer, shortest)) {
    char* zero = *buffer == '-' ? buffer + 1 : buffer;
    if (zero[0] != '0' || zero[1] != '.') return shortest;
    std::copy(zero + 1, shortest, zero);
    return shortest - 1;
  }
  char scientific[48];
  char* end = std::to_chars(scientific, scientific + sizeof scientific, value,
                            std::chars_format::scientific).ptr;
  if (!std::isfinite(value)) return std::copy(scientific, end, buffer);
  *end = 0;
  return writeDense(buffer, scientific);
}

}  // namespace

// --vrml97: the shortest text that reads back as the same float, so that a
// number of the world keeps its value.
char* formatFloat(char* buffer, float value) {
  if (vrml97Option()) return formatShortest(buffer, value);
  return std::to_chars(buffer, buffer + 32, double(value), std::chars_format::general, 6).ptr;
}

char* formatDouble(char* buffer, double value) { return formatShortest(buffer, value); }

float roundSignificant(float value, int digits) {
  char text[48];
  *std::to_chars(text, text + sizeof text, value, std::chars_format::scientific).ptr = 0;
  if (!std::isfinite(value) || readScientific(text).count <= digits) return value;
  *std::to_chars(text, text + sizeof text, value, std::chars_format::scientific, digits - 1).ptr = 0;
  float rounded = value;
  readFloat(text, &rounded);
  return rounded;
}

/* ---------------------------------------------------------------------------
 * A run
 * ------------------------------------------------------------------------ */

namespace {

// The passes recurse once per level of nesting in the world and once per event
// delivery in a chain; sanitizer frames are several times larger.
#if defined(WORLDPARE_SANITIZE)
constexpr size_t kPassStackSize = size_t(8) << 30;
#elif !defined(__EMSCRIPTEN__)
constexpr size_t kPassStackSize = size_t(2) << 30;
#endif
#ifndef __EMSCRIPTEN__
// How much of a pass stack a recursion uses before it goes on on the next:
// AddressSanitizer follows an unwind of at most 64 MB, and a stop unwinds
// each stack separately.
constexpr size_t kStackSegment = size_t(32) << 20;
#endif

// The file of the command line: created when the world is ready to be
// written, so that a run that stops before leaves none behind.
struct OutputFile {
  const char* path;
  FILE* stream = nullptr;  // set once the file exists
  char buffer[1 << 16];    // the stream's
};

struct Run {
  Run(char* worldText, size_t size, const PareOptions* runOptions, OutputFile* file)
      : text(worldText),
        textSize(size),
        options(runOptions),
        inputName(runOptions->inputName != nullptr ? runOptions->inputName : ""),
        outputFile(file) {}
  Run(const Run&) = delete;
  Run& operator=(const Run&) = delete;

  char* text;  // the input, which the tokenizer writes into; a NUL stands behind it
  size_t textSize;
  const PareOptions* options;
  const char* inputName;
  OutputFile* outputFile;  // NULL: the world goes into `output`
  Diagnostics diagnostics;
  std::string messages;
  RunHeap heap;
  RunContext context = {};
  int status = 1;
  char* output = nullptr;  // from malloc
  size_t outputSize = 0;
};

// A stream into memory. The stdio buffer gathers the writer's small pieces;
// each flush appends them to the text, which grows in place. The text is
// freed with the stream unless taken.
class MemoryStream {
 public:
  MemoryStream() {
    cookie_io_functions_t functions = {nullptr, append, nullptr, nullptr};
    stream = fopencookie(this, "w", functions);
    CHECK(stream != NULL);
    CHECK(setvbuf (stream, nullptr, _IOFBF, kBufferSize) == 0);
  }
  ~MemoryStream() {
    if (stream != nullptr) fclose(stream);
    free(text);
  }
  MemoryStream(const MemoryStream&) = delete;
  MemoryStream& operator=(const MemoryStream&) = delete;

  FILE* file() const { return stream; }
  const char* data() const { return text; }
  size_t size() const { return length; }
  void close() {
    CHECK(fclose (stream) == 0);
    stream = nullptr;
  }
  char* take() {
    char* taken = text;
    text = nullptr;
    return taken;
  }

 private:
  static constexpr size_t kBufferSize = size_t(1) << 16;

  static ssize_t append(void* cookie, const char* data, size_t size) {
    auto* memory = static_cast<MemoryStream*>(cookie);
    if (memory->length + size > memory->capacity) {
      size_t capacity = std::max(memory->capacity * 2, memory->length + size);
      char* larger = static_cast<char*>(realloc(memory->text, capacity));
      if (larger == nullptr) return -1;
      memory->text = larger;
      memory->capacity = capacity;
    }
    memcpy(memory->text + memory->length, data, size);
    memory->length += size;
    return ssize_t(size);
  }

  FILE* stream = nullptr;
  char* text = nullptr;
  size_t length = 0;
  size_t capacity = 0;
};

using MallocText = std::unique_ptr<char, decltype(&free)>;

// The world inflated when it is gzip-compressed, as NUL-ended text.
MallocText inflatedText(const Run& run) {
  size_t size;
  MallocText text(gunzipData(run.text, run.textSize, &size), free);
  if (text == nullptr) {
    printMessage("Failed to decompress file %s\n", run.inputName);
    CHECK(0);
  }
  return text;
}

void readWorld(VPFile* file, const Run& run) {
  if (!isGzipData(run.text, run.textSize)) {
    file->parseText(run.text);
  } else {
    file->parseText(inflatedText(run).get());
  }
}

void reportWriteFailure(const Run& run) {
  if (run.outputFile != nullptr) printMessage("Failed to write file %s\n", run.outputFile->path);
  CHECK(0);
}

// The world as the options ask for it, plain or gzip-compressed; `write`
// writes it plain into a stream.
template <class Write>
void writeWorldTo(Write write, const Run& run, FILE* stream) {
  if (!run.options->gzipOutput) {
    write(stream);
    return;
  }
  MemoryStream world;
  write(world.file());
  world.close();
  if (!writeGzipData(stream, world.data(), world.size())) reportWriteFailure(run);
}

template <class Write>
void writeWorldToMemory(Write write, Run* run) {
  MemoryStream world;
  writeWorldTo(write, *run, world.file());
  world.close();
  run->outputSize = world.size();
  run->output = world.take();
}

// "x": a file that appeared since the test before the run is not overwritten.
template <class Write>
void writeWorldToFile(Write write, const Run& run) {
  OutputFile* output = run.outputFile;
  output->stream = fopen(output->path, "wx");
  if (output->stream == nullptr) {
    printMessage("Failed to open file %s for writing\n", output->path);
    throw RunStopped{-2};
  }
  setvbuf(output->stream, output->buffer, _IOFBF, sizeof output->buffer);
  writeWorldTo(write, run, output->stream);
  if (fflush(output->stream) != 0 || ferror(output->stream)) reportWriteFailure(run);
}

// The passes behind the reading, in their fixed order.
void pareFile(VPFile* file) {
  file->scanNodes();
  file->hoistProtoDefaults();
  file->runCascade();
  file->pruneProtoInterfaces();
  file->pruneSwitches();
  file->dropDefNames();
  if (digitsOption() != 0) file->roundUnseenFloats(digitsOption());
  if (vrml97Option()) file->shareIdenticalNodes();
}

std::string writtenText(VPFile* file) {
  MemoryStream world;
  file->write(world.file());
  world.close();
  return std::string(world.data(), world.size());
}

// One reading of a world: its records, and what the run indexes of them,
// end with it, so that the next reading finds the memory warm and the indexes
// small.
class ReadingScope {
 public:
  ReadingScope() { beginRunHeap(&heap); }
  ~ReadingScope() {
    endRunHeap(&heap);
    currentRun->reading = ReadingState();
  }
  ReadingScope(const ReadingScope&) = delete;
  ReadingScope& operator=(const ReadingScope&) = delete;

 private:
  RunHeap heap;
};

// The text of a world read and pared again; false when the pass stops. Its
// messages, about a world that the run wrote itself, are dropped.
bool pareAgain(const std::string& text, std::string* pared) {
  Diagnostics kept = *diagnostics();
  size_t messagesKept = diagnostics()->messages != nullptr ? diagnostics()->messages->size() : 0;
  bool finished = runTrial([&]() {
    std::vector<char> buffer(text.begin(), text.end());
    buffer.push_back(0);
    ReadingScope reading;
    VPFile file;
    file.parseText(buffer.data());
    pareFile(&file);
    *pared = writtenText(&file);
  });
  if (diagnostics()->messages != nullptr) diagnostics()->messages->resize(messagesKept);
  diagnostics()->warningCount = kept.warningCount;
  diagnostics()->alertCount = kept.alertCount;
  return finished;
}

// At most this many passes settle a world; one that they do not settle keeps
// the text of the last.
constexpr int kMaxSettlingPasses = 8;

// --vrml97: what the simulation of the scripts cuts can let a simulation of
// what is left cut more (a test that folded to a constant, a field that
// nothing reads any more). The world is pared again from its own text until a
// pass writes what it read, so that the tool run on its output writes it again.
std::string settledText(std::string text) {
  for (int pass = 1; pass < kMaxSettlingPasses; pass++) {
    std::string next;
    if (!pareAgain(text, &next) || next == text) break;
    text.swap(next);
  }
  return text;
}

template <class Write>
void writeOutput(Write write, Run* run) {
  if (run->outputFile != nullptr) {
    writeWorldToFile(write, *run);
  } else {
    writeWorldToMemory(write, run);
  }
}

// Worlds without a Script or a PROTO are settled after one pass.
void runPasses(Run* run) {
  std::string settled;
  {
    ReadingScope reading;
    VPFile file;
    readWorld(&file, *run);
    pareFile(&file);
    if (!vrml97Option() || !file.mayCutMoreAgain()) {
      writeOutput([&](FILE* stream) { file.write(stream); }, run);
      return;
    }
    settled = writtenText(&file);
  }
  settled = settledText(std::move(settled));
  writeOutput([&](FILE* stream) { fwrite(settled.data(), 1, settled.size(), stream); }, run);
}

// Memory that runs out, in the run heap or in a container, stops the run in
// order like any other stop: no partial output, status 253.
template <class Step>
void runUntilStopped(Run* run, Step step) {
  try {
    step();
  } catch (const RunStopped& stop) {
    run->status = stop.status;
  } catch (const std::bad_alloc&) {
    printMessage("Out of memory\n");
    run->status = -3;
  }
}

// Makes a run's record the current one of this thread while it lives.
class CurrentRun {
 public:
  explicit CurrentRun(RunContext* context) : outer(currentRun) { currentRun = context; }
  ~CurrentRun() { currentRun = outer; }
  CurrentRun(const CurrentRun&) = delete;
  CurrentRun& operator=(const CurrentRun&) = delete;

 private:
  RunContext* outer;
};

void* passThread(void* run) {
  CurrentRun current(&static_cast<Run*>(run)->context);
  runUntilStopped(static_cast<Run*>(run), [run]() { runPasses(static_cast<Run*>(run)); });
  return nullptr;
}

#ifndef __EMSCRIPTEN__
// A thread with a stack as large as the deepest worlds need, which runs the
// calls handed to it one at a time for the thread that made it, and ends
// with that thread: making such a stack takes longer than paring a small
// world. What a call throws is thrown on in the thread that handed it.
class StackThread {
 public:
  // Under a limit of address space the stack is the largest that the limit
  // leaves, down to two segments.
  explicit StackThread(size_t largest) {
    for (size_t size = largest; !startWithStack(size); size /= 2) {
      if (size <= 2 * kStackSegment) throw std::bad_alloc();
    }
  }
  ~StackThread() {
    {
      std::lock_guard<std::mutex> lock(mutex);
      ending = true;
    }
    handed.notify_one();
    pthread_join(thread, nullptr);
  }
  StackThread(const StackThread&) = delete;
  StackThread& operator=(const StackThread&) = delete;

  void run(void (*call)(void*), void* data) {
    std::unique_lock<std::mutex> lock(mutex);
    waiting = {call, data};
    handed.notify_one();
    finished.wait(lock, [this]() { return waiting.call == nullptr; });
    if (thrown != nullptr) std::rethrow_exception(std::exchange(thrown, nullptr));
  }

 private:
  struct Call {
    void (*call)(void*);
    void* data;
  };

  bool startWithStack(size_t size) {
    pthread_attr_t attributes;
    pthread_attr_init(&attributes);
    pthread_attr_setstacksize(&attributes, size);
    int made = pthread_create(&thread, &attributes, serve, this);
    pthread_attr_destroy(&attributes);
    return made == 0;
  }

  static void* serve(void* self) {
    static_cast<StackThread*>(self)->serveCalls();
    return nullptr;
  }
  void serveCalls() {
    stackSegmentLimit = reinterpret_cast<uintptr_t>(__builtin_frame_address(0)) - kStackSegment;
    std::unique_lock<std::mutex> lock(mutex);
    for (;;) {
      handed.wait(lock, [this]() { return waiting.call != nullptr || ending; });
      if (waiting.call == nullptr) return;
      lock.unlock();
      try {
        waiting.call(waiting.data);
      } catch (...) {
        thrown = std::current_exception();
      }
      lock.lock();
      waiting.call = nullptr;
      finished.notify_one();
    }
  }

  pthread_t thread;
  std::mutex mutex;
  std::condition_variable handed;
  std::condition_variable finished;
  Call waiting = {nullptr, nullptr};  // the call to run or running
  std::exception_ptr thrown;
  bool ending = false;
};
#endif

// Outside the namespace: the recursions of every module call it.
}  // namespace

void runOnNextSegment(void (*call)(void*), void* data) {
#ifdef __EMSCRIPTEN__
  call(data);
#else
  struct Hop {
    RunContext* run;
    void (*call)(void*);
    void* data;
  } hop = {currentRun, call, data};
  // A segment goes on to the next after kStackSegment; the rest of its stack
  // is for the frames between two steps of a recursion.
  static thread_local StackThread nextSegment(8 * kStackSegment);
  nextSegment.run(
      [](void* hopData) {
        Hop* onward = static_cast<Hop*>(hopData);
        CurrentRun current(onward->run);
        onward->call(onward->data);
      },
      &hop);
#endif
}

namespace {

// The passes on a stack of their own. A WebAssembly build has no threads:
// its stack is the one the host gave.
void runOnPassStack(Run* run) {
#ifdef __EMSCRIPTEN__
  passThread(run);
#else
  runUntilStopped(run, [run]() {
    static thread_local StackThread passes(kPassStackSize);
    passes.run([](void* data) { passThread(data); }, run);
  });
#endif
}

// Everything that a run changes is in its record, made afresh; the end frees it all.
void beginRun(Run* run) {
  RunContext& context = run->context;
  context.vrml97 = run->options->vrml97 ? 1 : 0;
  context.digits = context.vrml97 ? run->options->digits : 0;
  context.heap = &run->heap;
  context.heapLimit = run->options->memoryLimit;
  context.diagnostics = &run->diagnostics;
  run->diagnostics.leniency = run->options->leniency ? 1 : 0;
  run->diagnostics.inputName = run->inputName;
  run->diagnostics.messages = &run->messages;
}

void endRun(Run* run) {
  run->diagnostics.contextStack.clear();
  endRunHeap(&run->heap);
}

// The run over a text of the caller's that the passes may write into. With
// an output file the world goes there and the result has no output.
void pareWorldText(char* text, size_t size, const PareOptions* options, OutputFile* file,
                   PareResult* result) {
  Run run(text, size, options, file);
  beginRun(&run);
  {
    CurrentRun current(&run.context);
    runOnPassStack(&run);
    endRun(&run);
  }
  result->status = run.status;
  result->output = run.output;
  result->outputSize = run.outputSize;
  result->messagesSize = run.messages.size();
  result->messages = static_cast<char*>(malloc(run.messages.size() + 1));
  CHECK(result->messages != NULL);
  memcpy(result->messages, run.messages.c_str(), run.messages.size() + 1);
}

}  // namespace

void pareWorld(const char* input, size_t size, const PareOptions* options, PareResult* result) {
  MallocText text(static_cast<char*>(malloc(size + 1)), free);
  CHECK(text != NULL);
  if (size != 0) memcpy(text.get(), input, size);
  text.get()[size] = 0;
  pareWorldText(text.get(), size, options, nullptr, result);
}

void releasePareResult(PareResult* result) {
  free(result->output);
  free(result->messages);
  result->output = result->messages = nullptr;
  result->outputSize = result->messagesSize = 0;
}

/* ---------------------------------------------------------------------------
 * The command line
 * ------------------------------------------------------------------------ */

namespace {

struct CommandLine {
  int leniency = 0;
  int vrml97 = 0;
  int digits = 0;
  int jobs = 0;
  const char* reportPath = nullptr;
  const char* inputFileName = nullptr;
  const char* outputFileName = nullptr;
};

int printUsage() {
  printf("%s", kUsage);
  return -2;
}

const char kVersion[] = "worldPare 1.1\n";

const char kHelp[] =
    "Usage: worldPare [options] <file_in> <file_out>\n"
    "       worldPare [options] <folder_in> <folder_out>\n\n"
    "  -l              recoverable errors become warnings\n"
    "  --vrml97        read the whole VRML97 language; the output does what the input did\n"
    "  --digits N      with --vrml97: at most N (1-9) digits in floats that no Script sees\n"
    "  -j N            with folders: pare N worlds at once (default: one a core)\n"
    "  --report FILE   with folders: write one CSV row a file to FILE\n"
    "  --help          print this help and end\n"
    "  --version       print the version and end\n";

// -j N: a number of threads from 1 to 256.
int readJobs(const char* number, CommandLine* line) {
  char* end = nullptr;
  long jobs = number != nullptr ? strtol(number, &end, 10) : 0;
  if (end == number || *end != 0 || jobs < 1 || jobs > 256) {
    printMessage("-j takes a number of worlds at once from 1 to 256\n");
    return printUsage();
  }
  line->jobs = int(jobs);
  return 0;
}

// --digits N: one digit from 1 to 9, and only with --vrml97.
int readDigits(const char* number, CommandLine* line) {
  if (number == nullptr || number[0] < '1' || number[0] > '9' || number[1] != 0) {
    printMessage("--digits takes a number of significant digits from 1 to 9\n");
    return printUsage();
  }
  line->digits = number[0] - '0';
  return 0;
}

// Returns 0 when the arguments name both files, 1 after --help or --version,
// else the status of the usage text.
int readArguments(int argc, char** argv, CommandLine* line) {
  for (int i = 1; i < argc; i++) {
    const char* argument = argv[i];
    if (strcmp(argument, "--vrml97") == 0) {
      line->vrml97 = 1;
    } else if (strcmp(argument, "--digits") == 0) {
      if (readDigits(i + 1 < argc ? argv[++i] : nullptr, line) != 0) return -2;
    } else if (strcmp(argument, "-j") == 0) {
      if (readJobs(i + 1 < argc ? argv[++i] : nullptr, line) != 0) return -2;
    } else if (strcmp(argument, "--report") == 0 && i + 1 < argc) {
      line->reportPath = argv[++i];
    } else if (strcmp(argument, "--help") == 0 || strcmp(argument, "--version") == 0) {
      printf("%s", argument[2] == 'h' ? kHelp : kVersion);
      return 1;
    } else if (argument[0] == '-') {
      const char* letter = argument + 1;
      do {
        if (*letter != 'l') return printUsage();
        line->leniency = 1;
      } while (*++letter != 0);
    } else if (line->inputFileName == nullptr) {
      line->inputFileName = argument;
    } else if (line->outputFileName == nullptr) {
      line->outputFileName = argument;
    } else {
      return printUsage();
    }
  }
  if (line->digits != 0 && !line->vrml97) {
    printMessage("--digits rounds numbers only together with --vrml97\n");
    return printUsage();
  }
  if (line->inputFileName == nullptr || line->outputFileName == nullptr) return printUsage();
  return 0;
}

bool hasSuffix(const char* name, const char* suffix) {
  size_t length = strlen(name), suffixLength = strlen(suffix);
  return length >= suffixLength && strcmp(name + length - suffixLength, suffix) == 0;
}

// The whole input file; a failure is reported as a failed check.
MallocText readInputFile(const char* path, size_t* size) {
  struct stat status;
  if (stat(path, &status) != 0) {
    printMessage("File %s doesn't exist\n", path);
    CHECK(0);
  }
  *size = size_t(status.st_size);
  MallocText bytes(static_cast<char*>(malloc(*size + 1)), free);
  FILE* input = bytes != nullptr ? fopen(path, "rb") : nullptr;
  if (input == nullptr) {
    printMessage("Failed to read file %s\n", path);
    CHECK(0);
  }
  if (fread(bytes.get(), 1, *size, input) != *size) {
    printMessage("Failed to read entire file %s\n", path);
    CHECK(0);
  }
  fclose(input);
  bytes.get()[*size] = 0;
  return bytes;
}

// A run that stopped while it wrote leaves no partial file, nor does a file
// that does not close.
int closeOutputFile(const OutputFile& output, int status) {
  if (output.stream == nullptr) return status;
  bool closed = fclose(output.stream) == 0;
  if (status == 1 && closed) return 1;
  unlink(output.path);
  if (status == 1) {
    printMessage("Failed to write file %s\n", output.path);
    CHECK(0);
  }
  return status;
}

// The most that the records of one command's runs may hold: half the
// machine's memory, which leaves room for the indexes beside them. A world
// that needs more (PROTOs that each hold two of the one before, say) stops
// with a message instead of being killed.
size_t machineMemoryShare() {
  long pages = sysconf(_SC_PHYS_PAGES);
  long pageSize = sysconf(_SC_PAGESIZE);
  if (pages <= 0 || pageSize <= 0) return 0;
  return size_t(pages) / 2 * size_t(pageSize);
}

}  // namespace

int worldPareMain(int argc, char** argv) {
  CommandLine line;
  int usageStatus = readArguments(argc, argv, &line);
  if (usageStatus == 1) return 0;
  if (usageStatus != 0) return usageStatus;
  struct stat status;
  // A folder into the name of a world file is an input that cannot be read.
  if (stat(line.inputFileName, &status) == 0 && S_ISDIR(status.st_mode) &&
      !hasWorldName(line.outputFileName)) {
    SiteOptions site = {
        {line.leniency, line.vrml97, 0, nullptr, line.digits, machineMemoryShare()}, line.jobs,
        line.reportPath};
    return pareSite(line.inputFileName, line.outputFileName, site);
  }
  if (stat(line.outputFileName, &status) == 0) {
    printMessage("File %s already exists\n", line.outputFileName);
    return -2;
  }
  size_t inputSize;
  MallocText input = readInputFile(line.inputFileName, &inputSize);
  PareOptions options = {line.leniency, line.vrml97,
                         hasSuffix(line.outputFileName, ".wrz") ||
                             hasSuffix(line.outputFileName, ".gz"),
                         line.inputFileName, line.digits, machineMemoryShare()};
  OutputFile output = {line.outputFileName, nullptr, {}};
  PareResult result;
  pareWorldText(input.get(), inputSize, &options, &output, &result);
  fwrite(result.messages, 1, result.messagesSize, stderr);
  releasePareResult(&result);
  return closeOutputFile(output, result.status);
}
