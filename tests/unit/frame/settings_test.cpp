#include "frame/settings.h"

#include <gtest/gtest.h>

namespace {

// Taken before any test runs.
const int intervalAtLoad = detectInterval;
const bool reverseShellAtLoad = reverseShellEnabled;
const bool shellFilesAtLoad = abnormalShellEnabled;

TEST(Settings, StartWithAnIntervalOf90SecondsAndNoFunction) {
    EXPECT_EQ(intervalAtLoad, 90);
    EXPECT_FALSE(reverseShellAtLoad);
    EXPECT_FALSE(shellFilesAtLoad);
}

}  // namespace
