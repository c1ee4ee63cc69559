// What a process is blocked on in the kernel at this moment. Each answer is a sample that may be out of date at once,
// and every failure - a process that is gone, a kernel or a right that does not show stacks - is a plain false. Costs
// 0.5 ms a stack line and 5 ms after a match. Any thread, no lock held.
#pragma once

#include <sys/stat.h>

#include <optional>
#include <string>

// True if the process is blocked in this kernel function, by any of its names, on a descriptor whose stat is in *out
// then. In "do_select" only a call that watches descriptor 0 alone counts: a shell that waits on its standard input.
// The caller passes a zeroed record.
bool GetBlockedFdStat(long pid, std::string function, struct stat* out);

// The same where the descriptor is a socket. inode receives its inode, and is left as it was on false.
bool GetBlockedSockStat(std::string function, long pid, unsigned long& inode);

// Blocked as named, on a descriptor of the named kind. inode as above; the forms without it ask only whether.
bool ReadingFromPipe(long pid, unsigned long& inode);
bool ReadingFromPipe(long pid);
bool SelectFromPipe(long pid, unsigned long& inode);
bool SelectFromPipe(long pid);
bool ReadingFromSock(long pid, unsigned long& inode);
bool SelectFromSock(long pid, unsigned long& inode);
bool ReadingFromUnixSock(long pid, unsigned long& inode);

// True if a line of /proc/<pid>/stack is the frame of this function by any of its names: exactly two pieces, address
// and symbol, and the name is what stands before the first "+" of the symbol.
bool IsStackFrameOf(const std::string& line, const std::string& function);

// The descriptor that the call in a line of /proc/<pid>/syscall works on; 0 where the line says that the process runs.
// Nothing if the line is empty, or if the function is "do_select" and the call watches more than descriptor 0.
std::optional<unsigned long> BlockedDescriptor(const char* line, const std::string& function);
