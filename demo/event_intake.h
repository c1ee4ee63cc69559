// Receives the module's events and reads the wiring of their processes at once.
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

    // Takes one event. Reads the wiring now, because the processes may end soon.
    void Take(std::string_view event);

    // The findings since the last call.
    std::vector<Finding> Fetch();

private:
    const std::chrono::steady_clock::time_point start_;
    std::mutex mutex_;
    std::vector<Finding> findings_;
};

// The wiring of the process as a tree, or that of standIn if the process has exited; empty if both have. Any thread.
std::string WiringTreeOf(int pid, int standIn);

}  // namespace Host
