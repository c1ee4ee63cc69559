#include "demo/event_intake.h"

#include <utility>

#include "agent/process_utils.h"
#include "host/explain/wiring_text.h"
#include "wiring/connections.h"
#include "wiring/host_processes.h"
#include "wiring/wiring.h"

namespace Host {
namespace {

constexpr int mostAncestors = 64;

int ParentOf(int pid) {
    ProcessUtils::ProcStatus status{};
    return ProcessUtils::GetProcStatus(pid, ProcessUtils::PROC_STATUS, status) != 0 ? status.ppid : 0;
}

// The process and its ancestors. If the process has exited, its parent is the one that the event names.
std::vector<int> LineageOf(const Finding& finding) {
    std::vector<int> lineage;
    if (finding.pid == 0) {
        return lineage;
    }
    lineage.push_back(finding.pid);
    int next = ParentOf(finding.pid);
    next = next != 0 ? next : finding.ppid;
    for (int i = 0; i < mostAncestors && next > 0; ++i) {
        lineage.push_back(next);
        next = ParentOf(next);
    }
    return lineage;
}

}  // namespace

std::string WiringTreeOf(int pid, int standIn) {
    const std::map<int, HostProcess> processes = ReadHostProcesses();
    const std::map<unsigned long, Connection> connections = ReadConnections();
    for (const int each : {pid, standIn}) {
        const std::optional<WiredProcess> wiring = TraceWiring(each, processes, connections);
        if (wiring) {
            return WiringText(*wiring);
        }
    }
    return "";
}

void EventIntake::Take(std::string_view event) {
    const std::chrono::duration<double> seconds = std::chrono::steady_clock::now() - start_;
    std::optional<Finding> finding = ParseFinding(event);
    if (!finding) {
        return;
    }
    finding->seconds = seconds.count();
    finding->lineage = LineageOf(*finding);
    if (finding->pid != 0) {
        finding->tree = WiringTreeOf(finding->pid, finding->ppid);
    }
    const std::lock_guard lock(mutex_);
    findings_.push_back(std::move(*finding));
}

std::vector<Finding> EventIntake::Fetch() {
    const std::lock_guard lock(mutex_);
    return std::exchange(findings_, {});
}

}  // namespace Host
