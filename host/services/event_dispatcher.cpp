#include "host/services/event_dispatcher.h"

#include <algorithm>
#include <exception>

#include "agent/logger.h"
#include "host/services/thread_name.h"

namespace Host {

EventDispatcher::~EventDispatcher() {
    Stop();
}

void EventDispatcher::Start() {
    thread_ = std::thread([this] { Run(); });
}

void EventDispatcher::Stop() {
    if (!thread_.joinable()) {
        return;
    }
    {
        const std::lock_guard lock(mutex_);
        stopping_ = true;
        wake_.notify_one();
    }
    thread_.join();
    const std::lock_guard lock(mutex_);
    stopping_ = false;
    runner_ = std::thread::id();
    queue_.clear();
}

void EventDispatcher::Add(Callback callback) {
    const std::lock_guard lock(mutex_);
    registrations_.push_back({++lastSerial_, callback});
}

void EventDispatcher::Remove(Callback callback) {
    std::unique_lock lock(mutex_);
    std::erase_if(registrations_, [&](const Registration& each) { return each.callback == callback; });
    // Null stands for no running call as well, and that has no end.
    if (callback != nullptr && callRunning_ == callback && runner_ != std::this_thread::get_id()) {
        // By number: somebody may add the function again meanwhile, and then it runs again.
        callEnded_.wait(lock, [this, ended = callsEnded_] { return callsEnded_ != ended; });
    }
}

bool EventDispatcher::HasCallbacks() const {
    const std::lock_guard lock(mutex_);
    return !registrations_.empty();
}

bool EventDispatcher::Idle() const {
    const std::lock_guard lock(mutex_);
    return registrations_.empty() && callRunning_ == nullptr;
}

void EventDispatcher::AwaitCallEnd() {
    std::unique_lock lock(mutex_);
    if (callRunning_ != nullptr) {
        callEnded_.wait(lock, [this, ended = callsEnded_] { return callsEnded_ != ended; });
    }
}

bool EventDispatcher::OnOwnThread() const {
    const std::lock_guard lock(mutex_);
    return runner_ == std::this_thread::get_id();
}

size_t EventDispatcher::Push(const std::vector<proc_event>& events) {
    const std::lock_guard lock(mutex_);
    const size_t fitting = std::min(events.size(), capacity - queue_.size());
    queue_.insert(queue_.end(), events.begin(), events.begin() + static_cast<std::ptrdiff_t>(fitting));
    overflowed_ += events.size() - fitting;
    wake_.notify_one();
    return events.size() - fitting;
}

EventDispatcher::Counters EventDispatcher::Count() const {
    const std::lock_guard lock(mutex_);
    return {delivered_, overflowed_, queue_.size()};
}

void EventDispatcher::Run() {
    NameThisThread("proc-events");
    std::unique_lock lock(mutex_);
    runner_ = std::this_thread::get_id();
    for (;;) {
        wake_.wait(lock, [this] { return stopping_ || !queue_.empty(); });
        if (stopping_) {
            return;
        }
        const proc_event event = queue_.front();
        queue_.pop_front();
        if (Deliver(event, lock)) {
            ++delivered_;
        }
    }
}

bool EventDispatcher::Deliver(const proc_event& event, std::unique_lock<std::mutex>& lock) {
    // Any callback may add and remove any other, so each step looks again for the next one that was there at the start.
    const uint64_t newest = lastSerial_;
    uint64_t done = 0;
    for (;;) {
        const auto next = std::find_if(registrations_.begin(), registrations_.end(),
                                       [&](const Registration& each) { return each.serial > done; });
        if (next == registrations_.end() || next->serial > newest) {
            return done != 0;
        }
        done = next->serial;
        const Callback callback = next->callback;
        callRunning_ = callback;
        lock.unlock();
        Call(callback, event);
        lock.lock();
        callRunning_ = nullptr;
        ++callsEnded_;
        callEnded_.notify_all();
    }
}

void EventDispatcher::Call(Callback callback, proc_event event) {
    // The agent outlives whatever a module throws at it.
    try {
        callback(&event);
    } catch (const std::exception& error) {
        if (failures_.MayLog()) {
            LoggerWriteLog("NormalLog", LOG_LEVEL_ERROR, "process_monitor", __LINE__,
                           "a callback for process events failed: %s", error.what());
        }
    } catch (...) {
        if (failures_.MayLog()) {
            LoggerWriteLog("NormalLog", LOG_LEVEL_ERROR, "process_monitor", __LINE__,
                           "a callback for process events failed with an unknown exception");
        }
    }
}

}  // namespace Host
