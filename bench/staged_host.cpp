#include "bench/staged_host.h"

#include <arpa/inet.h>
#include <fcntl.h>
#include <netinet/in.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <system_error>

static int Checked(int result, const char* what) {
    if (result == -1) {
        throw std::system_error(errno, std::generic_category(), what);
    }
    return result;
}

StagedHost::StagedHost(const Size& size, const char* address) {
    AddSleepers(size.processes);
    AddShells(size.shells);
    AddConnections(size.connections, address);
}

StagedHost::~StagedHost() {
    for (const pid_t child : children_) {
        kill(child, SIGKILL);
        waitpid(child, nullptr, 0);
    }
    for (const int descriptor : descriptors_) {
        close(descriptor);
    }
}

void StagedHost::AddSleepers(int count) {
    for (int i = 0; i < count; ++i) {
        const pid_t child = Checked(fork(), "fork");
        if (child == 0) {
            for (;;) {
                pause();
            }
        }
        children_.push_back(child);
    }
}

void StagedHost::AddShells(int count) {
    for (int i = 0; i < count; ++i) {
        int ends[2];
        Checked(pipe2(ends, O_CLOEXEC), "pipe");
        const pid_t child = Checked(fork(), "fork");
        if (child == 0) {
            dup2(ends[0], 0);
            dup2(ends[1], 1);
            execl("/bin/bash", "bash", static_cast<char*>(nullptr));
            _exit(127);
        }
        close(ends[0]);
        descriptors_.push_back(ends[1]);
        children_.push_back(child);
    }
}

void StagedHost::AddConnections(int count, const char* address) {
    rlimit descriptors{};
    Checked(getrlimit(RLIMIT_NOFILE, &descriptors), "getrlimit");
    descriptors.rlim_cur = descriptors.rlim_max;
    Checked(setrlimit(RLIMIT_NOFILE, &descriptors), "setrlimit");
    const int listener = Checked(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0), "socket");
    descriptors_.push_back(listener);
    sockaddr_in local{};
    local.sin_family = AF_INET;
    Checked(inet_pton(AF_INET, address, &local.sin_addr), "inet_pton");
    socklen_t length = sizeof(local);
    auto* const generic = reinterpret_cast<sockaddr*>(&local);
    Checked(bind(listener, generic, length), "bind");
    Checked(listen(listener, 16), "listen");
    Checked(getsockname(listener, generic, &length), "getsockname");
    // The table lists both ends of a connection.
    for (int i = 0; i < count / 2; ++i) {
        const int client = Checked(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0), "socket");
        descriptors_.push_back(client);
        Checked(connect(client, generic, length), "connect");
        descriptors_.push_back(Checked(accept4(listener, nullptr, nullptr, SOCK_CLOEXEC), "accept"));
    }
}
