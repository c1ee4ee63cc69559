#include "host/program/check_command.h"

#include <unistd.h>

#include "host/base/console.h"
#include "host/base/descriptor.h"
#include "host/check/checks.h"
#include "host/check/report.h"
#include "host/check/setup.h"
#include "host/config/config_in_force.h"
#include "host/events/agent_library.h"

namespace Host {
namespace {

// The configuration for the other checks; the defaults if the given one is invalid.
AgentConfig CheckConfig(const std::optional<std::string>& file, bool& valid, CheckReport& report) {
    std::string error;
    const std::optional<AgentConfig> config = LoadConfig(file, error);
    valid = config.has_value();
    if (!valid) {
        report.Missing("configuration", error + " The agent does not start with it",
                       "The lines below assume the default configuration");
        report.Lacks(Facility::module, "the configuration is invalid and the agent does not start with it");
        return {};
    }
    report.Ok("configuration", file ? *file : "no file given, using the defaults");
    for (const std::string& warning : config->warnings) {
        report.Limited("configuration", warning, "Correct it or remove it");
    }
    return *config;
}

}  // namespace

int CheckCommand(const Options& options) {
    AgentLibrary::Get().setLogLevel(LOG_LEVEL_WARNING);
    CheckReport report;
    bool configValid = false;
    const AgentConfig config = CheckConfig(options.configFile, configValid, report);
    // First, because it forks: loading the module may start threads.
    CheckHost(config, report);
    CheckModule(options.moduleFile, report);
    WriteAll(STDOUT_FILENO, report.Text() + BlindLines(report, config));
    if (!configValid) {
        return EXIT_WRONG_USE;
    }
    return report.SomethingMissing() ? EXIT_FAILED : EXIT_DONE;
}

}  // namespace Host
