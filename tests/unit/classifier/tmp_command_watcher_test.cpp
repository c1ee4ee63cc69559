#include <atomic>
#include <chrono>
#include <thread>

#include "module/published.h"
#include "tests/support/failing_calls.h"
#include "tmp_command_fixture.h"

namespace {

constexpr auto& taskName = Published::shortCommandTask;

class TmpCommandWatcher : public TmpCommandTest {
protected:
    void SetUp() override {
        TmpCommandTest::SetUp();
        if (!IsSkipped()) {
            tmpProcLock.Destroy();
            tree->Add({.pid = parent, .ppid = 1, .exe = "/opt/app/server"});
        }
    }

    void TearDown() override {
        FailingCalls::FailMutexInit(0);
        TmpCommandTest::TearDown();
    }

    static uint64_t NowMs() {
        using namespace std::chrono;
        return static_cast<uint64_t>(duration_cast<milliseconds>(system_clock::now().time_since_epoch()).count());
    }

    void RunShell(int pid, const std::string& shell) {
        AddCommand(pid, parent, shell, "");
        Exec(pid, 1);
    }

    static std::vector<std::string> TakeJournal() { return std::exchange(Fake::TheAgent().journal, {}); }

    static const std::vector<Fake::ProcessCallback>& Callbacks() { return Fake::TheAgent().callbacks; }
};

TEST_F(TmpCommandWatcher, StartAddsTheCallbackThenTheTask) {
    const uint64_t before = NowMs();
    EXPECT_TRUE(StartDetectTmpRshell({"/bin/sh"}));
    const uint64_t after = NowMs();
    EXPECT_EQ(TakeJournal(), (std::vector<std::string>{"add callback", std::string("register ") + taskName}));
    EXPECT_EQ(Callbacks(), std::vector<Fake::ProcessCallback>{OnTmpProcEvent});
    const Fake::Task* task = Fake::TheAgent().FindTask(taskName);
    ASSERT_NE(task, nullptr);
    EXPECT_EQ(task->type, TavUtils::TASK_REPEAT);
    EXPECT_EQ(task->entry, &CheckTmpShellTask);
    EXPECT_EQ(task->arg, nullptr);
    EXPECT_GE(task->condition.firstRunMs, before + 1000);
    EXPECT_LE(task->condition.firstRunMs, after + 1000);
    EXPECT_EQ(task->condition.periodMs, 10000U);
    EXPECT_EQ(task->condition.enabled, 1);
    EXPECT_TRUE(Fake::TheAgent().log.empty());
}

TEST_F(TmpCommandWatcher, RecordsTheGivenShells) {
    StartDetectTmpRshell({"/bin/sh"});
    RunShell(601, "/bin/sh");
    RunShell(602, "/bin/bash");
    EXPECT_EQ(tmpProcMap[parent].procList.size(), 1U);
}

TEST_F(TmpCommandWatcher, StartsWithCommandsOnPathAndNoShells) {
    folder.Write("bin/sleep", "a program");
    Fake::TheAgent().environment["PATH"] = folder.Path("bin");
    EXPECT_TRUE(StartDetectTmpRshell({}));
}

TEST_F(TmpCommandWatcher, DoesNotStartWithoutCommands) {
    EXPECT_FALSE(StartDetectTmpRshell({}));
    EXPECT_TRUE(TakeJournal().empty());
}

TEST_F(TmpCommandWatcher, DoesNotStartWithoutItsLock) {
    FailingCalls::FailMutexInit(1);
    EXPECT_FALSE(StartDetectTmpRshell({"/bin/sh"}));
    EXPECT_TRUE(TakeJournal().empty());
    StopDetectTmpRshell();
    EXPECT_TRUE(StartDetectTmpRshell({"/bin/sh"}));
}

TEST_F(TmpCommandWatcher, StartFailsIfItsTaskIsRefusedAndKeepsTheCallback) {
    Fake::TheAgent().refusedTasks = {taskName};
    EXPECT_FALSE(StartDetectTmpRshell({"/bin/sh"}));
    EXPECT_EQ(Callbacks().size(), 1U);
    RunShell(601, "/bin/sh");
    TakeJournal();
    StopDetectTmpRshell();
    EXPECT_EQ(TakeJournal(), std::vector<std::string>{"remove callback"});
    EXPECT_TRUE(Callbacks().empty());
}

TEST_F(TmpCommandWatcher, StopEndsTheTaskThenTheCallback) {
    StartDetectTmpRshell({"/bin/sh"});
    TakeJournal();
    StopDetectTmpRshell();
    EXPECT_EQ(TakeJournal(), (std::vector<std::string>{std::string("pause ") + taskName,
                                                       std::string("unregister ") + taskName, "remove callback"}));
    EXPECT_TRUE(Fake::TheAgent().tasks.empty());
    EXPECT_TRUE(Callbacks().empty());
}

TEST_F(TmpCommandWatcher, MayBeStoppedTwiceOrWithoutAStart) {
    StopDetectTmpRshell();
    StartDetectTmpRshell({"/bin/sh"});
    StopDetectTmpRshell();
    TakeJournal();
    StopDetectTmpRshell();
    EXPECT_EQ(TakeJournal(), std::vector<std::string>{"remove callback"});
}

TEST_F(TmpCommandWatcher, KeepsItsEntriesFromAStopToTheNextStart) {
    StartDetectTmpRshell({"/bin/sh"});
    RunShell(601, "/bin/sh");
    StopDetectTmpRshell();
    EXPECT_TRUE(tmpProcMap.contains(parent));
    StartDetectTmpRshell({"/bin/sh"});
    EXPECT_TRUE(tmpProcMap.empty());
}

TEST_F(TmpCommandWatcher, KeepsACommandThatRunsWhileItStarts) {
    Fake::TheAgent().atEachCall = [this](const std::string& call) {
        if (call == "add callback") {
            RunShell(601, "/bin/sh");
        }
    };
    StartDetectTmpRshell({"/bin/sh"});
    EXPECT_TRUE(tmpProcMap.contains(parent));
}

// Until then the callback may run and take the lock.
TEST_F(TmpCommandWatcher, DestroysItsLockOnceTheCallbackIsRemoved) {
    StartDetectTmpRshell({"/bin/sh"});
    bool ready = false;
    Fake::TheAgent().atEachCall = [&ready](const std::string& call) {
        if (call == "remove callback") {
            FailingCalls::FailMutexInit(1);
            ready = tmpProcLock.Init();
        }
    };
    StopDetectTmpRshell();
    Fake::TheAgent().atEachCall = nullptr;
    EXPECT_TRUE(ready);
    EXPECT_FALSE(tmpProcLock.Init());
}

TEST_F(TmpCommandWatcher, SecondStartReplacesTheFirst) {
    StartDetectTmpRshell({"/bin/sh"});
    RunShell(601, "/bin/sh");
    const unsigned int first = Fake::TheAgent().FindTask(taskName)->id;
    TakeJournal();
    FailingCalls::FailMutexInit(1);  // a running callback may hold the lock: it must be left alone
    EXPECT_TRUE(StartDetectTmpRshell({"/bin/bash"}));
    EXPECT_EQ(TakeJournal(),
              (std::vector<std::string>{"add callback", std::string("pause ") + taskName,
                                        std::string("unregister ") + taskName, std::string("register ") + taskName}));
    EXPECT_TRUE(tmpProcMap.empty());
    EXPECT_EQ(Fake::TheAgent().tasks.size(), 1U);
    EXPECT_NE(Fake::TheAgent().FindTask(taskName)->id, first);
    EXPECT_EQ(Callbacks().size(), 2U);
    RunShell(602, "/bin/sh");
    RunShell(603, "/bin/bash");
    ASSERT_EQ(tmpProcMap[parent].procList.size(), 1U);
    EXPECT_EQ(tmpProcMap[parent].procList[0].pid, 603);
    StopDetectTmpRshell();
    EXPECT_TRUE(Callbacks().empty());
    EXPECT_TRUE(Fake::TheAgent().tasks.empty());
}

TEST_F(TmpCommandWatcher, RecordsJudgesAndRestartsConcurrently) {
    for (int pid = 501; pid < 510; ++pid) {
        tree->Add({.pid = pid, .ppid = 1, .exe = "/opt/app/server"});
    }
    for (int pid = 600; pid < 610; ++pid) {
        AddCommand(pid, pid - 100, "/bin/sh", "sh");
    }
    StartDetectTmpRshell({"/bin/sh"});
    std::atomic<bool> done = false;
    std::thread monitor([&done] {
        for (unsigned long long round = 0; !done; ++round) {
            for (int pid = 600; pid < 610; ++pid) {
                Exec(pid, round * second);
            }
        }
    });
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(20);
    size_t seen = 0;
    for (int sweeps = 0; (sweeps < 200 || seen < 10) && std::chrono::steady_clock::now() < deadline; ++sweeps) {
        Sweep();
        seen = std::max(seen, CopyTmpProcMap().size());
        if (sweeps % 100 == 99) {
            StartDetectTmpRshell({"/bin/sh", "/bin/bash"});
        }
    }
    done = true;
    monitor.join();
    EXPECT_EQ(seen, 10U);
}

}  // namespace
