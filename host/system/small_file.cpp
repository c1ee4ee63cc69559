#include "host/system/small_file.h"

#include <fcntl.h>

#include <algorithm>
#include <cerrno>
#include <utility>

namespace Host {

int ReadUpTo(const Descriptor& file, size_t limit, std::string& text) {
    constexpr size_t blockBytes = size_t{16} * 1024;
    std::string content;
    while (content.size() < limit) {
        const size_t had = content.size();
        content.resize(std::min(limit, had + blockBytes));
        const ssize_t count = file.Read(content.data() + had, content.size() - had);
        const int error = errno;
        content.resize(had + static_cast<size_t>(std::max<ssize_t>(count, 0)));
        if (count < 0) {
            return error;
        }
        if (count == 0) {
            break;
        }
    }
    text = std::move(content);
    return 0;
}

std::string ReadSmallFile(const std::string& path, int& error) {
    constexpr size_t limit = size_t{256} * 1024;
    const Descriptor file(::open(path.c_str(), O_RDONLY | O_CLOEXEC));
    std::string text;
    error = file.IsOpen() ? ReadUpTo(file, limit, text) : errno;
    return text;
}

}  // namespace Host
