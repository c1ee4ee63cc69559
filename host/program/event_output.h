// The way of the events out of the process: the event queue and the sinks behind it.
#pragma once

#include <cstdint>
#include <vector>

#include "host/sinks/sink_spec.h"
#include "host/sinks/sink_switch.h"

namespace Host {

// One at a time, because there is one event queue. Operations for one thread.
class EventOutput {
public:
    ~EventOutput();

    void Start(const std::vector<SinkSpec>& sinks);

    // Changes the sinks, or opens their files anew, without waiting for it.
    void SetSinks(const std::vector<SinkSpec>& sinks);
    void Reopen();

    // Writes what is queued and closes the sinks. False if that took longer than ten seconds; then a thread is still
    // writing, and the process must leave without running anything's end.
    bool Stop();

    // Events that some sink could not write; known once Stop has returned true.
    uint64_t Lost() const { return lost_; }

private:
    SinkSwitch sinks_;
    uint64_t lost_ = 0;
    bool running_ = false;
};

}  // namespace Host
