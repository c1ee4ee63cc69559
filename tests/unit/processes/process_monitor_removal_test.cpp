// Removes callbacks for process events during calls and floods of events.
#include <gtest/gtest.h>

#include <atomic>
#include <thread>
#include <vector>

#include "host/processes/process_events.h"
#include "tests/unit/processes/process_monitor_support.h"

namespace TestSupport {
namespace {

using Host::GetProcessEventCounters;

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

TEST_F(ProcessMonitorTest, ARemovedCallbackIsNotCalledDuringAFlood) {
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

TEST_F(ProcessMonitorTest, RemovalWaitsForTheRunningCall) {
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
        // An empty queue shows that the removal has begun.
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

TEST_F(ProcessMonitorTest, TheLastCallbackMayRemoveItself) {
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

}  // namespace
}  // namespace TestSupport
