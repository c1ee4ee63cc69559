// The order in which the event queue's writer thread does its work.
#pragma once

#include <optional>

#include "host/base/clock.h"

namespace Host {

struct WriterState {
    bool hasEvents = false;
    bool idleDue = false;  // the idle function is to be called once the queue is empty
    bool stopping = false;
    std::optional<Clock::Time> idleAt{};    // when the idle function is to be called again
    std::optional<Clock::Time> reportAt{};  // when the dropped events are to be reported; set while some are unreported
};

enum class WriterAction { reportDrops, writeEvent, callIdle, end, wait };

struct WriterStep {
    WriterAction action = WriterAction::wait;
    std::optional<Clock::Time> until;  // of a wait; nothing if only a change of the state ends it

    bool operator==(const WriterStep&) const = default;
};

// The next thing to do. Everything is written and reported before the end. Any thread.
WriterStep NextStep(const WriterState& state, Clock::Time now);

}  // namespace Host
