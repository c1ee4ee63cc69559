// When the locks of the reverse-shell function exist, seen at the calls of the agent.
#include <cstdlib>
#include <string>
#include <vector>

#include "module_fixture.h"

namespace {

class LockLifetime : public ModuleTest {
protected:
    static constexpr char onlyReverseShell[] = R"({"reverseShell":{}})";

    // Changes nothing: Init keeps an initialised lock, and the mutex of any other is refused.
    static bool Exists(ModuleLock& lock) {
        FailingCalls::FailMutexInit(1);
        const bool exists = lock.Init();
        FailingCalls::FailMutexInit(0);
        return exists;
    }

    // Notes the calls of the agent from now on during which the socket table's lock exists, and the others.
    void ObserveSocketTableLock() {
        Fake::TheAgent().atEachCall = [this](const std::string& call) {
            (Exists(socketTableLock) ? callsWithLock : callsWithoutLock).push_back(call);
        };
    }

    std::vector<std::string> callsWithLock;
    std::vector<std::string> callsWithoutLock;
};

TEST_F(LockLifetime, AStopDestroysTheSocketTableLockAfterTheLastTaskAndBeforeTheReport) {
    ASSERT_EQ(StartModule(onlyReverseShell), 1);
    ObserveSocketTableLock();
    StopModule("0000");
    ASSERT_FALSE(callsWithLock.empty());
    EXPECT_EQ(callsWithLock.back(), Line("unregister", periodTask));
    EXPECT_EQ(callsWithoutLock, (std::vector<std::string>{Line("status", reverseShell, "off"),
                                                          "log Shell detection module stop success."}));
}

TEST_F(LockLifetime, AFailedStartDestroysTheSocketTableLockAfterTheWatcherHasStopped) {
    Fake::TheAgent().refusedTasks = {instantTask};
    ObserveSocketTableLock();
    EXPECT_EQ(StartModule(onlyReverseShell), 0);
    ASSERT_FALSE(callsWithLock.empty());
    EXPECT_EQ(callsWithLock.back(), "remove callback");
    EXPECT_EQ(callsWithoutLock, std::vector<std::string>{Line("status", reverseShell, "off")});
}

TEST_F(LockLifetime, AFailedRestartReportsItsEndWhenTheModuleNoLongerRuns) {
    ASSERT_EQ(StartModule(onlyReverseShell), 1);
    Fake::TheAgent().refusedTasks = {instantTask};
    int runningAtReport = -1;
    Fake::TheAgent().atEachCall = [&runningAtReport](const std::string& call) {
        if (call == Line("status", reverseShell, "off")) {
            runningAtReport = moduleRunning;
        }
    };
    EXPECT_EQ(StartModule(onlyReverseShell), 0);
    EXPECT_EQ(runningAtReport, 0);
}

// Runs in a process of its own, because any stop before it leaves the same state.
TEST_F(LockLifetime, TheFirstStartDestroysTheIntakeLockIfItsTaskIsRefused) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    EXPECT_EXIT(
        {
            Fake::TheAgent().refusedTasks = {instantTask};
            const bool hasStarted = StartModule(onlyReverseShell) != 0;
            exit(hasStarted || Exists(pidMapLock) ? 1 : 0);
        },
        testing::ExitedWithCode(0), "");
}

}  // namespace
