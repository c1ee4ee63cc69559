#include "host/processes/event_dispatcher.h"

#include <gtest/gtest.h>
#include <sys/prctl.h>

#include <atomic>
#include <chrono>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include "tests/support/moved_clock.h"
#include "tests/unit/processes/event_dispatcher_support.h"

namespace TestSupport {
namespace {

using namespace std::chrono_literals;
using Host::EventDispatcher;

TEST(EventDispatcher, AFullQueueDropsAndCountsTheNewestEvents) {
    EventDispatcher dispatcher;
    dispatcher.Add(Listener(Take));
    EXPECT_TRUE(dispatcher.Push(NumberedEvents(EventDispatcher::capacity - 1)).empty());
    EXPECT_EQ(dispatcher.Push(NumberedEvents(11)).size(), 1U);
    // Reported already.
    EXPECT_TRUE(dispatcher.Push(NumberedEvents(5)).empty());
    EXPECT_EQ(dispatcher.GetCounters().queued, EventDispatcher::capacity);
    EXPECT_EQ(dispatcher.GetCounters().overflowed, 15U);
    EXPECT_EQ(dispatcher.GetCounters().delivered, 0U);
}

TEST(EventDispatcher, ReportsALaggardOncePerMinute) {
    EventDispatcher dispatcher;
    dispatcher.Add(Listener(Take));
    EXPECT_EQ(dispatcher.Push(NumberedEvents(EventDispatcher::capacity + 1)).size(), 1U);
    MovedClock::Advance(59s);
    EXPECT_TRUE(dispatcher.Push(NumberedEvents(1)).empty());
    MovedClock::Advance(1s);
    const auto laggards = dispatcher.Push(NumberedEvents(1));
    ASSERT_EQ(laggards.size(), 1U);
    EXPECT_EQ(laggards[0].overflowed, 3U);
}

TEST(EventDispatcher, DeliversInOrder) {
    constexpr size_t count = 10000;
    taken.clear();
    EventDispatcher dispatcher;
    dispatcher.Add(Listener(Take));
    dispatcher.Add(Listener(Take));
    dispatcher.Push(NumberedEvents(count));
    dispatcher.Start();
    ASSERT_TRUE(Await([&] { return dispatcher.GetCounters().delivered == 2 * count; }));
    dispatcher.Stop();
    ASSERT_EQ(taken.size(), 2 * count);
    for (size_t i = 0; i < taken.size(); ++i) {
        ASSERT_EQ(taken[i], i / 2);
    }
}

std::atomic<int> slackNs = 0;

void NoteTimerSlack(const ProcessEvent&) {
    slackNs = prctl(PR_GET_TIMERSLACK, 0UL, 0UL, 0UL, 0UL);
}

TEST(EventDispatcher, ListenersRunWithTheLeastTimerSlack) {
    EventDispatcher dispatcher;
    dispatcher.Add(Listener(NoteTimerSlack));
    dispatcher.Push(NumberedEvents(1));
    dispatcher.Start();
    EXPECT_TRUE(Await([] { return slackNs == 1; }));
}

TEST(EventDispatcher, AListenerAddedTwiceIsCalledTwiceFromTheNextEventOn) {
    taken.clear();
    EventDispatcher dispatcher;
    dispatcher.Add(Listener(Take));
    dispatcher.Push(NumberedEvents(1));
    dispatcher.Add(Listener(Take));
    dispatcher.Push(NumberedEvents(1));
    dispatcher.Start();
    EXPECT_TRUE(Await([&] { return dispatcher.GetCounters().queued == 0 && dispatcher.GetCounters().delivered == 3; }));
    dispatcher.Stop();
    EXPECT_EQ(taken.size(), 3U);
}

void ThrowError(const ProcessEvent&) {
    throw std::runtime_error("bang");
}

void ThrowNumber(const ProcessEvent&) {
    throw 7;
}

TEST(EventDispatcher, LogsExceptionsOncePerMinuteAndKeepsDelivering) {
    struct Row {
        Function callback;
        const char* logged;
    };
    for (const Row& row : {Row{ThrowError, "failed: bang"}, Row{ThrowNumber, "unknown exception"}}) {
        EventDispatcher dispatcher;
        dispatcher.Add(Listener(row.callback));
        dispatcher.Push(NumberedEvents(100));
        testing::internal::CaptureStderr();
        dispatcher.Start();
        EXPECT_TRUE(Await([&] { return dispatcher.GetCounters().delivered == 100; }));
        dispatcher.Stop();
        const std::string log = testing::internal::GetCapturedStderr();
        const size_t first = log.find(row.logged);
        ASSERT_NE(first, std::string::npos);
        EXPECT_EQ(log.find(row.logged, first + 1), std::string::npos);
    }
}

TEST(EventDispatcher, DropsEventsWithoutAListener) {
    EventDispatcher dispatcher;
    dispatcher.Start();
    dispatcher.Push(NumberedEvents(100));
    EXPECT_EQ(dispatcher.GetCounters().queued, 0U);
    EXPECT_EQ(dispatcher.GetCounters().overflowed, 0U);
    dispatcher.Stop();
    EXPECT_EQ(dispatcher.GetCounters().delivered, 0U);
}

TEST(EventDispatcher, StartsAgainAfterAStop) {
    taken.clear();
    EventDispatcher dispatcher;
    dispatcher.Start();
    dispatcher.Stop();
    dispatcher.Add(Listener(Take));
    dispatcher.Push(NumberedEvents(3));
    dispatcher.Start();
    EXPECT_TRUE(Await([] { return Taken() == 3; }));
    dispatcher.Remove(CodeOf(Take));
    EXPECT_TRUE(dispatcher.IsIdle());
    EXPECT_FALSE(dispatcher.HasListeners());
    dispatcher.Stop();
    EXPECT_EQ(dispatcher.GetCounters().queued, 0U);
}

// A dispatcher with one listener that blocks in its first call until the gate opens.
class BlockedDispatcher : public testing::Test {
protected:
    void SetUp() override {
        taken.clear();
        gateOpen = false;
        dispatcher_.Add(Listener(WaitAtGate));
        dispatcher_.Start();
        dispatcher_.Push(NumberedEvents(1));
        ASSERT_TRUE(Await([] { return atGate == 1; }));
    }

