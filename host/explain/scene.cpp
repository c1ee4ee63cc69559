#include "host/explain/scene.h"

#include <sys/stat.h>

#include <algorithm>
#include <ctime>
#include <fstream>
#include <set>

#include "inspect/detect_shell_utils.h"

namespace Host {
namespace {

std::string FirstLine(const std::string& path) {
    std::string line;
    std::getline(std::ifstream(path), line);
    return line;
}

std::set<ObjectId> PipesOf(const HostProcess& process) {
    std::set<ObjectId> pipes;
    for (const HeldDescriptor& descriptor : process.descriptors) {
        if (descriptor.kind == DescriptorKind::pipe) {
            pipes.insert(descriptor.object);
        }
    }
    return pipes;
}

}  // namespace

Scene ReadScene(int pid) {
    return {.pid = pid, .processes = ReadHostProcesses(), .connections = ReadConnections()};
}

std::vector<int> ProcessesAround(const Scene& scene, size_t mostSharers) {
    const HostProcess& own = scene.processes.at(scene.pid);
    const std::set<ObjectId> pipes = PipesOf(own);
    std::vector<int> around{scene.pid, own.ppid};
    for (const auto& [pid, process] : scene.processes) {
        const bool shares =
            std::any_of(process.descriptors.begin(), process.descriptors.end(),
                        [&pipes](const HeldDescriptor& descriptor) { return pipes.contains(descriptor.object); });
        if (shares && pid != scene.pid && pid != own.ppid && around.size() < mostSharers + 2) {
            around.push_back(pid);
        }
    }
    return around;
}

std::string NameOf(const Scene& scene, int pid) {
    const auto process = scene.processes.find(pid);
    return (process == scene.processes.end() ? "process" : process->second.name) + " (" + std::to_string(pid) + ")";
}

std::string SocketText(const Scene& scene, unsigned long inode) {
    const auto connection = scene.connections.find(inode);
    std::string text = "socket " + std::to_string(inode);
    if (connection != scene.connections.end()) {
        text += " (" + connection->second.protocol + " " + connection->second.local + " - " +
                connection->second.remote + ")";
    }
    return text;
}

std::string ObjectText(const Scene& scene, unsigned long inode) {
    const auto process = scene.processes.find(scene.pid);
    if (process != scene.processes.end()) {
        for (const HeldDescriptor& descriptor : process->second.descriptors) {
            if (descriptor.kind == DescriptorKind::pipe && descriptor.object.inode == inode) {
                return "pipe " + std::to_string(inode);
            }
        }
    }
    return SocketText(scene, inode);
}

std::string WaitText(int pid) {
    const std::string process = "/proc/" + std::to_string(pid);
    const std::string function = FirstLine(process + "/wchan");
    if (!function.empty() && function != "0") {
        return "it waits in " + function;
    }
    return FirstLine(process + "/stack").empty() ? "its wait is unreadable, or it is running" : "it does not wait";
}

std::string AgeText(int pid) {
    timespec now{};
    clock_gettime(CLOCK_BOOTTIME, &now);
    const auto milliseconds =
        static_cast<unsigned long long>(now.tv_sec) * 1000 + static_cast<unsigned long long>(now.tv_nsec) / 1000000;
    const unsigned long long start = DetectShellUtil::GetProcUpMs(pid);
    return std::to_string(milliseconds > start ? (milliseconds - start) / 1000 : 0) + " s";
}

bool IsInOtherNetwork(int pid) {
    struct stat own {};
    struct stat other {};
    return stat("/proc/self/ns/net", &own) == 0 &&
           stat(("/proc/" + std::to_string(pid) + "/ns/net").c_str(), &other) == 0 && own.st_ino != other.st_ino;
}

}  // namespace Host
