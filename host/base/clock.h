// The one clock of the agent. Whoever asks for the time or waits for it asks here; tests link a clock of their own in its
// place, which only they move.
#pragma once

#include <poll.h>

#include <chrono>
#include <condition_variable>
#include <functional>
#include <mutex>
#include <optional>
#include <span>

namespace Host::Clock {

// The steady clock, which no change of the date moves. All functions: any thread.
using Time = std::chrono::steady_clock::time_point;

Time Now();

// Waits until done() is true or the deadline has come; without a deadline, until done(). Returns done(). lock must be
// held and is held again on return; whoever changes what done() looks at notifies changed.
bool WaitUntil(std::condition_variable& changed, std::unique_lock<std::mutex>& lock, std::optional<Time> deadline,
               const std::function<bool()>& done);

// poll(2) until a descriptor is ready or the deadline has come; without a deadline, until one is ready. Begun again when
// a signal interrupts it. The number of ready descriptors; 0 at the deadline; -1 with errno on failure. An entry with
// the descriptor -1 is passed over.
int Poll(std::span<pollfd> descriptors, std::optional<Time> deadline);

}  // namespace Host::Clock
