// Stages each scenario.
#pragma once

#include <functional>
#include <string>

#include "demo/scenarios.h"

namespace Host {

// Stages the scenario, passes its parts to report in the form that StagehandMain prints, and keeps it running until the
// process is killed. Returns if the scenario needs no running process. Throws std::runtime_error if it cannot be
// staged. For a process with one thread.
void Act(const Scenario& scenario, const std::string& directory, const std::function<void(const std::string&)>& report);

}  // namespace Host
