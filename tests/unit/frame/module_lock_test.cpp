#include "frame/module_lock.h"

#include <gtest/gtest.h>
#include <poll.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <atomic>
#include <fstream>
#include <mutex>
#include <string>
#include <thread>

#include "tests/support/failing_calls.h"

namespace {

TEST(ModuleLock, CanBeTakenAfterInitAndAgainAfterDestroyAndInit) {
    ModuleLock lock;
    for (int start = 0; start < 3; ++start) {
        ASSERT_TRUE(lock.Init());
        ASSERT_TRUE(lock.Init()) << "a second start";
        const std::lock_guard<ModuleLock> guard(lock);
    }
    lock.Destroy();
    lock.Destroy();
    EXPECT_TRUE(lock.Init()) << "a start after a stop";
    lock.Destroy();
}

// True if the thread of this process waits in the kernel.
bool WaitsInTheKernel(pid_t thread) {
    std::ifstream file("/proc/self/task/" + std::to_string(thread) + "/stat");
    std::string stat;
    std::getline(file, stat);
    return stat.find(") S ") != std::string::npos;
}

TEST(ModuleLock, MakesASecondThreadWaitUntilItIsReleased) {
    ModuleLock lock;
    ASSERT_TRUE(lock.Init());
    std::atomic<pid_t> second{0};
    std::atomic<bool> isInside{false};
    std::thread thread;
    {
        const std::lock_guard<ModuleLock> guard(lock);
        thread = std::thread([&] {
            second = static_cast<pid_t>(syscall(SYS_gettid));
            const std::lock_guard<ModuleLock> inner(lock);
            isInside = true;
        });
        for (int look = 0; look < 10000 && !isInside && !(second != 0 && WaitsInTheKernel(second)); ++look) {
            poll(nullptr, 0, 1);
        }
        EXPECT_FALSE(isInside);
    }
    thread.join();
    EXPECT_TRUE(isInside);
    lock.Destroy();
}

TEST(ModuleLock, StaysHeldThroughASecondInit) {
    ModuleLock lock;
    ASSERT_TRUE(lock.Init());
    int guarded = 0;
    std::thread other;
    {
        const std::lock_guard<ModuleLock> guard(lock);
        ASSERT_TRUE(lock.Init());
        other = std::thread([&] {
            const std::lock_guard<ModuleLock> inner(lock);
            guarded = 2;
        });
        guarded = 1;
    }
    other.join();
    EXPECT_EQ(guarded, 2);
    lock.Destroy();
}

TEST(ModuleLock, ReportsThatTheSystemRefusesTheMutex) {
    ModuleLock lock;
    FailingCalls::FailMutexInit(1);
    EXPECT_FALSE(lock.Init());
    lock.Destroy();
    EXPECT_TRUE(lock.Init());
    lock.Destroy();
}

}  // namespace
