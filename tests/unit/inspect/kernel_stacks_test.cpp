// Waits as the stacks of several kernels show them. The same function name must match all stacks of a wait.
#include <sys/stat.h>

#include <algorithm>

#include "inspect/kernel_wait.h"
#include "inspect_fixture.h"

namespace {

using std::chrono::milliseconds;

constexpr int pid = 4242;

struct Stack {
    const char* kernel;
    const char* function;  // the name that matches; the others must not
    size_t depth;          // number of the first matching line, from 1
    const char* text;
};

const Stack stacks[] = {
    {"pipe, 4.9", "pipe_read", 2,
     "[<ffffffff8120f4b4>] pipe_wait+0x64/0x90\n"
     "[<ffffffff8120f6a4>] pipe_read+0x1d4/0x2f0\n"
     "[<ffffffff81206bd3>] __vfs_read+0xd3/0x140\n"
     "[<ffffffff81207296>] vfs_read+0x86/0x130\n"
     "[<ffffffff812087a5>] SyS_read+0x55/0xc0\n"
     "[<ffffffff81003b9c>] do_syscall_64+0x8c/0x180\n"
     "[<ffffffffffffffff>] 0xffffffffffffffff\n"},
    {"pipe, 5.10", "pipe_read", 1,
     "[<0>] pipe_read+0x2fc/0x3e0\n"
     "[<0>] new_sync_read+0x118/0x1b0\n"
     "[<0>] vfs_read+0xf1/0x180\n"
     "[<0>] ksys_read+0x5f/0xe0\n"
     "[<0>] do_syscall_64+0x33/0x80\n"
     "[<0>] entry_SYSCALL_64_after_hwframe+0x61/0xc6\n"},
    {"pipe, 6.12", "pipe_read", 1,
     "[<0>] pipe_read+0x395/0x470\n"
     "[<0>] vfs_read+0x29c/0x340\n"
     "[<0>] ksys_read+0xcc/0xe0\n"
     "[<0>] do_syscall_64+0x82/0x190\n"
     "[<0>] entry_SYSCALL_64_after_hwframe+0x76/0x7e\n"},
    {"pipe, 6.18", "pipe_read", 1,
     "[<0>] anon_pipe_read+0x366/0x410\n"
     "[<0>] vfs_read+0x32c/0x360\n"
     "[<0>] ksys_read+0xba/0xe0\n"
     "[<0>] do_syscall_64+0x71/0x280\n"
     "[<0>] entry_SYSCALL_64_after_hwframe+0x76/0x7e\n"},
    {"FIFO, 6.18", "pipe_read", 1,
     "[<0>] anon_pipe_read+0x366/0x410\n"
     "[<0>] fifo_pipe_read+0x12/0x50\n"
     "[<0>] vfs_read+0x32c/0x360\n"
     "[<0>] ksys_read+0xba/0xe0\n"
     "[<0>] do_syscall_64+0x71/0x280\n"
     "[<0>] entry_SYSCALL_64_after_hwframe+0x76/0x7e\n"},
    {"pipe, 32-bit ARM 5.10", "pipe_read", 1,
     "[<0>] pipe_read+0x228/0x398\n"
     "[<0>] vfs_read+0x1ec/0x314\n"
     "[<0>] ksys_read+0x70/0xf4\n"
     "[<0>] ret_fast_syscall+0x0/0x54\n"
     "[<0>] 0xb6e0a0c8\n"},
    {"TCP over IPv4, 5.10", "inet_recvmsg", 4,
     "[<0>] wait_woken+0x70/0x80\n"
     "[<0>] sk_wait_data+0x126/0x150\n"
     "[<0>] tcp_recvmsg_locked+0x6f0/0x8c0\n"
     "[<0>] tcp_recvmsg+0x83/0x1d0\n"
     "[<0>] inet_recvmsg+0x5c/0x120\n"
     "[<0>] sock_read_iter+0x8f/0xf0\n"
     "[<0>] new_sync_read+0x118/0x1b0\n"
     "[<0>] vfs_read+0xf1/0x180\n"
     "[<0>] ksys_read+0x5f/0xe0\n"},
    {"TCP with its own function inlined, 5.10", "inet_recvmsg", 3,
     "[<0>] wait_woken+0x70/0x80\n"
     "[<0>] sk_wait_data+0x126/0x150\n"
     "[<0>] inet_recvmsg+0x5c/0x120\n"
     "[<0>] sock_read_iter+0x8f/0xf0\n"},
    {"TCP over IPv6, 6.1, the protocol being a module's", "inet_recvmsg", 4,
     "[<0>] wait_woken+0x50/0x60\n"
     "[<0>] sk_wait_data+0x14a/0x170\n"
     "[<0>] secret_recvmsg+0x5c/0x120 [tls]\n"
     "[<0>] inet6_recvmsg+0x51/0x120\n"
     "[<0>] sock_read_iter+0x8f/0xf0\n"},
    {"TCP over IPv4, 6.18", "inet_recvmsg", 4,
     "[<0>] wait_woken+0x89/0x90\n"
     "[<0>] sk_wait_data+0x172/0x190\n"
     "[<0>] tcp_recvmsg_locked+0x21d/0x9e0\n"
     "[<0>] tcp_recvmsg+0x6e/0x1d0\n"
     "[<0>] sock_recvmsg+0xab/0xc0\n"
     "[<0>] sock_read_iter+0x97/0x110\n"
     "[<0>] vfs_read+0x32c/0x360\n"
     "[<0>] ksys_read+0xba/0xe0\n"},
    {"UDP over IPv4, 6.18", "inet_recvmsg", 3,
     "[<0>] __skb_wait_for_more_packets+0x120/0x170\n"
     "[<0>] __skb_recv_udp+0x1dd/0x300\n"
     "[<0>] udp_recvmsg+0x12c/0x550\n"
     "[<0>] sock_recvmsg+0xab/0xc0\n"
     "[<0>] sock_read_iter+0x97/0x110\n"},
    {"UDP over IPv6, 6.18", "inet_recvmsg", 3,
     "[<0>] __skb_wait_for_more_packets+0x120/0x170\n"
     "[<0>] __skb_recv_udp+0x1dd/0x300\n"
     "[<0>] udpv6_recvmsg+0x159/0x680\n"
     "[<0>] sock_recvmsg+0x5d/0xc0\n"},
    {"raw over IPv4, 6.18", "inet_recvmsg", 4,
     "[<0>] __skb_wait_for_more_packets+0x120/0x170\n"
     "[<0>] __skb_recv_datagram+0x68/0xd0\n"
     "[<0>] skb_recv_datagram+0x34/0x60\n"
     "[<0>] raw_recvmsg+0x5a/0x1d0\n"
     "[<0>] sock_recvmsg+0xab/0xc0\n"},
    {"raw over IPv6, 6.18", "inet_recvmsg", 4,
     "[<0>] __skb_wait_for_more_packets+0x120/0x170\n"
     "[<0>] __skb_recv_datagram+0x68/0xd0\n"
     "[<0>] skb_recv_datagram+0x34/0x60\n"
     "[<0>] rawv6_recvmsg+0x8d/0x340\n"
     "[<0>] sock_recvmsg+0xb2/0xc0\n"},
    {"MPTCP over IPv4, 6.18", "inet_recvmsg", 3,
     "[<0>] wait_woken+0x89/0x90\n"
     "[<0>] sk_wait_data+0x172/0x190\n"
     "[<0>] mptcp_recvmsg+0x79c/0xad0\n"
     "[<0>] sock_recvmsg+0xab/0xc0\n"
     "[<0>] sock_read_iter+0x97/0x110\n"},
    {"TCP in a map of sockets, 6.18", "inet_recvmsg", 3,
     "[<0>] wait_woken+0x89/0x90\n"
     "[<0>] tcp_msg_wait_data+0x18c/0x1a0\n"
     "[<0>] tcp_bpf_recvmsg+0x132/0x220\n"
     "[<0>] sock_recvmsg+0xab/0xc0\n"},
    {"TCP in a map of sockets with a verdict program, 6.18", "inet_recvmsg", 3,
     "[<0>] wait_woken+0x89/0x90\n"
     "[<0>] tcp_msg_wait_data+0x18c/0x1a0\n"
     "[<0>] tcp_bpf_recvmsg_parser+0x1c6/0x420\n"
     "[<0>] sock_recvmsg+0xab/0xc0\n"},
    {"UDP in a map of sockets, 6.18", "inet_recvmsg", 3,
     "[<0>] __skb_wait_for_more_packets+0x120/0x170\n"
     "[<0>] __skb_recv_udp+0x1dd/0x300\n"
     "[<0>] udp_recvmsg+0x12c/0x550\n"
     "[<0>] udp_bpf_recvmsg+0x25f/0x400\n"
     "[<0>] sock_recvmsg+0xab/0xc0\n"},
    {"a protocol's function in a module, without inet_recvmsg", "", 0,
     "[<0>] wait_woken+0x89/0x90\n"
     "[<0>] sctp_skb_recv_datagram+0x1a1/0x2b0 [sctp]\n"
     "[<0>] sctp_recvmsg+0x8e/0x350 [sctp]\n"
     "[<0>] sock_recvmsg+0xab/0xc0\n"},
    {"Unix stream in a map of sockets, 6.18", "unix_stream_recvmsg", 3,
     "[<0>] wait_woken+0x89/0x90\n"
     "[<0>] unix_bpf_recvmsg+0x366/0x470\n"
     "[<0>] unix_stream_recvmsg+0x5e/0xa0\n"
     "[<0>] sock_recvmsg+0xb2/0xc0\n"},
    {"Unix stream, 5.10", "unix_stream_recvmsg", 2,
     "[<0>] unix_stream_read_generic+0x6a6/0x9c0\n"
     "[<0>] unix_stream_recvmsg+0x44/0x60\n"
     "[<0>] sock_read_iter+0x8f/0xf0\n"},
    {"Unix stream, 6.18", "unix_stream_recvmsg", 2,
     "[<0>] unix_stream_read_generic+0x6de/0xc90\n"
     "[<0>] unix_stream_recvmsg+0x8b/0xa0\n"
     "[<0>] sock_recvmsg+0xb2/0xc0\n"
     "[<0>] __sys_recvfrom+0xb8/0x150\n"},
    {"select, 5.10", "do_select", 1,
     "[<0>] do_select+0x5ea/0x7b0\n"
     "[<0>] core_sys_select+0x1c1/0x370\n"
     "[<0>] do_pselect.constprop.0+0xe1/0x190\n"
     "[<0>] __x64_sys_pselect6+0x9a/0xc0\n"},
    {"select, 6.18", "do_select", 2,
     "[<0>] poll_schedule_timeout.constprop.0+0x37/0x90\n"
     "[<0>] do_select+0x63a/0x930\n"
     "[<0>] core_sys_select+0x275/0x4a0\n"
     "[<0>] do_pselect.constprop.0+0xc5/0x180\n"
     "[<0>] __x64_sys_pselect6+0x63/0xa0\n"},
    {"terminal", "", 0,
     "[<0>] wait_woken+0x89/0x90\n"
     "[<0>] n_tty_read+0x4c0/0x6d0\n"
     "[<0>] tty_read+0x14a/0x260\n"
     "[<0>] vfs_read+0x32c/0x360\n"},
    {"poll", "", 0,
     "[<0>] do_sys_poll+0x4bb/0x620\n"
     "[<0>] __x64_sys_poll+0xb4/0x140\n"},
    {"epoll", "", 0,
     "[<0>] ep_poll+0x2fa/0x390\n"
     "[<0>] do_epoll_wait+0xb8/0xd0\n"
     "[<0>] __x64_sys_epoll_wait+0x5f/0x100\n"},
    {"network tunnel in a module", "", 0,
     "[<0>] tun_do_read+0x5ab/0x730 [tun]\n"
     "[<0>] pipe_read+0x5ab/0x730 [other]\n"
     "[<0>] inet_recvmsg+0x5ab/0x730 [other]\n"
     "[<0>] do_select+0x5ab/0x730 [other]\n"},
    {"any other task, 32-bit ARM on several cores", "", 0, ""},
};

constexpr const char* functions[] = {"pipe_read", "inet_recvmsg", "unix_stream_recvmsg", "do_select"};

size_t LinesOf(const std::string& text) {
    return static_cast<size_t>(std::count(text.begin(), text.end(), '\n'));
}

class KernelStacks : public ProcInspectTest {
protected:
    // The first argument is 1: a valid descriptor, and the descriptor count of a select on descriptor 0.
    void Replay(const Stack& stack) {
        proc->AddFile(pid, "stack", stack.text);
        proc->AddFile(pid, "syscall", "0 0x1 0x7ffd57dbc710 0x0 0x0 0x0 0x0 0x7ffd57dbc630 0x7fb0c9d1c954\n");
    }

