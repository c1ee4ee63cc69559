#include "agent/process_monitor.h"

#include "host/processes/process_connector.h"
#include "host/processes/process_event_service.h"
#include "host/processes/process_events.h"

namespace TavUtils {

ProcessMonitor& ProcessMonitor::GetInstance() {
    static ProcessMonitor monitor;
    return monitor;
}

bool ProcessMonitor::AddProcessEventCallback(void (*callback)(proc_event*)) {
    return Host::ProcessEventService::Instance().Add(callback);
}

void ProcessMonitor::RemoveProcessEventCallback(void (*callback)(proc_event*)) {
    Host::ProcessEventService::Instance().Remove(callback);
}

}  // namespace TavUtils

namespace Host {

ProcessEventCounters GetProcessEventCounters() {
    return ProcessEventService::Instance().Count();
}

std::string ProbeProcessEvents() {
    ProcessConnector connector;
    return connector.Open();
}

}  // namespace Host
