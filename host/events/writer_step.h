// Decides the next step of the event queue's writer thread.
#pragma once

#include <optional>

#include "host/base/clock.h"

namespace Host {

struct WriterState {
    bool hasEvents = false;
    bool idleDue = false;  // the idle function must be called once the queue is empty
    bool stopping = false;
    std::optional<Clock::Time> idleAt{};    // when to call the idle function again
    std::optional<Clock::Time> reportAt{};  // when to report dropped events; set while some are unreported
};

enum class WriterAction { reportDrops, writeEvent, callIdle, end, wait };

struct WriterStep {
    WriterAction action = WriterAction::wait;
    std::optional<Clock::Time> until;  // end of a wait; empty if only a state change ends it

    bool operator==(const WriterStep&) const = default;
};

// The next step. The thread ends only after everything is written and reported. Any thread.
WriterStep NextStep(const WriterState& state, Clock::Time now);

}  // namespace Host
