#include "host/check/rights.h"

#include <dirent.h>
#include <linux/capability.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <memory>
#include <sstream>

#include "host/base/log.h"
#include "host/system/small_file.h"

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
     "the agent cannot inspect programs and open files of other users' "
     "processes"},
    {"CAP_DAC_READ_SEARCH", CAP_DAC_READ_SEARCH, false,
     "the agent cannot inspect open files of other users' processes, nor programs and shells in directories that are "
     "closed to this user"},
    {"CAP_NET_ADMIN", CAP_NET_ADMIN, false, "kernels before 6.6 do not report new processes to the agent"},
    {"CAP_SYS_ADMIN", CAP_SYS_ADMIN, false, "the agent can use neither /proc/<pid>/stack nor fanotify"},
};

// Capabilities that cannot be tested by trying: at this moment there may be no process of another user to try it on.
struct Sight {
    unsigned int number;
    Facility facility;
    const char* reason;
};

constexpr Sight sights[] = {
    {CAP_SYS_PTRACE, Facility::processes,
     "CAP_SYS_PTRACE is missing, which is needed to inspect processes of other users or with more rights"},
    {CAP_DAC_READ_SEARCH, Facility::descriptors,
     "CAP_DAC_READ_SEARCH is missing, which is needed to open /proc/<pid>/fd of other users' processes"},
};

bool Has(uint64_t capabilities, unsigned int number) {
    return (capabilities >> number & 1U) != 0;
}

bool IsGranted(uint64_t capabilities, unsigned int number) {
    const bool covered = number == CAP_DAC_READ_SEARCH && Has(capabilities, CAP_DAC_OVERRIDE);
    return covered || Has(capabilities, number);
}

uint64_t OwnCapabilities() {
    int error = 0;
    return EffectiveCapabilities(ReadSmallFile("/proc/self/status", error));
}

struct DescriptorAccess {
    size_t processes = 0;  // without kernel threads, which have no program
    size_t refused = 0;
};

bool IsRefused(int error) {
    return error == EACCES || error == EPERM;
}

// False if the system denies access to the links of the process's descriptors. True for a process that has exited.
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

bool HasCapability(unsigned int number) {
    return Has(OwnCapabilities(), number);
}

void CheckUser(CheckReport& report) {
    const uid_t user = ::geteuid();
    if (user == 0) {
        report.Ok("user", "root");
    } else {
        report.Limited(
            "user",
            "user id " + std::to_string(user) + " is not root; the agent has only the capabilities listed below",
            "Run the agent as root, or grant it all of them");
    }
}

void LogMissingCapabilities() {
    const uint64_t capabilities = OwnCapabilities();
    for (const Right& right : rights) {
        if (!IsGranted(capabilities, right.number)) {
            LogWarning("%s is missing: %s; run the agent as root or grant the capability", right.name, right.cost);
        }
    }
}

void CheckCapabilities(CheckReport& report) {
    const uint64_t capabilities = OwnCapabilities();
    for (const Right& right : rights) {
        const std::string remedy =
            std::string("Run the agent as root, or with AmbientCapabilities=") + right.name + " in its systemd unit";
        if (IsGranted(capabilities, right.number)) {
            report.Ok(right.name, "in effect");
        } else if (right.essential) {
            report.Missing(right.name, right.cost, remedy);
        } else {
            report.Limited(right.name, right.cost, remedy);
        }
    }
    for (const Sight& sight : sights) {
        if (!IsGranted(capabilities, sight.number)) {
            report.Lacks(sight.facility, sight.reason);
        }
    }
}

void CheckOthersDescriptors(CheckReport& report) {
    const char* const what = "open files of processes";
    const DescriptorAccess access = TryDescriptors();
    const std::string finding =
        "not readable for " + std::to_string(access.refused) + " of " + std::to_string(access.processes) + " processes";
    if (access.refused == 0) {
        report.Ok(what, "readable for all " + std::to_string(access.processes) + " processes");
    } else if (HasCapability(CAP_SYS_PTRACE)) {
        report.Limited(what, finding + "; reverse shells among them are not found",
                       "Grant the capabilities above; if they are in effect, the system protects these processes");
    } else {
        report.Missing(what, finding + "; reverse shells among them are not found",
                       "Run the agent with CAP_SYS_PTRACE and CAP_DAC_READ_SEARCH");
    }
}

}  // namespace Host
