// Registered tasks, by id.
#pragma once

#include <map>
#include <memory>
#include <mutex>
#include <string>

#include "host/tasks/scheduled_task.h"

namespace Host {

// All operations: any thread.
class TaskScheduler {
public:
    // The process-wide scheduler. Never destroyed: its threads may still run while the process exits.
    static TaskScheduler& Instance();

    TaskScheduler() = default;
    ~TaskScheduler();
    TaskScheduler(const TaskScheduler&) = delete;
    TaskScheduler& operator=(const TaskScheduler&) = delete;

    // Runs work on its own thread, named name, by the schedule, until it is unregistered. A task never overlaps itself:
    // a tick that falls due during a run is skipped. Returns the task's id, or 0 if no thread can be created.
    unsigned int Register(const TaskSchedule& schedule, ScheduledTask::Work work, const std::string& name);

    // Prevents further runs and waits for the current one to end. Does not wait if the task itself calls this. Ignores
    // an unknown id.
    void Pause(unsigned int id);

    // Ends the task's thread and waits for it. Does not wait if the task itself calls this. Ignores an unknown id.
    void Unregister(unsigned int id);

    // Runs the named task at once, on its own thread, and returns when that run has ended. Waits first for a run in
    // progress. The schedule does not change. If several tasks have that name, runs the one registered last. False if
    // no task has the name, if it is paused or unregistered before the run begins, or if the task itself calls this.
    bool RunNow(const std::string& name);

private:
    unsigned int NextId();

    std::mutex mutex_;
    std::map<unsigned int, std::shared_ptr<ScheduledTask>> tasks_;
    unsigned int lastId_ = 0;
};

// TaskScheduler::RunNow of the process-wide scheduler.
bool RunTaskNow(const std::string& name);

}  // namespace Host
