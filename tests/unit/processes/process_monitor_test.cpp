#include "agent/process_monitor.h"

#include <gtest/gtest.h>
#include <pthread.h>
#include <sched.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <chrono>
#include <mutex>
#include <stdexcept>
#include <thread>
#include <vector>

#include "host/processes/process_events.h"
#include "tests/support/await_condition.h"
#include "tests/support/moved_clock.h"
#include "tests/unit/processes/process_event_support.h"

namespace {

using namespace std::chrono_literals;
using Host::GetProcessEventCounters;
using Host::ProcessEventCounters;
using TavUtils::ProcessMonitor;
using TestSupport::Await;
using TestSupport::MissingForProcessEvents;
using TestSupport::SpawnTrue;
using TestSupport::ThreadsNamed;
using TestSupport::ThreadsNamedLike;

// Newer kernels declare the enumerators outside the record.
using KernelEvent = decltype(proc_event::what);

ProcessMonitor& Monitor() {
    return ProcessMonitor::GetInstance();
}

// Record of the calls of the callbacks, which carry no context.
struct Seen {
    std::mutex mutex;
    std::vector<proc_event> events;
    std::string threadName;
    std::atomic<int> calls = 0;
    std::atomic<int> forbiddenCalls = 0;
    std::atomic<bool> forbidden = false;
    std::atomic<int> inside = 0;
    std::atomic<bool> removedInside = false;
    std::atomic<bool> released = false;
};
Seen seen;

void Record(proc_event* event) {
    const std::lock_guard lock(seen.mutex);
    seen.events.push_back(*event);
    std::array<char, 16> name{};
    pthread_getname_np(pthread_self(), name.data(), name.size());
    seen.threadName = name.data();
    // Each call has a record of its own.
    *event = proc_event{};
}

bool IsExecOf(const proc_event& event, pid_t pid) {
    return event.what == KernelEvent::PROC_EVENT_EXEC && event.event_data.exec.process_tgid == pid;
}

bool IsForkOf(const proc_event& event, pid_t pid) {
    return event.what == KernelEvent::PROC_EVENT_FORK && event.event_data.fork.child_pid == pid;
}

long ExecsOf(pid_t pid) {
    const std::lock_guard lock(seen.mutex);
    return std::count_if(seen.events.begin(), seen.events.end(), [&](const auto& each) { return IsExecOf(each, pid); });
}

void CountCall(proc_event*) {
    ++seen.calls;
    if (seen.forbidden) {
        ++seen.forbiddenCalls;
    }
}

class ProcessMonitorTest : public testing::Test {
protected:
    void SetUp() override {
        const std::string missing = MissingForProcessEvents();
        if (!missing.empty()) {
            GTEST_SKIP() << missing;
        }
        const std::lock_guard lock(seen.mutex);
        seen.events.clear();
        seen.calls = 0;
        seen.forbiddenCalls = 0;
        seen.forbidden = false;
        seen.removedInside = false;
        seen.released = false;
    }

    void TearDown() override {
        for (const auto callback : used_) {
            Monitor().RemoveProcessEventCallback(callback);
        }
        EXPECT_TRUE(Await([] { return ThreadsNamedLike("proc-events") == 0; }));
    }

