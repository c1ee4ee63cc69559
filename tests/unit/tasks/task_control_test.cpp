#include "host/tasks/task_control.h"

#include <gtest/gtest.h>

#include <chrono>
#include <mutex>
#include <thread>

#include "tests/support/await_condition.h"
#include "tests/unit/tasks/task_support.h"

namespace {

using std::chrono::milliseconds;
using TavUtils::TASK_ONCE;
using TavUtils::TASK_REPEAT;
using TestSupport::Await;
using TestSupport::Condition;
using TestSupport::EpochMs;
using TestSupport::hourMs;
using TestSupport::Manager;
using TestSupport::Record;
using TestSupport::Registered;
using TestSupport::Runs;

TEST(TaskControl, RunNowRunsOnTheTasksThreadAndLeavesTheSchedule) {
    Runs runs;
    const Registered task(
        Manager().RegisterTask(TASK_REPEAT, Condition(EpochMs() + hourMs, hourMs), Record, &runs, "run-now"));
    for (int i = 1; i <= 3; ++i) {
        EXPECT_TRUE(Host::RunTaskNow("run-now"));
        EXPECT_EQ(runs.count, i);
        EXPECT_EQ(runs.inside, 0);
    }
    const std::lock_guard lock(runs.mutex);
    EXPECT_EQ(runs.threadName, "run-now");
}

TEST(TaskControl, RunNowOfAnUnknownNameIsFalse) {
    EXPECT_FALSE(Host::RunTaskNow("no such task"));
}

TEST(TaskControl, RunNowWaitsForTheRunInProgressAndRunsAnew) {
    Runs runs;
    runs.released = false;
    const Registered task(Manager().RegisterTask(TASK_REPEAT, Condition(0, hourMs), Record, &runs, "busy"));
    ASSERT_TRUE(Await([&] { return runs.inside == 1; }));
    std::thread release([&] {
        std::this_thread::sleep_for(milliseconds(20));
        runs.released = true;
    });
    EXPECT_TRUE(Host::RunTaskNow("busy"));
    EXPECT_EQ(runs.count, 2);
    EXPECT_EQ(runs.overlaps, 0);
    release.join();
}

TEST(TaskControl, RunNowLeavesTheOnlyRunOfAOnceTaskOwed) {
    Runs runs;
    runs.released = false;
    const uint64_t firstRunMs = EpochMs() + 100;
    const Registered task(Manager().RegisterTask(TASK_ONCE, Condition(firstRunMs, 0), Record, &runs, "owed"));
    std::thread release([&] {
        Await([&] { return EpochMs() > firstRunMs + 20; });
        runs.released = true;
    });
    EXPECT_TRUE(Host::RunTaskNow("owed"));
    EXPECT_TRUE(Await([&] { return runs.count == 2; }));
    release.join();
}

void* PauseItselfOnceAsked(void* argument) {
    auto& runs = *static_cast<Runs*>(argument);
    ++runs.count;
    if (Await([&] { return runs.asked && runs.id != 0; })) {
        Manager().PauseAndWaitForEnd(runs.id);
    }
    return nullptr;
}

TEST(TaskControl, RunNowIsFalseWhenThePauseComesFirst) {
    Runs runs;
    runs.id = Manager().RegisterTask(TASK_REPEAT, Condition(0, hourMs), PauseItselfOnceAsked, &runs, "too-late");
    const Registered task(runs.id);
    ASSERT_TRUE(Await([&] { return runs.count == 1; }));
    runs.asked = true;
    EXPECT_FALSE(Host::RunTaskNow("too-late"));
    EXPECT_EQ(runs.count, 1);
}

void* RunItself(void* argument) {
    static_cast<Runs*>(argument)->asked = Host::RunTaskNow("run-self");
    ++static_cast<Runs*>(argument)->count;
    return nullptr;
}

TEST(TaskControl, RunNowRefusesTheTaskItself) {
    Runs runs;
    const unsigned int id =
        Manager().RegisterTask(TASK_ONCE, Condition(EpochMs() + 30, 0), RunItself, &runs, "run-self");
    const Registered task(id);
    ASSERT_TRUE(Await([&] { return runs.count == 1; }));
    EXPECT_FALSE(runs.asked);
}

}  // namespace
