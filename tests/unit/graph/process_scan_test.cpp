#include <fcntl.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include "graph_fixture.h"

namespace {

using std::chrono::milliseconds;

class ProcessScan : public ProcGraphTest {
protected:
    std::set<int> CandidatePids() const {
        std::set<int> pids;
        for (const ProcPtr& candidate : detector.bashProcs) {
            pids.insert(candidate->pid);
        }
        return pids;
    }

    ProcPtr Candidate(int pid) const {
        for (const ProcPtr& candidate : detector.bashProcs) {
            if (candidate->pid == pid) {
                return candidate;
            }
        }
        return nullptr;
    }
};

TEST_F(ProcessScan, SkipsPidsOneAndTwo) {
    proc->Add({.pid = 1, .ppid = 0, .exe = "/bin/bash"});
    proc->Add({.pid = 2, .ppid = 0, .exe = "/bin/bash"});
    proc->Add({.pid = 3, .ppid = 1, .exe = "/bin/bash"});
    detector.ScanProc();
    EXPECT_EQ(CandidatePids(), std::set<int>{3});
    EXPECT_TRUE(detector.childProcs.empty());
}

TEST_F(ProcessScan, SelectsShellsByTheNameOfTheProgramFile) {
    const struct {
        int pid;
        const char* exe;
        bool candidate;
    } cases[] = {
        {100, "/usr/bin/bash", true},   {101, "/bin/sh", true},
        {102, "/bin/dash", false},      {103, "/usr/bin/rbash", false},
        {104, "/usr/bin/bash5", false}, {105, "/usr/bin/bash (deleted)", false},
        {106, "/usr/bin/zsh", false},   {107, "/opt/bash/python", false},
        {108, "/usr/bin/BASH", false},  {109, "bash", true},
    };
    for (const auto& row : cases) {
        proc->Add({.pid = row.pid, .ppid = 50, .exe = row.exe, .cmdline = std::string("sh\0-i\0", 6)});
    }
    detector.ScanProc();
    for (const auto& row : cases) {
        EXPECT_EQ(CandidatePids().contains(row.pid), row.candidate) << row.exe;
        EXPECT_EQ(detector.childProcs[50].contains(row.pid), !row.candidate) << row.exe;
    }
}

TEST_F(ProcessScan, RecordsThePidAndParentOfACandidate) {
    proc->Add({.pid = 120, .ppid = 77, .exe = "/bin/bash"});
    detector.ScanProc();
    ASSERT_NE(Candidate(120), nullptr);
    EXPECT_EQ(Candidate(120)->ppid, 77);
    EXPECT_TRUE(Candidate(120)->cmdline.empty());
    EXPECT_TRUE(Candidate(120)->exePath.empty());
}

TEST_F(ProcessScan, SkipsOtherEntriesAndUnreadableProcesses) {
    proc->Add({.pid = 200, .ppid = 1, .exe = ""});
    proc->Add({.pid = 201, .ppid = 1, .exe = "/bin/bash", .hasStatus = false});
    std::filesystem::create_directories(proc->Folder() / "12x");
    std::filesystem::create_directories(proc->Folder() / "-5");
    std::filesystem::create_directories(proc->Folder() / "99999999999");
    detector.ScanProc();
    EXPECT_TRUE(detector.bashProcs.empty());
    EXPECT_TRUE(detector.childProcs.empty());
}

TEST_F(ProcessScan, PausesPer100ProcessesThatCount) {
    for (int pid = 1000; pid < 1250; ++pid) {
        proc->Add({.pid = pid, .ppid = 1, .exe = "/bin/cat"});
    }
    for (int pid = 2000; pid < 2100; ++pid) {
        proc->Add({.pid = pid, .ppid = 1, .exe = pid % 2 == 0 ? "" : "/bin/cat", .hasStatus = pid % 2 == 0});
    }
    detector.ScanProc();
    EXPECT_EQ(TimeRecorder::Pauses(), (std::vector<std::chrono::nanoseconds>{milliseconds(50), milliseconds(50)}));
}

TEST_F(ProcessScan, PausesAtTheHundredthProcess) {
    for (int pid = 1000; pid < 1099; ++pid) {
        proc->Add({.pid = pid, .ppid = 1, .exe = "/bin/cat"});
    }
    detector.ScanProc();
    EXPECT_TRUE(TimeRecorder::Pauses().empty());
    EXPECT_EQ(detector.childProcs[1].size(), 99U);
    proc->Add({.pid = 1099, .ppid = 1, .exe = "/bin/cat"});
    detector.ScanProc();
    EXPECT_EQ(TimeRecorder::Pauses().size(), 1U);
}

// As for a process that may open no more files.
TEST_F(ProcessScan, FindsNothingIfProcCannotBeOpened) {
    proc->Add({.pid = 250, .ppid = 1, .exe = "/bin/bash"});
    rlimit files{};
    ASSERT_EQ(getrlimit(RLIMIT_NOFILE, &files), 0);
    const rlimit none{.rlim_cur = 0, .rlim_max = files.rlim_max};
    ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &none), 0);
    detector.ScanProc();
    ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &files), 0);
    EXPECT_TRUE(detector.bashProcs.empty());
}

