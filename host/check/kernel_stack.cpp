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

// A child process that reports its name in /proc and then sleeps in the read of a pipe. The destructor ends it.
class Reader {
public:
    Reader();
    ~Reader();
    Reader(const Reader&) = delete;
    Reader& operator=(const Reader&) = delete;

    bool Runs() const { return pid_ > 0; }
    int PipeEnd() const { return pipeEnd_; }
    // Its directory in /proc, where its number may be that of an outer PID namespace; empty if it has none.
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
        ::close(ends[1]);  // otherwise the child would keep its own pipe open and never end
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

// The process state in the text of /proc/<pid>/stat. The name before it may contain any bytes.
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
    seen.channel = ReadSmallFile(folder + "/wchan", seen.channelError);
    seen.call = ReadSmallFile(folder + "/syscall", seen.callError);
    return seen;
}

// Ignores the number of the call: 32-bit ARM before 5.15 shows 0 for every call.
bool ShowsDescriptor(const SleepingRead& seen) {
    unsigned long first = 0;
    return std::sscanf(seen.call.c_str(), "%*d %lx", &first) == 1 &&
           static_cast<unsigned int>(first) == static_cast<unsigned int>(seen.descriptor);
}

// proc_pid_stack returns EACCES only if CAP_SYS_ADMIN is missing. Like syscall, it returns EPERM if ptrace(2) may not
// attach (lock_trace in fs/proc/base.c).
std::string RefusalText(const char* file, int error) {
    const std::string text = std::string(file) + " cannot be read: " + ErrorText(error);
    if (error == EACCES) {
        return text + ", without CAP_SYS_ADMIN in the initial user namespace";
    }
    return error == EPERM ? text + ", because the agent may not attach with ptrace" : text;
}

bool ShowsAddressesOnly(const std::string& stack) {
    return stack.find("] 0x") != std::string::npos;
}

bool HasStack(const SleepingRead& seen) {
    return seen.stackError == 0 && !seen.stack.empty();
}

// True for a stack or a wchan with any name of a pipe's read.
bool ShowsRead(const std::string& text) {
    return text.find("pipe_read") != std::string::npos;
}

std::string WhyStackIsMissing(const SleepingRead& seen) {
    return seen.stackError != 0 ? RefusalText("/proc/<pid>/stack", seen.stackError)
                                : "/proc/<pid>/stack of another process is empty on this kernel";
}

std::string WhyChannelIsMissing(const SleepingRead& seen) {
    return seen.channelError != 0 ? "/proc/<pid>/wchan cannot be read: " + ErrorText(seen.channelError)
                                  : "/proc/<pid>/wchan does not name the wait";
}

}  // namespace

WaitFiles FilesThatShowWait(const SleepingRead& seen) {
    if (seen.callError != 0 || !ShowsDescriptor(seen)) {
        return WaitFiles::none;
    }
    if (!HasStack(seen)) {
        return ShowsRead(seen.channel) ? WaitFiles::channel : WaitFiles::none;
    }
    return ShowsRead(seen.stack) ? WaitFiles::stack : WaitFiles::none;
}

std::string WhyWaitIsHidden(const SleepingRead& seen) {
    if (FilesThatShowWait(seen) != WaitFiles::none) {
        return "";
    }
    if (!HasStack(seen) && !ShowsRead(seen.channel)) {
        return WhyStackIsMissing(seen) + ", and " + WhyChannelIsMissing(seen);
    }
    if (HasStack(seen) && !ShowsRead(seen.stack)) {
        return ShowsAddressesOnly(seen.stack) ? "/proc/<pid>/stack shows addresses instead of function names"
                                              : "/proc/<pid>/stack does not show a process waiting in a pipe read";
    }
    if (seen.callError != 0) {
        return RefusalText("/proc/<pid>/syscall", seen.callError);
    }
    return "/proc/<pid>/syscall does not show the descriptor that a process reads";
}

std::string RemedyForHiddenWait(const SleepingRead& seen) {
    if (seen.callError == ENOENT) {
        return "Run a kernel built with CONFIG_HAVE_ARCH_TRACEHOOK";
    }
    if (seen.stackError == ENOENT) {
        return "Run a kernel built with CONFIG_STACKTRACE and CONFIG_KALLSYMS";
    }
    if (seen.stackError != 0 || seen.callError != 0) {
        return "Run the agent with CAP_SYS_ADMIN and CAP_SYS_PTRACE in the initial user namespace, and with "
               "kernel.yama.ptrace_scope below 3";
    }
    if (seen.stack.empty() && !ShowsRead(seen.channel)) {
        return "Multi-core 32-bit ARM never shows stacks; run a kernel that names waits in /proc/<pid>/wchan "
               "(CONFIG_KALLSYMS), or one built without CONFIG_SMP";
    }
    return ShowsAddressesOnly(seen.stack) ? "Run a kernel built with CONFIG_KALLSYMS"
                                          : "Report this as a defect of Orlim, with the version of the kernel";
}

std::optional<SleepingRead> TrySleepingRead(std::string& error) {
    constexpr int moreLooks = 25;
    const Reader reader;
    if (!reader.Runs()) {
        error = "cannot start a process: " + ErrorText(errno);
        return std::nullopt;
    }
    const std::string folder = reader.Folder();
    if (folder.empty() || !AwaitSleep(folder)) {
        error = "/proc does not show the test process asleep";
        return std::nullopt;
    }
    SleepingRead seen = Look(folder, reader.PipeEnd());
    // The state changes to "sleeping" shortly before the process leaves the processor.
    for (int i = 0; i < moreLooks && seen.callError == 0 && !WhyWaitIsHidden(seen).empty(); ++i) {
        Clock::Poll({}, Clock::Now() + step);
        seen = Look(folder, reader.PipeEnd());
    }
    return seen;
}

void CheckKernelWaits(CheckReport& report) {
    const char* const what = "waits of processes";
    std::string why;
    const std::optional<SleepingRead> seen = TrySleepingRead(why);
    std::string remedy = "Raise the process limit, and mount /proc";
    if (seen) {
        why = WhyWaitIsHidden(*seen);
        remedy = RemedyForHiddenWait(*seen);
    } else {
        why = "the test of process waits failed: " + why;
    }
    if (why.empty()) {
        const bool byStack = FilesThatShowWait(*seen) == WaitFiles::stack;
        report.Ok(what, byStack ? "/proc/<pid>/stack and /proc/<pid>/syscall show where a process waits"
                                : "/proc/<pid>/wchan and /proc/<pid>/syscall show where a process waits, because " +
                                      WhyStackIsMissing(*seen));
        return;
    }
    report.Limited(what, why, remedy);
    report.Lacks(Facility::kernelWaits, why);
}

}  // namespace Host
