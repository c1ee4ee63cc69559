#include "agent/task_manager.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <limits>
#include <mutex>
#include <set>
#include <stdexcept>
#include <thread>
#include <vector>

#include "host/tasks/task_control.h"
#include "tests/support/await_condition.h"
#include "tests/support/emulation.h"
#include "tests/unit/tasks/task_support.h"

namespace {

using std::chrono::milliseconds;
using std::chrono::steady_clock;
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

TEST(TaskManager, RefusesWhatCannotBeScheduled) {
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

TEST(TaskManager, RunsAtOnceWhenTheFirstRunHasPassed) {
    for (const uint64_t firstRunMs : {uint64_t{0}, EpochMs() - 1000}) {
        Runs runs;
        const Registered task(Manager().RegisterTask(TASK_ONCE, Condition(firstRunMs, 0), Record, &runs, "passed"));
        EXPECT_TRUE(Await([&] { return runs.count == 1; }));
    }
}

TEST(TaskManager, DoesNotRunBeforeTheFirstRun) {
    Runs runs;
    // The manager reads both clocks later than this test and rounds to milliseconds.
    const auto earliest = steady_clock::now() + milliseconds(118);
    const uint64_t firstRunMs = EpochMs() + 120;
    const Registered task(Manager().RegisterTask(TASK_REPEAT, Condition(firstRunMs, hourMs), Record, &runs, "later"));
    ASSERT_TRUE(Await([&] { return runs.count == 1; }));
    EXPECT_GE(runs.starts.front(), earliest);
}

TEST(TaskManager, RepeatsAtItsPeriod) {
    Runs runs;
    const Registered task(Manager().RegisterTask(TASK_REPEAT, Condition(0, 30), Record, &runs, "repeat"));
    ASSERT_TRUE(Await([&] { return runs.count >= 4; }));
    const std::lock_guard lock(runs.mutex);
    EXPECT_GE(runs.starts[3] - runs.starts[0], milliseconds(60));
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

TEST(TaskManager, SkipsTicksDuringALongRunAndKeepsToTheGrid) {
    Runs runs;
    runs.released = false;
    const auto before = steady_clock::now();
    const Registered task(Manager().RegisterTask(TASK_REPEAT, Condition(0, 100), Record, &runs, "grid"));
    std::this_thread::sleep_until(before + milliseconds(350));
    EXPECT_EQ(runs.count, 1);
    runs.released = true;
    ASSERT_TRUE(Await([&] { return runs.count >= 2; }));
    const std::lock_guard lock(runs.mutex);
    // Ticks at 100, 200 and 300 are gone; a missed one made up for would start at 350.
    EXPECT_GE(runs.starts[1] - before, milliseconds(400));
    EXPECT_EQ(runs.overlaps, 0);
}

void* TakeFiftyMs(void* argument) {
    auto& runs = *static_cast<Runs*>(argument);
    ++runs.inside;
    ++runs.count;
    std::this_thread::sleep_for(milliseconds(50));
    --runs.inside;
    return nullptr;
}

TEST(TaskManager, PauseWaitsForTheRunAndNoneFollows) {
    Runs runs;
    const unsigned int id = Manager().RegisterTask(TASK_REPEAT, Condition(0, 1), TakeFiftyMs, &runs, "pause");
    const Registered task(id);
    ASSERT_TRUE(Await([&] { return runs.inside == 1; }));
    Manager().PauseAndWaitForEnd(id);
    EXPECT_EQ(runs.inside, 0);
    const int count = runs.count;
    EXPECT_FALSE(Host::RunTaskNow("pause"));
    std::this_thread::sleep_for(milliseconds(30));
    EXPECT_EQ(runs.count, count);
    Manager().PauseAndWaitForEnd(id);
}

TEST(TaskManager, UnregisterWaitsForTheRunAndEndsTheThread) {
    Runs runs;
    const unsigned int id = Manager().RegisterTask(TASK_REPEAT, Condition(0, 1), TakeFiftyMs, &runs, "unregister");
    ASSERT_TRUE(Await([&] { return runs.inside == 1; }));
    Manager().UnregisterTask(id);
    EXPECT_EQ(runs.inside, 0);
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

TEST(TaskManager, AnExceptionIsLoggedAndTheTaskGoesOn) {
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
            EXPECT_TRUE(Await([&] { return runs.count >= 3; }));
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

TEST(TaskManager, AllOperationsMayRace) {
    std::atomic<bool> enough = false;
    std::atomic<int> lateRuns = 0;
    std::atomic<int> overlaps = 0;
    std::atomic<unsigned int> latest = 0;
    std::vector<std::thread> threads;
    for (int i = 0; i < 3; ++i) {
        threads.emplace_back([&] {
            while (!enough) {
                Runs runs;
                const unsigned int id = Manager().RegisterTask(TASK_REPEAT, Condition(0, 1), Record, &runs, "race");
                latest = id;
                Await([&] { return runs.count > 0 || enough; });
                Manager().PauseAndWaitForEnd(id);
                const int count = runs.count;
                Host::RunTaskNow("race");
                lateRuns += runs.count - count;
                overlaps += runs.overlaps;
                Manager().UnregisterTask(id);
            }
        });
    }
    // Others meddle with whatever task was registered last, but only the owner's record may be written by its runs, so
    // they pause and run and leave the unregistering to the owner.
    threads.emplace_back([&] {
        while (!enough) {
            Manager().PauseAndWaitForEnd(latest);
        }
    });
    threads.emplace_back([&] {
        while (!enough) {
            Host::RunTaskNow("race");
        }
    });
    std::this_thread::sleep_for(milliseconds(300));
    enough = true;
    for (std::thread& thread : threads) {
        thread.join();
    }
    EXPECT_EQ(lateRuns, 0);
    EXPECT_EQ(overlaps, 0);
    EXPECT_TRUE(Await([] { return ThreadsNamed("race") == 0; }));
}

TEST(TaskManager, TwoMayUnregisterTheSameTask) {
    for (int i = 0; i < 50; ++i) {
        Runs runs;
        const unsigned int id = Manager().RegisterTask(TASK_REPEAT, Condition(0, 1), Record, &runs, "two-ends");
        std::thread other([&] { Manager().UnregisterTask(id); });
        Manager().UnregisterTask(id);
        other.join();
        EXPECT_FALSE(Host::RunTaskNow("two-ends"));
    }
}

// Ends the process: 0 if no thread could be had and the task was refused for that.
[[noreturn]] void RegisterWithoutThreads() {
    const rlimit none{0, 0};
    constexpr uid_t nobody = 65534;
    if (setrlimit(RLIMIT_NPROC, &none) != 0 || setresuid(nobody, nobody, nobody) != 0) {
        _exit(2);
    }
    Runs runs;
    _exit(Manager().RegisterTask(TASK_ONCE, Condition(EpochMs() + hourMs, 0), Record, &runs, "no-thread") == 0 ? 0 : 1);
}

TEST(TaskManagerDeathTest, WithoutAThreadTheTaskIsRefused) {
    if (geteuid() != 0) {
        GTEST_SKIP() << "becoming a user without processes needs CAP_SETUID";
    }
    if (runsEmulated) {
        GTEST_SKIP() << startsNoProgram;
    }
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    EXPECT_EXIT(RegisterWithoutThreads(), testing::ExitedWithCode(0), "no-thread");
}

}  // namespace
