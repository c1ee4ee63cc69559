// orlim-agent explain.
#pragma once

#include "host/program/options.h"

namespace Host {

// Prints the wiring of a process and the verdict of each detection. Returns the exit status. Main thread only.
int ExplainCommand(const Options& options);

}  // namespace Host
