// The table of the host's sockets: what lies behind a socket's inode, and since when. It is read again only on demand,
// by RefreshSocketTable, and swapped in whole: a look-up never waits for a read. Its entries may be those of sockets
// that have closed since.
#pragma once

#include <map>

struct SocketInfo {
    int type = 1;  // number of the table of /proc/net that it was read from, 1 to 8
    unsigned long inode = 0;
    unsigned int state = 0;     // of TCP (types 1 and 4) as the kernel numbers it; 11 for all others
    unsigned long localIp = 0;  // 32 bits, as in in_addr.s_addr; see socket_table_line.h for IPv6
    unsigned long remoteIp = 0;
    int localPort = 0;  // host order
    int remotePort = 0;
    long firstSeen = 0;  // seconds of time(2) when it was first seen with this state, these addresses and this peer; on
                         // a 32-bit host their lower 32 bits, which stay in order but for the moment they wrap in 2038
};

// Numbers of tables, and the states of TCP that matter (include/net/tcp_states.h).
inline constexpr int tcpTable = 1;
inline constexpr int rawTable = 3;
inline constexpr int tcp6Table = 4;
inline constexpr unsigned int tcpEstablished = 1;
inline constexpr unsigned int tcpSynSent = 2;
inline constexpr unsigned int tcpSynReceived = 3;
inline constexpr unsigned int tcpListen = 10;
inline constexpr unsigned int stateOfOtherTables = 11;

// Sockets by inode, guarded by socketTableLock. Kept when the module stops.
inline std::map<unsigned long, SocketInfo> socketTable;

// Copies the entry; false, with out left as it was, if there is none. Any thread, while the module is started.
bool FindSocketByInode(unsigned long inode, SocketInfo& out);

// Reads the tables of /proc/net anew. Costs 5 ms a line and 0.2 ms a socket, and 2 s more if the last refresh ended
// exactly one second ago. A second caller waits for the first and then reads in its turn. When the module is being
// stopped, what has been read so far is kept. Any thread, no lock held.
void RefreshSocketTable();

// Whether the socket has a peer that is worth a look: any socket that is no TCP; a TCP socket connected or connecting
// to another address, and not from local port 22.
bool IsAbnormalSocket(const SocketInfo& info);

// Is this a listening socket? Is this an abnormal one, first seen at since or later? Both leave in info what they
// found, and refresh the table if that leaves the answer open and refreshed is not set; then they set it. So a caller
// pays for one read at most for each flag of its own.
bool IsListenInodeByFlag(unsigned long inode, SocketInfo& info, bool& refreshed);
bool IsAbnormalInodeByFlag(unsigned long inode, SocketInfo& info, long since, bool& refreshed);
