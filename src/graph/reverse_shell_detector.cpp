#include "graph/reverse_shell_detector.h"

#include "agent/process_utils.h"
#include "agent/strings.h"
#include "frame/pacing.h"
#include "frame/trace.h"

using Trace::Test;

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

static bool IsChannel(Test test, int pid, const ReverseShellDetector::InodeAttr& held) {
    return Trace::Result(test, pid, held.inode != ReverseShellDetector::INVALID_INODE,
                         {.inode = static_cast<unsigned long>(held.inode)});
}

void ReverseShellDetector::JudgeCandidate(const std::shared_ptr<ProcInfomation>& candidate,
                                          const std::set<std::string>& whitelist) {
    if (!Trace::Result(Test::holdsChannel, candidate->pid, !candidate->fds.empty())) {
        return;
    }
    // The subscripts insert a default entry for a descriptor without pipe or socket. The search ignores it.
    const InodeAttr& input = candidate->fds[0];
    const InodeAttr& output = candidate->fds[1];
    const bool hasInput = IsChannel(Test::inputIsChannel, candidate->pid, input);
    const bool hasOutput = IsChannel(Test::outputIsChannel, candidate->pid, output);
    if (!Trace::Result(Test::holdsChannel, candidate->pid, hasInput || hasOutput)) {
        return;
    }
    candidate->cmdline = ProcessUtils::GetProcessCmdline(candidate->pid);
    const bool listed = TavUtils::StringProcess::IsMatchingShellWildcardList(candidate->cmdline, whitelist);
    if (Trace::Result(Test::isListedByPattern, candidate->pid, listed)) {
        return;
    }
    if (hasInput && hasOutput && input.type == INODE_SOCKET && output.type == INODE_SOCKET) {
        const auto connection = foreignSockets.find(input.inode);
        if (connection != foreignSockets.end()) {
            SendEvent(candidate, connection->second);
            return;
        }
    }
    CollectRelatedProc(candidate->ppid);
    DeepSearchReverseShell(candidate);
}
