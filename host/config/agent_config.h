// The agent's configuration file.
#pragma once

#include <map>
#include <optional>
#include <string>
#include <vector>

#include "agent/logger.h"
#include "host/sinks/sink_spec.h"
#include "module/published.h"

namespace Host {

// The values in force without a configuration file.
struct AgentConfig {
    AgentConfig();

    // The folder of the agent's list of shells; empty if the settings name none.
    std::string ShellListFolder() const;

    std::string moduleText;                       // JSON, for StartModule as it stands
    std::optional<std::string> reverseShellText;  // only that part; empty if there is none
    bool abnormalShell = true;                    // whether moduleText has that part
    std::map<std::string, std::string> settings = {{Published::folderSetting, "/etc/orlim"}};
    unsigned int perMinuteLimit = 60;  // events, 0 for no limit
    std::vector<SinkSpec> sinks = {SinkSpec{}};
    std::optional<LogLevel> logLevel;   // empty if the file does not set it
    std::vector<std::string> warnings;  // one sentence for each thing in "module" that the module would ignore
};

// Reads the text of a configuration file. Empty on failure; error then names file, the place, what was found there,
// what was expected and what to do. Any thread.
std::optional<AgentConfig> ParseAgentConfig(const std::string& text, const std::string& file, std::string& error);

// Reads the file, which must be a regular file of at most 1 MiB. As ParseAgentConfig. Any thread.
std::optional<AgentConfig> ReadAgentConfig(const std::string& file, std::string& error);

}  // namespace Host
