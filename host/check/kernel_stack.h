// Check for orlim-agent check: whether the kernel shows where other processes wait.
#pragma once

#include <optional>
#include <string>

#include "host/check/report.h"

namespace Host {

// The files in /proc of a process that sleeps in the read of a pipe.
struct SleepingRead {
    std::string stack;
    int stackError = 0;  // errno of reading stack
    std::string channel;
    int channelError = 0;  // errno of reading wchan
    std::string call;      // text of /proc/<pid>/syscall
    int callError = 0;
    int descriptor = -1;  // the descriptor that the process reads from
};

// By which file, besides syscall, the module sees where the process waits. It reads wchan only if the stack is empty or
// cannot be read.
enum class WaitFiles { stack, channel, none };
WaitFiles FilesThatShowWait(const SleepingRead& seen);

// Why the module cannot see from this where the process waits: completes a sentence that begins with "because". Empty
// if it can, by either way.
std::string WhyWaitIsHidden(const SleepingRead& seen);

// The remedy, as a sentence without its full stop.
std::string RemedyForHiddenWait(const SleepingRead& seen);

// Starts a process that reads from a pipe, waits until it sleeps, reads its files and ends it. Empty, with error, if it
// cannot be started or does not sleep within a second. No other thread may wait for any child process meanwhile.
std::optional<SleepingRead> TrySleepingRead(std::string& error);

void CheckKernelWaits(CheckReport& report);

}  // namespace Host
