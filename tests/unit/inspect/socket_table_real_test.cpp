// Real sockets of every table, in a new network namespace without other sockets.
#include <arpa/inet.h>
#include <fcntl.h>
#include <net/if.h>
#include <netinet/in.h>
#include <sched.h>
#include <sys/ioctl.h>
#include <sys/socket.h>

#include <cerrno>
#include <cstring>
#include <ctime>

#include "forked_process.h"
#include "inspect_fixture.h"
#include "table_text.h"

namespace {

// Moves the calling thread to a new network namespace with only loopback, until destruction.
class OwnNetwork {
public:
    OwnNetwork() : before_(open("/proc/self/ns/net", O_RDONLY | O_CLOEXEC)) {
        if (unshare(CLONE_NEWNET) != 0) {
            return;
        }
        entered_ = true;
        const OwnedDescriptor control(socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0));
        ifreq request{};
        std::strcpy(request.ifr_name, "lo");
        request.ifr_flags = IFF_UP;
        EXPECT_EQ(ioctl(control.Get(), SIOCSIFFLAGS, &request), 0);
    }
    ~OwnNetwork() {
        if (entered_) {
            EXPECT_EQ(setns(before_.Get(), CLONE_NEWNET), 0);
        }
    }
    OwnNetwork(const OwnNetwork&) = delete;
    OwnNetwork& operator=(const OwnNetwork&) = delete;

    bool Entered() const { return entered_; }

    // Adds an IPv6 address to loopback and waits until the kernel has checked it. Returns false on a host without IPv6.
    static bool AddIpv6Address(const char* text) {
        struct {  // struct in6_ifreq of linux/ipv6.h, a header that conflicts with netinet/in.h on some hosts
            in6_addr address;
            uint32_t prefixLength;
            int interface;
        } request{};
        inet_pton(AF_INET6, text, &request.address);
        request.prefixLength = 128;
        request.interface = static_cast<int>(if_nametoindex("lo"));
        const OwnedDescriptor control(socket(AF_INET6, SOCK_DGRAM | SOCK_CLOEXEC, 0));
        if (ioctl(control.Get(), SIOCSIFADDR, &request) != 0) {
            return false;
        }
        sockaddr_in6 address{};
        address.sin6_family = AF_INET6;
        address.sin6_addr = request.address;
        return AwaitInRealTime([&] {
            const OwnedDescriptor probe(socket(AF_INET6, SOCK_DGRAM | SOCK_CLOEXEC, 0));
            return bind(probe.Get(), reinterpret_cast<const sockaddr*>(&address), sizeof(address)) == 0;
        });
    }

private:
    OwnedDescriptor before_;
    bool entered_ = false;
};

struct Address {
    sockaddr_storage storage{};
    socklen_t length = 0;

    sockaddr* Get() { return reinterpret_cast<sockaddr*>(&storage); }
};

Address AddressOf(int family, const std::string& text, int port) {
    Address address;
    if (family == AF_INET) {
        sockaddr_in ipv4{};
        ipv4.sin_family = AF_INET;
        ipv4.sin_port = htons(static_cast<uint16_t>(port));
        EXPECT_EQ(inet_pton(AF_INET, text.c_str(), &ipv4.sin_addr), 1) << text;
        std::memcpy(&address.storage, &ipv4, sizeof(ipv4));
        address.length = sizeof(ipv4);
    } else {
        sockaddr_in6 ipv6{};
        ipv6.sin6_family = AF_INET6;
        ipv6.sin6_port = htons(static_cast<uint16_t>(port));
        EXPECT_EQ(inet_pton(AF_INET6, text.c_str(), &ipv6.sin6_addr), 1) << text;
        std::memcpy(&address.storage, &ipv6, sizeof(ipv6));
        address.length = sizeof(ipv6);
    }
    return address;
}

struct Kind {
    const char* name;
    int table;
    int family;
    int type;
    int protocol;
    std::string local;
    std::string remote;
};

