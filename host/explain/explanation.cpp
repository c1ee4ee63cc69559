#include "host/explain/explanation.h"

#include <iterator>
#include <stdexcept>

#include "agent/env.h"
#include "frame/settings.h"
#include "host/explain/instant_scan_judgement.h"
#include "host/explain/module_in_process.h"
#include "host/explain/period_scan_judgement.h"
#include "host/explain/shell_file_judgement.h"
#include "host/explain/short_commands_judgement.h"

namespace Host {
namespace {

// What is off reports nothing, whatever its tests say.
void ApplySwitch(bool on, const std::string& why, Judgement& judgement) {
    if (!on) {
        judgement.reported = false;
        judgement.verdict = "because it is off";
        judgement.tests.insert(judgement.tests.begin(), {Mark::no, why});
    }
}

std::string WhyReverseShellIsOff() {
    return TavUtils::Env::GetEnv("AGENT_LOCATION") != nullptr
               ? "AGENT_LOCATION is set in the environment, which keeps the search for reverse shells off"
               : "the configuration does not have module.reverseShell";
}

// A test that is asked from here and one that the module asks are two samples, and the module's is the one that counts.
void NoteDisagreement(Judgement& judgement) {
    bool passed = true;
    for (const Test& test : judgement.tests) {
        passed = passed && test.mark != Mark::no;
    }
    if (passed != judgement.reported) {
        judgement.Note(
            "the module itself, asked a moment before, came to another end than these tests: the process has moved on, "
            "or a check that is not told here held it back");
    }
}

}  // namespace

std::vector<Judgement> ExplainProcess(int pid, const std::string& configuration, const ExplainProgress& progress) {
    progress("shells of the host");
    const ModuleInProcess module(configuration);
    progress("processes");
    const Scene scene = ReadScene(pid);
    if (!scene.processes.contains(pid)) {
        throw std::runtime_error("process " + std::to_string(pid) + " has ended meanwhile");
    }
    progress("period scan");
    std::vector<Judgement> judgements{JudgeByPeriodScan(scene)};
    progress("instant scan");
    for (Judgement& judgement : JudgeByInstantScan(scene)) {
        judgements.push_back(std::move(judgement));
    }
    progress("short commands");
    judgements.push_back(JudgeByShortCommands(scene));
    for (Judgement& judgement : judgements) {
        NoteDisagreement(judgement);
        ApplySwitch(reverseShellEnabled, WhyReverseShellIsOff(), judgement);
    }
    if (IsInOtherNetwork(pid)) {
        judgements.front().Note(
            "the process is in another network namespace, whose connections the agent does not read");
    }
    progress("shell files");
    judgements.push_back(JudgeByShellFile(scene));
    ApplySwitch(abnormalShellEnabled, "the configuration does not have module.abnormalShell", judgements.back());
    return judgements;
}

}  // namespace Host
