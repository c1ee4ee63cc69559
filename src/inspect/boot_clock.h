// The difference between the two clocks by which the kernel tells when something happened.
#pragma once

// Nanoseconds that the host has been suspended since boot: how far CLOCK_BOOTTIME is ahead of CLOCK_MONOTONIC
// (clock_gettime(2)). 0 on a host that has never slept, exactly. Any thread.
unsigned long long SuspendedNanoseconds();
