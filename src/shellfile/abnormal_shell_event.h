// Events about shell files.
#pragma once

#include <string>

#include "agent/monitor.h"

// A process runs a copy of a shell. The number follows those of the file monitor's reports.
constexpr int SHELL_COPY = TavUtils::Monitor::FILE_MOVED_TO + 1;

struct SHELL_EVENT {
    int fileOperationType = 0;  // a FileOperation or SHELL_COPY
    std::string path;           // the shell
    std::string relatedPath;    // the other name of a move, or the copy
    std::string command;        // of the process that runs the copy, at most 512 bytes
    std::string type;           // the changed attribute: "permission", "owner", "group", "links" or "ext2_flag"
    std::string from;           // the attribute's value before and after
    std::string to;
};

// Pushes the event to the agent's queue and pauses the calling thread for 10 ms. Any thread.
void AddShellEvent(const SHELL_EVENT& event);
