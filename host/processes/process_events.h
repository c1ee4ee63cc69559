// State of the process connector, for the agent's program and for measurements.
#pragma once

#include <cstdint>
#include <string>

namespace Host {

// An event makes one call of each callback for each time that it was added. received counts events, the next three
// count calls; what a removed callback had waiting is in none of them.
struct ProcessEventCounters {
    uint64_t received;      // fork and exec events taken from the kernel
    uint64_t delivered;     // calls of callbacks that have ended
    uint64_t overflowed;    // calls that were not made because the callback's queue was full
    uint64_t kernelLosses;  // times the kernel reported that it had dropped events (ENOBUFS), of unknown number
    uint64_t queued;        // calls waiting at this moment, of all callbacks together
};

// Since the agent started. Any thread.
ProcessEventCounters GetProcessEventCounters();

// Asks the kernel for process events and listens no longer than half a second. Empty if they come; otherwise one
// sentence that says why not. Any thread.
std::string ProbeProcessEvents();

}  // namespace Host
