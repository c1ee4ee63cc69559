// One task of the scheduler: its thread, its schedule and whether it may still run.
#pragma once

#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <thread>

#include "host/base/clock.h"
#include "host/tasks/task_step.h"

namespace Host {

// When a task runs, on the clock that setting the date does not change.
struct TaskSchedule {
    Clock::Time firstRun;
    std::chrono::milliseconds period;  // more than 0 if repeats
    bool repeats;
};

// All operations may be called from any thread, the task's own among them.
class ScheduledTask {
public:
    using Work = std::function<void()>;

    // Starts the task's thread, which keeps the record alive until it ends. Throws std::system_error when the system
    // gives no thread. REQUIRES: End() is called before the last reference outside goes away.
    static std::shared_ptr<ScheduledTask> Start(const TaskSchedule& schedule, Work work, const std::string& name);

    ScheduledTask(const TaskSchedule& schedule, Work work, const std::string& name);
    ScheduledTask(const ScheduledTask&) = delete;
    ScheduledTask& operator=(const ScheduledTask&) = delete;

    const std::string& Name() const { return name_; }

    // One run outside the schedule; returns when it has ended. False if the task is paused or ended before that run
    // begins, and for the task itself.
    bool RunNow();

    // Lets no further run start and waits for the end of the present one. A call by the task itself does not wait.
    void Pause();

    // Ends the thread after the present run and waits for it. A call by the task itself does not wait.
    // REQUIRES: called once.
    void End();

private:
    void Run();
    TaskStep Next();
    void RunOnce(std::unique_lock<std::mutex>& lock);
    bool OnOwnThread() const;

    const Work work_;
    const std::string name_;
    const std::chrono::milliseconds period_;
    const bool repeats_;
    std::thread thread_;  // only Start and End use it

    std::mutex mutex_;  // for all below
    std::condition_variable wake_;
    std::condition_variable changed_;
    std::thread::id runner_;
    TaskState state_;  // isAsked follows from the counts below
    bool running_ = false;
    uint64_t asked_ = 0;  // runs outside the schedule: wanted, begun, done
    uint64_t begun_ = 0;
    uint64_t served_ = 0;
};

}  // namespace Host
