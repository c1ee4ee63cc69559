// How a process is wired: what its descriptors hold, who shares that, and where it leads.
#pragma once

#include <map>
#include <optional>
#include <string>
#include <vector>

#include "wiring/connections.h"
#include "wiring/host_processes.h"

namespace Host {

struct WiredProcess;

// One or more descriptors of a process on the same object, and the other processes that hold it.
struct Wire {
    std::vector<int> numbers;
    DescriptorKind kind = DescriptorKind::other;
    ObjectId object;
    std::string link;                      // as /proc shows it; any bytes
    std::optional<unsigned int> terminal;  // number of the pseudo-terminal
    std::optional<Connection> connection;  // of an internet socket
    std::vector<WiredProcess> sharers;     // told in full where they come up first
    size_t untold = 0;                     // sharers beyond those
    int toldAt = 0;                        // pid of the process at whose wire the sharers stand; 0: here
};

struct WiredProcess {
    int pid = 0;
    std::string name;          // any bytes
    std::string cmdline;       // any bytes
    std::vector<int> numbers;  // its descriptors on the object by which it was reached; none for the root
    std::vector<Wire> wires;   // without that object
    bool otherEnd = false;     // these are the other side of the pseudo-terminal
    bool toldAbove = false;    // its wires stand elsewhere in the tree
};

// The tree from pid: its descriptors 0 to 5, who has the other side of its terminal, and for each process that shares
// one of its pipes or sockets, that one's pipes and sockets, up to six processes away. Nothing if the process has no
// entry. Any thread.
std::optional<WiredProcess> TraceWiring(int pid, const std::map<int, HostProcess>& processes,
                                        const std::map<unsigned long, Connection>& connections);

}  // namespace Host
