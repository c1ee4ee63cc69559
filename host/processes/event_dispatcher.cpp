#include "host/processes/event_dispatcher.h"

#include <sys/prctl.h>

#include <algorithm>
#include <exception>
#include <utility>

#include "host/base/log.h"
#include "host/base/this_thread.h"

namespace Host {

namespace {

// Listeners pause for half a millisecond at a time. The default slack of 50 us would lengthen each pause by a tenth.
void ShortenPausesOfThisThread() {
    prctl(PR_SET_TIMERSLACK, 1UL, 0UL, 0UL, 0UL);
}

void Join(std::vector<std::thread>& threads) {
    for (std::thread& thread : threads) {
        thread.join();
    }
}

}  // namespace

// One listener, with its queue and its thread. If a listener is removed on its own thread, its lane stays until another
// thread dismisses it or the listener is added again.
struct EventDispatcher::Lane {
    Lane(ProcessListener its, size_t laneNumber)
        : listener(std::move(its)), number(laneNumber), threadName("proc-events-" + std::to_string(laneNumber)) {}

    size_t Take(const std::vector<ProcessEvent>& events);
    const Lane* Awaited() const;

    const ProcessListener listener;
    const size_t number;
    const std::string threadName;
    LogPacer overflowPacer;

    std::thread thread;
    std::thread::id runner;
    std::condition_variable wake;
    std::deque<ProcessEvent> queue;
    size_t times = 0;  // how often the listener is registered
    bool calling = false;
    bool dismissed = false;  // the thread must end
    uint64_t callsEnded = 0;
    uint64_t overflowed = 0;
    LaneHandle awaited;  // the lane whose call this lane's own call waits for, and the number of that call
    uint64_t awaitedCall = 0;
};

// Queues each event as often as the listener is registered. Returns the number of dropped calls.
size_t EventDispatcher::Lane::Take(const std::vector<ProcessEvent>& events) {
    const size_t wanted = events.size() * times;
    const size_t fitting = std::min(wanted, capacity - queue.size());
    for (size_t i = 0; i < fitting; ++i) {
        queue.push_back(events[i / times]);
    }
    if (fitting != 0) {
        wake.notify_one();
    }
    overflowed += wanted - fitting;
    return wanted - fitting;
}

const EventDispatcher::Lane* EventDispatcher::Lane::Awaited() const {
    // The call may have ended before this lane's thread ran again.
    return awaited != nullptr && awaited->callsEnded == awaitedCall ? awaited.get() : nullptr;
}

EventDispatcher::~EventDispatcher() {
    Stop();
}

void EventDispatcher::Start() {
    const std::lock_guard lock(mutex_);
    started_ = true;
    StartThreads();
}

void EventDispatcher::Stop() {
    std::vector<std::thread> threads;
    {
        const std::lock_guard lock(mutex_);
        if (!started_) {
            return;
        }
        started_ = false;
        for (const LaneHandle& lane : lanes_) {
            lane->dismissed = true;
            lane->wake.notify_one();
            if (lane->thread.joinable()) {
                threads.push_back(std::move(lane->thread));
            }
        }
    }
    Join(threads);
    const std::lock_guard lock(mutex_);
    std::erase_if(lanes_, [](const LaneHandle& lane) { return lane->times == 0; });
    for (const LaneHandle& lane : lanes_) {
        lane->dismissed = false;
        lane->queue.clear();
    }
}

void EventDispatcher::Add(const ProcessListener& listener) {
    const std::lock_guard lock(mutex_);
    LaneHandle lane = Find(listener.code);
    if (lane == nullptr) {
        lane = Create(listener);
    }
    ++lane->times;
    changed_.notify_all();
    if (started_) {
        StartThreads();
    }
}

void EventDispatcher::Remove(uintptr_t code) {
    std::unique_lock lock(mutex_);
    if (const LaneHandle lane = Find(code)) {
        lane->times = 0;
        lane->queue.clear();
        AwaitCallEnd(lane, lock);
    }
    std::vector<std::thread> threads = DismissUnused();
    lock.unlock();
    Join(threads);
}

bool EventDispatcher::HasListeners() const {
    const std::lock_guard lock(mutex_);
    return IsAnyRegistered();
}

bool EventDispatcher::IsIdle() const {
    const std::lock_guard lock(mutex_);
    return !IsAnyRegistered() && !IsAnyCalled();
}

void EventDispatcher::AwaitIdle() {
    std::unique_lock lock(mutex_);
    changed_.wait(lock, [this] { return IsAnyRegistered() || !IsAnyCalled(); });
}

bool EventDispatcher::OnOwnThread() const {
    const std::lock_guard lock(mutex_);
    return OwnLane() != nullptr;
}

std::vector<EventDispatcher::Laggard> EventDispatcher::Push(const std::vector<ProcessEvent>& events) {
    std::vector<Laggard> laggards;
    const std::lock_guard lock(mutex_);
    for (const LaneHandle& lane : lanes_) {
        const size_t missed = lane->times == 0 ? 0 : lane->Take(events);
        overflowed_ += missed;
        if (missed != 0 && lane->overflowPacer.MayLog()) {
            laggards.push_back(
                {lane->listener.code, lane->threadName, lane->overflowed, lane->queue.front().timestampNs});
        }
    }
    return laggards;
}

EventDispatcher::Counters EventDispatcher::GetCounters() const {
    const std::lock_guard lock(mutex_);
    uint64_t queued = 0;
    for (const LaneHandle& lane : lanes_) {
        queued += lane->queue.size();
    }
    return {delivered_, overflowed_, queued};
}

void EventDispatcher::Run(Lane& lane) {
    NameThisThread(lane.threadName);
    ShortenPausesOfThisThread();
    std::unique_lock lock(mutex_);
    lane.runner = std::this_thread::get_id();
    for (;;) {
        lane.wake.wait(lock, [&] { return lane.dismissed || !lane.queue.empty(); });
        if (lane.dismissed) {
            // A later thread may get the same id.
            lane.runner = std::thread::id();
            return;
        }
        const ProcessEvent event = lane.queue.front();
        lane.queue.pop_front();
        lane.calling = true;
        lock.unlock();
        Call(lane.listener, event);
        lock.lock();
        lane.calling = false;
        ++lane.callsEnded;
        ++delivered_;
        changed_.notify_all();
    }
}

void EventDispatcher::Call(const ProcessListener& listener, const ProcessEvent& event) {
    // An exception of the module must not end the agent.
    try {
        listener.call(event);
    } catch (const std::exception& error) {
        if (failures_.MayLog()) {
            LogError("a callback for process events failed: %s; continuing with the next event", error.what());
        }
    } catch (...) {
        if (failures_.MayLog()) {
            LogError("a callback for process events failed with an unknown exception; continuing with the next event");
        }
    }
}

void EventDispatcher::StartThreads() {
    for (const LaneHandle& lane : lanes_) {
        if (!lane->thread.joinable()) {
            lane->thread = std::thread([this, lane] { Run(*lane); });
        }
    }
}

// Removes unused lanes from lanes_. Their threads end without another call.
std::vector<std::thread> EventDispatcher::DismissUnused() {
    std::vector<std::thread> threads;
    std::erase_if(lanes_, [&](const LaneHandle& lane) {
        if (lane->times != 0 || lane->calling) {
            return false;
        }
        lane->dismissed = true;
        lane->wake.notify_one();
        if (lane->thread.joinable()) {
            threads.push_back(std::move(lane->thread));
        }
        return true;
    });
    return threads;
}

void EventDispatcher::AwaitCallEnd(const LaneHandle& lane, std::unique_lock<std::mutex>& lock) {
    if (!lane->calling) {
        return;
    }
    const LaneHandle own = OwnLane();
    if (own == nullptr) {
        // Compares numbers, because the listener may be added and called again meanwhile.
        changed_.wait(lock, [&, ended = lane->callsEnded] { return lane->callsEnded != ended; });
        return;
    }
    // Two listeners that remove each other at the same time would otherwise deadlock.
    for (const Lane* each = lane.get(); each != nullptr; each = each->Awaited()) {
        if (each == own.get()) {
            return;
        }
    }
    own->awaited = lane;
    own->awaitedCall = lane->callsEnded;
    changed_.wait(lock, [&] { return own->Awaited() == nullptr; });
    own->awaited.reset();
}

EventDispatcher::LaneHandle EventDispatcher::Find(uintptr_t code) const {
    const auto found =
        std::find_if(lanes_.begin(), lanes_.end(), [&](const LaneHandle& lane) { return lane->listener.code == code; });
    return found == lanes_.end() ? nullptr : *found;
}

EventDispatcher::LaneHandle EventDispatcher::Create(const ProcessListener& listener) {
    // The lowest free number: threads keep their names when the module is restarted.
    size_t number = 1;
    while (std::any_of(lanes_.begin(), lanes_.end(), [&](const LaneHandle& lane) { return lane->number == number; })) {
        ++number;
    }
    lanes_.push_back(std::make_shared<Lane>(listener, number));
    return lanes_.back();
}

EventDispatcher::LaneHandle EventDispatcher::OwnLane() const {
    const auto found = std::find_if(lanes_.begin(), lanes_.end(),
                                    [](const LaneHandle& lane) { return lane->runner == std::this_thread::get_id(); });
    return found == lanes_.end() ? nullptr : *found;
}

bool EventDispatcher::IsAnyRegistered() const {
    return std::any_of(lanes_.begin(), lanes_.end(), [](const LaneHandle& lane) { return lane->times != 0; });
}

bool EventDispatcher::IsAnyCalled() const {
    return std::any_of(lanes_.begin(), lanes_.end(), [](const LaneHandle& lane) { return lane->calling; });
}

}  // namespace Host
