#include "agent/task_manager.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <functional>
#include <limits>
#include <mutex>
#include <optional>
#include <set>
#include <stdexcept>
#include <thread>

#include "host/tasks/task_scheduler.h"
#include "tests/support/await_condition.h"
#include "tests/support/moved_clock.h"
#include "tests/unit/tasks/task_support.h"

namespace {

using namespace std::chrono_literals;
using Host::Clock::Now;
using Host::Clock::Time;
using TavUtils::TASK_CONDITION;
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
using TestSupport::ThreadsNamed;

TEST(TaskManager, RejectsInvalidSchedules) {
    struct Row {
        const char* what;
        int type;
        uint64_t periodMs;
        uint8_t enabled;
        void* (*entry)(void*);
        bool accepted;
    };
    const Row rows[] = {
        {"in order", TASK_REPEAT, hourMs, 1, Record, true},
        {"once needs no period", TASK_ONCE, 0, 1, Record, true},
        {"any non-zero byte enables", TASK_REPEAT, hourMs, 255, Record, true},
        {"the longest period", TASK_REPEAT, std::numeric_limits<uint64_t>::max(), 1, Record, true},
        {"no entry", TASK_REPEAT, hourMs, 1, nullptr, false},
        {"not enabled", TASK_REPEAT, hourMs, 0, Record, false},
        {"repeat without a period", TASK_REPEAT, 0, 1, Record, false},
        {"unknown type", 2, hourMs, 1, Record, false},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.what);
        Runs runs;
        TASK_CONDITION condition = Condition(std::numeric_limits<uint64_t>::max(), row.periodMs);
        condition.enabled = row.enabled;
        const unsigned int id =
            Manager().RegisterTask(static_cast<TavUtils::TASKTYPE>(row.type), condition, row.entry, &runs, "refused");
        const Registered task(id);
        EXPECT_EQ(id != 0, row.accepted);
    }
}

TEST(TaskManager, RunsAtOnceIfTheFirstRunIsInThePast) {
    for (const uint64_t firstRunMs : {uint64_t{0}, EpochMs() - 1000}) {
        Runs runs;
        const Registered task(Manager().RegisterTask(TASK_ONCE, Condition(firstRunMs, 0), Record, &runs, "passed"));
        EXPECT_TRUE(Await([&] { return runs.count == 1; }));
    }
}

TEST(TaskManager, DoesNotRunBeforeTheFirstRun) {
    Runs runs;
    const Time due = Now() + 120ms;
    const Registered task(
        Manager().RegisterTask(TASK_REPEAT, Condition(EpochMs() + 120, hourMs), Record, &runs, "later"));
    ASSERT_TRUE(MovedClock::AwaitDeadline(due));
    MovedClock::Advance(119ms);
    EXPECT_TRUE(MovedClock::AwaitDeadline(due));
    EXPECT_EQ(runs.count, 0);
    MovedClock::Advance(1ms);
    EXPECT_TRUE(Await([&] { return runs.count == 1; }));
}

TEST(TaskManager, SettingTheDateDoesNotMoveTasks) {
    Runs runs;
    const Time due = Now() + 1s;
    const Registered task(Manager().RegisterTask(TASK_ONCE, Condition(EpochMs() + 1000, 0), Record, &runs, "date"));
    ASSERT_TRUE(MovedClock::AwaitDeadline(due));
    MovedClock::SetWallTime(MovedClock::firstWallTime + 24h);
    EXPECT_EQ(MovedClock::NearestDeadline(), due);
    MovedClock::SetWallTime(MovedClock::firstWallTime - 24h);
    MovedClock::Advance(1s);
    EXPECT_TRUE(Await([&] { return runs.count == 1; }));
}

TEST(TaskManager, RepeatsAtItsPeriod) {
    Runs runs;
    const Time begin = Now();
    const Registered task(Manager().RegisterTask(TASK_REPEAT, Condition(0, 30), Record, &runs, "repeat"));
    for (int i = 0; i < 3; ++i) {
        ASSERT_TRUE(MovedClock::AwaitDeadline(Now() + 30ms));
        MovedClock::Advance(30ms);
    }
    ASSERT_TRUE(Await([&] { return runs.count == 4; }));
    const std::lock_guard lock(runs.mutex);
    EXPECT_THAT(runs.starts, testing::ElementsAre(begin, begin + 30ms, begin + 60ms, begin + 90ms));
}

