// Builders of hosts with a few processes, for the wiring tests.
#pragma once

#include <map>
#include <string>
#include <utility>
#include <vector>

#include "wiring/wiring.h"

namespace Host {

inline HeldDescriptor Pipe(int number, ino_t inode) {
    return {.number = number,
            .kind = DescriptorKind::pipe,
            .object = {1, inode},
            .link = "pipe:[" + std::to_string(inode) + "]",
            .terminal = {}};
}

inline HeldDescriptor Socket(int number, ino_t inode) {
    return {.number = number,
            .kind = DescriptorKind::socket,
            .object = {2, inode},
            .link = "socket:[" + std::to_string(inode) + "]",
            .terminal = {}};
}

inline HeldDescriptor File(int number, const std::string& path) {
    return {.number = number, .kind = DescriptorKind::other, .object = {3, 7}, .link = path, .terminal = {}};
}

using Processes = std::map<int, HostProcess>;
using Connections = std::map<unsigned long, Connection>;

inline void AddProcess(Processes& processes, int pid, const std::string& name,
                       std::vector<HeldDescriptor> descriptors) {
    processes[pid] = {
        .pid = pid, .ppid = 1, .name = name, .cmdline = name + " -x", .descriptors = std::move(descriptors)};
}

inline Connection Foreign() {
    return {.protocol = "tcp", .local = "10.0.0.1:5", .remote = "10.0.0.2:4444", .foreign = true};
}

}  // namespace Host
