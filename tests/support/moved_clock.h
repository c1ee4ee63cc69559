// A clock in place of host/base/clock that stands still until a test moves it. A program that links orlim_moved_clock has
// it from its start.
#pragma once

#include <chrono>
#include <cstddef>

#include "host/base/clock.h"

namespace MovedClock {

// Moves the time on and wakes all who wait for a time that has come. Any thread that holds no lock which a waiting thread
// gave to Clock::WaitUntil.
void Advance(std::chrono::nanoseconds step);

// Returns once at least this many threads wait in Clock::WaitUntil or Clock::Poll with a deadline that has not come. False
// if that takes more than ten real seconds, which is a failure of the test.
bool AwaitWaiting(size_t threads = 1);

// The nearest deadline of those who wait now; Time::max() if none has one.
Host::Clock::Time NearestDeadline();

}  // namespace MovedClock
