#include "tests/support/kernel_clocks.h"

#include <ctime>
#include <mutex>
#include <optional>

#include "tests/support/wrapped_calls.h"

using std::chrono::nanoseconds;

namespace {

struct Clocks {
    nanoseconds awake;
    nanoseconds asleep;
    nanoseconds perRead;
};

std::mutex clocksLock;
std::optional<Clocks> clocks;

}  // namespace

void KernelClocks::Set(nanoseconds awake, nanoseconds asleep, nanoseconds perRead) {
    const std::lock_guard guard(clocksLock);
    clocks = {awake, asleep, perRead};
}

void KernelClocks::Reset() {
    const std::lock_guard guard(clocksLock);
    clocks.reset();
}

extern "C" {

int __wrap_clock_gettime(clockid_t clock, timespec* now) {
    const std::lock_guard guard(clocksLock);
    if (!clocks || (clock != CLOCK_MONOTONIC && clock != CLOCK_BOOTTIME)) {
        return __real_clock_gettime(clock, now);
    }
    const nanoseconds time = clock == CLOCK_BOOTTIME ? clocks->awake + clocks->asleep : clocks->awake;
    now->tv_sec = static_cast<time_t>(time.count() / 1000000000);
    now->tv_nsec = static_cast<long>(time.count() % 1000000000);
    clocks->awake += clocks->perRead;
    return 0;
}
}
