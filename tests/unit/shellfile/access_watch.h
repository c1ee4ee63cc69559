// Watches whether a file is opened or read.
#pragma once

#include <gtest/gtest.h>
#include <sys/inotify.h>
#include <unistd.h>

#include <string>

class AccessWatch {
public:
    explicit AccessWatch(const std::string& path) : fd_(inotify_init1(IN_NONBLOCK | IN_CLOEXEC)) {
        EXPECT_GE(inotify_add_watch(fd_, path.c_str(), IN_OPEN | IN_ACCESS), 0);
    }
    ~AccessWatch() { close(fd_); }
    AccessWatch(const AccessWatch&) = delete;
    AccessWatch& operator=(const AccessWatch&) = delete;

    // True if the file was opened or read since the last call.
    bool SawAccess() const {
        alignas(inotify_event) char events[4096];
        return read(fd_, events, sizeof(events)) > 0;
    }

private:
    int fd_;
};
