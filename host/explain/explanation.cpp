#include "host/explain/explanation.h"

#include <stdexcept>

#include "frame/settings.h"
#include "host/explain/detections.h"
#include "host/explain/module_in_process.h"
#include "host/system/environment.h"
#include "module/published.h"

namespace Host {
namespace {

// A detection that is off reports nothing, whatever its tests find.
void ApplySwitch(bool on, const std::string& why, Judgement& judgement) {
    if (!on) {
        judgement.reported = false;
        judgement.verdict = "because this detection is off";
        judgement.reasons.insert(judgement.reasons.begin(), {Mark::no, why});
    }
}

std::string WhyReverseShellIsOff() {
    const std::string reason = WhySearchIsOff();
    return reason.empty() ? "the configuration does not have module." + std::string(Published::reverseShellKey)
                          : reason;
}

}  // namespace

std::vector<Judgement> ExplainProcess(int pid, const std::string& configuration, const ExplainProgress& progress) {
    progress("shells of the host");
    const ModuleInProcess module(configuration);
    progress("processes");
    const Scene scene = ReadScene(pid);
    if (!scene.processes.contains(pid)) {
        throw std::runtime_error("process " + std::to_string(pid) + " has exited");
    }
    progress(Published::periodScan);
    std::vector<Judgement> judgements{JudgeByPeriodScan(scene)};
    progress(Published::instantScan);
    for (Judgement& judgement : JudgeByInstantScan(scene)) {
        judgements.push_back(std::move(judgement));
    }
    progress(Published::shortCommandWatcher);
    judgements.push_back(JudgeByShortCommands(scene));
    for (Judgement& judgement : judgements) {
        ApplySwitch(reverseShellEnabled, WhyReverseShellIsOff(), judgement);
    }
    if (IsInOtherNetwork(pid)) {
        judgements.front().Add(
            {Mark::note, "the process is in another network namespace, whose connections the agent does not read"});
    }
    progress(Published::shellFileProtection);
    judgements.push_back(JudgeByShellFile(scene));
    ApplySwitch(abnormalShellEnabled, "the configuration does not have module." + std::string(Published::shellFileKey),
                judgements.back());
    return judgements;
}

}  // namespace Host
