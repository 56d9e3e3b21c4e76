// Program entry. The host hands over the arguments ready split, so a file name
// may hold a blank; the limits of a single command-line text still apply to the
// arguments joined by single blanks.
#include "winmain.h"

#include <cstring>
#include <string>

#include "main.h"

int main(int hostArgc, char** hostArgv) {
  std::string joined;
  for (int i = 1; i < hostArgc; i++) {
    if (i > 1) joined += ' ';
    joined += hostArgv[i];
  }
  const char* lpCmdLine = joined.c_str();
  CHECK(strlen (lpCmdLine) < 1023);
  static char* argv[kMaxArguments];
  argv[0] = const_cast<char*>("unknown");
  int argc = 1;
  for (int i = 1; i < hostArgc; i++) {
    CHECK(argc < 100);
    argv[argc++] = hostArgv[i];
  }
  return worldPareMain(argc, argv);
}
