#include "inspect/kernel_wait.h"

#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <set>

#include "inspect_fixture.h"

namespace {

using namespace std::string_literals;
using std::chrono::milliseconds;

constexpr long pid = 4242;
constexpr unsigned long untouched = 99;

TEST(StackFrame, MatchesALineOfTwoPiecesWithTheFunction) {
    const struct {
        const char* line;
        const char* function;
    } cases[] = {
        {"[<0>] pipe_read+0x1d4/0x2f0", "pipe_read"},
        {"[<ffffffff8120f6a4>] pipe_read+0x1d4/0x2f0", "pipe_read"},
        {"[<0>] anon_pipe_read+0x366/0x410", "pipe_read"},
        {"[<0>] tcp_recvmsg+0x6e/0x1d0", "inet_recvmsg"},
        {"[<0>] do_select+0x63a/0x930", "do_select"},
        {"  [<0>]   pipe_read+0x1d4/0x2f0  ", "pipe_read"},
        {"x pipe_read+", "pipe_read"},
        {"x pipe_read+a+b", "pipe_read"},
        {"x some_function+0x1/0x2", "some_function"},
    };
    for (const auto& row : cases) {
        EXPECT_TRUE(IsStackFrameOf(row.line, row.function)) << row.line;
    }
}

TEST(StackFrame, DoesNotMatchOtherLines) {
    const struct {
        std::string line;
        const char* function;
    } cases[] = {
        {"[<0>] pipe_read_iter+0x1d4/0x2f0", "pipe_read"},
        {"[<0>] pipe_rea+0x1d4/0x2f0", "pipe_read"},
        {"[<0>] my_pipe_read+0x1d4/0x2f0", "pipe_read"},
        {"[<0>] pipe_read.part.0+0x1d4/0x2f0", "pipe_read"},
        {"[<0>] PIPE_READ+0x1d4/0x2f0", "pipe_read"},
        {"[<0>] pipe_read+0x1d4/0x2f0 [module]", "pipe_read"},
        {"[<0>] x pipe_read+0x1d4/0x2f0", "pipe_read"},
        {"pipe_read+0x1d4/0x2f0", "pipe_read"},
        {"pipe_read+0x1d4/0x2f0 [<0>]", "pipe_read"},
        {"[<0>]\tpipe_read+0x1d4/0x2f0", "pipe_read"},
        {"[<0>] \tpipe_read+0x1d4/0x2f0", "pipe_read"},
        {"[<0>] pipe_read", "pipe_read"},
        {"[<0>] pipe_read/0x2f0", "pipe_read"},
        {"[<0>] +pipe_read+0x1", "pipe_read"},
        {"[<0>] +0x1d4/0x2f0", "pipe_read"},
        {"[<0>] pipe_read\0+0x1d4"s, "pipe_read"},
        {"[<0>] 0xb6e0a0c8", "pipe_read"},
        {"", "pipe_read"},
        {"  ", "pipe_read"},
        {"[<0>] do_select+0x63a/0x930", "pipe_read"},
    };
    for (const auto& row : cases) {
        EXPECT_FALSE(IsStackFrameOf(row.line, row.function)) << testing::PrintToString(row.line);
    }
}

TEST(BlockedDescriptor, IsTheFirstArgumentOfARead) {
    const struct {
        const char* line;
        unsigned long fd;
    } cases[] = {
        {"0 0x3 0x7ffd57dc8878 0x1 0x0 0x0 0x0 0x7ffd57dc8878 0x7fb0c9d162ad", 3},
        {"63 0x0 0x1", 0},
        {"45 0xff 0x1", 255},
        {"45 ff", 255},
        {"0 0xdeadbeef00000003 0x1", 3},
        {"0 3", 3},
        {"-1 0x7ffd 0x7fb0", 0x7ffd},
        {"running", 0},
        {"0", 0},
        {"0 x", 0},
        {"x 0x3", 0},
    };
    for (const auto& row : cases) {
        EXPECT_EQ(BlockedDescriptor(row.line, "pipe_read"), row.fd) << row.line;
    }
}

TEST(BlockedDescriptor, IsZeroForASelectOnDescriptorZeroOnly) {
    EXPECT_EQ(BlockedDescriptor("270 0x1 0x7ffd57dbc710 0x0", "do_select"), 0UL);
    EXPECT_EQ(BlockedDescriptor("270 0xdeadbeef00000001 0x7ffd57dbc710 0x0", "do_select"), 0UL);
    for (const char* line : {"270 0x0 0x0", "270 0x2 0x7ffd", "270 0x3 0x7ffd", "270 0x11 0x7ffd", "running", "270",
                             "270 0xffffffffffffffff"}) {
        EXPECT_EQ(BlockedDescriptor(line, "do_select"), std::nullopt) << line;
    }
}

TEST(BlockedDescriptor, IsMissingInAnEmptyLine) {
    for (const char* function : {"pipe_read", "do_select"}) {
        EXPECT_EQ(BlockedDescriptor("", function), std::nullopt);
        EXPECT_EQ(BlockedDescriptor("  \t", function), std::nullopt);
    }
}

class KernelWait : public ProcInspectTest {
protected:
    void SetUp() override {
        ProcInspectTest::SetUp();
        if (!proc) {
            return;
        }
        proc->Add({.pid = pid, .ppid = 77, .exe = "/usr/bin/bash"});
        ASSERT_EQ(mkfifo(folder.Path("fifo").c_str(), 0600), 0);
        const int fd = socket(AF_UNIX, SOCK_STREAM, 0);
        sockaddr_un address{};
        address.sun_family = AF_UNIX;
        folder.Path("socket").copy(address.sun_path, sizeof(address.sun_path) - 1);
        ASSERT_EQ(bind(fd, reinterpret_cast<const sockaddr*>(&address), sizeof(address)), 0);
        close(fd);
        folder.Write("file", "");
    }

