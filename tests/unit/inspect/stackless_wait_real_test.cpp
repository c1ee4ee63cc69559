// Real processes that sleep in every known way, asked about with the stack that the kernel shows and without it.
#include <poll.h>
#include <sys/epoll.h>
#include <sys/eventfd.h>
#include <sys/syscall.h>
#include <sys/uio.h>
#include <time.h>

#include <cstdlib>

#include "inspect/blocked_call.h"
#include "inspect/stackless_wait.h"
#include "real_wait.h"
#include "tests/support/emulation.h"
#include "tests/support/proc_tree.h"

namespace {

constexpr size_t blockSize = 65536;

Ends UnixStreams() {
    int ends[2] = {-1, -1};
    EXPECT_EQ(socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends), 0);
    return {OwnedDescriptor(ends[0]), OwnedDescriptor(ends[1])};
}

Ends UnixDatagrams() {
    int ends[2] = {-1, -1};
    EXPECT_EQ(socketpair(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0, ends), 0);
    return {OwnedDescriptor(ends[0]), OwnedDescriptor(ends[1])};
}

Ends Udp() {
    Address address;
    return {BindToLoopback(AF_INET, SOCK_DGRAM, 0, address), OwnedDescriptor()};
}

Ends Tcp() {
    return MakeTcp(AF_INET);
}

Ends Listener() {
    Address address;
    OwnedDescriptor listener = BindToLoopback(AF_INET, SOCK_STREAM, 0, address);
    EXPECT_EQ(listen(listener.Get(), 1), 0);
    return {std::move(listener), OwnedDescriptor()};
}

Ends Fifo() {
    const TemporaryDirectory folder;
    EXPECT_EQ(mkfifo(folder.Path("fifo").c_str(), 0600), 0);
    return {OwnedDescriptor(open(folder.Path("fifo").c_str(), O_RDWR | O_CLOEXEC)), OwnedDescriptor()};
}

Ends Terminal() {
    OwnedDescriptor master(open("/dev/ptmx", O_RDWR | O_NOCTTY | O_CLOEXEC));
    EXPECT_EQ(grantpt(master.Get()), 0);
    EXPECT_EQ(unlockpt(master.Get()), 0);
    const char* name = ptsname(master.Get());
    OwnedDescriptor slave(open(name == nullptr ? "" : name, O_RDWR | O_NOCTTY | O_CLOEXEC));
    return {std::move(slave), std::move(master)};
}

Ends PipeForWriting() {
    Ends pipe = MakePipe();
    return {std::move(pipe.other), std::move(pipe.reading)};
}

Ends Eventfd() {
    return {OwnedDescriptor(eventfd(0, EFD_CLOEXEC)), OwnedDescriptor()};
}

Ends None() {
    return {OwnedDescriptor(open("/dev/null", O_RDONLY | O_CLOEXEC)), OwnedDescriptor()};
}

// An eventfd refuses a read of less than eight bytes.
void Read(int fd) {
    char bytes[8];
    static_cast<void>(!read(fd, bytes, sizeof(bytes)));
}

void Readv(int fd) {
    char byte = 0;
    const iovec part{&byte, 1};
    static_cast<void>(!readv(fd, &part, 1));
}

void Recv(int fd) {
    char byte = 0;
    recv(fd, &byte, 1, 0);
}

void Recvfrom(int fd) {
    char byte = 0;
    sockaddr_storage from{};
    socklen_t length = sizeof(from);
    recvfrom(fd, &byte, 1, 0, reinterpret_cast<sockaddr*>(&from), &length);
}

void Recvmsg(int fd) {
    char byte = 0;
    iovec part{&byte, 1};
    msghdr message{};
    message.msg_iov = &part;
    message.msg_iovlen = 1;
    static_cast<void>(recvmsg(fd, &message, 0));
}

void Recvmmsg(int fd) {
    char byte = 0;
    iovec part{&byte, 1};
    mmsghdr message{};
    message.msg_hdr.msg_iov = &part;
    message.msg_hdr.msg_iovlen = 1;
    recvmmsg(fd, &message, 1, 0, nullptr);
}

void WriteUntilFull(int fd) {
    static char block[blockSize];
    while (write(fd, block, sizeof(block)) > 0) {
    }
}

void SendUntilFull(int fd) {
    static char block[blockSize];
    while (send(fd, block, sizeof(block), 0) > 0) {
    }
}

