#include "host/explain/period_scan_judgement.h"

#include <algorithm>

#include "agent/files.h"
#include "agent/strings.h"
#include "frame/whitelist.h"
#include "graph/reverse_shell_detector.h"
#include "host/explain/own_events.h"

namespace Host {
namespace {

using Candidate = ReverseShellDetector::ProcInfomation;

std::shared_ptr<Candidate> FindCandidate(const ReverseShellDetector& detector, int pid) {
    const auto found = std::find_if(detector.bashProcs.begin(), detector.bashProcs.end(),
                                    [pid](const std::shared_ptr<Candidate>& each) { return each->pid == pid; });
    return found == detector.bashProcs.end() ? nullptr : *found;
}

// What a descriptor of the candidate holds, as far as it matters to the scan; empty if nothing that leads on.
std::string HeldText(const Scene& scene, const Candidate& candidate, int fd) {
    const auto held = candidate.fds.find(fd);
    if (held == candidate.fds.end() || held->second.inode == ReverseShellDetector::INVALID_INODE) {
        return "";
    }
    const auto inode = static_cast<unsigned long>(held->second.inode);
    return held->second.type == ReverseShellDetector::INODE_SOCKET ? SocketText(scene, inode)
                                                                   : "pipe " + std::to_string(inode);
}

bool CheckDescriptors(const Scene& scene, const Candidate& candidate, Judgement& judgement) {
    const std::string input = HeldText(scene, candidate, 0);
    const std::string output = HeldText(scene, candidate, 1);
    std::string held = "descriptors 0 and 1 hold " + input;
    if (input != output) {
        held = input.empty() ? "" : "descriptor 0 holds " + input;
        held += output.empty() ? "" : (input.empty() ? "" : ", ") + ("descriptor 1 holds " + output);
    }
    return judgement.Check(!input.empty() || !output.empty(), held,
                           "neither descriptor 0 nor descriptor 1 holds a pipe or a socket");
}

void CheckCandidate(const Scene& scene, const ReverseShellDetector& detector, const OwnEvent* event,
                    Judgement& judgement) {
    const std::shared_ptr<Candidate> candidate = FindCandidate(detector, scene.pid);
    if (candidate == nullptr) {
        return;
    }
    if (!CheckDescriptors(scene, *candidate, judgement)) {
        return;
    }
    const bool listed = TavUtils::StringProcess::IsMatchingShellWildcardList(candidate->cmdline, *CurrentWhitelist());
    if (!judgement.Check(!listed, "no pattern of the whitelist matches its command line",
                         "a pattern of the whitelist matches its command line")) {
        return;
    }
    const std::string parent = NameOf(scene, candidate->ppid);
    judgement.Check(
        event != nullptr, "the search from there meets the connection " + (event == nullptr ? "" : event->connection),
        "the search from there, among shells and children of " + parent + ", meets no connection with another host");
}

}  // namespace

Judgement JudgeByPeriodScan(const Scene& scene) {
    Judgement judgement{.detection = "period scan", .reported = false, .verdict = {}, .tests = {}};
    ReverseShellDetector detector;
    const std::vector<OwnEvent> events = EventsOf([&detector] { detector.DetectRoutine(*CurrentWhitelist()); });
    const auto event =
        std::find_if(events.begin(), events.end(), [&scene](const OwnEvent& each) { return each.pid == scene.pid; });
    const OwnEvent* const found = event == events.end() ? nullptr : &*event;
    const std::string name = scene.processes.at(scene.pid).name;
    judgement.Check(ReverseShellDetector::riskyName.contains(name), "its program file is called " + name,
                    "its program file is called " + name + ", and only bash and sh are looked at");
    const size_t foreign = detector.foreignSockets.size();
    judgement.Check(foreign != 0, std::to_string(foreign) + " sockets of this host are connections with another host",
                    "no socket of this host is a connection with another host");
    CheckCandidate(scene, detector, found, judgement);
    judgement.reported = found != nullptr;
    judgement.verdict = found != nullptr ? "with the connection " + found->connection : "";
    return judgement;
}

}  // namespace Host
