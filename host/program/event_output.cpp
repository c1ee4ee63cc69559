#include "host/program/event_output.h"

#include <chrono>

#include "host/base/log.h"
#include "host/events/agent_library.h"

namespace Host {
namespace {

constexpr std::chrono::seconds drainPatience{10};

}  // namespace

EventOutput::~EventOutput() {
    Stop();
}

void EventOutput::Start(const std::vector<SinkSpec>& sinks) {
    sinks_.RequestSinks(sinks);
    AgentLibrary::Get().startEvents([this](std::string_view line) { sinks_.Write(line); },
                                    [this] { return sinks_.Tend(); });
    running_ = true;
}

void EventOutput::SetSinks(const std::vector<SinkSpec>& sinks) {
    sinks_.RequestSinks(sinks);
    AgentLibrary::Get().wakeEvents();
}

void EventOutput::Reopen() {
    sinks_.RequestReopen();
    AgentLibrary::Get().wakeEvents();
}

bool EventOutput::Stop() {
    if (!running_) {
        return true;
    }
    running_ = false;
    if (!AgentLibrary::Get().stopEvents(drainPatience)) {
        LogError("the sinks did not accept the queued events within %lld seconds, the events are lost",
                 static_cast<long long>(drainPatience.count()));
        return false;
    }
    lost_ = sinks_.Finish();
    return true;
}

}  // namespace Host
