#include "host/events/event_queue.h"

#include <pthread.h>

#include <algorithm>
#include <condition_variable>
#include <deque>
#include <exception>
#include <optional>
#include <system_error>
#include <utility>

#include "host/base/log.h"

namespace Host {
namespace {

using Clock = std::chrono::steady_clock;

constexpr std::chrono::seconds idlePause{1};
constexpr std::chrono::seconds destructionPatience{5};
constexpr unsigned int defaultPerMinuteLimit = 60;

void WriteOne(const EventWriter& writer, const std::string& event) {
    try {
        writer(event);
    } catch (const std::exception& error) {
        LogError("an event could not be written: %s", error.what());
    }
}

bool CallIdle(const EventIdle& idle) {
    try {
        return idle && idle();
    } catch (const std::exception& error) {
        LogError("the sinks could not be tended: %s", error.what());
        return true;
    }
}

}  // namespace

struct EventQueue::State {
    explicit State(std::chrono::milliseconds windowLength) : minute(windowLength) {}

    const std::chrono::milliseconds minute;

    mutable std::mutex mutex;  // guards all that follows
    std::condition_variable work;
    std::condition_variable ended;
    std::deque<std::string> events;
    size_t eventBytes = 0;
    bool running = false;
    bool stopping = false;
    bool woken = false;

    unsigned int limit = defaultPerMinuteLimit;
    std::optional<Clock::time_point> windowEnd;
    unsigned int acceptedInWindow = 0;

    EventQueueCounters counters{};
    EventQueueCounters reported{};
    std::optional<Clock::time_point> reportAt;  // set while drops wait to be told

    bool Admit(size_t bytes);
    void NoteDrop();
    void ReportDrops(std::unique_lock<std::mutex>& lock);
    std::string TakeFirst();
};

bool EventQueue::State::Admit(size_t bytes) {
    if (limit != 0) {
        const Clock::time_point now = Clock::now();
        if (!windowEnd || now >= *windowEnd) {
            windowEnd = now + minute;
            acceptedInWindow = 0;
        }
        if (acceptedInWindow >= limit) {
            ++counters.limited;
            return false;
        }
    }
    if (events.size() >= capacity || bytes > capacityBytes - eventBytes) {
        ++counters.overflowed;
        return false;
    }
    ++acceptedInWindow;
    return true;
}

void EventQueue::State::NoteDrop() {
    if (!reportAt) {
        reportAt = Clock::now() + minute;
        work.notify_one();
    }
}

void EventQueue::State::ReportDrops(std::unique_lock<std::mutex>& lock) {
    const unsigned long long limited = counters.limited - reported.limited;
    const unsigned long long overflowed = counters.overflowed - reported.overflowed;
    const unsigned int limitNow = limit;
    reported = counters;
    reportAt.reset();
    if (limited + overflowed == 0) {
        return;
    }
    lock.unlock();
    LogWarning("%llu events were dropped: %llu beyond the limit of %u a minute, %llu because the queue was full",
               limited + overflowed, limited, limitNow, overflowed);
    lock.lock();
}

std::string EventQueue::State::TakeFirst() {
    std::string event = std::move(events.front());
    events.pop_front();
    eventBytes -= event.size();
    return event;
}

EventQueue& EventQueue::Instance() {
    // Never destroyed: modules' threads may push while the process is leaving.
    static EventQueue& queue = *new EventQueue;
    return queue;
}

EventQueue::EventQueue(std::chrono::milliseconds minute) : state_(std::make_shared<State>(minute)) {}

EventQueue::~EventQueue() {
    Stop(destructionPatience);
}

void EventQueue::Start(EventWriter writer, EventIdle idle) {
    const std::lock_guard<std::mutex> control(controlMutex_);
    if (writerThread_.joinable()) {
        return;
    }
    {
        const std::lock_guard<std::mutex> guard(state_->mutex);
        state_->running = true;
        state_->stopping = false;
    }
    try {
        writerThread_ = std::thread(
            [state = state_, writer = std::move(writer), idle = std::move(idle)] { Run(state, writer, idle); });
    } catch (const std::system_error&) {
        const std::lock_guard<std::mutex> guard(state_->mutex);
        state_->running = false;
        throw;
    }
    pthread_setname_np(writerThread_.native_handle(), "events");
}

void EventQueue::SetPerMinuteLimit(unsigned int events) {
    const std::lock_guard<std::mutex> guard(state_->mutex);
    state_->limit = events;
    state_->windowEnd.reset();
}

void EventQueue::Push(const std::string& event) {
    const std::lock_guard<std::mutex> guard(state_->mutex);
    if (!state_->Admit(event.size())) {
        state_->NoteDrop();
        return;
    }
    state_->events.push_back(event);
    state_->eventBytes += event.size();
    state_->work.notify_one();
}

void EventQueue::Wake() {
    const std::lock_guard<std::mutex> guard(state_->mutex);
    state_->woken = true;
    state_->work.notify_one();
}

bool EventQueue::Stop(std::chrono::milliseconds patience) {
    const std::lock_guard<std::mutex> control(controlMutex_);
    if (!writerThread_.joinable()) {
        return true;
    }
    bool ended = false;
    {
        std::unique_lock<std::mutex> lock(state_->mutex);
        state_->stopping = true;
        state_->work.notify_one();
        ended = state_->ended.wait_for(lock, patience, [this] { return !state_->running; });
    }
    if (ended) {
        writerThread_.join();
    } else {
        writerThread_.detach();
    }
    return ended;
}

EventQueueCounters EventQueue::Counters() const {
    const std::lock_guard<std::mutex> guard(state_->mutex);
    return state_->counters;
}

void EventQueue::Run(const std::shared_ptr<State>& state, const EventWriter& writer, const EventIdle& idle) {
    State& s = *state;
    bool idleDue = true;
    std::optional<Clock::time_point> idleAt;
    std::unique_lock<std::mutex> lock(s.mutex);
    for (;;) {
        if (s.reportAt && Clock::now() >= *s.reportAt) {
            s.ReportDrops(lock);
        }
        if (!s.events.empty()) {
            const std::string event = s.TakeFirst();
            lock.unlock();
            WriteOne(writer, event);
            lock.lock();
            ++s.counters.written;
            idleDue = true;
            continue;
        }
        if (idleDue || s.woken || (idleAt && Clock::now() >= *idleAt)) {
            idleDue = false;
            s.woken = false;
            lock.unlock();
            const bool somethingLeft = CallIdle(idle);
            lock.lock();
            // Without something left to do there is no timed wake-up at all: an idle agent must not show.
            idleAt = somethingLeft ? std::optional(Clock::now() + idlePause) : std::nullopt;
            continue;
        }
        if (s.stopping) {
            s.ReportDrops(lock);
            if (s.events.empty()) {
                break;
            }
            continue;
        }
        const auto changed = [&s, reportAt = s.reportAt] {
            return !s.events.empty() || s.woken || s.stopping || s.reportAt != reportAt;
        };
        if (idleAt || s.reportAt) {
            const Clock::time_point until =
                idleAt && s.reportAt ? std::min(*idleAt, *s.reportAt) : (idleAt ? *idleAt : *s.reportAt);
            s.work.wait_until(lock, until, changed);
        } else {
            s.work.wait(lock, changed);
        }
    }
    s.running = false;
    s.ended.notify_all();
}

}  // namespace Host
