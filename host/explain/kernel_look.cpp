#include "host/explain/kernel_look.h"

#include <sys/stat.h>

#include <fstream>

namespace Host {
namespace {

std::string FirstLine(const std::string& path) {
    std::string line;
    std::getline(std::ifstream(path), line);
    return line;
}

}  // namespace

std::string WaitText(int pid) {
    const std::string process = "/proc/" + std::to_string(pid);
    if (FirstLine(process + "/stack").empty()) {
        return "its kernel stack cannot be read, or is empty as that of a process that runs";
    }
    const std::string function = FirstLine(process + "/wchan");
    return function.empty() || function == "0" ? "it does not wait" : "it waits in " + function;
}

bool HoldsAt(int pid, int fd, unsigned long inode) {
    struct stat file {};
    const std::string path = "/proc/" + std::to_string(pid) + "/fd/" + std::to_string(fd);
    return stat(path.c_str(), &file) == 0 && static_cast<unsigned long>(file.st_ino) == inode;
}

}  // namespace Host
