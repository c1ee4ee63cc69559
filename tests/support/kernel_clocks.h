// The two clocks by which the kernel stamps events and processes, under the test's control.
#pragma once

#include <chrono>

// The calls under test may come from any thread.
namespace KernelClocks {

// From now on CLOCK_MONOTONIC reads awake and CLOCK_BOOTTIME that and asleep more. Every read of either moves both on
// by perRead once it is done. Other clocks are the host's.
void Set(std::chrono::nanoseconds awake, std::chrono::nanoseconds asleep, std::chrono::nanoseconds perRead = {});

// All clocks are the host's again.
void Reset();

}  // namespace KernelClocks
