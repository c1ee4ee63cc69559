// One task of the scheduler: its thread, its schedule and its state.
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

// When a task runs, on the steady clock: setting the date does not move it.
struct TaskSchedule {
    Clock::Time firstRun;
    std::chrono::milliseconds period;  // more than 0 if repeats
    bool repeats;
};

// Any thread may call any operation, including the task's own thread.
class ScheduledTask {
public:
    using Work = std::function<void()>;

    // Starts the task's thread, which keeps the record alive until it ends. Throws std::system_error if the thread
    // cannot be created. REQUIRES: End() is called before the caller drops its last reference.
    static std::shared_ptr<ScheduledTask> Start(const TaskSchedule& schedule, Work work, const std::string& name);

    ScheduledTask(const TaskSchedule& schedule, Work work, const std::string& name);
    ScheduledTask(const ScheduledTask&) = delete;
    ScheduledTask& operator=(const ScheduledTask&) = delete;

    const std::string& Name() const { return name_; }

    // Runs the task once outside its schedule and returns when that run has ended. False if the task is paused or ended
    // before the run begins, or if the task itself calls this.
    bool RunNow();

    // Prevents further runs and waits for the current one to end. Does not wait if the task itself calls this.
    void Pause();

    // Ends the thread after the current run and waits for it. Does not wait if the task itself calls this. REQUIRES:
    // called once.
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
    std::thread thread_;  // used only by Start and End

    std::mutex mutex_;  // guards all below
    std::condition_variable wake_;
    std::condition_variable changed_;
    std::thread::id runner_;
    TaskState state_;  // isAsked is derived from the counts below
    bool running_ = false;
    uint64_t asked_ = 0;  // runs outside the schedule: requested, begun, finished
    uint64_t begun_ = 0;
    uint64_t served_ = 0;
};

}  // namespace Host
