#include "host/detector/supervisor.h"

#include <utility>

#include "host/base/log.h"
#include "host/events/agent_library.h"

namespace Host {
namespace {

constexpr const char* stopCode = "0000";

std::string EtcDirectory(const AgentConfig& config) {
    const auto setting = config.settings.find("TAVORIN_ETC");
    return setting == config.settings.end() ? "" : setting->second;
}

// What the module itself said of its functions since it was told to start.
std::string FunctionsNotRunning() {
    std::string names;
    for (const auto& [name, status] : AgentLibrary::Get().detectionStatus()) {
        if (!status.running) {
            names +=
                (names.empty() ? "" : ", ") + name + " (code " + (status.code.empty() ? "none" : status.code) + ")";
        }
    }
    return names.empty() ? "the module did not say which" : names;
}

}  // namespace

Supervisor::Supervisor(const ModuleEntries& module, ApplyConfig apply) : module_(module), apply_(std::move(apply)) {}

bool Supervisor::Start(const AgentConfig& config, const std::string& moduleText) {
    if (module_.init() == 0) {
        LogError(
            "the module could not be initialised: no shell could be resolved from %s/default_shells or "
            "/etc/shells. Write the absolute path of an existing shell into one of them, one a line",
            EtcDirectory(config).c_str());
        return false;
    }
    if (module_.start(moduleText.c_str()) == 0) {
        const std::string notRunning = FunctionsNotRunning();
        module_.stop(stopCode);
        module_.deinit();
        LogError(
            "the module could not be started; detection functions not running: %s. The lines before say "
            "why, and orlim-agent check tells what this host lacks",
            notRunning.c_str());
        return false;
    }
    current_ = config;
    return true;
}

bool Supervisor::Replace(const AgentConfig& config) {
    const std::optional<AgentConfig> before = current_;
    Stop();
    apply_(config);
    if (Start(config, config.moduleText)) {
        LogInfo("the new configuration is in force");
        return true;
    }
    if (!before) {
        return false;
    }
    LogError("the new configuration does not start; the one before is taken again");
    apply_(*before);
    return Start(*before, before->moduleText);
}

void Supervisor::Stop() {
    if (current_) {
        module_.stop(stopCode);
        module_.deinit();
        current_.reset();
    }
}

}  // namespace Host
