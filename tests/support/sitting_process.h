// Processes that hold given descriptors and wait, and the pipes, sockets and terminals for them.
#pragma once

#include <arpa/inet.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <map>
#include <string>
#include <utility>

namespace Host {

// Closed at the end.
class OwnedEnd {
public:
    explicit OwnedEnd(int fd) : fd_(fd) { EXPECT_GE(fd, 0); }
    ~OwnedEnd() { Close(); }
    OwnedEnd(OwnedEnd&& other) noexcept : fd_(std::exchange(other.fd_, -1)) {}
    OwnedEnd& operator=(OwnedEnd&&) = delete;

    operator int() const { return fd_; }

    void Close() {
        if (fd_ >= 0) {
            close(fd_);
            fd_ = -1;
        }
    }

private:
    int fd_;
};

struct Ends {
    OwnedEnd first;
    OwnedEnd second;

    void Close() {
        first.Close();
        second.Close();
    }
};

// first is the reading end.
inline Ends MakePipe() {
    int ends[2] = {-1, -1};
    EXPECT_EQ(pipe2(ends, O_CLOEXEC), 0);
    return {OwnedEnd(ends[0]), OwnedEnd(ends[1])};
}

inline Ends MakeSocketPair() {
    int ends[2] = {-1, -1};
    EXPECT_EQ(socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends), 0);
    return {OwnedEnd(ends[0]), OwnedEnd(ends[1])};
}

// first is the master.
inline Ends MakeTerminal() {
    const int master = posix_openpt(O_RDWR | O_NOCTTY | O_CLOEXEC);
    char name[64] = {};
    EXPECT_TRUE(unlockpt(master) == 0 && ptsname_r(master, name, sizeof(name)) == 0);
    return {OwnedEnd(master), OwnedEnd(open(name, O_RDWR | O_NOCTTY | O_CLOEXEC))};
}

// A TCP connection from 127.0.0.1 to another loopback address.
class LoopbackConnection {
public:
    explicit LoopbackConnection(const char* address)
        : server_(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0)),
          client_(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0)) {
        sockaddr_in place{};
        socklen_t length = sizeof(place);
        place.sin_family = AF_INET;
        EXPECT_EQ(inet_pton(AF_INET, address, &place.sin_addr), 1);
        EXPECT_EQ(bind(server_, reinterpret_cast<sockaddr*>(&place), length), 0);
        EXPECT_EQ(listen(server_, 1), 0);
        EXPECT_EQ(getsockname(server_, reinterpret_cast<sockaddr*>(&place), &length), 0);
        port_ = ntohs(place.sin_port);
        EXPECT_EQ(connect(client_, reinterpret_cast<sockaddr*>(&place), length), 0);
    }

    int Client() const { return client_; }
    void CloseClient() { client_.Close(); }
    int ServerPort() const { return port_; }
    unsigned long ClientInode() const {
        struct stat info {};
        EXPECT_EQ(fstat(client_, &info), 0);
        return static_cast<unsigned long>(info.st_ino);
    }

private:
    OwnedEnd server_;
    OwnedEnd client_;
    int port_ = 0;
};

// A child with exactly the given descriptors, by number; killed and reaped with the object.
class SittingProcess {
public:
    explicit SittingProcess(const std::map<int, int>& descriptors) {
        int ready[2] = {-1, -1};
        EXPECT_EQ(pipe2(ready, O_CLOEXEC), 0);
        pid_ = fork();
        if (pid_ == 0) {
            Sit(descriptors, ready[1]);
        }
        close(ready[1]);
        char byte = 0;
        while (read(ready[0], &byte, 1) < 0 && errno == EINTR) {
        }
        close(ready[0]);
        EXPECT_GT(pid_, 0);
    }
    ~SittingProcess() {
        if (pid_ > 0) {
            kill(pid_, SIGKILL);
            while (waitpid(pid_, nullptr, 0) < 0 && errno == EINTR) {
            }
        }
    }
    SittingProcess(const SittingProcess&) = delete;
    SittingProcess& operator=(const SittingProcess&) = delete;

    int Pid() const { return pid_; }

private:
    [[noreturn]] static void Sit(const std::map<int, int>& descriptors, int ready) {
        constexpr int spare = 500;
        constexpr int last = 900;
        prctl(PR_SET_PDEATHSIG, SIGKILL);
        dup2(ready, last);
        for (const auto& [number, held] : descriptors) {
            dup2(held, spare + number);
        }
        close_range(0, spare - 1, 0);
        for (const auto& [number, held] : descriptors) {
            dup2(spare + number, number);
        }
        // This closes the pipe too, which signals the parent that the descriptors are in place.
        close_range(spare, ~0U, 0);
        for (;;) {
            pause();
        }
    }

    pid_t pid_ = -1;
};

}  // namespace Host
