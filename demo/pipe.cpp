#include "demo/pipe.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <system_error>

namespace Host {

Pipe MakePipe() {
    int ends[2];
    if (::pipe2(ends, O_CLOEXEC) != 0) {
        throw std::system_error(errno, std::generic_category(), "a pipe cannot be made");
    }
    return {Descriptor(ends[0]), Descriptor(ends[1])};
}

}  // namespace Host
