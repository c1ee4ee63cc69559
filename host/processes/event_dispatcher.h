// A queue and a thread for each listener, behind the connector's reader.
#pragma once

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
#include "host/processes/process_events.h"

namespace Host {

// Every listener gets the events in their order, at its own pace: a slow one delays no other. It is never called by two
// threads at a time. All operations but Start and Stop may be called from any thread, a listener's among them.
//
// Invariants: 1. a listener is called without the lock, and calling says so; 2. a lane whose listener is not registered
// has an empty queue, so that a removal has to wait for a running call at most; 3. there is one lane per listener; 4. a
// lane leaves lanes_ only when its listener is neither registered nor being called.
class EventDispatcher {
public:
    // Calls that may wait for a listener: 2 MiB each.
    static constexpr size_t capacity = 65536;

    struct Counters {
        uint64_t delivered;   // calls that have ended
        uint64_t overflowed;  // calls that were not made because the listener's queue was full
        uint64_t queued;      // calls that wait, of all listeners together
    };

    // A listener that misses events.
    struct Laggard {
        uintptr_t code;
        std::string threadName;
        uint64_t overflowed;     // calls that were not made since it was added
        uint64_t oldestEventNs;  // timestampNs of its next event
    };

    EventDispatcher() = default;
    ~EventDispatcher();
    EventDispatcher(const EventDispatcher&) = delete;
    EventDispatcher& operator=(const EventDispatcher&) = delete;

    // Starts the threads of the listeners, and from now on those of new ones. Throws std::system_error when the system
    // gives none. REQUIRES: not started.
    void Start();

    // Ends the threads after their present calls and drops the queued ones. Does nothing if not started. Not on a
    // listener's thread.
    void Stop();

    // From the next event on, listener is called once more per event. Throws std::system_error when the system gives no
    // thread; its events then wait in its queue until a later Add or Start gets one.
    void Add(const ProcessListener& listener);

    // The listener with that code is not called again, however often it was added. Waits for a running call of it,
    // except on its own thread and where that call itself waits in a Remove for the end of the caller's.
    void Remove(uintptr_t code);

    bool HasListeners() const;

    // True if there is no listener to call and none is being called.
    bool IsIdle() const;

    // Waits until no listener is being called or there is one to call. Not on a listener's thread.
    void AwaitIdle();

    // True on a thread that calls a listener.
    bool OnOwnThread() const;

    // Queues events. Never waits for a listener. Returns the listeners that have missed some of them, each at most once
    // a minute.
    std::vector<Laggard> Push(const std::vector<ProcessEvent>& events);

    Counters GetCounters() const;

private:
    struct Lane;
    using LaneHandle = std::shared_ptr<Lane>;

    void Run(Lane& lane);
    void Call(const ProcessListener& listener, const ProcessEvent& event);
    void StartThreads();
    std::vector<std::thread> DismissUnused();
    void AwaitCallEnd(const LaneHandle& lane, std::unique_lock<std::mutex>& lock);
    LaneHandle Find(uintptr_t code) const;
    LaneHandle Create(const ProcessListener& listener);
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
