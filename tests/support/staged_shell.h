// A real shell that waits for input from a connection.
#pragma once

#include <fcntl.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <string>

#include "tests/support/await_condition.h"
#include "tests/support/sitting_process.h"

namespace Host {

// A bash whose input is a connection between two loopback addresses, which the module takes for a foreign connection.
// Killed and reaped with the object.
class StagedShell {
public:
    StagedShell() {
        pid_ = fork();
        if (pid_ == 0) {
            prctl(PR_SET_PDEATHSIG, SIGKILL);
            dup2(line_.Client(), STDIN_FILENO);
            const int nothing = open("/dev/null", O_WRONLY);
            dup2(nothing, STDOUT_FILENO);
            dup2(nothing, STDERR_FILENO);
            close_range(STDERR_FILENO + 1, ~0U, 0);
            execl("/bin/bash", "bash", "-s", "staged", nullptr);
            _exit(127);
        }
        EXPECT_GT(pid_, 0);
    }
    ~StagedShell() {
        if (pid_ > 0) {
            kill(pid_, SIGKILL);
            while (waitpid(pid_, nullptr, 0) < 0 && errno == EINTR) {
            }
        }
    }
    StagedShell(const StagedShell&) = delete;
    StagedShell& operator=(const StagedShell&) = delete;

    int Pid() const { return pid_; }

    // Returns true once the kernel stack shows that the shell reads from the connection. Returns false after ten
    // seconds, or if this process may not read the stack.
    bool Waits() const {
        return TestSupport::Await([this] {
            std::ifstream stack("/proc/" + std::to_string(pid_) + "/stack");
            const std::string text((std::istreambuf_iterator<char>(stack)), std::istreambuf_iterator<char>());
            return text.find("tcp_recvmsg") != std::string::npos;
        });
    }

private:
    LoopbackConnection line_{"127.0.0.2"};
    pid_t pid_ = -1;
};

}  // namespace Host