constexpr int unassignedProtocol = 200;
const Kind kinds[] = {
    {"udp", 2, AF_INET, SOCK_DGRAM, 0, "127.0.0.1", "127.0.0.2"},
    {"raw", 3, AF_INET, SOCK_RAW, unassignedProtocol, "127.0.0.1", "127.0.0.2"},
    {"udp6", 5, AF_INET6, SOCK_DGRAM, 0, "2001:db8:1::1", "2001:db8:2::2"},
    {"udplite", 6, AF_INET, SOCK_DGRAM, IPPROTO_UDPLITE, "127.0.0.1", "127.0.0.2"},
    {"udplite6", 7, AF_INET6, SOCK_DGRAM, IPPROTO_UDPLITE, "2001:db8:1::1", "2001:db8:2::2"},
};

unsigned long WordOf(int family, const std::string& address) {
    return family == AF_INET ? Ipv4(address) : LastWordOf(address);
}

class RealSockets : public InspectTest {
protected:
    void SetUp() override {
        network = std::make_unique<OwnNetwork>();
        if (!network->Entered()) {
            GTEST_SKIP() << "needs the right to make a network namespace (root)";
        }
        hasIpv6 = OwnNetwork::AddIpv6Address("2001:db8:1::1") && OwnNetwork::AddIpv6Address("2001:db8:2::1") &&
                  OwnNetwork::AddIpv6Address("2001:db8:2::2");
        TimeRecorder::UseRealTime();
    }

    void TearDown() override { network.reset(); }

    // Returns a socket bound to local and connected to remote.
    static OwnedDescriptor Connect(const Kind& kind, int localPort, int remotePort) {
        OwnedDescriptor made(socket(kind.family, kind.type | SOCK_CLOEXEC, kind.protocol));
        if (made.Get() < 0) {
            return made;
        }
        Address local = AddressOf(kind.family, kind.local, localPort);
        Address remote = AddressOf(kind.family, kind.remote, remotePort);
        EXPECT_EQ(bind(made.Get(), local.Get(), local.length), 0) << kind.name << " " << strerror(errno);
        EXPECT_EQ(connect(made.Get(), remote.Get(), remote.length), 0) << kind.name << " " << strerror(errno);
        return made;
    }

    struct Connection {
        OwnedDescriptor listener;
        OwnedDescriptor client;
        OwnedDescriptor server;
    };

    // With no client if the kernel does not have the protocol.
    static Connection ConnectTcp(int family, const std::string& from, const std::string& to, int protocol = 0) {
        Address address = AddressOf(family, to, 4444);
        Connection made;
        made.listener = OwnedDescriptor(socket(family, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, protocol));
        if (made.listener.Get() < 0) {
            return made;
        }
        EXPECT_EQ(bind(made.listener.Get(), address.Get(), address.length), 0) << strerror(errno);
        EXPECT_EQ(listen(made.listener.Get(), 1), 0);
        made.client = Connect({"tcp", 0, family, SOCK_STREAM, protocol, from, to}, 40001, 4444);
        made.server = OwnedDescriptor(accept4(made.listener.Get(), nullptr, nullptr, SOCK_CLOEXEC));
        return made;
    }

    static SocketInfo LookUp(const OwnedDescriptor& descriptor) {
        SocketInfo info;
        EXPECT_TRUE(FindSocketByInode(InodeOfDescriptor(descriptor.Get()), info));
        return info;
    }

    static void ExpectSocket(const OwnedDescriptor& descriptor, const SocketInfo& expected) {
        const SocketInfo info = LookUp(descriptor);
        EXPECT_EQ(info.type, expected.type);
        EXPECT_EQ(info.state, expected.state);
        EXPECT_EQ(info.localIp, expected.localIp);
        EXPECT_EQ(info.localPort, expected.localPort);
        EXPECT_EQ(info.remoteIp, expected.remoteIp);
        EXPECT_EQ(info.remotePort, expected.remotePort);
    }