    bool Add(void (*callback)(proc_event*)) {
        used_.push_back(callback);
        return Monitor().AddProcessEventCallback(callback);
    }

private:
    std::vector<void (*)(proc_event*)> used_;
};

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

TEST_F(ProcessMonitorTest, AFunctionAddedTwiceIsCalledTwiceAndRemovedAtOnce) {
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

TEST_F(ProcessMonitorTest, NullIsRefusedAndUnknownFunctionsAreIgnored) {
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

// Starts processes without a pause until it ends.
class Flood {
public:
    Flood()
        : thread_([this] {
              while (!enough_) {
                  SpawnTrue();
              }
          }) {}
    ~Flood() {
        enough_ = true;
        thread_.join();
    }
    Flood(const Flood&) = delete;
    Flood& operator=(const Flood&) = delete;

private:
    std::atomic<bool> enough_ = false;
    std::thread thread_;
};

TEST_F(ProcessMonitorTest, ARemovedFunctionIsNotCalledWhileEventsFlood) {
    for (const bool othersStay : {true, false}) {
        if (othersStay) {
            ASSERT_TRUE(Add(Record));
        }
        {
            const Flood flood;
            for (int i = 0; i < 15; ++i) {
                seen.calls = 0;
                seen.forbidden = false;
                ASSERT_TRUE(Add(CountCall));
                ASSERT_TRUE(Await([] { return seen.calls > 3; }));
                Monitor().RemoveProcessEventCallback(CountCall);
                seen.forbidden = true;
                const auto later = GetProcessEventCounters().received + 5;
                EXPECT_TRUE(!othersStay || Await([&] { return GetProcessEventCounters().received > later; }));
            }
        }
        Monitor().RemoveProcessEventCallback(Record);
    }
    EXPECT_EQ(seen.forbiddenCalls, 0);
}

void AwaitRelease(proc_event*) {
    ++seen.inside;
    EXPECT_TRUE(Await([] { return seen.released.load(); }));
    --seen.inside;
}

TEST_F(ProcessMonitorTest, RemovingWaitsForTheCallInProgress) {
    for (const bool othersStay : {true, false}) {
        seen.released = false;
        if (othersStay) {
            ASSERT_TRUE(Add(Record));
        }
        ASSERT_TRUE(Add(AwaitRelease));
        SpawnTrue();
        ASSERT_TRUE(Await([] { return seen.inside == 1 && GetProcessEventCounters().queued > 0; }));
        std::atomic<bool> removed = false;
        std::thread remover([&] {
            Monitor().RemoveProcessEventCallback(AwaitRelease);
            removed = true;
        });
        // The removal has begun once the queue is empty.
        EXPECT_TRUE(Await([] { return GetProcessEventCounters().queued == 0; }));
        EXPECT_EQ(seen.inside, 1);
        EXPECT_FALSE(removed);
        seen.released = true;
        remover.join();
        EXPECT_EQ(seen.inside, 0);
        Monitor().RemoveProcessEventCallback(Record);
    }
}

void RemoveItself(proc_event*) {
    ++seen.calls;
    Monitor().RemoveProcessEventCallback(RemoveItself);
    seen.removedInside = true;
}

TEST_F(ProcessMonitorTest, ACallbackMayRemoveItself) {
    ASSERT_TRUE(Add(Record));
    ASSERT_TRUE(Add(RemoveItself));
    const pid_t pid = SpawnTrue();
    ASSERT_TRUE(Await([&] { return ExecsOf(pid) == 1 && seen.removedInside; }));
    EXPECT_EQ(seen.calls, 1);
}

TEST_F(ProcessMonitorTest, ALastCallbackThatRemovesItselfLeavesTheStopToTheNext) {
    ASSERT_TRUE(Add(RemoveItself));
    SpawnTrue();
    ASSERT_TRUE(Await([] { return seen.removedInside.load(); }));
    EXPECT_EQ(ThreadsNamed("proc-events-1"), 1);
    ASSERT_TRUE(Add(Record));
    const pid_t pid = SpawnTrue();
    EXPECT_TRUE(Await([&] { return ExecsOf(pid) == 1; }));
    EXPECT_EQ(seen.calls, 1);
}

void RemoveTheOther(proc_event*) {
    Monitor().RemoveProcessEventCallback(CountCall);
    seen.forbidden = true;
    seen.removedInside = true;
}

TEST_F(ProcessMonitorTest, ACallbackMayRemoveAnother) {
    ASSERT_TRUE(Add(CountCall));
    ASSERT_TRUE(Add(Record));
    ASSERT_TRUE(Add(RemoveTheOther));
    SpawnTrue();
    ASSERT_TRUE(Await([] { return seen.removedInside.load(); }));
    const pid_t pid = SpawnTrue();
    EXPECT_TRUE(Await([&] { return ExecsOf(pid) == 1; }));
    EXPECT_EQ(seen.forbiddenCalls, 0);
}

void AddAnother(proc_event*) {
    Monitor().RemoveProcessEventCallback(AddAnother);
    seen.removedInside = Monitor().AddProcessEventCallback(Record);
}

TEST_F(ProcessMonitorTest, ACallbackMayAddAnother) {
    ASSERT_TRUE(Add(AddAnother));
    SpawnTrue();
    ASSERT_TRUE(Await([] { return seen.removedInside.load(); }));
    const pid_t pid = SpawnTrue();
    EXPECT_TRUE(Await([&] { return ExecsOf(pid) == 1; }));
    Monitor().RemoveProcessEventCallback(Record);
}

void AwaitReleaseAndRecord(proc_event* event) {
    AwaitRelease(event);
    Record(event);
}

TEST_F(ProcessMonitorTest, ASlowCallbackCostsNoEvent) {
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

TEST_F(ProcessMonitorTest, ABlockedCallbackDelaysNoOther) {
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

TEST_F(ProcessMonitorTest, AnExceptionLeavesTheOthersTheirCalls) {
    ASSERT_TRUE(Add(Throw));
    ASSERT_TRUE(Add(Record));
    const pid_t pid = SpawnTrue();
    EXPECT_TRUE(Await([&] { return ExecsOf(pid) == 1; }));
    EXPECT_TRUE(Await([] { return seen.calls >= 2; }));
}

void Other(proc_event*) {
    ++seen.calls;
}

TEST_F(ProcessMonitorTest, AddingAndRemovingMayRace) {
    constexpr int rounds = 50;
    const Flood flood;
    std::atomic<int> refused = 0;
    std::vector<std::thread> threads;
    for (const auto callback : {CountCall, Other, CountCall}) {
        threads.emplace_back([&refused, callback] {
            for (int i = 0; i < rounds; ++i) {
                refused += Monitor().AddProcessEventCallback(callback) ? 0 : 1;
                Monitor().RemoveProcessEventCallback(callback);
            }
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    EXPECT_EQ(refused, 0);
}

TEST_F(ProcessMonitorTest, ProbingGrantsTheRightAndDisturbsNobody) {
    ASSERT_TRUE(Add(Record));
    EXPECT_EQ(Host::ProbeProcessEvents(), "");
    const pid_t pid = SpawnTrue();
    EXPECT_TRUE(Await([&] { return ExecsOf(pid) == 1; }));
}

// Moves the clock past each deadline that a thread waits for, until the process ends.
void PassDeadlines() {
    for (;;) {
        if (MovedClock::AwaitWaiting()) {
            MovedClock::Advance(500ms);
        }
    }
}

// Ends the process: 0 if below a new namespace of that kind no events were granted, twice, and the probe said why.
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

TEST(ProcessMonitorDeathTest, OutsideTheInitialNamespacesNothingIsGranted) {
    const std::string missing = MissingForProcessEvents();
    if (!missing.empty()) {
        GTEST_SKIP() << missing;
    }
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    EXPECT_EXIT(AskInANewNamespace(CLONE_NEWPID), testing::ExitedWithCode(0), "no process events: .*does not answer");
    EXPECT_EXIT(AskInANewNamespace(CLONE_NEWNET), testing::ExitedWithCode(0), "no process events: ");
}

}  // namespace
