// The queue between the connector's reader and the callbacks, and the thread that calls them.
#pragma once

#include <linux/cn_proc.h>

#include <condition_variable>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <mutex>
#include <thread>
#include <vector>

#include "host/services/log_pacer.h"

namespace Host {

// All operations but Start and Stop may be called from any thread, the dispatcher's own among them.
//
// Invariants: 1. a callback is called without the lock, and callRunning_ says which; 2. a callback that is not in
// registrations_ is not called again, so that its removal has to wait for a running call at most.
class EventDispatcher {
public:
    using Callback = void (*)(proc_event*);

    // Events that may wait for slow callbacks: 2.5 MiB.
    static constexpr size_t capacity = 65536;

    struct Counters {
        uint64_t delivered;   // handed to one callback at least
        uint64_t overflowed;  // dropped because the queue was full
        uint64_t queued;      // waiting
    };

    EventDispatcher() = default;
    ~EventDispatcher();
    EventDispatcher(const EventDispatcher&) = delete;
    EventDispatcher& operator=(const EventDispatcher&) = delete;

    // Starts the thread. Throws std::system_error when the system gives none. REQUIRES: not started.
    void Start();

    // Ends the thread after the present call and forgets what is queued. Nothing happens if it is not started. Not on
    // the dispatcher's own thread.
    void Stop();

    // From the next event on, callback is called once more per event.
    void Add(Callback callback);

    // Callback is not called again however often it was added. Waits for a running call of it, save on the dispatcher's
    // own thread.
    void Remove(Callback callback);

    bool HasCallbacks() const;

    // True if there is no callback to call and none is being called.
    bool Idle() const;

    // Waits until the call that runs now, if any, has ended. Not on the dispatcher's own thread.
    void AwaitCallEnd();

    bool OnOwnThread() const;

    // Queues events. Never waits for a callback. Returns how many were dropped because the queue was full.
    size_t Push(const std::vector<proc_event>& events);

    Counters Count() const;

private:
    struct Registration {
        uint64_t serial;
        Callback callback;
    };

    void Run();
    bool Deliver(const proc_event& event, std::unique_lock<std::mutex>& lock);
    void Call(Callback callback, proc_event event);

    std::thread thread_;
    LogPacer failures_;

    mutable std::mutex mutex_;  // for all below
    std::condition_variable wake_;
    std::condition_variable callEnded_;
    std::thread::id runner_;
    std::deque<proc_event> queue_;
    std::vector<Registration> registrations_;  // in the order of their serials
    uint64_t lastSerial_ = 0;
    Callback callRunning_ = nullptr;
    uint64_t callsEnded_ = 0;
    bool stopping_ = false;
    uint64_t delivered_ = 0;
    uint64_t overflowed_ = 0;
};

}  // namespace Host
