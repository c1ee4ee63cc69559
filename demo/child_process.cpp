#include "demo/child_process.h"

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <filesystem>
#include <system_error>

#include "agent/process_utils.h"
#include "host/base/descriptor.h"

namespace Host {
namespace {

using Clock = std::chrono::steady_clock;

// The environment of the staged shells: they must not read or write any file of the user.
constexpr const char* environment[] = {
    "PATH=/usr/sbin:/usr/bin:/sbin:/bin", "HOME=/nonexistent", "HISTFILE=/dev/null", "LC_ALL=C", "TERM=dumb", nullptr};

// Descriptors inherited from the caller would connect the scenarios to the caller's processes.
void CloseAllButStandardStreams() {
    constexpr int pastOrdinary = 1024;
    if (::close_range(STDERR_FILENO + 1, ~0U, 0) != 0) {
        for (int fd = STDERR_FILENO + 1; fd < pastOrdinary; ++fd) {
            ::close(fd);
        }
    }
}

// Calls only async-signal-safe functions: this process has threads, and this runs between fork and exec.
[[noreturn]] void Become(char* const* arguments, int input, int output, int null, pid_t parent) {
    ::prctl(PR_SET_PDEATHSIG, SIGKILL, 0, 0, 0);
    if (::getppid() != parent) {
        ::_exit(1);
    }
    ::setsid();
    sigset_t none;
    sigemptyset(&none);
    ::sigprocmask(SIG_SETMASK, &none, nullptr);
    ::signal(SIGPIPE, SIG_DFL);
    ::signal(SIGXFSZ, SIG_DFL);
    if (::dup2(input, STDIN_FILENO) < 0 || ::dup2(output, STDOUT_FILENO) < 0 || ::dup2(null, STDERR_FILENO) < 0 ||
        ::chdir("/") != 0) {
        ::_exit(1);
    }
    CloseAllButStandardStreams();
    ::execve("/proc/self/exe", arguments, const_cast<char* const*>(environment));
    ::_exit(1);
}

std::vector<pid_t> Children() {
    std::vector<pid_t> children;
    std::error_code error;
    for (const auto& entry : std::filesystem::directory_iterator("/proc", error)) {
        const int pid = std::atoi(entry.path().filename().c_str());
        ProcessUtils::ProcStatus status{};
        if (pid > 0 && ProcessUtils::GetProcStatus(pid, ProcessUtils::PROC_STATUS, status) != 0 &&
            status.ppid == ::getpid()) {
            children.push_back(pid);
        }
    }
    return children;
}

}  // namespace

Pipe MakePipe() {
    int ends[2];
    if (::pipe2(ends, O_CLOEXEC) != 0) {
        throw std::system_error(errno, std::generic_category(), "cannot create a pipe");
    }
    return {Descriptor(ends[0]), Descriptor(ends[1])};
}

StageProcess::StageProcess(const std::vector<std::string>& arguments) {
    Pipe input = MakePipe();
    Pipe output = MakePipe();
    const Descriptor null(::open("/dev/null", O_RDWR | O_CLOEXEC));
    std::vector<char*> pointers;
    pointers.reserve(arguments.size() + 1);
    for (const std::string& argument : arguments) {
        pointers.push_back(const_cast<char*>(argument.c_str()));
    }
    pointers.push_back(nullptr);
    const pid_t parent = ::getpid();
    pid_ = ::fork();
    if (pid_ == 0) {
        Become(pointers.data(), input.readEnd.Get(), output.writeEnd.Get(), null.Get(), parent);
    }
    if (pid_ < 0) {
        throw std::system_error(errno, std::generic_category(), "cannot start a process");
    }
    input_ = std::move(input.writeEnd);
    output_ = std::move(output.readEnd);
}

bool StageProcess::ReadLine(std::string& line, std::chrono::milliseconds patience) {
    const Clock::time_point end = Clock::now() + patience;
    for (;;) {
        const size_t length = buffer_.find('\n');
        if (length != std::string::npos) {
            line = buffer_.substr(0, length);
            buffer_.erase(0, length + 1);
            return true;
        }
        const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(end - Clock::now());
        pollfd poll{.fd = output_.Get(), .events = POLLIN, .revents = 0};
        if (left.count() <= 0 || (::poll(&poll, 1, static_cast<int>(left.count())) <= 0 && errno != EINTR)) {
            return false;
        }
        char block[512];
        const ssize_t count = output_.Read(block, sizeof(block));
        if (count <= 0) {
            return false;
        }
        buffer_.append(block, static_cast<size_t>(count));
    }
}

void StageProcess::Prompt() const {
    WriteAll(input_.Get(), "\n");
}

void AdoptOrphans() {
    ::prctl(PR_SET_CHILD_SUBREAPER, 1, 0, 0, 0);
}

bool EndAllChildren(std::chrono::milliseconds patience) {
    const Clock::time_point end = Clock::now() + patience;
    while (Clock::now() < end) {
        for (const pid_t child : Children()) {
            ::kill(child, SIGKILL);
        }
        pid_t reaped = 0;
        while ((reaped = ::waitpid(-1, nullptr, WNOHANG)) > 0) {
        }
        if (reaped < 0 && errno == ECHILD) {
            return true;
        }
        ::usleep(5000);
    }
    return false;
}

}  // namespace Host
