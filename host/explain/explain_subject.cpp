#include "host/explain/explain_subject.h"

#include <dirent.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <memory>
#include <sstream>

#include "agent/user_info.h"
#include "host/base/descriptor.h"
#include "host/system/small_file.h"

namespace Host {
namespace {

// PF_KTHREAD of include/linux/sched.h, as field 9 of /proc/<pid>/stat shows it (proc_pid_stat(5)).
constexpr unsigned long kernelThreadFlag = 0x00200000;
constexpr int fieldsBeforeFlags = 6;  // after the state

struct Stat {
    std::string state;
    unsigned long flags = 0;
};

Stat ReadStat(const std::string& process) {
    int error = 0;
    const std::string text = ReadSmallFile(process + "/stat", error);
    const size_t name = text.rfind(')');  // the name may contain any bytes
    std::istringstream fields(name == std::string::npos ? "" : text.substr(name + 1));
    Stat stat;
    fields >> stat.state;
    std::string field;
    for (int i = 0; i < fieldsBeforeFlags; ++i) {
        fields >> field;
    }
    stat.flags = strtoul(field.c_str(), nullptr, 10);
    return stat;
}

int ThreadGroup(const std::string& process) {
    int error = 0;
    std::istringstream lines(ReadSmallFile(process + "/status", error));
    for (std::string line; std::getline(lines, line);) {
        if (line.rfind("Tgid:", 0) == 0) {
            return std::atoi(line.c_str() + 5);
        }
    }
    return 0;
}

// The errno of the first file that cannot be read, 0 if all can.
int WhatIsRefused(const std::string& process) {
    char target[1];
    if (::readlink((process + "/exe").c_str(), target, sizeof(target)) < 0) {
        return errno;
    }
    const std::unique_ptr<DIR, int (*)(DIR*)> descriptors(::opendir((process + "/fd").c_str()), ::closedir);
    return descriptors == nullptr ? errno : 0;
}

std::string RefusalText(const std::string& name, const std::string& process, int error) {
    if (error != EACCES && error != EPERM) {
        return name + " cannot be inspected: " + ErrorText(error);
    }
    struct stat status {};
    std::string owner;
    if (::stat(process.c_str(), &status) == 0) {
        owner = ", which belongs to " + TavUtils::UserInfo::GetUserNameByUid(status.st_uid) + ",";
    }
    const std::string refused =
        name + owner + " cannot be inspected: its program and descriptors are not readable for ";
    if (::geteuid() == 0) {
        return refused + "root here. The system protects the process, or CAP_SYS_PTRACE is missing";
    }
    return refused + "user " + TavUtils::UserInfo::GetUserNameByUid(::geteuid()) +
           ". Run orlim-agent explain as root, with CAP_SYS_PTRACE";
}

}  // namespace

std::string WhyNotExplained(int pid) {
    const std::string name = "process " + std::to_string(pid);
    const std::string process = "/proc/" + std::to_string(pid);
    if (::access(process.c_str(), F_OK) != 0) {
        return "there is no process " + std::to_string(pid) +
               (::geteuid() == 0 ? "" : ", or it is hidden from this user");
    }
    const Stat stat = ReadStat(process);
    if ((stat.flags & kernelThreadFlag) != 0) {
        return name + " is a kernel thread: it has no program and no descriptors, and no detection inspects it";
    }
    if (stat.state == "Z" || stat.state == "X") {
        return name + " has exited and waits for its parent to collect it; there is nothing left to inspect";
    }
    const int group = ThreadGroup(process);
    if (group != 0 && group != pid) {
        return std::to_string(pid) + " is a thread of process " + std::to_string(group) + ". Run orlim-agent explain " +
               std::to_string(group);
    }
    const int refused = WhatIsRefused(process);
    return refused == 0 ? "" : RefusalText(name, process, refused);
}

}  // namespace Host