    void TearDown() override {
        gateOpen = true;
        dispatcher_.Stop();
    }

    EventDispatcher dispatcher_;
};

TEST_F(BlockedDispatcher, OtherListenersGetTheirEventsInOrder) {
    dispatcher_.Add(Listener(Take));
    dispatcher_.Push(NumberedEvents(100));
    ASSERT_TRUE(Await([] { return Taken() == 100; }));
    EXPECT_EQ(atGate, 1);
    for (size_t i = 0; i < taken.size(); ++i) {
        EXPECT_EQ(taken[i], i);
    }
    EXPECT_EQ(dispatcher_.GetCounters().queued, 100U);
}

TEST_F(BlockedDispatcher, ItsOverflowDoesNotAffectOtherListeners) {
    constexpr size_t beyond = 7;
    dispatcher_.Add(Listener(Take));
    std::vector<EventDispatcher::Laggard> laggards;
    for (const size_t count : {EventDispatcher::capacity, beyond}) {
        const size_t before = Taken();
        laggards = dispatcher_.Push(NumberedEvents(count));
        ASSERT_TRUE(Await([&] { return Taken() == before + count; }));
    }
    EXPECT_EQ(dispatcher_.GetCounters().overflowed, beyond);
    ASSERT_EQ(laggards.size(), 1U);
    EXPECT_EQ(laggards[0].code, CodeOf(WaitAtGate));
    EXPECT_EQ(laggards[0].threadName, "proc-events-1");
    EXPECT_EQ(laggards[0].overflowed, beyond);
}

TEST_F(BlockedDispatcher, RemovingAnotherListenerDoesNotWait) {
    dispatcher_.Add(Listener(Take));
    ASSERT_TRUE(Await([] { return ThreadsNamed("proc-events-2") == 1; }));
    dispatcher_.Remove(CodeOf(Take));
    EXPECT_EQ(atGate, 1);
    EXPECT_TRUE(Await([] { return ThreadsNamedLike("proc-events") == 1; }));
}

TEST_F(BlockedDispatcher, RemovingItDropsItsQueuedEvents) {
    dispatcher_.Push(NumberedEvents(10));
    std::thread remover([this] { dispatcher_.Remove(CodeOf(WaitAtGate)); });
    EXPECT_TRUE(Await([&] { return !dispatcher_.HasListeners(); }));
    EXPECT_EQ(dispatcher_.GetCounters().queued, 0U);
    EXPECT_FALSE(dispatcher_.IsIdle());
    gateOpen = true;
    remover.join();
    EXPECT_EQ(atGate, 0);
    EXPECT_TRUE(dispatcher_.IsIdle());
    EXPECT_EQ(dispatcher_.GetCounters().delivered, 1U);
}

}  // namespace
}  // namespace TestSupport
