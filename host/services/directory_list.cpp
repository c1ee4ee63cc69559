#include "host/services/directory_list.h"

#include <dirent.h>
#include <fcntl.h>

#include <memory>
#include <string_view>

#include "host/services/descriptor.h"

namespace Host {

bool ListDirectory(const std::string& path, size_t limit, std::map<std::string, FileState>& entries) {
    const std::unique_ptr<DIR, int (*)(DIR*)> directory(opendir(path.empty() ? "/" : path.c_str()), closedir);
    if (!directory) {
        return false;
    }
    while (const dirent* const entry = readdir(directory.get())) {
        const std::string_view name = entry->d_name;
        if (name == "." || name == "..") {
            continue;
        }
        if (entries.size() >= limit) {
            return false;
        }
        const Descriptor file(openat(dirfd(directory.get()), entry->d_name, O_PATH | O_NOFOLLOW | O_CLOEXEC));
        FileState state;
        if (file.IsOpen() && ReadFileState(file.Get(), state)) {
            entries.emplace(name, state);
        }
    }
    return true;
}

}  // namespace Host
