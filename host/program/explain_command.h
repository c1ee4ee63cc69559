// orlim-agent explain.
#pragma once

#include "host/program/options.h"

namespace Host {

// Prints how a process is wired and what each detection makes of it, and returns the exit status. On
// the main thread.
int ExplainCommand(const Options& options);

}  // namespace Host
