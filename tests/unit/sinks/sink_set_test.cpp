#include "host/sinks/sink_set.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>

#include "host/sinks/sink_switch.h"
#include "tests/support/temporary_directory.h"

namespace {

Host::SinkSpec File(const std::string& path) {
    return Host::SinkSpec{Host::SinkType::file, path};
}

TEST(SinkSet, WritesAnEventToEverySink) {
    const TemporaryDirectory directory;
    Host::SinkSet sinks;
    sinks.Configure({File(directory.Path("a")), Host::SinkSpec{}, File(directory.Path("b"))});
    testing::internal::CaptureStdout();
    sinks.Write("{1}");
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "{1}\n");
    EXPECT_EQ(FileText(directory.Path("a")), "{1}\n");
    EXPECT_EQ(FileText(directory.Path("b")), "{1}\n");
}

TEST(SinkSet, ReplacesLineBreaksInAnEventBySpaces) {
    const TemporaryDirectory directory;
    Host::SinkSet sinks;
    sinks.Configure({File(directory.Path("a"))});
    sinks.Write("{\n\"a\":\r1}\n");
    EXPECT_EQ(FileText(directory.Path("a")), "{ \"a\": 1} \n");
}

TEST(SinkSet, KeepsPendingLinesOfASinkThatStaysConfigured) {
    const TemporaryDirectory directory;
    Host::SinkSet sinks;
    testing::internal::CaptureStderr();
    sinks.Configure({File(directory.Path("gone/a"))});
    sinks.Write("{1}");
    sinks.Configure({File(directory.Path("b")), File(directory.Path("gone/a"))});
    EXPECT_TRUE(sinks.Retry());
    std::filesystem::create_directory(directory.Path("gone"));
    EXPECT_FALSE(sinks.Retry());
    testing::internal::GetCapturedStderr();
    EXPECT_EQ(FileText(directory.Path("gone/a")), "{1}\n");
}

TEST(SinkSet, LogsTheLossesOfARemovedSink) {
    const TemporaryDirectory directory;
    Host::SinkSet sinks;
    testing::internal::CaptureStderr();
    sinks.Configure({File(directory.Path("gone/a"))});
    sinks.Write("{1}");
    sinks.Configure({File(directory.Path("b"))});
    EXPECT_THAT(testing::internal::GetCapturedStderr(), testing::HasSubstr("events lost: 1, because"));
    EXPECT_FALSE(sinks.Retry());
}

TEST(SinkSet, WritesTwiceToASinkThatIsListedTwice) {
    const TemporaryDirectory directory;
    Host::SinkSet sinks;
    sinks.Configure({File(directory.Path("a"))});
    sinks.Configure({File(directory.Path("a")), File(directory.Path("a"))});
    sinks.Write("{1}");
    EXPECT_EQ(FileText(directory.Path("a")), "{1}\n{1}\n");
}

TEST(SinkSwitch, HandlesRequestsAtTheNextWriteOrTend) {
    const TemporaryDirectory directory;
    Host::SinkSwitch sinks;
    sinks.RequestSinks({File(directory.Path("a"))});
    EXPECT_FALSE(std::filesystem::exists(directory.Path("a")));
    sinks.Write("{1}");
    sinks.RequestSinks({File(directory.Path("b"))});
    EXPECT_FALSE(sinks.Tend());
    EXPECT_TRUE(std::filesystem::exists(directory.Path("b")));
    std::filesystem::remove(directory.Path("b"));
    sinks.RequestReopen();
    EXPECT_FALSE(sinks.Tend());
    EXPECT_TRUE(std::filesystem::exists(directory.Path("b")));
    sinks.Write("{2}");
    EXPECT_EQ(sinks.Finish(), 0U);
    EXPECT_EQ(FileText(directory.Path("a")), "{1}\n");
    EXPECT_EQ(FileText(directory.Path("b")), "{2}\n");
}

}  // namespace
