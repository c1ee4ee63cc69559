// Stateless readers of /proc. They sleep while they read, in part after every byte, to keep the load on the host low.
// That a process has ended is an ordinary failure. Any thread, with no lock held, because they sleep.
#pragma once

#include <cstdio>
#include <string>

namespace DetectShellUtil {

// Resolves path and opens it for reading. Returns a descriptor that belongs to the caller; -1 on failure.
int OpenFileFd(std::string path);

// As OpenFileFd, but returns a stream, which belongs to the caller; null on failure.
FILE* OpenFile(std::string path);

// Returns the text of the file without blanks at its ends; empty on failure. Meant for command lines: in each block of
// 4096 bytes, zero bytes become blanks, and a zero byte or newline at the end of the block is dropped. Sleeps 1 ms per
// block and 0.5 ms per byte. Once StopModule has begun, the result ends with the current block.
std::string ReadFileContent(const std::string& path);

// Scans the first line that begins with key, in any case, with format, a format of sscanf_s with one text target, and
// returns the target. A line is cut after 1023 bytes, and the rest counts as the next line. Empty on failure or if one
// of the arguments is empty. Sleeps 0.5 ms per line.
std::string ParseFromFile(std::string path, const std::string& key, const std::string& format);

// Returns the arguments joined by blanks. May contain any byte but zero. Empty for a kernel thread and on failure.
std::string GetProcCmdline(int pid);

// Return the targets of the links exe and cwd; empty on failure.
std::string GetProcExe(int pid);
std::string GetProcCwd(int pid);

// Returns the path of the regular file at descriptor 255, where bash keeps the script that it runs; empty if there is
// none.
std::string GetScriptFilePath(int pid);

// True if the path leads to a regular file; links are followed. Does not sleep.
bool IsRegularFile(const std::string& path);

bool IsProcExist(int pid);

// Returns the parent's pid, 0 for pid 1, -1 on failure.
int GetProcPpid(int pid);

// Returns the number of bytes that the process has written, at most INT_MAX; 0 on failure.
int ParseWriteCharsNum(int pid);

// Returns the start time in clock ticks since boot; 0 on failure. Fields of the stat file are counted by white space,
// so a process with a blank in its name yields another field.
unsigned long long GetProcStartJiff(int pid);

// As GetProcStartJiff, in milliseconds.
unsigned long long GetProcUpMs(int pid);

// Returns the start time from the text of a stat file; 0 if the text has too few fields.
unsigned long long StartJiffOfStat(const char* stat);

// Converts ticks, of which a second has hz, to milliseconds; 0 if hz is not positive or the result does not fit.
unsigned long long TicksToMilliseconds(unsigned long long ticks, long hz);

}  // namespace DetectShellUtil
