// The queue of findings towards the agent's sinks.
#pragma once

#include <string>

namespace Host {
struct AgentLibrary;
}

namespace TavUtils {

// What the agent's consumers of queued items have in common; its insides are the agent's.
template <typename Item>
class ConsumerBase {
public:
    ConsumerBase(const ConsumerBase&) = delete;
    ConsumerBase& operator=(const ConsumerBase&) = delete;

protected:
    ConsumerBase() = default;
    ~ConsumerBase() = default;

    friend struct Host::AgentLibrary;
    const void* owner_ = nullptr;  // the agent's own; modules leave it alone
};

}  // namespace TavUtils

// The process-wide event queue. All operations may be called from any thread.
class EventConsumer : public TavUtils::ConsumerBase<std::string> {
public:
    static EventConsumer& Instance();

    // Queues one finding, a JSON text on one line. Never waits for a sink. Findings beyond the per-minute limit or the
    // queue's bound are dropped, counted and reported in the log; the caller does not see which.
    void PushMinuteLimitEvent(const std::string& json);

private:
    EventConsumer() = default;
    ~EventConsumer() = default;
};

namespace EventAdapter {

// text cut to at most limit bytes; with wholeCharacters the cut does not split a UTF-8 sequence. Any thread.
std::string TruncateString(const std::string& text, unsigned int limit, bool wholeCharacters);

}  // namespace EventAdapter
