#include "host/sinks/file_sink.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <filesystem>
#include <functional>
#include <string>

#include "tests/support/temporary_directory.h"

namespace {

using testing::HasSubstr;

size_t LineCount(const std::string& text) {
    return static_cast<size_t>(std::count(text.begin(), text.end(), '\n'));
}

std::string Logged(const std::function<void()>& calls) {
    testing::internal::CaptureStderr();
    calls();
    return testing::internal::GetCapturedStderr();
}

TEST(FileSink, AppendsOneLinePerEvent) {
    const TemporaryDirectory directory;
    WriteFile(directory.Path("events"), "before\n");
    Host::FileSink sink(directory.Path("events"));
    sink.Write("{1}");
    sink.Write("{2}");
    EXPECT_EQ(FileText(directory.Path("events")), "before\n{1}\n{2}\n");
    EXPECT_FALSE(sink.Retry());
    EXPECT_EQ(sink.Finish(), 0U);
}

TEST(FileSink, CreatesTheFileAtOnceWithMode0640) {
    const TemporaryDirectory directory;
    const mode_t before = ::umask(0);
    const Host::FileSink sink(directory.Path("events"));
    ::umask(before);
    struct stat status {};
    ASSERT_EQ(::stat(directory.Path("events").c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 07777U, 0640U);
}

TEST(FileSink, EndsAnUnfinishedLineBeforeTheFirstEvent) {
    const TemporaryDirectory directory;
    WriteFile(directory.Path("events"), "{\"cut");
    Host::FileSink sink(directory.Path("events"));
    sink.Write("{1}");
    EXPECT_EQ(FileText(directory.Path("events")), "{\"cut\n{1}\n");
}

TEST(FileSink, StartsANewFileAfterTheOldOneIsMoved) {
    const TemporaryDirectory directory;
    Host::FileSink sink(directory.Path("events"));
    sink.Write("{1}");
    std::filesystem::rename(directory.Path("events"), directory.Path("events.1"));
    sink.Write("{2}");
    EXPECT_EQ(FileText(directory.Path("events.1")), "{1}\n");
    EXPECT_EQ(FileText(directory.Path("events")), "{2}\n");
}

TEST(FileSink, CreatesADeletedFileAgain) {
    const TemporaryDirectory directory;
    Host::FileSink sink(directory.Path("events"));
    sink.Write("{1}");
    std::filesystem::remove(directory.Path("events"));
    sink.Write("{2}");
    EXPECT_EQ(FileText(directory.Path("events")), "{2}\n");
}

TEST(FileSink, AppendsToAFileThatReplacesTheOldOne) {
    const TemporaryDirectory directory;
    Host::FileSink sink(directory.Path("events"));
    sink.Write("{1}");
    WriteFile(directory.Path("other"), "other\n");
    std::filesystem::rename(directory.Path("other"), directory.Path("events"));
    sink.Write("{2}");
    EXPECT_EQ(FileText(directory.Path("events")), "other\n{2}\n");
}

TEST(FileSink, ReopenCreatesAMissingFile) {
    const TemporaryDirectory directory;
    Host::FileSink sink(directory.Path("events"));
    std::filesystem::remove(directory.Path("events"));
    sink.Reopen();
    EXPECT_TRUE(std::filesystem::exists(directory.Path("events")));
}

TEST(FileSink, LogsAMissingDirectoryOnceAndLosesNothing) {
    const TemporaryDirectory directory;
    const std::string home = directory.Path("logs");
    std::filesystem::create_directory(home);
    Host::FileSink sink(home + "/events");
    sink.Write("{1}");
    std::filesystem::rename(home, directory.Path("gone"));

    const std::string entering = Logged([&] {
        sink.Write("{2}");
        sink.Write("{3}");
        EXPECT_TRUE(sink.Retry());
    });
    EXPECT_EQ(LineCount(entering), 1U) << entering;
    EXPECT_THAT(entering, HasSubstr("cannot write events to " + home + "/events: No such file or directory; keeping"));

    std::filesystem::create_directory(home);
    const std::string leaving = Logged([&] { EXPECT_FALSE(sink.Retry()); });
    EXPECT_EQ(LineCount(leaving), 1U) << leaving;
    EXPECT_THAT(leaving, HasSubstr("writing events to " + home + "/events again; 2 delayed events were written, 0 "));
    EXPECT_EQ(FileText(home + "/events"), "{2}\n{3}\n");
    EXPECT_EQ(FileText(directory.Path("gone/events")), "{1}\n");
}

TEST(FileSink, WritesPendingLinesBeforeTheNextEvent) {
    const TemporaryDirectory directory;
    const std::string home = directory.Path("logs");
    Logged([&] {
        Host::FileSink sink(home + "/events");
        sink.Write("{1}");
        std::filesystem::create_directory(home);
        sink.Write("{2}");
    });
    EXPECT_EQ(FileText(home + "/events"), "{1}\n{2}\n");
}

TEST(FileSink, KeepsTheNewestTenThousandLines) {
    const TemporaryDirectory directory;
    const std::string home = directory.Path("logs");
    std::string log = Logged([&] {
        Host::FileSink sink(home + "/events");
        for (size_t i = 0; i < Host::PendingLines::maxLines + 3; ++i) {
            sink.Write(std::to_string(i));
        }
        std::filesystem::create_directory(home);
        EXPECT_FALSE(sink.Retry());
        EXPECT_EQ(sink.Finish(), 3U);
    });
    EXPECT_THAT(log, HasSubstr("too many events are waiting for " + home + "/events"));
    EXPECT_THAT(log, HasSubstr("10000 delayed events were written, 3 were lost"));
    const std::string text = FileText(home + "/events");
    EXPECT_EQ(LineCount(text), Host::PendingLines::maxLines);
    EXPECT_EQ(text.substr(0, 4), "3\n4\n");
}

TEST(FileSink, KeepsAtMostSixteenMebibytes) {
    const TemporaryDirectory directory;
    const std::string home = directory.Path("logs");
    Logged([&] {
        Host::FileSink sink(home + "/events");
        const std::string big(size_t{1024} * 1024 - 1, 'x');
        for (int i = 0; i < 20; ++i) {
            sink.Write(big);
        }
        std::filesystem::create_directory(home);
        EXPECT_FALSE(sink.Retry());
        EXPECT_EQ(sink.Finish(), 4U);
    });
    EXPECT_EQ(std::filesystem::file_size(home + "/events"), Host::PendingLines::maxBytes);
}

TEST(FileSink, FinishCountsAndLogsEventsThatStillCannotBeWritten) {
    const TemporaryDirectory directory;
    const std::string log = Logged([&] {
        Host::FileSink sink(directory.Path("logs/events"));
        sink.Write("{1}");
        sink.Write("{2}");
        EXPECT_EQ(sink.Finish(), 2U);
    });
    EXPECT_THAT(log, HasSubstr("events lost: 2, because " + directory.Path("logs/events")));
}

TEST(FileSink, LogsAFullDeviceOnceAndKeepsLines) {
    const std::string log = Logged([] {
        Host::FileSink sink("/dev/full");
        sink.Write("{1}");
        sink.Write("{2}");
        EXPECT_TRUE(sink.Retry());
        sink.Reopen();
        EXPECT_TRUE(sink.Retry());
        EXPECT_EQ(sink.Finish(), 2U);
    });
    EXPECT_EQ(LineCount(log), 2U) << log;
    EXPECT_THAT(log, HasSubstr("No space left on device"));
}

TEST(FileSink, RefusesAFifoWithoutBlocking) {
    const TemporaryDirectory directory;
    ASSERT_EQ(::mkfifo(directory.Path("fifo").c_str(), 0600), 0);
    const std::string log = Logged([&] {
        Host::FileSink sink(directory.Path("fifo"));
        sink.Write("{1}");
        EXPECT_EQ(sink.Finish(), 1U);
    });
    EXPECT_THAT(log, HasSubstr("it is not a regular file"));
}

TEST(FileSink, LogsNothingWhileWritingWorks) {
    const TemporaryDirectory directory;
    EXPECT_EQ(Logged([&] {
                  Host::FileSink sink(directory.Path("events"));
                  sink.Write(std::string(size_t{20} * 1024 * 1024, 'x'));
                  sink.Reopen();
                  EXPECT_EQ(sink.Finish(), 0U);
              }),
              "");
}

}  // namespace
