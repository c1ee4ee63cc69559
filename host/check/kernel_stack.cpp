#include "host/check/kernel_stack.h"

#include <fcntl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <cstdio>

#include "host/base/clock.h"
#include "host/base/descriptor.h"
#include "host/system/small_file.h"

namespace Host {
namespace {

constexpr std::chrono::milliseconds step(2);

// A child that sends its name in /proc and then reads from a pipe until the object goes.
class Reader {
public:
    Reader();
    ~Reader();
    Reader(const Reader&) = delete;
    Reader& operator=(const Reader&) = delete;

    bool Runs() const { return pid_ > 0; }
    int PipeEnd() const { return pipeEnd_; }
    // Its folder in /proc, which may be that of another PID namespace; empty if it has none there.
    std::string Folder() const;

private:
    Descriptor writeEnd_;
    Descriptor name_;
    int pipeEnd_ = -1;  // the child's descriptor
    pid_t pid_ = -1;
};

// Async-signal-safe calls only: the process may have threads.
[[noreturn]] void SendNameAndRead(int nameEnd, int readEnd) {
    char name[32];
    const ssize_t length = ::readlink("/proc/self", name, sizeof(name));
    if (length > 0 && ::write(nameEnd, name, static_cast<size_t>(length)) != length) {
        ::_exit(1);
    }
    ::close(nameEnd);
    char byte = 0;
    while (::read(readEnd, &byte, 1) < 0 && errno == EINTR) {
    }
    ::_exit(0);
}

Reader::Reader() {
    int ends[2];
    int nameEnds[2];
    if (::pipe2(ends, O_CLOEXEC) != 0) {
        return;
    }
    const Descriptor readEnd(ends[0]);
    writeEnd_ = Descriptor(ends[1]);
    if (::pipe2(nameEnds, O_CLOEXEC) != 0) {
        return;
    }
    name_ = Descriptor(nameEnds[0]);
    const Descriptor nameWriteEnd(nameEnds[1]);
    pipeEnd_ = ends[0];
    pid_ = ::fork();
    if (pid_ == 0) {
        ::close(ends[1]);  // or the child would keep its own pipe open for ever
        SendNameAndRead(nameEnds[1], ends[0]);
    }
}

Reader::~Reader() {
    writeEnd_.Close();
    if (pid_ > 0) {
        while (::waitpid(pid_, nullptr, 0) < 0 && errno == EINTR) {
        }
    }
}

std::string Reader::Folder() const {
    char name[32];
    const ssize_t length = name_.Read(name, sizeof(name));
    return length > 0 ? "/proc/" + std::string(name, static_cast<size_t>(length)) : "";
}

// State of the process in the text of its file "stat". The name before it may hold anything.
char StateIn(const std::string& stat) {
    const size_t end = stat.rfind(") ");
    return end == std::string::npos || end + 2 >= stat.size() ? '?' : stat[end + 2];
}

bool AwaitSleep(const std::string& folder) {
    const Clock::Time end = Clock::Now() + std::chrono::seconds(1);
    int error = 0;
    while (StateIn(ReadSmallFile(folder + "/stat", error)) != 'S') {
        if (error != 0 || Clock::Now() >= end) {
            return false;
        }
        Clock::Poll({}, Clock::Now() + step);
    }
    return true;
}

SleepingRead Look(const std::string& folder, int descriptor) {
    SleepingRead seen;
    seen.descriptor = descriptor;
    seen.stack = ReadSmallFile(folder + "/stack", seen.stackError);
    seen.call = ReadSmallFile(folder + "/syscall", seen.callError);
    return seen;
}

// The number of the call is not looked at: 32-bit ARM before 5.15 shows 0 for every one.
bool ShowsDescriptor(const SleepingRead& seen) {
    unsigned long first = 0;
    return std::sscanf(seen.call.c_str(), "%*d %lx", &first) == 1 &&
           static_cast<unsigned int>(first) == static_cast<unsigned int>(seen.descriptor);
}

// proc_pid_stack answers EACCES to the lack of CAP_SYS_ADMIN alone, and EPERM as syscall does where ptrace(2) may not
// attach (lock_trace in fs/proc/base.c).
std::string RefusalText(const char* file, int error) {
    const std::string text = std::string(file) + " cannot be read: " + ErrorText(error);
    if (error == EACCES) {
        return text + ", without CAP_SYS_ADMIN in the initial user namespace";
    }
    return error == EPERM ? text + ", as to all that may not attach by ptrace" : text;
}

bool ShowsAddressesOnly(const std::string& stack) {
    return stack.find("] 0x") != std::string::npos;
}

}  // namespace

std::string WhyWaitIsHidden(const SleepingRead& seen) {
    if (seen.stackError != 0) {
        return RefusalText("/proc/<pid>/stack", seen.stackError);
    }
    if (seen.stack.empty()) {
        return "/proc/<pid>/stack of another process is empty on this kernel";
    }
    if (seen.stack.find("pipe_read") == std::string::npos) {
        return ShowsAddressesOnly(seen.stack) ? "/proc/<pid>/stack shows addresses in place of names"
                                              : "/proc/<pid>/stack shows no read of a pipe where there is one";
    }
    if (seen.callError != 0) {
        return RefusalText("/proc/<pid>/syscall", seen.callError);
    }
    return ShowsDescriptor(seen) ? "" : "/proc/<pid>/syscall does not show what a process reads";
}

std::string RemedyForHiddenWait(const SleepingRead& seen) {
    if (seen.stackError == ENOENT || seen.callError == ENOENT) {
        return "Run a kernel built with CONFIG_STACKTRACE and CONFIG_HAVE_ARCH_TRACEHOOK";
    }
    if (seen.stackError != 0 || seen.callError != 0) {
        return "Run the agent with CAP_SYS_ADMIN and CAP_SYS_PTRACE in the initial user namespace, and with "
               "kernel.yama.ptrace_scope below 3";
    }
    if (seen.stack.empty()) {
        return "Multi-core 32-bit ARM shows none; run a kernel built without CONFIG_SMP to have them";
    }
    return ShowsAddressesOnly(seen.stack) ? "Run a kernel built with CONFIG_KALLSYMS"
                                          : "Report it, with the version of this kernel";
}

std::optional<SleepingRead> TrySleepingRead(std::string& error) {
    constexpr int moreLooks = 25;
    const Reader reader;
    if (!reader.Runs()) {
        error = "no process can be started: " + ErrorText(errno);
        return std::nullopt;
    }
    const std::string folder = reader.Folder();
    if (folder.empty() || !AwaitSleep(folder)) {
        error = "/proc does not show a process asleep";
        return std::nullopt;
    }
    SleepingRead seen = Look(folder, reader.PipeEnd());
    // The state says "asleep" a moment before the processor has left the process.
    for (int i = 0; i < moreLooks && seen.stackError == 0 && !WhyWaitIsHidden(seen).empty(); ++i) {
        Clock::Poll({}, Clock::Now() + step);
        seen = Look(folder, reader.PipeEnd());
    }
    return seen;
}

void CheckKernelWaits(CheckReport& report) {
    const char* const what = "waits of processes";
    std::string why;
    const std::optional<SleepingRead> seen = TrySleepingRead(why);
    std::string remedy = "Make room for one more process, and mount /proc";
    if (seen) {
        why = WhyWaitIsHidden(*seen);
        remedy = RemedyForHiddenWait(*seen);
    } else {
        why = "it cannot be tried whether waits are shown: " + why;
    }
    if (why.empty()) {
        report.Ok(what, "/proc/<pid>/stack and /proc/<pid>/syscall show what a process waits for");
        return;
    }
    report.Limited(what, why, remedy);
    report.Lacks(Facility::kernelWaits, why);
}

}  // namespace Host
