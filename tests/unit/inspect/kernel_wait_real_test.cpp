// Real processes that block in a system call, as the kernel of this host shows them.
#include <sys/stat.h>

#include <cstdlib>

#include "inspect/detect_shell_utils.h"
#include "real_wait.h"

namespace {

Ends MakeUnixPair(int type) {
    int ends[2] = {-1, -1};
    EXPECT_EQ(socketpair(AF_UNIX, type | SOCK_CLOEXEC, 0, ends), 0);
    return {OwnedDescriptor(ends[0]), OwnedDescriptor(ends[1])};
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
