// orlim-agent scan.
#pragma once

#include "host/program/options.h"

namespace Host {

// Looks for reverse shells once and returns the exit status. Main thread only.
int ScanCommand(const Options& options);

}  // namespace Host
