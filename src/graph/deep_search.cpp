#include <deque>
#include <utility>

#include "frame/trace.h"
#include "graph/reverse_shell_detector.h"

using Trace::Test;

void ReverseShellDetector::DeepSearchReverseShell(std::shared_ptr<ProcInfomation> start) {
    std::deque<std::shared_ptr<ProcInfomation>> work{start};
    while (!work.empty()) {
        const std::shared_ptr<ProcInfomation> cur = work.back();
        work.pop_back();
        pendingProcs.erase(cur);
        for (const auto& [fd, held] : cur->fds) {
            if (held.type == INODE_SOCKET) {
                const auto connection = foreignSockets.find(held.inode);
                if (connection != foreignSockets.end()) {
                    SendEvent(start, connection->second);
                    return;
                }
            }
            const auto edge = ipcInodes.find(held.inode);
            if (edge == ipcInodes.end()) {
                continue;
            }
            // Each inode is walked once per pass, across candidates. Nothing else ends the search in a ring of
            // processes.
            const auto neighbours = std::move(edge->second.procs);
            ipcInodes.erase(edge);
            for (const auto& neighbour : neighbours) {
                if (neighbour != cur) {
                    work.push_back(neighbour);
                }
            }
        }
    }
    Trace::Result(Test::meetsForeignSocket, start->pid, false);
}
