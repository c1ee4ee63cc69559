// Fixture for tests of the entries: a fresh fake agent, and a stop of the module at the end.
#pragma once

#include <gtest/gtest.h>

#include <algorithm>
#include <mutex>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "agent/config.h"
#include "frame/module_lock.h"
#include "frame/run_state.h"
#include "frame/settings.h"
#include "frame/whitelist.h"
#include "module/detect_shell.h"
#include "module/published.h"
#include "tests/fakes/fake_agent.h"
#include "tests/support/failing_calls.h"
#include "tests/support/proc_tree.h"
#include "tests/support/time_recorder.h"

class ModuleTest : public testing::Test {
protected:
    static constexpr auto& instantTask = Published::instantScanTask;
    static constexpr auto& periodTask = Published::periodScanTask;
    static constexpr auto& watcherTask = Published::shortCommandTask;
    static constexpr auto& tampering = Published::shellFileFunction;
    static constexpr auto& reverseShell = Published::reverseShellFunction;

    // The module's units, and the agent's JSON reader.
    inline static const std::set<std::string> logSources = {"detect_reverse_shell",   "detect_shell",
                                                            "detect_shell_event",     "detect_shell_utils",
                                                            "reverse_shell_detector", "json_reader"};

    void SetUp() override {
        Fake::ResetAgent();
        TimeRecorder::Reset();
        ReplaceWhitelist({});
        detectInterval = Published::defaultDetectInterval;
        shellPaths.clear();
    }

    void TearDown() override {
        Fake::TheAgent().atEachCall = nullptr;
        FailingCalls::FailMutexInit(0);
        FailingCalls::FailAllocation(0);
        StopModule("0000");
        for (const Fake::LogLine& line : Fake::TheAgent().log) {
            EXPECT_TRUE(logSources.contains(line.source)) << line.source << ": " << line.text;
            EXPECT_EQ(line.channel, "NormalLog") << line.text;
        }
        reverseShellEnabled = false;
        abnormalShellEnabled = false;
        stopBegun = false;
    }

    static void SetSetting(const std::string& key, const std::string& value) {
        TavUtils::Config& config = TavUtils::Config::GetInstance();
        const std::lock_guard<TavUtils::Config> guard(config);
        config.GetConfigMap<std::string>()[key] = value;
    }

    // Builds a line of the fake agent's journal, such as "register TASK" or "status FUNCTION on".
    static std::string Line(const std::string& verb, const std::string& name, const std::string& state = "") {
        return verb + " " + name + (state.empty() ? "" : " " + state);
    }

    static std::vector<Fake::StatusReport> TakeStatuses() { return std::exchange(Fake::TheAgent().statuses, {}); }
};
