#include "host/processes/event_dispatcher.h"

#include <gtest/gtest.h>
#include <sys/prctl.h>

#include <algorithm>
#include <atomic>
#include <mutex>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include "tests/support/await_condition.h"

namespace {

using Host::EventDispatcher;
using TestSupport::Await;
using TestSupport::ThreadsNamed;
using TestSupport::ThreadsNamedLike;

std::mutex takenMutex;
std::vector<uint32_t> taken;

void Take(proc_event* event) {
    const std::lock_guard lock(takenMutex);
    taken.push_back(event->cpu);
    // What one callback does to the record is nothing to the next.
    event->cpu = 0xdead;
}

size_t Taken() {
    const std::lock_guard lock(takenMutex);
    return taken.size();
}

std::vector<proc_event> NumberedEvents(size_t count) {
    std::vector<proc_event> events(count);
    for (size_t i = 0; i < count; ++i) {
        events[i].cpu = static_cast<uint32_t>(i);
    }
    return events;
}

TEST(EventDispatcher, AFullQueueDropsTheNewestAndCountsThem) {
    EventDispatcher dispatcher;
    dispatcher.Add(Take);
    EXPECT_TRUE(dispatcher.Push(NumberedEvents(EventDispatcher::capacity - 1)).empty());
    EXPECT_EQ(dispatcher.Push(NumberedEvents(11)).size(), 1U);
    // Told already.
    EXPECT_TRUE(dispatcher.Push(NumberedEvents(5)).empty());
    EXPECT_EQ(dispatcher.Count().queued, EventDispatcher::capacity);
    EXPECT_EQ(dispatcher.Count().overflowed, 15U);
    EXPECT_EQ(dispatcher.Count().delivered, 0U);
}

TEST(EventDispatcher, DeliversInOrderAndTheRecordUnchanged) {
    constexpr size_t count = 10000;
    taken.clear();
    EventDispatcher dispatcher;
    dispatcher.Add(Take);
    dispatcher.Add(Take);
    dispatcher.Push(NumberedEvents(count));
    dispatcher.Start();
    ASSERT_TRUE(Await([&] { return dispatcher.Count().delivered == 2 * count; }));
    dispatcher.Stop();
    ASSERT_EQ(taken.size(), 2 * count);
    for (size_t i = 0; i < taken.size(); ++i) {
        ASSERT_EQ(taken[i], i / 2);
    }
}

std::atomic<int> slackNs = 0;

void NoteTimerSlack(proc_event*) {
    slackNs = prctl(PR_GET_TIMERSLACK, 0UL, 0UL, 0UL, 0UL);
}

TEST(EventDispatcher, PausesOfCallbacksAreNotStretched) {
    EventDispatcher dispatcher;
    dispatcher.Add(NoteTimerSlack);
    dispatcher.Push(NumberedEvents(1));
    dispatcher.Start();
    EXPECT_TRUE(Await([] { return slackNs == 1; }));
}

TEST(EventDispatcher, AFunctionAddedAgainIsCalledOnceMoreFromTheNextEventOn) {
    taken.clear();
    EventDispatcher dispatcher;
    dispatcher.Add(Take);
    dispatcher.Push(NumberedEvents(1));
    dispatcher.Add(Take);
    dispatcher.Push(NumberedEvents(1));
    dispatcher.Start();
    EXPECT_TRUE(Await([&] { return dispatcher.Count().queued == 0 && dispatcher.Count().delivered == 3; }));
    dispatcher.Stop();
    EXPECT_EQ(taken.size(), 3U);
}

void ThrowError(proc_event*) {
    throw std::runtime_error("bang");
}

void ThrowNumber(proc_event*) {
    throw 7;
}

TEST(EventDispatcher, ExceptionsAreLoggedOnceAMinuteAndDeliveryGoesOn) {
    struct Row {
        EventDispatcher::Callback callback;
        const char* logged;
    };
    for (const Row& row : {Row{ThrowError, "failed: bang"}, Row{ThrowNumber, "unknown exception"}}) {
        EventDispatcher dispatcher;
        dispatcher.Add(row.callback);
        dispatcher.Push(NumberedEvents(100));
        testing::internal::CaptureStderr();
        dispatcher.Start();
        EXPECT_TRUE(Await([&] { return dispatcher.Count().delivered == 100; }));
        dispatcher.Stop();
        const std::string log = testing::internal::GetCapturedStderr();
        const size_t first = log.find(row.logged);
        ASSERT_NE(first, std::string::npos);
        EXPECT_EQ(log.find(row.logged, first + 1), std::string::npos);
    }
}

TEST(EventDispatcher, EventsWithoutACallbackAreForgotten) {
    EventDispatcher dispatcher;
    dispatcher.Start();
    dispatcher.Push(NumberedEvents(100));
    EXPECT_EQ(dispatcher.Count().queued, 0U);
    EXPECT_EQ(dispatcher.Count().overflowed, 0U);
    dispatcher.Stop();
    EXPECT_EQ(dispatcher.Count().delivered, 0U);
}

TEST(EventDispatcher, StoppingForgetsWhatIsQueuedAndItStartsAgain) {
    taken.clear();
    EventDispatcher dispatcher;
    dispatcher.Start();
    dispatcher.Stop();
    dispatcher.Add(Take);
    dispatcher.Push(NumberedEvents(3));
    dispatcher.Start();
    EXPECT_TRUE(Await([] { return Taken() == 3; }));
    dispatcher.Remove(Take);
    EXPECT_TRUE(dispatcher.Idle());
    EXPECT_FALSE(dispatcher.HasCallbacks());
    dispatcher.Stop();
    EXPECT_EQ(dispatcher.Count().queued, 0U);
}

// The gate of the callbacks below, which carry no context.
std::atomic<bool> gateOpen;
std::atomic<int> atGate;

void WaitAtGate(proc_event*) {
    ++atGate;
    EXPECT_TRUE(Await([] { return gateOpen.load(); }));
    --atGate;
}

// A dispatcher with a callback that does not return until the gate opens: it is in its first call.
class BlockedDispatcher : public testing::Test {
protected:
    void SetUp() override {
        taken.clear();
        gateOpen = false;
        dispatcher_.Add(WaitAtGate);
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

TEST_F(BlockedDispatcher, TheOthersGetTheirEventsInOrder) {
    dispatcher_.Add(Take);
    dispatcher_.Push(NumberedEvents(100));
    ASSERT_TRUE(Await([] { return Taken() == 100; }));
    EXPECT_EQ(atGate, 1);
    for (size_t i = 0; i < taken.size(); ++i) {
        EXPECT_EQ(taken[i], i);
    }
    EXPECT_EQ(dispatcher_.Count().queued, 100U);
}

TEST_F(BlockedDispatcher, ItsOverflowCostsTheOthersNothing) {
    constexpr size_t beyond = 7;
    dispatcher_.Add(Take);
    std::vector<EventDispatcher::Laggard> laggards;
    for (const size_t count : {EventDispatcher::capacity, beyond}) {
        const size_t before = Taken();
        laggards = dispatcher_.Push(NumberedEvents(count));
        ASSERT_TRUE(Await([&] { return Taken() == before + count; }));
    }
    EXPECT_EQ(dispatcher_.Count().overflowed, beyond);
    ASSERT_EQ(laggards.size(), 1U);
    EXPECT_EQ(laggards[0].callback, WaitAtGate);
    EXPECT_EQ(laggards[0].threadName, "proc-events-1");
    EXPECT_EQ(laggards[0].overflowed, beyond);
}

TEST_F(BlockedDispatcher, AnotherIsRemovedWithoutWaiting) {
    dispatcher_.Add(Take);
    ASSERT_TRUE(Await([] { return ThreadsNamed("proc-events-2") == 1; }));
    dispatcher_.Remove(Take);
    EXPECT_EQ(atGate, 1);
    EXPECT_TRUE(Await([] { return ThreadsNamedLike("proc-events") == 1; }));
}

TEST_F(BlockedDispatcher, ItsRemovalForgetsWhatItHasWaiting) {
    dispatcher_.Push(NumberedEvents(10));
    std::thread remover([this] { dispatcher_.Remove(WaitAtGate); });
    EXPECT_TRUE(Await([&] { return !dispatcher_.HasCallbacks(); }));
    EXPECT_EQ(dispatcher_.Count().queued, 0U);
    EXPECT_FALSE(dispatcher_.Idle());
    gateOpen = true;
    remover.join();
    EXPECT_EQ(atGate, 0);
    EXPECT_TRUE(dispatcher_.Idle());
    EXPECT_EQ(dispatcher_.Count().delivered, 1U);
}

// Of the tests in which callbacks call the dispatcher.
EventDispatcher* shared;
std::atomic<int> inside;
std::atomic<int> mostInside;
std::atomic<int> finished;

class SharedDispatcher : public testing::Test {
protected:
    void SetUp() override {
        shared = &dispatcher_;
        inside = 0;
        mostInside = 0;
        finished = 0;
        gateOpen = false;
        taken.clear();
    }

    void TearDown() override {
        gateOpen = true;
        dispatcher_.Stop();
    }

    EventDispatcher dispatcher_;
};

void RemoveTheBlocked(proc_event*) {
    EXPECT_TRUE(Await([] { return atGate == 1; }));
    // Soon, and not before the removal has begun.
    std::thread opener([] {
        EXPECT_TRUE(Await([] { return !shared->HasCallbacks(); }));
        gateOpen = true;
    });
    shared->Remove(RemoveTheBlocked);
    shared->Remove(WaitAtGate);
    EXPECT_EQ(atGate, 0);
    opener.join();
    ++finished;
}

TEST_F(SharedDispatcher, ACallbackThatRemovesAnotherWaitsForItsCall) {
    dispatcher_.Add(WaitAtGate);
    dispatcher_.Add(RemoveTheBlocked);
    dispatcher_.Push(NumberedEvents(1));
    dispatcher_.Start();
    EXPECT_TRUE(Await([] { return finished == 1; }));
}

void RemoveSecond(proc_event*);

void RemoveFirst(proc_event*);

void RemoveAtOnceWithTheOther(EventDispatcher::Callback other) {
    ++inside;
    EXPECT_TRUE(Await([] { return inside == 2; }));
    shared->Remove(other);
    ++finished;
}

void RemoveSecond(proc_event*) {
    RemoveAtOnceWithTheOther(RemoveFirst);
}

void RemoveFirst(proc_event*) {
    RemoveAtOnceWithTheOther(RemoveSecond);
}

TEST_F(SharedDispatcher, CallbacksThatRemoveEachOtherDoNotWaitForEver) {
    dispatcher_.Add(RemoveFirst);
    dispatcher_.Add(RemoveSecond);
    dispatcher_.Push(NumberedEvents(2));
    dispatcher_.Start();
    EXPECT_TRUE(Await([] { return finished == 2; }));
    EXPECT_TRUE(Await([&] { return dispatcher_.Idle(); }));
}

void ReplaceItself(proc_event*) {
    mostInside = std::max(mostInside.load(), ++inside);
    shared->Remove(ReplaceItself);
    shared->Add(ReplaceItself);
    shared->Push(NumberedEvents(1));
    --inside;
    ++finished;
}

TEST_F(SharedDispatcher, ACallbackThatAddsItselfAgainIsStillCalledByOneThreadAtATime) {
    dispatcher_.Add(ReplaceItself);
    dispatcher_.Push(NumberedEvents(1));
    dispatcher_.Start();
    EXPECT_TRUE(Await([] { return finished >= 1000; }));
    dispatcher_.Stop();
    EXPECT_EQ(mostInside, 1);
}

TEST_F(SharedDispatcher, AddingAndRemovingMayRaceWithEvents) {
    dispatcher_.Add(ReplaceItself);
    dispatcher_.Start();
    std::vector<std::thread> threads;
    for (const EventDispatcher::Callback callback : {Take, ReplaceItself, Take}) {
        threads.emplace_back([this, callback] {
            for (int i = 0; i < 300; ++i) {
                dispatcher_.Add(callback);
                dispatcher_.Push(NumberedEvents(10));
                dispatcher_.Remove(callback);
            }
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    dispatcher_.Remove(ReplaceItself);
    // None, where each event came while the callback was not there.
    EXPECT_LE(mostInside, 1);
    EXPECT_TRUE(Await([] { return ThreadsNamedLike("proc-events") <= 1; }));
}

}  // namespace
