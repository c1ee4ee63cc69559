// Real processes that block in a system call, as the kernel of this host shows them.
#include <arpa/inet.h>
#include <fcntl.h>
#include <netinet/in.h>
#include <sys/select.h>
#include <sys/socket.h>
#include <sys/stat.h>

#include <cstdlib>
#include <cstring>

#include "forked_process.h"
#include "inspect/detect_shell_utils.h"
#include "inspect/kernel_wait.h"
#include "inspect_fixture.h"

namespace {

using Sample = bool (*)(long, unsigned long&);

constexpr unsigned long untouched = 99;

const struct Question {
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

Ends MakePipe() {
    int ends[2] = {-1, -1};
    EXPECT_EQ(pipe2(ends, O_CLOEXEC), 0);
    return {OwnedDescriptor(ends[0]), OwnedDescriptor(ends[1])};
}

Ends MakeUnixPair(int type) {
    int ends[2] = {-1, -1};
    EXPECT_EQ(socketpair(AF_UNIX, type | SOCK_CLOEXEC, 0, ends), 0);
    return {OwnedDescriptor(ends[0]), OwnedDescriptor(ends[1])};
}

struct Address {
    sockaddr_storage storage{};
    socklen_t length = 0;

    sockaddr* Get() { return reinterpret_cast<sockaddr*>(&storage); }
};

Address Loopback(int family) {
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
// -1 if the host does not have IPv6.
OwnedDescriptor BindToLoopback(int family, int type, int protocol, Address& address) {
    address = Loopback(family);
    OwnedDescriptor bound(socket(family, type | SOCK_CLOEXEC, protocol));
    if (bind(bound.Get(), address.Get(), address.length) != 0) {
        return OwnedDescriptor();
    }
    EXPECT_EQ(getsockname(bound.Get(), address.Get(), &address.length), 0);
    return bound;
}

Ends MakeTcp(int family) {
    Address address;
    const OwnedDescriptor listener = BindToLoopback(family, SOCK_STREAM, 0, address);
    if (listener.Get() < 0) {
        return Ends();
    }
    EXPECT_EQ(listen(listener.Get(), 1), 0);
    OwnedDescriptor client(socket(family, SOCK_STREAM | SOCK_CLOEXEC, 0));
    EXPECT_EQ(connect(client.Get(), address.Get(), address.length), 0);
    OwnedDescriptor server(accept4(listener.Get(), nullptr, nullptr, SOCK_CLOEXEC));
    return {std::move(client), std::move(server)};
}

Ends MakeUdp(int family) {
    Address address;
    OwnedDescriptor bound = BindToLoopback(family, SOCK_DGRAM, 0, address);
    return {std::move(bound), OwnedDescriptor()};
}

Ends MakeRaw(int family) {
    constexpr int unassignedProtocol = 200;
    return {OwnedDescriptor(socket(family, SOCK_RAW | SOCK_CLOEXEC, unassignedProtocol)), OwnedDescriptor()};
}

Ends MakeFifo() {
    const TemporaryDirectory folder;
    EXPECT_EQ(mkfifo(folder.Path("fifo").c_str(), 0600), 0);
    return {OwnedDescriptor(open(folder.Path("fifo").c_str(), O_RDWR | O_CLOEXEC)), OwnedDescriptor()};
}

Ends MakeTerminal() {
    OwnedDescriptor master(open("/dev/ptmx", O_RDWR | O_NOCTTY | O_CLOEXEC));
    EXPECT_EQ(grantpt(master.Get()), 0);
    EXPECT_EQ(unlockpt(master.Get()), 0);
    const char* name = ptsname(master.Get());
    OwnedDescriptor slave(open(name == nullptr ? "" : name, O_RDWR | O_NOCTTY | O_CLOEXEC));
    return {std::move(slave), std::move(master)};
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

TEST_F(RealWait, InAReadOfAPipeIsFound) {
    ExpectWhileReading(MakePipe(), "ReadingFromPipe");
}

TEST_F(RealWait, InAReadOfAFifoIsFound) {
    ExpectWhileReading(MakeFifo(), "ReadingFromPipe");
}

TEST_F(RealWait, InAReadOfATcpSocketIsFound) {
    ExpectWhileReading(MakeTcp(AF_INET), "ReadingFromSock");
}

TEST_F(RealWait, InAReadOfATcpSocketOverIpv6IsFound) {
    const Ends ends = MakeTcp(AF_INET6);
    if (ends.reading.Get() < 0) {
        GTEST_SKIP() << "needs IPv6 on the loopback interface";
    }
    ExpectWhileReading(ends, "ReadingFromSock");
}

TEST_F(RealWait, InAReadOfAUdpSocketIsFound) {
    ExpectWhileReading(MakeUdp(AF_INET), "ReadingFromSock");
}

TEST_F(RealWait, InAReadOfAUdpSocketOverIpv6IsFound) {
    const Ends ends = MakeUdp(AF_INET6);
    if (ends.reading.Get() < 0) {
        GTEST_SKIP() << "needs IPv6 on the loopback interface";
    }
    ExpectWhileReading(ends, "ReadingFromSock");
}

TEST_F(RealWait, InAReadOfARawSocketIsFound) {
    ExpectWhileReading(MakeRaw(AF_INET), "ReadingFromSock");
}

TEST_F(RealWait, InAReadOfARawSocketOverIpv6IsFound) {
    const Ends ends = MakeRaw(AF_INET6);
    if (ends.reading.Get() < 0) {
        GTEST_SKIP() << "needs IPv6";
    }
    ExpectWhileReading(ends, "ReadingFromSock");
}

TEST_F(RealWait, InAReadOfAUnixStreamIsFound) {
    ExpectWhileReading(MakeUnixPair(SOCK_STREAM), "ReadingFromUnixSock");
}

TEST_F(RealWait, InAReadOfAUnixDatagramSocketIsNotFound) {
    ExpectWhileReading(MakeUnixPair(SOCK_DGRAM), "");
}

TEST_F(RealWait, InAReadOfATerminalIsNotFound) {
    ExpectWhileReading(MakeTerminal(), "");
}

TEST_F(RealWait, InASelectOnStandardInputIsFound) {
    ExpectWhileSelecting(MakePipe(), 1, "SelectFromPipe");
    ExpectWhileSelecting(MakeFifo(), 1, "SelectFromPipe");
    ExpectWhileSelecting(MakeTcp(AF_INET), 1, "SelectFromSock");
    ExpectWhileSelecting(MakeUdp(AF_INET), 1, "SelectFromSock");
    ExpectWhileSelecting(MakeUnixPair(SOCK_STREAM), 1, "SelectFromSock");
}

TEST_F(RealWait, InASelectOnATerminalIsNotFound) {
    ExpectWhileSelecting(MakeTerminal(), 1, "");
}

TEST_F(RealWait, InASelectOnThreeDescriptorsIsNotFound) {
    ExpectWhileSelecting(MakePipe(), 3, "");
    ExpectWhileSelecting(MakeTcp(AF_INET), 3, "");
}

TEST_F(RealWait, OfAProcessThatHasEndedIsNotFound) {
    const Ends pipe = MakePipe();
    const ForkedProcess child([] {});
    ASSERT_TRUE(AwaitInRealTime(
        [&] { return FileText("/proc/" + std::to_string(child.Pid()) + "/stat").find(") Z ") != std::string::npos; }));
    ExpectAnswer(child, "", pipe.reading.Get());
}

TEST(RealScript, IsFoundAtTheDescriptorWhereBashKeepsIt) {
    if (access("/bin/bash", X_OK) != 0) {
        GTEST_SKIP() << "needs /bin/bash";
    }
    const TemporaryDirectory folder;
    const std::string script = folder.Write("script", "read -r line\n");
    const Ends input = MakePipe();
    const ForkedProcess bash([&] {
        dup2(input.reading.Get(), STDIN_FILENO);
        execl("/bin/bash", "bash", script.c_str(), nullptr);
    });
    EXPECT_TRUE(AwaitInRealTime([&] { return DetectShellUtil::GetScriptFilePath(bash.Pid()) == script; }));
}

}  // namespace
