// The bounded queue between the modules' findings and the sinks.
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

// Takes one event, a JSON text without a line end. Called on the queue's writer thread alone.
using EventWriter = std::function<void(std::string_view)>;

// Looks after what the writer could not finish; true while something of that is left. Called on the writer thread
// alone: when it starts, when the queue has run empty, after Wake, and about once a second as long as the answer is
// true.
using EventIdle = std::function<bool()>;

struct EventQueueCounters {
    uint64_t written;     // handed to the writer
    uint64_t limited;     // dropped by the per-minute limit
    uint64_t overflowed;  // dropped because the queue was full
};

class EventQueue {
public:
    static constexpr size_t capacity = 10000;
    static constexpr size_t capacityBytes = size_t{64} * 1024 * 1024;

    // The queue behind EventConsumer::Instance().
    static EventQueue& Instance();

    // minute is the length of the limit's windows and of the pause between two reports of drops.
    explicit EventQueue(std::chrono::milliseconds minute = std::chrono::minutes(1));
    ~EventQueue();
    EventQueue(const EventQueue&) = delete;
    EventQueue& operator=(const EventQueue&) = delete;

    // Throws std::system_error if the system refuses the thread. Starts the writer thread; events pushed before are
    // kept and written now. Has no effect while one runs. Any thread.
    void Start(EventWriter writer, EventIdle idle = {});

    // At most events in each fixed window of a minute, 0 for no limit; 60 until the first call. Any thread.
    void SetPerMinuteLimit(unsigned int events);

    // Never waits for a writer. Any thread.
    void Push(const std::string& event);

    // Has the idle function called soon. Any thread.
    void Wake();

    // Writes everything queued, then ends the writer thread. False if that took longer than patience; the thread is
    // then left to itself and the caller should leave the process. Any thread but the writer's.
    bool Stop(std::chrono::milliseconds patience);

    EventQueueCounters Counters() const;

private:
    struct State;

    static void Run(const std::shared_ptr<State>& state, const EventWriter& writer, const EventIdle& idle);

    std::shared_ptr<State>
        state_;                // shared with the writer thread, which may outlive the queue after an impatient Stop
    std::mutex controlMutex_;  // guards writerThread_
    std::thread writerThread_;
};

}  // namespace Host