void Splice(int fd) {
    int ends[2];
    static_cast<void>(!pipe(ends));
    splice(fd, nullptr, ends[1], nullptr, 1, 0);
}

void Accept(int fd) {
    accept(fd, nullptr, nullptr);
}

void SelectOf(int fd, int count) {
    fd_set watched;
    FD_ZERO(&watched);
    for (int number = 0; number < count; ++number) {
        dup2(fd, number);
        FD_SET(number, &watched);
    }
    select(count, &watched, nullptr, nullptr, nullptr);
}

void Select(int fd) {
    SelectOf(fd, 1);
}

void SelectOfThree(int fd) {
    SelectOf(fd, 3);
}

void Pselect(int fd) {
    dup2(fd, 0);
    fd_set watched;
    FD_ZERO(&watched);
    FD_SET(0, &watched);
    const timespec limit{600, 0};
    pselect(1, &watched, nullptr, nullptr, &limit, nullptr);
}

void Poll(int fd) {
    dup2(fd, 0);
    pollfd watched{0, POLLIN, 0};
    poll(&watched, 1, -1);
}

void Epoll(int fd) {
    const int instance = epoll_create1(0);
    epoll_event event{};
    event.events = EPOLLIN;
    epoll_ctl(instance, EPOLL_CTL_ADD, fd, &event);
    epoll_wait(instance, &event, 1, -1);
}

void Futex(int) {
    int word = 0;
    syscall(SYS_futex, &word, 0, 0, nullptr, nullptr, 0);
}

void Nanosleep(int) {
    const timespec length{600, 0};
    clock_nanosleep(CLOCK_MONOTONIC, 0, &length, nullptr);
}

void Wait4(int) {
    const pid_t child = fork();
    if (child == 0) {
        prctl(PR_SET_PDEATHSIG, SIGKILL);
        pause();
    }
    waitpid(child, nullptr, 0);
}

struct Way {
    const char* name;
    Ends (*make)();
    void (*block)(int fd);
    const char* answer;                   // the only question that is true; empty for none
    const char* withoutNumber = nullptr;  // the same where call numbers are not right, if it differs
};

constexpr char pipeRead[] = "ReadingFromPipe";
constexpr char pipeSelect[] = "SelectFromPipe";
constexpr char socketRead[] = "ReadingFromSock";
constexpr char socketSelect[] = "SelectFromSock";
constexpr char unixRead[] = "ReadingFromUnixSock";

const Way ways[] = {
    {"read of a pipe", MakePipe, Read, pipeRead},
    {"readv of a pipe", MakePipe, Readv, pipeRead},
    {"read of a FIFO", Fifo, Read, pipeRead},
    {"write to a full pipe", PipeForWriting, WriteUntilFull, ""},
    {"read of TCP", Tcp, Read, socketRead},
    {"readv of TCP", Tcp, Readv, socketRead},
    {"recv of TCP", Tcp, Recv, socketRead},
    {"recvfrom of TCP", Tcp, Recvfrom, socketRead},
    {"recvmsg of TCP", Tcp, Recvmsg, socketRead},
    {"recvmmsg of TCP", Tcp, Recvmmsg, socketRead},
    {"read of UDP", Udp, Read, socketRead},
    {"recvmsg of UDP", Udp, Recvmsg, socketRead},
    {"write to a full TCP socket", Tcp, WriteUntilFull, ""},
    {"send to a full TCP socket", Tcp, SendUntilFull, ""},
    {"splice of TCP", Tcp, Splice, "", socketRead},
    {"accept", Listener, Accept, ""},
    {"read of a Unix stream", UnixStreams, Read, unixRead},
    {"recvfrom of a Unix stream", UnixStreams, Recvfrom, unixRead},
    {"write to a full Unix stream", UnixStreams, WriteUntilFull, ""},
    {"splice of a Unix stream", UnixStreams, Splice, "", unixRead},
    {"recv of Unix datagrams", UnixDatagrams, Recv, ""},
    {"read of a terminal", Terminal, Read, ""},
    {"read of an eventfd", Eventfd, Read, ""},
    {"select on a pipe", MakePipe, Select, pipeSelect},
    {"pselect on a pipe", MakePipe, Pselect, pipeSelect},
    {"select on TCP", Tcp, Select, socketSelect},
    {"pselect on TCP", Tcp, Pselect, socketSelect},
    {"select on a Unix stream", UnixStreams, Select, socketSelect},
    {"select on a terminal", Terminal, Select, ""},
    {"select on three descriptors", Tcp, SelectOfThree, ""},
    {"poll of a pipe", MakePipe, Poll, ""},
    {"poll of TCP", Tcp, Poll, ""},
    {"epoll of TCP", Tcp, Epoll, ""},
    {"futex", None, Futex, ""},
    {"nanosleep", None, Nanosleep, ""},
    {"wait4", None, Wait4, ""},
};

