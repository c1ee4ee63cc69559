// Process events as the agent passes them on, and the counters of their source.
#pragma once

#include <sys/types.h>

#include <cstdint>
#include <functional>
#include <string>

namespace Host {

// A fork or an exec reported by the kernel.
struct ProcessEvent {
    enum class Kind : uint32_t { fork, exec };

    Kind kind = Kind::fork;
    uint32_t cpu = 0;
    uint64_t timestampNs = 0;  // since boot, on the clock of Clock::Now()
    pid_t pid = 0;             // fork: the new thread; exec: the thread that runs another program
    pid_t tgid = 0;
    pid_t parentPid = 0;  // fork only
    pid_t parentTgid = 0;
};

// A function to be called for each event.
struct ProcessListener {
    uintptr_t code = 0;  // address of its code: identifies it, also in the log
    std::function<void(const ProcessEvent&)> call;
};

// Each event causes one call of each listener per time that it was added. received counts events, the next three count
// calls. Queued calls of a removed listener are in none of them.
struct ProcessEventCounters {
    uint64_t received;      // fork and exec events taken from the kernel
    uint64_t delivered;     // calls that have ended
    uint64_t overflowed;    // calls dropped because the listener's queue was full
    uint64_t kernelLosses;  // times the kernel reported dropped events (ENOBUFS); how many is unknown
    uint64_t queued;        // waiting calls of all listeners
};

// The counters since the agent started. Any thread.
ProcessEventCounters GetProcessEventCounters();

// Requests process events from the kernel and waits for its answer, half a second at most. Empty if it agrees,
// otherwise the reason as a sentence without its full stop. Any thread.
std::string ProbeProcessEvents();

}  // namespace Host
