#include <gtest/gtest.h>

#include <chrono>
#include <mutex>
#include <thread>

#include "host/tasks/task_scheduler.h"
#include "tests/support/await_condition.h"
#include "tests/support/moved_clock.h"
#include "tests/unit/tasks/task_support.h"

namespace {

using namespace std::chrono_literals;
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

TEST(RunTaskNow, RunsOnTheTasksThreadAndLeavesTheSchedule) {
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

TEST(RunTaskNow, IsFalseForAnUnknownName) {
    EXPECT_FALSE(Host::RunTaskNow("no such task"));
}

TEST(RunTaskNow, WaitsForTheRunInProgressAndRunsAgain) {
    Runs runs;
    runs.released = false;
    const Registered task(Manager().RegisterTask(TASK_REPEAT, Condition(0, hourMs), Record, &runs, "busy"));
    ASSERT_TRUE(Await([&] { return runs.inside == 1; }));
    std::thread release([&] {
        EXPECT_TRUE(Await([&] { return runs.asked.load(); }));
        runs.released = true;
    });
    runs.asked = true;
    EXPECT_TRUE(Host::RunTaskNow("busy"));
    release.join();
    EXPECT_EQ(runs.count, 2);
    EXPECT_EQ(runs.overlaps, 0);
}

TEST(RunTaskNow, KeepsTheScheduledRunOfAOneTimeTask) {
    Runs runs;
    runs.released = false;
    const Registered task(Manager().RegisterTask(TASK_ONCE, Condition(EpochMs() + 100, 0), Record, &runs, "owed"));
    std::thread asker([] { EXPECT_TRUE(Host::RunTaskNow("owed")); });
    EXPECT_TRUE(Await([&] { return runs.inside == 1; }));
    // The scheduled run falls due during this one.
    MovedClock::Advance(100ms);
    runs.released = true;
    asker.join();
    EXPECT_TRUE(Await([&] { return runs.count == 2; }));
}

void* PauseItselfOnceAsked(void* argument) {
    auto& runs = *static_cast<Runs*>(argument);
    ++runs.count;
    if (Await([&] { return runs.asked && runs.id != 0; })) {
        Manager().PauseAndWaitForEnd(runs.id);
    }
    return nullptr;
}

TEST(RunTaskNow, IsFalseIfThePauseComesFirst) {
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

TEST(RunTaskNow, RejectsACallByTheTaskItself) {
    Runs runs;
    const unsigned int id =
        Manager().RegisterTask(TASK_ONCE, Condition(EpochMs() + 30, 0), RunItself, &runs, "run-self");
    const Registered task(id);
    EXPECT_TRUE(MovedClock::AwaitDeadline(Host::Clock::Now() + 30ms));
    MovedClock::Advance(30ms);
    ASSERT_TRUE(Await([&] { return runs.count == 1; }));
    EXPECT_FALSE(runs.asked);
}

}  // namespace