    static void ExpectConnection(const Connection& made, int table, unsigned long from, unsigned long to) {
        ExpectSocket(made.client, {.type = table,
                                   .state = tcpEstablished,
                                   .localIp = from,
                                   .remoteIp = to,
                                   .localPort = 40001,
                                   .remotePort = 4444});
        ExpectSocket(made.server, {.type = table,
                                   .state = tcpEstablished,
                                   .localIp = to,
                                   .remoteIp = from,
                                   .localPort = 4444,
                                   .remotePort = 40001});
        const SocketInfo listener = LookUp(made.listener);
        EXPECT_EQ(listener.type, table);
        EXPECT_EQ(listener.state, tcpListen);
        EXPECT_EQ(listener.localPort, 4444);
        EXPECT_EQ(listener.remoteIp, 0UL);
        EXPECT_EQ(socketTable.size(), 3U);
    }

    std::unique_ptr<OwnNetwork> network;
    bool hasIpv6 = false;
};

TEST_F(RealSockets, OfEveryDatagramTableAreFoundByInode) {
    std::vector<std::pair<const Kind*, OwnedDescriptor>> made;
    std::string refused;
    for (const Kind& kind : kinds) {
        if (kind.family == AF_INET6 && !hasIpv6) {
            refused += std::string(" ") + kind.name;
            continue;
        }
        OwnedDescriptor descriptor = Connect(kind, 1000 + kind.table, 2000 + kind.table);
        if (descriptor.Get() < 0) {
            refused += std::string(" ") + kind.name;
            continue;
        }
        made.emplace_back(&kind, std::move(descriptor));
    }
    RefreshSocketTable();
    EXPECT_EQ(socketTable.size(), made.size());
    for (const auto& [kind, descriptor] : made) {
        SCOPED_TRACE(kind->name);
        // A raw socket has its protocol's number as the local port, and 0 as the remote port.
        const bool raw = kind->type == SOCK_RAW;
        ExpectSocket(descriptor, {.type = kind->table,
                                  .state = stateOfOtherTables,
                                  .localIp = WordOf(kind->family, kind->local),
                                  .remoteIp = WordOf(kind->family, kind->remote),
                                  .localPort = raw ? unassignedProtocol : 1000 + kind->table,
                                  .remotePort = raw ? 0 : 2000 + kind->table});
        EXPECT_TRUE(IsAbnormalSocket(LookUp(descriptor)));
    }
    if (!refused.empty()) {
        GTEST_SKIP() << "this kernel has no" << refused;
    }
}

TEST_F(RealSockets, OfTcpAreFoundByInode) {
    const Connection made = ConnectTcp(AF_INET, "127.0.0.1", "127.0.0.2");
    RefreshSocketTable();
    ExpectConnection(made, tcpTable, Ipv4("127.0.0.1"), Ipv4("127.0.0.2"));
    EXPECT_TRUE(IsAbnormalSocket(LookUp(made.client)));
    EXPECT_FALSE(IsAbnormalSocket(LookUp(made.listener)));
}

TEST_F(RealSockets, OfMptcpAreFoundByInodeInTheTablesOfTcp) {
    const Connection made = ConnectTcp(AF_INET, "127.0.0.1", "127.0.0.2", IPPROTO_MPTCP);
    if (made.client.Get() < 0) {
        GTEST_SKIP() << "this kernel has no MPTCP";
    }
    RefreshSocketTable();
    EXPECT_EQ(LookUp(made.client).type, tcpTable);
    EXPECT_EQ(LookUp(made.client).remoteIp, Ipv4("127.0.0.2"));
    EXPECT_EQ(LookUp(made.client).remotePort, 4444);
    EXPECT_TRUE(IsAbnormalSocket(LookUp(made.client)));
}

TEST_F(RealSockets, OfTcpToTheirOwnAddressAreNotAbnormal) {
    const Connection made = ConnectTcp(AF_INET, "127.0.0.1", "127.0.0.1");
    RefreshSocketTable();
    EXPECT_FALSE(IsAbnormalSocket(LookUp(made.client)));
}

