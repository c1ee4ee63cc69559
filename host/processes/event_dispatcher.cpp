#include "host/processes/event_dispatcher.h"

#include <sys/prctl.h>

#include <algorithm>
#include <exception>
#include <utility>

#include "host/base/log.h"
#include "host/base/this_thread.h"

namespace Host {

namespace {

// Callbacks pause for half a millisecond at a time, and the usual slack of 50 us would make each pause a tenth longer.
void ShortenPausesOfThisThread() {
    prctl(PR_SET_TIMERSLACK, 1UL, 0UL, 0UL, 0UL);
}

void Join(std::vector<std::thread>& threads) {
    for (std::thread& thread : threads) {
        thread.join();
    }
}

}  // namespace

// One callback, with its queue and its thread. A lane whose function has been removed on the lane's own thread rests
// until somebody dismisses it or adds the function again.
struct EventDispatcher::Lane {
    Lane(Callback function, size_t laneNumber)
        : callback(function), number(laneNumber), threadName("proc-events-" + std::to_string(laneNumber)) {}

    size_t Take(const std::vector<proc_event>& events);
    const Lane* Awaited() const;

    const Callback callback;
    const size_t number;
    const std::string threadName;
    LogPacer overflowPacer;

    std::thread thread;
    std::thread::id runner;
    std::condition_variable wake;
    std::deque<proc_event> queue;
    size_t times = 0;  // how often the function is registered
    bool calling = false;
    bool dismissed = false;  // the thread is to end
    uint64_t callsEnded = 0;
    uint64_t overflowed = 0;
    LaneHandle awaited;  // whose call this lane's own call waits for, and the number of that call
    uint64_t awaitedCall = 0;
};

// Queues each event as often as the function is registered. Returns how many calls did not fit.
size_t EventDispatcher::Lane::Take(const std::vector<proc_event>& events) {
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
    // The call may have ended without this lane's thread having run since.
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

void EventDispatcher::Add(Callback callback) {
    const std::lock_guard lock(mutex_);
    LaneHandle lane = Find(callback);
    if (lane == nullptr) {
        lane = Create(callback);
    }
    ++lane->times;
    changed_.notify_all();
    if (started_) {
        StartThreads();
    }
}

void EventDispatcher::Remove(Callback callback) {
    std::unique_lock lock(mutex_);
    if (const LaneHandle lane = Find(callback)) {
        lane->times = 0;
        lane->queue.clear();
        AwaitCallEnd(lane, lock);
    }
    std::vector<std::thread> threads = DismissUnused();
    lock.unlock();
    Join(threads);
}

bool EventDispatcher::HasCallbacks() const {
    const std::lock_guard lock(mutex_);
    return IsAnyRegistered();
}

bool EventDispatcher::Idle() const {
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

std::vector<EventDispatcher::Laggard> EventDispatcher::Push(const std::vector<proc_event>& events) {
    std::vector<Laggard> laggards;
    const std::lock_guard lock(mutex_);
    for (const LaneHandle& lane : lanes_) {
        const size_t missed = lane->times == 0 ? 0 : lane->Take(events);
        overflowed_ += missed;
        if (missed != 0 && lane->overflowPacer.MayLog()) {
            laggards.push_back({lane->callback, lane->threadName, lane->overflowed, lane->queue.front().timestamp_ns});
        }
    }
    return laggards;
}

EventDispatcher::Counters EventDispatcher::Count() const {
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
            // A later thread may be given the same number.
            lane.runner = std::thread::id();
            return;
        }
        const proc_event event = lane.queue.front();
        lane.queue.pop_front();
        lane.calling = true;
        lock.unlock();
        Call(lane.callback, event);
        lock.lock();
        lane.calling = false;
        ++lane.callsEnded;
        ++delivered_;
        changed_.notify_all();
    }
}

void EventDispatcher::Call(Callback callback, proc_event event) {
    // The agent outlives whatever a module throws at it.
    try {
        callback(&event);
    } catch (const std::exception& error) {
        if (failures_.MayLog()) {
            LogError("a callback for process events failed: %s", error.what());
        }
    } catch (...) {
        if (failures_.MayLog()) {
            LogError("a callback for process events failed with an unknown exception");
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

// Takes the lanes that nobody needs out of lanes_. Their threads end without a further call.
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
        // By number: somebody may add the function again meanwhile, and then it runs again.
        changed_.wait(lock, [&, ended = lane->callsEnded] { return lane->callsEnded != ended; });
        return;
    }
    // Callbacks that remove each other at the same time would wait for each other for ever.
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

EventDispatcher::LaneHandle EventDispatcher::Find(Callback callback) const {
    const auto found =
        std::find_if(lanes_.begin(), lanes_.end(), [&](const LaneHandle& lane) { return lane->callback == callback; });
    return found == lanes_.end() ? nullptr : *found;
}

EventDispatcher::LaneHandle EventDispatcher::Create(Callback callback) {
    // The lowest free number, so that threads are called the same after each start of the module.
    size_t number = 1;
    while (std::any_of(lanes_.begin(), lanes_.end(), [&](const LaneHandle& lane) { return lane->number == number; })) {
        ++number;
    }
    lanes_.push_back(std::make_shared<Lane>(callback, number));
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
