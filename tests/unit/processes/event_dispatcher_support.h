// Listeners that record their calls or block.
#pragma once

#include <gtest/gtest.h>

#include <atomic>
#include <cstdint>
#include <mutex>
#include <vector>

#include "host/processes/process_events.h"
#include "tests/support/await_condition.h"

namespace TestSupport {

using Host::ProcessEvent;
using Host::ProcessListener;

using Function = void (*)(const ProcessEvent&);

inline uintptr_t CodeOf(Function function) {
    return reinterpret_cast<uintptr_t>(function);
}

inline ProcessListener Listener(Function function) {
    return {CodeOf(function), function};
}

inline std::mutex takenMutex;
inline std::vector<uint32_t> taken;

inline void Take(const ProcessEvent& event) {
    const std::lock_guard lock(takenMutex);
    taken.push_back(event.cpu);
}

inline size_t Taken() {
    const std::lock_guard lock(takenMutex);
    return taken.size();
}

inline std::vector<ProcessEvent> NumberedEvents(size_t count) {
    std::vector<ProcessEvent> events(count);
    for (size_t i = 0; i < count; ++i) {
        events[i].cpu = static_cast<uint32_t>(i);
    }
    return events;
}

// The gate of WaitAtGate, and the number of calls at it.
inline std::atomic<bool> gateOpen;
inline std::atomic<int> atGate;

inline void WaitAtGate(const ProcessEvent&) {
    ++atGate;
    EXPECT_TRUE(Await([] { return gateOpen.load(); }));
    --atGate;
}

}  // namespace TestSupport
