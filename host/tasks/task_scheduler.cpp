#include "host/tasks/task_scheduler.h"

#include <algorithm>
#include <chrono>
#include <system_error>
#include <utility>

#include "host/base/log.h"

namespace Host {

namespace {

using std::chrono::milliseconds;
using std::chrono::steady_clock;
using std::chrono::system_clock;

// Nearly a century: as good as never, and far from where the clock's nanoseconds overflow.
constexpr uint64_t longestMs = uint64_t{36500} * 24 * 3600 * 1000;

milliseconds Capped(uint64_t ms) {
    return milliseconds(static_cast<int64_t>(std::min(ms, longestMs)));
}

// Converted once, so that the wall clock may step afterwards without moving the task.
steady_clock::time_point OnSteadyClock(uint64_t epochMs) {
    const auto steadyNow = steady_clock::now();
    const auto sinceEpoch = std::chrono::duration_cast<milliseconds>(system_clock::now().time_since_epoch()).count();
    const uint64_t nowMs = sinceEpoch > 0 ? static_cast<uint64_t>(sinceEpoch) : 0;
    return epochMs > nowMs ? steadyNow + Capped(epochMs - nowMs) : steadyNow;
}

}  // namespace

TaskScheduler& TaskScheduler::Instance() {
    static auto* const scheduler = new TaskScheduler;
    return *scheduler;
}

TaskScheduler::~TaskScheduler() {
    for (const auto& [id, task] : tasks_) {
        task->End();
    }
}

unsigned int TaskScheduler::Register(TavUtils::TASKTYPE type, const TavUtils::TASK_CONDITION& condition,
                                     void* (*entry)(void*), void* argument, const std::string& name) {
    const bool repeats = type == TavUtils::TASK_REPEAT;
    if (entry == nullptr || condition.enabled == 0 || (repeats && condition.periodMs == 0) ||
        (!repeats && type != TavUtils::TASK_ONCE)) {
        LogError("task %s is refused: it has no entry, is not enabled, has no period or is of unknown type %d",
                 name.c_str(), static_cast<int>(type));
        return 0;
    }
    const TaskSchedule schedule{OnSteadyClock(condition.firstRunMs), Capped(condition.periodMs), repeats};
    try {
        auto task = ScheduledTask::Start(schedule, entry, argument, name);
        const std::lock_guard lock(mutex_);
        const unsigned int id = NextId();
        tasks_.emplace(id, std::move(task));
        return id;
    } catch (const std::system_error& error) {
        LogError("task %s is refused: no thread for it: %s", name.c_str(), error.what());
        return 0;
    }
}

void TaskScheduler::Pause(unsigned int id) {
    std::shared_ptr<ScheduledTask> task;
    {
        const std::lock_guard lock(mutex_);
        const auto found = tasks_.find(id);
        if (found == tasks_.end()) {
            return;
        }
        task = found->second;
    }
    task->Pause();
}

void TaskScheduler::Unregister(unsigned int id) {
    std::shared_ptr<ScheduledTask> task;
    {
        const std::lock_guard lock(mutex_);
        const auto found = tasks_.find(id);
        if (found == tasks_.end()) {
            return;
        }
        task = std::move(found->second);
        tasks_.erase(found);
    }
    task->End();
}

bool TaskScheduler::RunNow(const std::string& name) {
    std::shared_ptr<ScheduledTask> task;
    {
        const std::lock_guard lock(mutex_);
        for (const auto& [id, candidate] : tasks_) {
            if (candidate->Name() == name) {
                task = candidate;
            }
        }
    }
    return task != nullptr && task->RunNow();
}

unsigned int TaskScheduler::NextId() {
    do {
        ++lastId_;
    } while (lastId_ == 0 || tasks_.contains(lastId_));
    return lastId_;
}

}  // namespace Host
