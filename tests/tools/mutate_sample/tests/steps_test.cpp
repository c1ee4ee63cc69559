#include "sample/steps.h"

#include <gtest/gtest.h>

// Nothing looks at a walk without steps, and nobody forgets one.

TEST(Steps, AreShortUpToTheMost) {
    EXPECT_TRUE(IsShort({.steps = 3}));
    EXPECT_FALSE(IsShort({.steps = 4}));
}

TEST(Steps, AreCountedDown) {
    EXPECT_EQ(CountDown(2), 2);
}

TEST(Steps, HaveNames) {
    EXPECT_STREQ(NameOf(Walk().pace), "slow");
    EXPECT_STREQ(NameOf(Pace::fast), "fast");
}
