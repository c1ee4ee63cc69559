// Distributes process events to listeners. Each has its own queue and thread.
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

// Each listener gets all events in order and at its own pace: a slow one does not delay the others. No listener is
// called by two threads at once. All operations except Start and Stop: any thread, including a listener's.
//
// Invariants: 1. a listener is called without the lock; calling is true meanwhile; 2. a lane whose listener is not
// registered has an empty queue, so that a removal waits for one running call at most; 3. there is one lane per
// listener; 4. a lane leaves lanes_ only when its listener is neither registered nor being called.
class EventDispatcher {
public:
    // Calls that may wait per listener; 2 MiB each.
    static constexpr size_t capacity = 65536;

    struct Counters {
        uint64_t delivered;   // calls that have ended
        uint64_t overflowed;  // calls dropped because the listener's queue was full
        uint64_t queued;      // waiting calls of all listeners
    };

    // A listener that has missed events.
    struct Laggard {
        uintptr_t code;
        std::string threadName;
        uint64_t overflowed;     // calls dropped since it was added
        uint64_t oldestEventNs;  // timestampNs of its next event
    };

    EventDispatcher() = default;
    ~EventDispatcher();
    EventDispatcher(const EventDispatcher&) = delete;
    EventDispatcher& operator=(const EventDispatcher&) = delete;

    // Starts the threads of the listeners. Listeners added later get theirs at once. Throws std::system_error if a
    // thread cannot be created. REQUIRES: not started.
    void Start();

    // Ends the threads after their current calls and drops the queued calls. Does nothing if not started. Not on a
    // listener's thread.
    void Stop();

    // From the next event on, listener is called once more per event. Throws std::system_error if its thread cannot be
    // created. Its events then wait in its queue until a later Add or Start creates the thread.
    void Add(const ProcessListener& listener);

    // Removes the listener with that code, however often it was added: it is not called again. Waits for a running call
    // of it, unless called on its own thread or by a listener for whose call that call waits.
    void Remove(uintptr_t code);

    bool HasListeners() const;

    // True if no listener is registered and none is being called.
    bool IsIdle() const;

    // Waits until a listener is registered or none is being called. Not on a listener's thread.
    void AwaitIdle();

    // True on the thread of a listener.
    bool OnOwnThread() const;

    // Queues events. Never waits for a listener. Returns the listeners that have missed some of them, each at most once
    // per minute.
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

    mutable std::mutex mutex_;  // guards all below and the contents of the lanes
    std::condition_variable changed_;
    std::vector<LaneHandle> lanes_;
    bool started_ = false;
    uint64_t delivered_ = 0;
    uint64_t overflowed_ = 0;
};

}  // namespace Host
