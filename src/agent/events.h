// The queue of events between the module and the agent's sinks.
#pragma once

#include <string>

namespace Host {
struct AgentLibrary;
}

namespace TavUtils {

// Base of the agent's consumers of queued items. Its members belong to the agent.
template <typename Item>
class ConsumerBase {
public:
    ConsumerBase(const ConsumerBase&) = delete;
    ConsumerBase& operator=(const ConsumerBase&) = delete;

protected:
    ConsumerBase() = default;
    ~ConsumerBase() = default;

    friend struct Host::AgentLibrary;
    const void* owner_ = nullptr;  // used by the agent only
};

}  // namespace TavUtils

// The process-wide event queue. Any thread.
class EventConsumer : public TavUtils::ConsumerBase<std::string> {
public:
    static EventConsumer& Instance();

    // Queues one event, a JSON text on one line. Never waits for a sink. Events beyond the per-minute limit or the
    // queue's bounds (10,000 events, 64 MiB) are dropped, counted and reported in the log. The caller does not learn
    // whether an event was dropped.
    void PushMinuteLimitEvent(const std::string& json);

private:
    EventConsumer() = default;
    ~EventConsumer() = default;
};

namespace EventAdapter {

// Returns text cut to at most limit bytes. With wholeCharacters, the cut does not split a UTF-8 sequence. Any thread.
std::string TruncateString(const std::string& text, unsigned int limit, bool wholeCharacters);

}  // namespace EventAdapter
