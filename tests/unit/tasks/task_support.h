// Tasks whose runs a test can observe and block.
#pragma once

#include <gtest/gtest.h>
#include <pthread.h>

#include <array>
#include <atomic>
#include <chrono>
#include <cstdint>
#include <mutex>
#include <string>
#include <vector>

#include "agent/task_manager.h"
#include "host/base/clock.h"
#include "tests/support/await_condition.h"

namespace TestSupport {

using TavUtils::TASK_CONDITION;
using TavUtils::TaskManager;

inline constexpr uint64_t hourMs = 3600 * 1000;

inline uint64_t EpochMs() {
    return static_cast<uint64_t>(
        std::chrono::duration_cast<std::chrono::milliseconds>(Host::Clock::WallTime().time_since_epoch()).count());
}

inline TASK_CONDITION Condition(uint64_t firstRunMs, uint64_t periodMs) {
    TASK_CONDITION condition{};
    condition.firstRunMs = firstRunMs;
    condition.periodMs = periodMs;
    condition.enabled = 1;
    return condition;
}

inline TaskManager& Manager() {
    return TaskManager::GetInstance();
}

// Records the runs of one task.
struct Runs {
    std::mutex mutex;
    std::vector<Host::Clock::Time> starts;
    std::string threadName;
    std::atomic<int> count = 0;
    std::atomic<int> inside = 0;
    std::atomic<int> overlaps = 0;
    std::atomic<bool> released = true;  // while false, runs do not end
    std::atomic<unsigned int> id = 0;
    std::atomic<bool> asked = false;
};

inline void* Record(void* argument) {
    auto& runs = *static_cast<Runs*>(argument);
    if (++runs.inside != 1) {
        ++runs.overlaps;
    }
    {
        const std::lock_guard lock(runs.mutex);
        runs.starts.push_back(Host::Clock::Now());
        std::array<char, 16> name{};
        pthread_getname_np(pthread_self(), name.data(), name.size());
        runs.threadName = name.data();
    }
    ++runs.count;
    EXPECT_TRUE(Await([&] { return runs.released.load(); }));
    --runs.inside;
    return nullptr;
}

// Unregisters a task before the record that its runs write to goes away.
class Registered {
public:
    explicit Registered(unsigned int id) : id_(id) {}
    ~Registered() { Manager().UnregisterTask(id_); }
    Registered(const Registered&) = delete;
    Registered& operator=(const Registered&) = delete;

private:
    const unsigned int id_;
};

}  // namespace TestSupport
