#include "agent/net_stat.h"

#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <vector>

namespace {

using TavUtils::NetStat::NETSTAT;

class Socket {
public:
    Socket(int family, int type) : fd_(socket(family, type | SOCK_CLOEXEC, 0)) {}
    explicit Socket(int fd) : fd_(fd) {}
    ~Socket() {
        if (fd_ >= 0) {
            close(fd_);
        }
    }
    Socket(const Socket&) = delete;
    Socket& operator=(const Socket&) = delete;

    int Fd() const { return fd_; }

    unsigned long Inode() const {
        struct stat status {};
        return fstat(fd_, &status) == 0 ? static_cast<unsigned long>(status.st_ino) : 0;
    }

private:
    const int fd_;
};

unsigned short BindToLoopback(const Socket& bound) {
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t size = sizeof(address);
    EXPECT_EQ(bind(bound.Fd(), reinterpret_cast<sockaddr*>(&address), size), 0);
    EXPECT_EQ(getsockname(bound.Fd(), reinterpret_cast<sockaddr*>(&address), &size), 0);
    return ntohs(address.sin_port);
}

const NETSTAT* FindInode(const std::vector<NETSTAT>& records, unsigned long inode) {
    const auto found =
        std::find_if(records.begin(), records.end(), [&](const NETSTAT& each) { return each.inode == inode; });
    return found == records.end() ? nullptr : &*found;
}

TEST(NetStat, AppendsNothingOnceStopped) {
    const bool stop = true;
    std::vector<NETSTAT> records(2);
    EXPECT_TRUE(TavUtils::NetStat::ReadTcp(records, &stop));
    EXPECT_EQ(records.size(), 2U);
}

TEST(NetStat, FindsBothEndsOfATcpConnection) {
    const Socket listener(AF_INET, SOCK_STREAM);
    const unsigned short port = BindToLoopback(listener);
    ASSERT_EQ(listen(listener.Fd(), 1), 0);
    const Socket client(AF_INET, SOCK_STREAM);
    const unsigned short clientPort = BindToLoopback(client);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    address.sin_port = htons(port);
    ASSERT_EQ(connect(client.Fd(), reinterpret_cast<sockaddr*>(&address), sizeof(address)), 0);
    const Socket server(accept4(listener.Fd(), nullptr, nullptr, SOCK_CLOEXEC));

    std::vector<NETSTAT> records;
    ASSERT_TRUE(TavUtils::NetStat::ReadTcp(records, nullptr));
    struct Row {
        const char* what;
        unsigned long inode;
        const char* remoteIp;
        int localPort;
        int remotePort;
        int state;
    };
    const Row rows[] = {
        {"listener", listener.Inode(), "0.0.0.0", port, 0, 10},
        {"client", client.Inode(), "127.0.0.1", clientPort, port, 1},
        {"server", server.Inode(), "127.0.0.1", port, clientPort, 1},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.what);
        const NETSTAT* const record = FindInode(records, row.inode);
        ASSERT_NE(record, nullptr);
        EXPECT_EQ(record->localIp, "127.0.0.1");
        EXPECT_EQ(record->remoteIp, row.remoteIp);
        EXPECT_EQ(record->localPort, row.localPort);
        EXPECT_EQ(record->remotePort, row.remotePort);
        EXPECT_EQ(record->state, row.state);
    }
}

TEST(NetStat, FindsAUdpSocket) {
    const Socket bound(AF_INET, SOCK_DGRAM);
    const unsigned short port = BindToLoopback(bound);
    std::vector<NETSTAT> records;
    ASSERT_TRUE(TavUtils::NetStat::ReadUdp(records, nullptr));
    const NETSTAT* const record = FindInode(records, bound.Inode());
    ASSERT_NE(record, nullptr);
    EXPECT_EQ(record->localIp, "127.0.0.1");
    EXPECT_EQ(record->localPort, port);
    EXPECT_EQ(record->remoteIp, "0.0.0.0");
}

TEST(NetStat, FindsATcp6Socket) {
    const Socket listener(AF_INET6, SOCK_STREAM);
    sockaddr_in6 address{};
    address.sin6_family = AF_INET6;
    address.sin6_addr = in6addr_loopback;
    socklen_t size = sizeof(address);
    if (listener.Fd() < 0 || bind(listener.Fd(), reinterpret_cast<sockaddr*>(&address), size) != 0) {
        GTEST_SKIP() << "this host has no IPv6 loopback";
    }
    ASSERT_EQ(listen(listener.Fd(), 1), 0);
    ASSERT_EQ(getsockname(listener.Fd(), reinterpret_cast<sockaddr*>(&address), &size), 0);
    std::vector<NETSTAT> records;
    ASSERT_TRUE(TavUtils::NetStat::ReadTcp6(records, nullptr));
    const NETSTAT* const record = FindInode(records, listener.Inode());
    ASSERT_NE(record, nullptr);
    EXPECT_EQ(record->localIp, "::1");
    EXPECT_EQ(record->localPort, ntohs(address.sin6_port));
    EXPECT_EQ(record->remoteIp, "::");
    EXPECT_EQ(record->state, 10);
}

}  // namespace
