#include "host/events/event_queue.h"

#include <algorithm>
#include <condition_variable>
#include <deque>
#include <exception>
#include <optional>
#include <system_error>
#include <utility>

#include "host/base/clock.h"
#include "host/base/log.h"
#include "host/base/this_thread.h"
#include "host/events/minute_limit.h"
#include "host/events/writer_step.h"

namespace Host {
namespace {

constexpr std::chrono::seconds idlePause{1};
constexpr std::chrono::minutes reportPause{1};
constexpr std::chrono::seconds destructionPatience{5};

void WriteEvent(const EventWriter& writer, const std::string& event) {
    try {
        writer(event);
    } catch (const std::exception& error) {
        LogError("cannot write an event, it is lost: %s", error.what());
    }
}

bool CallIdle(const EventIdle& idle) {
    try {
        return idle && idle();
    } catch (const std::exception& error) {
        LogError("retrying pending events failed: %s; trying again in a second", error.what());
        return true;
    }
}

}  // namespace

struct EventQueue::State {
    mutable std::mutex mutex;  // guards all below
    std::condition_variable work;
    std::condition_variable ended;
    std::deque<std::string> events;
    size_t eventBytes = 0;
    MinuteLimit limit;
    EventQueueCounters counters{};
    EventQueueCounters reported{};
    bool running = false;
    WriterState writer;  // hasEvents is derived from events

    bool Admit(size_t bytes, Clock::Time now);
    WriterStep Next();
    void ReportDrops(std::unique_lock<std::mutex>& lock);
    void WriteFirst(std::unique_lock<std::mutex>& lock, const EventWriter& write);
    void Tend(std::unique_lock<std::mutex>& lock, const EventIdle& idle);
};

bool EventQueue::State::Admit(size_t bytes, Clock::Time now) {
    if (!limit.HasRoom(now)) {
        ++counters.limited;
        return false;
    }
    if (events.size() >= capacity || bytes > capacityBytes - eventBytes) {
        ++counters.overflowed;
        return false;
    }
    limit.CountPassed();
    return true;
}

WriterStep EventQueue::State::Next() {
    writer.hasEvents = !events.empty();
    return NextStep(writer, Clock::Now());
}

void EventQueue::State::ReportDrops(std::unique_lock<std::mutex>& lock) {
    const unsigned long long limited = counters.limited - reported.limited;
    const unsigned long long overflowed = counters.overflowed - reported.overflowed;
    const unsigned int limitNow = limit.Get();
    reported = counters;
    writer.reportAt.reset();
    lock.unlock();
    LogWarning(
        "%llu events were dropped: %llu beyond the limit of %u per minute (see events.perMinuteLimit), %llu because "
        "the queue was full (see the sinks)",
        limited + overflowed, limited, limitNow, overflowed);
    lock.lock();
}

void EventQueue::State::WriteFirst(std::unique_lock<std::mutex>& lock, const EventWriter& write) {
    const std::string event = std::move(events.front());
    events.pop_front();
    eventBytes -= event.size();
    lock.unlock();
    WriteEvent(write, event);
    lock.lock();
    ++counters.written;
    writer.idleDue = true;
}

void EventQueue::State::Tend(std::unique_lock<std::mutex>& lock, const EventIdle& idle) {
    writer.idleDue = false;
    lock.unlock();
    const bool somethingLeft = CallIdle(idle);
    lock.lock();
    // Without pending events there is no timed wake-up: an idle agent uses no processor time.
    writer.idleAt = somethingLeft ? std::optional(Clock::Now() + idlePause) : std::nullopt;
}

EventQueue& EventQueue::Instance() {
    // Never destroyed: a module's threads may push while the process exits.
    static EventQueue& queue = *new EventQueue;
    return queue;
}

EventQueue::EventQueue() : state_(std::make_shared<State>()) {}

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
        state_->writer.stopping = false;
        state_->writer.idleDue = true;
    }
    try {
        writerThread_ = std::thread(
            [state = state_, writer = std::move(writer), idle = std::move(idle)] { Run(state, writer, idle); });
    } catch (const std::system_error&) {
        const std::lock_guard<std::mutex> guard(state_->mutex);
        state_->running = false;
        throw;
    }
}

void EventQueue::SetPerMinuteLimit(unsigned int events) {
    const std::lock_guard<std::mutex> guard(state_->mutex);
    state_->limit.Set(events);
}

void EventQueue::Push(const std::string& event) {
    const Clock::Time now = Clock::Now();
    const std::lock_guard<std::mutex> guard(state_->mutex);
    if (state_->Admit(event.size(), now)) {
        state_->events.push_back(event);
        state_->eventBytes += event.size();
    } else if (!state_->writer.reportAt) {
        state_->writer.reportAt = now + reportPause;
    } else {
        return;
    }
    state_->work.notify_one();
}

void EventQueue::Wake() {
    const std::lock_guard<std::mutex> guard(state_->mutex);
    state_->writer.idleDue = true;
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
        state_->writer.stopping = true;
        state_->work.notify_one();
        ended = Clock::WaitUntil(state_->ended, lock, Clock::Now() + patience, [this] { return !state_->running; });
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
    NameThisThread("events");
    State& s = *state;
    std::unique_lock<std::mutex> lock(s.mutex);
    for (WriterStep step = s.Next(); step.action != WriterAction::end; step = s.Next()) {
        switch (step.action) {
            case WriterAction::reportDrops:
                s.ReportDrops(lock);
                break;
            case WriterAction::writeEvent:
                s.WriteFirst(lock, writer);
                break;
            case WriterAction::callIdle:
                s.Tend(lock, idle);
                break;
            case WriterAction::wait:
                Clock::WaitUntil(s.work, lock, step.until, [&] { return s.Next() != step; });
                break;
            case WriterAction::end:
                break;
        }
    }
    s.running = false;
    s.ended.notify_all();
}

}  // namespace Host
