#include "wiring/connections.h"

#include <set>
#include <vector>

#include "agent/net_stat.h"

namespace Host {
namespace {

using TavUtils::NetStat::NETSTAT;

std::string Endpoint(const std::string& address, unsigned short port) {
    const bool ipv6 = address.find(':') != std::string::npos;
    return (ipv6 ? "[" + address + "]" : address) + ":" + std::to_string(port);
}

void AddTable(const char* protocol, const std::vector<NETSTAT>& records, std::map<unsigned long, Connection>& found) {
    static const std::set<std::string> noPeer{"127.0.0.1", "0.0.0.0", "::"};
    for (const NETSTAT& record : records) {
        if (record.inode != 0) {
            found[record.inode] = {.protocol = protocol,
                                   .local = Endpoint(record.localIp, record.localPort),
                                   .remote = Endpoint(record.remoteIp, record.remotePort),
                                   .foreign = !noPeer.contains(record.remoteIp)};
        }
    }
}

}  // namespace

std::map<unsigned long, Connection> ReadConnections() {
    std::map<unsigned long, Connection> found;
    const struct {
        const char* protocol;
        bool (*read)(std::vector<NETSTAT>&, const bool*);
    } tables[] = {{"tcp", TavUtils::NetStat::ReadTcp},
                  {"udp", TavUtils::NetStat::ReadUdp},
                  {"tcp6", TavUtils::NetStat::ReadTcp6}};
    for (const auto& table : tables) {
        std::vector<NETSTAT> records;
        table.read(records, nullptr);
        AddTable(table.protocol, records, found);
    }
    return found;
}

}  // namespace Host
