// The connection tables in /proc/net, of the agent's network namespace.
#pragma once

#include <string>
#include <vector>

namespace TavUtils::NetStat {

// One line of a connection table.
struct NETSTAT {
    std::string localIp;        // as inet_ntop writes it
    std::string remoteIp;       // likewise; "0.0.0.0" or "::" where there is no peer
    unsigned short localPort;   // host order
    unsigned short remotePort;  // host order
    unsigned char state;        // as the table gives it, TCP_ESTABLISHED is 1
    unsigned long inode;        // socket inode; 0 if no process holds the connection
};

// Each function appends one record per line of its table to records, in the table's order. Malformed lines are skipped.
// At most 1,048,576 records are appended per call; the rest of the table is ignored, which is logged at most once a
// minute. stop may be null; reading ends early once it is true. Returns false and appends nothing if the table cannot
// be read. Any thread.
bool ReadTcp(std::vector<NETSTAT>& records, const bool* stop);
bool ReadUdp(std::vector<NETSTAT>& records, const bool* stop);
bool ReadTcp6(std::vector<NETSTAT>& records, const bool* stop);

}  // namespace TavUtils::NetStat
