// Takes the module's events and looks at once at what they are about.
#pragma once

#include <chrono>
#include <mutex>
#include <string>
#include <string_view>
#include <vector>

#include "demo/finding.h"

namespace Host {

// Any thread.
class EventIntake {
public:
    explicit EventIntake(std::chrono::steady_clock::time_point start) : start_(start) {}

    // One event of the queue. Processes may end soon after, so their wiring is read now.
    void Take(std::string_view event);

    // What has come since the last call.
    std::vector<Finding> Fetch();

private:
    const std::chrono::steady_clock::time_point start_;
    std::mutex mutex_;
    std::vector<Finding> findings_;
};

// The wiring of the process as a tree, or of its stand-in if it has gone; empty if that has gone too. Any thread.
std::string WiringTreeOf(int pid, int standIn);

}  // namespace Host
