#include "agent/status.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "host/system/status_board.h"

namespace {

std::string Report(const std::string& name, bool running, const char* code) {
    testing::internal::CaptureStderr();
    Plugs::StatusCollect::ReportDetectStatus(name, running, code);
    return testing::internal::GetCapturedStderr();
}

TEST(Status, LastReportOfEachFunctionIsKept) {
    Report("first", true, "0000");
    Report("second", true, "0000");
    Report("first", false, "0103");
    const auto board = Host::DetectionStatus();
    EXPECT_FALSE(board.at("first").running);
    EXPECT_EQ(board.at("first").code, "0103");
    EXPECT_TRUE(board.at("second").running);
    EXPECT_EQ(board.at("second").code, "0000");
}

TEST(Status, EachReportIsLogged) {
    EXPECT_THAT(Report("third", true, "0000"), testing::HasSubstr("third is running, code 0000\n"));
    EXPECT_THAT(Report("third", false, "0103"), testing::HasSubstr("third is not running, code 0103\n"));
}

TEST(Status, NullCodeCountsAsEmpty) {
    EXPECT_THAT(Report("fourth", false, nullptr), testing::HasSubstr("fourth is not running, code (none)\n"));
    EXPECT_EQ(Host::DetectionStatus().at("fourth").code, "");
}

TEST(Status, BoardIsBounded) {
    testing::internal::CaptureStderr();
    for (int i = 0; i < 1000; ++i) {
        Plugs::StatusCollect::ReportDetectStatus("function " + std::to_string(i), true, "0000");
    }
    testing::internal::GetCapturedStderr();
    EXPECT_LE(Host::DetectionStatus().size(), 256U);
}

}  // namespace
