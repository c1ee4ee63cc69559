// The table of the host's sockets by inode, with the time at which each was first seen. RefreshSocketTable reads a new
// table and then replaces the current one as a whole, so a look-up never waits for a read. Entries may belong to
// sockets that have been closed since.
#pragma once

#include <map>

struct SocketInfo {
    int type = 1;  // number of its table in /proc/net, 1 to 8
    unsigned long inode = 0;
    unsigned int state = 0;     // the kernel's number for TCP (types 1 and 4); 11 for all others
    unsigned long localIp = 0;  // 32 bits, as in in_addr.s_addr; see socket_table_line.h for IPv6
    unsigned long remoteIp = 0;
    int localPort = 0;  // host order
    int remotePort = 0;
    long firstSeen = 0;  // time(2) at which it was first seen with this state, these addresses and this remote port; on
                         // a 32-bit host the lower 32 bits, which wrap around in 2038
};

// Numbers of tables, and states of TCP (include/net/tcp_states.h).
inline constexpr int tcpTable = 1;
inline constexpr int rawTable = 3;
inline constexpr int tcp6Table = 4;
inline constexpr int sctpTable = 8;
inline constexpr unsigned int tcpEstablished = 1;
inline constexpr unsigned int tcpSynSent = 2;
inline constexpr unsigned int tcpSynReceived = 3;
inline constexpr unsigned int tcpListen = 10;
inline constexpr unsigned int stateOfOtherTables = 11;

// Sockets by inode, guarded by socketTableLock. Kept when the module stops.
inline std::map<unsigned long, SocketInfo> socketTable;

// Copies the entry to out. Returns false and leaves out unchanged if there is none. Any thread while the module is
// started.
bool FindSocketByInode(unsigned long inode, SocketInfo& out);

// Reads the tables of /proc/net again. Sleeps 5 ms per line and 0.2 ms per socket, and a further 2 s if the last
// refresh ended exactly one second ago. A second caller waits for the first and then reads as well. If the module is
// being stopped, the sockets read so far become the table. Any thread, with no lock held.
void RefreshSocketTable();

// True for a socket with a suspicious peer: any socket that is not TCP, and a TCP socket that is connected or
// connecting to another address and does not have the local port 22.
bool IsAbnormalSocket(const SocketInfo& info);

// True if the socket listens, or if it is abnormal and was first seen at since or later. Both store the entry they find
// in info. If that entry does not settle the answer and refreshed is not set, they refresh the table and set refreshed,
// so that a caller causes at most one read per flag.
bool IsListenInodeByFlag(unsigned long inode, SocketInfo& info, bool& refreshed);
bool IsAbnormalInodeByFlag(unsigned long inode, SocketInfo& info, long since, bool& refreshed);
