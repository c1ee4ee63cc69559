#include "inspect/boot_clock.h"

#include <algorithm>
#include <ctime>

static unsigned long long Nanoseconds(clockid_t clock) {
    timespec now{};
    clock_gettime(clock, &now);
    return static_cast<unsigned long long>(now.tv_sec) * 1000000000ULL + static_cast<unsigned long long>(now.tv_nsec);
}

unsigned long long SuspendedNanoseconds() {
    // In this order, the time between the two reads makes the result smaller, and never makes a host seem suspended.
    const unsigned long long sinceBoot = Nanoseconds(CLOCK_BOOTTIME);
    const unsigned long long awake = Nanoseconds(CLOCK_MONOTONIC);
    return sinceBoot - std::min(sinceBoot, awake);
}
