#include "agent/process_utils.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <string_view>

#include "host/base/descriptor.h"
#include "host/processes/process_status_text.h"

namespace ProcessUtils {

namespace {

constexpr size_t maxCmdlineBytes = 2 * 1024 * 1024;
constexpr size_t maxLinkBytes = 64 * 1024;

// The path of a file in /proc/<pid>.
class ProcPath {
public:
    ProcPath(int pid, const char* file) { std::snprintf(text_, sizeof(text_), "/proc/%d/%s", pid, file); }

    const char* Get() const { return text_; }

private:
    char text_[48];
};

Host::Descriptor Open(const ProcPath& path) {
    return Host::Descriptor(open(path.Get(), O_RDONLY | O_CLOEXEC));
}

void CopyName(std::string_view name, char (&field)[64]) {
    const size_t length = std::min(name.size(), sizeof(field) - 1);
    std::memcpy(field, name.data(), length);
    std::memset(field + length, 0, sizeof(field) - length);
}

// Leaves the record's reserved bytes as they are.
void Fill(ProcStatus& record, const Host::ProcessStatus& status) {
    record.pid = status.pid;
    record.tgid = status.tgid;
    record.ppid = status.ppid;
    record.tracerPid = status.tracerPid;
    std::copy(status.uids.begin(), status.uids.end(), record.uids);
    std::copy(status.gids.begin(), status.gids.end(), record.gids);
    CopyName(status.name, record.name);
}

}  // namespace

bool GetExePath(int pid, std::string& path) {
    path.clear();
    const ProcPath link(pid, "exe");
    // The length is not known in advance: only a target shorter than the buffer is known to be complete.
    for (std::string target(256, '\0'); target.size() <= maxLinkBytes; target.resize(target.size() * 2)) {
        const ssize_t length = readlink(link.Get(), target.data(), target.size());
        if (length < 0) {
            return false;
        }
        if (static_cast<size_t>(length) < target.size()) {
            path.assign(target, 0, static_cast<size_t>(length));
            return true;
        }
    }
    return false;
}

std::string GetProcessCmdline(int pid) {
    const Host::Descriptor file = Open(ProcPath(pid, "cmdline"));
    if (!file.IsOpen()) {
        return {};
    }
    std::string cmdline;
    char block[4096];
    while (cmdline.size() < maxCmdlineBytes) {
        const ssize_t count = file.Read(block, std::min(sizeof(block), maxCmdlineBytes - cmdline.size()));
        if (count < 0) {
            return {};
        }
        if (count == 0) {
            break;
        }
        cmdline.append(block, static_cast<size_t>(count));
    }
    const size_t last = cmdline.find_last_not_of('\0');
    cmdline.resize(last == std::string::npos ? 0 : last + 1);
    std::replace(cmdline.begin(), cmdline.end(), '\0', ' ');
    return cmdline;
}

int GetProcStatus(int pid, unsigned int selector, ProcStatus& status) {
    if (selector != PROC_STATUS) {
        return 0;
    }
    // The fields are in the file's first lines, far within one page.
    char content[4096];
    ssize_t length = 0;
    {
        const Host::Descriptor file = Open(ProcPath(pid, "status"));
        if (!file.IsOpen()) {
            return 0;
        }
        length = file.Read(content, sizeof(content));
    }
    if (length <= 0) {
        return 0;
    }
    const auto parsed = Host::ParseProcessStatus(std::string_view(content, static_cast<size_t>(length)));
    if (!parsed) {
        return 0;
    }
    Fill(status, *parsed);
    return 1;
}

}  // namespace ProcessUtils