std::string FileOf(const ForkedProcess& child, const char* name) {
    return FileText("/proc/" + std::to_string(child.Pid()) + "/" + name);
}

// True once the child has been asleep in one call for a while: a writer sleeps for moments before the buffer is full.
bool AwaitLongSleep(const ForkedProcess& child) {
    std::string before;
    int unchanged = 0;
    return AwaitInRealTime([&] {
        const std::string status = FileOf(child, "status");
        const std::string now = FileOf(child, "syscall") + status.substr(status.find("voluntary"));
        const bool sleeps = FileOf(child, "stat").find(") S ") != std::string::npos;
        unchanged = sleeps && now == before ? unchanged + 1 : 0;
        before = now;
        return unchanged == 20;
    });
}

class EveryWait : public RealWait {
protected:
    void SetUp() override {
        RealWait::SetUp();
        if (thisMachine == Machine::x86 && sizeof(void*) == 4) {
            GTEST_SKIP() << "i386 programs receive by socketcall(2), whose first argument is no descriptor";
        }
        if (!IsSkipped() && !MayMount()) {
            GTEST_SKIP() << "needs the right to mount a file over /proc/<pid>/stack (root)";
        }
    }

    static std::string FilesOf(const ForkedProcess& child) {
        return "stack " + FileOf(child, "stack") + "wchan " + FileOf(child, "wchan") + "\nsyscall " +
               FileOf(child, "syscall");
    }

    static bool ShowsChannel(const ForkedProcess& child) { return FileOf(child, "wchan") != "0"; }
};

TEST_F(EveryWait, IsJudgedTheSameWithAndWithoutTheStack) {
    if (runsEmulated) {
        GTEST_SKIP() << "the kernel shows call numbers of its own processor, not of the emulated one";
    }
    for (const Way& way : ways) {
        SCOPED_TRACE(way.name);
        const Ends ends = way.make();
        const int fd = ends.reading.Get();
        const ForkedProcess child([&] { way.block(fd); });
        ASSERT_TRUE(AwaitLongSleep(child));
        SCOPED_TRACE(FilesOf(child));
        ExpectAnswer(child, way.answer, fd);
        if (!ShowsChannel(child)) {
            GTEST_SKIP() << "needs a kernel that names waits in /proc/<pid>/wchan";
        }
        const FileOverlay hidden("/proc/" + std::to_string(child.Pid()) + "/stack", "");
        ASSERT_EQ(FileOf(child, "stack"), "");
        ExpectAnswer(child, way.answer, fd);
    }
}

TEST_F(EveryWait, IsJudgedTheSameWithoutCallNumbers) {
    const struct {
        const char* function;
        const char* answer;
    } rows[] = {
        {"pipe_read", pipeRead}, {"inet_recvmsg", socketRead}, {"unix_stream_recvmsg", unixRead}, {"do_select", ""}};
    for (const Way& way : ways) {
        SCOPED_TRACE(way.name);
        const Ends ends = way.make();
        const ForkedProcess child([&] { way.block(ends.reading.Get()); });
        ASSERT_TRUE(AwaitLongSleep(child));
        if (!ShowsChannel(child)) {
            GTEST_SKIP() << "needs a kernel that names waits in /proc/<pid>/wchan";
        }
        const std::string answer = way.withoutNumber == nullptr ? way.answer : way.withoutNumber;
        // The type of the descriptor is judged by the caller.
        const bool selects = way.block == Select || way.block == Pselect;
        for (const auto& row : rows) {
            const bool expected = row.function == std::string("do_select") ? selects : answer == row.answer;
            struct stat info {};
            EXPECT_EQ(GetBlockedFdStatWithoutStack(child.Pid(), row.function, false, &info), expected)
                << row.function << "\n"
                << FilesOf(child);
        }
    }
}

}  // namespace
