// The bounded queue between the module and the sinks.
#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <string_view>
#include <thread>

namespace Host {

// Takes one event, a JSON text without a line end. Called only on the queue's writer thread.
using EventWriter = std::function<void(std::string_view)>;

// Retries events that the writer could not deliver; true while some are left. Called only on the writer thread: at its
// start, when the queue becomes empty, after Wake, and a second after each call that returned true.
using EventIdle = std::function<bool()>;

struct EventQueueCounters {
    uint64_t written;     // passed to the writer
    uint64_t limited;     // dropped by the per-minute limit
    uint64_t overflowed;  // dropped because the queue was full
};

class EventQueue {
public:
    static constexpr size_t capacity = 10000;
    static constexpr size_t capacityBytes = size_t{64} * 1024 * 1024;

    // The queue behind EventConsumer::Instance().
    static EventQueue& Instance();

    EventQueue();
    ~EventQueue();
    EventQueue(const EventQueue&) = delete;
    EventQueue& operator=(const EventQueue&) = delete;

    // Starts the writer thread. It also writes the events that were pushed before. Does nothing if the thread runs
    // already. Throws std::system_error if the thread cannot be created. Any thread.
    void Start(EventWriter writer, EventIdle idle = {});

    // Limits the events per window of one minute; 0 for no limit. The default is 60. Any thread.
    void SetPerMinuteLimit(unsigned int events);

    // Queues the event or drops it; never waits for the writer. Dropped events are logged once per minute. Any thread.
    void Push(const std::string& event);

    // Makes the writer thread call the idle function once the queue is empty. Any thread.
    void Wake();

    // Writes everything queued, then ends the writer thread. False if that takes longer than patience: the thread then
    // still runs, and the caller should end the process. Any thread but the writer's.
    bool Stop(std::chrono::milliseconds patience);

    EventQueueCounters Counters() const;

private:
    struct State;

    static void Run(const std::shared_ptr<State>& state, const EventWriter& writer, const EventIdle& idle);

    // Shared with the writer thread, which outlives the queue if Stop has returned false.
    std::shared_ptr<State> state_;
    std::mutex controlMutex_;  // guards writerThread_
    std::thread writerThread_;
};

}  // namespace Host
