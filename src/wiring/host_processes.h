// A snapshot of the host's processes and their descriptors.
#pragma once

#include <sys/types.h>

#include <map>
#include <optional>
#include <string>
#include <vector>

namespace Host {

// Identifies a pipe or socket. Descriptors with equal ids refer to the same one.
struct ObjectId {
    dev_t device = 0;
    ino_t inode = 0;

    bool operator==(const ObjectId& other) const { return device == other.device && inode == other.inode; }
    bool operator<(const ObjectId& other) const {
        return device != other.device ? device < other.device : inode < other.inode;
    }
};

enum class DescriptorKind { pipe, socket, terminal, terminalMultiplexer, other };

struct HeldDescriptor {
    int number = 0;
    DescriptorKind kind = DescriptorKind::other;
    ObjectId object;
    std::string link;                      // as in /proc; any bytes
    std::optional<unsigned int> terminal;  // number in /dev/pts, for either side of a pseudo-terminal
};

struct HostProcess {
    int pid = 0;
    int ppid = 0;
    std::string name;                         // base name of the program file; any bytes
    std::string cmdline;                      // arguments joined by blanks; any bytes
    std::vector<HeldDescriptor> descriptors;  // by number
};

// Reads one process. False if it is gone, is a kernel thread or its descriptors cannot be read. Any thread.
bool ReadHostProcess(int pid, HostProcess& process);

// Reads all processes with readable descriptors, by pid. Any thread.
std::map<int, HostProcess> ReadHostProcesses();

}  // namespace Host
