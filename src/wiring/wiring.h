// Traces how a process is wired: the objects of its descriptors, the processes that share them, and so on.
#pragma once

#include <map>
#include <optional>
#include <string>
#include <vector>

#include "wiring/connections.h"
#include "wiring/host_processes.h"

namespace Host {

struct WiredProcess;

// One or more descriptors of a process for the same object, and the other processes that hold it.
struct Wire {
    std::vector<int> numbers;
    DescriptorKind kind;
    ObjectId object;
    std::string link;                      // as in /proc; any bytes
    std::optional<unsigned int> terminal;  // number of the pseudo-terminal
    std::optional<Connection> connection;  // of an internet socket
    std::vector<WiredProcess> sharers;     // at most eight
    size_t untold = 0;                     // number of further sharers
    int toldAt;                            // pid of the process whose wire lists the sharers; 0: this one
};

struct WiredProcess {
    int pid;
    std::string name;          // any bytes
    std::string cmdline;       // any bytes
    std::vector<int> numbers;  // its descriptors for the object that led to it; none for the root
    std::vector<Wire> wires;   // without that object
    bool otherEnd = false;     // numbers are the other side of the pseudo-terminal
    bool toldAbove;            // its wires are listed elsewhere in the tree
};

// Returns the tree from pid: its descriptors 0 to 5, the holders of the other side of its terminal, and for each
// process that shares one of its pipes or sockets, the pipes and sockets of that process, up to six processes away.
// Nothing if processes does not have pid. Any thread.
std::optional<WiredProcess> TraceWiring(int pid, const std::map<int, HostProcess>& processes,
                                        const std::map<unsigned long, Connection>& connections);

}  // namespace Host
