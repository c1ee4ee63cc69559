#include "agent/logger.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <string>
#include <thread>
#include <vector>

#include "host/base/log.h"
#include "tests/support/moved_clock.h"

namespace {

using namespace std::chrono_literals;

constexpr size_t timeLength = 25;  // "2024-05-01T12:34:56.789Z "

class LoggerTest : public testing::Test {
protected:
    void TearDown() override { Host::SetLogLevel(LOG_LEVEL_LIFECYCLE); }

    // The lines that the calls wrote, without their times.
    template <typename Calls>
    static std::string Logged(Calls calls) {
        testing::internal::CaptureStderr();
        calls();
        std::string text = testing::internal::GetCapturedStderr();
        for (size_t at = 0; at < text.size(); at = text.find('\n', at) + 1) {
            text.erase(at, std::min(timeLength, text.size() - at));
        }
        return text;
    }

    static std::string LoggedMessage(const std::string& message) {
        std::string line =
            Logged([&] { LoggerWriteLog("NormalLog", LOG_LEVEL_WARNING, "s", 1, "%s", message.c_str()); });
        const std::string prefix = "warning s:1 ";
        EXPECT_EQ(line.substr(0, prefix.size()), prefix);
        return line.substr(prefix.size());
    }
};

TEST_F(LoggerTest, LineHasTimeLevelSourceAndMessage) {
    MovedClock::SetWallTime(MovedClock::firstWallTime);
    testing::internal::CaptureStderr();
    LoggerWriteLog("NormalLog", LOG_LEVEL_ERROR, "file.cpp", 42, "%d of %s", 3, "four");
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "2024-05-01T12:34:56.789Z error file.cpp:42 3 of four\n");
}

TEST_F(LoggerTest, EachLevelHasItsWord) {
    Host::SetLogLevel(LOG_LEVEL_DETAIL);
    const std::string lines = Logged([] {
        for (int level = 0; level <= 3; ++level) {
            LoggerWriteLog("NormalLog", static_cast<LogLevel>(level), "s", 1, "m");
        }
    });
    EXPECT_EQ(lines, "detail s:1 m\ninfo s:1 m\nwarning s:1 m\nerror s:1 m\n");
}

TEST_F(LoggerTest, NamesOtherChannels) {
    EXPECT_EQ(Logged([] { LoggerWriteLog("Audit\n", LOG_LEVEL_WARNING, "s", 1, "m"); }), "warning [Audit\\n] s:1 m\n");
}

TEST_F(LoggerTest, BytesThatWouldBreakTheLineAreEscaped) {
    const struct {
        const char* message;
        const char* shown;
    } rows[] = {
        {"a\nb", "a\\nb"},
        {"a\n", "a"},
        {"a\n\n", "a\\n"},
        {"\r\t\x1b[2J\x7f\x01", "\\r\\t\\x1B[2J\\x7F\\x01"},
        {"\xc2\x85\xc2\x9f\xc2\xa0", "\\xC2\\x85\\xC2\\x9F\xc2\xa0"},  // C1 ends at U+009F
        {"\xc3\xa4 \xe2\x82\xac \xf0\x9f\x90\x9a", "\xc3\xa4 \xe2\x82\xac \xf0\x9f\x90\x9a"},
        {"\x80 \xff \xc3", "\\x80 \\xFF \\xC3"},
        {"\xc0\xaf \xe0\x80\xaf", "\\xC0\\xAF \\xE0\\x80\\xAF"},  // overlong
        {"\xed\xa0\x80", "\\xED\\xA0\\x80"},                      // surrogate
        {"\xf4\x90\x80\x80", "\\xF4\\x90\\x80\\x80"},             // past U+10FFFF
        {"\xe2\x82", "\\xE2\\x82"},
        {"\xe2\x82\n", "\\xE2\\x82"},
        {"", ""},
    };
    for (const auto& row : rows) {
        EXPECT_EQ(LoggedMessage(row.message), std::string(row.shown) + "\n");
    }
}

