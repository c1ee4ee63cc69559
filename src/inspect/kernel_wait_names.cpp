#include "inspect/kernel_wait_names.h"

#include <algorithm>
#include <iterator>

namespace {

struct WaitName {
    std::string_view function;  // as the module asks for it
    std::string_view name;      // as the stack of some kernel names it
};

}  // namespace

// Further names of the waits. "unix_stream_recvmsg" and "do_select" have the same names from 5.10 to 7.2.
//
// Functions of modules, usually those of TLS and SCTP, have the module's name as a third piece in their stack lines and
// never match. Such a read is found only where inet_recvmsg has a frame. Sockets of other families (vsock, SMC) and
// protocols (ping, L2TP) are in none of the socket tables, so their reads cannot lead to a finding.
static constexpr WaitName otherNames[] = {
    // Since 6.15 (commit f017b0a4951f) anonymous pipes have a separate read function, which fifo_pipe_read calls for
    // named ones. At least one distribution has backported the change to 6.6.
    {"pipe_read", "anon_pipe_read"},
    // Since 5.3 sockets over IPv6 have a separate function.
    {"inet_recvmsg", "inet6_recvmsg"},
    // Since commit 8341c989ac77, seen on 6.18 and 7.2, inet_recvmsg and inet6_recvmsg end in a tail call and leave no
    // frame on the stack. The protocol's function is then the outermost that identifies an internet socket. On older
    // kernels these two functions call it, so both names find the same waits there.
    {"inet_recvmsg", "tcp_recvmsg"},
    {"inet_recvmsg", "udp_recvmsg"},
    {"inet_recvmsg", "udpv6_recvmsg"},
    {"inet_recvmsg", "raw_recvmsg"},
    {"inet_recvmsg", "rawv6_recvmsg"},
    // Protocols that serve a socket of the tables of TCP or UDP by other functions: MPTCP, kernel TLS, maps of sockets
    // (BPF) without and with a program that inspects the data, and IPsec over TCP. A read of UDP in a map of sockets
    // calls udp_recvmsg.
    {"inet_recvmsg", "mptcp_recvmsg"},
    {"inet_recvmsg", "tls_sw_recvmsg"},
    {"inet_recvmsg", "tcp_bpf_recvmsg"},
    {"inet_recvmsg", "tcp_bpf_recvmsg_parser"},
    {"inet_recvmsg", "espintcp_recvmsg"},
    {"inet_recvmsg", "sctp_recvmsg"},
};

bool IsNameOfWait(std::string_view function, std::string_view kernelFunction) {
    return kernelFunction == function ||
           std::any_of(std::begin(otherNames), std::end(otherNames),
                       [&](const WaitName& row) { return row.function == function && row.name == kernelFunction; });
}
