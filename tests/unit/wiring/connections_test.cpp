#include "wiring/connections.h"

#include <gtest/gtest.h>

#include <bit>

#include "tests/support/proc_tree.h"
#include "tests/support/sitting_process.h"

namespace Host {
namespace {

// The kernel prints the words of addresses as numbers; the texts below come from a little-endian machine.
constexpr bool tableTextsAreNative = std::endian::native == std::endian::little;

const std::string tableHeader =
    "  sl  local_address rem_address   st tx_queue rx_queue tr tm->when retrnsmt   uid inode\n";

std::string TableLine(const std::string& addresses, int inode) {
    return "   0: " + addresses + " 01 00000000:00000000 00:00000000 00000000     0        0 " + std::to_string(inode) +
           " 1 0000000000000000 100 0 0 10 0\n";
}

// The connections of a host with these lines in its tables.
std::map<unsigned long, Connection> ConnectionsOf(const std::string& tcp, const std::string& udp,
                                                  const std::string& tcp6) {
    ProcTree proc;
    proc.AddFile("net/tcp", tableHeader + tcp);
    proc.AddFile("net/udp", tableHeader + udp);
    proc.AddFile("net/tcp6", tableHeader + tcp6);
    return ReadConnections();
}

void ExpectConnection(const Connection& connection, const char* protocol, const char* local, const char* remote) {
    EXPECT_EQ(connection.protocol, protocol) << remote;
    EXPECT_EQ(connection.local, local) << remote;
    EXPECT_EQ(connection.remote, remote) << remote;
}

TEST(Connections, ComeFromThreeTablesWithProtocolAndBothEndpoints) {
    if (!MayMount() || !tableTextsAreNative) {
        GTEST_SKIP() << "needs root and a little-endian machine";
    }
    const auto connections =
        ConnectionsOf(TableLine("0100000A:1F90 0200000A:01BB", 51), TableLine("0100000A:0035 0300000A:0036", 52),
                      TableLine("B80D0120000000000000000001000000:0016 B80D0120000000000000000002000000:0050", 53));
    ASSERT_EQ(connections.size(), 3U);
    ExpectConnection(connections.at(51), "tcp", "10.0.0.1:8080", "10.0.0.2:443");
    ExpectConnection(connections.at(52), "udp", "10.0.0.1:53", "10.0.0.3:54");
    ExpectConnection(connections.at(53), "tcp6", "[2001:db8::1]:22", "[2001:db8::2]:80");
}

TEST(Connections, OmitSocketsThatNoProcessHolds) {
    if (!MayMount()) {
        GTEST_SKIP() << "needs the right to mount";
    }
    EXPECT_TRUE(ConnectionsOf(TableLine("0100000A:1F90 0200000A:01BB", 0), "", "").empty());
}

TEST(Connections, AreNotForeignWithoutAPeer) {
    if (!MayMount() || !tableTextsAreNative) {
        GTEST_SKIP() << "needs root and a little-endian machine";
    }
    const std::string none = "00000000000000000000000000000000";
    const std::string peer = "B80D0120000000000000000002000000";
    const auto connections = ConnectionsOf(
        TableLine("0100000A:1F90 00000000:0000", 51) + TableLine("0100000A:1F90 0200000A:01BB", 52), "",
        TableLine(none + ":0016 " + none + ":0000", 53) + TableLine(none + ":0016 " + peer + ":0050", 54));
    EXPECT_FALSE(connections.at(51).foreign);
    EXPECT_TRUE(connections.at(52).foreign);
    EXPECT_FALSE(connections.at(53).foreign);
    EXPECT_TRUE(connections.at(54).foreign);
}

TEST(Connections, AreForeignUnlessThePeerIsALocalAddress) {
    const LoopbackConnection foreign("127.0.0.2");
    const LoopbackConnection local("127.0.0.1");
    const std::map<unsigned long, Connection> connections = ReadConnections();
    EXPECT_TRUE(connections.at(foreign.ClientInode()).foreign);
    EXPECT_FALSE(connections.at(local.ClientInode()).foreign);
}

}  // namespace
}  // namespace Host
