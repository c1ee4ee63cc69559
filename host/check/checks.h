// All that the detections stand on, tried on this host.
#pragma once

#include "host/check/report.h"
#include "host/config/agent_config.h"

namespace Host {

// Adds a line for each facility but the module, which is not touched. Takes some milliseconds; half a second more where
// the kernel does not answer a request for process events. It forks: before threads are started.
void CheckHost(const AgentConfig& config, CheckReport& report);

// As CheckHost, with one warning in the log for each detection that is blind in place of the lines.
void LogBlindDetections(const AgentConfig& config);

}  // namespace Host