TEST(TaskManager, OnceRunsOnceAndStaysRegistered) {
    Runs runs;
    const unsigned int id = Manager().RegisterTask(TASK_ONCE, Condition(0, 1), Record, &runs, "once");
    ASSERT_TRUE(Await([&] { return runs.count == 1; }));
    EXPECT_TRUE(Host::RunTaskNow("once"));
    EXPECT_EQ(runs.count, 2);
    Manager().UnregisterTask(id);
    EXPECT_FALSE(Host::RunTaskNow("once"));
    EXPECT_EQ(runs.count, 2);
}

TEST(TaskManager, NamesTheThreadWithTheFirstFifteenBytes) {
    Runs runs;
    const Registered task(Manager().RegisterTask(TASK_ONCE, Condition(0, 0), Record, &runs, "0123456789abcdefgh"));
    ASSERT_TRUE(Await([&] { return runs.count == 1; }));
    const std::lock_guard lock(runs.mutex);
    EXPECT_EQ(runs.threadName, "0123456789abcde");
}

TEST(TaskManager, SkipsTicksDuringALongRunAndKeepsTheGrid) {
    Runs runs;
    runs.released = false;
    const Time begin = Now();
    const Registered task(Manager().RegisterTask(TASK_REPEAT, Condition(0, 100), Record, &runs, "grid"));
    ASSERT_TRUE(Await([&] { return runs.inside == 1; }));
    MovedClock::Advance(350ms);
    runs.released = true;
    // The ticks at 100, 200 and 300 are skipped.
    ASSERT_TRUE(MovedClock::AwaitDeadline(begin + 400ms));
    MovedClock::Advance(50ms);
    ASSERT_TRUE(Await([&] { return runs.count == 2; }));
    const std::lock_guard lock(runs.mutex);
    EXPECT_THAT(runs.starts, testing::ElementsAre(begin, begin + 400ms));
    EXPECT_EQ(runs.overlaps, 0);
}

// Calls end during a run. Lets the run finish once the task starts no further ones.
void EndDuringARun(Runs& runs, const char* name, const std::function<void()>& end) {
    std::atomic<bool> returned = false;
    std::thread ending([&] {
        end();
        returned = true;
    });
    // Waits for its turn and fails as soon as the task may not run again.
    EXPECT_FALSE(Host::RunTaskNow(name));
    EXPECT_EQ(runs.inside, 1);
    EXPECT_FALSE(returned);
    runs.released = true;
    ending.join();
    EXPECT_EQ(runs.inside, 0);
}

TEST(TaskManager, PauseWaitsForTheRunAndPreventsFurtherRuns) {
    Runs runs;
    runs.released = false;
    const unsigned int id = Manager().RegisterTask(TASK_REPEAT, Condition(0, 1), Record, &runs, "pause");
    const Registered task(id);
    ASSERT_TRUE(Await([&] { return runs.inside == 1; }));
    EndDuringARun(runs, "pause", [id] { Manager().PauseAndWaitForEnd(id); });
    EXPECT_TRUE(MovedClock::AwaitDeadline(std::nullopt));
    EXPECT_EQ(MovedClock::NearestDeadline(), Time::max());
    MovedClock::Advance(1h);
    EXPECT_FALSE(Host::RunTaskNow("pause"));
    Manager().PauseAndWaitForEnd(id);
    EXPECT_EQ(runs.count, 1);
}

TEST(TaskManager, UnregisterWaitsForTheRunAndEndsTheThread) {
    Runs runs;
    runs.released = false;
    const unsigned int id = Manager().RegisterTask(TASK_REPEAT, Condition(0, 1), Record, &runs, "unregister");
    ASSERT_TRUE(Await([&] { return runs.inside == 1; }));
    EndDuringARun(runs, "unregister", [id] { Manager().UnregisterTask(id); });
    EXPECT_TRUE(Await([] { return ThreadsNamed("unregister") == 0; }));
    Manager().UnregisterTask(id);
}

