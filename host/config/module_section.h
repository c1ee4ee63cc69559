// The part of the configuration that belongs to the module.
#pragma once

#include <nlohmann/json.hpp>

#include "host/config/agent_config.h"

namespace Host {

// Takes over the module's object. The module ignores what it cannot use without a word, so each such thing becomes a
// warning of config.
void ReadModuleSection(const nlohmann::ordered_json& module, AgentConfig& config);

}  // namespace Host
