#include "host/services/event_dispatcher.h"

#include <gtest/gtest.h>

#include <mutex>
#include <stdexcept>
#include <string>
#include <vector>

#include "tests/unit/services/await_condition.h"

namespace {

using Host::EventDispatcher;
using TestSupport::Await;

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
    EXPECT_EQ(dispatcher.Push(NumberedEvents(EventDispatcher::capacity - 1)), 0U);
    EXPECT_EQ(dispatcher.Push(NumberedEvents(11)), 10U);
    EXPECT_EQ(dispatcher.Push(NumberedEvents(5)), 5U);
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
    ASSERT_TRUE(Await([&] { return dispatcher.Count().delivered == count; }));
    dispatcher.Stop();
    ASSERT_EQ(taken.size(), 2 * count);
    for (size_t i = 0; i < taken.size(); ++i) {
        ASSERT_EQ(taken[i], i / 2);
    }
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

TEST(EventDispatcher, EventsWithoutACallbackAreNotDelivered) {
    EventDispatcher dispatcher;
    dispatcher.Push(NumberedEvents(100));
    dispatcher.Start();
    EXPECT_TRUE(Await([&] { return dispatcher.Count().queued == 0; }));
    dispatcher.Stop();
    EXPECT_EQ(dispatcher.Count().delivered, 0U);
}

TEST(EventDispatcher, StoppingForgetsWhatIsQueuedAndItStartsAgain) {
    taken.clear();
    EventDispatcher dispatcher;
    dispatcher.Start();
    dispatcher.Stop();
    dispatcher.Push(NumberedEvents(3));
    dispatcher.Add(Take);
    dispatcher.Start();
    EXPECT_TRUE(Await([] { return Taken() == 3; }));
    dispatcher.Remove(Take);
    EXPECT_TRUE(dispatcher.Idle());
    EXPECT_FALSE(dispatcher.HasCallbacks());
    dispatcher.Stop();
    EXPECT_EQ(dispatcher.Count().queued, 0U);
}

}  // namespace
