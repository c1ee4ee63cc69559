#include "host/program/scan_command.h"

#include <unistd.h>

#include <utility>

#include "host/base/console.h"
#include "host/check/rights.h"
#include "host/config/config_in_force.h"
#include "host/detector/module.h"
#include "host/detector/supervisor.h"
#include "host/events/agent_library.h"
#include "host/program/event_output.h"
#include "host/system/environment.h"
#include "module/published.h"

namespace Host {
namespace {

bool ScanOnce(const AgentConfig& config, const ModuleEntries& module) {
    Supervisor supervisor(module, [](const AgentConfig&) {});
    if (!supervisor.Start(config, *config.reverseShellText)) {
        return false;
    }
    const bool scanned = AgentLibrary::Get().runTaskNow(Published::periodScanTask);
    supervisor.Stop();
    if (!scanned) {
        PrintMessage(
            "no scan was done: the module did not schedule one. Check module.reverseShell in the configuration, and "
            "run orlim-agent check.");
    }
    return scanned;
}

void Summarise(const EventQueueCounters& counters, uint64_t lost) {
    std::string summary =
        "scan finished: " + std::to_string(counters.written) + (counters.written == 1 ? " event" : " events");
    const uint64_t dropped = counters.limited + counters.overflowed;
    if (dropped != 0) {
        summary += ", " + std::to_string(dropped) + " more were dropped; raise events.perMinuteLimit to see them";
    }
    if (lost != 0) {
        summary += "; " + std::to_string(lost) + " could not be written, see the lines above";
    }
    PrintMessage(summary);
}

}  // namespace

int ScanCommand(const Options& options) {
    std::string error;
    const std::optional<AgentConfig> config = LoadConfig(options.configFile, error);
    if (config && !config->reverseShellText) {
        error = *options.configFile +
                ": module.reverseShell: expected an object, found nothing; a scan looks for reverse shells only. " +
                "Add \"reverseShell\": {} to \"module\", or omit \"module\".";
    }
    if (!error.empty()) {
        PrintMessage(error);
        return EXIT_WRONG_USE;
    }
    const std::string reason = WhySearchIsOff();
    if (!reason.empty()) {
        PrintMessage("cannot scan: " + reason + ". Unset it: env -u " + Published::locationVariable +
                     " orlim-agent scan");
        return EXIT_FAILED;
    }
    ApplyToProcess(*config, LOG_LEVEL_WARNING);
    LogMissingCapabilities();
    const std::optional<Module> module = Module::FindAndLoad(options.moduleFile, error);
    if (!module) {
        PrintMessage(error);
        return EXIT_FAILED;
    }
    EventOutput output;
    output.Start(config->sinks);
    const bool done = ScanOnce(*config, module->Entries());
    if (!output.Stop()) {
        ::_exit(EXIT_FAILED);
    }
    if (done) {
        Summarise(AgentLibrary::Get().eventCounters(), output.Lost());
    }
    return done && output.Lost() == 0 ? EXIT_DONE : EXIT_FAILED;
}

}  // namespace Host
