#include "inspect/process_snapshot.h"

#include <sys/mount.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>
#include <sys/un.h>
#include <unistd.h>

#include <algorithm>
#include <cstring>

#include "inspect_fixture.h"

namespace {

using namespace std::string_literals;
using std::chrono::microseconds;
using std::chrono::milliseconds;

using Inodes = std::set<unsigned long>;

constexpr int pid = 4242;
constexpr milliseconds stepPause{10};
constexpr milliseconds entryPause{5};
constexpr milliseconds descriptorPause{1};
constexpr microseconds manyDescriptorsPause{400};

// The pauses before the descriptors: after exe, per line of the status file up to the parent's pid, for the command
// line, and after it.
PauseList PausesBeforeDescriptors(size_t commandLineBytes) {
    PauseList pauses = Repeated(1, stepPause) + Repeated(7, halfMillisecond);
    if (commandLineBytes > 0) {
        pauses = pauses + Repeated(1, milliseconds(1)) + Repeated(commandLineBytes, halfMillisecond);
    }
    return pauses + Repeated(1, stepPause);
}

unsigned long InodeOf(const std::string& path) {
    struct stat info {};
    EXPECT_EQ(stat(path.c_str(), &info), 0) << path;
    return static_cast<unsigned long>(info.st_ino);
}

void MakeSocket(const std::string& path) {
    const int fd = socket(AF_UNIX, SOCK_STREAM, 0);
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    path.copy(address.sun_path, sizeof(address.sun_path) - 1);
    EXPECT_EQ(bind(fd, reinterpret_cast<const sockaddr*>(&address), sizeof(address)), 0) << path;
    close(fd);
}

class ProcessSnapshot : public ProcInspectTest {
protected:
    void AddProcess(int ppid = 77, const std::string& cmdline = {}) {
        proc->Add({.pid = pid, .ppid = ppid, .exe = "/usr/bin/bash", .cmdline = cmdline});
    }

    std::string MakeFifo(const std::string& name) const {
        EXPECT_EQ(mkfifo(folder.Path(name).c_str(), 0600), 0);
        return folder.Path(name);
    }

    std::string MakeDevice(const std::string& name, unsigned int major, unsigned int minor) const {
        EXPECT_EQ(mknod(folder.Path(name).c_str(), S_IFCHR | 0600, makedev(major, minor)), 0);
        return folder.Path(name);
    }

    // Opens the pipe as descriptor fd, with these flags in fdinfo.
    void HoldPipe(int fd, const std::string& fifo, const std::string& flags) {
        proc->AddDescriptor(pid, fd, fifo);
        proc->AddFile(pid, "fdinfo/" + std::to_string(fd), "pos:\t0\nflags:\t" + flags + "\nmnt_id:\t15\n");
    }

    ProcInfo Snapshot() {
        ProcInfo info;
        TimeRecorder::Reset();
        EXPECT_EQ(GetProcInfo(pid, info), 1);
        return info;
    }

