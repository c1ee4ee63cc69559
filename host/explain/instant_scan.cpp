#include <array>
#include <optional>
#include <set>

#include "frame/module_lock.h"
#include "host/explain/detections.h"
#include "host/explain/recorded_pass.h"
#include "module/process_intake.h"
#include "module/published.h"

namespace Host {
namespace {

using Trace::Test;

constexpr size_t mostSharers = 20;

// The heading of the judgement of each wiring.
constexpr const char* wirings[] = {
    Published::instantScanOnSocket,    Published::instantScanByRelay,    Published::instantScanByDescendant,
    Published::instantScanByRawSocket, Published::instantScanOnTerminal,
};
enum Wiring : size_t { socketWait, relayPipe, descendantPipe, unixStream, parentTerminal };

// The wirings to which a test belongs; nothing if it belongs to the wirings of the test before it.
std::optional<std::set<Wiring>> WiringsOf(Test test) {
    switch (test) {
        case Test::waitsOnSocket:
            return {{socketWait}};
        case Test::hasParentInPass:
            return {{relayPipe, descendantPipe, unixStream}};
        case Test::waitsOnPipe:
            return {{relayPipe, descendantPipe}};
        case Test::isFedByRelay:
        case Test::relayHasConnection:
            return {{relayPipe}};
        case Test::isFedByDescendant:
        case Test::feederHasConnection:
            return {{descendantPipe}};
        case Test::waitsOnUnixStream:
            return {{unixStream}};
        case Test::parentIsSshDaemon:
            return {{parentTerminal}};
        default:
            return std::nullopt;
    }
}

// Sorts the reasons of one pass by wiring.
class Sorter {
public:
    Sorter() {
        for (const char* const wiring : wirings) {
            judgements_.push_back({.detection = wiring, .reported = false, .verdict = {}, .reasons = {}});
        }
    }

    void Take(const Decision& decision, const std::vector<Reason>& reasons) {
        // No stage tests a process after it is claimed; later tests belong to its alarm.
        if (const auto asked = WiringsOf(decision.test); asked && !claimed_) {
            current_ = *asked;
        }
        claimed_ = claimed_ || decision.test == Test::isClaimed;
        for (const Wiring wiring : current_) {
            for (const Reason& reason : reasons) {
                judgements_[wiring].Add(reason);
            }
        }
    }

    std::vector<Judgement> Conclude(bool reported, const std::string& connection) {
        for (size_t wiring = 0; wiring < judgements_.size(); ++wiring) {
            Judgement& judgement = judgements_[wiring];
            if (claimed_ && *current_.begin() == wiring) {
                judgement.reported = reported;
                judgement.verdict = reported ? connection : "although it recognises the wiring";
            } else if (!judgement.IsRefused()) {
                judgement.Add({Mark::no, claimed_ ? "not tested, the scan has already recognised: " + ClaimName()
                                                  : "not tested, an earlier test ruled it out"});
            }
        }
        return std::move(judgements_);
    }

private:
    std::string ClaimName() const { return wirings[*current_.begin()]; }

    std::vector<Judgement> judgements_;
    std::set<Wiring> current_{socketWait, relayPipe, descendantPipe, unixStream, parentTerminal};
    bool claimed_ = false;
};

}  // namespace

std::vector<Judgement> JudgeByInstantScan(const Scene& scene) {
    Sorter sorter;
    const auto scan = [&scene] {
        for (const int pid : ProcessesAround(scene, mostSharers)) {
            intakeMap[pid] = 0;
        }
        CheckNetlinkProcsTask(nullptr);
    };
    const PassResult pass = RunPass(scene, scan, [&](const Decision& decision, const std::vector<Reason>& reasons) {
        sorter.Take(decision, reasons);
    });
    return sorter.Conclude(pass.Reports(scene.pid), pass.ConnectionText(scene.pid));
}

}  // namespace Host
