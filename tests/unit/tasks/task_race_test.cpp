#include <gtest/gtest.h>
#include <sys/resource.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <thread>
#include <vector>

#include "agent/task_manager.h"
#include "host/tasks/task_scheduler.h"
#include "tests/support/await_condition.h"
#include "tests/support/emulation.h"
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
using TestSupport::Runs;
using TestSupport::ThreadsNamed;

TEST(TaskRace, AllOperationsMayRunAtOnce) {
    constexpr int rounds = 100;
    std::atomic<int> owners = 3;
    std::atomic<int> lateRuns = 0;
    std::atomic<int> overlaps = 0;
    std::atomic<unsigned int> latest = 0;
    std::vector<std::thread> threads;
    for (int i = owners; i > 0; --i) {
        threads.emplace_back([&] {
            for (int round = 0; round < rounds; ++round) {
                Runs runs;
                const unsigned int id = Manager().RegisterTask(TASK_REPEAT, Condition(0, 1), Record, &runs, "race");
                latest = id;
                MovedClock::Advance(1ms);
                Manager().PauseAndWaitForEnd(id);
                const int count = runs.count;
                Host::RunTaskNow("race");
                lateRuns += runs.count - count;
                overlaps += runs.overlaps;
                Manager().UnregisterTask(id);
            }
            --owners;
        });
    }
    // The others pause and run the latest task, but only its owner unregisters it: the runs write to the owner's
    // record.
    threads.emplace_back([&] {
        while (owners > 0) {
            Manager().PauseAndWaitForEnd(latest);
        }
    });
    threads.emplace_back([&] {
        while (owners > 0) {
            Host::RunTaskNow("race");
        }
    });
    for (std::thread& thread : threads) {
        thread.join();
    }
    EXPECT_EQ(lateRuns, 0);
    EXPECT_EQ(overlaps, 0);
    EXPECT_TRUE(Await([] { return ThreadsNamed("race") == 0; }));
}

TEST(TaskRace, TwoThreadsMayUnregisterTheSameTask) {
    for (int i = 0; i < 50; ++i) {
        Runs runs;
        const unsigned int id = Manager().RegisterTask(TASK_REPEAT, Condition(0, 1), Record, &runs, "two-ends");
        std::thread other([&] { Manager().UnregisterTask(id); });
        Manager().UnregisterTask(id);
        other.join();
        EXPECT_FALSE(Host::RunTaskNow("two-ends"));
    }
}

// Exits with 0 if the task was rejected for want of a thread.
[[noreturn]] void RegisterWithoutThreads() {
    const rlimit none{0, 0};
    constexpr uid_t nobody = 65534;
    if (setrlimit(RLIMIT_NPROC, &none) != 0 || setresuid(nobody, nobody, nobody) != 0) {
        _exit(2);
    }
    Runs runs;
    _exit(Manager().RegisterTask(TASK_ONCE, Condition(EpochMs() + hourMs, 0), Record, &runs, "no-thread") == 0 ? 0 : 1);
}

TEST(TaskManagerDeathTest, RejectsATaskWithoutAThread) {
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
