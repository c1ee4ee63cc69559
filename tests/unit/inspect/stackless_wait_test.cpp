#include "inspect/stackless_wait.h"

#include <sys/syscall.h>

#include "inspect/kernel_wait.h"
#include "inspect_fixture.h"
#include "table_text.h"
#include "tests/support/kernel_objects.h"

namespace {

using std::chrono::milliseconds;

constexpr long pid = 4242;
constexpr const char* functions[] = {"pipe_read", "inet_recvmsg", "unix_stream_recvmsg", "do_select"};
constexpr milliseconds stagePause{5};

TEST(DescriptorOfWait, NeedsTheCallIfItsNumberIsRight) {
    const struct {
        const char* function;
        Machine machine;
        long number;
        bool fits;
    } cases[] = {
        {"inet_recvmsg", Machine::x86, 0, true},
        {"inet_recvmsg", Machine::x86, 1, false},
        {"inet_recvmsg", Machine::x86, 42, false},
        {"inet_recvmsg", Machine::arm, 3, true},
        {"inet_recvmsg", Machine::arm, 4, false},
        {"inet_recvmsg", Machine::arm, 0, false},
        {"inet_recvmsg", Machine::arm64, 63, true},
        {"inet_recvmsg", Machine::arm64, 64, false},
        {"unix_stream_recvmsg", Machine::x86, 47, true},
        {"unix_stream_recvmsg", Machine::x86, 275, false},
        {"do_select", Machine::x86, 270, true},
        {"do_select", Machine::x86, 7, false},
        {"do_select", Machine::arm, 142, true},
        {"do_select", Machine::arm, 168, false},
        {"pipe_read", Machine::x86, 0, true},
        {"pipe_read", Machine::arm, 0, true},
    };
    for (const auto& row : cases) {
        const BlockedCall call{row.number, 1};
        const unsigned int fd = std::string(row.function) == "do_select" ? 0 : 1;
        EXPECT_EQ(DescriptorOfWait(row.function, call, row.machine, true),
                  row.fits ? std::optional<unsigned int>(fd) : std::nullopt)
            << row.function << " " << row.number;
        EXPECT_EQ(DescriptorOfWait(row.function, call, row.machine, false), fd) << row.function << " " << row.number;
    }
}

TEST(DescriptorOfWait, OfASelectIsZeroIfItWatchesThatAlone) {
    for (const unsigned int count : {0U, 2U, 3U, 0xFFFFFFFFU}) {
        EXPECT_FALSE(DescriptorOfWait("do_select", {270, count}, Machine::x86, true)) << count;
        EXPECT_FALSE(DescriptorOfWait("do_select", {0, count}, Machine::arm, false)) << count;
    }
}

// A process with one descriptor of each kind, and a stack that the kernel shows as empty.
class StacklessWait : public ProcInspectTest {
protected:
    static constexpr int pipe = 3;
    static constexpr int connection = 4;  // listed in net/tcp, with nothing in its queues
    static constexpr int stuck = 5;       // its output waits for the peer
    static constexpr int filled = 6;      // its input waits for the reader
    static constexpr int unixStream = 7;
    static constexpr int terminal = 8;
    static constexpr int regular = 9;

    void SetUp() override {
        ProcInspectTest::SetUp();
        if (!proc) {
            return;
        }
        proc->Add({.pid = pid, .ppid = 77, .exe = "/usr/bin/bash"});
        proc->AddFile(pid, "stack", "");
        proc->AddDescriptor(pid, pipe, objects_.Pipe().path);
        std::string table = tableHeader;
        for (const int fd : {connection, stuck, filled}) {
            table += AddSocket(fd);
        }
        proc->AddFile("net/tcp", table);
        proc->AddDescriptor(pid, unixStream, objects_.Socket().path);
        proc->AddDescriptor(pid, terminal, "/dev/null");
        proc->AddDescriptor(pid, regular, folder_.Write("file", ""));
    }

    // Blocks the process: this text in wchan, and a call with this number and first argument.
    void Block(const std::string& channel, long number, unsigned int argument) {
        proc->AddFile(pid, "wchan", channel);
        char call[64];
        snprintf(call, sizeof(call), "%ld 0x%x 0x7ffd57dc 0x1 0x0 0x0 0x0 0x7ffd57 0x7fb0c9\n", number, argument);
        proc->AddFile(pid, "syscall", call);
    }

