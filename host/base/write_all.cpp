#include "host/base/write_all.h"

#include <poll.h>
#include <unistd.h>

#include <cerrno>

namespace Host {

WriteResult WriteAll(int fd, std::string_view text) {
    WriteResult result{0, 0};
    while (result.written < text.size()) {
        const ssize_t count = ::write(fd, text.data() + result.written, text.size() - result.written);
        if (count > 0) {
            result.written += static_cast<size_t>(count);
            continue;
        }
        if (count == 0) {
            result.error = EIO;  // would otherwise be tried for ever
            return result;
        }
        if (errno == EAGAIN) {
            pollfd room{fd, POLLOUT, 0};
            if (::poll(&room, 1, -1) >= 0 || errno == EINTR) {
                continue;  // a failed descriptor shows in the next write
            }
        } else if (errno == EINTR) {
            continue;
        }
        result.error = errno;
        return result;
    }
    return result;
}

}  // namespace Host
