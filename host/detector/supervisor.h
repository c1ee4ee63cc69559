// Starts and stops the module, and replaces its configuration.
#pragma once

#include <functional>
#include <optional>
#include <string>

#include "host/config/agent_config.h"
#include "host/detector/module.h"

namespace Host {

// Applies the agent's own part of a configuration: settings, log, event limit, sinks.
using ApplyConfig = std::function<void(const AgentConfig&)>;

// For one thread.
class Supervisor {
public:
    Supervisor(const ModuleEntries& module, ApplyConfig apply);
    // Stops the module if it is running: its tasks must not outlive the loaded code when an exception passes.
    ~Supervisor();
    Supervisor(const Supervisor&) = delete;
    Supervisor& operator=(const Supervisor&) = delete;

    // Initialises the module and starts its functions with moduleText. If either fails or throws, logs one line with
    // the reason and returns false; a module that did not start is then stopped and deinitialised. The caller must have
    // applied config.
    bool Start(const AgentConfig& config, const std::string& moduleText);

    // Stops the module, applies config and starts the module with it. If the start fails, applies and starts the
    // previous configuration; false if that fails too. Both failures are logged.
    bool Replace(const AgentConfig& config);

    // Stops and deinitialises the module if it is running.
    void Stop();

private:
    void StopModule();

    const ModuleEntries module_;
    const ApplyConfig apply_;
    std::optional<AgentConfig> current_;  // set while the module runs
};

}  // namespace Host
