#include "host/events/event_queue.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <chrono>
#include <condition_variable>
#include <memory>
#include <mutex>
#include <optional>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include "agent/events.h"
#include "tests/support/moved_clock.h"

namespace {

using namespace std::chrono_literals;

// Real time in the collector, moved time in Stop.
constexpr auto patience = 20s;

// Collects the events that the queue writes. Can block the writer.
class Collector {
public:
    Host::EventWriter Writer() {
        return [this](std::string_view event) { Take(std::string(event)); };
    }

    void Hold() {
        const std::lock_guard<std::mutex> guard(mutex_);
        held_ = true;
    }
    void Release() {
        const std::lock_guard<std::mutex> guard(mutex_);
        held_ = false;
        changed_.notify_all();
    }
    bool AwaitEntered() {
        std::unique_lock<std::mutex> lock(mutex_);
        return changed_.wait_for(lock, patience, [this] { return entered_; });
    }
    bool AwaitCount(size_t count) {
        std::unique_lock<std::mutex> lock(mutex_);
        return changed_.wait_for(lock, patience, [&] { return events_.size() >= count; });
    }
    std::vector<std::string> Events() {
        const std::lock_guard<std::mutex> guard(mutex_);
        return events_;
    }

private:
    void Take(std::string event) {
        std::unique_lock<std::mutex> lock(mutex_);
        entered_ = true;
        changed_.notify_all();
        changed_.wait(lock, [this] { return !held_; });
        events_.push_back(std::move(event));
        changed_.notify_all();
    }

