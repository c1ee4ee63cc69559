#include "host/explain/instant_scan_judgement.h"

#include "alarm/reverse_shell_alarm.h"
#include "frame/settings.h"
#include "host/explain/instant_scan_tests.h"
#include "host/explain/own_events.h"

namespace Host {
namespace {

constexpr size_t mostSharers = 20;

// The wirings in the order in which the classifier looks for them.
constexpr const char* wirings[] = {
    "instant scan, waits on a socket itself",    "instant scan, pipe fed by a relay",
    "instant scan, pipe fed by a descendant",    "instant scan, Unix stream with a raw-socket parent",
    "instant scan, terminal held by its parent",
};
enum Wiring : int { socketWait, relayPipe, descendantPipe, unixStream, parentTerminal, none };

void AddSnapshots(const Scene& scene, ReverseShell& classifier) {
    classifier.AddNode(scene.own);
    if (scene.parent.pid != 0) {
        classifier.AddNode(scene.parent);
    }
    for (const int pid : PipeSharers(scene, mostSharers)) {
        ProcInfo info;
        if (pid != scene.parent.pid && GetProcInfo(pid, info) != 0) {
            classifier.AddNode(info);
        }
    }
}

// What the classifier's own run comes to.
struct Outcome {
    int claimedBy = none;
    std::vector<OwnEvent> events;
};

void RaiseAlarms(const std::vector<int>& pids, const std::vector<SocketInfo>& socks) {
    for (size_t i = 0; i < pids.size(); ++i) {
        AddRshellAlarm(pids[i], socks[i], socks[i].inode);
    }
}

// The stages as ReverseShell::GetReverseShell runs them, with the process for the only shell.
Outcome RunStages(const Scene& scene, ReverseShell& classifier) {
    Outcome outcome;
    if (!classifier.IsBashProcess(scene.pid)) {
        return outcome;
    }
    classifier.bashPids = {scene.pid};
    outcome.events = EventsOf([&] {
        std::vector<int> pids;
        std::vector<SocketInfo> socks;
        classifier.CheckSingleprocShell(pids, socks);
        if (classifier.bashPids.empty()) {
            outcome.claimedBy = socketWait;
        } else if (classifier.CheckSpecialShell(); classifier.bashPids.empty()) {
            outcome.claimedBy = relayPipe;
        } else if (classifier.CheckPtyShell(pids, socks); classifier.bashPids.empty()) {
            outcome.claimedBy = parentTerminal;
        }
        RaiseAlarms(pids, socks);
    });
    return outcome;
}

// One stage looks at three wirings and does not say which it was.
void TellSpecialApart(const Scene& scene, ReverseShell& classifier, Outcome& outcome) {
    if (outcome.claimedBy == relayPipe) {
        outcome.claimedBy = !ReadsPipe(scene)                 ? unixStream
                            : IsFedByRelay(scene, classifier) ? relayPipe
                                                              : descendantPipe;
    }
}

void Conclude(int wiring, const Outcome& outcome, Judgement& judgement) {
    if (outcome.claimedBy < wiring) {
        judgement.Check(false, "", std::string("the process is claimed already: ") + wirings[outcome.claimedBy]);
    }
    if (outcome.claimedBy != wiring) {
        return;
    }
    judgement.reported = !outcome.events.empty();
    judgement.verdict =
        outcome.events.empty() ? "though it finds it" : "with the connection " + outcome.events.front().connection;
}

}  // namespace

std::vector<Judgement> JudgeByInstantScan(const Scene& scene) {
    ReverseShell classifier(shellPaths, {}, 0, false, 0);
    AddSnapshots(scene, classifier);
    Outcome outcome = RunStages(scene, classifier);
    TellSpecialApart(scene, classifier, outcome);
    std::vector<Judgement> judgements;
    for (int wiring = socketWait; wiring < none; ++wiring) {
        Judgement judgement{.detection = wirings[wiring], .reported = false, .verdict = {}, .tests = {}};
        using AddTests = void (*)(const Scene&, ReverseShell&, Judgement&);
        constexpr AddTests tests[] = {AddSocketWaitTests, AddRelayPipeTests, AddDescendantPipeTests, AddUnixStreamTests,
                                      AddParentTerminalTests};
        AddCommonTests(scene, classifier, judgement);
        tests[wiring](scene, classifier, judgement);
        Conclude(wiring, outcome, judgement);
        judgements.push_back(std::move(judgement));
    }
    return judgements;
}

}  // namespace Host