    const TemporaryDirectory folder;
};

TEST_F(ProcessSnapshot, HasTheProgramOfTheProcess) {
    AddProcess(77, "bash\0-i\0"s);
    const ProcInfo info = Snapshot();
    EXPECT_EQ(info.pid, pid);
    EXPECT_EQ(info.ppid, 77);
    EXPECT_EQ(info.path, "/usr/bin/bash");
    EXPECT_EQ(info.cmdline, "bash -i");
    EXPECT_EQ(info.reserved, "");
}

TEST_F(ProcessSnapshot, OfAProcessWithoutDescriptorsHasEmptySets) {
    AddProcess();
    const ProcInfo info = Snapshot();
    EXPECT_TRUE(info.readPipes.empty());
    EXPECT_TRUE(info.writePipes.empty());
    EXPECT_TRUE(info.sockets.empty());
    EXPECT_FALSE(info.hasPtmx);
    EXPECT_FALSE(info.hasPts);
}

TEST_F(ProcessSnapshot, IsTakenIfDescriptorsCannotBeRead) {
    proc->Add({.pid = pid, .ppid = 77, .exe = "/usr/bin/bash", .hasDescriptors = false});
    EXPECT_TRUE(Snapshot().sockets.empty());
    EXPECT_EQ(TimeRecorder::Pauses(), PausesBeforeDescriptors(0));
    EXPECT_TRUE(Log().empty());
}

TEST_F(ProcessSnapshot, IsNotTakenOfAKernelThread) {
    proc->Add({.pid = pid, .ppid = 2, .exe = ""});
    ProcInfo info;
    EXPECT_EQ(GetProcInfo(pid, info), 0);
    EXPECT_EQ(GetProcInfo(pid + 1, info), 0) << "no such process";
    EXPECT_TRUE(TimeRecorder::Pauses().empty());
    EXPECT_EQ(info.pid, 0);
    EXPECT_EQ(info.ppid, 0);
    EXPECT_FALSE(info.hasPtmx);
    EXPECT_FALSE(info.hasPts);
}

TEST_F(ProcessSnapshot, IsNotTakenWithoutAParent) {
    AddProcess(0, "init\0"s);
    ProcInfo info;
    EXPECT_EQ(GetProcInfo(pid, info), 0);
    EXPECT_EQ(TimeRecorder::Pauses(), Repeated(1, stepPause) + Repeated(7, halfMillisecond));
    EXPECT_EQ(info.path, "");
    proc->AddFile(pid, "status", "PPid:\t-5\n");
    EXPECT_EQ(GetProcInfo(pid, info), 0);
    proc->AddFile(pid, "status", "");
    EXPECT_EQ(GetProcInfo(pid, info), 0) << "the process has gone";
}

TEST_F(ProcessSnapshot, IsTakenOfAChildOfInit) {
    AddProcess(1);
    EXPECT_EQ(Snapshot().ppid, 1);
}

TEST_F(ProcessSnapshot, SleepsTwiceAndPerByteOfTheCommandLineBeforeTheDescriptors) {
    AddProcess(77, std::string(200, 'a'));
    Snapshot();
    EXPECT_EQ(TimeRecorder::Pauses(), PausesBeforeDescriptors(200));
}

TEST_F(ProcessSnapshot, SortsPipesByTheirAccessMode) {
    AddProcess();
    const struct {
        const char* flags;
        bool read;
        bool write;
    } cases[] = {
        {"00", true, false},       {"01", false, true},       {"02", true, true},
        {"03", false, false},      {"0100000", true, false},  {"02101", false, true},
        {"0104002", true, true},   {"0100003", false, false}, {"", false, false},
        {"0", true, false},        {"8", true, false},        {"37777777776", true, true},
        {"\xff\x01", true, false}, {"19", false, true},       {"0777777777777777777777777", false, false},
    };
    int fd = 10;
    for (const auto& row : cases) {
        SCOPED_TRACE(row.flags);
        const std::string fifo = MakeFifo("fifo" + std::to_string(++fd));
        HoldPipe(fd, fifo, row.flags);
        const ProcInfo info = Snapshot();
        EXPECT_EQ(info.readPipes.contains(InodeOf(fifo)), row.read);
        EXPECT_EQ(info.writePipes.contains(InodeOf(fifo)), row.write);
        EXPECT_TRUE(info.sockets.empty());
    }
}

TEST_F(ProcessSnapshot, PutsAPipeIntoTheSetsOfAllItsDescriptors) {
    AddProcess();
    const std::string fifo = MakeFifo("fifo");
    HoldPipe(3, fifo, "0100000");
    HoldPipe(4, fifo, "0100001");
    const ProcInfo info = Snapshot();
    EXPECT_EQ(info.readPipes, Inodes{InodeOf(fifo)});
    EXPECT_EQ(info.writePipes, Inodes{InodeOf(fifo)});
}

TEST_F(ProcessSnapshot, SkipsAPipeIfItsModeCannotBeRead) {
    AddProcess();
    proc->AddDescriptor(pid, 3, MakeFifo("fifo"));
    const ProcInfo info = Snapshot();
    EXPECT_TRUE(info.readPipes.empty());
    EXPECT_TRUE(info.writePipes.empty());
    proc->AddFile(pid, "fdinfo/3", "pos:\t0\nmnt_id:\t15\n");
    EXPECT_TRUE(Snapshot().readPipes.empty());
}

TEST_F(ProcessSnapshot, CollectsSockets) {
    AddProcess();
    MakeSocket(folder.Path("one"));
    MakeSocket(folder.Path("two"));
    proc->AddDescriptor(pid, 3, folder.Path("one"));
    proc->AddDescriptor(pid, 4, folder.Path("two"));
    proc->AddDescriptor(pid, 5, folder.Path("one"));
    const ProcInfo info = Snapshot();
    EXPECT_EQ(info.sockets, (Inodes{InodeOf(folder.Path("one")), InodeOf(folder.Path("two"))}));
    EXPECT_TRUE(info.readPipes.empty());
}

// Two file systems that number their files in the same way.
TEST_F(ProcessSnapshot, DistinguishesASocketFromAPipeWithTheSameInode) {
    AddProcess();
    for (const char* name : {"one", "two"}) {
        std::filesystem::create_directory(folder.Path(name));
        ASSERT_EQ(mount("tmpfs", folder.Path(name).c_str(), "tmpfs", 0, nullptr), 0);
    }
    const std::string fifo = MakeFifo("one/fifo");
    MakeSocket(folder.Path("two/socket"));
    const unsigned long inode = InodeOf(fifo);
    const bool alike = inode == InodeOf(folder.Path("two/socket"));
    HoldPipe(3, fifo, "00");
    ProcInfo onlyPipe = Snapshot();
    proc->AddDescriptor(pid, 4, folder.Path("two/socket"));
    const ProcInfo both = Snapshot();
    umount2(folder.Path("one").c_str(), MNT_DETACH);
    umount2(folder.Path("two").c_str(), MNT_DETACH);
    if (!alike) {
        GTEST_SKIP() << "needs a kernel that numbers the files of each tmpfs by itself (5.9 or later)";
    }
    EXPECT_TRUE(onlyPipe.sockets.empty());
    EXPECT_EQ(both.readPipes, Inodes{inode});
    EXPECT_EQ(both.sockets, Inodes{inode});
}

TEST_F(ProcessSnapshot, RecognisesPtyDevices) {
    const struct {
        unsigned int major;
        unsigned int minor;
        bool ptmx;
        bool pts;
    } cases[] = {
        {5, 2, true, false},                                                     // /dev/ptmx
        {136, 0, false, true},                                                   // /dev/pts/0
        {136, 255, false, true},                                                 // /dev/pts/255
        {136, 256, false, false}, {137, 0, false, false}, {1, 3, false, false},  // /dev/null
        {4, 1, false, false},                                                    // /dev/tty1
        {5, 0, false, false},                                                    // /dev/tty
        {5, 1, false, false},                                                    // /dev/console
        {5, 3, false, false},                                                    // /dev/ttyprintk
        {5, 258, false, false},   {135, 2, false, false}, {2, 5, false, false},
    };
    AddProcess();
    for (const auto& row : cases) {
        SCOPED_TRACE(std::to_string(row.major) + ":" + std::to_string(row.minor));
        const std::filesystem::path descriptor = proc->Folder() / std::to_string(pid) / "fd/3";
        std::filesystem::remove(descriptor);
        proc->AddDescriptor(pid, 3, MakeDevice(std::to_string(row.major * 1000 + row.minor), row.major, row.minor));
        const ProcInfo info = Snapshot();
        EXPECT_EQ(info.hasPtmx, row.ptmx);
        EXPECT_EQ(info.hasPts, row.pts);
    }
}

TEST_F(ProcessSnapshot, DoesNotTakeABlockDeviceForAPty) {
    AddProcess();
    ASSERT_EQ(mknod(folder.Path("disk").c_str(), S_IFBLK | 0600, makedev(136, 0)), 0);
    proc->AddDescriptor(pid, 3, folder.Path("disk"));
    EXPECT_FALSE(Snapshot().hasPts);
}

TEST_F(ProcessSnapshot, ClearsTheFlagsAndAddsToTheSets) {
    AddProcess();
    ProcInfo info;
    info.hasPtmx = true;
    info.hasPts = true;
    info.sockets = {5};
    info.reserved = "kept";
    EXPECT_EQ(GetProcInfo(pid, info), 1);
    EXPECT_FALSE(info.hasPtmx);
    EXPECT_FALSE(info.hasPts);
    EXPECT_EQ(info.sockets, Inodes{5});
    EXPECT_EQ(info.reserved, "kept");
}

TEST_F(ProcessSnapshot, SkipsOtherFilesAndThoseWithoutStat) {
    AddProcess();
    proc->AddDescriptor(pid, 0, folder.Write("file", ""));
    proc->AddDescriptor(pid, 1, folder.Path());
    proc->AddDescriptor(pid, 2, "socket:[77]");
    proc->AddDescriptor(pid, 3, "/nowhere");
    proc->AddDescriptorEntry(pid, "no \xff number\n", "/nowhere");
    const ProcInfo info = Snapshot();
    EXPECT_TRUE(info.readPipes.empty());
    EXPECT_TRUE(info.sockets.empty());
    EXPECT_EQ(CountOf(TimeRecorder::Pauses(), descriptorPause), 2U) << "one per descriptor with a stat";
    EXPECT_EQ(CountOf(TimeRecorder::Pauses(), entryPause), 5U);
    EXPECT_TRUE(Log().empty());
}

PauseList Without(PauseList pauses, std::chrono::nanoseconds length) {
    std::erase(pauses, length);
    return pauses;
}

TEST_F(ProcessSnapshot, SleepsPerDescriptorInBothLoops) {
    AddProcess();
    for (int fd = 0; fd < 20; ++fd) {
        proc->AddDescriptor(pid, fd, "/dev/null");
    }
    Snapshot();
    EXPECT_EQ(Without(TimeRecorder::Pauses(), manyDescriptorsPause),
              PausesBeforeDescriptors(0) + Repeated(20, entryPause) + Repeated(1, milliseconds(1)) +
                  Repeated(20, descriptorPause));
}

TEST_F(ProcessSnapshot, SleepsPerLineOfAPipesMode) {
    AddProcess();
    HoldPipe(3, MakeFifo("fifo"), "00");
    Snapshot();
    EXPECT_EQ(Without(TimeRecorder::Pauses(), manyDescriptorsPause),
              PausesBeforeDescriptors(0) + Repeated(1, entryPause) + Repeated(1, descriptorPause) +
                  Repeated(2, halfMillisecond));
}

TEST_F(ProcessSnapshot, SleepsAfterEachTwoHundredDescriptorsOfAllSnapshots) {
    AddProcess();
    for (int fd = 0; fd < 150; ++fd) {
        proc->AddDescriptor(pid, fd, "/dev/null");
    }
    PauseList looks;
    for (int i = 0; i < 4; ++i) {
        Snapshot();
        PauseList pauses = TimeRecorder::Pauses();
        // The walk over 150 entries has 7 further pauses of 1 ms.
        ASSERT_EQ(CountOf(pauses, milliseconds(1)), 150U + 7U);
        pauses.erase(pauses.begin(), std::find(pauses.rbegin(), pauses.rend(), entryPause).base());
        looks = looks + pauses;
    }
    EXPECT_EQ(CountOf(looks, descriptorPause), 600U);
    ASSERT_EQ(CountOf(looks, manyDescriptorsPause), 3U);
    const auto first = std::find(looks.begin(), looks.end(), manyDescriptorsPause);
    const auto second = std::find(first + 1, looks.end(), manyDescriptorsPause);
    const auto third = std::find(second + 1, looks.end(), manyDescriptorsPause);
    EXPECT_EQ(second - first, 201);
    EXPECT_EQ(third - second, 201);
}

TEST_F(ProcessSnapshot, ExaminesTenThousandAndOneDescriptors) {
    AddProcess();
    // Creating many entries is fastest in memory. The mount is removed with the tree.
    ASSERT_EQ(mount("tmpfs", "/proc/4242/fd", "tmpfs", 0, nullptr), 0);
    for (int fd = 0; fd < 10002; ++fd) {
        std::filesystem::create_symlink("/dev/null", "/proc/4242/fd/" + std::to_string(fd));
    }
    Snapshot();
    EXPECT_EQ(CountOf(TimeRecorder::Pauses(), entryPause), 10001U);
    EXPECT_EQ(CountOf(TimeRecorder::Pauses(), milliseconds(1)), 10001U + 500U);
    ExpectLogged(LOG_LEVEL_DETAIL, "detect_shell", "Directory files exceed.[maxFileNum=10000 dir_path=/proc/4242/fd]");
}

TEST_F(ProcessSnapshot, IsIncompleteIfTheModuleStopsMeanwhile) {
    AddProcess();
    for (int fd = 0; fd < 3; ++fd) {
        MakeSocket(folder.Path(std::to_string(fd)));
        proc->AddDescriptor(pid, fd, folder.Path(std::to_string(fd)));
    }
    const size_t walk = PausesBeforeDescriptors(0).size() + 3;
    StopAtPause(walk + 2);
    ProcInfo info;
    EXPECT_EQ(GetProcInfo(pid, info), 1);
    EXPECT_EQ(info.sockets.size(), CountOf(TimeRecorder::Pauses(), descriptorPause));
    EXPECT_LT(info.sockets.size(), 3U);
    EXPECT_GT(info.sockets.size(), 0U);
    ExpectLogged(LOG_LEVEL_DETAIL, "detect_shell", "thread was stopped by StopModule run.[run=0]");
}

TEST_F(ProcessSnapshot, HasNoDescriptorsIfTheModuleHasStopped) {
    AddProcess();
    MakeSocket(folder.Path("socket"));
    proc->AddDescriptor(pid, 3, folder.Path("socket"));
    moduleRunning = 0;
    ProcInfo info;
    EXPECT_EQ(GetProcInfo(pid, info), 1);
    EXPECT_EQ(info.path, "/usr/bin/bash");
    EXPECT_TRUE(info.sockets.empty());
}

TEST_F(ProcessSnapshot, IsIncompleteIfTheProcessEndsMeanwhile) {
    AddProcess();
    MakeSocket(folder.Path("socket"));
    proc->AddDescriptor(pid, 3, folder.Path("socket"));
    const size_t walk = PausesBeforeDescriptors(0).size() + 1;
    TimeRecorder::AtEachPause([&](size_t number) {
        if (number == walk) {
            std::filesystem::remove_all(proc->Folder() / std::to_string(pid));
        }
    });
    ProcInfo info;
    EXPECT_EQ(GetProcInfo(pid, info), 1);
    EXPECT_TRUE(info.sockets.empty());
    EXPECT_EQ(info.ppid, 77);
}

class ThisHostsSnapshot : public InspectTest {};

TEST_F(ThisHostsSnapshot, HasTheDescriptorsOfThisProcess) {
    int pipe[2];
    ASSERT_EQ(pipe2(pipe, O_CLOEXEC), 0);
    const int sock = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    const int ptmx = open("/dev/ptmx", O_RDWR | O_NOCTTY | O_CLOEXEC);
    const auto inode = [](int fd) {
        struct stat info {};
        EXPECT_EQ(fstat(fd, &info), 0);
        return static_cast<unsigned long>(info.st_ino);
    };
    ProcInfo info;
    EXPECT_EQ(GetProcInfo(getpid(), info), 1);
    EXPECT_EQ(info.path, std::filesystem::read_symlink("/proc/self/exe"));
    EXPECT_EQ(info.ppid, getppid());
    EXPECT_TRUE(info.readPipes.contains(inode(pipe[0])));
    EXPECT_TRUE(info.writePipes.contains(inode(pipe[1])));
    EXPECT_TRUE(info.sockets.contains(inode(sock)));
    EXPECT_FALSE(info.readPipes.contains(inode(sock)));
    EXPECT_EQ(info.hasPtmx, ptmx >= 0);
    for (const int fd : {pipe[0], pipe[1], sock, ptmx}) {
        close(fd);
    }
}

TEST_F(ThisHostsSnapshot, IsNotTakenOfTheFirstProcess) {
    ProcInfo info;
    EXPECT_EQ(GetProcInfo(1, info), 0);
}

}  // namespace
