// orlim-agent run.
#pragma once

#include "host/program/options.h"

namespace Host {

// Watches this host until SIGTERM or SIGINT and returns the exit status. On the main thread, before any other thread is
// started.
int RunCommand(const Options& options);

}  // namespace Host
