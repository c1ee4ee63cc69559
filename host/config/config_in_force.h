// Loads the configuration that the command line names, and applies it to this process.
#pragma once

#include <optional>
#include <string>

#include "agent/logger.h"
#include "host/config/agent_config.h"

namespace Host {

// The configuration in file, or the defaults without a file. Errors and threads as in ReadAgentConfig.
std::optional<AgentConfig> LoadConfig(const std::optional<std::string>& file, std::string& error);

// Sets the log level (levelByDefault unless the configuration has one), the settings and the event limit, and logs the
// configuration's warnings.
void ApplyToProcess(const AgentConfig& config, LogLevel levelByDefault);

}  // namespace Host
