#include "host/tasks/scheduled_task.h"

#include <exception>

#include "host/base/log.h"
#include "host/base/this_thread.h"

namespace Host {

std::shared_ptr<ScheduledTask> ScheduledTask::Start(const TaskSchedule& schedule, void* (*entry)(void*), void* argument,
                                                    const std::string& name) {
    auto task = std::make_shared<ScheduledTask>(schedule, entry, argument, name);
    task->thread_ = std::thread([task] { task->Run(); });
    return task;
}

ScheduledTask::ScheduledTask(const TaskSchedule& schedule, void* (*entry)(void*), void* argument,
                             const std::string& name)
    : entry_(entry),
      argument_(argument),
      name_(name),
      period_(schedule.period),
      repeats_(schedule.repeats),
      due_(schedule.firstRun) {}

bool ScheduledTask::RunNow() {
    std::unique_lock lock(mutex_);
    if (OnOwnThread()) {
        LogWarning("task %s asks for a run of itself and cannot wait for it: refused", name_.c_str());
        return false;
    }
    if (paused_ || ended_) {
        return false;
    }
    const uint64_t ticket = ++asked_;
    wake_.notify_one();
    changed_.wait(lock, [&] { return served_ >= ticket || ((paused_ || ended_) && begun_ < ticket); });
    return served_ >= ticket;
}

void ScheduledTask::Pause() {
    std::unique_lock lock(mutex_);
    paused_ = true;
    wake_.notify_one();
    changed_.notify_all();
    if (OnOwnThread()) {
        LogWarning("task %s pauses itself: not waiting for the end of the present run", name_.c_str());
        return;
    }
    changed_.wait(lock, [&] { return !running_; });
}

void ScheduledTask::End() {
    bool onOwnThread = false;
    {
        const std::lock_guard lock(mutex_);
        ended_ = true;
        wake_.notify_one();
        changed_.notify_all();
        onOwnThread = OnOwnThread();
    }
    if (onOwnThread) {
        thread_.detach();
    } else {
        thread_.join();
    }
}

void ScheduledTask::Run() {
    NameThisThread(name_);
    std::unique_lock lock(mutex_);
    runner_ = std::this_thread::get_id();
    while (!ended_) {
        if (paused_) {
            wake_.wait(lock);
        } else if (scheduled_ && std::chrono::steady_clock::now() >= due_) {
            scheduled_ = repeats_;
            RunOnce(lock);
            SkipMissedTicks();
        } else if (begun_ < asked_) {
            ++begun_;
            RunOnce(lock);
            ++served_;
            // A single run that fell due meanwhile is still owed: there is no later tick to make up for it.
            if (repeats_) {
                SkipMissedTicks();
            }
        } else if (scheduled_) {
            // A copy: the wait reads its time without the lock.
            const auto due = due_;
            wake_.wait_until(lock, due);
        } else {
            wake_.wait(lock);
        }
    }
}

void ScheduledTask::RunOnce(std::unique_lock<std::mutex>& lock) {
    running_ = true;
    lock.unlock();
    // The agent outlives whatever a module throws at it.
    try {
        entry_(argument_);
    } catch (const std::exception& error) {
        LogError("a run of task %s failed: %s", name_.c_str(), error.what());
    } catch (...) {
        LogError("a run of task %s failed with an unknown exception", name_.c_str());
    }
    lock.lock();
    running_ = false;
    changed_.notify_all();
}

void ScheduledTask::SkipMissedTicks() {
    const auto now = std::chrono::steady_clock::now();
    if (scheduled_ && due_ <= now) {
        due_ += ((now - due_) / period_ + 1) * period_;
    }
}

bool ScheduledTask::OnOwnThread() const {
    return runner_ == std::this_thread::get_id();
}

}  // namespace Host
