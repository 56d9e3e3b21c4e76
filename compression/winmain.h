// Program entry: takes the arguments that the host split, holds them to the
// limits of the command line, and hands them to the pipeline (main).
#ifndef WORLDPARE_WINMAIN_H
#define WORLDPARE_WINMAIN_H

/// Most arguments, argv[0] included: the check "argc < 100" refuses the hundredth.
constexpr int kMaxArguments = 100;

#endif
