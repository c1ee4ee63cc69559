// The registered tasks, by id. What the modules' task manager and the program's task control stand on.
#pragma once

#include <map>
#include <memory>
#include <mutex>
#include <string>

#include "agent/task_manager.h"
#include "host/tasks/scheduled_task.h"

namespace Host {

// All operations may be called from any thread.
class TaskScheduler {
public:
    // The process-wide scheduler. Never destroyed: its threads may still run while the process exits.
    static TaskScheduler& Instance();

    TaskScheduler() = default;
    ~TaskScheduler();
    TaskScheduler(const TaskScheduler&) = delete;
    TaskScheduler& operator=(const TaskScheduler&) = delete;

    // As TavUtils::TaskManager::RegisterTask.
    unsigned int Register(TavUtils::TASKTYPE type, const TavUtils::TASK_CONDITION& condition, void* (*entry)(void*),
                          void* argument, const std::string& name);

    // As TavUtils::TaskManager::PauseAndWaitForEnd.
    void Pause(unsigned int id);

    // Ends the task's thread and waits for it, save for a call made by the task itself. An unknown id is ignored.
    void Unregister(unsigned int id);

    // As RunTaskNow; of several tasks of that name the one registered last.
    bool RunNow(const std::string& name);

private:
    unsigned int NextId();

    std::mutex mutex_;
    std::map<unsigned int, std::shared_ptr<ScheduledTask>> tasks_;
    unsigned int lastId_ = 0;
};

}  // namespace Host
