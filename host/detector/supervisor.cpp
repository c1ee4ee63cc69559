#include "host/detector/supervisor.h"

#include <utility>

#include "host/base/log.h"
#include "host/events/agent_library.h"
#include "module/published.h"

namespace Host {
namespace {

// The functions that the module has reported as not running since its start.
std::string FunctionsNotRunning() {
    std::string names;
    for (const auto& [name, status] : AgentLibrary::Get().detectionStatus()) {
        if (!status.running) {
            names +=
                (names.empty() ? "" : ", ") + name + " (code " + (status.code.empty() ? "none" : status.code) + ")";
        }
    }
    return names.empty() ? "not reported by the module" : names;
}

}  // namespace

Supervisor::Supervisor(const ModuleEntries& module, ApplyConfig apply) : module_(module), apply_(std::move(apply)) {}

bool Supervisor::Start(const AgentConfig& config, const std::string& moduleText) {
    if (module_.init() == 0) {
        LogError(
            "the module could not be initialised: no shell listed in %s/%s or %s exists. Add the absolute path of an "
            "existing shell to one of these files, one path per line",
            config.ShellListFolder().c_str(), Published::shellListName, Published::hostShellList);
        return false;
    }
    if (module_.start(moduleText.c_str()) == 0) {
        const std::string notRunning = FunctionsNotRunning();
        module_.stop(Published::inOrderCode);
        module_.deinit();
        LogError(
            "the module could not be started; detection functions not running: %s. See the lines before for the "
            "reason, and run orlim-agent check",
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
    LogError("the module does not start with the new configuration, going back to the previous one");
    apply_(*before);
    return Start(*before, before->moduleText);
}

void Supervisor::Stop() {
    if (current_) {
        module_.stop(Published::inOrderCode);
        module_.deinit();
        current_.reset();
    }
}

}  // namespace Host
