// Whether the kernel shows what other processes wait for, for orlim-agent check.
#pragma once

#include <optional>
#include <string>

#include "host/check/report.h"

namespace Host {

// What /proc shows of a process that is asleep in the read of a pipe.
struct SleepingRead {
    std::string stack;
    int stackError = 0;  // errno of the read of stack
    std::string call;    // its file "syscall"
    int callError = 0;
    int descriptor = -1;  // that it reads from
};

// Why the module cannot see from this what the process waits for: the rest of a sentence that begins with "because".
// Empty if it can.
std::string WhyWaitIsHidden(const SleepingRead& seen);

// What to do about it, as a sentence.
std::string RemedyForHiddenWait(const SleepingRead& seen);

// Starts a process that reads from a pipe, awaits that it is asleep and looks at it; it is gone on return. Empty, with
// error, if it cannot be started or does not fall asleep within a second. Not while another thread waits for child
// processes of its own by any id.
std::optional<SleepingRead> TrySleepingRead(std::string& error);

void CheckKernelWaits(CheckReport& report);

}  // namespace Host
