#include "agent/process_monitor.h"

#include <gtest/gtest.h>
#include <sched.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <mutex>
#include <stdexcept>
#include <thread>
#include <vector>

#include "host/processes/process_events.h"
#include "tests/support/moved_clock.h"
#include "tests/unit/processes/process_monitor_support.h"

namespace TestSupport {
namespace {

using namespace std::chrono_literals;
using Host::GetProcessEventCounters;
using Host::ProcessEventCounters;

TEST_F(ProcessMonitorTest, ReportsForkAndExecInOrderOnItsOwnThread) {
    ASSERT_TRUE(Add(Record));
    const pid_t pid = SpawnTrue();
    ASSERT_TRUE(Await([&] { return ExecsOf(pid) == 1; }));
    const std::lock_guard lock(seen.mutex);
    const auto& events = seen.events;
    const auto fork = std::find_if(events.begin(), events.end(), [&](const auto& each) { return IsForkOf(each, pid); });
    const auto exec = std::find_if(events.begin(), events.end(), [&](const auto& each) { return IsExecOf(each, pid); });
    ASSERT_NE(fork, events.end());
    EXPECT_LT(fork, exec);
    EXPECT_EQ(fork->event_data.fork.child_tgid, pid);
    EXPECT_EQ(fork->event_data.fork.parent_tgid, getpid());
    EXPECT_EQ(seen.threadName, "proc-events-1");
}

TEST_F(ProcessMonitorTest, ReportsThreadsAsForksOfTheirProcess) {
    ASSERT_TRUE(Add(Record));
    pid_t thread = 0;
    std::thread([&] { thread = static_cast<pid_t>(syscall(SYS_gettid)); }).join();
    EXPECT_TRUE(Await([&] {
        const std::lock_guard lock(seen.mutex);
        return std::any_of(seen.events.begin(), seen.events.end(), [&](const auto& each) {
            return IsForkOf(each, thread) && each.event_data.fork.child_tgid == getpid();
        });
    }));
}

TEST_F(ProcessMonitorTest, ACallbackAddedTwiceIsCalledTwiceAndRemovedOnce) {
    ASSERT_TRUE(Add(Record));
    ASSERT_TRUE(Add(Record));
    ASSERT_TRUE(Add(CountCall));
    const pid_t pid = SpawnTrue();
    ASSERT_TRUE(Await([&] { return ExecsOf(pid) >= 2; }));
    EXPECT_EQ(ExecsOf(pid), 2);

    Monitor().RemoveProcessEventCallback(Record);
    seen.calls = 0;
    const pid_t later = SpawnTrue();
    ASSERT_TRUE(Await([&] { return seen.calls >= 2; }));
    EXPECT_EQ(ExecsOf(later), 0);
}

TEST_F(ProcessMonitorTest, RejectsNullAndIgnoresUnknownCallbacks) {
    EXPECT_FALSE(Monitor().AddProcessEventCallback(nullptr));
    Monitor().RemoveProcessEventCallback(nullptr);
    Monitor().RemoveProcessEventCallback(CountCall);
}

TEST_F(ProcessMonitorTest, StopsWithTheLastCallbackAndStartsAgain) {
    for (int i = 0; i < 3; ++i) {
        ASSERT_TRUE(Add(Record));
        const pid_t pid = SpawnTrue();
        EXPECT_TRUE(Await([&] { return ExecsOf(pid) == 1; }));
        EXPECT_EQ(ThreadsNamed("proc-events-1"), 1);
        EXPECT_EQ(ThreadsNamed("proc-events-rd"), 1);
        Monitor().RemoveProcessEventCallback(Record);
        EXPECT_TRUE(Await([] { return ThreadsNamedLike("proc-events") == 0; }));
    }
}

void AwaitReleaseAndRecord(proc_event* event) {
    AwaitRelease(event);
    Record(event);
}

TEST_F(ProcessMonitorTest, ASlowCallbackMissesNoEvent) {
    const ProcessEventCounters before = GetProcessEventCounters();
    ASSERT_TRUE(Add(AwaitReleaseAndRecord));
    std::vector<pid_t> pids;
    for (int i = 0; i < 150; ++i) {
        pids.push_back(SpawnTrue());
    }
    seen.released = true;
    EXPECT_TRUE(Await([&] { return ExecsOf(pids.back()) == 1; }));
    for (const pid_t pid : pids) {
        EXPECT_EQ(ExecsOf(pid), 1);
    }
    EXPECT_TRUE(Await([&] { return GetProcessEventCounters().delivered - before.delivered >= 300; }));
    const ProcessEventCounters after = GetProcessEventCounters();
    EXPECT_GE(after.received - before.received, 300U);
    EXPECT_EQ(after.overflowed, before.overflowed);
    EXPECT_EQ(after.kernelLosses, before.kernelLosses);
}

TEST_F(ProcessMonitorTest, ABlockedCallbackDoesNotDelayOthers) {
    ASSERT_TRUE(Add(AwaitRelease));
    ASSERT_TRUE(Add(Record));
    SpawnTrue();
    EXPECT_TRUE(Await([] { return seen.inside == 1; }));
    const pid_t pid = SpawnTrue();
    EXPECT_TRUE(Await([&] { return ExecsOf(pid) == 1; }));
    Monitor().RemoveProcessEventCallback(Record);
    EXPECT_EQ(seen.inside, 1);
    seen.released = true;
}

void Throw(proc_event*) {
    ++seen.calls;
    throw std::runtime_error("bang");
}

TEST_F(ProcessMonitorTest, AnExceptionDoesNotAffectOtherCallbacks) {
    ASSERT_TRUE(Add(Throw));
    ASSERT_TRUE(Add(Record));
    const pid_t pid = SpawnTrue();
    EXPECT_TRUE(Await([&] { return ExecsOf(pid) == 1; }));
    EXPECT_TRUE(Await([] { return seen.calls >= 2; }));
}

TEST_F(ProcessMonitorTest, ProbingSucceedsAndDoesNotDisturbListeners) {
    ASSERT_TRUE(Add(Record));
    EXPECT_EQ(Host::ProbeProcessEvents(), "");
    const pid_t pid = SpawnTrue();
    EXPECT_TRUE(Await([&] { return ExecsOf(pid) == 1; }));
}

// Moves the clock past every awaited deadline until the process ends.
void PassDeadlines() {
    for (;;) {
        if (MovedClock::AwaitWaiting()) {
            MovedClock::Advance(500ms);
        }
    }
}

// Exits with 0 if in a new namespace of that kind events were refused twice, and the probe gave a reason.
[[noreturn]] void AskInANewNamespace(int kind) {
    if (unshare(kind) != 0) {
        _exit(2);
    }
    // Only children enter a new PID namespace.
    const pid_t child = fork();
    if (child == 0) {
        std::thread(PassDeadlines).detach();
        const bool granted = Monitor().AddProcessEventCallback(Record) || Monitor().AddProcessEventCallback(Record);
        Monitor().RemoveProcessEventCallback(Record);
        _exit(granted || Host::ProbeProcessEvents().empty() ? 1 : 0);
    }
    int status = 0;
    waitpid(child, &status, 0);
    _exit(WIFEXITED(status) ? WEXITSTATUS(status) : 3);
}

TEST(ProcessMonitorDeathTest, ReceivesNoEventsOutsideTheInitialNamespaces) {
    const std::string missing = MissingForProcessEvents();
    if (!missing.empty()) {
        GTEST_SKIP() << missing;
    }
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    EXPECT_EXIT(AskInANewNamespace(CLONE_NEWPID), testing::ExitedWithCode(0), "no process events: .*did not answer");
    EXPECT_EXIT(AskInANewNamespace(CLONE_NEWNET), testing::ExitedWithCode(0), "no process events: ");
}

}  // namespace
}  // namespace TestSupport
