#include "host/program/run_command.h"

#include <signal.h>
#include <unistd.h>

#include <utility>

#include "host/base/complain.h"
#include "host/base/exit_status.h"
#include "host/base/log.h"
#include "host/base/signals.h"
#include "host/check/checks.h"
#include "host/config/config_in_force.h"
#include "host/detector/module.h"
#include "host/detector/supervisor.h"
#include "host/program/event_output.h"
#include "host/program/footprint.h"

namespace Host {
namespace {

// Serves signals until one asks for the end. False if detection is down for good.
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
            LogError("the configuration in force stays, because the new one is wrong: %s", error.c_str());
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
    KeepPagesSmall();
    std::string error;
    const std::optional<AgentConfig> config = LoadConfig(options.configFile, error);
    if (!config) {
        Complain(error);
        return EXIT_WRONG_USE;
    }
    ApplyToProcess(*config, LOG_LEVEL_LIFECYCLE);
    LogBlindDetections(*config);
    const std::optional<Module> module = Module::FindAndLoad(options.moduleFile, error);
    if (!module) {
        Complain(error);
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
