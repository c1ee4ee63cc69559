#include "host/watch/directory_list.h"

#include <dirent.h>
#include <fcntl.h>

#include <cerrno>
#include <memory>
#include <string_view>

namespace Host {

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
        if (ReadFileState(dirfd(directory.get()), entry->d_name, state)) {
            entries.emplace(name, state);
        }
        errno = 0;
    }
    return errno;
}

bool IsShortage(int error) {
    return error == EMFILE || error == ENFILE || error == ENOMEM;
}

}  // namespace Host
