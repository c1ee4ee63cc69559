#include "inspect/kernel_wait_names.h"

#include <gtest/gtest.h>

namespace {

TEST(KernelWaitNames, IncludeEveryNameOfAWait) {
    const struct {
        const char* function;
        const char* name;
    } cases[] = {
        {"pipe_read", "pipe_read"},
        {"pipe_read", "anon_pipe_read"},
        {"inet_recvmsg", "inet_recvmsg"},
        {"inet_recvmsg", "inet6_recvmsg"},
        {"inet_recvmsg", "tcp_recvmsg"},
        {"inet_recvmsg", "udp_recvmsg"},
        {"inet_recvmsg", "udpv6_recvmsg"},
        {"inet_recvmsg", "raw_recvmsg"},
        {"inet_recvmsg", "rawv6_recvmsg"},
        {"inet_recvmsg", "mptcp_recvmsg"},
        {"inet_recvmsg", "tls_sw_recvmsg"},
        {"inet_recvmsg", "tcp_bpf_recvmsg"},
        {"inet_recvmsg", "tcp_bpf_recvmsg_parser"},
        {"inet_recvmsg", "espintcp_recvmsg"},
        {"inet_recvmsg", "sctp_recvmsg"},
        {"unix_stream_recvmsg", "unix_stream_recvmsg"},
        {"do_select", "do_select"},
    };
    for (const auto& row : cases) {
        EXPECT_TRUE(IsNameOfWait(row.function, row.name)) << row.function << " " << row.name;
    }
}

TEST(KernelWaitNames, MatchWholeNamesOnly) {
    const struct {
        const char* function;
        const char* name;
    } cases[] = {
        {"pipe_read", "pipe_read_iter"},
        {"pipe_read", "pipe_rea"},
        {"pipe_read", "fifo_pipe_read"},
        {"pipe_read", "anon_pipe_read.part.0"},
        {"inet_recvmsg", "tcp_recvmsg_locked"},
        {"inet_recvmsg", "sock_recvmsg"},
        {"inet_recvmsg", "vsock_connectible_recvmsg"},
        {"inet_recvmsg", "smc_recvmsg"},
        {"inet_recvmsg", "ping_recvmsg"},
        {"inet_recvmsg", "unix_stream_recvmsg"},
        {"unix_stream_recvmsg", "unix_stream_read_generic"},
        {"do_select", "core_sys_select"},
        {"do_select", "do_sys_poll"},
        {"pipe_read", ""},
    };
    for (const auto& row : cases) {
        EXPECT_FALSE(IsNameOfWait(row.function, row.name)) << row.function << " " << row.name;
    }
}

TEST(KernelWaitNames, MatchForTheOldestNameOnly) {
    EXPECT_FALSE(IsNameOfWait("anon_pipe_read", "pipe_read"));
    EXPECT_FALSE(IsNameOfWait("tcp_recvmsg", "inet_recvmsg"));
}

}  // namespace
