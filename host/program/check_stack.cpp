#include "host/program/check_stack.h"

#include <fcntl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <string>
#include <thread>

#include "host/program/small_file.h"
#include "host/services/descriptor.h"
#include "host/sinks/error_text.h"

namespace Host {
namespace {

// A child that reads from a pipe until the object goes.
class Reader {
public:
    Reader();
    ~Reader();
    Reader(const Reader&) = delete;
    Reader& operator=(const Reader&) = delete;

    pid_t Pid() const { return pid_; }

private:
    Descriptor writeEnd_;
    pid_t pid_ = -1;
};

Reader::Reader() {
    int ends[2];
    if (::pipe2(ends, O_CLOEXEC) != 0) {
        return;
    }
    const Descriptor readEnd(ends[0]);
    writeEnd_ = Descriptor(ends[1]);
    pid_ = ::fork();
    if (pid_ == 0) {
        ::close(ends[1]);  // or the child would keep its own pipe open for ever
        char byte = 0;
        while (::read(ends[0], &byte, 1) < 0 && errno == EINTR) {
        }
        ::_exit(0);
    }
}

Reader::~Reader() {
    writeEnd_.Close();
    if (pid_ > 0) {
        while (::waitpid(pid_, nullptr, 0) < 0 && errno == EINTR) {
        }
    }
}

// The stack once the child sleeps in its read; what there is if that does not show within the time.
std::string AwaitStack(pid_t pid, int& error) {
    using Clock = std::chrono::steady_clock;
    const std::string path = "/proc/" + std::to_string(pid) + "/stack";
    const Clock::time_point end = Clock::now() + std::chrono::seconds(1);
    for (;;) {
        std::string stack = ReadSmallFile(path, error);
        if (error != 0 || stack.find("pipe_read") != std::string::npos || Clock::now() >= end) {
            return stack;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(2));
    }
}

}  // namespace

void CheckKernelStacks(CheckReport& report) {
    const std::string cost =
        "; whether a shell waits on a pipe cannot be told, and reverse shells behind pipes may be "
        "missed";
    const Reader reader;
    if (reader.Pid() < 0) {
        report.Limited("kernel stacks", "cannot be tried: " + ErrorText(errno) + cost);
        return;
    }
    int error = 0;
    const std::string stack = AwaitStack(reader.Pid(), error);
    if (error != 0) {
        report.Limited("kernel stacks", "/proc/<pid>/stack cannot be read: " + ErrorText(error) + cost);
    } else if (stack.find("pipe_read") == std::string::npos) {
        report.Limited("kernel stacks",
                       (stack.empty() ? std::string("/proc/<pid>/stack is empty")
                                      : "/proc/<pid>/stack shows no read of a pipe where there is one") +
                           cost);
    } else {
        report.Ok("kernel stacks", "/proc/<pid>/stack shows what a process waits for");
    }
}

}  // namespace Host
