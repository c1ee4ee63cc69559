#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <signal.h>

#include <cstdlib>
#include <mutex>

#include "agent/config.h"
#include "agent/events.h"
#include "agent/logger.h"
#include "host/base/log.h"
#include "host/base/signals.h"
#include "host/config/config_in_force.h"
#include "host/events/agent_library.h"
#include "host/program/event_output.h"
#include "host/program/run_command.h"
#include "host/program/scan_command.h"
#include "module/published.h"
#include "tests/support/temporary_directory.h"

namespace Host {
namespace {

using testing::HasSubstr;

class CommandTest : public testing::Test {
protected:
    // RunCommand changes the thread's signal mask.
    void SetUp() override { pthread_sigmask(SIG_SETMASK, nullptr, &before_); }
    void TearDown() override {
        pthread_sigmask(SIG_SETMASK, &before_, nullptr);
        AgentLibrary::Get().setLogLevel(LOG_LEVEL_LIFECYCLE);
        ::unsetenv(Published::locationVariable);
    }

    static std::string ErrorsOf(int (*command)(const Options&), const Options& options, int status) {
        testing::internal::CaptureStderr();
        EXPECT_EQ(command(options), status);
        return testing::internal::GetCapturedStderr();
    }

    Options WithConfig(const std::string& text) const {
        WriteFile(directory_.Path("c"), text);
        Options options;
        options.configFile = directory_.Path("c");
        options.moduleFile = "/nowhere/x.so";
        return options;
    }

    const TemporaryDirectory directory_;

private:
    sigset_t before_{};
};

TEST_F(CommandTest, ReturnsTwoIfTheConfigurationIsInvalid) {
    for (const auto command : {RunCommand, ScanCommand}) {
        EXPECT_EQ(ErrorsOf(command, WithConfig("{\"log\":7}"), 2),
                  "orlim-agent: " + directory_.Path("c") +
                      ": log: expected an object, found 7. Write {...}, or omit the key for the default.\n");
    }
}

TEST_F(CommandTest, ReturnsOneIfTheModuleIsMissing) {
    for (const auto command : {RunCommand, ScanCommand}) {
        EXPECT_THAT(ErrorsOf(command, WithConfig("{}"), 1), HasSubstr("cannot find the module /nowhere/x.so"));
    }
}

TEST_F(CommandTest, ScanRequiresTheReverseShellSection) {
    EXPECT_THAT(ErrorsOf(ScanCommand, WithConfig("{\"module\":{\"abnormalShell\":{}}}"), 2),
                HasSubstr("module.reverseShell: expected an object, found nothing"));
}

TEST_F(CommandTest, ScanFailsIfTheEnvironmentTurnsTheSearchOff) {
    ::setenv(Published::locationVariable, "", 1);
    EXPECT_THAT(ErrorsOf(ScanCommand, WithConfig("{}"), 1), HasSubstr("AGENT_LOCATION is set"));
}

TEST_F(CommandTest, LogsTheWarningsOfTheConfiguration) {
    EXPECT_THAT(ErrorsOf(ScanCommand, WithConfig("{\"module\":{\"reverseShell\":{\"detectInterval\":1}}}"), 1),
                HasSubstr("configuration: module.reverseShell.detectInterval: expected a whole number of seconds"));
}

TEST_F(CommandTest, ApplyingAConfigurationReplacesSettingsAndLogLevel) {
    AgentConfig config;
    config.settings = {{"A", "1"}};
    ApplyToProcess(config, LOG_LEVEL_LIFECYCLE);
    config.settings = {{"B", "2"}};
    config.logLevel = LOG_LEVEL_ERROR;
    ApplyToProcess(config, LOG_LEVEL_LIFECYCLE);
    {
        TavUtils::Config& settings = TavUtils::Config::GetInstance();
        const std::lock_guard<TavUtils::Config> guard(settings);
        EXPECT_EQ(settings.GetConfigMap<std::string>().size(), 1U);
        EXPECT_EQ(settings.GetConfigMap<std::string>().at("B"), "2");
    }
    testing::internal::CaptureStderr();
    LoggerWriteLog("NormalLog", LOG_LEVEL_WARNING, "s", 1, "quiet");
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
}

TEST_F(CommandTest, ReturnsBlockedControlSignals) {
    BlockControlSignals();
    for (const int number : {SIGTERM, SIGINT, SIGHUP}) {
        ASSERT_EQ(::raise(number), 0);
        EXPECT_EQ(WaitForControlSignal(), number);
    }
}

TEST_F(CommandTest, WritesEventsToTheCurrentSinks) {
    const std::string first = directory_.Path("first");
    const std::string second = directory_.Path("second");
    EventOutput output;
    output.Start({SinkSpec{SinkType::file, first}});
    AgentLibrary::Get().setEventLimit(0);
    EventConsumer::Instance().PushMinuteLimitEvent("{1}");
    ASSERT_TRUE(output.Stop());
    EXPECT_EQ(FileText(first), "{1}\n");
    output.Start({SinkSpec{SinkType::file, first}});
    output.SetSinks({SinkSpec{SinkType::file, second}});
    EventConsumer::Instance().PushMinuteLimitEvent("{2}");
    ASSERT_TRUE(output.Stop());
    EXPECT_EQ(FileText(second), "{2}\n");
}

}  // namespace
}  // namespace Host
