// Driver and diagnostics: the pass pipeline behind pareWorld (pareworld.h),
// the command line, the context stack, every report and every stop. Includes
// no scene header; every other module reports through these calls. In a run
// the reports are the run's messages and a stop unwinds to pareWorld; a pass
// called outside any run (the unit tests) prints to stderr and a stop ends
// the process with the status of the run.
#ifndef WORLDPARE_MAIN_H
#define WORLDPARE_MAIN_H

#include <cstddef>
#include <cstdint>
#include <cstdio>

#include "runcontext.h"

#define WORLDPARE_PRINTF(formatIndex) __attribute__((format(printf, formatIndex, formatIndex + 1)))

/// A check: a condition that holds in a good run. Bad input reaches it too, so it
/// is never compiled out; its text is the report, quoted as written here.
#define CHECK(condition) ((condition) ? (void)0 : assertionFailed(#condition, __FILE__, __LINE__))

/// A line of a report as it stands, such as the cause of the check behind it.
void printMessage(const char* format, ...) WORLDPARE_PRINTF(1);
void pushContext(const char* format, ...) WORLDPARE_PRINTF(1);
void popContext();
/// A recoverable error: stops the run unless -l was given, when it is a warning.
void reportError(const char* format, ...) WORLDPARE_PRINTF(1);
/// A remark that never stops the run.
void reportAlert(const char* format, ...) WORLDPARE_PRINTF(1);
/// The errors, warnings and alerts reported so far, printed or suppressed.
int reportCount();
[[noreturn]] void assertionFailed(const char* expression, const char* file, int line);

/// --vrml97: the first line of a report about the input, as compilers write
/// it: "FILE:LINE:COLUMN: " and a sentence saying what was found and what was
/// expected. Without --vrml97 nothing is written. Columns count bytes from 1.
void reportAtInput(int line, int column, const char* format, ...) WORLDPARE_PRINTF(3);
/// The fault just placed by reportAtInput is the one that a failed check
/// reports next: that check then adds no place of its own.
void markStopPlaced();
/// A failed check on the input: its place and sentence (--vrml97), then the
/// report of the check as CHECK gives it.
[[noreturn]] void inputCheckFailed(const char* expression, const char* file, int sourceLine,
                                   int line, int column, const char* format, ...)
    WORLDPARE_PRINTF(6);
/// A check whose failure concerns a place in the input; the arguments after
/// the place are the sentence's format and values. They are worked out in a
/// function of their own, so that the strings that a sentence is built of take
/// no room in the frames of the recursive descent.
#define CHECK_AT(condition, line, column, ...)                                      \
  ((condition) ? (void)0                                                            \
               : [&]() __attribute__((noinline, cold, noreturn)) {                 \
                   inputCheckFailed(#condition, __FILE__, __LINE__, line, column, \
                                    __VA_ARGS__);                                  \
                 }())
/// Ends the run with status -3.
[[noreturn]] void stopRun();

/// What a failed check or an error throws, instead of stopping, inside a trial.
struct TrialFailed {};
/// Runs `attempt`: true if it ends, false if a check or an error within it
/// fails; reports are then silent, and the context stack is as it was before.
template <class Attempt>
bool runTrial(Attempt attempt);
void beginTrial();
void endTrial();
void abandonTrial();

template <class Attempt>
bool runTrial(Attempt attempt) {
  beginTrial();
  try {
    attempt();
  } catch (const TrialFailed&) {
    abandonTrial();
    return false;
  }
  endTrial();
  return true;
}

/// Where the stack of this thread's segment of a recursion ends: 0 where
/// recursions do not change stacks (outside a run's pass threads).
extern __thread uintptr_t stackSegmentLimit;
/// Calls call(data) on the next stack segment of this thread's recursion.
void runOnNextSegment(void (*call)(void*), void* data);
/// Each level of a recursion that the input can make deep goes through here:
/// past a segment of stack, the rest of the recursion goes on on a stack of
/// its own, so that a stop unwinds no stack further than the sanitizers follow.
template <class Step>
void withStackRoom(Step step) {
  if (reinterpret_cast<uintptr_t>(__builtin_frame_address(0)) >= stackSegmentLimit) {
    step();
    return;
  }
  runOnNextSegment([](void* data) { (*static_cast<Step*>(data))(); }, &step);
}

/// Nonzero when --vrml97 was given: the whole VRML97 language is read.
inline int vrml97Option() { return currentRun->vrml97; }
/// --digits N (with --vrml97): the significant digits of the floats that no
/// Script can see; 0 keeps every float exact.
inline int digitsOption() { return currentRun->digits; }
/// The options of what runs on this thread outside a run: a test or a fuzz
/// target that calls a pass itself. A run takes its own from its PareOptions.
void setRunOptions(int vrml97, int digits);

/// The command line over arguments already split; argv[0] is not read.
/// Returns the exit status.
int worldPareMain(int argc, char** argv);

// gzip-compressed worlds.
bool isGzipData(const char* data, size_t size);
/// The stream, of one member or several, inflated into a new malloc'd buffer
/// with a NUL behind it, or NULL when the stream is damaged or cut short.
char* gunzipData(const char* data, size_t size, size_t* textSize);
/// Writes the bytes gzip-compressed at libdeflate's highest level; false on a failure.
bool writeGzipData(FILE* stream, const char* data, size_t size);

// Number text, shared by the VRML and script tokenizers, readers and writers.
inline bool isDecimalDigit(char c) { return c >= '0' && c <= '9'; }
bool isHexDigit(char c);
char* skipHexDigits(char* p);
/// Steps over digits, then a fraction and an exponent, either of which makes
/// the number a float; their digits may be missing.
char* skipDecimalNumber(char* p, bool* isFloat);
// The readers
// keep the low 32 bits of an integer of any length; a text without digits
// leaves `value` as it stood.
void readDecimal(const char* text, int32_t* value);
void readHexadecimal(const char* digits, int32_t* value);
/// A correctly rounded float, as the C library's "%f" scan reads it.
void readFloat(const char* text, float* value);
/// The text of printf("%g") for the float widened to double; returns its end.
/// Under --vrml97 the shortest text that reads back as the same float, with no
/// leading zero (".5") and in exponent form where that is shorter ("1e5").
char* formatFloat(char* buffer, float value);
/// The float nearest to the value rounded to `digits` significant digits;
/// a value of no more digits stays as it is.
float roundSignificant(float value, int digits);
/// The shortest text that reads back as the same double, laid out as
/// formatFloat does under --vrml97; at most 32 characters.
char* formatDouble(char* buffer, double value);

#endif
