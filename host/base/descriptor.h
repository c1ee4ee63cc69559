// A file descriptor with one owner, complete writes, and errno messages.
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

    // read(2), repeated if a signal interrupts it. Returns bytes read, 0 at the end, -1 with errno on failure.
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

// Writes all of text. Waits while a non-blocking descriptor is full. Any thread.
WriteResult WriteAll(int fd, std::string_view text);

// The system's message for an errno. Any thread, unlike strerror.
std::string ErrorText(int error);

// Opens /dev/null on each standard stream that is closed. Otherwise the next file to be opened would get its number,
// and messages meant for the stream. Call it on the main thread before any descriptor is opened.
void OccupyStandardStreams();

}  // namespace Host
