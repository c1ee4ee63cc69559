#include "host/explain/scene.h"

#include <sys/stat.h>

#include <ctime>

#include "inspect/detect_shell_utils.h"

namespace Host {
namespace {

constexpr const char* tableNames[] = {"unknown", "tcp", "udp", "raw", "tcp6", "udp6", "udplite", "udplite6", "sctp"};

std::string TableName(int type) {
    return tableNames[type >= 1 && type <= 8 ? type : 0];
}

}  // namespace

Scene ReadScene(int pid) {
    Scene scene;
    scene.pid = pid;
    scene.processes = ReadHostProcesses();
    scene.connections = ReadConnections();
    if (GetProcInfo(pid, scene.own) != 0) {
        GetProcInfo(scene.own.ppid, scene.parent);
    }
    return scene;
}

std::string NameOf(const Scene& scene, int pid) {
    const auto process = scene.processes.find(pid);
    return (process == scene.processes.end() ? "process" : process->second.name) + " (" + std::to_string(pid) + ")";
}

std::string SocketText(const Scene& scene, const SocketInfo& sock) {
    if (scene.connections.contains(sock.inode)) {
        return SocketText(scene, sock.inode);
    }
    return "socket " + std::to_string(sock.inode) + " (" + TableName(sock.type) + ", ports " +
           std::to_string(sock.localPort) + " - " + std::to_string(sock.remotePort) + ")";
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
