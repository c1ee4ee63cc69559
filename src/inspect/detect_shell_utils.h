// Readers of /proc that keep nothing and sleep while they read, down to the single byte, so that no scan is felt on the
// host. A process that has gone is an ordinary failure. All functions may be called from any thread, none with a lock
// held: they sleep.
#pragma once

#include <cstdio>
#include <string>

namespace DetectShellUtil {

// Opens what path resolves to for reading. The descriptor belongs to the caller; -1 on failure.
int OpenFileFd(std::string path);

// The same as a stream, which belongs to the caller; null on failure.
FILE* OpenFile(std::string path);

// Text of the file without blanks at its ends; empty on failure. Made for command lines: in each block of 4096 bytes a
// zero byte becomes a blank, while a zero byte or newline at the block's end is dropped. Costs 1 ms a block and 0.5 ms
// a byte. When the module is being stopped, what comes behind the present block is left out.
std::string ReadFileContent(const std::string& path);

// What format, in the form of sscanf_s with one text target, picks from the first line that begins with key in upper or
// lower case; at most 1023 bytes of a line are one line. Empty on failure or if one of the three is empty. Costs 0.5 ms
// a line.
std::string ParseFromFile(std::string path, const std::string& key, const std::string& format);

// Arguments joined by blanks, any bytes; empty for a kernel thread and on failure.
std::string GetProcCmdline(int pid);

// Targets of the links exe and cwd; empty on failure.
std::string GetProcExe(int pid);
std::string GetProcCwd(int pid);

// The regular file behind descriptor 255, where bash keeps the script that it runs; empty if there is none.
std::string GetScriptFilePath(int pid);

// True if the path leads, over links, to a regular file. Does not sleep.
bool IsRegularFile(const std::string& path);

bool IsProcExist(int pid);

// Parent's pid, 0 for pid 1; -1 on failure.
int GetProcPpid(int pid);

// Bytes that the process has written, held at the greatest int; 0 on failure.
int ParseWriteCharsNum(int pid);

// Start time in clock ticks since boot; 0 on failure. A process whose name holds a blank gives another field of its
// stat file: the fields are counted by white space.
unsigned long long GetProcStartJiff(int pid);

// The same in milliseconds.
unsigned long long GetProcUpMs(int pid);

// What GetProcStartJiff finds in the text of a stat file; 0 if the text has too few fields.
unsigned long long StartJiffOfStat(const char* stat);

// ticks at hz a second in milliseconds; 0 if hz is not positive or the result does not fit.
unsigned long long TicksToMilliseconds(unsigned long long ticks, long hz);

}  // namespace DetectShellUtil
