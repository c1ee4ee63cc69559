// Process events as the agent passes them on, and the state of the connector that they come from.
#pragma once

#include <sys/types.h>

#include <cstdint>
#include <functional>
#include <string>

namespace Host {

// A fork or an exec, as the kernel reported it.
struct ProcessEvent {
    enum class Kind : uint32_t { fork, exec };

    Kind kind = Kind::fork;
    uint32_t cpu = 0;
    uint64_t timestampNs = 0;  // since boot, on the clock of Clock::Now()
    pid_t pid = 0;             // the new thread of a fork; the thread that runs another program after an exec
    pid_t tgid = 0;
    pid_t parentPid = 0;  // of a fork only
    pid_t parentTgid = 0;
};

// A function that is called for each event.
struct ProcessListener {
    uintptr_t code = 0;  // address of its code: identifies it, and names it in the log
    std::function<void(const ProcessEvent&)> call;
};

// An event makes one call of each listener for each time that it was added. received counts events, the next three
// count calls; queued calls of a removed listener are in none of them.
struct ProcessEventCounters {
    uint64_t received;      // fork and exec events taken from the kernel
    uint64_t delivered;     // calls of listeners that have ended
    uint64_t overflowed;    // calls that were not made because the listener's queue was full
    uint64_t kernelLosses;  // times the kernel reported that it had dropped events (ENOBUFS), of unknown number
    uint64_t queued;        // calls waiting at this moment, of all listeners together
};

// Since the agent started. Any thread.
ProcessEventCounters GetProcessEventCounters();

// Asks the kernel for process events and waits at most half a second for its answer. Empty if they come; otherwise one
// sentence with the reason why not. Any thread.
std::string ProbeProcessEvents();

}  // namespace Host
