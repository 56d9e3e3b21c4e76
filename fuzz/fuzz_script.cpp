// The script front end: under --vrml97 a text that the parser accepts prints
// to a text that the parser accepts and that prints to itself. The printer
// writes the text of a url string, with quotes and backslashes escaped; it is
// read back as the string's value. The first byte chooses the language: bit 1
// set, that of --vrml97; without it the text is parsed and printed, as the
// tool reads and writes it byte for byte, where "0 .x" prints as "0.x". A
// check that fails while parsing rejects the text, as it makes a Script
// opaque in a run.
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

#include "jsparser.h"
#include "main.h"

namespace {

// The printed text of the parsed script, or false when the parser rejects it.
bool reprinted(std::string text, std::string* printed) {
  JSParser* program = new JSParser;
  if (!runTrial([&]() { program->parseScript(&text[0]); })) return false;
  char* buffer = nullptr;
  size_t size = 0;
  FILE* stream = open_memstream(&buffer, &size);
  program->printFunctions(stream);
  fclose(stream);
  printed->assign(buffer, size);
  free(buffer);
  return true;
}

// The value of a string whose text is `escaped`: each backslash takes the
// character behind it as it is.
std::string stringValue(const std::string& escaped) {
  std::string value;
  for (size_t i = 0; i < escaped.size(); i++) {
    if (escaped[i] == '\\' && i + 1 < escaped.size()) i++;
    value += escaped[i];
  }
  return value;
}

}  // namespace

// The parser recurses as deep as the text nests; as in a run, past a stretch
// of this thread's stack the recursion goes on on stacks of its own.
constexpr size_t kStackBeforeSegments = size_t(1) << 20;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  if (size == 0) return 0;
  stackSegmentLimit = reinterpret_cast<uintptr_t>(__builtin_frame_address(0)) - kStackBeforeSegments;
  std::string text(reinterpret_cast<const char*>(data + 1), size - 1);
  text.resize(strlen(text.c_str()));  // the parser reads up to the first NUL
  RunHeap heap;
  beginRunHeap(&heap);
  setRunOptions((data[0] >> 1) & 1, 0);
  std::string first, second;
  if (reprinted(text, &first) && vrml97Option()) {
    if (!reprinted(stringValue(first), &second)) {
      fprintf(stderr, "printed text rejected:\n%s\n", first.c_str());
      abort();
    }
    if (first != second) {
      fprintf(stderr, "printed text changed:\n%s\n---\n%s\n", first.c_str(), second.c_str());
      abort();
    }
  }
  setRunOptions(0, 0);
  endRunHeap(&heap);
  return 0;
}
