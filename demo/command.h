// orlim-agent demo: from options to an exit status.
#pragma once

#include "demo/options.h"

namespace Host {

// Lists or stages the scenarios. Returns the exit status and writes the reason of each failure to standard error. On
// the main thread, before any other thread is started.
int DemoCommand(const DemoOptions& options);

}  // namespace Host
