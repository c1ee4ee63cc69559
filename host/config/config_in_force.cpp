#include "host/config/config_in_force.h"

#include <mutex>
#include <unordered_map>

#include "agent/config.h"
#include "host/base/log.h"
#include "host/events/agent_library.h"

namespace Host {

std::optional<AgentConfig> LoadConfig(const std::optional<std::string>& file, std::string& error) {
    return file ? ReadAgentConfig(*file, error) : AgentConfig();
}

void ApplyToProcess(const AgentConfig& config, LogLevel levelByDefault) {
    AgentLibrary::Get().setLogLevel(config.logLevel.value_or(levelByDefault));
    {
        TavUtils::Config& settings = TavUtils::Config::GetInstance();
        const std::lock_guard<TavUtils::Config> guard(settings);
        std::unordered_map<std::string, std::string>& map = settings.GetConfigMap<std::string>();
        map.clear();
        map.insert(config.settings.begin(), config.settings.end());
    }
    AgentLibrary::Get().setEventLimit(config.perMinuteLimit);
    for (const std::string& warning : config.warnings) {
        LogWarning("configuration: %s", warning.c_str());
    }
}

}  // namespace Host
