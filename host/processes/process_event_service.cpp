#include "host/processes/process_event_service.h"

#include <dlfcn.h>
#include <poll.h>

#include <array>
#include <bit>
#include <chrono>
#include <cstring>
#include <exception>
#include <filesystem>
#include <optional>
#include <span>
#include <system_error>

#include "host/base/clock.h"
#include "host/base/log.h"
#include "host/base/this_thread.h"

namespace Host {

namespace {

constexpr std::chrono::seconds retryPause{1};

// Logs library and offset, for addr2line.
void ReportLaggard(const EventDispatcher::Laggard& laggard) {
    Dl_info library{};
    std::string name("an unknown library");
    if (dladdr(std::bit_cast<void*>(laggard.code), &library) != 0 && library.dli_fname != nullptr) {
        name = std::filesystem::path(library.dli_fname).filename();
    }
    const auto offset = static_cast<unsigned long>(laggard.code - reinterpret_cast<uintptr_t>(library.dli_fbase));
    const auto behind = Clock::Now().time_since_epoch() - std::chrono::nanoseconds(laggard.oldestEventNs);
    LogWarning(
        "a callback for process events is too slow: %s+0x%lx on thread %s is %lld s behind and has missed %llu events "
        "so "
        "far",
        name.c_str(), offset, laggard.threadName.c_str(),
        static_cast<long long>(std::chrono::floor<std::chrono::seconds>(behind).count()),
        static_cast<unsigned long long>(laggard.overflowed));
}

}  // namespace

ProcessEventService& ProcessEventService::Instance() {
    static auto* const service = new ProcessEventService;
    return *service;
}

bool ProcessEventService::Add(const ProcessListener& listener) {
    std::unique_lock lock(mutex_);
    if (dispatcher_.OnOwnThread()) {
        // The service cannot stop while a listener is being called.
        return AddToDispatcher(listener);
    }
    changed_.wait(lock, [this] { return !changing_; });
    const bool added = AddToDispatcher(listener);
    if (running_) {
        return added;
    }
    changing_ = true;
    lock.unlock();
    const bool started = Start();
    lock.lock();
    running_ = started;
    changing_ = false;
    changed_.notify_all();
    return started;
}

void ProcessEventService::Remove(uintptr_t code) {
    dispatcher_.Remove(code);
    if (dispatcher_.OnOwnThread()) {
        return;
    }
    std::unique_lock lock(mutex_);
    for (;;) {
        changed_.wait(lock, [this] { return !changing_; });
        if (!running_ || dispatcher_.HasListeners()) {
            return;
        }
        if (dispatcher_.IsIdle()) {
            break;
        }
        lock.unlock();
        dispatcher_.AwaitIdle();
        lock.lock();
    }
    changing_ = true;
    lock.unlock();
    Stop();
    lock.lock();
    running_ = false;
    changing_ = false;
    changed_.notify_all();
}

ProcessEventCounters ProcessEventService::Counters() const {
    const EventDispatcher::Counters dispatched = dispatcher_.GetCounters();
    return {received_, dispatched.delivered, dispatched.overflowed, kernelLosses_, dispatched.queued};
}

bool ProcessEventService::AddToDispatcher(const ProcessListener& listener) {
    try {
        dispatcher_.Add(listener);
        return true;
    } catch (const std::system_error& error) {
        if (threadPacer_.MayLog()) {
            LogError(
                "cannot create the thread of a callback for process events: %s; it gets no events until that succeeds "
                "(see TasksMax, ulimit -u)",
                error.what());
        }
        return false;
    }
}

bool ProcessEventService::Start() {
    const std::string why = TryStart();
    if (why.empty()) {
        return true;
    }
    Stop();
    LogWarning(
        "no process events: %s; only the period scan finds new processes, and it misses those that end between two "
        "scans; "
        "run the agent with CAP_NET_ADMIN in the host's initial PID, user and network namespaces",
        why.c_str());
    return false;
}

std::string ProcessEventService::TryStart() {
    try {
        connector_ = std::make_unique<ProcessConnector>();
        std::string why = connector_->Open();
        if (!why.empty()) {
            return why;
        }
        stopSignal_ = std::make_unique<WakeSignal>();
        dispatcher_.Start();
        reader_ = std::thread([this] { ReadEvents(); });
        return {};
    } catch (const std::system_error& error) {
        return error.what();
    }
}

void ProcessEventService::Stop() {
    if (reader_.joinable()) {
        stopSignal_->Raise();
        reader_.join();
    }
    dispatcher_.Stop();
    stopSignal_.reset();
    connector_.reset();
}

void ProcessEventService::ReadEvents() {
    NameThisThread("proc-events-rd");
    std::array<pollfd, 2> waiting{{{stopSignal_->Descriptor(), POLLIN, 0}, {connector_->Descriptor(), POLLIN, 0}}};
    const std::span stop(waiting.data(), 1);
    ConnectorBatch batch;
    for (;;) {
        Clock::Poll(waiting, std::nullopt);
        if (stop[0].revents != 0) {
            return;
        }
        if (!TryPassEventsOn(batch)) {
            // Pauses, because the cause of the failure may last.
            Clock::Poll(stop, Clock::Now() + retryPause);
        }
    }
}

bool ProcessEventService::TryPassEventsOn(ConnectorBatch& batch) {
    std::string why;
    try {
        const int error = PassEventsOn(batch);
        if (error == 0) {
            return true;
        }
        why = std::strerror(error);
    } catch (const std::exception& error) {
        // Out of memory: the events of this batch are lost, but the agent keeps running.
        why = error.what();
    }
    if (errorPacer_.MayLog()) {
        LogError("cannot read the process connector, retrying: %s", why.c_str());
    }
    return false;
}

int ProcessEventService::PassEventsOn(ConnectorBatch& batch) {
    batch.events.clear();
    batch.acks.clear();
    const ProcessConnector::Received received = connector_->Receive(batch);
    received_ += batch.events.size();
    kernelLosses_ += received.losses;
    ReportKernelLosses(received.losses);
    for (const EventDispatcher::Laggard& laggard : dispatcher_.Push(batch.events)) {
        ReportLaggard(laggard);
    }
    return received.error;
}

void ProcessEventService::ReportKernelLosses(unsigned int losses) {
    if (losses != 0 && kernelLossPacer_.MayLog()) {
        LogWarning(
            "the kernel dropped process events, its buffer was full (%llu times since the start); the period scan "
            "still inspects every process",
            static_cast<unsigned long long>(kernelLosses_.load()));
    }
}

ProcessEventCounters GetProcessEventCounters() {
    return ProcessEventService::Instance().Counters();
}

}  // namespace Host
