// One finding about a shell file, and its way to the agent's queue.
#pragma once

#include <string>

// What happened to a shell file. The numbers 1 to 6 are those of the file monitor's reports.
enum ShellFileOperation : int {
    SHELL_ATTRIBUTE = 1,
    SHELL_MODIFY = 2,
    SHELL_DELETE = 3,
    SHELL_MOVE = 4,
    SHELL_MOVED_FROM = 5,
    SHELL_MOVED_TO = 6,
    SHELL_COPY = 7,
};

struct SHELL_EVENT {
    int fileOperationType = 0;
    std::string path;         // the shell
    std::string relatedPath;  // the other name of a move; the file that is a copy
    std::string command;      // of the process that runs the copy, 512 bytes at most
    std::string type;         // which attribute: "permission", "owner", "group", "links" or "ext2_flag"
    std::string from;         // the attribute's value before and after
    std::string to;
};

// Sends one event and pauses the calling thread for 10 ms. Any thread.
void AddShellEvent(const SHELL_EVENT& event);
