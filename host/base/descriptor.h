// A file descriptor with one owner.
#pragma once

#include <unistd.h>

#include <cerrno>
#include <cstddef>
#include <utility>

namespace Host {

class Descriptor {
public:
    Descriptor() = default;
    explicit Descriptor(int fd) : fd_(fd) {}
    ~Descriptor() { Close(); }
    Descriptor(Descriptor&& other) noexcept : fd_(std::exchange(other.fd_, -1)) {}
    Descriptor& operator=(Descriptor&& other) noexcept {
        if (this != &other) {
            Close();
            fd_ = std::exchange(other.fd_, -1);
        }
        return *this;
    }

    int Get() const { return fd_; }
    bool IsOpen() const { return fd_ >= 0; }

    // read(2), begun again when a signal interrupts it: bytes read, 0 at the end, -1 with errno on failure.
    ssize_t Read(void* buffer, size_t size) const {
        ssize_t count = 0;
        do {
            count = ::read(fd_, buffer, size);
        } while (count < 0 && errno == EINTR);
        return count;
    }

    void Close() {
        if (fd_ >= 0) {
            ::close(std::exchange(fd_, -1));
        }
    }

private:
    int fd_ = -1;
};

// Opens /dev/null in the place of standard streams that are closed: a descriptor of the process's own that took such a
// place would be written to by mistake. On the main thread, before any descriptor is opened.
void OccupyStandardStreams();

}  // namespace Host
