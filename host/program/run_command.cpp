#include "host/program/run_command.h"

#include <signal.h>
#include <sys/prctl.h>
#include <unistd.h>

#include <utility>

#include "host/base/console.h"
#include "host/base/log.h"
#include "host/base/signals.h"
#include "host/check/checks.h"
#include "host/config/config_in_force.h"
#include "host/detector/module.h"
#include "host/detector/supervisor.h"
#include "host/program/event_output.h"

namespace Host {
namespace {

// If transparent huge pages are set to "always", the kernel backs each thread stack with a 2 MiB page, of which a few
// KiB are used. Affects memory that is touched from now on. A failure is harmless.
void DisableHugePages() {
    ::prctl(PR_SET_THP_DISABLE, 1, 0, 0, 0);
}

// Handles signals until SIGTERM or SIGINT. False if a reload failed and the module no longer runs.
bool ServeSignals(const Options& options, Supervisor& supervisor, EventOutput& output) {
    for (;;) {
        const int number = WaitForControlSignal();
        if (number != SIGHUP) {
            LogInfo("stopping on signal %d", number);
            return true;
        }
        output.Reopen();
        std::string error;
        const std::optional<AgentConfig> config = LoadConfig(options.configFile, error);
        if (!config) {
            LogError("keeping the current configuration, the new one is invalid: %s", error.c_str());
            continue;
        }
        if (!supervisor.Replace(*config)) {
            return false;
        }
    }
}

bool RunModule(const Options& options, const AgentConfig& config, const ModuleEntries& module, EventOutput& output) {
    Supervisor supervisor(module, [&output](const AgentConfig& next) {
        ApplyToProcess(next, LOG_LEVEL_LIFECYCLE);
        output.SetSinks(next.sinks);
    });
    if (!supervisor.Start(config, config.moduleText)) {
        return false;
    }
    LogInfo("the module was started");
    const bool ended = ServeSignals(options, supervisor, output);
    supervisor.Stop();
    return ended;
}

}  // namespace

int RunCommand(const Options& options) {
    BlockControlSignals();
    DisableHugePages();
    std::string error;
    const std::optional<AgentConfig> config = LoadConfig(options.configFile, error);
    if (!config) {
        PrintMessage(error);
        return EXIT_WRONG_USE;
    }
    ApplyToProcess(*config, LOG_LEVEL_LIFECYCLE);
    LogBlindDetections(*config);
    const std::optional<Module> module = Module::FindAndLoad(options.moduleFile, error);
    if (!module) {
        PrintMessage(error);
        return EXIT_FAILED;
    }
    EventOutput output;
    output.Start(config->sinks);
    const bool done = RunModule(options, *config, module->Entries(), output);
    if (!output.Stop()) {
        ::_exit(EXIT_FAILED);
    }
    return done ? EXIT_DONE : EXIT_FAILED;
}

}  // namespace Host