    // Expects that a process blocked in this way waits in function alone, or in none if it is empty.
    void ExpectWait(const std::string& function, int fd, bool numbersAreRight) {
        for (const char* asked : functions) {
            struct stat info {};
            EXPECT_EQ(GetBlockedFdStatWithoutStack(pid, asked, numbersAreRight, &info), asked == function)
                << asked << " fd " << fd;
            EXPECT_EQ(info.st_ino, asked == function ? InodeOf(fd) : 0) << asked;
        }
    }

    ino_t InodeOf(int fd) const { return ::InodeOf("/proc/" + std::to_string(pid) + "/fd/" + std::to_string(fd)); }

    void MoveToInput(int fd) {
        const std::filesystem::path folder = proc->Folder() / std::to_string(pid) / "fd";
        std::filesystem::remove(folder / "0");
        std::filesystem::copy_symlink(folder / std::to_string(fd), folder / "0");
    }

private:
    std::string AddSocket(int fd) {
        const KernelObject socket = objects_.Socket();
        proc->AddDescriptor(pid, fd, socket.path);
        const char* queues = fd == stuck    ? "00001000:00000000"
                             : fd == filled ? "00000000:00000005"
                                            : "00000000:00000000";
        return TableLine{.inode = std::to_string(socket.inode), .queues = queues}.Text();
    }

