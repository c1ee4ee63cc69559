// A child process of the test that blocks in a chosen system call, and helpers for its descriptors.
#pragma once

#include <gtest/gtest.h>
#include <poll.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <functional>
#include <string>
#include <utility>

#include "tests/support/temporary_directory.h"

inline unsigned long InodeOfDescriptor(int fd) {
    struct stat info {};
    EXPECT_EQ(fstat(fd, &info), 0);
    return static_cast<unsigned long>(info.st_ino);
}

// Closes its descriptor on destruction.
class OwnedDescriptor {
public:
    OwnedDescriptor() = default;
    explicit OwnedDescriptor(int fd) : fd_(fd) {}
    ~OwnedDescriptor() {
        if (fd_ >= 0) {
            close(fd_);
        }
    }
    OwnedDescriptor(OwnedDescriptor&& other) noexcept : fd_(std::exchange(other.fd_, -1)) {}
    OwnedDescriptor& operator=(OwnedDescriptor&& other) noexcept {
        std::swap(fd_, other.fd_);
        return *this;
    }

    int Get() const { return fd_; }

private:
    int fd_ = -1;
};

// Waits, in real time, until condition is true. Returns false after ten seconds.
inline bool AwaitInRealTime(const std::function<bool()>& condition) {
    for (int round = 0; round < 10000; ++round) {
        if (condition()) {
            return true;
        }
        poll(nullptr, 0, 1);
    }
    return false;
}

// A child process that runs body. The destructor kills it and reaps it; the kernel kills it if the test dies first.
class ForkedProcess {
public:
    explicit ForkedProcess(const std::function<void()>& body) : pid_(fork()) {
        if (pid_ == 0) {
            prctl(PR_SET_PDEATHSIG, SIGKILL);
            body();
            _exit(0);
        }
        EXPECT_GT(pid_, 0) << "no child";
    }
    ~ForkedProcess() {
        if (pid_ > 0) {
            kill(pid_, SIGKILL);
            while (waitpid(pid_, nullptr, 0) < 0 && errno == EINTR) {
            }
        }
    }
    ForkedProcess(const ForkedProcess&) = delete;
    ForkedProcess& operator=(const ForkedProcess&) = delete;

    pid_t Pid() const { return pid_; }

    // True once the child sleeps in a system call with this first argument.
    bool AwaitCall(unsigned long firstArgument) const {
        return AwaitInRealTime([this, firstArgument] {
            const std::string process = "/proc/" + std::to_string(pid_);
            const std::string stat = FileText(process + "/stat");
            const size_t name = stat.rfind(')');
            unsigned long argument = 0;
            return name != std::string::npos && stat.compare(name, 4, ") S ") == 0 &&
                   std::sscanf(FileText(process + "/syscall").c_str(), "%*d %lx", &argument) == 1 &&
                   argument == firstArgument;
        });
    }

private:
    pid_t pid_;
};
