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

#include <zlib.h>

#include "vrmlparse.h"

int vrml97Option = 0;

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

// The depth of the context stack at the start of each trial now running.
std::vector<size_t>* trialDepths = new std::vector<size_t>;

size_t contextDepth() {
  size_t depth = 0;
  for (const ContextCell* cell = myStack; cell != nullptr; cell = cell->next) depth++;
  return depth;
}

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

void beginTrial() { trialDepths->push_back(contextDepth()); }

void endTrial() { trialDepths->pop_back(); }

void abandonTrial() {
  while (contextDepth() > trialDepths->back()) popContext();
  trialDepths->pop_back();
}

void reportError(const char* format, ...) {
  if (!trialDepths->empty()) throw TrialFailed{};
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
  if (!trialDepths->empty()) throw TrialFailed{};
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
 * gzip
 * ------------------------------------------------------------------------ */

bool isGzipData(const char* data, size_t size) {
  return size >= 2 && (unsigned char)data[0] == 0x1f && (unsigned char)data[1] == 0x8b;
}

namespace {

constexpr int kGzipWindowBits = 15 + 16;  // the largest window, with the gzip wrapper

}  // namespace

char* gunzipData(const char* data, size_t size, size_t* textSize) {
  z_stream z = {};
  if (inflateInit2(&z, kGzipWindowBits) != Z_OK) return nullptr;
  z.next_in = reinterpret_cast<Bytef*>(const_cast<char*>(data));
  z.avail_in = uInt(size);
  size_t capacity = size * 4 + 1024;
  char* text = static_cast<char*>(malloc(capacity + 1));
  int status = Z_OK;
  while (text != nullptr && status == Z_OK) {
    if (z.total_out == capacity) {
      capacity *= 2;
      char* larger = static_cast<char*>(realloc(text, capacity + 1));
      if (larger == nullptr) free(text);
      text = larger;
      if (text == nullptr) break;
    }
    z.next_out = reinterpret_cast<Bytef*>(text + z.total_out);
    z.avail_out = uInt(capacity - z.total_out);
    status = inflate(&z, Z_NO_FLUSH);
    if (status == Z_BUF_ERROR && z.avail_out != 0) break;  // input ends before the stream
    if (status == Z_BUF_ERROR) status = Z_OK;
  }
  inflateEnd(&z);
  if (status != Z_STREAM_END || z.avail_in != 0 || text == nullptr) {
    free(text);
    return nullptr;
  }
  *textSize = z.total_out;
  text[*textSize] = 0;
  return text;
}

bool writeGzipData(FILE* stream, const char* data, size_t size) {
  z_stream z = {};
  if (deflateInit2(&z, Z_BEST_COMPRESSION, Z_DEFLATED, kGzipWindowBits, 9, Z_DEFAULT_STRATEGY) !=
      Z_OK) {
    return false;
  }
  z.next_in = reinterpret_cast<Bytef*>(const_cast<char*>(data));
  z.avail_in = uInt(size);
  static unsigned char chunk[1 << 16];
  int status;
  do {
    z.next_out = chunk;
    z.avail_out = sizeof chunk;
    status = deflate(&z, Z_FINISH);
    size_t produced = sizeof chunk - z.avail_out;
    if (status == Z_STREAM_ERROR || fwrite(chunk, 1, produced, stream) != produced) break;
  } while (status != Z_STREAM_END);
  deflateEnd(&z);
  return status == Z_STREAM_END;
}

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

// --vrml97: the shortest text that reads back as the same float, so that a
// number of the world keeps its value.
char* formatFloat(char* buffer, float value) {
  if (vrml97Option) return std::to_chars(buffer, buffer + 32, value).ptr;
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
    if (strcmp(argument, "--vrml97") == 0) {
      vrml97Option = 1;
    } else if (argument[0] == '-') {
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

bool hasSuffix(const char* name, const char* suffix) {
  size_t length = strlen(name), suffixLength = strlen(suffix);
  return length >= suffixLength && strcmp(name + length - suffixLength, suffix) == 0;
}

void reportWriteFailure() {
  fprintf(stderr, "Failed to write file %s\n", outputFileName);
  CHECK(0);
}

// A world written whole in memory first, then compressed into the file.
void writeCompressed(VPFile* file, FILE* stream) {
  char* text = nullptr;
  size_t size = 0;
  FILE* memory = open_memstream(&text, &size);
  CHECK(memory != NULL);
  file->write(memory);
  fclose(memory);
  bool written = writeGzipData(stream, text, size);
  free(text);
  if (!written) reportWriteFailure();
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
  if (hasSuffix(outputFileName, ".wrz") || hasSuffix(outputFileName, ".gz")) {
    writeCompressed(file, outputStream);
  } else {
    file->write(outputStream);
  }
  if (fflush(outputStream) != 0 || ferror(outputStream)) reportWriteFailure();
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