    void SetUp() override {
        ProcInspectTest::SetUp();
        if (proc) {
            proc->Add({.pid = pid, .ppid = 77, .exe = "/usr/bin/bash"});
            proc->AddDescriptor(pid, 0, "/dev/null");
            proc->AddDescriptor(pid, 1, "/dev/null");
        }
    }
};

TEST_F(KernelStacks, MatchTheirWaitOnly) {
    for (const Stack& stack : stacks) {
        Replay(stack);
        for (const std::string function : functions) {
            struct stat info {};
            EXPECT_EQ(GetBlockedFdStat(pid, function, &info), function == stack.function)
                << stack.kernel << " asked for " << function;
        }
    }
    EXPECT_TRUE(Log().empty());
}

TEST_F(KernelStacks, AreReadOnceUpToTheMatch) {
    for (const Stack& stack : stacks) {
        Replay(stack);
        for (const std::string function : functions) {
            struct stat info {};
            TimeRecorder::Reset();
            GetBlockedFdStat(pid, function, &info);
            const PauseList expected = function == stack.function
                                           ? Repeated(stack.depth, halfMillisecond) + Repeated(1, milliseconds(5))
                                           : Repeated(LinesOf(stack.text), halfMillisecond);
            EXPECT_EQ(TimeRecorder::Pauses(), expected) << stack.kernel << " asked for " << function;
        }
    }
}

}  // namespace
