// The file monitor's thread. Rules can be added and removed while it runs.
#pragma once

#include <condition_variable>
#include <memory>
#include <mutex>
#include <thread>
#include <vector>

#include "host/base/descriptor.h"
#include "host/base/log.h"
#include "host/base/wake_signal.h"
#include "host/watch/file_monitor.h"

namespace Host {

// The thread runs from the first Add to the Remove that leaves no rule, and again from the next Add on. All operations:
// any thread, including a listener's.
//
// Invariants: 1. mutex_ guards everything and is not held while a listener runs; 2. a rule that is not in the monitor
// is not called, so that its removal waits for a running call at most; 3. the thread does not lock mutex_ again once it
// has set isRunning_ to false, so that it can be joined under the lock.
class MonitorService {
public:
    // The process-wide service. Never destroyed: its thread may still run while the process exits.
    static MonitorService& Instance();

    MonitorService() = default;
    // REQUIRES: no rule is left.
    ~MonitorService();
    MonitorService(const MonitorService&) = delete;
    MonitorService& operator=(const MonitorService&) = delete;

    // Starts to watch the rule's path. Returns its handle; 0 on failure: no listener, or a path that cannot be watched.
    int Add(const WatchRule& rule);

    // Ends a rule and keeps nothing of it. Waits for a running call of its listener, unless the listener itself calls
    // this. 0, or -1 for an unknown handle.
    int Remove(int handle);

private:
    using Lock = std::unique_lock<std::mutex>;

    bool Start();
    int NextHandle();
    void Run();
    void Step(Lock& lock);
    void PauseAfterFailure(Lock& lock, const char* why);
    bool Wait(Lock& lock);
    bool IsQuiet() const;
    void HandleEvents(Lock& lock);
    void Deliver(Lock& lock, const std::vector<ChangeReport>& reports);
    void Call(const ChangeListener& listener, const ChangeReport& report);

    LogPacer callFailures_;
    LogPacer readFailures_;

    std::mutex mutex_;
    std::condition_variable callEnded_;
    std::condition_variable ended_;
    std::unique_ptr<FileMonitor> monitor_;
    std::unique_ptr<WakeSignal> wake_;
    Descriptor mounts_;  // /proc/thread-self/mountinfo: poll(2) reports its changes; may be closed
    std::thread thread_;
    std::thread::id runner_;
    bool isRunning_ = false;
    int lastHandle_ = 0;
    int handleCalled_ = 0;  // the rule whose listener runs; 0 for none
    unsigned long callsEnded_ = 0;
};

}  // namespace Host
