// A file descriptor with one owner, whole writes, and the text of an errno.
#pragma once

#include <unistd.h>

#include <cerrno>
#include <cstddef>
#include <string>
#include <string_view>
#include <utility>

namespace Host {

// Owns a descriptor and closes it. One thread at a time.
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

    // read(2), repeated when a signal interrupts it: bytes read, 0 at the end, -1 with errno on failure.
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

struct WriteResult {
    size_t written;  // bytes written, fewer than asked for only with an error
    int error;       // errno of the write that failed, 0 if none did
};

// Writes all of text; waits as long as a non-blocking descriptor is full. Any thread.
WriteResult WriteAll(int fd, std::string_view text);

// The system's message for an errno. Any thread, unlike strerror.
std::string ErrorText(int error);

// Opens /dev/null in the place of standard streams that are closed: a descriptor of the process's own that took such a
// place would be written to by mistake. On the main thread, before any descriptor is opened.
void OccupyStandardStreams();

}  // namespace Host
