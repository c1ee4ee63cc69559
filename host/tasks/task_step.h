// The order in which a task's thread does its work.
#pragma once

#include <chrono>
#include <optional>

#include "host/base/clock.h"

namespace Host {

struct TaskState {
    std::optional<Clock::Time> due{};  // the next run of the schedule; nothing if none is left
    bool isAsked = false;              // a run outside the schedule is wanted
    bool isPaused = false;
    bool isEnded = false;
};

enum class TaskAction { runOnSchedule, runAsAsked, end, wait };

struct TaskStep {
    TaskAction action = TaskAction::wait;
    std::optional<Clock::Time> until{};  // of a wait; nothing if only a change of the state ends it

    bool operator==(const TaskStep&) const = default;
};

// The next thing to do. Any thread.
TaskStep NextStep(const TaskState& state, Clock::Time now);

// The first tick after now of the grid that due and period make, or due itself if it has not come. period is more than
// 0. Any thread.
Clock::Time NextTick(Clock::Time due, std::chrono::milliseconds period, Clock::Time now);

}  // namespace Host
