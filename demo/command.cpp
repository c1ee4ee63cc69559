#include "demo/command.h"

#include <unistd.h>

#include <exception>
#include <optional>

#include "demo/apart.h"
#include "demo/demo.h"
#include "demo/report.h"
#include "demo/scenarios.h"
#include "host/base/console.h"
#include "host/base/descriptor.h"
#include "host/base/signals.h"
#include "host/check/rights.h"
#include "host/config/config_in_force.h"
#include "host/detector/module.h"
#include "host/detector/supervisor.h"
#include "host/system/environment.h"
#include "module/published.h"

namespace Host {
namespace {

// The first name that is not a scenario; empty if there is none.
std::string UnknownName(const DemoOptions& options) {
    for (const std::string& name : options.only) {
        if (FindScenario(name) == nullptr) {
            return name;
        }
    }
    return "";
}

std::string WhyImpossible() {
    if (::geteuid() != 0) {
        return "the demonstration needs root, to create network namespaces and inspect other processes. Run it with "
               "sudo, or list the scenarios with --list";
    }
    const std::string reason = WhySearchIsOff();
    return reason.empty() ? "" : reason + ". Unset it: env -u " + Published::locationVariable + " orlim-agent demo";
}

int Demonstrate(const DemoOptions& options) {
    std::string error;
    const std::optional<Module> module = Module::FindAndLoad(options.moduleFile, error);
    if (!module) {
        PrintMessage(error);
        return EXIT_FAILED;
    }
    Supervisor supervisor(module->Entries(), [](const AgentConfig&) {});
    const DemoDetector detector{
        .start =
            [&](const std::string& etcDirectory) {
                AgentConfig config;
                config.settings[Published::folderSetting] = etcDirectory;
                config.perMinuteLimit = 0;
                ApplyToProcess(config, LOG_LEVEL_WARNING);
                LogMissingCapabilities();
                return supervisor.Start(config, config.moduleText);
            },
        .stop = [&] { supervisor.Stop(); },
    };
    const DemoEnd end = RunDemo(options, detector, error);
    if (end == DemoEnd::impossible) {
        PrintMessage("the demonstration failed: " + error + ". Run orlim-agent check to list what this host lacks.");
    }
    return end == DemoEnd::passed ? EXIT_DONE : EXIT_FAILED;
}

int DemonstrateOrReportFailure(const DemoOptions& options) {
    try {
        return Demonstrate(options);
    } catch (const std::exception& error) {
        // For example, the system refuses a thread or memory.
        PrintMessage(std::string("the demonstration failed: ") + error.what());
        return EXIT_FAILED;
    }
}

}  // namespace

int DemoCommand(const DemoOptions& options) {
    if (options.list) {
        return WriteAll(STDOUT_FILENO, ListText()).error == 0 ? EXIT_DONE : EXIT_FAILED;
    }
    const std::string unknown = UnknownName(options);
    if (!unknown.empty()) {
        PrintMessage("--only: expected the name of a scenario, found " + unknown +
                     ". List the names with orlim-agent demo --list");
        return EXIT_WRONG_USE;
    }
    const std::string reason = WhyImpossible();
    if (!reason.empty()) {
        PrintMessage(reason);
        return EXIT_FAILED;
    }
    BlockControlSignals();
    const std::optional<int> status = RunApart([&] { return DemonstrateOrReportFailure(options); });
    if (!status) {
        PrintMessage(
            "the demonstration ended without a result: it was killed, or the system could not start a process");
    }
    return status.value_or(EXIT_FAILED);
}

}  // namespace Host
