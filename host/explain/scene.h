// The process in question and what is around it, at one moment.
#pragma once

#include <map>
#include <string>

#include "inspect/process_snapshot.h"
#include "inspect/socket_table.h"
#include "wiring/connections.h"
#include "wiring/host_processes.h"

namespace Host {

struct Scene {
    int pid = 0;
    std::map<int, HostProcess> processes;
    std::map<unsigned long, Connection> connections;
    ProcInfo own;     // as the module sees the process; pid 0 if it does not
    ProcInfo parent;  // likewise
};

// Reads it all. Costs two snapshots of the module. Any thread.
Scene ReadScene(int pid);

// Such as "bash (4711)". Any bytes.
std::string NameOf(const Scene& scene, int pid);

// A socket with its two ends, such as "socket 1234 (tcp 203.0.113.1:999 - 203.0.113.2:4444)".
std::string SocketText(const Scene& scene, const SocketInfo& sock);
std::string SocketText(const Scene& scene, unsigned long inode);

// For how long the process has run, in words.
std::string AgeText(int pid);

// True if the process's connections are not those that the agent reads.
bool IsInOtherNetwork(int pid);

}  // namespace Host
