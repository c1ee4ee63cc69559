#include "host/watch/monitor_service.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/eventfd.h>

#include <array>
#include <chrono>
#include <cstring>
#include <exception>
#include <limits>
#include <system_error>

#include "host/base/clock.h"
#include "host/base/log.h"
#include "host/base/this_thread.h"

namespace Host {

namespace {

constexpr std::chrono::seconds reopenPause(1);

}  // namespace

MonitorService& MonitorService::Instance() {
    static auto* const service = new MonitorService;
    return *service;
}

MonitorService::~MonitorService() {
    if (thread_.joinable()) {
        thread_.join();
    }
}

int MonitorService::Add(const WatchRule& rule) {
    if (!rule.listener || !IsWatchablePath(rule.path)) {
        return 0;
    }
    const std::lock_guard lock(mutex_);
    if (!isRunning_ && !Start()) {
        return 0;
    }
    const int handle = NextHandle();
    // If this leaves the thread without a rule, it ends by itself. Raised, because the changed rules may be due
    // earlier.
    const bool isWatched = monitor_->Add(handle, rule, Clock::Now());
    wake_->Raise();
    // A Remove that waits for the thread's end must stop waiting.
    ended_.notify_all();
    return isWatched ? handle : 0;
}

int MonitorService::Remove(int handle) {
    Lock lock(mutex_);
    if (!monitor_ || !monitor_->Has(handle)) {
        return -1;
    }
    // Destroyed without the lock: the listener's destructor is its owner's code.
    const ChangeListener listener = monitor_->ListenerOf(handle);
    monitor_->Remove(handle);
    wake_->Raise();
    if (runner_ == std::this_thread::get_id()) {
        lock.unlock();
        return 0;
    }
    if (handleCalled_ == handle) {
        callEnded_.wait(lock, [this, ended = callsEnded_] { return callsEnded_ != ended; });
    }
    ended_.wait(lock, [this] { return !isRunning_ || !monitor_->IsEmpty(); });
    if (!isRunning_ && thread_.joinable()) {
        thread_.join();
    }
    lock.unlock();
    return 0;
}

bool MonitorService::Start() {
    try {
        if (thread_.joinable()) {
            thread_.join();
        }
        auto monitor = std::make_unique<FileMonitor>();
        const int error = monitor->Open();
        if (error != 0) {
            throw std::system_error(error, std::system_category(),
                                    error == EMFILE ? "inotify (see fs.inotify.max_user_instances)" : "inotify");
        }
        wake_ = std::make_unique<WakeSignal>();
        mounts_ = Descriptor(open("/proc/thread-self/mountinfo", O_RDONLY | O_CLOEXEC));
        monitor_ = std::move(monitor);
        thread_ = std::thread([this] { Run(); });
        runner_ = thread_.get_id();
        isRunning_ = true;
        return true;
    } catch (const std::system_error& error) {
        monitor_.reset();
        LogWarning("cannot watch any path for changes: %s", error.what());
        return false;
    }
}

int MonitorService::NextHandle() {
    do {
        lastHandle_ = lastHandle_ == std::numeric_limits<int>::max() ? 1 : lastHandle_ + 1;
    } while (monitor_->Has(lastHandle_));
    return lastHandle_;
}

void MonitorService::Run() {
    NameThisThread("file-monitor");
    Lock lock(mutex_);
    while (!monitor_->IsEmpty()) {
        try {
            Step(lock);
        } catch (const std::exception& error) {
            // Out of memory: some changes are lost, but the agent keeps running. Nothing throws without the lock.
            PauseAfterFailure(lock, error.what());
        }
    }
    monitor_.reset();
    wake_.reset();
    mounts_.Close();
    runner_ = std::thread::id();
    isRunning_ = false;
    ended_.notify_all();
}

void MonitorService::Step(Lock& lock) {
    if (const bool areMountsChanged = Wait(lock); areMountsChanged) {
        Deliver(lock, monitor_->FollowMounts(Clock::Now()));
    }
    const Clock::Time now = Clock::Now();
    const bool isQuiet = IsQuiet();
    if (!isQuiet) {
        HandleEvents(lock);
    }
    Deliver(lock, monitor_->Tick(isQuiet ? now : Clock::Now(), isQuiet));
}

// Logs the failure and pauses, because its cause may last.
void MonitorService::PauseAfterFailure(Lock& lock, const char* why) {
    if (readFailures_.MayLog()) {
        LogError("cannot read file events, retrying: %s", why);
    }
    pollfd wake{wake_->Descriptor(), POLLIN, 0};
    lock.unlock();
    Clock::Poll({&wake, 1}, Clock::Now() + reopenPause);
    lock.lock();
}

// True if no event waits.
bool MonitorService::IsQuiet() const {
    pollfd events{monitor_->PollDescriptor(), POLLIN, 0};
    return poll(&events, 1, 0) == 0;
}

// Waits until an event comes or work is due. True if file systems were mounted or unmounted.
bool MonitorService::Wait(Lock& lock) {
    std::array<pollfd, 3> waiting{
        {{monitor_->PollDescriptor(), POLLIN, 0}, {wake_->Descriptor(), POLLIN, 0}, {mounts_.Get(), POLLPRI, 0}}};
    const auto due = monitor_->Due();
    lock.unlock();
    Clock::Poll(waiting, due);
    lock.lock();
    if (waiting[1].revents != 0) {
        eventfd_t ignored = 0;
        eventfd_read(wake_->Descriptor(), &ignored);
    }
    return waiting[2].revents != 0;
}

void MonitorService::HandleEvents(Lock& lock) {
    std::vector<InotifyEvent> events;
    const int error = monitor_->Read(events);
    if (error != 0) {
        PauseAfterFailure(lock, std::strerror(error));
        return;
    }
    for (const InotifyEvent& event : events) {
        Deliver(lock, monitor_->Handle(event, Clock::Now()));
        if (monitor_->IsEmpty()) {
            return;
        }
    }
}

void MonitorService::Deliver(Lock& lock, const std::vector<ChangeReport>& reports) {
    for (const ChangeReport& report : reports) {
        ChangeListener listener = monitor_->ListenerOf(report.handle);
        if (!listener) {
            continue;
        }
        handleCalled_ = report.handle;
        lock.unlock();
        Call(listener, report);
        // Before the call counts as ended, nothing of the listener may be left here.
        listener = nullptr;
        lock.lock();
        handleCalled_ = 0;
        ++callsEnded_;
        callEnded_.notify_all();
    }
}

void MonitorService::Call(const ChangeListener& listener, const ChangeReport& report) {
    // An exception of the module must not end the agent.
    try {
        listener(report);
    } catch (const std::exception& error) {
        if (callFailures_.MayLog()) {
            LogError("a callback for file changes failed: %s; continuing with the next change", error.what());
        }
    } catch (...) {
        if (callFailures_.MayLog()) {
            LogError("a callback for file changes failed with an unknown exception; continuing with the next change");
        }
    }
}

}  // namespace Host
