#include "frame/module_lock.h"

#include <gtest/gtest.h>

#include <mutex>
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
