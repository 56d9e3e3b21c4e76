// What the page's worker calls: pareWorld behind plain numbers, so that the
// JavaScript side needs to know no struct layout. The module keeps one result
// at a time; the next run frees it.
#include <emscripten/emscripten.h>

#include "pareworld.h"

namespace {

PareResult lastResult = {};

}  // namespace

extern "C" {

/// Pares the `size` bytes at `input`, a plain world (the worker inflates a
/// compressed one), and keeps the result; the output is always plain.
EMSCRIPTEN_KEEPALIVE void pareForPage(const char* input, size_t size, int leniency, int vrml97,
                                      int digits, const char* inputName) {
  releasePareResult(&lastResult);
  PareOptions options = {leniency, vrml97, 0, inputName, digits, 0};
  pareWorld(input, size, &options, &lastResult);
}

EMSCRIPTEN_KEEPALIVE int resultStatus() { return lastResult.status; }
EMSCRIPTEN_KEEPALIVE const char* resultOutput() { return lastResult.output; }
EMSCRIPTEN_KEEPALIVE size_t resultOutputSize() { return lastResult.outputSize; }
EMSCRIPTEN_KEEPALIVE const char* resultMessages() { return lastResult.messages; }
EMSCRIPTEN_KEEPALIVE size_t resultMessagesSize() { return lastResult.messagesSize; }

}  // extern "C"
