// The process in question and what is around it, for the names of things in an explanation.
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

// Reads it all at this moment. Any thread.
Scene ReadScene(int pid);

// The process, its parent, and others that have one of its pipes open, at most so many.
std::vector<int> ProcessesAround(const Scene& scene, size_t mostSharers);

// Such as "bash (4711)". Any bytes.
std::string NameOf(const Scene& scene, int pid);

// A socket with its two ends, such as "socket 1234 (tcp 203.0.113.1:999 - 203.0.113.2:4444)".
std::string SocketText(const Scene& scene, unsigned long inode);

// The same of a pipe or socket that the process holds.
std::string ObjectText(const Scene& scene, unsigned long inode);

// Where the process waits at this moment, such as "it waits in do_wait", or that the kernel does not show it. Any
// thread.
std::string WaitText(int pid);

// For how long the process has run, in words.
std::string AgeText(int pid);

// True if the process's connections are not those that the agent reads.
bool IsInOtherNetwork(int pid);

}  // namespace Host
