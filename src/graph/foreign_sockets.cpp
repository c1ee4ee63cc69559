#include <utility>

#include "frame/log.h"
#include "frame/trace.h"
#include "graph/reverse_shell_detector.h"

using TavUtils::NetStat::NETSTAT;
using Trace::Test;

static constexpr char logSource[] = "reverse_shell_detector";

// All other addresses are foreign, including this host's own, 127.0.0.2 and ::1: a shell on a connection to one of
// those is suspicious too. The comparison is by text only.
static bool IsLocalPeer(const std::string& remoteIp) {
    return remoteIp == "127.0.0.1" || remoteIp == "0.0.0.0" || remoteIp == "::";
}

bool ReverseShellDetector::CollectForeinSocket() {
    foreignSockets.clear();
    std::vector<NETSTAT> connections;
    TavUtils::NetStat::ReadTcp(connections, nullptr);
    TavUtils::NetStat::ReadUdp(connections, nullptr);
    TavUtils::NetStat::ReadTcp6(connections, nullptr);
    if (connections.empty()) {
        MODULE_LOG(normalLog, LOG_LEVEL_DETAIL, "No valid connections.");
        return Trace::Result(Test::hostHasForeignSocket, 0, false);
    }
    for (NETSTAT& connection : connections) {
        if (IsLocalPeer(connection.remoteIp)) {
            continue;
        }
        MODULE_LOG(normalLog, LOG_LEVEL_DETAIL,
                   "Details of netStat.[localIp=%s, localPort=%d, remoteIp=%s, remotePort=%d, state=%d, inode=%lu]",
                   connection.localIp.c_str(), connection.localPort, connection.remoteIp.c_str(), connection.remotePort,
                   connection.state, connection.inode);
        foreignSockets.try_emplace(connection.inode, std::move(connection));
    }
    return Trace::Result(Test::hostHasForeignSocket, 0, !foreignSockets.empty(),
                         {.count = static_cast<long long>(foreignSockets.size())});
}
