#include <gtest/gtest.h>

#include <chrono>
#include <condition_variable>
#include <mutex>
#include <optional>
#include <string_view>

#include "host/events/event_queue.h"
#include "tests/support/moved_clock.h"

namespace {

using namespace std::chrono_literals;

// Real time in the counter, moved time in Stop.
constexpr auto patience = 20s;

// Counts the calls of the idle function.
class IdleCounter {
public:
    bool Call() {
        const std::lock_guard<std::mutex> guard(mutex_);
        ++calls_;
        changed_.notify_all();
        return pending_;
    }
    void SetPending(bool pending) {
        const std::lock_guard<std::mutex> guard(mutex_);
        pending_ = pending;
    }
    bool Await(int calls) {
        std::unique_lock<std::mutex> lock(mutex_);
        return changed_.wait_for(lock, patience, [&] { return calls_ >= calls; });
    }
    int Calls() {
        const std::lock_guard<std::mutex> guard(mutex_);
        return calls_;
    }

private:
    std::mutex mutex_;
    std::condition_variable changed_;
    bool pending_ = false;
    int calls_ = 0;
};

TEST(EventQueueIdle, IsCalledAtStartAndOnWake) {
    IdleCounter idle;
    Host::EventQueue queue;
    queue.Start([](std::string_view) {}, [&idle] { return idle.Call(); });
    EXPECT_TRUE(idle.Await(1));
    queue.Wake();
    EXPECT_TRUE(idle.Await(2));
    queue.Push("e");
    EXPECT_TRUE(idle.Await(3));
    EXPECT_TRUE(queue.Stop(patience));
}

TEST(EventQueueIdle, IsRepeatedOnlyWhileSomethingIsPending) {
    IdleCounter idle;
    idle.SetPending(true);
    Host::EventQueue queue;
    queue.Start([](std::string_view) {}, [&idle] { return idle.Call(); });
    for (int calls = 1; calls <= 3; ++calls) {
        ASSERT_TRUE(MovedClock::AwaitDeadline(Host::Clock::Now() + 1s));
        EXPECT_EQ(idle.Calls(), calls);
        idle.SetPending(calls < 3);
        MovedClock::Advance(1s);
    }
    // From here on, no time wakes the thread.
    EXPECT_TRUE(MovedClock::AwaitDeadline(std::nullopt));
    EXPECT_EQ(idle.Calls(), 4);
    EXPECT_TRUE(queue.Stop(patience));
}

}  // namespace
