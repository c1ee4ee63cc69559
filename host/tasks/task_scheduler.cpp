#include "host/tasks/task_scheduler.h"

#include <system_error>
#include <utility>

#include "host/base/log.h"

namespace Host {

TaskScheduler& TaskScheduler::Instance() {
    static auto* const scheduler = new TaskScheduler;
    return *scheduler;
}

TaskScheduler::~TaskScheduler() {
    for (const auto& [id, task] : tasks_) {
        task->End();
    }
}

unsigned int TaskScheduler::Register(const TaskSchedule& schedule, ScheduledTask::Work work, const std::string& name) {
    try {
        auto task = ScheduledTask::Start(schedule, std::move(work), name);
        const std::lock_guard lock(mutex_);
        const unsigned int id = NextId();
        tasks_.emplace(id, std::move(task));
        return id;
    } catch (const std::system_error& error) {
        LogError("task %s not scheduled: cannot create its thread: %s (see TasksMax, ulimit -u)", name.c_str(),
                 error.what());
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

bool RunTaskNow(const std::string& name) {
    return TaskScheduler::Instance().RunNow(name);
}

}  // namespace Host
