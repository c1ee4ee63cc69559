#include "agent/net_stat.h"

#include "host/processes/proc_net_table.h"

namespace TavUtils::NetStat {

bool ReadTcp(std::vector<NETSTAT>& records, const bool* stop) {
    return Host::ReadProcNetTable("/proc/net/tcp", Host::TableFamily::ipv4, records, stop);
}

bool ReadUdp(std::vector<NETSTAT>& records, const bool* stop) {
    return Host::ReadProcNetTable("/proc/net/udp", Host::TableFamily::ipv4, records, stop);
}

bool ReadTcp6(std::vector<NETSTAT>& records, const bool* stop) {
    return Host::ReadProcNetTable("/proc/net/tcp6", Host::TableFamily::ipv6, records, stop);
}

}  // namespace TavUtils::NetStat
