#include "classifier/detect_reverse_shell.h"
#include "frame/log.h"
#include "frame/run_state.h"

static constexpr char logSource[] = "detect_reverse_shell";

void ReverseShell::CheckMultiprocShell([[maybe_unused]] std::vector<int>& foundPids,
                                       [[maybe_unused]] std::vector<SocketInfo>& foundSocks) {
    std::vector<int> all = pids;
    all.insert(all.end(), bashPids.begin(), bashPids.end());
    MODULE_LOG(normalLog, LOG_LEVEL_DETAIL, "get all proc info begin");
    for (const int pid : all) {
        if (NeedStop()) {
            break;
        }
        ProcInfo info;
        if (GetProcInfo(pid, info) != 0) {
            AddNode(info);
        }
    }
    MODULE_LOG(normalLog, LOG_LEVEL_DETAIL, "get all proc info end.[edgeNum=%lu max=%lu]", edgeNum, max);
}

void ReverseShell::AddNode(const ProcInfo& proc) {
    procs.push_back(proc);
}
