#include "host/tasks/task_step.h"

namespace Host {

TaskStep NextStep(const TaskState& state, Clock::Time now) {
    if (state.isEnded) {
        return {TaskAction::end};
    }
    if (state.isPaused) {
        return {TaskAction::wait};
    }
    if (state.due && now >= *state.due) {
        return {TaskAction::runOnSchedule};
    }
    if (state.isAsked) {
        return {TaskAction::runAsAsked};
    }
    return {TaskAction::wait, state.due};
}

Clock::Time NextTick(Clock::Time due, std::chrono::milliseconds period, Clock::Time now) {
    return due > now ? due : due + ((now - due) / period + 1) * period;
}

}  // namespace Host
