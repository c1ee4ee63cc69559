// orlim-agent check.
#pragma once

#include "host/program/options.h"

namespace Host {

// Prints what this host lacks and returns the exit status. On the main thread.
int CheckCommand(const Options& options);

}  // namespace Host
