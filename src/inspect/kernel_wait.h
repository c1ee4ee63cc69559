// Samples where in the kernel a process is blocked. A result may be out of date immediately. All failures return false:
// the process has ended, or the kernel or missing rights do not show where it waits. Sleeps 0.5 ms per stack line and
// 5 ms after a match. If its stack is empty or cannot be read, stackless_wait.h answers instead. Any thread, with no
// lock held.
#pragma once

#include <sys/stat.h>

#include <optional>
#include <string>

// True if the process is blocked in this kernel function, under any of its names, on a descriptor; *out receives the
// descriptor's stat. For "do_select", only a call that watches nothing but descriptor 0 counts: a shell that waits on
// its standard input. The caller clears *out first.
bool GetBlockedFdStat(long pid, std::string function, struct stat* out);

// As above, for a socket only. inode receives its inode and is unchanged on false.
bool GetBlockedSockStat(std::string function, long pid, unsigned long& inode);

// True if the process is blocked in the named call on a descriptor of the named kind. inode as above.
bool ReadingFromPipe(long pid, unsigned long& inode);
bool ReadingFromPipe(long pid);
bool SelectFromPipe(long pid, unsigned long& inode);
bool SelectFromPipe(long pid);
bool ReadingFromSock(long pid, unsigned long& inode);
bool SelectFromSock(long pid, unsigned long& inode);
bool ReadingFromUnixSock(long pid, unsigned long& inode);

// True if a line of /proc/<pid>/stack is the frame of this function, under any of its names. The line must have exactly
// two pieces, address and symbol; the name is the part of the symbol before the first "+".
bool IsStackFrameOf(const std::string& line, const std::string& function);

// Returns the descriptor of the call in a line of /proc/<pid>/syscall; 0 if the line says that the process is running.
// Empty if the line is empty, or if the function is "do_select" and the call does not watch descriptor 0 alone.
std::optional<unsigned long> BlockedDescriptor(const char* line, const std::string& function);
