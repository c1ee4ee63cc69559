// From a command line to a configuration in force.
#pragma once

#include <optional>
#include <string>

#include "agent/logger.h"
#include "host/config/agent_config.h"

namespace Host {

// The named file's configuration, or the defaults if none is named; as ReadAgentConfig.
std::optional<AgentConfig> LoadConfig(const std::optional<std::string>& file, std::string& error);

// Sets the log's level (levelByDefault unless the configuration has one), the settings and the event limit, and logs
// the configuration's warnings.
void ApplyToProcess(const AgentConfig& config, LogLevel levelByDefault);

}  // namespace Host
