// What the agent's programs ask of liborlim_agent.so beyond what modules may ask. The library exports the names of
// src/agent and no others, so these calls are reached through an object that it exports anyway.
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

// One for the process. Each call may be made from any thread unless the function it stands for says otherwise.
struct AgentLibrary {
    void (*setLogLevel)(LogLevel level);  // SetLogLevel

    // Of the queue behind EventConsumer::Instance(): EventQueue::Start and its like.
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
