// Fixture for tests in which a real process blocks in a system call, as the kernel of this host shows it.
#pragma once

#include <arpa/inet.h>
#include <fcntl.h>
#include <netinet/in.h>
#include <sys/select.h>
#include <sys/socket.h>

#include <cstring>
#include <utility>

#include "forked_process.h"
#include "inspect/kernel_wait.h"
#include "inspect_fixture.h"

using Sample = bool (*)(long, unsigned long&);

inline constexpr unsigned long untouched = 99;

inline const struct Question {
    const char* name;
    Sample sample;
} questions[] = {
    {"ReadingFromPipe", ReadingFromPipe},         {"SelectFromPipe", SelectFromPipe},
    {"ReadingFromSock", ReadingFromSock},         {"SelectFromSock", SelectFromSock},
    {"ReadingFromUnixSock", ReadingFromUnixSock},
};

struct Ends {
    OwnedDescriptor reading;
    OwnedDescriptor other;
};

inline Ends MakePipe() {
    int ends[2] = {-1, -1};
    EXPECT_EQ(pipe2(ends, O_CLOEXEC), 0);
    return {OwnedDescriptor(ends[0]), OwnedDescriptor(ends[1])};
}

struct Address {
    sockaddr_storage storage{};
    socklen_t length = 0;

    sockaddr* Get() { return reinterpret_cast<sockaddr*>(&storage); }
};

inline Address Loopback(int family) {
    Address address;
    if (family == AF_INET) {
        sockaddr_in ipv4{};
        ipv4.sin_family = AF_INET;
        ipv4.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        std::memcpy(&address.storage, &ipv4, sizeof(ipv4));
        address.length = sizeof(ipv4);
    } else {
        sockaddr_in6 ipv6{};
        ipv6.sin6_family = AF_INET6;
        ipv6.sin6_addr = in6addr_loopback;
        std::memcpy(&address.storage, &ipv6, sizeof(ipv6));
        address.length = sizeof(ipv6);
    }
    return address;
}

// Returns a socket on the loopback address and a port that the kernel chooses; address receives both. The descriptor is
// -1 if the host does not have the family or the protocol.
inline OwnedDescriptor BindToLoopback(int family, int type, int protocol, Address& address) {
    address = Loopback(family);
    OwnedDescriptor bound(socket(family, type | SOCK_CLOEXEC, protocol));
    if (bind(bound.Get(), address.Get(), address.length) != 0) {
        return OwnedDescriptor();
    }
    EXPECT_EQ(getsockname(bound.Get(), address.Get(), &address.length), 0);
    return bound;
}

// Returns the ends of a connection, or -1 if the host does not have the family or the protocol.
inline Ends MakeTcp(int family, int protocol = 0) {
    Address address;
    const OwnedDescriptor listener = BindToLoopback(family, SOCK_STREAM, protocol, address);
    if (listener.Get() < 0) {
        return Ends();
    }
    EXPECT_EQ(listen(listener.Get(), 1), 0);
    OwnedDescriptor client(socket(family, SOCK_STREAM | SOCK_CLOEXEC, protocol));
    EXPECT_EQ(connect(client.Get(), address.Get(), address.length), 0);
    OwnedDescriptor server(accept4(listener.Get(), nullptr, nullptr, SOCK_CLOEXEC));
    return {std::move(client), std::move(server)};
}

class RealWait : public InspectTest {
protected:
    void SetUp() override {
        if (geteuid() != 0 || FileText("/proc/self/stack").empty()) {
            GTEST_SKIP() << "needs the right to read /proc/<pid>/stack (root, and a kernel that shows stacks)";
        }
        TimeRecorder::UseRealTime();
    }

    // Expects that only the question with this name is true, with the descriptor's inode; none if the name is empty.
    static void ExpectAnswer(const ForkedProcess& child, const std::string& name, int fd) {
        for (const Question& question : questions) {
            unsigned long inode = untouched;
            EXPECT_EQ(question.sample(child.Pid(), inode), question.name == name)
                << question.name << "\n"
                << FileText("/proc/" + std::to_string(child.Pid()) + "/stack");
            EXPECT_EQ(inode, question.name == name ? InodeOfDescriptor(fd) : untouched) << question.name;
        }
    }

    static void ExpectWhileReading(const Ends& ends, const std::string& name) {
        const int fd = ends.reading.Get();
        const ForkedProcess child([fd] {
            char byte = 0;
            _exit(read(fd, &byte, 1) == 1 ? 0 : 1);
        });
        ASSERT_TRUE(child.AwaitCall(static_cast<unsigned long>(fd)));
        ExpectAnswer(child, name, fd);
    }

    // The child has the descriptor as its first count descriptors and watches these.
    static void ExpectWhileSelecting(const Ends& ends, int count, const std::string& name) {
        const int fd = ends.reading.Get();
        const ForkedProcess child([fd, count] {
            fd_set watched;
            FD_ZERO(&watched);
            for (int number = 0; number < count; ++number) {
                dup2(fd, number);
                FD_SET(number, &watched);
            }
            select(count, &watched, nullptr, nullptr, nullptr);
        });
        ASSERT_TRUE(child.AwaitCall(static_cast<unsigned long>(count)));
        ExpectAnswer(child, name, fd);
    }
};