    std::mutex mutex_;
    std::condition_variable changed_;
    bool held_ = false;
    bool entered_ = false;
    std::vector<std::string> events_;
};

size_t CountOf(const std::string& text, const std::string& part) {
    size_t count = 0;
    for (size_t at = text.find(part); at != std::string::npos; at = text.find(part, at + 1)) {
        ++count;
    }
    return count;
}

TEST(EventQueue, WritesEventsPushedBeforeAndAfterStartInOrder) {
    Collector collector;
    Host::EventQueue queue;
    queue.Push("1");
    queue.Push("2");
    queue.Start(collector.Writer());
    queue.Push("3");
    EXPECT_TRUE(queue.Stop(patience));
    EXPECT_EQ(collector.Events(), (std::vector<std::string>{"1", "2", "3"}));
    EXPECT_EQ(queue.Counters().written, 3U);
}

TEST(EventQueue, LimitsToSixtyEventsPerMinuteByDefault) {
    Collector collector;
    Host::EventQueue queue;
    for (int i = 0; i < 100; ++i) {
        queue.Push("e");
    }
    EXPECT_EQ(queue.Counters().limited, 40U);
    testing::internal::CaptureStderr();
    queue.Start(collector.Writer());
    EXPECT_TRUE(queue.Stop(patience));
    testing::internal::GetCapturedStderr();
    EXPECT_EQ(collector.Events().size(), 60U);
}

TEST(EventQueue, LimitAppliesToEachWindow) {
    Host::EventQueue queue;
    queue.SetPerMinuteLimit(2);
    for (const unsigned int dropped : {0U, 0U, 1U, 2U}) {
        queue.Push("e");
        EXPECT_EQ(queue.Counters().limited, dropped);
    }
    MovedClock::Advance(1min);
    for (const unsigned int dropped : {2U, 2U, 3U}) {
        queue.Push("e");
        EXPECT_EQ(queue.Counters().limited, dropped);
    }
}

TEST(EventQueue, ZeroMeansNoLimit) {
    Host::EventQueue queue;
    queue.SetPerMinuteLimit(0);
    for (int i = 0; i < 5000; ++i) {
        queue.Push("e");
    }
    EXPECT_EQ(queue.Counters().limited, 0U);
}

TEST(EventQueue, FullQueueDropsTheNewestEventsWithoutWaiting) {
    Collector collector;
    collector.Hold();
    Host::EventQueue queue;
    queue.SetPerMinuteLimit(0);
    queue.Start(collector.Writer());
    queue.Push("in the writer's hands");
    ASSERT_TRUE(collector.AwaitEntered());
    for (size_t i = 0; i < Host::EventQueue::capacity + 5; ++i) {
        queue.Push(std::to_string(i));
    }
    EXPECT_EQ(queue.Counters().overflowed, 5U);
    collector.Release();
    testing::internal::CaptureStderr();
    EXPECT_TRUE(queue.Stop(patience));
    EXPECT_THAT(
        testing::internal::GetCapturedStderr(),
        testing::HasSubstr(
            "5 events were dropped: 0 beyond the limit of 0 per minute (see events.perMinuteLimit), 5 because"));
    EXPECT_EQ(collector.Events().size(), Host::EventQueue::capacity + 1);
    EXPECT_EQ(collector.Events().back(), std::to_string(Host::EventQueue::capacity - 1));
}

TEST(EventQueue, LimitsBytesToo) {
    Host::EventQueue queue;
    queue.SetPerMinuteLimit(0);
    const std::string big(Host::EventQueue::capacityBytes / 4 + 1, 'x');
    for (int i = 0; i < 4; ++i) {
        queue.Push(big);
    }
    EXPECT_EQ(queue.Counters().overflowed, 1U);
}

TEST(EventQueue, ReportsDropsAMinuteAfterTheFirst) {
    Collector collector;
    Host::EventQueue queue;
    queue.SetPerMinuteLimit(1);
    testing::internal::CaptureStderr();
    queue.Start(collector.Writer());
    for (int i = 0; i < 61; ++i) {
        queue.Push("e");
    }
    ASSERT_EQ(queue.Counters().limited, 60U);
    ASSERT_TRUE(MovedClock::AwaitDeadline(Host::Clock::Now() + 1min));
    MovedClock::Advance(1min);
    EXPECT_TRUE(MovedClock::AwaitDeadline(std::nullopt));
    const std::string log = testing::internal::GetCapturedStderr();
    EXPECT_EQ(CountOf(log, "events were dropped"), 1U) << log;
    EXPECT_THAT(log, testing::HasSubstr("warning event_queue"));
    EXPECT_THAT(
        log, testing::HasSubstr(
                 "60 events were dropped: 60 beyond the limit of 1 per minute (see events.perMinuteLimit), 0 because"));
    EXPECT_TRUE(queue.Stop(patience));
}

TEST(EventQueue, StopReportsPendingDrops) {
    Collector collector;
    Host::EventQueue queue;
    queue.SetPerMinuteLimit(1);
    queue.Start(collector.Writer());
    queue.Push("e");
    queue.Push("e");
    testing::internal::CaptureStderr();
    EXPECT_TRUE(queue.Stop(patience));
    EXPECT_EQ(CountOf(testing::internal::GetCapturedStderr(), "1 events were dropped"), 1U);
}

TEST(EventQueue, StopGivesUpOnAStuckWriter) {
    // Shared with the thread, which outlives the test.
    const auto collector = std::make_shared<Collector>();
    collector->Hold();
    {
        Host::EventQueue queue;
        queue.Start([collector](std::string_view event) { collector->Writer()(event); });
        queue.Push("e");
        ASSERT_TRUE(collector->AwaitEntered());
        std::thread stopper([&] { EXPECT_FALSE(queue.Stop(50ms)); });
        EXPECT_TRUE(MovedClock::AwaitDeadline(Host::Clock::Now() + 50ms));
        MovedClock::Advance(50ms);
        stopper.join();
    }
    collector->Release();
    EXPECT_TRUE(collector->AwaitCount(1));
}

TEST(EventQueue, CanBeStartedAgain) {
    Collector collector;
    Host::EventQueue queue;
    queue.Start(collector.Writer());
    EXPECT_TRUE(queue.Stop(patience));
    queue.Push("between");
    queue.Start(collector.Writer());
    EXPECT_TRUE(queue.Stop(patience));
    EXPECT_EQ(collector.Events(), std::vector<std::string>{"between"});
}

TEST(EventQueue, ThrowingWriterLosesOnlyItsEvent) {
    Collector collector;
    Host::EventQueue queue;
    queue.Push("bad");
    queue.Push("good");
    testing::internal::CaptureStderr();
    queue.Start([write = collector.Writer()](std::string_view event) {
        if (event == "bad") {
            throw std::runtime_error("no");
        }
        write(event);
    });
    EXPECT_TRUE(queue.Stop(patience));
    EXPECT_EQ(CountOf(testing::internal::GetCapturedStderr(), "cannot write an event, it is lost: no"), 1U);
    EXPECT_EQ(collector.Events(), std::vector<std::string>{"good"});
}

TEST(EventQueue, ManyThreadsMayPush) {
    Collector collector;
    Host::EventQueue queue;
    queue.SetPerMinuteLimit(0);
    queue.Start(collector.Writer());
    std::vector<std::thread> pushers;
    for (int i = 0; i < 4; ++i) {
        pushers.emplace_back([&queue] {
            for (int j = 0; j < 500; ++j) {
                queue.Push("e");
            }
        });
    }
    for (std::thread& pusher : pushers) {
        pusher.join();
    }
    EXPECT_TRUE(queue.Stop(patience));
    EXPECT_EQ(collector.Events().size(), 2000U);
}

TEST(EventConsumer, PassesFindingsToTheQueue) {
    Collector collector;
    Host::EventQueue::Instance().Start(collector.Writer());
    EventConsumer::Instance().PushMinuteLimitEvent("{}");
    EXPECT_TRUE(Host::EventQueue::Instance().Stop(patience));
    EXPECT_EQ(collector.Events(), std::vector<std::string>{"{}"});
}

}  // namespace
