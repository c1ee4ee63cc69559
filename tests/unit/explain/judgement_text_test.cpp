#include "host/explain/judgement_text.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>

namespace Host {
namespace {

using testing::HasSubstr;
using testing::StartsWith;

TEST(JudgementText, ListsReportingDetectionsAndAllReasons) {
    Judgement first{.detection = "first", .reported = true, .verdict = "with a", .reasons = {}};
    first.Add({Mark::ok, "yes"});
    first.Add({Mark::note, "unknown"});
    Judgement second{.detection = "second", .reported = false, .verdict = {}, .reasons = {}};
    second.Add({Mark::no, "refused"});
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

TEST(JudgementText, SaysThatNoDetectionReports) {
    EXPECT_THAT(JudgementText({{.detection = "d", .reported = false, .verdict = {}, .reasons = {}}}),
                StartsWith("No detection would report it.\n"));
}

TEST(JudgementText, EscapesAndCutsHostileBytes) {
    Judgement judgement{.detection = "d", .reported = false, .verdict = "\033[2J\n", .reasons = {}};
    judgement.Add({Mark::no, "name\r\xFF" + std::string(10000, 'x')});
    const std::string text = JudgementText({judgement});
    EXPECT_EQ(std::count(text.begin(), text.end(), '\n'), 4) << text;
    EXPECT_EQ(text.find_first_of("\033\r\xFF"), std::string::npos);
    EXPECT_THAT(text, HasSubstr("\\x1B[2J\\n"));
    EXPECT_LT(text.size(), 1000U);
}

TEST(Judgement, AddsAReasonOnlyOnce) {
    Judgement judgement;
    for (const char* const text : {"a", "b", "a"}) {
        judgement.Add({Mark::ok, text});
    }
    ASSERT_EQ(judgement.reasons.size(), 2U);
    EXPECT_EQ(judgement.reasons[1].text, "b");
}

TEST(Judgement, OneFailedTestRefuses) {
    Judgement judgement;
    judgement.Add({Mark::ok, "for"});
    judgement.Add({Mark::note, "unknown"});
    EXPECT_FALSE(judgement.IsRefused());
    judgement.Add({Mark::no, "against"});
    EXPECT_TRUE(judgement.IsRefused());
}

}  // namespace
}  // namespace Host
