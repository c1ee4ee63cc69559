// Callbacks for process events that record their calls, and the fixture that registers them.
#pragma once

#include <gtest/gtest.h>
#include <pthread.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <mutex>
#include <string>
#include <vector>

#include "agent/process_monitor.h"
#include "tests/support/await_condition.h"
#include "tests/unit/processes/process_event_support.h"

namespace TestSupport {

// Newer kernels declare the enumerators outside the record.
using KernelEvent = decltype(proc_event::what);

inline TavUtils::ProcessMonitor& Monitor() {
    return TavUtils::ProcessMonitor::GetInstance();
}

// Records the calls of the callbacks, which have no context argument.
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
inline Seen seen;

inline void Record(proc_event* event) {
    const std::lock_guard lock(seen.mutex);
    seen.events.push_back(*event);
    std::array<char, 16> name{};
    pthread_getname_np(pthread_self(), name.data(), name.size());
    seen.threadName = name.data();
    // The change must not show in the record of another call.
    *event = proc_event{};
}

inline bool IsExecOf(const proc_event& event, pid_t pid) {
    return event.what == KernelEvent::PROC_EVENT_EXEC && event.event_data.exec.process_tgid == pid;
}

inline bool IsForkOf(const proc_event& event, pid_t pid) {
    return event.what == KernelEvent::PROC_EVENT_FORK && event.event_data.fork.child_pid == pid;
}

inline long ExecsOf(pid_t pid) {
    const std::lock_guard lock(seen.mutex);
    return std::count_if(seen.events.begin(), seen.events.end(), [&](const auto& each) { return IsExecOf(each, pid); });
}

inline void CountCall(proc_event*) {
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

inline void AwaitRelease(proc_event*) {
    ++seen.inside;
    EXPECT_TRUE(Await([] { return seen.released.load(); }));
    --seen.inside;
}

}  // namespace TestSupport
