#include "inspect/boot_clock.h"

#include <gtest/gtest.h>

#include <ctime>

#include "tests/support/kernel_clocks.h"

namespace {

using namespace std::chrono_literals;

class BootClock : public testing::Test {
protected:
    void TearDown() override { KernelClocks::Reset(); }
};

TEST_F(BootClock, ReturnsTheTimeInSuspension) {
    for (const std::chrono::nanoseconds asleep : {0ns, 1ns, 999999999ns, 1000000000ns, 5000000001ns, 864000s + 7ns}) {
        KernelClocks::Set(1234s + 999999998ns, asleep);
        EXPECT_EQ(SuspendedNanoseconds(), static_cast<unsigned long long>(asleep.count()));
    }
}

TEST_F(BootClock, ReturnsZeroOnAHostThatWasNeverSuspendedHoweverFarApartTheReadsAre) {
    for (const std::chrono::nanoseconds apart : {1ns, 1000000ns, 3000000000ns}) {
        KernelClocks::Set(1234s, 0s, apart);
        EXPECT_EQ(SuspendedNanoseconds(), 0U);
    }
}

TEST_F(BootClock, ReturnsTooLittleRatherThanTooMuch) {
    KernelClocks::Set(1234s, 50s, 300ns);
    EXPECT_EQ(SuspendedNanoseconds(), 49999999700U);
}

unsigned long long Nanoseconds(clockid_t clock) {
    timespec now{};
    clock_gettime(clock, &now);
    return static_cast<unsigned long long>(now.tv_sec) * 1000000000U + static_cast<unsigned long long>(now.tv_nsec);
}

TEST_F(BootClock, ReadsTheClocksOfThisHost) {
    const unsigned long long awake = Nanoseconds(CLOCK_MONOTONIC);
    const unsigned long long suspended = SuspendedNanoseconds();
    EXPECT_LE(awake + suspended, Nanoseconds(CLOCK_BOOTTIME));
    // The clocks were read within a minute of each other.
    EXPECT_GE(awake + suspended + 60000000000U, Nanoseconds(CLOCK_BOOTTIME));
}

}  // namespace
