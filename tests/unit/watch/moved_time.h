// Waits for changes that take time, which only the test moves.
#pragma once

#include <algorithm>
#include <chrono>
#include <functional>

#include "tests/support/await_condition.h"
#include "tests/support/moved_clock.h"

namespace TestSupport {

// Returns true as soon as condition is true; false after ten real seconds. While any thread waits for a deadline, moves
// the clock towards it in steps too small to skip another one.
inline bool AwaitInMovedTime(const std::function<bool()>& condition) {
    constexpr std::chrono::nanoseconds longestStep = std::chrono::milliseconds(50);
    return Await([&] {
        if (condition()) {
            return true;
        }
        const auto next = MovedClock::NearestDeadline();
        const std::chrono::nanoseconds left = next - Host::Clock::Now();
        if (next != Host::Clock::Time::max() && left.count() > 0) {
            MovedClock::Advance(std::min(left, longestStep));
        }
        return condition();
    });
}

}  // namespace TestSupport