TEST_F(LoggerTest, CutsAndMarksALongMessage) {
    constexpr size_t bound = 65536;
    EXPECT_EQ(LoggedMessage(std::string(bound, 'x')), std::string(bound, 'x') + "\n");
    EXPECT_EQ(LoggedMessage(std::string(bound, 'x') + "\n"), std::string(bound, 'x') + "\n");
    EXPECT_EQ(LoggedMessage(std::string(bound + 1, 'x')), std::string(bound, 'x') + "...\n");
    EXPECT_EQ(LoggedMessage(std::string(bound - 1, 'x') + "\xc3\xa4"), std::string(bound - 1, 'x') + "...\n");
    EXPECT_EQ(LoggedMessage(std::string(3 * bound, '\x01')).size(), bound + 4);
    EXPECT_EQ(LoggedMessage(std::string(2000, 'y')), std::string(2000, 'y') + "\n");
}

TEST_F(LoggerTest, KeepsErrno) {
    for (const size_t length : {size_t{10}, size_t{1000}, size_t{100000}}) {
        Logged([length] {
            const std::string message(length, 'x');
            errno = ENOENT;
            LoggerWriteLog("NormalLog", LOG_LEVEL_WARNING, "s", 1, "%s", message.c_str());
            EXPECT_EQ(errno, ENOENT);
        });
    }
}

TEST_F(LoggerTest, AcceptsNullNamesAndFormat) {
    const char* volatile none = nullptr;
    const std::string line = Logged([none] {
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wformat-security"
        LoggerWriteLog(none, LOG_LEVEL_WARNING, none, 7, none);
#pragma GCC diagnostic pop
    });
    EXPECT_EQ(line, "warning ?:7 (null)\n");
}

TEST_F(LoggerTest, AcceptsANullStringArgument) {
    const char* volatile none = nullptr;
    EXPECT_EQ(Logged([none] { LoggerWriteLog("NormalLog", LOG_LEVEL_WARNING, "s", 1, "<%s>", none); }),
              "warning s:1 <(null)>\n");
}

TEST_F(LoggerTest, LinesBelowTheLevelAreNotFormatted) {
    int formatted = 0;
    EXPECT_EQ(Logged([&] { LoggerWriteLog("NormalLog", LOG_LEVEL_DETAIL, "s", 1, "abc%n", &formatted); }), "");
    EXPECT_EQ(formatted, 0);
    Host::SetLogLevel(LOG_LEVEL_ERROR);
    EXPECT_EQ(Logged([] { LoggerWriteLog("NormalLog", LOG_LEVEL_WARNING, "s", 1, "m"); }), "");
}

TEST_F(LoggerTest, ThreadsDoNotMixTheirLines) {
    constexpr int threads = 4;
    constexpr int linesEach = 200;
    const std::string expected = "warning s:1 " + std::string(300, 'z') + "\n";
    const std::string lines = Logged([] {
        std::vector<std::thread> writers;
        for (int i = 0; i < threads; ++i) {
            writers.emplace_back([] {
                for (int j = 0; j < linesEach; ++j) {
                    LoggerWriteLog("NormalLog", LOG_LEVEL_WARNING, "s", 1, "%s", std::string(300, 'z').c_str());
                }
            });
        }
        for (std::thread& writer : writers) {
            writer.join();
        }
    });
    ASSERT_EQ(lines.size(), expected.size() * threads * linesEach);
    for (size_t at = 0; at < lines.size(); at += expected.size()) {
        ASSERT_EQ(lines.compare(at, expected.size(), expected), 0) << at;
    }
}

TEST(LogPacer, LetsOneLinePerMinuteThrough) {
    Host::LogPacer pacer;
    EXPECT_TRUE(pacer.MayLog());
    EXPECT_FALSE(pacer.MayLog());
    MovedClock::Advance(1min - 1ns);
    EXPECT_FALSE(pacer.MayLog());
    MovedClock::Advance(1ns);
    EXPECT_TRUE(pacer.MayLog());
    EXPECT_FALSE(pacer.MayLog());
}

}  // namespace
