#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <unistd.h>

#include <atomic>
#include <filesystem>
#include <fstream>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include "tests/unit/watch/monitor_support.h"

namespace {

using TestSupport::Await;
using TestSupport::AwaitInMovedTime;
using TestSupport::Fence;
using TestSupport::FileWatchCallback;
using TestSupport::FileWatchRule;
using TestSupport::Listener;
using TestSupport::MONITOR_FILE;
using TestSupport::ThreadsNamed;

constexpr const char* threadName = "file-monitor";

int OpenDescriptors() {
    int count = 0;
    for (const auto& entry : std::filesystem::directory_iterator("/proc/self/fd")) {
        count += entry.path().empty() ? 0 : 1;
    }
    return count;
}

FileWatchRule ModifyRule(const std::string& path, FileWatchCallback callback) {
    FileWatchRule rule;
    rule.path = path;
    rule.onModify = true;
    rule.onReplace = true;
    rule.callback = std::make_shared<FileWatchCallback>(std::move(callback));
    return rule;
}

TEST(MonitorThread, RunsWhileThereAreRules) {
    const TemporaryDirectory dir;
    const int before = OpenDescriptors();
    for (int i = 0; i < 20; ++i) {
        Listener first;
        ASSERT_TRUE(first.Watch(dir.Path("a")));
        {
            Listener second;
            ASSERT_TRUE(second.Watch(dir.Path("b")));
            EXPECT_TRUE(Await([] { return ThreadsNamed(threadName) == 1; }));
        }
        dir.Write("a", "x");
        ASSERT_TRUE(first.AwaitCount(1));
        std::filesystem::remove(dir.Path("a"));
    }
    EXPECT_EQ(OpenDescriptors(), before);
    EXPECT_TRUE(Await([] { return ThreadsNamed(threadName) == 0; }));
}

// True if the monitor's thread sleeps without a deadline.
bool Rests() {
    for (const auto& thread : std::filesystem::directory_iterator("/proc/self/task")) {
        std::string stat;
        std::getline(std::ifstream(thread.path() / "stat"), stat);
        const std::string name = "(" + std::string(threadName) + ") ";
        if (const size_t at = stat.find(name); at != std::string::npos) {
            return stat[at + name.size()] == 'S' && MovedClock::NearestDeadline() == Host::Clock::Time::max();
        }
    }
    return false;
}

TEST(MonitorThread, SleepsWhileNothingChanges) {
    const TemporaryDirectory dir;
    Listener listener;
    Fence fence;
    ASSERT_TRUE(listener.Watch(dir.Path("missing/file")));
    ASSERT_TRUE(listener.Watch(dir.Path()));
    ASSERT_TRUE(fence.Pass());
    // The monitor first waits whether the last writer continues.
    EXPECT_TRUE(AwaitInMovedTime(Rests));
    MovedClock::Advance(std::chrono::hours(1));
    EXPECT_TRUE(Await(Rests));
    EXPECT_EQ(listener.Count(), 0U);
}

TEST(MonitorThread, RemovalWaitsForARunningCall) {
    const TemporaryDirectory dir;
    const std::string file = dir.Write("file", "");
    std::atomic<bool> isIn = false;
    std::atomic<bool> mayLeave = false;
    std::atomic<bool> hasLeft = false;
    FileWatchRule rule = ModifyRule(file, [&](int, const char*, const char*, bool, int, const std::string&) {
        isIn = true;
        Await([&] { return mayLeave.load(); });
        hasLeft = true;
    });
    rule.handle = AddMonitor(rule, MONITOR_FILE);
    ASSERT_NE(rule.handle, 0);
    WriteFile(file, "x");
    ASSERT_TRUE(Await([&] { return isIn.load(); }));
    std::atomic<bool> isRemoved = false;
    std::thread remover([&] {
        EXPECT_EQ(RemoveMonitor(rule, MONITOR_FILE), 0);
        EXPECT_TRUE(hasLeft);
        isRemoved = true;
    });
    EXPECT_FALSE(isRemoved);
    mayLeave = true;
    remover.join();
    EXPECT_EQ(RemoveMonitor(rule, MONITOR_FILE), -1);
}

TEST(MonitorThread, ACallbackMayRemoveItsOwnRuleAndAddAnother) {
    const TemporaryDirectory dir;
    const std::string file = dir.Write("file", "");
    std::atomic<int> calls = 0;
    std::atomic<int> firstHandle = 0;
    std::atomic<int> secondHandle = 0;
    const auto remove = [](int handle) {
        FileWatchRule rule;
        rule.handle = handle;
        return RemoveMonitor(rule, MONITOR_FILE);
    };
    const FileWatchRule second = ModifyRule(file, [&](int, const char*, const char*, bool, int, const std::string&) {
        calls += 10;
        EXPECT_EQ(remove(secondHandle), 0);
    });
    const FileWatchRule first = ModifyRule(file, [&](int, const char*, const char*, bool, int, const std::string&) {
        calls += 1;
        EXPECT_EQ(remove(firstHandle), 0);
        secondHandle = AddMonitor(second, MONITOR_FILE);
        EXPECT_NE(secondHandle, 0);
    });
    firstHandle = AddMonitor(first, MONITOR_FILE);
    WriteFile(file, "x");
    ASSERT_TRUE(Await([&] { return calls >= 1; }));
    // The write that caused the first call may have continued and caused the second.
    ASSERT_TRUE(Await([&] {
        WriteFile(file, "y");
        return calls >= 11;
    }));
    EXPECT_TRUE(Await([] { return ThreadsNamed(threadName) == 0; }));
    EXPECT_EQ(calls, 11);
}

TEST(MonitorThread, OutlivesAFailingCallback) {
    const TemporaryDirectory dir;
    const std::string file = dir.Write("file", "");
    std::atomic<int> calls = 0;
    FileWatchRule rule = ModifyRule(file, [&](int, const char*, const char*, bool, int, const std::string&) {
        ++calls;
        throw std::runtime_error("on purpose");
    });
    rule.handle = AddMonitor(rule, MONITOR_FILE);
    for (int i = 1; i <= 2; ++i) {
        WriteFile(file, "x");
        EXPECT_TRUE(Await([&] { return calls >= i; }));
    }
    EXPECT_EQ(RemoveMonitor(rule, MONITOR_FILE), 0);
}

TEST(MonitorThread, ManyThreadsMayAddAndRemoveRules) {
    const TemporaryDirectory dir;
    const std::string file = dir.Write("file", "");
    std::atomic<bool> stop = false;
    std::thread writer([&] {
        for (int i = 0; !stop; ++i) {
            WriteFile(file, "x");
            dir.Write("new", "x");
            std::filesystem::rename(dir.Path("new"), file);
        }
    });
    std::vector<std::thread> changers;
    for (int t = 0; t < 4; ++t) {
        changers.emplace_back([&] {
            for (int i = 0; i < 100; ++i) {
                std::atomic<bool> isThere = true;
                FileWatchRule rule = ModifyRule(
                    i % 2 == 0 ? file : dir.Path(),
                    [&](int, const char*, const char*, bool, int, const std::string&) { EXPECT_TRUE(isThere); });
                rule.handle = AddMonitor(rule, MONITOR_FILE);
                EXPECT_NE(rule.handle, 0);
                EXPECT_EQ(RemoveMonitor(rule, MONITOR_FILE), 0);
                isThere = false;
            }
        });
    }
    for (std::thread& changer : changers) {
        changer.join();
    }
    stop = true;
    writer.join();
    EXPECT_TRUE(Await([] { return ThreadsNamed(threadName) == 0; }));
}

TEST(MonitorThread, LogsTheReasonIfNothingCanBeWatched) {
#ifdef __SANITIZE_ADDRESS__
    GTEST_SKIP() << "the undefined-behaviour sanitizer looks at objects through pipes and ends without descriptors";
#endif
    const TemporaryDirectory dir;
    FileWatchRule rule = ModifyRule(dir.Path(), [](int, const char*, const char*, bool, int, const std::string&) {});
    rlimit limit{};
    ASSERT_EQ(getrlimit(RLIMIT_NOFILE, &limit), 0);
    rlimit none = limit;
    // Not 0: poll(2) would then accept no descriptor either.
    none.rlim_cur = 1;
    testing::internal::CaptureStderr();
    ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &none), 0);
    EXPECT_EQ(AddMonitor(rule, MONITOR_FILE), 0);
    ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &limit), 0);
    EXPECT_THAT(testing::internal::GetCapturedStderr(),
                testing::HasSubstr("cannot watch any path for changes: inotify"));
    rule.handle = AddMonitor(rule, MONITOR_FILE);
    EXPECT_NE(rule.handle, 0);
    EXPECT_EQ(RemoveMonitor(rule, MONITOR_FILE), 0);
}

TEST(MonitorThread, KeepsNothingOfARemovedRule) {
    const TemporaryDirectory dir;
    FileWatchRule rule = ModifyRule(dir.Path(), [](int, const char*, const char*, bool, int, const std::string&) {});
    const std::shared_ptr<FileWatchCallback> callback = rule.callback;
    rule.handle = AddMonitor(rule, MONITOR_FILE);
    EXPECT_EQ(callback.use_count(), 3);
    EXPECT_EQ(RemoveMonitor(rule, MONITOR_FILE), 0);
    EXPECT_EQ(callback.use_count(), 2);
    rule = FileWatchRule();
    EXPECT_EQ(callback.use_count(), 1);
}

}  // namespace
