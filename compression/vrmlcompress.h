// Compression passes: the preparation of the scene for the simulation and
// everything that takes something out of the scene. They are members of
// VPFile (vrmlparse.h) and run in the order of the pipeline (main).
#ifndef WORLDPARE_VRMLCOMPRESS_H
#define WORLDPARE_VRMLCOMPRESS_H

#include "vrmlparse.h"

#endif
