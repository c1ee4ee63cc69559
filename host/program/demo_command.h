// orlim-agent demo.
#pragma once

#include "host/program/options.h"

namespace Host {

// Stages known wirings and tells which the module finds; returns the exit status. On the main thread, before any other
// has been started.
int DemoCommand(const Options& options);

}  // namespace Host
