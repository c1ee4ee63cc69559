// The processes of the host and what their descriptors hold, at one moment.
#pragma once

#include <sys/types.h>

#include <map>
#include <optional>
#include <string>
#include <vector>

namespace Host {

// What makes two descriptors the same pipe or socket.
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
    std::string link;                      // as /proc shows it; any bytes
    std::optional<unsigned int> terminal;  // number of the pseudo-terminal of which this is one side, as in /dev/pts
};

struct HostProcess {
    int pid = 0;
    int ppid = 0;
    std::string name;                         // base name of the program file; any bytes
    std::string cmdline;                      // arguments joined by blanks; any bytes
    std::vector<HeldDescriptor> descriptors;  // by number
};

// Reads one process. False if it has gone, is a kernel thread or does not show its descriptors. Any thread.
bool ReadHostProcess(int pid, HostProcess& process);

// Reads all processes that show their descriptors, by pid. Any thread.
std::map<int, HostProcess> ReadHostProcesses();

}  // namespace Host
