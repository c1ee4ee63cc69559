#include "host/base/descriptor.h"

#include <fcntl.h>

namespace Host {

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
