#include "host/system/small_file.h"

#include <fcntl.h>

#include <cerrno>

#include "host/base/descriptor.h"

namespace Host {

std::string ReadSmallFile(const std::string& path, int& error) {
    constexpr size_t limit = size_t{256} * 1024;
    error = 0;
    const Descriptor file(::open(path.c_str(), O_RDONLY | O_CLOEXEC));
    if (!file.IsOpen()) {
        error = errno;
        return "";
    }
    std::string text(limit, '\0');
    size_t filled = 0;
    while (filled < limit) {
        const ssize_t count = file.Read(text.data() + filled, limit - filled);
        if (count < 0) {
            error = errno;
            return "";
        }
        if (count == 0) {
            break;
        }
        filled += static_cast<size_t>(count);
    }
    text.resize(filled);
    return text;
}

}  // namespace Host
