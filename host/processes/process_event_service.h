// Process events from the kernel's socket to the callbacks: who starts and who stops the threads.
#pragma once

#include <atomic>
#include <condition_variable>
#include <cstdint>
#include <memory>
#include <mutex>
#include <string>
#include <thread>

#include "host/base/log.h"
#include "host/base/wake_signal.h"
#include "host/processes/event_dispatcher.h"
#include "host/processes/process_connector.h"
#include "host/processes/process_events.h"

namespace Host {

// Runs from the first Add to the Remove that leaves no callback, and again from the next Add on. All operations may be
// called from any thread, a callback's among them.
//
// mutex_ says whether it runs and is never held while another thread is waited for, because callbacks take it too. A
// thread that starts or stops sets changing_; the others wait until it has done so. A stop begins only when there is no
// callback and none is being called; from then on no callback can ask for anything.
class ProcessEventService {
public:
    using Callback = EventDispatcher::Callback;

    // The process-wide service. Never destroyed: its threads may still run while the process exits.
    static ProcessEventService& Instance();

    ProcessEventService() = default;
    // REQUIRES: no callback is left.
    ~ProcessEventService() = default;
    ProcessEventService(const ProcessEventService&) = delete;
    ProcessEventService& operator=(const ProcessEventService&) = delete;

    // As TavUtils::ProcessMonitor::AddProcessEventCallback; false also when the system gives no thread for the
    // callback.
    bool Add(Callback callback);

    // As TavUtils::ProcessMonitor::RemoveProcessEventCallback. The stop is left to the next Remove of another thread if
    // a callback removes the last one.
    void Remove(Callback callback);

    ProcessEventCounters Count() const;

private:
    bool AddToDispatcher(Callback callback);
    bool Start();
    std::string TryStart();
    void Stop();
    void ReadEvents();
    void ReportKernelLosses(unsigned int losses);

    EventDispatcher dispatcher_;

    std::mutex mutex_;
    std::condition_variable changed_;
    bool running_ = false;
    bool changing_ = false;

    // Of the thread that changes, and of the reader in between.
    std::unique_ptr<ProcessConnector> connector_;
    std::unique_ptr<WakeSignal> stopSignal_;
    std::thread reader_;

    LogPacer kernelLossPacer_;
    LogPacer errorPacer_;
    LogPacer threadPacer_;
    std::atomic<uint64_t> received_ = 0;
    std::atomic<uint64_t> kernelLosses_ = 0;
};

}  // namespace Host
