// Listeners that call the dispatcher.
#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <thread>
#include <vector>

#include "host/processes/event_dispatcher.h"
#include "tests/unit/processes/event_dispatcher_support.h"

namespace TestSupport {
namespace {

using Host::EventDispatcher;

// State of the listeners below.
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

void RemoveTheBlocked(const ProcessEvent&) {
    EXPECT_TRUE(Await([] { return atGate == 1; }));
    // Opens the gate soon, but not before the removal has begun.
    std::thread opener([] {
        EXPECT_TRUE(Await([] { return !shared->HasListeners(); }));
        gateOpen = true;
    });
    shared->Remove(CodeOf(RemoveTheBlocked));
    shared->Remove(CodeOf(WaitAtGate));
    EXPECT_EQ(atGate, 0);
    opener.join();
    ++finished;
}

TEST_F(SharedDispatcher, AListenerThatRemovesAnotherWaitsForItsCall) {
    dispatcher_.Add(Listener(WaitAtGate));
    dispatcher_.Add(Listener(RemoveTheBlocked));
    dispatcher_.Push(NumberedEvents(1));
    dispatcher_.Start();
    EXPECT_TRUE(Await([] { return finished == 1; }));
}

void RemoveSecond(const ProcessEvent&);

void RemoveFirst(const ProcessEvent&);

void RemoveAtOnceWithTheOther(Function other) {
    ++inside;
    EXPECT_TRUE(Await([] { return inside == 2; }));
    shared->Remove(CodeOf(other));
    ++finished;
}

void RemoveSecond(const ProcessEvent&) {
    RemoveAtOnceWithTheOther(RemoveFirst);
}

void RemoveFirst(const ProcessEvent&) {
    RemoveAtOnceWithTheOther(RemoveSecond);
}

TEST_F(SharedDispatcher, ListenersThatRemoveEachOtherDoNotDeadlock) {
    dispatcher_.Add(Listener(RemoveFirst));
    dispatcher_.Add(Listener(RemoveSecond));
    dispatcher_.Push(NumberedEvents(2));
    dispatcher_.Start();
    EXPECT_TRUE(Await([] { return finished == 2; }));
    EXPECT_TRUE(Await([&] { return dispatcher_.IsIdle(); }));
}

void ReplaceItself(const ProcessEvent&) {
    mostInside = std::max(mostInside.load(), ++inside);
    shared->Remove(CodeOf(ReplaceItself));
    shared->Add(Listener(ReplaceItself));
    shared->Push(NumberedEvents(1));
    --inside;
    ++finished;
}

TEST_F(SharedDispatcher, AListenerThatAddsItselfAgainIsCalledByOneThreadAtATime) {
    dispatcher_.Add(Listener(ReplaceItself));
    dispatcher_.Push(NumberedEvents(1));
    dispatcher_.Start();
    EXPECT_TRUE(Await([] { return finished >= 1000; }));
    dispatcher_.Stop();
    EXPECT_EQ(mostInside, 1);
}

TEST_F(SharedDispatcher, AddingAndRemovingMayRaceWithEvents) {
    dispatcher_.Add(Listener(ReplaceItself));
    dispatcher_.Start();
    std::vector<std::thread> threads;
    for (const Function callback : {Take, ReplaceItself, Take}) {
        threads.emplace_back([this, callback] {
            for (int i = 0; i < 300; ++i) {
                dispatcher_.Add(Listener(callback));
                dispatcher_.Push(NumberedEvents(10));
                dispatcher_.Remove(CodeOf(callback));
            }
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    dispatcher_.Remove(CodeOf(ReplaceItself));
    // 0 if the listener was not registered when any event came.
    EXPECT_LE(mostInside, 1);
    EXPECT_TRUE(Await([] { return ThreadsNamedLike("proc-events") <= 1; }));
}

}  // namespace
}  // namespace TestSupport
