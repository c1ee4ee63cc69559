#include "graph/reverse_shell_detector.h"

#include "agent/process_utils.h"
#include "agent/strings.h"
#include "frame/pacing.h"

static constexpr unsigned int phasePauseMicroseconds = 50000;

const std::set<std::string> ReverseShellDetector::riskyName{"bash", "sh"};

void ReverseShellDetector::DetectRoutine(const std::set<std::string>& whitelist) {
    if (!CollectForeinSocket()) {
        return;
    }
    Pause(phasePauseMicroseconds);
    ScanProc();
    Pause(phasePauseMicroseconds);
    pendingProcs.insert(bashProcs.begin(), bashProcs.end());
    for (const auto& candidate : bashProcs) {
        JudgeCandidate(candidate, whitelist);
    }
}

void ReverseShellDetector::JudgeCandidate(const std::shared_ptr<ProcInfomation>& candidate,
                                          const std::set<std::string>& whitelist) {
    if (candidate->fds.empty()) {
        return;
    }
    // The subscripts leave a default entry where a descriptor holds neither pipe nor socket; the search passes it over.
    const InodeAttr& input = candidate->fds[0];
    const InodeAttr& output = candidate->fds[1];
    if (input.inode == INVALID_INODE && output.inode == INVALID_INODE) {
        return;
    }
    candidate->cmdline = ProcessUtils::GetProcessCmdline(candidate->pid);
    if (TavUtils::StringProcess::IsMatchingShellWildcardList(candidate->cmdline, whitelist)) {
        return;
    }
    if (input.inode != INVALID_INODE && output.inode != INVALID_INODE && input.type == INODE_SOCKET &&
        output.type == INODE_SOCKET) {
        const auto connection = foreignSockets.find(input.inode);
        if (connection != foreignSockets.end()) {
            SendEvent(candidate, connection->second);
            return;
        }
    }
    CollectRelatedProc(candidate->ppid);
    DeepSearchReverseShell(candidate);
}
