// The files of a built /proc that show where a task is blocked. With ORLIM_TEST_HIDE_STACKS in the environment, they
// are those of a kernel that shows no stack: the same tests must then find and omit the same processes.
#pragma once

#include <sys/syscall.h>

#include <cstdio>
#include <cstdlib>
#include <map>
#include <string>

#include "tests/support/proc_tree.h"

inline bool StacksAreHidden() {
    return std::getenv("ORLIM_TEST_HIDE_STACKS") != nullptr;
}

// The name in wchan of a task that has this function on its stack.
inline std::string WaitChannelOf(const std::string& function) {
    static const std::map<std::string, std::string> channels = {
        {"inet_recvmsg", "wait_woken"},
        {"inet6_recvmsg", "wait_woken"},
        {"tcp_recvmsg", "wait_woken"},
        {"udp_recvmsg", "__skb_wait_for_more_packets"},
        {"unix_stream_recvmsg", "unix_stream_read_generic"},
        {"do_select", "poll_schedule_timeout.constprop.0"},
    };
    const auto entry = channels.find(function);
    return entry == channels.end() ? function : entry->second;
}

// Writes a stack of these lines; if stacks are hidden, an empty one and the wchan of a task blocked in function.
inline void AddStack(ProcTree& proc, int pid, const std::string& function, const std::string& lines) {
    proc.AddFile(pid, "stack", StacksAreHidden() ? "" : lines);
    if (StacksAreHidden()) {
        proc.AddFile(pid, "wchan", WaitChannelOf(function));
    }
}

// Writes the call in which a task with this function on its stack is blocked.
inline void AddCall(ProcTree& proc, int pid, const std::string& function, int argument) {
    const long number = function == "do_select" ? SYS_pselect6 : function == "do_poll" ? SYS_ppoll : SYS_read;
    char call[128];
    snprintf(call, sizeof(call), "%ld 0x%x 0x5581d0c4a000 0x1000 0x0 0x0 0x0 0x7ffd1c0 0x7f1b2c\n", number,
             static_cast<unsigned int>(argument));
    proc.AddFile(pid, "syscall", call);
}
