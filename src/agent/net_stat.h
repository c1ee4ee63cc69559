// The host's connection tables, as /proc/net of the agent's network namespace shows them.
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
    unsigned long inode;        // socket inode; 0 for a connection that no process holds
};

// Each appends one record per line of its table to records, in the table's order. A malformed line is skipped; a table
// that cannot be read appends nothing. stop may be null; once it reads true the reading ends early. False if the table
// could not be read. Any thread.
bool ReadTcp(std::vector<NETSTAT>& records, const bool* stop);
bool ReadUdp(std::vector<NETSTAT>& records, const bool* stop);
bool ReadTcp6(std::vector<NETSTAT>& records, const bool* stop);

}  // namespace TavUtils::NetStat
