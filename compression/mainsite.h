// A site: every world in a folder's tree pared into a new folder, every other
// file copied, on several threads at once.
#ifndef WORLDPARE_MAINSITE_H
#define WORLDPARE_MAINSITE_H

#include <string>

#include "pareworld.h"

struct SiteOptions {
  PareOptions pare;        // leniency, vrml97, digits and the memory of all jobs together
  int jobs;                // worlds pared at once; 0: one a core
  const char* reportPath;  // one CSV row a file, or NULL
};

// A name that a world may have: .wrl, .wrz, .gz or .vrml, in any case.
bool hasWorldName(std::string name);

// 1 when every world was pared, 2 when some were copied after a stop, -2
// when the output folder or the report exists, -3 when a file could not be
// read or written.
int pareSite(const char* inputFolder, const char* outputFolder, const SiteOptions& options);

#endif
