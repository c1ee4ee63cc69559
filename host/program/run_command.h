// orlim-agent run.
#pragma once

#include "host/program/options.h"

namespace Host {

// Watches until SIGTERM or SIGINT and returns the exit status. On the main thread, before any other has been started.
int RunCommand(const Options& options);

}  // namespace Host
