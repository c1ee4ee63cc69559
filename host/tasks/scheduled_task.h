// One task of the scheduler: its thread, its schedule and whether it may still run.
#pragma once

#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <memory>
#include <mutex>
#include <string>
#include <thread>

namespace Host {

// When a task runs, on the clock that steps of the wall clock do not move.
struct TaskSchedule {
    std::chrono::steady_clock::time_point firstRun;
    std::chrono::milliseconds period;  // more than 0 if repeats
    bool repeats;
};

// All operations may be called from any thread, the task's own among them.
class ScheduledTask {
public:
    // Starts the task's thread. The thread keeps the record alive until it ends. Throws std::system_error when the
    // system gives no thread. REQUIRES: End() is called before the last reference outside goes away.
    static std::shared_ptr<ScheduledTask> Start(const TaskSchedule& schedule, void* (*entry)(void*), void* argument,
                                                const std::string& name);

    ScheduledTask(const TaskSchedule& schedule, void* (*entry)(void*), void* argument, const std::string& name);
    ScheduledTask(const ScheduledTask&) = delete;
    ScheduledTask& operator=(const ScheduledTask&) = delete;

    const std::string& Name() const { return name_; }

    // One run outside the schedule; returns when it has ended. False if the task is paused or ended before that run
    // begins, and for the task itself.
    bool RunNow();

    // Lets no further run start and waits for the end of the present one, which the task itself cannot.
    void Pause();

    // Ends the thread after the present run and waits for it, which the task itself cannot: its thread then ends alone.
    // REQUIRES: called once.
    void End();

private:
    void Run();
    void RunOnce(std::unique_lock<std::mutex>& lock);
    void SkipMissedTicks();
    bool OnOwnThread() const;

    void* (*const entry_)(void*);
    void* const argument_;
    const std::string name_;
    const std::chrono::milliseconds period_;
    const bool repeats_;
    std::thread thread_;  // touched by Start and End alone

    std::mutex mutex_;  // for all below
    std::condition_variable wake_;
    std::condition_variable changed_;
    std::thread::id runner_;
    std::chrono::steady_clock::time_point due_;
    bool scheduled_ = true;  // due_ holds
    bool paused_ = false;
    bool ended_ = false;
    bool running_ = false;
    uint64_t asked_ = 0;  // runs outside the schedule: wanted, begun, done
    uint64_t begun_ = 0;
    uint64_t served_ = 0;
};

}  // namespace Host
