#include "host/program/explain_command.h"

#include <unistd.h>

#include <exception>

#include "host/base/console.h"
#include "host/base/descriptor.h"
#include "host/check/rights.h"
#include "host/config/config_in_force.h"
#include "host/explain/explain_subject.h"
#include "host/explain/explanation.h"
#include "host/explain/judgement_text.h"
#include "host/explain/wiring_text.h"

namespace Host {
namespace {

constexpr const char* clearLine = "\r\033[K";

void ShowStep(const std::string& step) {
    if (::isatty(STDERR_FILENO) == 1) {
        WriteAll(STDERR_FILENO, clearLine + (step.empty() ? "" : "testing: " + step + " ..."));
    }
}

bool Print(const std::string& text) {
    if (WriteAll(STDOUT_FILENO, text).error == 0) {
        return true;
    }
    PrintMessage("cannot write to standard output");
    return false;
}

bool PrintWiring(const Options& options) {
    const std::optional<WiredProcess> wiring = TraceWiring(options.pid, ReadHostProcesses(), ReadConnections());
    if (!wiring) {
        const std::string reason = WhyNotExplained(options.pid);
        PrintMessage(reason.empty() ? "process " + std::to_string(options.pid) + " cannot be inspected" : reason);
        return false;
    }
    return Print(options.dot ? WiringDot(*wiring) : WiringText(*wiring));
}

bool PrintJudgements(const Options& options, const AgentConfig& config) {
    try {
        const std::vector<Judgement> judgements = ExplainProcess(options.pid, config.moduleText, ShowStep);
        ShowStep("");
        return Print("\n" + JudgementText(judgements));
    } catch (const std::exception&) {
        ShowStep("");
        throw;
    }
}

}  // namespace

int ExplainCommand(const Options& options) {
    std::string error;
    const std::optional<AgentConfig> config = LoadConfig(options.configFile, error);
    if (!config) {
        PrintMessage(error);
        return EXIT_WRONG_USE;
    }
    ApplyToProcess(*config, LOG_LEVEL_WARNING);
    const std::string reason = WhyNotExplained(options.pid);
    if (!reason.empty()) {
        PrintMessage(reason);
        return EXIT_FAILED;
    }
    LogMissingCapabilities();
    if (!PrintWiring(options)) {
        return EXIT_FAILED;
    }
    return options.dot || PrintJudgements(options, *config) ? EXIT_DONE : EXIT_FAILED;
}

}  // namespace Host
