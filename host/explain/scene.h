// The process to explain, with all processes and connections of the host, to name them in an explanation.
#pragma once

#include <map>
#include <string>
#include <vector>

#include "wiring/connections.h"
#include "wiring/host_processes.h"

namespace Host {

struct Scene {
    int pid = 0;
    std::map<int, HostProcess> processes;
    std::map<unsigned long, Connection> connections;
};

// Reads the current state. Any thread.
Scene ReadScene(int pid);

// The process, its parent, and at most mostSharers other processes that have one of its pipes open.
std::vector<int> ProcessesAround(const Scene& scene, size_t mostSharers);

// For example "bash (4711)". Any bytes.
std::string NameOf(const Scene& scene, int pid);

// A socket with its two ends, for example "socket 1234 (tcp 203.0.113.1:999 - 203.0.113.2:4444)".
std::string SocketText(const Scene& scene, unsigned long inode);

// The same for a pipe or socket that the process holds.
std::string ObjectText(const Scene& scene, unsigned long inode);

// Where the process waits now, for example "it waits in do_wait", or that the kernel does not show it. Any thread.
std::string WaitText(int pid);

// How long the process has been running, for example "12 s".
std::string AgeText(int pid);

// True if the process is in another network namespace, whose connections the agent does not read.
bool IsInOtherNetwork(int pid);

}  // namespace Host
