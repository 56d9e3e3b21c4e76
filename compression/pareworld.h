/* The whole tool as one call: the bytes of a world in; the status, the pared
 * world and every message out. Plain C, so that any host can call it: the
 * command line (main.cpp), a test, a fuzzer or a page.
 *
 * Nothing of a run outlives the call but its result: every counter, table and
 * record is made anew when a run starts and freed when it ends, also when it
 * stops on an error. Runs share nothing: any number of threads may call it at
 * once. */
#ifndef WORLDPARE_PAREWORLD_H
#define WORLDPARE_PAREWORLD_H

#include <stddef.h>

#ifdef __cplusplus
extern "C" {
#endif

/* The options of the command line, and what the names of its files decide. */
struct PareOptions {
  int leniency;          /* -l: recoverable errors are warnings */
  int vrml97;            /* --vrml97: the whole VRML97 language */
  int gzipOutput;        /* write the world gzip-compressed, as for a name ending .wrz or .gz */
  const char* inputName; /* the name of the input in messages; NULL reads as "" */
  int digits;            /* --digits N, 1 to 9, with vrml97: the significant digits of the
                            floats that no Script can see; 0 keeps every float exact */
  size_t memoryLimit;    /* the most bytes that the run's records may hold: a world that needs
                            more stops with "Out of memory"; 0: what the system gives */
};

struct PareResult {
  int status;          /* 1: the world is pared; -3: the run stopped */
  char* output;        /* status 1: the pared world, else NULL; from malloc */
  size_t outputSize;
  char* messages;      /* every message, in order, as the tool prints them to its
                          error stream; NUL-ended, from malloc */
  size_t messagesSize; /* the NUL not counted */
};

/* Runs the tool on the `size` bytes of a world, plain or gzip-compressed. */
void pareWorld(const char* input, size_t size, const struct PareOptions* options,
               struct PareResult* result);
/* Frees the output and the messages of a result. */
void releasePareResult(struct PareResult* result);

#ifdef __cplusplus
}
#endif

#endif
