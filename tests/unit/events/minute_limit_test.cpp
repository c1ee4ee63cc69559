#include "host/events/minute_limit.h"

#include <gtest/gtest.h>

#include <chrono>

namespace {

using namespace std::chrono_literals;
using Host::MinuteLimit;
using Host::Clock::Time;

constexpr Time begin(1h);

// How many of ten events pass at that time.
int Passing(MinuteLimit& limit, Time now) {
    int passed = 0;
    for (int i = 0; i < 10; ++i) {
        if (limit.HasRoom(now)) {
            limit.CountPassed();
            ++passed;
        }
    }
    return passed;
}

TEST(MinuteLimit, WindowsBeginWithTheirFirstEvent) {
    MinuteLimit limit;
    limit.Set(3);
    const struct {
        std::chrono::nanoseconds after;
        int passed;
    } rows[] = {{0s, 3}, {30s, 0}, {60s - 1ns, 0}, {60s, 3}, {119s, 0}, {200s, 3}, {259s, 0}, {260s, 3}};
    for (const auto& row : rows) {
        EXPECT_EQ(Passing(limit, begin + row.after), row.passed) << row.after.count();
    }
}

TEST(MinuteLimit, DroppedEventsDoNotCount) {
    MinuteLimit limit;
    limit.Set(1);
    EXPECT_TRUE(limit.HasRoom(begin));
    EXPECT_TRUE(limit.HasRoom(begin));
    limit.CountPassed();
    EXPECT_FALSE(limit.HasRoom(begin));
}

TEST(MinuteLimit, ANewLimitBeginsANewWindow) {
    MinuteLimit limit;
    EXPECT_EQ(limit.Get(), 60U);
    limit.Set(2);
    EXPECT_EQ(Passing(limit, begin), 2);
    limit.Set(5);
    EXPECT_EQ(Passing(limit, begin), 5);
    limit.Set(0);
    EXPECT_EQ(Passing(limit, begin), 10);
    limit.Set(1);
    EXPECT_EQ(Passing(limit, begin), 1);
}

}  // namespace
