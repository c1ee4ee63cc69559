// A snapshot of the host's processes and their descriptors.
#pragma once

#include <sys/types.h>

#include <compare>
#include <map>
#include <optional>
#include <string>
#include <vector>

namespace Host {

// Identifies a pipe or socket. Descriptors with equal ids refer to the same one.
struct ObjectId {
    dev_t device;
    ino_t inode;

    // clang-tidy 14 takes the comparison with 0 that the compiler generates for code of this file.
    auto operator<=>(const ObjectId&) const = default;  // NOLINT(modernize-use-nullptr)
};

enum class DescriptorKind { pipe, socket, terminal, terminalMultiplexer, other };

struct HeldDescriptor {
    int number;
    DescriptorKind kind;
    ObjectId object;
    std::string link;                      // as in /proc; any bytes
    std::optional<unsigned int> terminal;  // number in /dev/pts, for either side of a pseudo-terminal
};

struct HostProcess {
    int pid;
    int ppid;
    std::string name;                         // base name of the program file; any bytes
    std::string cmdline;                      // arguments joined by blanks; any bytes
    std::vector<HeldDescriptor> descriptors;  // by number
};

// Reads one process. Nothing if it is gone, is a kernel thread or its descriptors cannot be read. Any thread.
std::optional<HostProcess> ReadHostProcess(int pid);

// Reads all processes with readable descriptors, by pid. Any thread.
std::map<int, HostProcess> ReadHostProcesses();

}  // namespace Host
