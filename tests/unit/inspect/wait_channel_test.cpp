#include "inspect/wait_channel.h"

#include <gtest/gtest.h>

namespace {

constexpr const char* functions[] = {"pipe_read", "inet_recvmsg", "unix_stream_recvmsg", "do_select"};

TEST(WaitChannel, IsThatOfOneWait) {
    const struct {
        const char* text;
        std::string function;
    } cases[] = {
        {"pipe_read", "pipe_read"},
        {"anon_pipe_read", "pipe_read"},
        {"wait_woken", "inet_recvmsg"},
        {"sk_wait_data", "inet_recvmsg"},
        {"tcp_recvmsg_locked", "inet_recvmsg"},
        {"tcp_recvmsg", "inet_recvmsg"},
        {"mptcp_recvmsg", "inet_recvmsg"},
        {"__skb_recv_udp", "inet_recvmsg"},
        {"__skb_recv_datagram", "inet_recvmsg"},
        {"sctp_skb_recv_datagram", "inet_recvmsg"},
        {"__skb_wait_for_more_packets", "inet_recvmsg"},
        {"__skb_wait_for_more_packets.part.0", "inet_recvmsg"},
        {"unix_stream_read_generic", "unix_stream_recvmsg"},
        {"unix_stream_data_wait", "unix_stream_recvmsg"},
        {"do_select", "do_select"},
        {"do_select\n", "do_select"},
        {"poll_schedule_timeout.constprop.0", "do_select"},
        {"poll_schedule_timeout", "do_select"},
    };
    for (const auto& row : cases) {
        for (const char* function : functions) {
            EXPECT_EQ(IsChannelOfWait(function, row.text), function == row.function) << row.text << " " << function;
        }
    }
}

TEST(WaitChannel, OfAnythingElseIsNone) {
    for (const char* text : {"",
                             "0",
                             "\n",
                             ".",
                             "pipe_write",
                             "anon_pipe_write",
                             "pipe_wait",
                             "pipe_rea",
                             "pipe_reader",
                             " pipe_read",
                             "wait_woken+0x1",
                             "do_sys_poll",
                             "do_epoll_wait",
                             "ep_poll",
                             "do_wait",
                             "hrtimer_nanosleep",
                             "futex_wait_queue",
                             "eventfd_read",
                             "inet_csk_accept",
                             "n_tty_read",
                             "unix_wait_for_peer",
                             "sock_alloc_send_pskb",
                             "tun_ring_recv"}) {
        for (const char* function : functions) {
            EXPECT_FALSE(IsChannelOfWait(function, text)) << text << " " << function;
        }
    }
    EXPECT_FALSE(IsChannelOfWait("n_tty_read", "wait_woken"));
    EXPECT_FALSE(IsChannelOfWait("", ""));
}

}  // namespace
