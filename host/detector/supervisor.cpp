#include "host/detector/supervisor.h"

#include <exception>
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

// Calls an entry. False if it throws, which is logged: what the module has started has to be stopped all the same.
bool Complete(const char* name, const std::function<void()>& entry) {
    std::string why("unknown exception");
    try {
        entry();
        return true;
    } catch (const std::exception& error) {
        why = error.what();
    } catch (...) {
    }
    LogError("the entry %s of the module failed: %s; stopping the module", name, why.c_str());
    return false;
}

}  // namespace

Supervisor::Supervisor(const ModuleEntries& module, ApplyConfig apply) : module_(module), apply_(std::move(apply)) {}

Supervisor::~Supervisor() {
    Stop();
}

bool Supervisor::Start(const AgentConfig& config, const std::string& moduleText) {
    int done = 0;
    if (!Complete(Published::initEntry, [&] { done = module_.init(); })) {
        StopModule();
        return false;
    }
    if (done == 0) {
        LogError(
            "the module could not be initialised: no shell listed in %s/%s or %s exists. Add the absolute path of an "
            "existing shell to one of these files, one path per line",
            config.ShellListFolder().c_str(), Published::shellListName, Published::hostShellList);
        return false;
    }
    if (!Complete(Published::startEntry, [&] { done = module_.start(moduleText.c_str()); })) {
        StopModule();
        return false;
    }
    if (done == 0) {
        const std::string notRunning = FunctionsNotRunning();
        StopModule();
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
        current_.reset();
        StopModule();
    }
}

void Supervisor::StopModule() {
    Complete(Published::stopEntry, [this] { module_.stop(Published::inOrderCode); });
    Complete(Published::deinitEntry, [this] { module_.deinit(); });
}

}  // namespace Host
