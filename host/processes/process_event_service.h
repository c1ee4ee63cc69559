// Passes process events from the kernel's socket to the listeners. Starts and stops the threads for it.
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

// Runs from the first Add to the Remove that leaves no listener, and again from the next Add on. All operations: any
// thread, including a listener's.
//
// mutex_ guards running_ and is never held while waiting for another thread, because listeners lock it too. A thread
// that starts or stops the service sets changing_; others wait until it is done. A stop begins only when no listener is
// registered or being called; from then on no listener can call this service.
class ProcessEventService {
public:
    // The process-wide service. Never destroyed: its threads may still run while the process exits.
    static ProcessEventService& Instance();

    ProcessEventService() = default;
    // REQUIRES: no listener is left.
    ~ProcessEventService() = default;
    ProcessEventService(const ProcessEventService&) = delete;
    ProcessEventService& operator=(const ProcessEventService&) = delete;

    // Calls listener for every fork and exec, in order, on its own thread, until it is removed; once per time that it
    // was added. False if the kernel does not let this process listen or a thread cannot be created; the listener stays
    // registered all the same.
    bool Add(const ProcessListener& listener);

    // After the call returns, the listener with that code is no longer called, however often it was added. Waits for a
    // running call, except on the listener's own thread. If a listener removes the last one, the next Remove by another
    // thread stops the service.
    void Remove(uintptr_t code);

    ProcessEventCounters Counters() const;

private:
    bool AddToDispatcher(const ProcessListener& listener);
    bool Start();
    std::string TryStart();
    void Stop();
    void ReadEvents();
    // Passes on the events that wait in the socket. batch only saves allocations. Returns 0 or the errno of a failure;
    // the first logs a failure and an exception and returns false.
    bool TryPassEventsOn(ConnectorBatch& batch);
    int PassEventsOn(ConnectorBatch& batch);
    void ReportKernelLosses(unsigned int losses);

    EventDispatcher dispatcher_;

    std::mutex mutex_;
    std::condition_variable changed_;
    bool running_ = false;
    bool changing_ = false;

    // Used by the thread that starts or stops, and in between by the reader.
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
