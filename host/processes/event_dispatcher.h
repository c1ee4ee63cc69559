// A queue and a thread for each callback, behind the connector's reader.
#pragma once

#include <linux/cn_proc.h>

#include <condition_variable>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "host/base/log.h"

namespace Host {

// Every callback gets the events in their order, at its own pace: a slow one delays no other. It is never called by two
// threads at a time. All operations but Start and Stop may be called from any thread, a callback's among them.
//
// Invariants: 1. a callback is called without the lock, and calling says so; 2. a lane whose function is not registered
// has an empty queue, so that a removal has to wait for a running call at most; 3. there is one lane a function; 4. a
// lane leaves lanes_ only when its function is neither registered nor being called.
class EventDispatcher {
public:
    using Callback = void (*)(proc_event*);

    // Calls that may wait for a callback: 2.5 MiB each.
    static constexpr size_t capacity = 65536;

    struct Counters {
        uint64_t delivered;   // calls that have ended
        uint64_t overflowed;  // calls that were not made because the callback's queue was full
        uint64_t queued;      // calls that wait, of all callbacks together
    };

    // A callback that misses events.
    struct Laggard {
        Callback callback;
        std::string threadName;
        uint64_t overflowed;     // calls that were not made since it was added
        uint64_t oldestEventNs;  // timestamp_ns of the event that is its next
    };

    EventDispatcher() = default;
    ~EventDispatcher();
    EventDispatcher(const EventDispatcher&) = delete;
    EventDispatcher& operator=(const EventDispatcher&) = delete;

    // Starts the threads of the callbacks, and from now on those of new ones. Throws std::system_error when the system
    // gives none. REQUIRES: not started.
    void Start();

    // Ends the threads after their present calls and forgets what is queued. Nothing happens if it is not started. Not
    // on a callback's thread.
    void Stop();

    // From the next event on, callback is called once more per event. Throws std::system_error when the system gives no
    // thread; its events wait in its queue then, until a later Add or Start gets one.
    void Add(Callback callback);

    // Callback is not called again however often it was added. Waits for a running call of it, save on its own thread
    // and where that call itself waits in a Remove for the end of the caller's.
    void Remove(Callback callback);

    bool HasCallbacks() const;

    // True if there is no callback to call and none is being called.
    bool Idle() const;

    // Waits until no callback is being called or there is one to call. Not on a callback's thread.
    void AwaitIdle();

    // True on a thread that calls a callback.
    bool OnOwnThread() const;

    // Queues events. Never waits for a callback. Returns the callbacks that have missed some of them, each at most once
    // a minute.
    std::vector<Laggard> Push(const std::vector<proc_event>& events);

    Counters Count() const;

private:
    struct Lane;
    using LaneHandle = std::shared_ptr<Lane>;

    void Run(Lane& lane);
    void Call(Callback callback, proc_event event);
    void StartThreads();
    std::vector<std::thread> DismissUnused();
    void AwaitCallEnd(const LaneHandle& lane, std::unique_lock<std::mutex>& lock);
    LaneHandle Find(Callback callback) const;
    LaneHandle Create(Callback callback);
    LaneHandle OwnLane() const;
    bool IsAnyRegistered() const;
    bool IsAnyCalled() const;

    LogPacer failures_;

    mutable std::mutex mutex_;  // for all below and for what the lanes hold
    std::condition_variable changed_;
    std::vector<LaneHandle> lanes_;
    bool started_ = false;
    uint64_t delivered_ = 0;
    uint64_t overflowed_ = 0;
};

}  // namespace Host
