#include "host/base/descriptor.h"

#include <fcntl.h>
#include <poll.h>

#include <optional>
#include <system_error>

#include "host/base/clock.h"

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
            result.error = EIO;  // a retry could loop forever
            return result;
        }
        if (errno == EAGAIN) {
            pollfd room{fd, POLLOUT, 0};
            if (Clock::Poll({&room, 1}, std::nullopt) >= 0) {
                continue;  // the next write reports a failed descriptor
            }
        } else if (errno == EINTR) {
            continue;
        }
        result.error = errno;
        return result;
    }
    return result;
}

std::string ErrorText(int error) {
    return std::generic_category().message(error);
}

void OccupyStandardStreams() {
    int fd = 0;
    do {
        fd = ::open("/dev/null", O_RDWR);
    } while (fd >= 0 && fd <= STDERR_FILENO);
    if (fd > STDERR_FILENO) {
        ::close(fd);
    }
}

}  // namespace Host
