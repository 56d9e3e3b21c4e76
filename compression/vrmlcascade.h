// Event cascade: what can happen to each field of the scene. The driver is a
// member of VPFile (vrmlparse.h), called by the pipeline (main).
#ifndef WORLDPARE_VRMLCASCADE_H
#define WORLDPARE_VRMLCASCADE_H

#include "vrmlparse.h"

#endif
