// Delivers events: the event queue and its sinks.
#pragma once

#include <cstdint>
#include <vector>

#include "host/sinks/sink_spec.h"
#include "host/sinks/sink_switch.h"

namespace Host {

// At most one object at a time, because the process has one event queue. For one thread.
class EventOutput {
public:
    ~EventOutput();

    void Start(const std::vector<SinkSpec>& sinks);

    // Change the sinks, or reopen their files. Neither waits until it is done.
    void SetSinks(const std::vector<SinkSpec>& sinks);
    void Reopen();

    // Writes the queued events and closes the sinks. False if that takes longer than ten seconds. A thread is then
    // still writing, and the process must end with _exit, without destructors.
    bool Stop();

    // The number of events that a sink could not write. Valid after Stop has returned true.
    uint64_t Lost() const { return lost_; }

private:
    SinkSwitch sinks_;
    uint64_t lost_ = 0;
    bool running_ = false;
};

}  // namespace Host
