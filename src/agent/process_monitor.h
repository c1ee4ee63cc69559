// Process events, straight from the kernel's process connector.
#pragma once

#include <linux/cn_proc.h>

namespace TavUtils {

// The process-wide owner of the connector's socket. All operations may be called from any thread.
class ProcessMonitor {
public:
    static ProcessMonitor& GetInstance();

    // Calls callback for every connector event, in their order, on a thread of the monitor that serves this callback
    // alone, until it is removed. A function added twice is called twice an event. The record belongs to the monitor
    // and lives for the call. Returns false when the kernel does not let this process listen; the callback is kept all
    // the same.
    bool AddProcessEventCallback(void (*callback)(proc_event*));

    // After the call returns, callback is no longer called, however often it was added: a running call is waited for,
    // one of any other callback is not. A call from within a callback does not wait for that callback's own end.
    void RemoveProcessEventCallback(void (*callback)(proc_event*));

    ProcessMonitor(const ProcessMonitor&) = delete;
    ProcessMonitor& operator=(const ProcessMonitor&) = delete;

private:
    ProcessMonitor() = default;
    ~ProcessMonitor() = default;
};

}  // namespace TavUtils
