// Tests on this host all facilities that the detections need.
#pragma once

#include "host/check/report.h"
#include "host/config/agent_config.h"

namespace Host {

// Adds a line for each facility except the module, which is not loaded. Takes a few milliseconds, or half a second more
// if the kernel does not answer a request for process events. Forks: call it before starting threads.
void CheckHost(const AgentConfig& config, CheckReport& report);

// Runs the checks of CheckHost and logs one warning for each blind detection.
void LogBlindDetections(const AgentConfig& config);

}  // namespace Host