    // Blocks the process in this call, with frame in the second line of its stack. fd refers to a file of the folder.
    void Block(const std::string& frame, const std::string& call, int fd, const std::string& file) {
        proc->AddFile(pid, "stack",
                      "[<0>] schedule+0x1/0x2\n[<0>] " + frame + "+0x1d4/0x2f0\n[<0>] ksys_read+0x1/0x2\n");
        proc->AddFile(pid, "syscall", call);
        std::filesystem::remove(proc->Folder() / std::to_string(pid) / "fd" / std::to_string(fd));
        proc->AddDescriptor(pid, fd, folder.Path(file));
    }

    unsigned long InodeOf(const std::string& file) const {
        struct stat info {};
        EXPECT_EQ(stat(folder.Path(file).c_str(), &info), 0);
        return static_cast<unsigned long>(info.st_ino);
    }

    bool IsBlockedIn(const std::string& function) const {
        struct stat info {};
        TimeRecorder::Reset();
        return GetBlockedFdStat(pid, function, &info);
    }

    const TemporaryDirectory folder;
};

using Sample = bool (*)(long, unsigned long&);

struct Question {
    const char* name;
    Sample sample;
    const char* function;
    const char* file;
};

const Question questions[] = {
    {"ReadingFromPipe", ReadingFromPipe, "pipe_read", "fifo"},
    {"SelectFromPipe", SelectFromPipe, "do_select", "fifo"},
    {"ReadingFromSock", ReadingFromSock, "inet_recvmsg", "socket"},
    {"SelectFromSock", SelectFromSock, "do_select", "socket"},
    {"ReadingFromUnixSock", ReadingFromUnixSock, "unix_stream_recvmsg", "socket"},
};

TEST_F(KernelWait, NeedsTheFunctionAndTheKindOfFile) {
    for (const char* function : {"pipe_read", "inet_recvmsg", "unix_stream_recvmsg", "do_select", "n_tty_read"}) {
        for (const char* file : {"fifo", "socket", "file"}) {
            const bool select = function == "do_select"s;
            Block(function, select ? "270 0x1 0x7ffd\n" : "0 0x3 0x7ffd\n", select ? 0 : 3, file);
            for (const Question& question : questions) {
                SCOPED_TRACE(std::string(question.name) + " " + function + " " + file);
                const bool expected = question.function == std::string(function) && question.file == std::string(file);
                unsigned long inode = untouched;
                EXPECT_EQ(question.sample(pid, inode), expected);
                EXPECT_EQ(inode, expected ? InodeOf(file) : untouched);
            }
        }
    }
    EXPECT_TRUE(Log().empty());
}

TEST_F(KernelWait, IsFoundWithoutTheInode) {
    Block("pipe_read", "0 0x3 0x7ffd\n", 3, "fifo");
    EXPECT_TRUE(ReadingFromPipe(pid));
    EXPECT_FALSE(SelectFromPipe(pid));
    Block("do_select", "270 0x1 0x7ffd\n", 0, "fifo");
    EXPECT_FALSE(ReadingFromPipe(pid));
    EXPECT_TRUE(SelectFromPipe(pid));
    Block("pipe_read", "0 0x3 0x7ffd\n", 3, "file");
    EXPECT_FALSE(ReadingFromPipe(pid));
}

TEST_F(KernelWait, ReturnsTheStatOfTheDescriptor) {
    Block("pipe_read", "0 0x3 0x7ffd\n", 3, "file");
    struct stat info {};
    EXPECT_TRUE(GetBlockedFdStat(pid, "pipe_read", &info));
    EXPECT_EQ(info.st_ino, InodeOf("file"));
    EXPECT_TRUE(S_ISREG(info.st_mode));
}

TEST_F(KernelWait, AcceptsAnyFunctionForASocket) {
    Block("unix_dgram_recvmsg", "45 0x3 0x7ffd\n", 3, "socket");
    unsigned long inode = untouched;
    EXPECT_FALSE(GetBlockedSockStat("inet_recvmsg", pid, inode));
    EXPECT_EQ(inode, untouched);
    EXPECT_TRUE(GetBlockedSockStat("unix_dgram_recvmsg", pid, inode));
    EXPECT_EQ(inode, InodeOf("socket"));
}

TEST_F(KernelWait, InASelectOnThreeDescriptorsIsNotFound) {
    Block("do_select", "270 0x3 0x7ffd\n", 0, "socket");
    proc->AddDescriptor(pid, 3, folder.Path("socket"));
    unsigned long inode = untouched;
    EXPECT_FALSE(SelectFromSock(pid, inode));
    EXPECT_FALSE(SelectFromPipe(pid, inode));
    EXPECT_EQ(inode, untouched);
}

TEST_F(KernelWait, OfARunningProcessIsOnDescriptorZero) {
    Block("inet_recvmsg", "running\n", 0, "socket");
    unsigned long inode = untouched;
    EXPECT_TRUE(ReadingFromSock(pid, inode));
    EXPECT_EQ(inode, InodeOf("socket"));
    Block("do_select", "running\n", 0, "socket");
    EXPECT_FALSE(SelectFromSock(pid, inode));
}

TEST_F(KernelWait, IsNotFoundWithoutAReadableCall) {
    Block("pipe_read", "", 0, "fifo");
    EXPECT_FALSE(ReadingFromPipe(pid)) << "empty file";
    Block("pipe_read", "\n", 0, "fifo");
    EXPECT_FALSE(ReadingFromPipe(pid)) << "empty line";
    Block("pipe_read", std::string(5000, '0') + "\n", 0, "fifo");
    EXPECT_FALSE(ReadingFromPipe(pid)) << "a line that does not fit in the buffer";
    std::filesystem::remove(proc->Folder() / std::to_string(pid) / "syscall");
    EXPECT_FALSE(ReadingFromPipe(pid)) << "no file";
    EXPECT_TRUE(Log().empty());
}

TEST_F(KernelWait, IsFoundInACallWithoutNewline) {
    Block("pipe_read", "0 0x3 0x7ffd", 3, "fifo");
    EXPECT_TRUE(ReadingFromPipe(pid));
}

TEST_F(KernelWait, IsNotFoundIfTheDescriptorWasClosed) {
    for (const char* call : {"0 0x4 0x7ffd\n", "0 0xffffffffffffffff\n", "0 -1\n"}) {
        Block("pipe_read", call, 3, "fifo");
        EXPECT_FALSE(ReadingFromPipe(pid)) << call;
    }
}

TEST_F(KernelWait, IsNotFoundWithoutAReadableStack) {
    Block("pipe_read", "0 0x3 0x7ffd\n", 3, "fifo");
    for (const std::string& stack : {""s, "\n"s, "\n\n\n"s, std::string(100, '\0') + "\n", std::string(5000, '\xff')}) {
        proc->AddFile(pid, "stack", stack);
        EXPECT_FALSE(IsBlockedIn("pipe_read")) << testing::PrintToString(stack.substr(0, 20));
    }
    std::filesystem::remove(proc->Folder() / std::to_string(pid) / "stack");
    EXPECT_FALSE(IsBlockedIn("pipe_read"));
    EXPECT_TRUE(TimeRecorder::Pauses().empty());
    unsigned long inode = untouched;
    for (const Question& question : questions) {
        EXPECT_FALSE(question.sample(pid + 1, inode)) << question.name;
        EXPECT_FALSE(question.sample(-1, inode)) << question.name;
    }
    EXPECT_EQ(inode, untouched);
    EXPECT_TRUE(Log().empty());
}

TEST_F(KernelWait, IsSampledThroughADescriptorThatIsClosedOnExec) {
    Block("pipe_read", "0 0x3 0x7ffd\n", 3, "fifo");
    std::set<int> before;
    for (int fd = 0; fd < 256; ++fd) {
        if (fcntl(fd, F_GETFD) != -1) {
            before.insert(fd);
        }
    }
    int opened = 0;
    TimeRecorder::AtEachPause([&](size_t number) {
        for (int fd = 0; fd < 256 && number == 1; ++fd) {
            const int flags = fcntl(fd, F_GETFD);
            if (flags != -1 && !before.contains(fd)) {
                EXPECT_EQ(flags, FD_CLOEXEC) << fd;
                ++opened;
            }
        }
    });
    EXPECT_TRUE(ReadingFromPipe(pid));
    EXPECT_EQ(opened, 1) << "the stack";
}

TEST_F(KernelWait, IsFoundAfterALineWithZeroBytes) {
    Block("", "0 0x3 0x7ffd\n", 3, "fifo");
    proc->AddFile(pid, "stack", "[<0>] a\0b+0x1/0x2\n[<0>] pipe_read+0x1d4/0x2f0\n"s);
    EXPECT_TRUE(IsBlockedIn("pipe_read"));
}

TEST_F(KernelWait, IsFoundAtAnyDepth) {
    std::string stack;
    for (int i = 0; i < 100; ++i) {
        stack += "[<0>] frame_" + std::to_string(i) + "+0x1/0x2\n";
    }
    Block("", "0 0x3 0x7ffd\n", 3, "fifo");
    proc->AddFile(pid, "stack", stack + "[<0>] pipe_read+0x1d4/0x2f0\n");
    EXPECT_TRUE(IsBlockedIn("pipe_read"));
    EXPECT_EQ(TimeRecorder::Pauses(), Repeated(101, halfMillisecond) + Repeated(1, milliseconds(5)));
}

TEST_F(KernelWait, StopsAtALineThatDoesNotFitInTheBuffer) {
    const std::string frame = "[<0>] pipe_read+0x1d4/0x2f0\n";
    Block("", "0 0x3 0x7ffd\n", 3, "fifo");
    proc->AddFile(pid, "stack", std::string(4094, 'x') + "\n" + frame);
    EXPECT_TRUE(IsBlockedIn("pipe_read"));
    proc->AddFile(pid, "stack", std::string(4095, 'x') + "\n" + frame);
    EXPECT_FALSE(IsBlockedIn("pipe_read"));
    EXPECT_TRUE(TimeRecorder::Pauses().empty());
}

TEST_F(KernelWait, IgnoresALastLineWithoutNewline) {
    Block("", "0 0x3 0x7ffd\n", 3, "fifo");
    proc->AddFile(pid, "stack", "[<0>] schedule+0x1/0x2\n[<0>] pipe_read+0x1d4/0x2f0");
    EXPECT_FALSE(IsBlockedIn("pipe_read"));
    EXPECT_EQ(TimeRecorder::Pauses(), Repeated(1, halfMillisecond));
}

TEST_F(KernelWait, IsFoundInALineThatEndsInABlank) {
    Block("", "0 0x3 0x7ffd\n", 3, "fifo");
    proc->AddFile(pid, "stack", "[<0>] pipe_read+0x1d4/0x2f0 \n");
    EXPECT_TRUE(IsBlockedIn("pipe_read"));
}

TEST_F(KernelWait, SleepsHalfAMillisecondPerLineUpToTheMatchAndFiveBetweenTheStages) {
    Block("pipe_read", "0 0x3 0x7ffd\n", 3, "fifo");
    EXPECT_TRUE(IsBlockedIn("pipe_read"));
    EXPECT_EQ(TimeRecorder::Pauses(), Repeated(2, halfMillisecond) + Repeated(1, milliseconds(5)));
}

TEST_F(KernelWait, SleepsForTheWholeStackWithoutAMatch) {
    Block("pipe_read", "0 0x3 0x7ffd\n", 3, "fifo");
    EXPECT_FALSE(IsBlockedIn("inet_recvmsg"));
    EXPECT_EQ(TimeRecorder::Pauses(), Repeated(3, halfMillisecond));
}

TEST_F(KernelWait, LogsIfThereIsNoMemoryForTheStack) {
    Block("pipe_read", "0 0x3 0x7ffd\n", 3, "fifo");
    proc->AddFile(pid, "wchan", "pipe_read");
    FailingCalls::FailAllocation(1);
    EXPECT_FALSE(IsBlockedIn("pipe_read"));
    ExpectLogged(LOG_LEVEL_ERROR, "detect_shell", "Alloc line memory failed.");
    EXPECT_TRUE(TimeRecorder::Pauses().empty());
}

TEST_F(KernelWait, LogsIfThereIsNoMemoryForTheCall) {
    Block("pipe_read", "0 0x3 0x7ffd\n", 3, "fifo");
    FailingCalls::FailAllocation(2);
    EXPECT_FALSE(IsBlockedIn("pipe_read"));
    ExpectLogged(LOG_LEVEL_ERROR, "detect_shell", "Alloc line memory failed.");
    EXPECT_EQ(TimeRecorder::Pauses(), Repeated(2, halfMillisecond) + Repeated(1, milliseconds(5)));
    EXPECT_TRUE(IsBlockedIn("pipe_read"));
}

}  // namespace