TEST_F(ProcessScan, AcceptsAProgramWithANameOfOneByte) {
    proc->Add({.pid = 251, .ppid = 60, .exe = "a"});
    detector.ScanProc();
    EXPECT_TRUE(detector.childProcs[60].contains(251));
}

TEST_F(ProcessScan, ReadsAtMostSixDescriptors) {
    proc->Add({.pid = 301, .ppid = 1, .exe = "/bin/bash"});
    for (int fd = 0; fd < 20; ++fd) {
        proc->AddDescriptor(301, fd, Pipe(10000ULL + static_cast<unsigned int>(fd)));
    }
    detector.ScanProc();
    EXPECT_EQ(Candidate(301)->fds.size(), 6U);
}

TEST_F(ProcessScan, KeepsACandidateWithUnreadableDescriptorsAndLogsItTwice) {
    proc->Add({.pid = 310, .ppid = 1, .exe = "/bin/bash", .hasDescriptors = false});
    detector.ScanProc();
    ASSERT_NE(Candidate(310), nullptr);
    EXPECT_TRUE(Candidate(310)->fds.empty());
    ASSERT_EQ(Fake::TheAgent().log.size(), 2U);
    EXPECT_EQ(Fake::TheAgent().log[0].channel, "StartupLog");
    EXPECT_EQ(Fake::TheAgent().log[1].channel, "NormalLog");
    for (const Fake::LogLine& line : Fake::TheAgent().log) {
        EXPECT_EQ(line.text, "Open [310]'s fd dir failed ");
        EXPECT_EQ(line.level, LOG_LEVEL_DETAIL);
    }
}

TEST_F(ProcessScan, AddsTheSiblingsOfACandidateOnce) {
    proc->Add({.pid = 400, .ppid = 90, .exe = "/bin/bash"});
    proc->Add({.pid = 401, .ppid = 90, .exe = "/bin/sh"});
    proc->Add({.pid = 402, .ppid = 90, .exe = "/bin/nc"});
    proc->AddDescriptor(402, 3, Socket(5000));
    proc->Add({.pid = 403, .ppid = 400, .exe = "/bin/cat"});
    proc->AddDescriptor(403, 3, Socket(6000));
    detector.ScanProc();
    EXPECT_FALSE(detector.ipcInodes.contains(5000)) << "descriptors of siblings are read on demand";

    detector.CollectRelatedProc(90);
    ASSERT_EQ(detector.pendingProcs.size(), 1U);
    const ProcPtr sibling = *detector.pendingProcs.begin();
    EXPECT_EQ(sibling->pid, 402);
    EXPECT_EQ(sibling->ppid, 90);
    EXPECT_EQ(sibling->fds[3].inode, 5000U);
    EXPECT_EQ(detector.relatedPids, std::set<int>{402});
    EXPECT_FALSE(detector.childProcs.contains(90));
    EXPECT_FALSE(detector.ipcInodes.contains(6000)) << "the candidate's own children are not added";

    detector.CollectRelatedProc(90);
    EXPECT_EQ(detector.pendingProcs.size(), 1U);
    EXPECT_EQ(detector.ipcInodes[5000].procs.size(), 1U) << "the second candidate adds nothing";
}

