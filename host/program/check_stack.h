// Whether kernel stacks of other processes can be read, for orlim-agent check.
#pragma once

#include "host/program/check_report.h"

namespace Host {

// Starts a process asleep in the read of a pipe and looks at its kernel stack. Not while another thread waits for
// child processes of its own by any id.
void CheckKernelStacks(CheckReport& report);

}  // namespace Host
