// The registered tasks, by id.
#pragma once

#include <map>
#include <memory>
#include <mutex>
#include <string>

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

    // Runs work on a thread of its own named name, as the schedule says, until it is unregistered. A task never
    // overlaps itself: a tick that falls due during a run is skipped. The task's id, or 0 if the system gives no
    // thread.
    unsigned int Register(const TaskSchedule& schedule, ScheduledTask::Work work, const std::string& name);

    // Lets no further run start and waits for the end of the present one; a call by the task itself does not wait. An
    // unknown id is ignored.
    void Pause(unsigned int id);

    // Ends the task's thread and waits for it; a call by the task itself does not wait. An unknown id is ignored.
    void Unregister(unsigned int id);

    // Runs the named task at once, on its own thread, and returns when that run has ended; waits first for a run that
    // is in progress. The task's schedule stays as it is. Of several tasks of that name, runs the one registered last.
    // False if no task has that name, or it is paused or unregistered before the run begins, and on the task's own
    // thread.
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
