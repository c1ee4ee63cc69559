#include "host/watch/file_state.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>

#include <cerrno>
#include <memory>
#include <string_view>

namespace Host {

namespace {

int64_t Nanoseconds(const timespec& time) {
    return static_cast<int64_t>(time.tv_sec) * 1000000000 + time.tv_nsec;
}

FileState StateOf(const struct stat& from) {
    FileState state;
    state.device = from.st_dev;
    state.inode = from.st_ino;
    state.mode = from.st_mode;
    state.user = from.st_uid;
    state.group = from.st_gid;
    state.links = from.st_nlink;
    state.size = from.st_size;
    state.modifiedNs = Nanoseconds(from.st_mtim);
    state.changedNs = Nanoseconds(from.st_ctim);
    return state;
}

bool ReadEntryState(int directoryFd, const char* name, FileState& state) {
    struct stat attributes {};
    if (fstatat(directoryFd, name, &attributes, AT_SYMLINK_NOFOLLOW) != 0) {
        return false;
    }
    state = StateOf(attributes);
    return true;
}

void AppendPair(std::string& detail, const char* oldKey, const char* newKey, unsigned long old, unsigned long now) {
    if (old != now) {
        detail += std::string(" ") + oldKey + "=" + std::to_string(old) + " " + newKey + "=" + std::to_string(now);
    }
}

}  // namespace

bool ReadFileState(int fd, FileState& state) {
    struct stat attributes {};
    if (fstat(fd, &attributes) != 0) {
        return false;
    }
    state = StateOf(attributes);
    return true;
}

bool ReadFileState(const std::string& path, FileState& state) {
    return ReadEntryState(AT_FDCWD, path.c_str(), state);
}

int ListDirectory(const std::string& path, size_t limit, std::map<std::string, FileState>& entries) {
    const std::unique_ptr<DIR, int (*)(DIR*)> directory(opendir(path.empty() ? "/" : path.c_str()), closedir);
    if (!directory) {
        return errno;
    }
    errno = 0;
    while (const dirent* const entry = readdir(directory.get())) {
        const std::string_view name = entry->d_name;
        if (name == "." || name == "..") {
            continue;
        }
        if (entries.size() >= limit) {
            return E2BIG;
        }
        FileState state;
        if (ReadEntryState(dirfd(directory.get()), entry->d_name, state)) {
            entries.emplace(name, state);
        }
        errno = 0;
    }
    return errno;
}

bool IsShortage(int error) {
    return error == EMFILE || error == ENFILE || error == ENOMEM;
}

bool IsDirectory(const FileState& state) {
    return S_ISDIR(state.mode);
}

bool HasContent(const FileState& state) {
    return !IsDirectory(state) && state.size > 0;
}

bool IsSameFile(const FileState& one, const FileState& other) {
    return one.device == other.device && one.inode == other.inode;
}

bool ContentMayDiffer(const FileState& old, const FileState& now) {
    return !IsDirectory(now) && (old.size != now.size || old.modifiedNs != now.modifiedNs);
}

bool ContentMayDifferUnseen(const FileState& old, const FileState& now) {
    return ContentMayDiffer(old, now) ||
           (!IsDirectory(now) && old.changedNs != now.changedNs && AttributeDetail(old, now).empty());
}

std::string AttributeDetail(const FileState& old, const FileState& now) {
    std::string pairs;
    AppendPair(pairs, "oaccess", "access", old.mode, now.mode);
    AppendPair(pairs, "ouid", "cuid", old.user, now.user);
    AppendPair(pairs, "ogid", "cgid", old.group, now.group);
    if (!IsDirectory(now)) {
        AppendPair(pairs, "olink", "link", old.links, now.links);
    }
    return pairs.empty() ? pairs : "attribute" + pairs;
}

}  // namespace Host
