#include "inspect/wait_channel.h"

#include <algorithm>
#include <iterator>

namespace {

struct WaitChannel {
    std::string_view function;  // as the module asks for it
    std::string_view name;      // as wchan names it: the innermost function outside the scheduler
};

}  // namespace

// Seen on amd64 6.18 or on 32-bit ARM 5.10 to 7.2, except those of functions that a compiler may inline elsewhere.
// pipe_wait, the name up to 5.4, is omitted: a write to a full pipe has it too.
static constexpr WaitChannel waitChannels[] = {
    {"pipe_read", "pipe_read"},
    // Since 6.15 (commit f017b0a4951f), for anonymous and named pipes alike.
    {"pipe_read", "anon_pipe_read"},
    // TCP, by sk_wait_data. Also a write to a full TCP socket, a connect, and a read of a terminal.
    {"inet_recvmsg", "wait_woken"},
    // The same where the compiler has made wait_woken part of its caller, or sk_wait_data of its own.
    {"inet_recvmsg", "sk_wait_data"},
    {"inet_recvmsg", "tcp_recvmsg_locked"},  // since 5.12
    {"inet_recvmsg", "tcp_recvmsg"},
    {"inet_recvmsg", "mptcp_recvmsg"},
    // UDP and raw sockets. Also datagrams of a Unix socket, netlink and packet sockets.
    {"inet_recvmsg", "__skb_wait_for_more_packets"},
    {"inet_recvmsg", "__skb_recv_udp"},
    {"inet_recvmsg", "__skb_recv_datagram"},
    {"inet_recvmsg", "sctp_skb_recv_datagram"},
    {"unix_stream_recvmsg", "unix_stream_read_generic"},
    {"unix_stream_recvmsg", "unix_stream_data_wait"},
    {"do_select", "do_select"},
    // Seen on amd64 6.18. Also poll(2), which the call's number tells apart.
    {"do_select", "poll_schedule_timeout"},
};

bool IsChannelOfWait(std::string_view function, std::string_view text) {
    const std::string_view name = text.substr(0, text.find_first_of(".\n"));
    return std::any_of(std::begin(waitChannels), std::end(waitChannels),
                       [&](const WaitChannel& row) { return row.function == function && row.name == name; });
}
