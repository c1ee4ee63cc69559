#include "host/explain/detections.h"

#include <linux/cn_proc.h>

#include <ctime>

#include "classifier/tmp_command_list.h"
#include "classifier/tmp_command_watcher.h"
#include "host/explain/recorded_pass.h"
#include "inspect/boot_clock.h"
#include "module/period_scan.h"
#include "module/published.h"
#include "shellfile/shell_copy.h"

namespace Host {
namespace {

// Large enough to meet any number of commands and any interval that the module requires.
constexpr int standInCommands = 100;
constexpr unsigned long long standInDistanceNs = 60ULL * 1000 * 1000 * 1000;

Judgement Start(const char* detection) {
    return {.detection = detection, .reported = false, .verdict = {}, .reasons = {}};
}

void AddAll(const std::vector<Reason>& reasons, Judgement& judgement) {
    for (const Reason& reason : reasons) {
        judgement.Add(reason);
    }
}

void Conclude(bool reported, const std::string& verdict, Judgement& judgement) {
    judgement.reported = reported;
    if (reported) {
        judgement.verdict = verdict;
    } else if (!judgement.IsRefused()) {
        judgement.Add({Mark::no, "the module could not finish inspecting it: it has exited or cannot be read"});
    }
}

// Records commands that a person starts to type an hour from now. Their pids are negative, so no process has them.
void RecordStandIns(int pid) {
    timespec now{};
    clock_gettime(CLOCK_MONOTONIC, &now);
    unsigned long long timestamp = (static_cast<unsigned long long>(now.tv_sec) + 3600) * 1000000000ULL;
    for (int i = 1; i <= standInCommands; ++i) {
        RecordTmpCommand(
            pid, {.pid = -i, .path = {}, .cmdline = {}, .timestamp = timestamp, .suspended = SuspendedNanoseconds()});
        timestamp += standInDistanceNs;
    }
}

// Tests of a stand-in command itself do not concern the process.
bool IsOfStandIn(const Decision& decision) {
    return decision.pid < 0 && decision.other == 0 && decision.inode == 0;
}

}  // namespace

Judgement JudgeByPeriodScan(const Scene& scene) {
    Judgement judgement = Start(Published::periodScan);
    const PassResult pass = RunPass(
        scene, [] { CheckShellTask(nullptr); },
        [&](const Decision&, const std::vector<Reason>& reasons) { AddAll(reasons, judgement); });
    Conclude(pass.Reports(scene.pid), pass.ConnectionText(scene.pid), judgement);
    return judgement;
}

Judgement JudgeByShortCommands(const Scene& scene) {
    Judgement judgement = Start(Published::shortCommandWatcher);
    const PassResult pass = RunPass(
        scene,
        [&] {
            RecordStandIns(scene.pid);
            CheckTmpShellTask(nullptr);
            ClearTmpProcs();
        },
        [&](const Decision& decision, const std::vector<Reason>& reasons) {
            if (!IsOfStandIn(decision)) {
                AddAll(reasons, judgement);
            }
        });
    Conclude(!pass.events.empty() || pass.repeated, "as soon as its short commands have ended", judgement);
    return judgement;
}

Judgement JudgeByShellFile(const Scene& scene) {
    Judgement judgement = Start(Published::shellFileCopy);
    const auto exec = [&scene] {
        proc_event event{};
        event.what = decltype(event.what)::PROC_EVENT_EXEC;
        event.event_data.exec.process_pid = scene.pid;
        event.event_data.exec.process_tgid = scene.pid;
        ShellExecCallback(&event);
    };
    const PassResult pass = RunPass(scene, exec, [&](const Decision& decision, const std::vector<Reason>& reasons) {
        AddAll(reasons, judgement);
        if (decision.test == Trace::Test::isShellFile && decision.outcome) {
            judgement.verdict = "only changes of its file";
        }
    });
    const bool reported = !pass.events.empty();
    Conclude(reported, reported ? "when it is executed, as a copy of " + pass.events.front().path : "", judgement);
    return judgement;
}

}  // namespace Host
