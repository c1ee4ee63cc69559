#include "tests/support/moved_clock.h"

#include <sys/eventfd.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <list>
#include <vector>

namespace {

using Host::Clock::Time;

// In real time.
constexpr std::chrono::seconds patience{10};

struct Waiter {
    std::optional<Time> deadline;
    std::condition_variable* changed = nullptr;  // of a wait for a condition
    int wake = -1;                               // of a wait in poll(2)
};

struct State {
    std::mutex mutex;
    std::condition_variable registered;
    // Not the epoch, so that tests notice a time that was never set.
    Time now = Time(std::chrono::hours(1000));
    std::chrono::system_clock::time_point wallTime = MovedClock::firstWallTime;
    std::list<Waiter*> waiters;
};

// Never destroyed: threads may wait while the program leaves.
State& TheState() {
    static State& state = *new State;
    return state;
}

class Registration {
public:
    explicit Registration(Waiter& waiter) : waiter_(waiter) {
        const std::lock_guard guard(TheState().mutex);
        TheState().waiters.push_back(&waiter_);
        TheState().registered.notify_all();
    }
    ~Registration() {
        const std::lock_guard guard(TheState().mutex);
        TheState().waiters.remove(&waiter_);
    }
    Registration(const Registration&) = delete;
    Registration& operator=(const Registration&) = delete;

private:
    Waiter& waiter_;
};

// Wakes a thread from poll(2). Kept for all waits of the thread, so that a test can use up all other descriptors.
class ThreadsWake {
public:
    ThreadsWake() = default;
    ~ThreadsWake() {
        if (fd_ >= 0) {
            ::close(fd_);
        }
    }
    ThreadsWake(const ThreadsWake&) = delete;
    ThreadsWake& operator=(const ThreadsWake&) = delete;

    // -1 if no descriptor is left.
    int Get() {
        fd_ = fd_ >= 0 ? fd_ : ::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK);
        return fd_;
    }

private:
    int fd_ = -1;
};

bool HasCome(std::optional<Time> deadline) {
    return deadline && Host::Clock::Now() >= *deadline;
}

int PollOnce(std::span<pollfd> descriptors, int timeout) {
    int ready = 0;
    do {
        ready = ::poll(descriptors.data(), descriptors.size(), timeout);
    } while (ready < 0 && errno == EINTR);
    return ready;
}

size_t WaitingThreads(const State& state) {
    size_t count = 0;
    for (const Waiter* waiter : state.waiters) {
        count += waiter->deadline && *waiter->deadline > state.now ? 1U : 0U;
    }
    return count;
}

}  // namespace

namespace Host::Clock {

Time Now() {
    const std::lock_guard guard(TheState().mutex);
    return TheState().now;
}

std::chrono::system_clock::time_point WallTime() {
    const std::lock_guard guard(TheState().mutex);
    return TheState().wallTime;
}

bool WaitUntil(std::condition_variable& changed, std::unique_lock<std::mutex>& lock, std::optional<Time> deadline,
               const std::function<bool()>& done) {
    if (done()) {
        return true;
    }
    Waiter waiter{.deadline = deadline, .changed = &changed, .wake = -1};
    const Registration registration(waiter);
    // Advance notifies without the caller's lock, so a notification between HasCome and the wait is lost.
    while (!done() && !HasCome(deadline)) {
        changed.wait_for(lock, std::chrono::milliseconds(20));
    }
    return done();
}

int Poll(std::span<pollfd> descriptors, std::optional<Time> deadline) {
    int ready = PollOnce(descriptors, 0);
    if (ready != 0 || HasCome(deadline)) {
        return ready;
    }
    static thread_local ThreadsWake threadsWake;
    const int wake = threadsWake.Get();
    // Without a wake, the clock is checked every 20 ms of real time.
    const int longest = wake >= 0 ? -1 : 20;
    std::vector<pollfd> all(descriptors.begin(), descriptors.end());
    all.push_back({.fd = wake, .events = POLLIN, .revents = 0});
    {
        Waiter waiter{.deadline = deadline, .changed = nullptr, .wake = wake};
        const Registration registration(waiter);
        do {
            ready = PollOnce(all, HasCome(deadline) ? 0 : longest);
            eventfd_t count = 0;
            if (ready > 0 && ::eventfd_read(wake, &count) == 0) {
                --ready;
            }
        } while (ready == 0 && !HasCome(deadline));
    }
    std::copy_n(all.begin(), descriptors.size(), descriptors.begin());
    return ready;
}

}  // namespace Host::Clock

namespace MovedClock {

void Advance(std::chrono::nanoseconds step) {
    State& state = TheState();
    const std::lock_guard guard(state.mutex);
    state.now += step;
    state.wallTime += std::chrono::duration_cast<std::chrono::system_clock::duration>(step);
    for (const Waiter* waiter : state.waiters) {
        if (waiter->wake >= 0) {
            ::eventfd_write(waiter->wake, 1);
        } else if (waiter->changed != nullptr) {
            waiter->changed->notify_all();
        }
    }
}

void SetWallTime(std::chrono::system_clock::time_point date) {
    const std::lock_guard guard(TheState().mutex);
    TheState().wallTime = date;
}

bool AwaitWaiting(size_t threads) {
    State& state = TheState();
    std::unique_lock lock(state.mutex);
    return state.registered.wait_for(lock, patience, [&] { return WaitingThreads(state) >= threads; });
}

bool AwaitDeadline(std::optional<Time> deadline) {
    State& state = TheState();
    std::unique_lock lock(state.mutex);
    return state.registered.wait_for(lock, patience, [&] {
        return std::any_of(state.waiters.begin(), state.waiters.end(),
                           [&](const Waiter* waiter) { return waiter->deadline == deadline; });
    });
}

Time NearestDeadline() {
    State& state = TheState();
    const std::lock_guard guard(state.mutex);
    Time nearest = Time::max();
    for (const Waiter* waiter : state.waiters) {
        nearest = std::min(nearest, waiter->deadline.value_or(Time::max()));
    }
    return nearest;
}

}  // namespace MovedClock
