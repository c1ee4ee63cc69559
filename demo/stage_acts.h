// How each wiring is staged.
#pragma once

#include <functional>
#include <string>

#include "demo/scenarios.h"

namespace Host {

// Stages the wiring, tells its parts as StagehandMain says, and keeps it up until the process is killed; returns where
// there is nothing to keep up. Throws std::runtime_error if the wiring cannot be staged. For a process with one thread.
void Act(const WiringPlan& plan, const std::string& directory, const std::function<void(const std::string&)>& tell);

}  // namespace Host
