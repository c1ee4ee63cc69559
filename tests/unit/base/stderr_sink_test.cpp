#include "host/base/stderr_sink.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <spdlog/logger.h>
#include <spdlog/pattern_formatter.h>
#include <unistd.h>

#include <chrono>
#include <csignal>
#include <memory>
#include <string>
#include <thread>

#include "host/base/descriptor.h"
#include "tests/support/moved_clock.h"

namespace {

using namespace std::chrono_literals;

class StderrSinkTest : public testing::Test {
protected:
    StderrSinkTest() {
        int ends[2] = {-1, -1};
        EXPECT_EQ(pipe2(ends, O_CLOEXEC | O_NONBLOCK), 0);
        reader = Host::Descriptor(ends[0]);
        writer = Host::Descriptor(ends[1]);
        // The writing end blocks, as standard error does.
        EXPECT_EQ(fcntl(ends[1], F_SETFL, 0), 0);
        log = std::make_unique<spdlog::logger>("test", std::make_shared<Host::StderrSink>(writer.Get()));
        log->set_formatter(std::make_unique<spdlog::pattern_formatter>("%v", spdlog::pattern_time_type::utc, "\n"));
    }

    std::string ReadAll() const {
        std::string text;
        char block[4096];
        for (ssize_t count = reader.Read(block, sizeof(block)); count > 0; count = reader.Read(block, sizeof(block))) {
            text.append(block, static_cast<size_t>(count));
        }
        return text;
    }

    Host::Descriptor reader;
    Host::Descriptor writer;
    std::unique_ptr<spdlog::logger> log;
};

TEST_F(StderrSinkTest, WritesLinesWhole) {
    const std::string longLine(20000, 'x');
    log->info("first");
    log->info(longLine);
    EXPECT_EQ(ReadAll(), "first\n" + longLine + "\n");
}

TEST_F(StderrSinkTest, WaitsASecondForAReaderOnceAndReportsTheLostLines) {
    constexpr size_t lines = 2000;
    const std::string line(1000, 'x');
    std::thread logging([&] {
        for (size_t i = 0; i < lines; ++i) {
            log->info(line);
        }
    });
    EXPECT_TRUE(MovedClock::AwaitDeadline(Host::Clock::Now() + 1s));
    MovedClock::Advance(1s);
    logging.join();
    const std::string written = ReadAll();
    const size_t whole = written.size() / (line.size() + 1);
    ASSERT_GT(whole, 0U);
    ASSERT_LT(whole, lines);

    log->info("last");
    const std::string rest = ReadAll();
    EXPECT_NE(rest.find("(" + std::to_string(lines - whole) + " log lines lost here"), std::string::npos) << rest;
    EXPECT_TRUE(rest.ends_with(")\nlast\n")) << rest;

    log->info("after");
    EXPECT_EQ(ReadAll(), "after\n");
}

TEST_F(StderrSinkTest, ContinuesWithoutAReader) {
    ASSERT_NE(signal(SIGPIPE, SIG_IGN), SIG_ERR);
    reader.Close();
    log->info("into the void");
    log->info("again");
    signal(SIGPIPE, SIG_DFL);
}

}  // namespace
