// Filters the file monitor's reports.
#pragma once

#include <atomic>
#include <string>

// 1 while reports are accepted. Written by the thread that starts and stops the module, read by the file monitor's. A
// report that races with the change may be accepted or dropped.
inline std::atomic<int> shellEventStarted{0};

// Passes a report about a shell to its handler and then pauses for 0.1 ms. Drops all other reports, and any report in
// which either path is a temporary file. Paths may be null. Called on the file monitor's thread.
void ShellFileCallback(int reserved, const char* path, const char* otherPath, bool alsoReserved, int operation,
                       const std::string& detail);
