// The difference between the kernel's two clocks for time stamps.
#pragma once

// Returns the nanoseconds for which the host has been suspended since boot: CLOCK_BOOTTIME minus CLOCK_MONOTONIC
// (clock_gettime(2)). Exactly 0 on a host that was never suspended. Any thread.
unsigned long long SuspendedNanoseconds();
