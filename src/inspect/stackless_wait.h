// Where a process is blocked, from the files that are there even if the kernel shows no stack: wchan, syscall, the
// descriptor and the tables of sockets.
//
// 32-bit ARM kernels for several processors show an empty /proc/<pid>/stack for every other task, and kernels without
// CONFIG_STACKTRACE have no such file.
#pragma once

#include <sys/stat.h>

#include <optional>
#include <string>

#include "inspect/blocked_call.h"

// The same question as GetBlockedFdStat of kernel_wait.h, for "pipe_read", "inet_recvmsg", "unix_stream_recvmsg" and
// "do_select"; false for any other function. Call numbers count only if numbersAreRight (AreCallNumbersRight of
// blocked_call.h). Without them, a read of TCP is not seen while the peer has yet to acknowledge output. *out is
// unchanged on false. A result may be out of date immediately. Sleeps 0.5 ms per file looked at and 5 ms before each
// further stage: the call, and the tables of sockets. Any thread while the module is started, with no lock held.
bool GetBlockedFdStatWithoutStack(long pid, const std::string& function, bool numbersAreRight, struct stat* out);

// Returns the descriptor on which a task in this call waits, if the wait can be that in function. Empty for a select
// that does not watch descriptor 0 alone.
std::optional<unsigned int> DescriptorOfWait(const std::string& function, const BlockedCall& call, Machine machine,
                                             bool numbersAreRight);
