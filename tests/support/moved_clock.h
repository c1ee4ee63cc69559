// A clock in place of host/base/clock.h's that stands still until a test moves it. Programs that link orlim_moved_clock
// use it from their start. All functions: any thread.
#pragma once

#include <chrono>
#include <cstddef>
#include <optional>

#include "host/base/clock.h"

namespace MovedClock {

// Clock::WallTime() at the start of the program: 2024-05-01, 12:34:56.789 UTC.
inline constexpr std::chrono::system_clock::time_point firstWallTime{std::chrono::milliseconds(1714566896789)};

// Moves both clocks on and wakes all threads whose deadline has come. The caller holds no lock that a waiting thread
// gave to Clock::WaitUntil.
void Advance(std::chrono::nanoseconds step);

// Sets the date alone, as an administrator may. Wakes nobody.
void SetWallTime(std::chrono::system_clock::time_point date);

// A call that has nothing to wait for does not count as waiting in the functions below.

// Returns true once at least that many threads wait in Clock::WaitUntil or Clock::Poll for deadlines that have not
// come; false after ten seconds of real time, which is a failure of the test.
bool AwaitWaiting(size_t threads = 1);

// Returns true once a thread waits for exactly that deadline, or with nullopt, once one waits without a deadline; false
// after ten seconds of real time.
bool AwaitDeadline(std::optional<Host::Clock::Time> deadline);

// The nearest deadline of the threads that wait now; Time::max() if none has one.
Host::Clock::Time NearestDeadline();

}  // namespace MovedClock
