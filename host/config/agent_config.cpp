#include "host/config/agent_config.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <initializer_list>
#include <nlohmann/json.hpp>
#include <utility>

#include "host/base/descriptor.h"
#include "host/config/config_section.h"
#include "host/config/config_text.h"
#include "host/config/module_section.h"
#include "host/system/small_file.h"
#include "module/published.h"

namespace Host {
namespace {

using Json = nlohmann::ordered_json;

constexpr size_t maxFileBytes = size_t{1024} * 1024;
constexpr size_t maxSinks = 16;
constexpr int64_t maxPerMinuteLimit = 1000000;

void ReadSettings(const Section& section, AgentConfig& config) {
    for (const auto& [key, value] : section.Value().items()) {
        const std::string path = MemberPath(section.Path(), key);
        if (!value.is_string()) {
            throw ConfigError(path, ShowValue(value), "a string", "Put the value in double quotes.");
        }
        config.settings[key] = value.get<std::string>();
    }
}

SinkSpec ReadSink(const Section& section) {
    const Json* type = section.Find("type");
    if (type == nullptr || (*type != "stdout" && *type != "file")) {
        throw ConfigError(MemberPath(section.Path(), "type"), type == nullptr ? "nothing" : ShowValue(*type),
                          "\"stdout\" or \"file\"",
                          "Write {\"type\":\"stdout\"} or {\"type\":\"file\",\"path\":\"/...\"}.");
    }
    if (*type == "stdout") {
        section.AllowOnly({"type"});
        return SinkSpec{};
    }
    section.AllowOnly({"type", "path"});
    const Json* path = section.Find("path");
    const std::string text = path != nullptr && path->is_string() ? path->get<std::string>() : "";
    if (text.empty() || text.front() != '/' || text.back() == '/' || text.find('\0') != std::string::npos) {
        throw ConfigError(MemberPath(section.Path(), "path"), path == nullptr ? "nothing" : ShowValue(*path),
                          "the absolute path of a file", "Write the full path, starting with \"/\".");
    }
    return SinkSpec{SinkType::file, text};
}

void ReadSinks(const Section& events, AgentConfig& config) {
    const Json* sinks = events.Find("sinks");
    if (sinks == nullptr) {
        return;
    }
    const std::string path = MemberPath(events.Path(), "sinks");
    if (!sinks->is_array() || sinks->empty() || sinks->size() > maxSinks) {
        throw ConfigError(path, sinks->is_array() ? std::to_string(sinks->size()) + " sinks" : ShowValue(*sinks),
                          "an array of 1 to 16 sinks", "For example, write [{\"type\":\"stdout\"}].");
    }
    config.sinks.clear();
    for (size_t i = 0; i < sinks->size(); ++i) {
        config.sinks.push_back(ReadSink(Section((*sinks)[i], ElementPath(path, i))));
    }
}

void ReadEvents(const Section& section, AgentConfig& config) {
    section.AllowOnly({"perMinuteLimit", "sinks"});
    config.perMinuteLimit =
        static_cast<unsigned int>(section.Integer("perMinuteLimit", 0, maxPerMinuteLimit, "Write 0 for no limit.")
                                      .value_or(config.perMinuteLimit));
    ReadSinks(section, config);
}

void ReadLog(const Section& section, AgentConfig& config) {
    section.AllowOnly({"level", "target"});
    const std::optional<int64_t> level = section.Integer(
        "level", LOG_LEVEL_DETAIL, LOG_LEVEL_ERROR, "Write 0 for detail, 1 for info, 2 for warnings, 3 for errors.");
    if (level) {
        config.logLevel = static_cast<LogLevel>(*level);
    }
    const Json* target = section.Find("target");
    if (target != nullptr && *target != "stderr") {
        throw ConfigError(MemberPath(section.Path(), "target"), ShowValue(*target), "\"stderr\"",
                          "To log elsewhere, redirect standard error.");
    }
}

AgentConfig ReadRoot(const Json& value) {
    AgentConfig config;
    const Section root(value, "");
    root.AllowOnly({"module", "settings", "events", "log"});
    if (const std::optional<Section> module = root.Child("module")) {
        ReadModuleSection(module->Value(), config);
    }
    if (const std::optional<Section> settings = root.Child("settings")) {
        ReadSettings(*settings, config);
    }
    if (const std::optional<Section> events = root.Child("events")) {
        ReadEvents(*events, config);
    }
    if (const std::optional<Section> log = root.Child("log")) {
        ReadLog(*log, config);
    }
    return config;
}

bool ReadText(const std::string& file, std::string& text, std::string& error) {
    const Descriptor opened(::open(file.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOCTTY));
    struct stat status {};
    if (!opened.IsOpen() || ::fstat(opened.Get(), &status) != 0) {
        error = file + ": cannot open the file: " + ErrorText(errno) + ". Name an existing configuration file that " +
                "this user may read.";
        return false;
    }
    if (!S_ISREG(status.st_mode)) {
        error = file + ": expected a regular file, found something else. Name a file that contains JSON.";
        return false;
    }
    const int readError = ReadUpTo(opened, maxFileBytes + 1, text);
    if (readError != 0) {
        error = file + ": cannot read the file: " + ErrorText(readError) + ". Check the file and its disk.";
        return false;
    }
    if (text.size() > maxFileBytes) {
        error = file + ": expected at most 1 MiB, found more. Name a configuration file, or shorten this one.";
        return false;
    }
    return true;
}

std::string EmptyObjects(std::initializer_list<const char*> keys) {
    Json object = Json::object();
    for (const char* key : keys) {
        object[key] = Json::object();
    }
    return object.dump();
}

}  // namespace

AgentConfig::AgentConfig()
    : moduleText(EmptyObjects({Published::shellFileKey, Published::reverseShellKey})),
      reverseShellText(EmptyObjects({Published::reverseShellKey})) {}

std::string AgentConfig::ShellListFolder() const {
    const auto folder = settings.find(Published::folderSetting);
    return folder == settings.end() ? "" : folder->second;
}

std::optional<AgentConfig> ParseAgentConfig(const std::string& text, const std::string& file, std::string& error) {
    Json value;
    if (!ParseConfigText(text, file, value, error)) {
        return std::nullopt;
    }
    try {
        return ReadRoot(value);
    } catch (const ConfigError& problem) {
        error = file + ": " + problem.what();
        return std::nullopt;
    }
}

std::optional<AgentConfig> ReadAgentConfig(const std::string& file, std::string& error) {
    std::string text;
    if (!ReadText(file, text, error)) {
        return std::nullopt;
    }
    return ParseAgentConfig(text, file, error);
}

}  // namespace Host
