// What /proc tells a person about where a process waits.
#pragma once

#include <string>

namespace Host {

// Such as "it waits in do_wait", or that the kernel's stack does not show to this user. Any thread.
std::string WaitText(int pid);

// True if this descriptor of the process holds the pipe or socket with this inode. Any thread.
bool HoldsAt(int pid, int fd, unsigned long inode);

}  // namespace Host
