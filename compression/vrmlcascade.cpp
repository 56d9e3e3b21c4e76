// Event cascade driver.
#include "vrmlcascade.h"

void VPFile::runCascade() {}
