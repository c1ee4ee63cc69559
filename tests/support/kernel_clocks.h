// Fakes the two clocks from which the kernel takes the time stamps of events and processes.
#pragma once

#include <chrono>

// The calls under test may come from any thread.
namespace KernelClocks {

// CLOCK_MONOTONIC reads awake, and CLOCK_BOOTTIME reads awake + asleep. Each read of either then advances both by
// perRead. Other clocks are the host's.
void Set(std::chrono::nanoseconds awake, std::chrono::nanoseconds asleep, std::chrono::nanoseconds perRead = {});

// Returns to the host's clocks.
void Reset();

}  // namespace KernelClocks
