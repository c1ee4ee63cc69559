#include "host/program/check_command.h"

#include <unistd.h>

#include "host/program/check_kernel.h"
#include "host/program/check_report.h"
#include "host/program/check_rights.h"
#include "host/program/check_setup.h"
#include "host/program/check_stack.h"
#include "host/program/config_in_force.h"
#include "host/program/exit_status.h"
#include "host/services/log_control.h"
#include "host/sinks/write_all.h"

namespace Host {
namespace {

// The configuration to go on with: the defaults stand in for one that is wrong.
AgentConfig CheckConfig(const std::optional<std::string>& file, bool& valid, CheckReport& report) {
    std::string error;
    const std::optional<AgentConfig> config = LoadConfig(file, error);
    valid = config.has_value();
    if (!valid) {
        report.Missing("configuration", error + " The agent does not start with it");
        return {};
    }
    report.Ok("configuration", file ? *file : "none named, the defaults hold");
    for (const std::string& warning : config->warnings) {
        report.Limited("configuration", warning);
    }
    return *config;
}

}  // namespace

int CheckCommand(const Options& options) {
    SetLogLevel(LOG_LEVEL_WARNING);
    CheckReport report;
    bool configValid = false;
    const AgentConfig config = CheckConfig(options.configFile, configValid, report);
    CheckLocation(report);
    CheckUser(report);
    CheckCapabilities(report);
    // Before anything that may start a thread, since it forks.
    CheckKernelStacks(report);
    CheckOthersDescriptors(report);
    CheckHidepid(report);
    CheckConnectionTables(report);
    CheckFanotify(report);
    CheckInotify(report);
    const auto etc = config.settings.find("TAVORIN_ETC");
    CheckShellFlags(CheckShellLists(etc == config.settings.end() ? "" : etc->second, "/etc/shells", report), report);
    CheckModule(options.moduleFile, report);
    CheckProcessEvents(report);
    WriteAll(STDOUT_FILENO, report.Text());
    if (!configValid) {
        return EXIT_WRONG_USE;
    }
    return report.SomethingMissing() ? EXIT_FAILED : EXIT_DONE;
}

}  // namespace Host
