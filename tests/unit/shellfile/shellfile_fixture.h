// Fixture of the shell file protection tests: a reset fake agent, and temporary files as shells.
#pragma once

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <set>
#include <string>
#include <vector>

#include "frame/run_state.h"
#include "shellfile/shell_baseline.h"
#include "tests/fakes/fake_agent.h"
#include "tests/support/event_json.h"
#include "tests/support/temporary_directory.h"
#include "tests/support/time_recorder.h"

class ShellFileTest : public testing::Test {
protected:
    void SetUp() override {
        Fake::ResetAgent();
        TimeRecorder::Reset();
    }

    void TearDown() override { InitShellsHashSize({}); }

    // Contents of all events so far, in order.
    static std::vector<EventJson> Contents() {
        std::vector<EventJson> contents;
        for (const std::string& text : Fake::TheAgent().events) {
            contents.push_back(EventJson::Parse(text)["eventContent"]);
        }
        return contents;
    }

    TemporaryDirectory folder;
};
