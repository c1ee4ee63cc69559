#include "agent/process_utils.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <charconv>
#include <cstdio>
#include <cstring>
#include <string_view>

#include "host/services/descriptor.h"

namespace ProcessUtils {

namespace {

constexpr size_t maxCmdlineBytes = 2 * 1024 * 1024;
constexpr size_t maxLinkBytes = 64 * 1024;

// The path of one of the process's files in /proc.
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

template <typename Number>
bool ParseNumber(std::string_view& text, Number& number) {
    const size_t begin = text.find_first_not_of(" \t");
    if (begin == std::string_view::npos) {
        return false;
    }
    const char* end = text.data() + text.size();
    const auto result = std::from_chars(text.data() + begin, end, number);
    if (result.ec != std::errc()) {
        return false;
    }
    text.remove_prefix(static_cast<size_t>(result.ptr - text.data()));
    return true;
}

bool ParseIds(std::string_view text, uint32_t (&ids)[4]) {
    return std::all_of(std::begin(ids), std::end(ids), [&text](uint32_t& id) { return ParseNumber(text, id); });
}

void CopyName(std::string_view text, char (&name)[64]) {
    if (!text.empty() && text.front() == '\t') {
        text.remove_prefix(1);
    }
    const size_t length = std::min(text.size(), sizeof(name) - 1);
    std::memcpy(name, text.data(), length);
    std::memset(name + length, 0, sizeof(name) - length);
}

// False for a line of one of the record's fields that is not in the kernel's form.
bool ParseLine(std::string_view key, std::string_view value, ProcStatus& status) {
    if (key == "Name") {
        CopyName(value, status.name);
        return true;
    }
    if (key == "Tgid") {
        return ParseNumber(value, status.tgid);
    }
    if (key == "Pid") {
        return ParseNumber(value, status.pid);
    }
    if (key == "PPid") {
        return ParseNumber(value, status.ppid);
    }
    if (key == "TracerPid") {
        return ParseNumber(value, status.tracerPid);
    }
    if (key == "Uid") {
        return ParseIds(value, status.uids);
    }
    if (key == "Gid") {
        return ParseIds(value, status.gids);
    }
    return true;
}

}  // namespace

bool GetExePath(int pid, std::string& path) {
    path.clear();
    const ProcPath link(pid, "exe");
    // The link tells no length beforehand: only a target shorter than the buffer is known to be whole.
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
    // The record's fields stand in the file's first lines, far within one page.
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
    ProcStatus parsed = status;
    bool hasPid = false;
    bool hasParent = false;
    std::string_view rest(content, static_cast<size_t>(length));
    // A line without its end was cut by the buffer.
    for (size_t end = rest.find('\n'); end != std::string_view::npos; end = rest.find('\n')) {
        const std::string_view line = rest.substr(0, end);
        rest.remove_prefix(end + 1);
        const size_t colon = line.find(':');
        if (colon == std::string_view::npos) {
            continue;
        }
        const std::string_view key = line.substr(0, colon);
        if (!ParseLine(key, line.substr(colon + 1), parsed)) {
            return 0;
        }
        hasPid = hasPid || key == "Pid";
        hasParent = hasParent || key == "PPid";
        if (key == "Gid") {
            break;
        }
    }
    if (!hasPid || !hasParent) {
        return 0;
    }
    status = parsed;
    return 1;
}

}  // namespace ProcessUtils
