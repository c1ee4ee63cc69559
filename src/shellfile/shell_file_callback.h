// The gate through which each report of the file monitor passes.
#pragma once

#include <atomic>
#include <string>

// 1 while reports are taken. Written by the thread that starts and stops the module, read by the file monitor's; a
// report that meets the change either way is as good as one that comes a moment sooner or later.
inline std::atomic<int> shellEventStarted{0};

// Hands a report that concerns a shell to its handler and pauses for 0.1 ms; drops any other, also one that names a
// temporary file on either side. Paths may be null. Called on the file monitor's thread.
void ShellFileCallback(int reserved, const char* path, const char* otherPath, bool alsoReserved, int operation,
                       const std::string& detail);