TEST_F(ProcessScan, AddsNothingForACandidateWithoutSiblings) {
    proc->Add({.pid = 410, .ppid = 91, .exe = "/bin/bash"});
    detector.ScanProc();
    detector.CollectRelatedProc(91);
    EXPECT_TRUE(detector.pendingProcs.empty());
    EXPECT_TRUE(detector.relatedPids.empty());
}

TEST_F(ProcessScan, SkipsASiblingAlreadyInTheGraph) {
    proc->Add({.pid = 420, .ppid = 92, .exe = "/bin/cat"});
    detector.ScanProc();
    detector.relatedPids.insert(420);
    detector.CollectRelatedProc(92);
    EXPECT_TRUE(detector.pendingProcs.empty());
    EXPECT_FALSE(detector.childProcs.contains(92));
}

// A stopped process with chosen descriptors on the real /proc, where the kernel determines the directory order.
class SleepingChild {
public:
    // Opens a pipe at each of pipeDescriptors and the null device at each of nullDescriptors, nothing else.
    explicit SleepingChild(const std::set<int>& pipeDescriptors, const std::set<int>& nullDescriptors = {}) {
        int ends[2];
        if (pipe2(ends, O_CLOEXEC) != 0) {
            return;
        }
        pid_ = fork();
        if (pid_ == 0) {
            const int high = fcntl(ends[0], F_DUPFD, 100);
            for (int fd = 0; fd < 100; ++fd) {
                close(fd);
            }
            for (const int fd : pipeDescriptors) {
                dup2(high, fd);
            }
            const int null = open("/dev/null", O_RDONLY);
            const int highNull = fcntl(null, F_DUPFD, 101);
            close(null);
            for (const int fd : nullDescriptors) {
                dup2(highNull, fd);
            }
            close(high);
            close(highNull);
            kill(getpid(), SIGSTOP);
            _exit(0);
        }
        close(ends[0]);
        close(ends[1]);
        if (pid_ > 0) {
            waitpid(pid_, nullptr, WUNTRACED);
        }
    }

    ~SleepingChild() {
        if (pid_ > 0) {
            kill(pid_, SIGKILL);
            waitpid(pid_, nullptr, 0);
        }
    }
    SleepingChild(const SleepingChild&) = delete;
    SleepingChild& operator=(const SleepingChild&) = delete;

    int Pid() const { return pid_; }

private:
    pid_t pid_ = -1;
};

class LiveDescriptors : public GraphTest {
protected:
    std::set<int> Recorded(const std::set<int>& pipes, const std::set<int>& nulls = {}) {
        const SleepingChild child(pipes, nulls);
        const auto record = std::make_shared<ReverseShellDetector::ProcInfomation>();
        record->pid = child.Pid();
        detector.GetProcFdInfo(record);
        std::set<int> fds;
        for (const auto& [fd, held] : record->fds) {
            fds.insert(fd);
        }
        return fds;
    }
};

TEST_F(LiveDescriptors, AreReadUpToTheSixth) {
    EXPECT_EQ(Recorded({0, 1, 2, 3, 4, 5, 6}), (std::set<int>{0, 1, 2, 3, 4, 5}));
}

TEST_F(LiveDescriptors, AreIgnoredAfterSixOthers) {
    EXPECT_TRUE(Recorded({0, 1, 2, 3}).contains(3));
    EXPECT_FALSE(Recorded({0, 1, 2, 3, 4, 5, 9}).contains(9));
}

TEST_F(LiveDescriptors, AreTheLowestSixOpenOnes) {
    EXPECT_EQ(Recorded({1, 4, 9, 20, 50, 51, 52}), (std::set<int>{1, 4, 9, 20, 50, 51}));
}

TEST_F(LiveDescriptors, CountTowardsTheLimitWithAnyContent) {
    EXPECT_TRUE(Recorded({6}, {0, 1, 2, 3, 4, 5}).empty());
    EXPECT_EQ(Recorded({5, 6}, {0, 1, 2, 3, 4}), std::set<int>{5});
}

TEST_F(LiveDescriptors, OfAProcessThatIsGoneAreNoError) {
    const auto record = std::make_shared<ReverseShellDetector::ProcInfomation>();
    {
        const SleepingChild child({0});
        record->pid = child.Pid();
    }
    detector.GetProcFdInfo(record);
    EXPECT_TRUE(record->fds.empty());
    EXPECT_EQ(Fake::TheAgent().log.size(), 2U);
}

}  // namespace
