// One finding about a shell file, and its way to the agent's queue.
#pragma once

#include <string>

#include "agent/monitor.h"

// A process runs a copy of a shell. The number follows those of the file monitor's reports.
constexpr int SHELL_COPY = TavUtils::Monitor::FILE_MOVED_TO + 1;

struct SHELL_EVENT {
    int fileOperationType = 0;  // a FileOperation or SHELL_COPY
    std::string path;           // the shell
    std::string relatedPath;    // the other name of a move; the file that is a copy
    std::string command;        // of the process that runs the copy, 512 bytes at most
    std::string type;           // which attribute: "permission", "owner", "group", "links" or "ext2_flag"
    std::string from;           // the attribute's value before and after
    std::string to;
};

// Sends one event and pauses the calling thread for 10 ms. Any thread.
void AddShellEvent(const SHELL_EVENT& event);
