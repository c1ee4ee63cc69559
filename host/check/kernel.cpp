#include "host/check/kernel.h"

#include <fcntl.h>
#include <sys/fanotify.h>
#include <sys/inotify.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <string>

#include "host/base/descriptor.h"
#include "host/events/agent_library.h"
#include "host/system/small_file.h"
#include "module/published.h"

namespace Host {
void CheckProcessEvents(CheckReport& report) {
    const char* const what = "process events";
    const char* const remedy =
        "Run the agent on the host itself, with CAP_NET_ADMIN, on a kernel built with CONFIG_PROC_EVENTS";
    // The kernel would not answer the request, and waiting for it would take half a second.
    if (report.IsLacking(Facility::processEvents)) {
        report.Limited(what, "not tried, because the kernel sends none to this namespace", remedy);
        return;
    }
    const std::string why = AgentLibrary::Get().probeProcessEvents();
    if (why.empty()) {
        report.Ok(what, "the kernel reports new processes");
        return;
    }
    report.Limited(what, why + "; only the " + Published::periodScan + " still finds reverse shells", remedy);
    report.Lacks(Facility::processEvents, "there are no process events: " + why);
}

void CheckConnectionTables(CheckReport& report) {
    const char* const remedy = "Mount /proc without subset=pid, on a kernel built with CONFIG_INET";
    for (const char* path : {"/proc/net/tcp", "/proc/net/udp", "/proc/net/tcp6"}) {
        int error = 0;
        const std::string table = ReadSmallFile(path, error);
        const bool isSixth = std::string(path) == "/proc/net/tcp6";
        const std::string finding = error == 0 ? "is empty" : ErrorText(error);
        if (!table.empty()) {
            report.Ok(path, "readable");
        } else if (isSixth && error == ENOENT) {
            report.Ok(path, "does not exist, which is normal if IPv6 is disabled");
        } else if (isSixth) {
            report.Limited(path, finding + "; the agent does not see IPv6 connections", remedy);
        } else {
            report.Missing(path, finding + "; the agent does not see the connections of reverse shells", remedy);
        }
        if (table.empty() && std::string(path) == "/proc/net/tcp") {
            report.Lacks(Facility::connectionTables, std::string(path) + " cannot be read: " + finding);
        }
    }
}

void CheckFanotify(CheckReport& report) {
    // The mark is on the agent's own program and disappears with the group.
    constexpr const char* markedFile = "/proc/self/exe";
    const Descriptor group(::fanotify_init(FAN_CLASS_NOTIF | FAN_CLOEXEC | FAN_NONBLOCK, O_RDONLY | O_CLOEXEC));
    std::string why;
    if (!group.IsOpen()) {
        const int error = errno;
        why = "cannot be used: " + ErrorText(error) + (error == EPERM ? ", without CAP_SYS_ADMIN" : "");
    } else if (::fanotify_mark(group.Get(), FAN_MARK_ADD, FAN_CLOSE_NOWRITE, AT_FDCWD, markedFile) != 0) {
        why = "refuses a mark: " + ErrorText(errno);
    }
    if (why.empty()) {
        report.Ok("fanotify", "accepts marks");
        return;
    }
    report.Limited("fanotify", why,
                   "Run the agent with CAP_SYS_ADMIN in the initial user namespace, on a kernel built with "
                   "CONFIG_FANOTIFY");
    report.Lacks(Facility::fanotify, "fanotify " + why);
}

void CheckInotify(CheckReport& report) {
    constexpr long enoughWatches = 256;
    const char* const raise = "Raise fs.inotify.max_user_watches and fs.inotify.max_user_instances";
    const Descriptor instance(::inotify_init1(IN_CLOEXEC | IN_NONBLOCK));
    std::string why;
    if (!instance.IsOpen()) {
        why = "cannot be used: " + ErrorText(errno);
    } else if (::inotify_add_watch(instance.Get(), "/", IN_ATTRIB) < 0) {
        why = "refuses a watch: " + ErrorText(errno);
    }
    if (!why.empty()) {
        report.Missing("inotify", why, raise);
        report.Lacks(Facility::inotify, "inotify " + why);
        return;
    }
    int error = 0;
    const std::string limit = ReadSmallFile("/proc/sys/fs/inotify/max_user_watches", error);
    const long watches = std::strtol(limit.c_str(), nullptr, 10);
    if (error == 0 && watches < enoughWatches) {
        report.Limited(
            "inotify",
            "fs.inotify.max_user_watches is " + std::to_string(watches) + ", which may be too low for all shells",
            "Raise it to 8192");
        return;
    }
    report.Ok("inotify", error == 0 ? "accepts watches, at most " + std::to_string(watches) + " per user"
                                    : std::string("accepts watches"));
}

}  // namespace Host
