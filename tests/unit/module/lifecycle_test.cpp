#include <chrono>

#include "module_fixture.h"
#include "shellfile/shell_copy.h"

namespace {

class Lifecycle : public ModuleTest {
protected:
    struct RunState {
        std::string call;
        int running;
        bool stopBegun;
    };

    // The state of the module at each call of the agent from now on.
    void ObserveRunState() {
        states.clear();
        Fake::TheAgent().atEachCall = [this](const std::string& call) {
            states.push_back({call, moduleRunning, stopBegun});
        };
    }

    std::vector<RunState> states;
};

uint64_t NowMs() {
    return static_cast<uint64_t>(
        std::chrono::duration_cast<std::chrono::milliseconds>(std::chrono::system_clock::now().time_since_epoch())
            .count());
}

constexpr char bothFunctions[] = R"({"abnormalShell":{},"reverseShell":{}})";

TEST_F(Lifecycle, StartsWithAnEmptyConfiguration) {
    EXPECT_EQ(StartModule("{}"), 1);
    EXPECT_TRUE(Fake::TheAgent().statuses.empty());
    EXPECT_TRUE(Fake::TheAgent().tasks.empty());
    EXPECT_EQ(moduleRunning, 1);
}

TEST_F(Lifecycle, StartsBothTasksAtNinetySecondsByDefault) {
    const uint64_t before = NowMs();
    EXPECT_EQ(StartModule(R"({"reverseShell":{}})"), 1);
    const uint64_t after = NowMs();
    ASSERT_EQ(Fake::TheAgent().tasks.size(), 2U);
    EXPECT_EQ(Fake::TheAgent().FindTask(periodTask)->condition.periodMs, 90000U);
    EXPECT_EQ(Fake::TheAgent().FindTask(instantTask)->condition.periodMs, 1000U);
    const uint64_t firstInstant = Fake::TheAgent().FindTask(instantTask)->condition.firstRunMs;
    EXPECT_GE(firstInstant, before + 1000);
    EXPECT_LE(firstInstant, after + 1000);
    const uint64_t firstPeriod = Fake::TheAgent().FindTask(periodTask)->condition.firstRunMs;
    EXPECT_GE(firstPeriod, before + 20000);
    EXPECT_LE(firstPeriod, after + 20000);
    EXPECT_EQ(Fake::TheAgent().FindTask(periodTask)->type, TavUtils::TASK_REPEAT);
    EXPECT_EQ(Fake::TheAgent().FindTask(instantTask)->type, TavUtils::TASK_REPEAT);
    EXPECT_TRUE(CurrentWhitelist()->empty());
}

TEST_F(Lifecycle, BringsFunctionsUpInOrder) {
    EXPECT_EQ(StartModule(bothFunctions), 1);
    EXPECT_EQ(Fake::TheAgent().journal,
              (std::vector<std::string>{"add callback", "fanotify", "thread ChattrShellThread",
                                        Line("status", tampering, "on"), Line("register", instantTask), "add callback",
                                        Line("register", periodTask), Line("status", reverseShell, "on"),
                                        "log Shell detection module start success."}));
    EXPECT_EQ(TakeStatuses(),
              (std::vector<Fake::StatusReport>{{tampering, true, "0000"}, {reverseShell, true, "0000"}}));
    EXPECT_EQ(moduleRunning, 1);
}

TEST_F(Lifecycle, TakesFunctionsDownInOrder) {
    StartModule(bothFunctions);
    Fake::TheAgent().journal.clear();
    TakeStatuses();
    StopModule("0017");
    EXPECT_EQ(Fake::TheAgent().journal,
              (std::vector<std::string>{
                  "await thread", "log shell file system attr thread stop!\n", "remove callback",
                  Line("status", tampering, "off"), Line("pause", instantTask), Line("unregister", instantTask),
                  "remove callback", "remove callback", Line("pause", periodTask), Line("unregister", periodTask),
                  Line("status", reverseShell, "off"), "log Shell detection module stop success."}));
    EXPECT_EQ(TakeStatuses(),
              (std::vector<Fake::StatusReport>{{tampering, false, "0017"}, {reverseShell, false, "0017"}}));
    EXPECT_EQ(moduleRunning, 0);
}

TEST_F(Lifecycle, RunsOnlyAfterEverythingHasStarted) {
    StartModule(bothFunctions);
    StopModule("0000");
    ObserveRunState();
    EXPECT_EQ(StartModule(bothFunctions), 1);
    ASSERT_EQ(states.size(), 9U);
    for (const RunState& state : states) {
        EXPECT_EQ(state.running, state.call == "log Shell detection module start success." ? 1 : 0) << state.call;
        EXPECT_FALSE(state.stopBegun) << state.call;
    }
}

TEST_F(Lifecycle, EndsRunningBeforeAnythingIsStopped) {
    shellPaths = {"/bin/sh"};
    StartModule(bothFunctions);
    ObserveRunState();
    StopModule("0000");
    ASSERT_GE(states.size(), 13U);
    for (const RunState& state : states) {
        EXPECT_EQ(state.running, 0) << state.call;
        EXPECT_TRUE(state.stopBegun) << state.call;
    }
}

TEST_F(Lifecycle, EndsRunningIfARepeatedStartFails) {
    for (const char* task : {instantTask, periodTask}) {
        ASSERT_EQ(StartModule(R"({"reverseShell":{}})"), 1);
        ASSERT_EQ(moduleRunning, 1);
        Fake::TheAgent().refusedTasks = {task};
        EXPECT_EQ(StartModule(R"({"reverseShell":{}})"), 0) << task;
        EXPECT_EQ(moduleRunning, 0) << task;
        EXPECT_FALSE(stopBegun) << "the tampering function may run on";
        Fake::TheAgent().refusedTasks.clear();
        StopModule("0000");
    }
}

TEST_F(Lifecycle, StartsTheCommandWatcherBeforeTheScansAndStopsItBetweenThem) {
    shellPaths = {"/bin/sh"};
    EXPECT_EQ(StartModule(R"({"reverseShell":{}})"), 1);
    EXPECT_EQ(
        Fake::TheAgent().journal,
        (std::vector<std::string>{"add callback", Line("register", watcherTask), Line("register", instantTask),
                                  "add callback", Line("register", periodTask), Line("status", reverseShell, "on"),
                                  "log Shell detection module start success."}));
    Fake::TheAgent().journal.clear();
    StopModule("0000");
    EXPECT_EQ(
        Fake::TheAgent().journal,
        (std::vector<std::string>{Line("pause", instantTask), Line("unregister", instantTask), "remove callback",
                                  Line("pause", watcherTask), Line("unregister", watcherTask), "remove callback",
                                  Line("pause", periodTask), Line("unregister", periodTask),
                                  Line("status", reverseShell, "off"), "log Shell detection module stop success."}));
    EXPECT_TRUE(Fake::TheAgent().callbacks.empty());
}

TEST_F(Lifecycle, StartsIfTheCommandWatcherIsRefused) {
    shellPaths = {"/bin/sh"};
    Fake::TheAgent().refusedTasks = {watcherTask};
    EXPECT_EQ(StartModule(R"({"reverseShell":{}})"), 1);
    EXPECT_EQ(Fake::TheAgent().tasks.size(), 2U);
    StopModule("0000");
    EXPECT_TRUE(Fake::TheAgent().callbacks.empty());
}

TEST_F(Lifecycle, PassesANullCodeOn) {
    StartModule(bothFunctions);
    TakeStatuses();
    StopModule(nullptr);
    EXPECT_EQ(TakeStatuses(),
              (std::vector<Fake::StatusReport>{{tampering, false, std::nullopt}, {reverseShell, false, std::nullopt}}));
}

TEST_F(Lifecycle, ReplacesBothTasksAndAddsTheCallbackAgainOnASecondStart) {
    StartModule(R"({"reverseShell":{}})");
    const unsigned int firstPeriod = Fake::TheAgent().FindTask(periodTask)->id;
    const unsigned int firstInstant = Fake::TheAgent().FindTask(instantTask)->id;
    EXPECT_EQ(StartModule(R"({"reverseShell":{}})"), 1);
    EXPECT_EQ(Fake::TheAgent().tasks.size(), 2U);
    EXPECT_NE(Fake::TheAgent().FindTask(periodTask)->id, firstPeriod);
    EXPECT_NE(Fake::TheAgent().FindTask(instantTask)->id, firstInstant);
    EXPECT_EQ(Fake::TheAgent().callbacks.size(), 2U);
    EXPECT_EQ(moduleRunning, 1);
    StopModule("0000");
    EXPECT_TRUE(Fake::TheAgent().tasks.empty());
    EXPECT_TRUE(Fake::TheAgent().callbacks.empty());
}

TEST_F(Lifecycle, StopsOnlyEnabledFunctions) {
    StartModule("{}");
    Fake::TheAgent().journal.clear();
    StopModule("0000");
    EXPECT_EQ(Fake::TheAgent().journal, std::vector<std::string>{"log Shell detection module stop success."});
}

TEST_F(Lifecycle, DeinitOnlyLogs) {
    StartModule(bothFunctions);
    Fake::TheAgent().journal.clear();
    DeinitModule();
    EXPECT_EQ(Fake::TheAgent().journal, std::vector<std::string>{"log Shell detection module deinit success."});
    EXPECT_EQ(moduleRunning, 1);
}

TEST_F(Lifecycle, FailsIfTheSocketTableLockIsRefused) {
    FailingCalls::FailMutexInit(1);
    EXPECT_EQ(StartModule(bothFunctions), 0);
    EXPECT_EQ(Fake::TheAgent().journal,
              (std::vector<std::string>{"add callback", "fanotify", "thread ChattrShellThread",
                                        Line("status", tampering, "on"), Line("status", reverseShell, "off")}));
    EXPECT_EQ(TakeStatuses(), (std::vector<Fake::StatusReport>{{tampering, true, "0000"}, {reverseShell, false, ""}}));
    EXPECT_EQ(moduleRunning, 0);
}

TEST_F(Lifecycle, FailsIfTheIntakeLockIsRefused) {
    FailingCalls::FailMutexInit(2);
    EXPECT_EQ(StartModule(bothFunctions), 0);
    EXPECT_EQ(Fake::TheAgent().LogTexts(LOG_LEVEL_ERROR),
              (std::vector<std::string>{"init pidMapLock failed!\n", "start instant scan failed"}));
    EXPECT_EQ(TakeStatuses(), (std::vector<Fake::StatusReport>{{tampering, true, "0000"}, {reverseShell, false, ""}}));
    EXPECT_TRUE(Fake::TheAgent().tasks.empty());
    EXPECT_EQ(Fake::TheAgent().callbacks, std::vector<Fake::ProcessCallback>{ShellExecCallback});
    EXPECT_EQ(moduleRunning, 0);
}

TEST_F(Lifecycle, FailsIfTheFirstTaskIsRefused) {
    Fake::TheAgent().refusedTasks = {instantTask};
    EXPECT_EQ(StartModule(R"({"reverseShell":{}})"), 0);
    EXPECT_EQ(Fake::TheAgent().journal,
              (std::vector<std::string>{Line("refuse", instantTask), "log check shell task start failed.",
                                        "log start instant scan failed", "remove callback",
                                        Line("status", reverseShell, "off")}));
    EXPECT_EQ(Fake::TheAgent().LogTexts(LOG_LEVEL_DETAIL), std::vector<std::string>{"check shell task start failed."});
    EXPECT_EQ(Fake::TheAgent().LogTexts(LOG_LEVEL_ERROR), std::vector<std::string>{"start instant scan failed"});
    EXPECT_EQ(moduleRunning, 0);
}

TEST_F(Lifecycle, FailsIfTheSecondTaskIsRefused) {
    Fake::TheAgent().refusedTasks = {periodTask};
    EXPECT_EQ(StartModule(R"({"reverseShell":{}})"), 0);
    EXPECT_EQ(Fake::TheAgent().journal,
              (std::vector<std::string>{Line("register", instantTask), "add callback", Line("refuse", periodTask),
                                        "log check shell task start failed.", "log start period scan failed",
                                        Line("pause", instantTask), Line("unregister", instantTask), "remove callback",
                                        "remove callback", Line("status", reverseShell, "off")}));
    EXPECT_EQ(TakeStatuses(), (std::vector<Fake::StatusReport>{{reverseShell, false, ""}}));
    EXPECT_EQ(moduleRunning, 0);
}

TEST_F(Lifecycle, KeepsTheIntakeLockForTheCallbackOfAnEarlierStart) {
    StartModule(R"({"reverseShell":{}})");
    Fake::TheAgent().refusedTasks = {instantTask};
    EXPECT_EQ(StartModule(R"({"reverseShell":{}})"), 0);
    ASSERT_EQ(Fake::TheAgent().callbacks.size(), 1U);
    FailingCalls::FailMutexInit(1);
    EXPECT_TRUE(pidMapLock.Init()) << "still initialised";
    FailingCalls::FailMutexInit(0);
    StopModule("0000");
    EXPECT_TRUE(Fake::TheAgent().callbacks.empty());
    FailingCalls::FailMutexInit(1);
    EXPECT_FALSE(pidMapLock.Init()) << "destroyed with the callback";
}

TEST_F(Lifecycle, DestroysBothLocksIfATaskIsRefused) {
    for (const char* task : {instantTask, periodTask}) {
        Fake::TheAgent().refusedTasks = {task};
        EXPECT_EQ(StartModule(R"({"reverseShell":{}})"), 0);
        for (ModuleLock* lock : {&pidMapLock, &socketTableLock}) {
            FailingCalls::FailMutexInit(1);
            EXPECT_FALSE(lock->Init()) << task;
        }
    }
}

TEST_F(Lifecycle, StopsCompletelyAfterAFailedStart) {
    Fake::TheAgent().refusedTasks = {periodTask};
    StartModule(R"({"reverseShell":{}})");
    TakeStatuses();
    Fake::TheAgent().journal.clear();
    StopModule("0001");
    EXPECT_EQ(Fake::TheAgent().journal,
              (std::vector<std::string>{"remove callback", "remove callback", Line("status", reverseShell, "off"),
                                        "log Shell detection module stop success."}));
    EXPECT_EQ(TakeStatuses(), (std::vector<Fake::StatusReport>{{reverseShell, false, "0001"}}));
    Fake::TheAgent().refusedTasks.clear();
    EXPECT_EQ(StartModule(R"({"reverseShell":{}})"), 1);
}

TEST_F(Lifecycle, KeepsTheEnablingFlagsAcrossAStop) {
    StartModule(bothFunctions);
    StopModule("0000");
    EXPECT_TRUE(reverseShellEnabled);
    EXPECT_TRUE(abnormalShellEnabled);
}

TEST_F(Lifecycle, StartsWithoutAnInit) {
    shellPaths.clear();
    EXPECT_EQ(StartModule(bothFunctions), 1);
}

TEST_F(Lifecycle, TaskEntriesIgnoreTheirArgumentAndReturnNull) {
    StartModule(R"({"reverseShell":{}})");
    for (const Fake::Task& task : std::vector<Fake::Task>(Fake::TheAgent().tasks)) {
        EXPECT_EQ(task.arg, nullptr);
        EXPECT_EQ(task.entry(nullptr), nullptr);
    }
}

TEST_F(Lifecycle, TheScanTaskRunsAPass) {
    StartModule(R"({"reverseShell":{}})");
    Fake::TheAgent().journal.clear();
    Fake::TheAgent().FindTask(periodTask)->entry(nullptr);
    EXPECT_EQ(Fake::TheAgent().journal,
              (std::vector<std::string>{"read tcp", "read udp", "read tcp6", "log No valid connections."}));
}

}  // namespace
