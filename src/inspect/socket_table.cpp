#include "inspect/socket_table.h"

#include <unistd.h>

#include <ctime>
#include <mutex>
#include <utility>

#include "frame/module_lock.h"
#include "frame/trace.h"
#include "inspect/socket_table_reader.h"

using Trace::Test;

static constexpr int sshPort = 22;
static constexpr unsigned int quickRefreshWaitSeconds = 2;

// Held during a whole refresh, so that refreshes do not overlap. Guards the two values below. Look-ups do not take it.
static std::mutex refreshLock;
static std::map<unsigned long, SocketInfo> socketSnapshot;
static time_t lastSocketRefresh;  // time(2) of its end

bool FindSocketByInode(unsigned long inode, SocketInfo& out) {
    const std::lock_guard guard(socketTableLock);
    const auto entry = socketTable.find(inode);
    if (entry == socketTable.end()) {
        return false;
    }
    out = entry->second;
    return true;
}

void RefreshSocketTable() {
    const std::lock_guard refresh(refreshLock);
    if (time(nullptr) - lastSocketRefresh == 1) {
        sleep(quickRefreshWaitSeconds);
    }
    {
        const std::lock_guard guard(socketTableLock);
        socketSnapshot = socketTable;
    }
    ReadSocketTables(socketSnapshot);
    lastSocketRefresh = time(nullptr);
}

static bool IsConnecting(unsigned int state) {
    return state == tcpEstablished || state == tcpSynSent || state == tcpSynReceived;
}

bool IsAbnormalSocket(const SocketInfo& info) {
    if (info.type != tcpTable && info.type != tcp6Table) {
        return true;
    }
    return Trace::Result(Test::socketHasPeer, 0, info.remoteIp != 0, {.inode = info.inode}) &&
           !Trace::Result(Test::socketMeetsItself, 0, info.localIp == info.remoteIp, {.inode = info.inode}) &&
           !Trace::Result(Test::socketIsSshServers, 0, info.localPort == sshPort,
                          {.inode = info.inode, .count = info.localPort, .limit = sshPort}) &&
           Trace::Result(Test::socketIsConnected, 0, IsConnecting(info.state),
                         {.inode = info.inode, .count = info.state});
}

static bool IsAbnormalSince(const SocketInfo& info, long since) {
    return IsAbnormalSocket(info) &&
           Trace::Result(Test::socketIsNew, 0, info.firstSeen >= since, {.inode = info.inode});
}

// Reads the tables again and looks the socket up. Returns false without reading if they have been read before.
static bool FindInRefreshedTable(unsigned long inode, SocketInfo& info, bool& refreshed) {
    if (std::exchange(refreshed, true)) {
        return false;
    }
    RefreshSocketTable();
    return Trace::Result(Test::socketIsListed, 0, FindSocketByInode(inode, info), {.inode = inode});
}

bool IsListenInodeByFlag(unsigned long inode, SocketInfo& info, bool& refreshed) {
    if (FindSocketByInode(inode, info)) {
        if (info.state == tcpListen) {
            return true;
        }
        if (info.state == tcpEstablished) {
            return false;
        }
    }
    return FindInRefreshedTable(inode, info, refreshed) && info.state == tcpListen;
}

bool IsAbnormalInodeByFlag(unsigned long inode, SocketInfo& info, long since, bool& refreshed) {
    if (Trace::Result(Test::socketIsListed, 0, FindSocketByInode(inode, info), {.inode = inode})) {
        if (IsAbnormalSince(info, since)) {
            return true;
        }
        // Reading again cannot make an established socket abnormal.
        if (info.state == tcpEstablished) {
            return false;
        }
    }
    return FindInRefreshedTable(inode, info, refreshed) && IsAbnormalSince(info, since);
}
