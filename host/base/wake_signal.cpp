#include "host/base/wake_signal.h"

#include <sys/eventfd.h>
#include <unistd.h>

#include <cerrno>
#include <system_error>

namespace Host {

WakeSignal::WakeSignal() : fd_(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)) {
    if (fd_ < 0) {
        throw std::system_error(errno, std::system_category(), "eventfd");
    }
}

WakeSignal::~WakeSignal() {
    close(fd_);
}

void WakeSignal::Raise() const {
    eventfd_write(fd_, 1);
}

}  // namespace Host
