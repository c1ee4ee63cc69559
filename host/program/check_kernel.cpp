#include "host/program/check_kernel.h"

#include <fcntl.h>
#include <sys/fanotify.h>
#include <sys/inotify.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <string>

#include "host/program/small_file.h"
#include "host/services/descriptor.h"
#include "host/services/process_events.h"
#include "host/sinks/error_text.h"

namespace Host {
namespace {

// A file to put marks on, so that nothing of the host's is touched.
class TemporaryFile {
public:
    TemporaryFile() : file_(::mkostemp(path_, O_CLOEXEC)) {}
    ~TemporaryFile() {
        if (file_.IsOpen()) {
            ::unlink(path_);
        }
    }
    TemporaryFile(const TemporaryFile&) = delete;
    TemporaryFile& operator=(const TemporaryFile&) = delete;

    bool Exists() const { return file_.IsOpen(); }
    const char* Path() const { return path_; }

private:
    char path_[32] = "/tmp/orlim-check-XXXXXX";
    Descriptor file_;
};

}  // namespace

void CheckProcessEvents(CheckReport& report) {
    const std::string why = ProbeProcessEvents();
    if (why.empty()) {
        report.Ok("process events", "the kernel reports new processes");
    } else {
        report.Limited("process events", why +
                                             ". Reverse shells are found by the periodic scan alone, and those that "
                                             "end before it are missed");
    }
}

void CheckConnectionTables(CheckReport& report) {
    for (const char* path : {"/proc/net/tcp", "/proc/net/udp", "/proc/net/tcp6"}) {
        int error = 0;
        const std::string table = ReadSmallFile(path, error);
        const bool isSixth = std::string(path) == "/proc/net/tcp6";
        if (!table.empty()) {
            report.Ok(path, "can be read");
        } else if (isSixth) {
            report.Limited(path, ErrorText(error) + "; connections over IPv6 are not told apart");
        } else {
            report.Missing(path, ErrorText(error) + "; the connections behind reverse shells are not seen");
        }
    }
}

void CheckFanotify(CheckReport& report) {
    const char* const cost = "; the agent is not told when a watched file has been run or read";
    const TemporaryFile file;
    if (!file.Exists()) {
        report.Limited("fanotify", "cannot be tried, because /tmp takes no file: " + ErrorText(errno));
        return;
    }
    const Descriptor group(::fanotify_init(FAN_CLASS_NOTIF | FAN_CLOEXEC | FAN_NONBLOCK, O_RDONLY | O_CLOEXEC));
    if (!group.IsOpen()) {
        report.Limited("fanotify", "cannot be used: " + ErrorText(errno) + cost);
    } else if (::fanotify_mark(group.Get(), FAN_MARK_ADD, FAN_CLOSE_NOWRITE, AT_FDCWD, file.Path()) != 0) {
        report.Limited("fanotify", "takes no mark: " + ErrorText(errno) + cost);
    } else {
        report.Ok("fanotify", "takes marks");
    }
}

void CheckInotify(CheckReport& report) {
    constexpr long enoughWatches = 256;
    const char* const cost = "; changes to the shell programs are not noticed as they happen";
    const Descriptor instance(::inotify_init1(IN_CLOEXEC | IN_NONBLOCK));
    if (!instance.IsOpen()) {
        report.Missing("inotify", "cannot be used: " + ErrorText(errno) + cost);
        return;
    }
    if (::inotify_add_watch(instance.Get(), "/", IN_ATTRIB) < 0) {
        report.Missing("inotify", "takes no watch: " + ErrorText(errno) + cost);
        return;
    }
    int error = 0;
    const std::string limit = ReadSmallFile("/proc/sys/fs/inotify/max_user_watches", error);
    const long watches = std::strtol(limit.c_str(), nullptr, 10);
    if (error == 0 && watches < enoughWatches) {
        report.Limited("inotify", "fs.inotify.max_user_watches is " + std::to_string(watches) +
                                      ", which may not do for all shell programs; raise it to 8192");
        return;
    }
    report.Ok("inotify", error == 0 ? "takes watches, at most " + std::to_string(watches) + " for a user"
                                    : std::string("takes watches"));
}

}  // namespace Host
