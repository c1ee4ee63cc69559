#include "host/check/confinement.h"

#include <linux/capability.h>
#include <linux/netlink.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <sstream>

#include "host/base/descriptor.h"
#include "host/check/rights.h"
#include "host/system/small_file.h"

namespace Host {
namespace {

constexpr const char* runOnHost = "Run the agent on the host itself, outside containers";

std::string ReadIfThere(const char* path) {
    int error = 0;
    return ReadSmallFile(path, error);
}

// The target of a symbolic link; empty on failure.
std::string LinkText(const char* path) {
    char target[64];
    const ssize_t length = ::readlink(path, target, sizeof(target));
    return length > 0 ? std::string(target, static_cast<size_t>(length)) : std::string();
}

// True if /proc belongs to this process's PID namespace. After unshare(1) it may still be that of the outer namespace.
bool IsProcOfOwnNamespace() {
    return LinkText("/proc/self") == std::to_string(::getpid());
}

void CheckPidNamespace(CheckReport& report) {
    const char* const what = "PID namespace";
    if (!IsLaterNamespace(LinkText("/proc/self/ns/pid"))) {
        report.Ok(what, "the initial one");
        return;
    }
    report.Limited(what, "not the initial one; the agent gets no process events and does not see processes outside it",
                   runOnHost);
    // cn_proc_mcast_ctl (drivers/connector/cn_proc.c) drops such requests without an answer.
    report.Lacks(Facility::processEvents, "the kernel sends process events only to the initial PID namespace");
    if (IsProcOfOwnNamespace()) {
        report.Lacks(Facility::processes, "/proc shows only the processes of this PID namespace");
    }
}

// The kernel's end of the connector exists only in the initial network namespace (cn_init in
// drivers/connector/connector.c); elsewhere sending fails with ECONNREFUSED. The kernel ignores an empty message. False
// if the kernel has no connector.
bool IsLaterNetworkNamespace() {
    const Descriptor socket(::socket(AF_NETLINK, SOCK_DGRAM | SOCK_CLOEXEC, NETLINK_CONNECTOR));
    nlmsghdr message{};
    message.nlmsg_len = sizeof(message);
    message.nlmsg_type = NLMSG_NOOP;
    sockaddr_nl kernel{};
    kernel.nl_family = AF_NETLINK;
    return ::sendto(socket.Get(), &message, sizeof(message), MSG_DONTWAIT, reinterpret_cast<const sockaddr*>(&kernel),
                    sizeof(kernel)) < 0 &&
           errno == ECONNREFUSED;
}

void CheckNetworkNamespace(CheckReport& report) {
    const char* const what = "network namespace";
    if (!IsLaterNetworkNamespace()) {
        report.Ok(what, "the initial one, judging by the process connector");
        return;
    }
    report.Limited(what,
                   "not the initial one; the agent gets no process events and does not see connections outside it",
                   runOnHost);
    report.Lacks(Facility::processEvents, "the kernel sends process events only to the initial network namespace");
    report.Lacks(Facility::connectionTables, "/proc/net shows only the connections of this network namespace");
}

void CheckUserNamespace(CheckReport& report) {
    const char* const what = "user namespace";
    if (!IsLaterNamespace(LinkText("/proc/self/ns/user"))) {
        report.Ok(what, "the initial one");
        return;
    }
    report.Limited(what, "not the initial one; the agent's capabilities do not apply to processes outside it",
                   runOnHost);
    report.Lacks(Facility::processEvents, "the kernel sends process events only to the initial user namespace");
    report.Lacks(Facility::processes, "capabilities in a user namespace do not apply to processes outside it");
}

}  // namespace

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
        found.clear();  // a later mount hides an earlier one
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

bool IsLaterNamespace(const std::string& target) {
    // Fixed since 3.8: PROC_PID_INIT_INO and PROC_USER_INIT_INO of include/linux/proc_ns.h, since 6.18 part of the
    // interface as enum init_ns_ino (linux/nsfs.h).
    return !target.empty() && target != "pid:[4026531836]" && target != "user:[4026531837]";
}

void CheckHidepid(CheckReport& report) {
    const std::string option = HidepidOption(ReadIfThere("/proc/self/mounts"));
    if (option.empty() || option == "0" || option == "off") {
        report.Ok("hidepid", "/proc shows all processes");
    } else if (HasCapability(CAP_SYS_PTRACE)) {
        report.Ok("hidepid", "/proc is mounted with hidepid=" + option + ", which CAP_SYS_PTRACE overrides");
    } else {
        report.Missing("hidepid",
                       "/proc is mounted with hidepid=" + option + "; the agent does not see processes of other users",
                       "Run the agent with CAP_SYS_PTRACE, or run mount -o remount,hidepid=0 /proc");
        report.Lacks(Facility::processes, "/proc is mounted with hidepid=" + option);
    }
}

void CheckNamespaces(CheckReport& report) {
    CheckPidNamespace(report);
    CheckNetworkNamespace(report);
    CheckUserNamespace(report);
}

// Yama restricts only PTRACE_MODE_ATTACH (yama_ptrace_access_check), which stack and syscall require (lock_trace in
// fs/proc/base.c). The links exe and fd/N require PTRACE_MODE_READ, so no value of ptrace_scope affects them.
void ReportYama(const std::string& scope, CheckReport& report) {
    constexpr long nobody = 3;
    const long value = std::strtol(scope.c_str(), nullptr, 10);
    const std::string setting = "kernel.yama.ptrace_scope is " + std::to_string(value);
    if (scope.empty()) {
        report.Ok("Yama", "not in this kernel");
    } else if (value >= nobody) {
        report.Limited("Yama", setting + ", which makes /proc/<pid>/stack and /proc/<pid>/syscall unreadable",
                       "Configure 2 or less and reboot; the kernel does not allow lowering it at run time");
        report.Lacks(Facility::kernelWaits, setting);
    } else {
        report.Ok("Yama", value == 0 ? setting : setting + ", which CAP_SYS_PTRACE overrides");
    }
}

// No entry of enum lockdown_reason (include/linux/security.h) restricts anything that the agent uses: not
// /proc/<pid>/stack or its function names, nor the connector, fanotify or inotify.
void ReportLockdown(const std::string& modes, CheckReport& report) {
    const size_t begin = modes.find('[');
    const size_t end = modes.find(']', begin == std::string::npos ? 0 : begin);
    if (begin == std::string::npos || end == std::string::npos) {
        report.Ok("lockdown", "not in this kernel, or not visible");
    } else {
        report.Ok("lockdown",
                  "mode " + modes.substr(begin + 1, end - begin - 1) + ", which restricts nothing that the agent uses");
    }
}

void CheckYama(CheckReport& report) {
    ReportYama(ReadIfThere("/proc/sys/kernel/yama/ptrace_scope"), report);
}

void CheckLockdown(CheckReport& report) {
    ReportLockdown(ReadIfThere("/sys/kernel/security/lockdown"), report);
}

}  // namespace Host
