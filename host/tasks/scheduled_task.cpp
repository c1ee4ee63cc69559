#include "host/tasks/scheduled_task.h"

#include <exception>
#include <optional>
#include <utility>

#include "host/base/log.h"
#include "host/base/this_thread.h"

namespace Host {

std::shared_ptr<ScheduledTask> ScheduledTask::Start(const TaskSchedule& schedule, Work work, const std::string& name) {
    auto task = std::make_shared<ScheduledTask>(schedule, std::move(work), name);
    task->thread_ = std::thread([task] { task->Run(); });
    return task;
}

ScheduledTask::ScheduledTask(const TaskSchedule& schedule, Work work, const std::string& name)
    : work_(std::move(work)), name_(name), period_(schedule.period), repeats_(schedule.repeats) {
    state_.due = schedule.firstRun;
}

bool ScheduledTask::RunNow() {
    std::unique_lock lock(mutex_);
    if (OnOwnThread()) {
        LogWarning("task %s requested a run of itself; rejected, since it would wait for itself forever",
                   name_.c_str());
        return false;
    }
    if (state_.isPaused || state_.isEnded) {
        return false;
    }
    const uint64_t ticket = ++asked_;
    wake_.notify_one();
    changed_.wait(lock, [&] { return served_ >= ticket || ((state_.isPaused || state_.isEnded) && begun_ < ticket); });
    return served_ >= ticket;
}

void ScheduledTask::Pause() {
    std::unique_lock lock(mutex_);
    state_.isPaused = true;
    wake_.notify_one();
    changed_.notify_all();
    if (OnOwnThread()) {
        LogWarning("task %s paused itself; not waiting for its current run to end", name_.c_str());
        return;
    }
    changed_.wait(lock, [&] { return !running_; });
}

void ScheduledTask::End() {
    bool onOwnThread = false;
    {
        const std::lock_guard lock(mutex_);
        state_.isEnded = true;
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
    for (TaskStep step = Next(); step.action != TaskAction::end; step = Next()) {
        switch (step.action) {
            case TaskAction::runOnSchedule:
                RunOnce(lock);
                state_.due = repeats_ ? std::optional(NextTick(*state_.due, period_, Clock::Now())) : std::nullopt;
                break;
            case TaskAction::runAsAsked:
                ++begun_;
                RunOnce(lock);
                ++served_;
                // A one-time run that fell due meanwhile must still happen: no later tick makes up for it.
                if (repeats_) {
                    state_.due = NextTick(*state_.due, period_, Clock::Now());
                }
                break;
            case TaskAction::wait:
                Clock::WaitUntil(wake_, lock, step.until, [&] { return Next() != step; });
                break;
            case TaskAction::end:
                break;
        }
    }
}

TaskStep ScheduledTask::Next() {
    state_.isAsked = begun_ < asked_;
    return NextStep(state_, Clock::Now());
}

void ScheduledTask::RunOnce(std::unique_lock<std::mutex>& lock) {
    running_ = true;
    lock.unlock();
    // An exception of the module must not end the agent.
    try {
        work_();
    } catch (const std::exception& error) {
        LogError("a run of task %s failed: %s; the next run is not affected", name_.c_str(), error.what());
    } catch (...) {
        LogError("a run of task %s failed with an unknown exception; the next run is not affected", name_.c_str());
    }
    lock.lock();
    running_ = false;
    changed_.notify_all();
}

bool ScheduledTask::OnOwnThread() const {
    return runner_ == std::this_thread::get_id();
}

}  // namespace Host
