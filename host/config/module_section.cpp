#include "host/config/module_section.h"

#include <algorithm>
#include <initializer_list>
#include <set>
#include <string>

#include "host/config/config_text.h"

namespace Host {
namespace {

using Json = nlohmann::ordered_json;

constexpr int64_t minInterval = 30;
constexpr int64_t maxInterval = 86400;
constexpr size_t maxWhitelist = 50;
constexpr size_t maxWarnings = 32;

void Warn(AgentConfig& config, const std::string& path, const std::string& found, const std::string& expected) {
    if (config.warnings.size() == maxWarnings) {
        config.warnings.push_back("module: further warnings are left out");
    }
    if (config.warnings.size() > maxWarnings) {
        return;
    }
    config.warnings.push_back(path + ": found " + found + ", expected " + expected + "; the module passes it over");
}

void WarnOfUnknownKeys(const Json& object, const std::string& path, std::initializer_list<const char*> known,
                       const std::string& expected, AgentConfig& config) {
    for (const auto& [key, value] : object.items()) {
        if (std::find(known.begin(), known.end(), key) == known.end()) {
            Warn(config, MemberPath(path, key), "an unknown key", expected);
        }
    }
}

void CheckInterval(const Json& value, const std::string& path, AgentConfig& config) {
    const bool usable = value.is_number_integer() && value >= minInterval && value <= maxInterval;
    if (!usable) {
        Warn(config, path, ShowValue(value), "a whole number of seconds from 30 to 86400");
    }
}

void CheckWhitelist(const Json& value, const std::string& path, AgentConfig& config) {
    if (!value.is_array()) {
        Warn(config, path, ShowValue(value), "an array of strings");
        return;
    }
    std::set<std::string> distinct;
    for (size_t i = 0; i < value.size(); ++i) {
        if (!value[i].is_string()) {
            Warn(config, ElementPath(path, i), ShowValue(value[i]), "a string");
        } else {
            distinct.insert(value[i].get<std::string>());
        }
    }
    if (distinct.size() > maxWhitelist) {
        Warn(config, path, std::to_string(distinct.size()) + " different strings", "at most 50");
    }
}

void CheckReverseShell(const Json& value, AgentConfig& config) {
    const std::string path = "module.reverseShell";
    if (!value.is_object()) {
        Warn(config, path, ShowValue(value), "an object");
        return;
    }
    WarnOfUnknownKeys(value, path, {"detectInterval", "whitelist"}, "detectInterval or whitelist", config);
    if (const auto interval = value.find("detectInterval"); interval != value.end()) {
        CheckInterval(*interval, path + ".detectInterval", config);
    }
    if (const auto whitelist = value.find("whitelist"); whitelist != value.end()) {
        CheckWhitelist(*whitelist, path + ".whitelist", config);
    }
}

}  // namespace

void ReadModuleSection(const Json& module, AgentConfig& config) {
    config.moduleText = module.dump();
    config.reverseShellText.reset();
    config.abnormalShell = module.contains("abnormalShell");
    WarnOfUnknownKeys(module, "module", {"abnormalShell", "reverseShell"}, "abnormalShell or reverseShell", config);
    const auto reverseShell = module.find("reverseShell");
    if (reverseShell != module.end()) {
        CheckReverseShell(*reverseShell, config);
        Json part = Json::object();
        part["reverseShell"] = *reverseShell;
        config.reverseShellText = part.dump();
    }
}

}  // namespace Host
