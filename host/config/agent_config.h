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

// A new object holds the defaults, which apply without a configuration file.
struct AgentConfig {
    AgentConfig();

    // The directory of the agent's list of shells; empty if the settings do not name one.
    std::string ShellListFolder() const;

    std::string moduleText;                       // JSON, passed to StartModule unchanged
    std::optional<std::string> reverseShellText;  // JSON with that section only; empty if there is none
    bool abnormalShell = true;                    // moduleText has that section
    std::map<std::string, std::string> settings = {{Published::folderSetting, "/etc/orlim"}};
    unsigned int perMinuteLimit = 60;  // events per minute, 0 for no limit
    std::vector<SinkSpec> sinks = {SinkSpec{}};
    std::optional<LogLevel> logLevel;   // empty if the file does not set it
    std::vector<std::string> warnings;  // one sentence per key or value of "module" that the module ignores
};

// Reads the text of a configuration file. Empty on failure; error then gives the file, the key, the expected and the
// found value, and a remedy. Any thread.
std::optional<AgentConfig> ParseAgentConfig(const std::string& text, const std::string& file, std::string& error);

// Reads a regular file of at most 1 MiB; otherwise as ParseAgentConfig. Any thread.
std::optional<AgentConfig> ReadAgentConfig(const std::string& file, std::string& error);

}  // namespace Host
