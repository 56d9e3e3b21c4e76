// Driver and diagnostics: command-line options, the fixed order of the passes,
// the context stack, the reports and the orderly stop.
#include "main.h"

#include <pthread.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cctype>
#include <charconv>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "vrmlparse.h"

namespace {

int leniency = 0;
const char* inputFileName = nullptr;
const char* outputFileName = nullptr;
FILE* outputStream = nullptr;  // set only once the output file exists

struct ContextCell {
  ContextCell* next;
  std::string text;
};
ContextCell* myStack = nullptr;  // newest first
int warningCount = 0;
int alertCount = 0;

// The passes recurse once per level of nesting in the world and once per event
// delivery in a chain; sanitizer frames are several times larger.
#ifdef WORLDPARE_SANITIZE
constexpr size_t kPassStackSize = size_t(8) << 30;
#else
constexpr size_t kPassStackSize = size_t(2) << 30;
#endif

const char kUsage[] =
    "Usage: worldPare [-l] <file_in> <file_out>\n\n"
    "  -l   Sets the leniency flag.  Recoverable errors changed to warnings.\n";

std::string formatText(const char* format, va_list args) {
  va_list copy;
  va_copy(copy, args);
  int length = vsnprintf(nullptr, 0, format, copy);
  va_end(copy);
  std::string text(length > 0 ? size_t(length) : 0, '\0');
  vsnprintf(text.data(), text.size() + 1, format, args);
  return text;
}

void dumpContext() {
  fprintf(stderr, "Stack dump:\n");
  std::vector<const ContextCell*> cells;
  for (const ContextCell* cell = myStack; cell != nullptr; cell = cell->next) cells.push_back(cell);
  for (auto cell = cells.rbegin(); cell != cells.rend(); ++cell) {
    fprintf(stderr, "  %s\n", (*cell)->text.c_str());
  }
}

// The report of the first three calls, one line for the fourth, then silence.
void reportCounted(int* count, const char* prefix, const char* suppressed, const char* format,
                   va_list args) {
  std::string text = formatText(format, args);
  ++*count;
  if (*count <= 3) {
    fprintf(stderr, "%s: %s\n", prefix, text.c_str());
    dumpContext();
  } else if (*count == 4) {
    fputs(suppressed, stderr);
  }
}

}  // namespace

void pushContext(const char* format, ...) {
  va_list args;
  va_start(args, format);
  myStack = new ContextCell{myStack, formatText(format, args)};
  va_end(args);
}

void popContext() {
  CHECK(myStack != NULL);
  ContextCell* cell = myStack;
  myStack = cell->next;
  delete cell;
}

void reportError(const char* format, ...) {
  va_list args;
  va_start(args, format);
  reportCounted(&warningCount, leniency ? "Warning" : "Error", "Further warnings suppressed\n",
                format, args);
  va_end(args);
  if (warningCount <= 3 && !leniency) stopRun();
}

void reportAlert(const char* format, ...) {
  va_list args;
  va_start(args, format);
  reportCounted(&alertCount, "Alert", "Further alerts suppressed\n", format, args);
  va_end(args);
}

void assertionFailed(const char* expression, const char* file, int line) {
  const char* slash = strrchr(file, '/');
  fprintf(stderr, "Assertion failed \"%s\", File: %s, Line: %d:\n", expression,
          slash != nullptr ? slash + 1 : file, line);
  dumpContext();
  stopRun();
}

void stopRun() {
  if (outputStream != nullptr) unlink(outputFileName);
  exit(-3);
}

/* ---------------------------------------------------------------------------
 * Records that live for the whole run
 * ------------------------------------------------------------------------ */

namespace {

#ifdef WORLDPARE_SANITIZE
// Each record is its own allocation, so that the sanitizer's redzones guard it;
// the list keeps them reachable until the process ends.
std::vector<void*>* const records = new std::vector<void*>;
#else
constexpr size_t kBlockSize = size_t(1) << 20;
char* blockNext = nullptr;
char* blockEnd = nullptr;
#endif

}  // namespace

