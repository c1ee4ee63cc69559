#include "agent/net_stat.h"

#include <utility>

#include "host/processes/proc_net_table.h"

namespace TavUtils::NetStat {
namespace {

NETSTAT RecordOf(Host::Connection&& connection) {
    return {std::move(connection.localIp),
            std::move(connection.remoteIp),
            connection.localPort,
            connection.remotePort,
            connection.state,
            connection.inode};
}

bool Read(const char* path, Host::TableFamily family, std::vector<NETSTAT>& records, const bool* stop) {
    const size_t before = records.size();
    const auto append = [&](Host::Connection&& connection) { records.push_back(RecordOf(std::move(connection))); };
    if (!Host::ReadProcNetTable(path, family, append, stop)) {
        records.resize(before);
        return false;
    }
    return true;
}

}  // namespace

bool ReadTcp(std::vector<NETSTAT>& records, const bool* stop) {
    return Read("/proc/net/tcp", Host::TableFamily::ipv4, records, stop);
}

bool ReadUdp(std::vector<NETSTAT>& records, const bool* stop) {
    return Read("/proc/net/udp", Host::TableFamily::ipv4, records, stop);
}

bool ReadTcp6(std::vector<NETSTAT>& records, const bool* stop) {
    return Read("/proc/net/tcp6", Host::TableFamily::ipv6, records, stop);
}

}  // namespace TavUtils::NetStat
