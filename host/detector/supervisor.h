// Starts and stops the module's detection functions, and changes their configuration.
#pragma once

#include <functional>
#include <optional>
#include <string>

#include "host/config/agent_config.h"
#include "host/detector/module.h"

namespace Host {

// Brings the parts of a configuration into force that are the agent's own: settings, log, limit, sinks.
using ApplyConfig = std::function<void(const AgentConfig&)>;

// For one thread.
class Supervisor {
public:
    Supervisor(const ModuleEntries& module, ApplyConfig apply);

    // Initialises the module and starts its functions with moduleText. False, with one log line that says why, if
    // either fails; a module that was initialised but did not start is stopped and deinitialised. The configuration
    // must be in force already.
    bool Start(const AgentConfig& config, const std::string& moduleText);

    // Stops the module and starts it again with the configuration, which is brought into force. If that fails the one
    // before is started again; false if that fails too. Both are logged.
    bool Replace(const AgentConfig& config);

    // Stops and deinitialises what Start started.
    void Stop();

private:
    const ModuleEntries module_;
    const ApplyConfig apply_;
    std::optional<AgentConfig> current_;  // set while the module runs
};

}  // namespace Host
