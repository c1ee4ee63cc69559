#include "agent/time_master.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <ctime>
#include <string>

namespace {

// Parses a time stamp to milliseconds since the epoch; -1 if it is malformed.
long long MomentOf(const std::string& stamp) {
    tm parts{};
    int milliseconds = 0;
    char end = '\0';
    if (stamp.size() != 24 ||
        std::sscanf(stamp.c_str(), "%4d-%2d-%2dT%2d:%2d:%2d.%3d%c", &parts.tm_year, &parts.tm_mon, &parts.tm_mday,
                    &parts.tm_hour, &parts.tm_min, &parts.tm_sec, &milliseconds, &end) != 8 ||
        end != 'Z') {
        return -1;
    }
    parts.tm_year -= 1900;
    parts.tm_mon -= 1;
    return static_cast<long long>(timegm(&parts)) * 1000 + milliseconds;
}

long long Now() {
    timespec now{};
    clock_gettime(CLOCK_REALTIME, &now);
    return static_cast<long long>(now.tv_sec) * 1000 + now.tv_nsec / 1000000;
}

TEST(GetCurrentUTC, ReturnsTheCurrentTime) {
    const long long before = Now();
    std::string stamp = "what was there before";
    TavUtils::TimeMaster::GetCurrentUTC(stamp);
    const long long after = Now();
    EXPECT_GE(MomentOf(stamp), before) << stamp;
    EXPECT_LE(MomentOf(stamp), after) << stamp;
}

TEST(GetCurrentUTC, IgnoresTheTimeZone) {
    const char* zone = getenv("TZ");
    const std::string kept = zone == nullptr ? "" : zone;
    setenv("TZ", "EAST-11", 1);
    tzset();
    const long long before = Now();
    std::string stamp;
    TavUtils::TimeMaster::GetCurrentUTC(stamp);
    if (zone == nullptr) {
        unsetenv("TZ");
    } else {
        setenv("TZ", kept.c_str(), 1);
    }
    tzset();
    EXPECT_GE(MomentOf(stamp), before) << stamp;
    EXPECT_LT(MomentOf(stamp), before + 60000) << stamp;
}

}  // namespace
