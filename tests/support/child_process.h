// A child process that is killed and reaped with the object.
#pragma once

#include <fcntl.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <string>
#include <vector>

namespace ServiceTests {

class ChildProcess {
public:
    // Returns once the program runs. Its standard input is an empty pipe that stays open.
    ChildProcess(const std::string& program, const std::vector<std::string>& arguments) {
        std::vector<char*> argv;
        for (const std::string& argument : arguments) {
            argv.push_back(const_cast<char*>(argument.c_str()));
        }
        argv.push_back(nullptr);
        int input[2];
        int executed[2];
        if (pipe2(input, O_CLOEXEC) != 0) {
            ADD_FAILURE() << "no pipe";
            return;
        }
        input_ = input[1];
        if (pipe2(executed, O_CLOEXEC) != 0) {
            ADD_FAILURE() << "no pipe";
            close(input[0]);
            return;
        }
        pid_ = fork();
        if (pid_ == 0) {
            // The kernel limits the size of the arguments to a part of the stack limit.
            rlimit stack{};
            getrlimit(RLIMIT_STACK, &stack);
            const rlim_t wanted = 32 * 1024 * 1024;
            stack.rlim_cur = stack.rlim_max == RLIM_INFINITY || stack.rlim_max > wanted ? wanted : stack.rlim_max;
            setrlimit(RLIMIT_STACK, &stack);
            if (input[0] == STDIN_FILENO) {
                fcntl(STDIN_FILENO, F_SETFD, 0);
            } else {
                dup2(input[0], STDIN_FILENO);
            }
            execv(program.c_str(), argv.data());
            _exit(write(executed[1], "x", 1) == 1 ? 126 : 127);
        }
        close(input[0]);
        close(executed[1]);
        char failed = '\0';
        ssize_t count = 0;
        do {
            count = read(executed[0], &failed, 1);
        } while (count < 0 && errno == EINTR);
        close(executed[0]);
        EXPECT_TRUE(pid_ > 0 && count == 0) << program << " does not start";
    }
    ~ChildProcess() {
        End();
        Collect();
        if (input_ >= 0) {
            close(input_);
        }
    }
    ChildProcess(const ChildProcess&) = delete;
    ChildProcess& operator=(const ChildProcess&) = delete;

    int Pid() const { return pid_; }

    // Kills the process and waits until it is a zombie.
    void End() {
        if (pid_ > 0) {
            kill(pid_, SIGKILL);
            siginfo_t info{};
            while (waitid(P_PID, static_cast<id_t>(pid_), &info, WEXITED | WNOWAIT) != 0 && errno == EINTR) {
            }
        }
    }

    void Collect() {
        if (pid_ > 0) {
            while (waitpid(pid_, nullptr, 0) < 0 && errno == EINTR) {
            }
            pid_ = -1;
        }
    }

private:
    pid_t pid_ = -1;
    int input_ = -1;
};

}  // namespace ServiceTests
