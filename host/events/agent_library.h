// Calls that the agent's programs make into liborlim_agent.so and that modules may not make. The library exports only
// the names of src/agent, so these calls are reached through an object that it exports anyway.
#pragma once

#include <chrono>
#include <map>
#include <string>

#include "agent/events.h"
#include "agent/logger.h"
#include "host/events/event_queue.h"
#include "host/processes/process_events.h"
#include "host/system/status_board.h"

namespace Host {

// One per process. Each call: any thread, unless the named function says otherwise.
struct AgentLibrary {
    void (*setLogLevel)(LogLevel level);  // SetLogLevel

    // The queue behind EventConsumer::Instance(): EventQueue::Start and the like.
    void (*startEvents)(EventWriter writer, EventIdle idle);
    void (*wakeEvents)();
    bool (*stopEvents)(std::chrono::milliseconds patience);
    void (*setEventLimit)(unsigned int perMinute);
    EventQueueCounters (*eventCounters)();

    bool (*runTaskNow)(const std::string& name);                 // RunTaskNow
    std::string (*probeProcessEvents)();                         // ProbeProcessEvents
    ProcessEventCounters (*processEventCounters)();              // GetProcessEventCounters
    std::map<std::string, FunctionStatus> (*detectionStatus)();  // DetectionStatus

    static const AgentLibrary& Get() { return *static_cast<const AgentLibrary*>(EventConsumer::Instance().owner_); }
};

}  // namespace Host
