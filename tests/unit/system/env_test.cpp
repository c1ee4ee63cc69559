#include "agent/env.h"

#include <gtest/gtest.h>
#include <stdlib.h>

namespace {

TEST(GetEnv, DistinguishesUnsetFromEmpty) {
    ASSERT_EQ(setenv("ORLIM_TEST_VARIABLE", "some value", 1), 0);
    EXPECT_STREQ(TavUtils::Env::GetEnv("ORLIM_TEST_VARIABLE"), "some value");
    ASSERT_EQ(setenv("ORLIM_TEST_VARIABLE", "", 1), 0);
    EXPECT_STREQ(TavUtils::Env::GetEnv("ORLIM_TEST_VARIABLE"), "");
    ASSERT_EQ(unsetenv("ORLIM_TEST_VARIABLE"), 0);
    EXPECT_EQ(TavUtils::Env::GetEnv("ORLIM_TEST_VARIABLE"), nullptr);
    EXPECT_EQ(TavUtils::Env::GetEnv(nullptr), nullptr);
}

}  // namespace