TEST_F(RealSockets, OfTcpOverIpv6AreFoundByInode) {
    if (!hasIpv6) {
        GTEST_SKIP() << "this kernel has no IPv6";
    }
    const Connection made = ConnectTcp(AF_INET6, "2001:db8:1::1", "2001:db8:2::2");
    RefreshSocketTable();
    ExpectConnection(made, tcp6Table, LastWordOf("::1"), LastWordOf("::2"));
    EXPECT_TRUE(IsAbnormalSocket(LookUp(made.client)));
}

TEST_F(RealSockets, OfTcpOverIpv6AreDistinguishedIfOnlyTheFirstBitsOfTheirAddressesDiffer) {
    if (!hasIpv6) {
        GTEST_SKIP() << "this kernel has no IPv6";
    }
    const Connection made = ConnectTcp(AF_INET6, "2001:db8:1::1", "2001:db8:2::1");
    RefreshSocketTable();
    EXPECT_EQ(LookUp(made.client).remoteIp, LastWordOf("::1"));
    EXPECT_NE(LookUp(made.client).localIp, LookUp(made.client).remoteIp);
    EXPECT_TRUE(IsAbnormalSocket(LookUp(made.client)));
    EXPECT_TRUE(IsAbnormalSocket(LookUp(made.server)));
}

TEST_F(RealSockets, OfTcpOverIpv6ToTheirOwnAddressAreNotAbnormal) {
    if (!hasIpv6) {
        GTEST_SKIP() << "this kernel has no IPv6";
    }
    const Connection made = ConnectTcp(AF_INET6, "2001:db8:1::1", "2001:db8:1::1");
    RefreshSocketTable();
    EXPECT_FALSE(IsAbnormalSocket(LookUp(made.client)));
}

TEST_F(RealSockets, OfIpv6ToAMappedIpv4AddressHaveThatAddress) {
    if (!hasIpv6) {
        GTEST_SKIP() << "this kernel has no IPv6";
    }
    const Connection made = ConnectTcp(AF_INET6, "::ffff:127.0.0.1", "::ffff:127.0.0.2");
    RefreshSocketTable();
    ExpectConnection(made, tcp6Table, Ipv4("127.0.0.1"), Ipv4("127.0.0.2"));
}

TEST_F(RealSockets, GetTheHostsTimeAndKeepIt) {
    const Connection made = ConnectTcp(AF_INET, "127.0.0.1", "127.0.0.2");
    const time_t before = time(nullptr);
    RefreshSocketTable();
    const long firstSeen = LookUp(made.client).firstSeen;
    EXPECT_GE(firstSeen, before);
    EXPECT_LE(firstSeen, time(nullptr));
    RefreshSocketTable();
    EXPECT_EQ(LookUp(made.client).firstSeen, firstSeen);
}

TEST_F(RealSockets, WithoutAnOwnerAreSkipped) {
    {
        Connection made = ConnectTcp(AF_INET, "127.0.0.1", "127.0.0.2");
        made.client = OwnedDescriptor();
        char byte = 0;
        EXPECT_EQ(read(made.server.Get(), &byte, 1), 0);
        made.server = OwnedDescriptor();
    }
    EXPECT_NE(FileText("/proc/self/net/tcp").find(" 06 "), std::string::npos) << "in time-wait";
    RefreshSocketTable();
    EXPECT_TRUE(socketTable.empty());
}

TEST_F(RealSockets, AreRemovedFromTheTableAfterTheyWereClosed) {
    unsigned long inode = 0;
    {
        const Connection made = ConnectTcp(AF_INET, "127.0.0.1", "127.0.0.2");
        RefreshSocketTable();
        inode = InodeOfDescriptor(made.client.Get());
    }
    SocketInfo info;
    EXPECT_TRUE(FindSocketByInode(inode, info)) << "until the next refresh";
    RefreshSocketTable();
    EXPECT_FALSE(FindSocketByInode(inode, info));
}

}  // namespace
