// The agent's real clock, which tests of other rooms replace.
#include "host/base/clock.h"

#include <gtest/gtest.h>
#include <pthread.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include <array>
#include <atomic>
#include <cerrno>
#include <chrono>
#include <condition_variable>
#include <csignal>
#include <mutex>
#include <optional>
#include <thread>

#include "host/base/descriptor.h"
#include "tests/support/await_condition.h"

namespace {

using namespace std::chrono_literals;
using Host::Descriptor;
using Host::Clock::Now;
using Host::Clock::Poll;
using Host::Clock::Time;
using Host::Clock::WaitUntil;

Descriptor Signal(unsigned int count) {
    return Descriptor(eventfd(count, EFD_CLOEXEC | EFD_NONBLOCK));
}

pollfd Reading(const Descriptor& descriptor) {
    return {descriptor.Get(), POLLIN, 0};
}

TEST(Clock, PollEndsAtItsDeadlineAndNotBefore) {
    const Descriptor silent = Signal(0);
    pollfd waiting = Reading(silent);
    // Not a whole number of milliseconds, the unit of poll(2).
    const Time deadline = Now() + 1500us;
    EXPECT_EQ(Poll({&waiting, 1}, deadline), 0);
    EXPECT_GE(Now(), deadline);
    EXPECT_EQ(Poll({&waiting, 1}, deadline - 1h), 0);
    EXPECT_EQ(Poll({}, deadline), 0);
}

TEST(Clock, PollReturnsWhatIsReadyWhateverTheDeadline) {
    const Descriptor silent = Signal(0);
    const Descriptor ready = Signal(1);
    for (const std::optional<Time> deadline :
         {std::optional<Time>(), std::optional(Now() - 1h), std::optional(Time::max())}) {
        std::array<pollfd, 3> waiting{{{-1, POLLIN, 0}, Reading(silent), Reading(ready)}};
        EXPECT_EQ(Poll(waiting, deadline), 1);
        EXPECT_EQ(waiting[0].revents, 0);
        EXPECT_EQ(waiting[1].revents, 0);
        EXPECT_EQ(waiting[2].revents, POLLIN);
    }
}

std::atomic<int> signals = 0;

TEST(Clock, PollContinuesAfterASignal) {
    struct sigaction counting {};
    struct sigaction before {};
    counting.sa_handler = [](int) { ++signals; };
    ASSERT_EQ(sigaction(SIGUSR1, &counting, &before), 0);
    const Descriptor event = Signal(0);
    const pthread_t polling = pthread_self();
    std::thread disturbing([&] {
        EXPECT_TRUE(TestSupport::Await([&] {
            pthread_kill(polling, SIGUSR1);
            return signals >= 3;
        }));
        eventfd_write(event.Get(), 1);
    });
    pollfd waiting = Reading(event);
    EXPECT_EQ(Poll({&waiting, 1}, std::nullopt), 1);
    EXPECT_GE(signals, 3);
    disturbing.join();
    sigaction(SIGUSR1, &before, nullptr);
}

TEST(Clock, WaitUntilReturnsWhetherItIsDone) {
    std::mutex mutex;
    std::condition_variable changed;
    bool done = false;
    std::unique_lock lock(mutex);
    const Time deadline = Now() + 100us;
    EXPECT_FALSE(WaitUntil(changed, lock, deadline, [&] { return done; }));
    EXPECT_GE(Now(), deadline);
    std::thread other([&] {
        const std::lock_guard guard(mutex);
        done = true;
        changed.notify_one();
    });
    EXPECT_TRUE(WaitUntil(changed, lock, std::nullopt, [&] { return done; }));
    EXPECT_TRUE(lock.owns_lock());
    EXPECT_TRUE(WaitUntil(changed, lock, deadline - 1h, [&] { return done; }));
    lock.unlock();
    other.join();
}

}  // namespace
