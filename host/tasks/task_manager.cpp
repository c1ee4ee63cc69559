#include "agent/task_manager.h"

#include <algorithm>
#include <chrono>
#include <cstdint>

#include "host/base/clock.h"
#include "host/base/log.h"
#include "host/tasks/task_scheduler.h"

namespace TavUtils {
namespace {

using Host::Clock::Time;
using std::chrono::milliseconds;

// A century: in effect never, and far below the range of the clock's nanoseconds.
constexpr uint64_t longestMs = uint64_t{36500} * 24 * 3600 * 1000;

milliseconds Capped(uint64_t ms) {
    return milliseconds(static_cast<int64_t>(std::min(ms, longestMs)));
}

// Converted once, so that setting the date later does not move the task.
Time OnSteadyClock(uint64_t epochMs) {
    const Time now = Host::Clock::Now();
    const auto sinceEpoch = std::chrono::duration_cast<milliseconds>(Host::Clock::WallTime().time_since_epoch());
    const uint64_t nowMs = sinceEpoch.count() > 0 ? static_cast<uint64_t>(sinceEpoch.count()) : 0;
    return epochMs > nowMs ? now + Capped(epochMs - nowMs) : now;
}

bool CanBeScheduled(TASKTYPE type, const TASK_CONDITION& condition) {
    return condition.enabled != 0 && (type == TASK_ONCE || (type == TASK_REPEAT && condition.periodMs != 0));
}

}  // namespace

TaskManager& TaskManager::GetInstance() {
    static TaskManager manager;
    return manager;
}

unsigned int TaskManager::RegisterTask(TASKTYPE type, TASK_CONDITION condition, void* (*entry)(void*), void* arg,
                                       const std::string& name) {
    if (entry == nullptr || !CanBeScheduled(type, condition)) {
        LogError("task %s not scheduled: it has no entry, is not enabled, has no period or has the unknown type %d",
                 name.c_str(), static_cast<int>(type));
        return 0;
    }
    const Host::TaskSchedule schedule{OnSteadyClock(condition.firstRunMs), Capped(condition.periodMs),
                                      type == TASK_REPEAT};
    return Host::TaskScheduler::Instance().Register(
        schedule, [entry, arg] { entry(arg); }, name);
}

void TaskManager::PauseAndWaitForEnd(unsigned int id) {
    Host::TaskScheduler::Instance().Pause(id);
}

void TaskManager::UnregisterTask(unsigned int id) {
    Host::TaskScheduler::Instance().Unregister(id);
}

}  // namespace TavUtils
