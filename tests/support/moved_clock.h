// Replaces the clock of host/base/clock.h with one that stands still until a test advances it, in every program that
// links orlim_moved_clock. All functions: any thread.
#pragma once

#include <chrono>
#include <cstddef>
#include <optional>

#include "host/base/clock.h"

namespace MovedClock {

// Initial value of Clock::WallTime(): 2024-05-01, 12:34:56.789 UTC.
inline constexpr std::chrono::system_clock::time_point firstWallTime{std::chrono::milliseconds(1714566896789)};

// Advances both clocks and wakes all threads whose deadline has passed.
// REQUIRES: the caller holds no lock that a waiting thread passed to Clock::WaitUntil.
void Advance(std::chrono::nanoseconds step);

// Sets only the wall time, as an administrator may. Wakes no thread.
void SetWallTime(std::chrono::system_clock::time_point date);

// In the functions below, a thread waits while it is blocked in Clock::WaitUntil or Clock::Poll.

// Returns true once at least that many threads wait for future deadlines. Returns false after ten seconds of real time,
// which is a test failure.
bool AwaitWaiting(size_t threads = 1);

// Returns true once a thread waits for exactly that deadline or, with nullopt, without a deadline. Returns false after
// ten seconds of real time.
bool AwaitDeadline(std::optional<Host::Clock::Time> deadline);

// The nearest deadline of the waiting threads; Time::max() if none has a deadline.
Host::Clock::Time NearestDeadline();

}  // namespace MovedClock
