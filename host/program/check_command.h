// orlim-agent check.
#pragma once

#include "host/program/options.h"

namespace Host {

// Prints the facilities that this host has and lacks, and the blind detections. Returns the exit status. Main thread
// only.
int CheckCommand(const Options& options);

}  // namespace Host
