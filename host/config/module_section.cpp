#include "host/config/module_section.h"

#include <algorithm>
#include <initializer_list>
#include <set>
#include <string>

#include "host/config/config_section.h"
#include "host/config/config_text.h"
#include "module/published.h"

namespace Host {
namespace {

using Json = nlohmann::ordered_json;

constexpr size_t maxWarnings = 32;

void Warn(AgentConfig& config, const std::string& path, const std::string& found, const std::string& expected,
          const std::string& ignored = "it") {
    if (config.warnings.size() == maxWarnings) {
        config.warnings.push_back("module: further warnings are omitted");
    }
    if (config.warnings.size() > maxWarnings) {
        return;
    }
    config.warnings.push_back(path + ": expected " + expected + ", found " + found + "; the module ignores " + ignored);
}

void WarnOfUnknownKeys(const Json& object, const std::string& path, std::initializer_list<const char*> known,
                       AgentConfig& config) {
    for (const auto& [key, value] : object.items()) {
        if (std::find(known.begin(), known.end(), key) == known.end()) {
            Warn(config, MemberPath(path, key), "an unknown key", Alternatives(known));
        }
    }
}

void CheckInterval(const Json& value, const std::string& path, AgentConfig& config) {
    const bool usable =
        value.is_number_integer() && value >= Published::minDetectInterval && value <= Published::maxDetectInterval;
    if (!usable) {
        Warn(config, path, ShowValue(value),
             "a whole number of seconds from " + std::to_string(Published::minDetectInterval) + " to " +
                 std::to_string(Published::maxDetectInterval));
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
    if (distinct.size() > Published::maxWhitelistSize) {
        Warn(config, path, std::to_string(distinct.size()),
             "at most " + std::to_string(Published::maxWhitelistSize) + " different strings", "the rest");
    }
}

void CheckReverseShell(const Json& value, AgentConfig& config) {
    const std::string path = MemberPath("module", Published::reverseShellKey);
    if (!value.is_object()) {
        Warn(config, path, ShowValue(value), "an object");
        return;
    }
    WarnOfUnknownKeys(value, path, {Published::detectIntervalKey, Published::whitelistKey}, config);
    if (const auto interval = value.find(Published::detectIntervalKey); interval != value.end()) {
        CheckInterval(*interval, MemberPath(path, Published::detectIntervalKey), config);
    }
    if (const auto whitelist = value.find(Published::whitelistKey); whitelist != value.end()) {
        CheckWhitelist(*whitelist, MemberPath(path, Published::whitelistKey), config);
    }
}

}  // namespace

void ReadModuleSection(const Json& module, AgentConfig& config) {
    config.moduleText = module.dump();
    config.reverseShellText.reset();
    config.abnormalShell = module.contains(Published::shellFileKey);
    WarnOfUnknownKeys(module, "module", {Published::shellFileKey, Published::reverseShellKey}, config);
    const auto reverseShell = module.find(Published::reverseShellKey);
    if (reverseShell != module.end()) {
        CheckReverseShell(*reverseShell, config);
        Json part = Json::object();
        part[Published::reverseShellKey] = *reverseShell;
        config.reverseShellText = part.dump();
    }
}

}  // namespace Host
