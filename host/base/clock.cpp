#include "host/base/clock.h"

#include <algorithm>
#include <cerrno>
#include <climits>

namespace Host::Clock {
namespace {

// Rounds up: rounded down, poll(2) would return up to a millisecond early, and its caller would spin until the
// deadline.
int MillisecondsUntil(Time deadline) {
    const auto left = std::chrono::ceil<std::chrono::milliseconds>(deadline - Now()).count();
    return static_cast<int>(std::clamp<decltype(left)>(left, 0, INT_MAX));
}

}  // namespace

Time Now() {
    return std::chrono::steady_clock::now();
}

std::chrono::system_clock::time_point WallTime() {
    return std::chrono::system_clock::now();
}

bool WaitUntil(std::condition_variable& changed, std::unique_lock<std::mutex>& lock, std::optional<Time> deadline,
               const std::function<bool()>& done) {
    if (deadline) {
        return changed.wait_until(lock, *deadline, done);
    }
    changed.wait(lock, done);
    return true;
}

int Poll(std::span<pollfd> descriptors, std::optional<Time> deadline) {
    int ready = 0;
    do {
        ready = ::poll(descriptors.data(), descriptors.size(), deadline ? MillisecondsUntil(*deadline) : -1);
    } while (ready < 0 && errno == EINTR);
    return ready;
}

}  // namespace Host::Clock
