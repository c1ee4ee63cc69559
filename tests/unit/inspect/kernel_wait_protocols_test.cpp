// Reads that the kernel serves by another function than that of TCP or UDP, although the socket is in their tables.
#include <linux/bpf.h>
#include <sys/syscall.h>

#include <cerrno>
#include <cstdint>

#include "real_wait.h"

namespace {

// A map of sockets, as service meshes use it. The kernel gives each socket in such a map other functions.
class SocketMap {
public:
    SocketMap() {
        bpf_attr request{};
        request.map_type = BPF_MAP_TYPE_SOCKMAP;
        request.key_size = sizeof(uint32_t);
        request.value_size = sizeof(uint32_t);
        request.max_entries = 1;
        map_ = OwnedDescriptor(Call(BPF_MAP_CREATE, request));
    }

    bool IsOpen() const { return map_.Get() >= 0; }

    bool Add(int socket) const {
        const uint32_t key = 0;
        const uint32_t value = static_cast<uint32_t>(socket);
        bpf_attr request{};
        request.map_fd = static_cast<uint32_t>(map_.Get());
        request.key = reinterpret_cast<uintptr_t>(&key);
        request.value = reinterpret_cast<uintptr_t>(&value);
        return Call(BPF_MAP_UPDATE_ELEM, request) == 0;
    }

    // Attaches a program that passes every message on unchanged. Returns false if the kernel refuses it.
    bool AttachVerdict() {
        const bpf_insn program[] = {
            {.code = BPF_ALU64 | BPF_MOV | BPF_K, .dst_reg = BPF_REG_0, .src_reg = 0, .off = 0, .imm = SK_PASS},
            {.code = BPF_JMP | BPF_EXIT, .dst_reg = 0, .src_reg = 0, .off = 0, .imm = 0},
        };
        bpf_attr load{};
        load.prog_type = BPF_PROG_TYPE_SK_SKB;
        load.insns = reinterpret_cast<uintptr_t>(program);
        load.insn_cnt = 2;
        load.license = reinterpret_cast<uintptr_t>("GPL");
        verdict_ = OwnedDescriptor(Call(BPF_PROG_LOAD, load));
        bpf_attr attach{};
        attach.target_fd = static_cast<uint32_t>(map_.Get());
        attach.attach_bpf_fd = static_cast<uint32_t>(verdict_.Get());
        attach.attach_type = BPF_SK_SKB_STREAM_VERDICT;
        return verdict_.Get() >= 0 && Call(BPF_PROG_ATTACH, attach) == 0;
    }

private:
    static int Call(int command, bpf_attr& request) {
        return static_cast<int>(syscall(SYS_bpf, command, &request, sizeof(request)));
    }

    OwnedDescriptor map_;
    OwnedDescriptor verdict_;
};

class RealProtocolWait : public RealWait {
protected:
    // With a verdict program, incoming data passes through it before it is read.
    static void ExpectWhileReadingInMap(const Ends& ends, bool hasVerdict) {
        SocketMap map;
        if (!map.IsOpen()) {
            GTEST_SKIP() << "needs a kernel with maps of sockets, and the right to create one";
        }
        if (hasVerdict && !map.AttachVerdict()) {
            GTEST_SKIP() << "needs a kernel that loads the verdict program";
        }
        ASSERT_TRUE(map.Add(ends.reading.Get())) << strerror(errno);
        ExpectWhileReading(ends, "ReadingFromSock");
    }

    static void ExpectWhileReadingMptcp(int family) {
        const Ends ends = MakeTcp(family, IPPROTO_MPTCP);
        if (ends.reading.Get() < 0) {
            GTEST_SKIP() << "needs MPTCP (net.mptcp.enabled) on the loopback interface";
        }
        ExpectWhileReading(ends, "ReadingFromSock");
    }
};

TEST_F(RealProtocolWait, OnMptcpIsFound) {
    ExpectWhileReadingMptcp(AF_INET);
}

TEST_F(RealProtocolWait, OnMptcpOverIpv6IsFound) {
    ExpectWhileReadingMptcp(AF_INET6);
}

TEST_F(RealProtocolWait, OnTcpInAMapOfSocketsIsFound) {
    ExpectWhileReadingInMap(MakeTcp(AF_INET), false);
}

TEST_F(RealProtocolWait, OnTcpInAMapOfSocketsWithAVerdictIsFound) {
    ExpectWhileReadingInMap(MakeTcp(AF_INET), true);
}

TEST_F(RealProtocolWait, OnUdpInAMapOfSocketsIsFound) {
    Address address;
    ExpectWhileReadingInMap({BindToLoopback(AF_INET, SOCK_DGRAM, 0, address), OwnedDescriptor()}, false);
}

TEST_F(RealProtocolWait, OnUdpLiteIsFound) {
    Address address;
    const Ends ends{BindToLoopback(AF_INET, SOCK_DGRAM, IPPROTO_UDPLITE, address), OwnedDescriptor()};
    if (ends.reading.Get() < 0) {
        GTEST_SKIP() << "needs UDP-Lite";
    }
    ExpectWhileReading(ends, "ReadingFromSock");
}

}  // namespace
