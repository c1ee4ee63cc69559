#include "host/program/check_rights.h"

#include <dirent.h>
#include <linux/capability.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <memory>
#include <sstream>

#include "agent/logger.h"
#include "host/program/small_file.h"

namespace Host {
namespace {

struct Right {
    const char* name;
    unsigned int number;
    bool essential;
    const char* cost;
};

constexpr Right rights[] = {
    {"CAP_SYS_PTRACE", CAP_SYS_PTRACE, true,
     "the open files of other users' processes cannot be seen, so their reverse shells are not found"},
    {"CAP_DAC_READ_SEARCH", CAP_DAC_READ_SEARCH, false,
     "programs and shells in directories closed to this user cannot be examined"},
    {"CAP_NET_ADMIN", CAP_NET_ADMIN, false,
     "kernels before 6.6 do not report new processes then; reverse shells are found by the periodic scan alone"},
    {"CAP_SYS_ADMIN", CAP_SYS_ADMIN, false,
     "neither kernel stacks nor fanotify can be used; see the lines on those for what that costs"},
};

bool Has(uint64_t capabilities, unsigned int number) {
    return (capabilities >> number & 1U) != 0;
}

bool IsGranted(uint64_t capabilities, const Right& right) {
    const bool covered = right.number == CAP_DAC_READ_SEARCH && Has(capabilities, CAP_DAC_OVERRIDE);
    return covered || Has(capabilities, right.number);
}

uint64_t OwnCapabilities() {
    int error = 0;
    return EffectiveCapabilities(ReadSmallFile("/proc/self/status", error));
}

struct DescriptorAccess {
    size_t processes = 0;  // with a program, which kernel threads have not
    size_t refused = 0;
};

bool IsRefused(int error) {
    return error == EACCES || error == EPERM;
}

// False if the system refuses the links of the process's descriptors. A process that goes meanwhile refuses nothing.
bool CanReadDescriptors(const std::string& process) {
    const std::unique_ptr<DIR, int (*)(DIR*)> directory(::opendir((process + "/fd").c_str()), ::closedir);
    if (directory == nullptr) {
        return !IsRefused(errno);
    }
    const dirent* entry = ::readdir(directory.get());
    while (entry != nullptr && entry->d_name[0] == '.') {
        entry = ::readdir(directory.get());
    }
    if (entry == nullptr) {
        return true;
    }
    char target[1];
    return ::readlink((process + "/fd/" + entry->d_name).c_str(), target, sizeof(target)) >= 0 || !IsRefused(errno);
}

DescriptorAccess TryDescriptors() {
    DescriptorAccess access;
    const std::unique_ptr<DIR, int (*)(DIR*)> processes(::opendir("/proc"), ::closedir);
    while (processes != nullptr) {
        const dirent* entry = ::readdir(processes.get());
        if (entry == nullptr) {
            break;
        }
        if (entry->d_name[0] < '1' || entry->d_name[0] > '9') {
            continue;
        }
        const std::string process = std::string("/proc/") + entry->d_name;
        char target[1];
        if (::readlink((process + "/exe").c_str(), target, sizeof(target)) < 0 && !IsRefused(errno)) {
            continue;
        }
        ++access.processes;
        access.refused += CanReadDescriptors(process) ? 0 : 1;
    }
    return access;
}

}  // namespace

uint64_t EffectiveCapabilities(const std::string& status) {
    std::istringstream lines(status);
    for (std::string line; std::getline(lines, line);) {
        if (line.rfind("CapEff:", 0) == 0) {
            return std::strtoull(line.c_str() + 7, nullptr, 16);
        }
    }
    return 0;
}

std::string HidepidOption(const std::string& mounts) {
    std::string found;
    std::istringstream lines(mounts);
    for (std::string line; std::getline(lines, line);) {
        std::istringstream fields(line);
        std::string device;
        std::string place;
        std::string type;
        std::string options;
        fields >> device >> place >> type >> options;
        if (place != "/proc" || type != "proc") {
            continue;
        }
        found.clear();  // a later mount covers an earlier one
        const std::string all = "," + options + ",";
        const std::string key = ",hidepid=";
        const size_t at = all.find(key);
        if (at != std::string::npos) {
            const size_t begin = at + key.size();
            found = all.substr(begin, all.find(',', begin) - begin);
        }
    }
    return found;
}

void CheckUser(CheckReport& report) {
    const uid_t user = ::geteuid();
    if (user == 0) {
        report.Ok("user", "root");
    } else {
        report.Limited("user", "user id " + std::to_string(user) +
                                   " is not root; only what the capabilities below allow can be seen");
    }
}

void LogMissingCapabilities() {
    const uint64_t capabilities = OwnCapabilities();
    for (const Right& right : rights) {
        if (!IsGranted(capabilities, right)) {
            LoggerWriteLog("NormalLog", LOG_LEVEL_WARNING, "check_rights", __LINE__, "%s is missing: %s", right.name,
                           right.cost);
        }
    }
}

void CheckCapabilities(CheckReport& report) {
    const uint64_t capabilities = OwnCapabilities();
    for (const Right& right : rights) {
        if (IsGranted(capabilities, right)) {
            report.Ok(right.name, "in effect");
        } else if (right.essential) {
            report.Missing(right.name, right.cost);
        } else {
            report.Limited(right.name, right.cost);
        }
    }
}

void CheckOthersDescriptors(CheckReport& report) {
    const char* const what = "open files of processes";
    const DescriptorAccess access = TryDescriptors();
    const std::string counts = std::to_string(access.refused) + " of " + std::to_string(access.processes);
    if (access.refused == 0) {
        report.Ok(what, "can be read of all " + std::to_string(access.processes) + " processes");
    } else if (Has(OwnCapabilities(), CAP_SYS_PTRACE)) {
        report.Limited(what, "cannot be read of " + counts +
                                 " processes, which the system protects; reverse shells among them are not found");
    } else {
        report.Missing(what, "cannot be read of " + counts + " processes; reverse shells among them are not found");
    }
}

void CheckHidepid(CheckReport& report) {
    int error = 0;
    const std::string option = HidepidOption(ReadSmallFile("/proc/self/mounts", error));
    if (option.empty() || option == "0" || option == "off") {
        report.Ok("hidepid", "/proc shows all processes");
    } else if (Has(OwnCapabilities(), CAP_SYS_PTRACE)) {
        report.Ok("hidepid", "/proc is mounted with hidepid=" + option + ", which CAP_SYS_PTRACE overrides");
    } else {
        report.Missing("hidepid",
                       "/proc is mounted with hidepid=" + option + "; processes of other users are not seen at all");
    }
}

}  // namespace Host
