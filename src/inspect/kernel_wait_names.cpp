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
};

bool IsNameOfWait(std::string_view function, std::string_view kernelFunction) {
    return kernelFunction == function ||
           std::any_of(std::begin(otherNames), std::end(otherNames),
                       [&](const WaitName& row) { return row.function == function && row.name == kernelFunction; });
}
