#include <sys/stat.h>

#include <cstdlib>
#include <cstring>
#include <string_view>

#include "agent/bounds_checked.h"
#include "graph/reverse_shell_detector.h"

// Link texts up to this length are ignored. The few pipes and sockets with such low numbers were created during boot.
static constexpr unsigned int longestIgnoredLink = 10;

void ReverseShellDetector::AddIPCInode(const char* link, unsigned int len, int fd,
                                       std::shared_ptr<ProcInfomation> proc) {
    InodeAttr held;
    // The link text of a file is its path. That of an anonymous pipe or socket is not a path, and stat fails.
    struct stat info {};
    if (stat(link, &info) == 0) {
        const bool isSocket = S_ISSOCK(info.st_mode);
        if (!isSocket && !S_ISFIFO(info.st_mode)) {
            return;
        }
        held = {.type = isSocket ? INODE_SOCKET : INODE_PIPE, .inode = info.st_ino};
    } else {
        const std::string_view text(link);
        const bool isSocket = text.starts_with("socket:[");
        if (len <= longestIgnoredLink || (!isSocket && !text.starts_with("pipe:["))) {
            return;
        }
        held = {.type = isSocket ? INODE_SOCKET : INODE_PIPE, .inode = ParseInode(link, static_cast<int>(len))};
    }
    ipcInodes[held.inode].procs.insert(proc);
    proc->fds[fd] = held;
}

unsigned long long ReverseShellDetector::ParseInode(const char* link, int len) const {
    char digits[32] = {};
    const char* bracket = strchr(link, '[');
    if (bracket == nullptr || bracket - link > len) {
        return INVALID_INODE;
    }
    if (sscanf_s(bracket + 1, "%[0-9]", digits, sizeof(digits)) == -1) {
        return INVALID_INODE;
    }
    return strtoull(digits, nullptr, 10);
}
