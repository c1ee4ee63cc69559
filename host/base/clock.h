// The agent's only clock: all host code reads the time and waits through it. Tests link another definition, whose time
// moves only when the test moves it. All functions: any thread.
#pragma once

#include <poll.h>

#include <chrono>
#include <condition_variable>
#include <functional>
#include <mutex>
#include <optional>
#include <span>

namespace Host::Clock {

// Time since boot, as CLOCK_MONOTONIC counts it. The kernel stamps its process events with the same clock. Setting the
// date does not change it.
using Time = std::chrono::steady_clock::time_point;

Time Now();

// The date and time of day.
std::chrono::system_clock::time_point WallTime();

// Waits until done() is true or the deadline has passed; without a deadline, until done() is true. Returns done(). lock
// is held on entry, during done() and on return. REQUIRES: changed is notified whenever the result of done() changes.
bool WaitUntil(std::condition_variable& changed, std::unique_lock<std::mutex>& lock, std::optional<Time> deadline,
               const std::function<bool()>& done);

// poll(2) until a descriptor is ready or the deadline has passed; without a deadline, until one is ready. Continues
// after a signal. Returns the number of ready descriptors, 0 at the deadline, -1 with errno on failure. Ignores entries
// with the descriptor -1.
int Poll(std::span<pollfd> descriptors, std::optional<Time> deadline);

}  // namespace Host::Clock
