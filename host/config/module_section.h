// The module's section of the configuration.
#pragma once

#include <nlohmann/json.hpp>

#include "host/config/agent_config.h"

namespace Host {

// Copies the module's section to config. The module ignores invalid keys and values silently, so each of them adds a
// warning to config.
void ReadModuleSection(const nlohmann::ordered_json& module, AgentConfig& config);

}  // namespace Host
