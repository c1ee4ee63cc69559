// Decides the next step of a task's thread.
#pragma once

#include <chrono>
#include <optional>

#include "host/base/clock.h"

namespace Host {

struct TaskState {
    std::optional<Clock::Time> due{};  // next scheduled run; empty if none is left
    bool isAsked = false;              // a run outside the schedule is requested
    bool isPaused = false;
    bool isEnded = false;
};

enum class TaskAction { runOnSchedule, runAsAsked, end, wait };

struct TaskStep {
    TaskAction action = TaskAction::wait;
    std::optional<Clock::Time> until{};  // end of a wait; empty if only a state change ends it

    bool operator==(const TaskStep&) const = default;
};

// The next step. Any thread.
TaskStep NextStep(const TaskState& state, Clock::Time now);

// The first tick after now on the grid that starts at due, or due itself if it is still ahead. REQUIRES: period > 0.
// Any thread.
Clock::Time NextTick(Clock::Time due, std::chrono::milliseconds period, Clock::Time now);

}  // namespace Host
