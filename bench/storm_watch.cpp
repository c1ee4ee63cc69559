// Runs the module on the agent's services and measures how process events reach the module's callbacks. Prints each
// event that the module pushes, and the counters for each line of standard input. The counters of the callbacks cover
// the time since the last line. Ends at the end of its input.
//
// Usage: storm_watch MODULE

#include <dlfcn.h>
#include <linux/cn_proc.h>
#include <sys/resource.h>

#include <array>
#include <atomic>
#include <cstdint>
#include <cstdio>
#include <ctime>
#include <iostream>
#include <mutex>
#include <string>
#include <string_view>

#include "agent/process_monitor.h"
#include "host/events/agent_library.h"
#include "module/published.h"

namespace {

using Callback = void (*)(proc_event*);

// Measurements of one callback of the module.
struct Slot {
    std::atomic<Callback> callback = nullptr;
    std::atomic<uint64_t> calls = 0;
    std::atomic<uint64_t> greatestAgeNs = 0;  // of an event when the callback is called with it
    std::atomic<uint64_t> forkNs = 0;         // time spent in calls with such an event
    std::atomic<uint64_t> execNs = 0;
};

constexpr size_t slotCount = 4;
std::array<Slot, slotCount> slots;

// The clock of proc_event::timestamp_ns: ktime_get_ns of drivers/connector/cn_proc.c.
uint64_t NowNs() {
    timespec now{};
    clock_gettime(CLOCK_MONOTONIC, &now);
    return static_cast<uint64_t>(now.tv_sec) * 1000000000ULL + static_cast<uint64_t>(now.tv_nsec);
}

// One function per slot, because callbacks carry no context.
template <size_t number>
void CallThrough(proc_event* event) {
    Slot& slot = slots[number];
    const uint64_t began = NowNs();
    const uint64_t age = began - event->timestamp_ns;
    if (age > slot.greatestAgeNs) {
        slot.greatestAgeNs = age;
    }
    const bool isFork = event->what == decltype(proc_event::what)::PROC_EVENT_FORK;
    slot.callback.load()(event);
    ++slot.calls;
    (isFork ? slot.forkNs : slot.execNs) += NowNs() - began;
}

constexpr std::array<Callback, slotCount> throughs{CallThrough<0>, CallThrough<1>, CallThrough<2>, CallThrough<3>};

void PrintCounters() {
    const Host::ProcessEventCounters counters = Host::AgentLibrary::Get().processEventCounters();
    rusage usage{};
    getrusage(RUSAGE_SELF, &usage);
    const double cpuSeconds = static_cast<double>(usage.ru_utime.tv_sec + usage.ru_stime.tv_sec) +
                              static_cast<double>(usage.ru_utime.tv_usec + usage.ru_stime.tv_usec) / 1e6;
    printf(
        "{\"received\": %llu, \"queued\": %llu, \"overflowed\": %llu, \"kernelLosses\": %llu, \"cpuSeconds\": %.3f, "
        "\"callbacks\": [",
        static_cast<unsigned long long>(counters.received), static_cast<unsigned long long>(counters.queued),
        static_cast<unsigned long long>(counters.overflowed), static_cast<unsigned long long>(counters.kernelLosses),
        cpuSeconds);
    const char* separator = "";
    for (Slot& slot : slots) {
        if (slot.callback.load() != nullptr) {
            printf("%s{\"calls\": %llu, \"greatestAge\": %.6f, \"forkSeconds\": %.6f, \"execSeconds\": %.6f}",
                   separator, static_cast<unsigned long long>(slot.calls.exchange(0)),
                   static_cast<double>(slot.greatestAgeNs.exchange(0)) / 1e9,
                   static_cast<double>(slot.forkNs.exchange(0)) / 1e9,
                   static_cast<double>(slot.execNs.exchange(0)) / 1e9);
            separator = ", ";
        }
    }
    printf("]}\n");
    fflush(stdout);
}

void PrintEvent(std::string_view event) {
    printf("%.*s\n", static_cast<int>(event.size()), event.data());
    fflush(stdout);
}

// Calls the library's definition of one of the two functions below, which take "this" as their first argument.
template <typename Result>
Result Forward(const char* symbol, TavUtils::ProcessMonitor* monitor, Callback callback) {
    const auto next = reinterpret_cast<Result (*)(TavUtils::ProcessMonitor*, Callback)>(dlsym(RTLD_NEXT, symbol));
    return next(monitor, callback);
}

}  // namespace

// The dynamic linker finds these two functions before those of the library, so that this program can time callbacks.
namespace TavUtils {

bool ProcessMonitor::AddProcessEventCallback(Callback callback) {
    for (size_t i = 0; i < slotCount; ++i) {
        Callback free = nullptr;
        if (slots[i].callback.compare_exchange_strong(free, callback)) {
            return Forward<bool>("_ZN8TavUtils14ProcessMonitor23AddProcessEventCallbackEPFvP10proc_eventE", this,
                                 throughs[i]);
        }
    }
    return false;
}

void ProcessMonitor::RemoveProcessEventCallback(Callback callback) {
    for (size_t i = 0; i < slotCount; ++i) {
        if (slots[i].callback == callback) {
            Forward<void>("_ZN8TavUtils14ProcessMonitor26RemoveProcessEventCallbackEPFvP10proc_eventE", this,
                          throughs[i]);
            slots[i].callback = nullptr;
        }
    }
}

}  // namespace TavUtils

int main(int argc, char** argv) {
    void* const library = argc == 2 ? dlopen(argv[1], RTLD_NOW | RTLD_LOCAL) : nullptr;
    if (library == nullptr) {
        fprintf(stderr, "usage: storm_watch MODULE; %s\n", argc == 2 ? dlerror() : "");
        return 2;
    }
    const auto init = reinterpret_cast<Published::InitEntry>(dlsym(library, Published::initEntry));
    const auto start = reinterpret_cast<Published::StartEntry>(dlsym(library, Published::startEntry));
    const auto stop = reinterpret_cast<Published::StopEntry>(dlsym(library, Published::stopEntry));
    const auto deinit = reinterpret_cast<Published::DeinitEntry>(dlsym(library, Published::deinitEntry));
    Host::AgentLibrary::Get().setEventLimit(0);
    Host::AgentLibrary::Get().startEvents(PrintEvent, {});
    // The period scan runs once soon after the start, and not again, so that it cannot find the attack.
    if (init() != 1 || start("{\"reverseShell\": {\"detectInterval\": 86400}}") != 1) {
        fprintf(stderr, "storm_watch: the module does not start\n");
        return 1;
    }
    for (std::string line; std::getline(std::cin, line);) {
        PrintCounters();
    }
    stop("0000");
    deinit();
    Host::AgentLibrary::Get().stopEvents(std::chrono::seconds(5));
    return 0;
}
