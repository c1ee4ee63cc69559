// The demonstration as its caller sees it: from options to an exit status.
#pragma once

#include "demo/options.h"

namespace Host {

// Lists the wirings or stages them. Returns the exit status; every failure is explained on standard error. On the main
// thread, before any other has been started.
int DemoCommand(const DemoOptions& options);

}  // namespace Host
