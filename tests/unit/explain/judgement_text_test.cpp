#include "host/explain/judgement_text.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>

namespace Host {
namespace {

using testing::HasSubstr;
using testing::StartsWith;

TEST(JudgementText, SaysWhoReportsAndByWhichTests) {
    Judgement first{.detection = "first", .reported = true, .verdict = "with a", .tests = {}};
    first.Check(true, "yes", "not this");
    first.Note("unknown");
    Judgement second{.detection = "second", .reported = false, .verdict = {}, .tests = {}};
    second.Check(false, "not this", "refused");
    EXPECT_EQ(JudgementText({first, second}),
              "It would be reported by: first\n"
              "\n"
              "first: would report it, with a\n"
              "  ok    yes\n"
              "  note  unknown\n"
              "\n"
              "second: would not report it\n"
              "  no    refused\n");
}

TEST(JudgementText, SaysThatNobodyReports) {
    EXPECT_THAT(JudgementText({{.detection = "d", .reported = false, .verdict = {}, .tests = {}}}),
                StartsWith("No detection would report it.\n"));
}

TEST(JudgementText, HostileBytesAreEscapedAndCut) {
    Judgement judgement{.detection = "d", .reported = false, .verdict = "\033[2J\n", .tests = {}};
    judgement.Check(false, "", "name\r\xFF" + std::string(10000, 'x'));
    const std::string text = JudgementText({judgement});
    EXPECT_EQ(std::count(text.begin(), text.end(), '\n'), 4) << text;
    EXPECT_EQ(text.find_first_of("\033\r\xFF"), std::string::npos);
    EXPECT_THAT(text, HasSubstr("\\x1B[2J\\n"));
    EXPECT_LT(text.size(), 1000U);
}

TEST(Judgement, CheckAnswersItsOutcome) {
    Judgement judgement;
    EXPECT_TRUE(judgement.Check(true, "a", "b"));
    EXPECT_FALSE(judgement.Check(false, "a", "b"));
    EXPECT_EQ(judgement.tests[0].text, "a");
    EXPECT_EQ(judgement.tests[1].text, "b");
}

}  // namespace
}  // namespace Host
