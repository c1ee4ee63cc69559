// Events of the kernel's process connector.
#pragma once

#include <linux/cn_proc.h>

namespace TavUtils {

// The process-wide owner of the connector's socket. Any thread.
class ProcessMonitor {
public:
    static ProcessMonitor& GetInstance();

    // Calls callback for every connector event, in order, until the callback is removed. Each callback has a thread and
    // a queue; up to 65,536 calls wait in the queue, and events that find it full are dropped, counted and logged. A
    // function that was added twice is called twice per event. The record belongs to the monitor and is valid during
    // the call. Returns false if the kernel does not let this process listen or the system refuses a thread; the
    // callback stays registered.
    bool AddProcessEventCallback(void (*callback)(proc_event*));

    // After this returns, callback is not called any more, even if it was added several times. Waits for a running call
    // of this callback, but not of others. A callback that removes itself does not wait.
    void RemoveProcessEventCallback(void (*callback)(proc_event*));

    ProcessMonitor(const ProcessMonitor&) = delete;
    ProcessMonitor& operator=(const ProcessMonitor&) = delete;

private:
    ProcessMonitor() = default;
    ~ProcessMonitor() = default;
};

}  // namespace TavUtils
