// State of the process connector, for the agent's program and for measurements.
#pragma once

#include <cstdint>
#include <string>

namespace Host {

struct ProcessEventCounters {
    uint64_t received;      // fork and exec events taken from the kernel
    uint64_t delivered;     // events handed to the callbacks
    uint64_t overflowed;    // events dropped because the queue was full
    uint64_t kernelLosses;  // times the kernel reported that it had dropped events (ENOBUFS)
    uint64_t queued;        // events waiting at this moment
};

// Counts since the agent started. Any thread.
ProcessEventCounters GetProcessEventCounters();

// Asks the kernel for process events and listens no longer than half a second. Empty if they come; otherwise one
// sentence that says why not. Any thread.
std::string ProbeProcessEvents();

}  // namespace Host