    KernelObjects objects_;
    TemporaryDirectory folder_;
};

TEST_F(StacklessWait, NeedsChannelCallAndKindOfDescriptor) {
    const struct {
        const char* channel;
        long number;
        int fd;
        const char* right;   // the wait, if numbers are right
        const char* unsure;  // the wait otherwise
    } cases[] = {
        {"pipe_read", SYS_read, pipe, "pipe_read", "pipe_read"},
        {"anon_pipe_read", SYS_readv, pipe, "pipe_read", "pipe_read"},
        {"anon_pipe_write", SYS_write, pipe, "", ""},
        {"pipe_read", SYS_read, connection, "", ""},
        {"pipe_read", SYS_read, regular, "", ""},
        {"wait_woken", SYS_read, connection, "inet_recvmsg", "inet_recvmsg"},
        {"wait_woken", SYS_recvfrom, connection, "inet_recvmsg", "inet_recvmsg"},
        {"__skb_wait_for_more_packets", SYS_recvmsg, connection, "inet_recvmsg", "inet_recvmsg"},
        {"wait_woken", SYS_write, stuck, "", ""},
        {"wait_woken", SYS_sendto, stuck, "", ""},
        {"wait_woken", SYS_read, stuck, "inet_recvmsg", ""},
        {"wait_woken", SYS_read, filled, "inet_recvmsg", ""},
        {"wait_woken", SYS_read, unixStream, "", ""},
        {"wait_woken", SYS_read, terminal, "", ""},
        {"wait_woken", SYS_read, pipe, "", ""},
        {"wait_woken", SYS_read, 99, "", ""},
        {"unix_stream_read_generic", SYS_read, unixStream, "unix_stream_recvmsg", "unix_stream_recvmsg"},
        {"unix_stream_read_generic", SYS_splice, unixStream, "", "unix_stream_recvmsg"},
        {"unix_stream_read_generic", SYS_read, connection, "", ""},
        {"__skb_wait_for_more_packets", SYS_recvfrom, unixStream, "", ""},
        {"0", SYS_read, pipe, "", ""},
        {"", SYS_read, connection, "", ""},
    };
    for (const auto& row : cases) {
        SCOPED_TRACE(std::string(row.channel) + " " + std::to_string(row.number));
        Block(row.channel, row.number, static_cast<unsigned int>(row.fd));
        ExpectWait(row.right, row.fd, true);
        ExpectWait(row.unsure, row.fd, false);
    }
    EXPECT_TRUE(Log().empty());
}

TEST_F(StacklessWait, InASelectIsOnDescriptorZeroOfAnyKind) {
    for (const char* channel : {"do_select", "poll_schedule_timeout.constprop.0"}) {
        for (const int fd : {pipe, connection, stuck, filled, unixStream, terminal, regular}) {
            MoveToInput(fd);
            Block(channel, SYS_pselect6, 1);
            ExpectWait("do_select", 0, true);
            ExpectWait("do_select", 0, false);
            Block(channel, SYS_ppoll, 1);
            ExpectWait("", 0, true);
            Block(channel, SYS_pselect6, 3);
            ExpectWait("", 0, true);
            ExpectWait("", 0, false);
        }
    }
}

TEST_F(StacklessWait, IsKnownFromTheTableOfThePassWithoutReadingTheTables) {
    const auto inode = static_cast<unsigned long>(InodeOf(connection));
    socketTable[inode] = {.inode = inode};
    std::filesystem::remove(proc->Folder() / "net" / "tcp");
    Block("wait_woken", SYS_read, connection);
    ExpectWait("inet_recvmsg", connection, true);
    // The queues are not in that table.
    ExpectWait("", connection, false);
}

TEST_F(StacklessWait, IsNotFoundWithoutAFileOrInARunningProcess) {
    struct stat info {};
    for (const char* call : {"", "running\n", "-1 0x7ffd 0x7fb0\n", "0\n"}) {
        Block("pipe_read", SYS_read, pipe);
        proc->AddFile(pid, "syscall", call);
        EXPECT_FALSE(GetBlockedFdStatWithoutStack(pid, "pipe_read", true, &info)) << call;
    }
    for (const char* file : {"wchan", "syscall"}) {
        Block("pipe_read", SYS_read, pipe);
        EXPECT_TRUE(GetBlockedFdStatWithoutStack(pid, "pipe_read", true, &info));
        std::filesystem::remove(proc->Folder() / std::to_string(pid) / file);
        EXPECT_FALSE(GetBlockedFdStatWithoutStack(pid, "pipe_read", true, &info)) << file;
    }
    EXPECT_FALSE(GetBlockedFdStatWithoutStack(pid + 1, "pipe_read", true, &info));
    EXPECT_FALSE(GetBlockedFdStatWithoutStack(-1, "pipe_read", true, &info));
}

TEST_F(StacklessWait, IsNotFoundIfAFileOpensAndCannotBeRead) {
    Block("pipe_read", SYS_read, pipe);
    std::filesystem::remove(proc->Folder() / std::to_string(pid) / "wchan");
    std::filesystem::create_directory(proc->Folder() / std::to_string(pid) / "wchan");
    struct stat info {};
    EXPECT_FALSE(GetBlockedFdStatWithoutStack(pid, "pipe_read", true, &info));
}

TEST_F(StacklessWait, IsReadThroughDescriptorsThatAreClosedOnExec) {
    Block("pipe_read", SYS_read, pipe);
    const int next = dup(0);
    close(next);
    std::vector<int> flags;
    TimeRecorder::AtEachPause([&](size_t) { flags.push_back(fcntl(next, F_GETFD)); });
    EXPECT_TRUE(ReadingFromPipe(pid));
    EXPECT_EQ(flags, (std::vector<int>{FD_CLOEXEC, -1, FD_CLOEXEC})) << "wchan, between the stages, the call";
}

TEST_F(StacklessWait, IsAskedForOnlyIfTheStackIsEmptyOrUnreadable) {
    Block("pipe_read", SYS_read, pipe);
    EXPECT_TRUE(ReadingFromPipe(pid));
    std::filesystem::remove(proc->Folder() / std::to_string(pid) / "stack");
    EXPECT_TRUE(ReadingFromPipe(pid));
    for (const char* stack : {"[<0>] do_wait+0x1/0x2\n", "\n", "x"}) {
        proc->AddFile(pid, "stack", stack);
        EXPECT_FALSE(ReadingFromPipe(pid)) << stack;
    }
}

TEST_F(StacklessWait, SleepsHalfAMillisecondPerFileAndFiveBetweenTheStages) {
    const PauseList file = Repeated(1, halfMillisecond);
    const PauseList stage = Repeated(1, stagePause);
    const struct {
        const char* function;
        const char* channel;
        long number;
        int fd;
        PauseList pauses;
        bool numbersAreRight = true;
    } cases[] = {
        {"pipe_read", "do_wait", SYS_read, pipe, file},
        {"pipe_read", "pipe_read", SYS_read, pipe, file + stage + file},
        {"inet_recvmsg", "wait_woken", SYS_write, stuck, file + stage + file},
        {"inet_recvmsg", "wait_woken", SYS_read, terminal, file + stage + file},
        {"inet_recvmsg", "wait_woken", SYS_read, connection, file + stage + file + stage + file},
        {"unix_stream_recvmsg", "unix_stream_data_wait", SYS_read, unixStream, file + stage + file + stage + file},
        {"inet_recvmsg", "wait_woken", SYS_read, connection, file + stage + file + stage + file, false},
    };
    for (const auto& row : cases) {
        Block(row.channel, row.number, static_cast<unsigned int>(row.fd));
        TimeRecorder::Reset();
        struct stat info {};
        GetBlockedFdStatWithoutStack(pid, row.function, row.numbersAreRight, &info);
        EXPECT_EQ(TimeRecorder::Pauses(), row.pauses) << row.channel << " " << row.fd;
    }
}

}  // namespace
