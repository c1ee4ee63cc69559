#include "host/check/kernel_stack.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cerrno>

namespace Host {
namespace {

using testing::HasSubstr;
using testing::IsEmpty;

constexpr char pipeStack[] = "[<0>] anon_pipe_read+0x15a/0x430\n[<0>] vfs_read+0x1f8/0x300\n";
constexpr char readCall[] = "0 0x5 0x7ffd2f3a8b7f 0x1 0x0 0x0 0x0 0x7ffd2f3a8b28 0x7f3f5c0e019d\n";

SleepingRead Seen(const char* stack, int stackError, const char* call, int callError, const char* channel = "0",
                  int channelError = 0) {
    return {stack, stackError, channel, channelError, call, callError, 5};
}

TEST(CheckStack, AcceptsAStackAndACallThatShowTheRead) {
    const struct {
        const char* stack;
        const char* call;
    } rows[] = {
        {pipeStack, readCall},
        {"[<0>] pipe_read+0x2d0/0x3e0\n", readCall},
        // 32-bit ARM 5.10: a bare user address at the end, and the number 0 for every call.
        {"[<0>] pipe_read+0x280/0x3c4\n[<0>] ret_fast_syscall+0x0/0x54\n[<0>] 0xbe9c3b44\n",
         "0 0x5 0xbe9c3b6f 0x1 0x0 0x0 0x0 0xbe9c3b30 0xb6e70e4c\n"},
    };
    for (const auto& row : rows) {
        EXPECT_EQ(WhyWaitIsHidden(Seen(row.stack, 0, row.call, 0)), "") << row.stack;
    }
}

TEST(CheckStack, AcceptsAChannelWhereThereIsNoStack) {
    const struct {
        SleepingRead seen;
        WaitFiles files;
    } rows[] = {
        {Seen("", 0, readCall, 0, "pipe_read"), WaitFiles::channel},
        {Seen("", 0, "0 0x5 0xbe9c3b6f 0x1\n", 0, "pipe_read"), WaitFiles::channel},
        {Seen("", ENOENT, readCall, 0, "anon_pipe_read"), WaitFiles::channel},
        {Seen("", EACCES, readCall, 0, "anon_pipe_read"), WaitFiles::channel},
        {Seen(pipeStack, 0, readCall, 0, "anon_pipe_read"), WaitFiles::stack},
        {Seen(pipeStack, 0, readCall, 0, "0"), WaitFiles::stack},
        {Seen("", 0, readCall, 0, "0"), WaitFiles::none},
        {Seen("", 0, readCall, 0, "", ENOENT), WaitFiles::none},
        {Seen("", 0, "running\n", 0, "pipe_read"), WaitFiles::none},
        {Seen("", EPERM, "", EPERM, "pipe_read"), WaitFiles::none},
        // The module looks at wchan only if there is no stack.
        {Seen("[<0>] do_wait+0x1/0x2\n", 0, readCall, 0, "pipe_read"), WaitFiles::none},
    };
    for (const auto& row : rows) {
        EXPECT_EQ(FilesThatShowWait(row.seen), row.files) << row.seen.stack << row.seen.channel;
        EXPECT_EQ(WhyWaitIsHidden(row.seen).empty(), row.files != WaitFiles::none) << row.seen.stack;
    }
}

TEST(CheckStack, ExplainsAHiddenWaitWithCauseAndRemedy) {
    const struct {
        SleepingRead seen;
        const char* why;
        const char* remedy;
    } rows[] = {
        {Seen("", EACCES, "", 0), "/proc/<pid>/stack cannot be read: Permission denied", "CAP_SYS_ADMIN"},
        {Seen("", EPERM, "", 0), "/proc/<pid>/stack cannot be read: Operation not permitted", "ptrace_scope below 3"},
        {Seen("", ENOENT, "", 0), "/proc/<pid>/stack cannot be read: No such file", "CONFIG_STACKTRACE"},
        {Seen("", 0, readCall, 0), "/proc/<pid>/stack of another process is empty", "without CONFIG_SMP"},
        {Seen("", 0, readCall, 0), ", and /proc/<pid>/wchan does not name the wait",
         "names waits in /proc/<pid>/wchan"},
        {Seen("", 0, readCall, 0, "", ENOENT), ", and /proc/<pid>/wchan cannot be read: No such", "CONFIG_KALLSYMS"},
        {Seen("", EPERM, "", EPERM, "pipe_read"), "/proc/<pid>/syscall cannot be read", "ptrace_scope below 3"},
        {Seen("[<0>] 0xffffffff8136c2aa\n", 0, readCall, 0), "addresses instead of function names", "CONFIG_KALLSYMS"},
        {Seen("[<0>] do_wait+0x1/0x2\n", 0, readCall, 0), "does not show a process waiting in a pipe read",
         "Report this"},
        {Seen(pipeStack, 0, "", EPERM), "/proc/<pid>/syscall cannot be read", "CAP_SYS_PTRACE"},
        {Seen(pipeStack, 0, "", ENOENT), "/proc/<pid>/syscall cannot be read", "ARCH_TRACEHOOK"},
        {Seen(pipeStack, 0, "running\n", 0), "/proc/<pid>/syscall does not show", "Report this"},
        {Seen(pipeStack, 0, "0 0x6 0x0\n", 0), "/proc/<pid>/syscall does not show", "Report this"},
    };
    for (const auto& row : rows) {
        EXPECT_THAT(WhyWaitIsHidden(row.seen), HasSubstr(row.why));
        EXPECT_THAT(RemedyForHiddenWait(row.seen), HasSubstr(row.remedy)) << row.why;
    }
}

TEST(CheckStack, TestReadsTheFilesOfASleepingProcess) {
    std::string error;
    const std::optional<SleepingRead> seen = TrySleepingRead(error);
    ASSERT_TRUE(seen) << error;
    EXPECT_THAT(error, IsEmpty());
    EXPECT_GE(seen->descriptor, 0);
    // Whether they show the wait depends on this host's kernel and rights.
    if (seen->callError == 0) {
        EXPECT_EQ(seen->call.find("running"), std::string::npos);
    }
}

}  // namespace
}  // namespace Host
