#include "agent/events.h"
#include "host/base/log.h"
#include "host/events/agent_library.h"
#include "host/events/event_queue.h"
#include "host/tasks/task_scheduler.h"

namespace {

const Host::AgentLibrary library{
    .setLogLevel = Host::SetLogLevel,
    .startEvents = [](Host::EventWriter writer,
                      Host::EventIdle idle) { Host::EventQueue::Instance().Start(std::move(writer), std::move(idle)); },
    .wakeEvents = [] { Host::EventQueue::Instance().Wake(); },
    .stopEvents = [](std::chrono::milliseconds patience) { return Host::EventQueue::Instance().Stop(patience); },
    .setEventLimit = [](unsigned int perMinute) { Host::EventQueue::Instance().SetPerMinuteLimit(perMinute); },
    .eventCounters = [] { return Host::EventQueue::Instance().Counters(); },
    .runTaskNow = Host::RunTaskNow,
    .probeProcessEvents = Host::ProbeProcessEvents,
    .processEventCounters = Host::GetProcessEventCounters,
    .detectionStatus = Host::DetectionStatus,
};

}  // namespace

EventConsumer& EventConsumer::Instance() {
    static EventConsumer& consumer = []() -> EventConsumer& {
        static EventConsumer made;
        made.owner_ = &library;
        return made;
    }();
    return consumer;
}

void EventConsumer::PushMinuteLimitEvent(const std::string& json) {
    Host::EventQueue::Instance().Push(json);
}