void* allocateRecord(size_t size) {
#ifdef WORLDPARE_SANITIZE
  void* record = calloc(1, size != 0 ? size : 1);
  CHECK(record != NULL);
  records->push_back(record);
  return record;
#else
  size = (size + 7) & ~size_t(7);
  if (size > kBlockSize / 4) {
    void* record = calloc(1, size);
    CHECK(record != NULL);
    return record;
  }
  if (size_t(blockEnd - blockNext) < size) {
    blockNext = static_cast<char*>(calloc(1, kBlockSize));
    CHECK(blockNext != NULL);
    blockEnd = blockNext + kBlockSize;
  }
  void* record = blockNext;
  blockNext += size;
  return record;
#endif
}

char* copyString(const char* text, size_t length) {
  char* copy = newArray<char>(length + 1);
  memcpy(copy, text, length);
  return copy;
}

char* copyString(const char* text) { return copyString(text, strlen(text)); }

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

char* formatFloat(char* buffer, float value) {
  return std::to_chars(buffer, buffer + 32, double(value), std::chars_format::general, 6).ptr;
}

/* ---------------------------------------------------------------------------
 * The pipeline
 * ------------------------------------------------------------------------ */

namespace {

int printUsage() {
  printf("%s", kUsage);
  return -2;
}

// Returns 0 when the arguments name both files, else the status of the usage text.
int readArguments(int argc, char** argv) {
  for (int i = 1; i < argc; i++) {
    const char* argument = argv[i];
    if (argument[0] == '-') {
      const char* letter = argument + 1;
      do {
        if (*letter != 'l') return printUsage();
        leniency = 1;
      } while (*++letter != 0);
    } else if (inputFileName == nullptr) {
      inputFileName = argument;
    } else if (outputFileName == nullptr) {
      outputFileName = argument;
    } else {
      return printUsage();
    }
  }
  if (inputFileName == nullptr || outputFileName == nullptr) return printUsage();
  return 0;
}

void writeOutput(VPFile* file) {
  // "x": a file that appeared since the existence test is not overwritten either.
  FILE* stream = fopen(outputFileName, "wx");
  if (stream == nullptr) {
    fprintf(stderr, "Failed to open file %s for writing\n", outputFileName);
    exit(-2);
  }
  static char buffer[1 << 16];
  setvbuf(stream, buffer, _IOFBF, sizeof buffer);
  outputStream = stream;
  file->write(outputStream);
  if (fflush(outputStream) != 0 || ferror(outputStream)) {
    fprintf(stderr, "Failed to write file %s\n", outputFileName);
    CHECK(0);
  }
}

VPFile* theFile = nullptr;  // keeps the scene reachable to the leak checker at exit

void* runPasses(void*) {
  theFile = new VPFile;
  theFile->readFile(inputFileName);
  theFile->scanNodes();
  theFile->hoistProtoDefaults();
  theFile->runCascade();
  theFile->pruneProtoInterfaces();
  theFile->pruneSwitches();
  theFile->dropDefNames();
  writeOutput(theFile);
  return nullptr;
}

}  // namespace

int worldPareMain(int argc, char** argv) {
  int usageStatus = readArguments(argc, argv);
  if (usageStatus != 0) return usageStatus;
  struct stat status;
  if (stat(outputFileName, &status) == 0) {
    fprintf(stderr, "File %s already exists\n", outputFileName);
    return -2;
  }
  pthread_attr_t attributes;
  pthread_attr_init(&attributes);
  pthread_attr_setstacksize(&attributes, kPassStackSize);
  pthread_t passes;
  CHECK(pthread_create (&passes, &attributes, runPasses, NULL) == 0);
  pthread_join(passes, nullptr);
  pthread_attr_destroy(&attributes);
  return 1;
}
