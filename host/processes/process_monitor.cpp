#include "agent/process_monitor.h"

#include "host/processes/process_event_service.h"
#include "host/processes/process_events.h"

namespace TavUtils {
namespace {

using Callback = void (*)(proc_event*);
using KernelEvent = decltype(proc_event::what);

uintptr_t CodeOf(Callback callback) {
    return reinterpret_cast<uintptr_t>(callback);
}

proc_event RecordOf(const Host::ProcessEvent& event) {
    proc_event record{};
    record.cpu = event.cpu;
    record.timestamp_ns = event.timestampNs;
    if (event.kind == Host::ProcessEvent::Kind::fork) {
        record.what = KernelEvent::PROC_EVENT_FORK;
        record.event_data.fork.parent_pid = event.parentPid;
        record.event_data.fork.parent_tgid = event.parentTgid;
        record.event_data.fork.child_pid = event.pid;
        record.event_data.fork.child_tgid = event.tgid;
    } else {
        record.what = KernelEvent::PROC_EVENT_EXEC;
        record.event_data.exec.process_pid = event.pid;
        record.event_data.exec.process_tgid = event.tgid;
    }
    return record;
}

}  // namespace

ProcessMonitor& ProcessMonitor::GetInstance() {
    static ProcessMonitor monitor;
    return monitor;
}

bool ProcessMonitor::AddProcessEventCallback(void (*callback)(proc_event*)) {
    if (callback == nullptr) {
        return false;
    }
    return Host::ProcessEventService::Instance().Add({CodeOf(callback), [callback](const Host::ProcessEvent& event) {
                                                          proc_event record = RecordOf(event);
                                                          callback(&record);
                                                      }});
}

void ProcessMonitor::RemoveProcessEventCallback(void (*callback)(proc_event*)) {
    Host::ProcessEventService::Instance().Remove(CodeOf(callback));
}

}  // namespace TavUtils