TEST(TaskManager, UnknownIdsAreIgnored) {
    for (const unsigned int id : {0U, std::numeric_limits<unsigned int>::max()}) {
        Manager().PauseAndWaitForEnd(id);
        Manager().UnregisterTask(id);
    }
}

void* PauseItself(void* argument) {
    auto& runs = *static_cast<Runs*>(argument);
    if (Await([&] { return runs.id != 0; })) {
        Manager().PauseAndWaitForEnd(runs.id);
    }
    ++runs.count;
    return nullptr;
}

TEST(TaskManager, ATaskMayPauseItself) {
    Runs runs;
    const unsigned int id = Manager().RegisterTask(TASK_REPEAT, Condition(0, 1), PauseItself, &runs, "pause-self");
    const Registered task(id);
    testing::internal::CaptureStderr();
    runs.id = id;
    EXPECT_TRUE(Await([&] { return runs.count == 1; }));
    EXPECT_THAT(testing::internal::GetCapturedStderr(), testing::HasSubstr("pause-self"));
    EXPECT_FALSE(Host::RunTaskNow("pause-self"));
    EXPECT_EQ(runs.count, 1);
}

void* UnregisterItself(void* argument) {
    auto& runs = *static_cast<Runs*>(argument);
    if (Await([&] { return runs.id != 0; })) {
        Manager().UnregisterTask(runs.id);
    }
    ++runs.count;
    return nullptr;
}

TEST(TaskManager, ATaskMayUnregisterItself) {
    Runs runs;
    runs.id = Manager().RegisterTask(TASK_REPEAT, Condition(0, 1), UnregisterItself, &runs, "gone-self");
    EXPECT_TRUE(Await([&] { return runs.count == 1; }));
    EXPECT_TRUE(Await([] { return ThreadsNamed("gone-self") == 0; }));
    EXPECT_FALSE(Host::RunTaskNow("gone-self"));
    EXPECT_EQ(runs.count, 1);
}

void* ThrowRuntimeError(void* argument) {
    ++static_cast<Runs*>(argument)->count;
    throw std::runtime_error("bang");
}

void* ThrowNumber(void* argument) {
    ++static_cast<Runs*>(argument)->count;
    throw 7;
}

TEST(TaskManager, LogsAnExceptionAndRunsTheTaskAgain) {
    struct Row {
        void* (*entry)(void*);
        const char* logged;
    };
    for (const Row& row : {Row{ThrowRuntimeError, "bang"}, Row{ThrowNumber, "unknown exception"}}) {
        SCOPED_TRACE(row.logged);
        Runs runs;
        testing::internal::CaptureStderr();
        {
            const Registered task(Manager().RegisterTask(TASK_REPEAT, Condition(0, 1), row.entry, &runs, "thrower"));
            for (int i = 1; i < 3; ++i) {
                ASSERT_TRUE(MovedClock::AwaitDeadline(Now() + 1ms));
                EXPECT_EQ(runs.count, i);
                MovedClock::Advance(1ms);
            }
            EXPECT_TRUE(Await([&] { return runs.count == 3; }));
        }
        const std::string log = testing::internal::GetCapturedStderr();
        EXPECT_THAT(log, testing::HasSubstr("thrower"));
        EXPECT_THAT(log, testing::HasSubstr(row.logged));
    }
}

TEST(TaskManager, IdsAreNotReused) {
    Runs runs;
    std::set<unsigned int> ids;
    for (int i = 0; i < 50; ++i) {
        const unsigned int id =
            Manager().RegisterTask(TASK_ONCE, Condition(EpochMs() + hourMs, 0), Record, &runs, "ids");
        Manager().UnregisterTask(id);
        ids.insert(id);
    }
    EXPECT_EQ(ids.size(), 50U);
    EXPECT_FALSE(ids.contains(0));
}

}  // namespace
