#include "host/events/writer_step.h"

#include <algorithm>

namespace Host {
namespace {

bool HasCome(std::optional<Clock::Time> time, Clock::Time now) {
    return time && now >= *time;
}

std::optional<Clock::Time> Earlier(std::optional<Clock::Time> one, std::optional<Clock::Time> other) {
    return one && other ? std::min(one, other) : (one ? one : other);
}

}  // namespace

WriterStep NextStep(const WriterState& state, Clock::Time now) {
    if (HasCome(state.reportAt, now)) {
        return {WriterAction::reportDrops, {}};
    }
    if (state.hasEvents) {
        return {WriterAction::writeEvent, {}};
    }
    if (state.idleDue || HasCome(state.idleAt, now)) {
        return {WriterAction::callIdle, {}};
    }
    if (state.stopping) {
        return {state.reportAt ? WriterAction::reportDrops : WriterAction::end, {}};
    }
    return {WriterAction::wait, Earlier(state.idleAt, state.reportAt)};
}

}  // namespace Host
