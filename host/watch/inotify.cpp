#include "host/watch/inotify.h"

#include <sys/inotify.h>

#include <array>
#include <cerrno>
#include <cstring>

namespace Host {

namespace {

// inotify_add_watch takes only paths. This one leads to the open inode itself, whatever its path means now.
int AddWatch(int instance, int pathFd, uint32_t mask) {
    const std::string path = "/proc/self/fd/" + std::to_string(pathFd);
    return inotify_add_watch(instance, path.c_str(), mask);
}

}  // namespace

void ParseInotifyEvents(const char* buffer, size_t size, std::vector<InotifyEvent>& events) {
    inotify_event header{};
    for (size_t at = 0; size - at >= sizeof(header); at += sizeof(header) + header.len) {
        std::memcpy(&header, buffer + at, sizeof(header));
        if (header.len > size - at - sizeof(header)) {
            return;
        }
        // The kernel pads the name with zero bytes.
        const char* const name = buffer + at + sizeof(header);
        events.push_back({header.wd, header.mask, header.cookie, std::string(name, strnlen(name, header.len))});
    }
}

int Inotify::Open() {
    descriptor_ = Descriptor(inotify_init1(IN_CLOEXEC | IN_NONBLOCK));
    return descriptor_.IsOpen() ? 0 : errno;
}

int Inotify::Add(int pathFd, uint32_t mask) {
    return AddWatch(Get(), pathFd, mask | IN_MASK_ADD);
}

int Inotify::Replace(int pathFd, uint32_t mask) {
    return AddWatch(Get(), pathFd, mask);
}

void Inotify::Remove(int watch) {
    inotify_rm_watch(Get(), watch);
}

int Inotify::Read(std::vector<InotifyEvent>& events) {
    alignas(inotify_event) std::array<char, 16 * 1024> buffer;
    const ssize_t size = descriptor_.Read(buffer.data(), buffer.size());
    if (size < 0) {
        return errno == EAGAIN ? 0 : errno;
    }
    ParseInotifyEvents(buffer.data(), static_cast<size_t>(size), events);
    return 0;
}

}  // namespace Host
