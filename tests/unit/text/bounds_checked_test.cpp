#include "agent/bounds_checked.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <cstring>
#include <limits>
#include <string>

namespace {

TEST(MemsetS, SetsOnlyTheRequestedBytes) {
    unsigned char bytes[8] = {9, 9, 9, 9, 9, 9, 9, 9};
    EXPECT_EQ(memset_s(bytes, 6, 0x1FF, 4), 0);
    const unsigned char expected[8] = {255, 255, 255, 255, 9, 9, 9, 9};
    EXPECT_EQ(std::memcmp(bytes, expected, sizeof(bytes)), 0);
    EXPECT_EQ(memset_s(bytes, sizeof(bytes), 0, 0), 0);
    EXPECT_EQ(bytes[0], 255);
}

TEST(MemsetS, SetsTheWholeBufferIfTheCountIsTooLarge) {
    unsigned char bytes[8] = {9, 9, 9, 9, 9, 9, 9, 9};
    EXPECT_NE(memset_s(bytes, 6, 0, std::numeric_limits<size_t>::max()), 0);
    const unsigned char expected[8] = {0, 0, 0, 0, 0, 0, 9, 9};
    EXPECT_EQ(std::memcmp(bytes, expected, sizeof(bytes)), 0);
}

TEST(MemsetS, LeavesAnInvalidBufferAlone) {
    unsigned char bytes[2] = {9, 9};
    EXPECT_NE(memset_s(bytes, std::numeric_limits<size_t>::max(), 0, 1), 0);
    EXPECT_EQ(bytes[0], 9);
    EXPECT_NE(memset_s(nullptr, 2, 0, 1), 0);
}

TEST(SprintfS, ReturnsTheLengthOfTheText) {
    char text[8];
    EXPECT_EQ(sprintf_s(text, sizeof(text), "%d-%s", 12, "abc"), 6);
    EXPECT_STREQ(text, "12-abc");
    EXPECT_EQ(sprintf_s(text, sizeof(text), "%s", ""), 0);
    EXPECT_STREQ(text, "");
}

TEST(SprintfS, AcceptsATextThatJustFits) {
    char text[5] = {'#', '#', '#', '#', '#'};
    EXPECT_EQ(sprintf_s(text, 4, "%s", "abc"), 3);
    EXPECT_STREQ(text, "abc");
    EXPECT_EQ(text[4], '#');
}

TEST(SprintfS, WritesAnEmptyStringIfTheTextDoesNotFit) {
    char text[6] = {'#', '#', '#', '#', '#', '#'};
    EXPECT_EQ(sprintf_s(text, 4, "%s", "abcd"), -1);
    EXPECT_STREQ(text, "");
    EXPECT_EQ(text[4], '#');
    EXPECT_EQ(text[5], '#');
    text[0] = '#';
    EXPECT_EQ(sprintf_s(text, 1, "%d", 1), -1);
    EXPECT_STREQ(text, "");
}

// The compiler knows the format attribute, and these formats are wrong on purpose.
int SprintfOf(char* dest, size_t destMax, const char* format, void* argument) {
    return sprintf_s(dest, destMax, format, 1, argument);
}

TEST(SprintfS, RejectsDirectivesThatWriteToArguments) {
    for (const char* format : {"%d%n", "%d%hhn", "%d%lln", "%d%5n", "%d%-n", "%d%zn", "%2$n", "%d%%%n"}) {
        char text[32] = "before";
        long long target = 77;
        EXPECT_EQ(SprintfOf(text, sizeof(text), format, &target), -1) << format;
        EXPECT_STREQ(text, "") << format;
        EXPECT_EQ(target, 77) << format;
    }
}

TEST(SprintfS, AcceptsAnEscapedPercentSignBeforeAnN) {
    char text[32];
    EXPECT_EQ(sprintf_s(text, sizeof(text), "%d%%n", 5), 3);
    EXPECT_STREQ(text, "5%n");
}

TEST(SprintfS, RejectsInvalidArguments) {
    char text[4] = {'#', '#', '#', '\0'};
    const char* noFormat = nullptr;
    EXPECT_EQ(sprintf_s(text, 0, "%d", 1), -1);
    EXPECT_EQ(text[0], '#');
    EXPECT_EQ(SprintfOf(nullptr, 4, "%d", nullptr), -1);
    EXPECT_EQ(SprintfOf(text, std::numeric_limits<size_t>::max(), "%d", nullptr), -1);
    EXPECT_EQ(text[0], '#');
    EXPECT_EQ(SprintfOf(text, sizeof(text), noFormat, nullptr), -1);
    EXPECT_STREQ(text, "");
}

}  // namespace
