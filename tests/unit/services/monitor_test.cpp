#include "agent/monitor.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>
#include <memory>
#include <string>

namespace {

using namespace TavUtils::Monitor;

void IgnoreEvent(long, const char*, unsigned int) {}

TEST(Monitor, NoRuleIsWatched) {
    FileWatchRule rule;
    rule.path = "/etc/hostname";
    rule.onModify = true;
    EXPECT_EQ(AddMonitor(rule, MONITOR_FILE), 0);
    EXPECT_EQ(RemoveMonitor(rule, MONITOR_FILE), -1);
}

TEST(Monitor, NoFanotifyGroupIsOpened) {
    FANOTIFY_EVENT event{7, nullptr};
    EXPECT_NE(InitFanotifyEvent(&event, IgnoreEvent), 0);
    EXPECT_EQ(event.fd, -1);
    EXPECT_EQ(FanotifyAddWatch(&event, "/etc/hostname", 2), -1);
    EXPECT_NE(InitFanotifyEvent(nullptr, IgnoreEvent), 0);
}

TEST(Monitor, TheLoopEndsAtOnce) {
    FANOTIFY_EVENT event{-1, IgnoreEvent};
    int running = 1;
    FanotifyLoopArgs args{&event, &running, nullptr};
    EXPECT_EQ(FanotifyLoop(&args), nullptr);
    EXPECT_EQ(FanotifyLoop(nullptr), nullptr);
}

TEST(Monitor, ARuleReleasesItsCallback) {
    const auto callback = std::make_shared<FileWatchCallback>();
    {
        FileWatchRule rule;
        rule.callback = callback;
        EXPECT_EQ(callback.use_count(), 2);
    }
    EXPECT_EQ(callback.use_count(), 1);
}

[[noreturn]] void UseEverythingTwice() {
    for (int i = 0; i < 2; ++i) {
        FANOTIFY_EVENT event{-1, IgnoreEvent};
        AddMonitor(FileWatchRule(), MONITOR_FILE);
        RemoveMonitor(FileWatchRule(), MONITOR_FILE);
        InitFanotifyEvent(&event, IgnoreEvent);
        FanotifyAddWatch(&event, "/", 2);
        FanotifyLoop(nullptr);
    }
    _exit(0);
}

long Mentions(const std::string& log) {
    const std::string message = "file monitoring is not part of this version";
    long count = 0;
    for (size_t at = log.find(message); at != std::string::npos; at = log.find(message, at + 1)) {
        ++count;
    }
    return count;
}

TEST(MonitorDeathTest, TheLogSaysOnceThatNothingIsWatched) {
    // Its own process, because others may have asked before in this one.
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    EXPECT_EXIT(UseEverythingTwice(), testing::ExitedWithCode(0), testing::ResultOf(Mentions, 1));
}

}  // namespace
