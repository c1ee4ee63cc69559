#include "inspect/kernel_wait_names.h"

#include <algorithm>
#include <iterator>

namespace {

struct WaitName {
    std::string_view function;  // as the module asks
    std::string_view name;      // as some kernel's stack says
};

}  // namespace

// What a stack may hold besides the name that a wait is asked for by. "unix_stream_recvmsg" and "do_select" have kept
// theirs from 5.10 to 7.2.
static constexpr WaitName otherNames[] = {
    // Anonymous pipes have had a read function of their own since 6.15 (commit f017b0a4951f), and fifo_pipe_read calls
    // it for named ones. At least one distribution carries the change on 6.6.
    {"pipe_read", "anon_pipe_read"},
    // Sockets over IPv6 were split off in 5.3.
    {"inet_recvmsg", "inet6_recvmsg"},
    // Since commit 8341c989ac77, seen on 6.18 and 7.2, inet_recvmsg and inet6_recvmsg end in a tail call and leave no
    // frame on the stack: the protocol's own function is the innermost that still tells an internet socket. On older
    // kernels it stands right below them, so that these names find there what those two find.
    {"inet_recvmsg", "tcp_recvmsg"},
    {"inet_recvmsg", "udp_recvmsg"},
    {"inet_recvmsg", "udpv6_recvmsg"},
    {"inet_recvmsg", "raw_recvmsg"},
    {"inet_recvmsg", "rawv6_recvmsg"},
};

bool IsNameOfWait(std::string_view function, std::string_view kernelFunction) {
    return kernelFunction == function ||
           std::any_of(std::begin(otherNames), std::end(otherNames),
                       [&](const WaitName& row) { return row.function == function && row.name == kernelFunction; });
}
