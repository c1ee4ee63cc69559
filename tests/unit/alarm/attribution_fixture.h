// Fixture of the tests of command attribution: a tree over /proc, a folder of user files, and a "PATH" with one tool,
// "ls".
#pragma once

#include <gtest/gtest.h>

#include <filesystem>
#include <memory>
#include <string>
#include <vector>

#include "frame/run_state.h"
#include "frame/settings.h"
#include "tests/fakes/fake_agent.h"
#include "tests/support/failing_calls.h"
#include "tests/support/proc_tree.h"
#include "tests/support/time_recorder.h"

class AttributionTest : public testing::Test {
protected:
    void SetUp() override {
        Fake::ResetAgent();
        TimeRecorder::Reset();
        moduleRunning = 1;
        shellPaths.clear();
        tool = folder.Write("bin/ls", "a tool");
        Fake::TheAgent().environment["PATH"] = folder.Path("bin");
        std::filesystem::create_directories(folder.Path("home"));
        if (!MayMount()) {
            GTEST_SKIP() << "needs the right to mount a tree over /proc (root)";
        }
        proc = std::make_unique<ProcTree>();
    }

    void TearDown() override {
        FailingCalls::FailAllocation(0);
        moduleRunning = 0;
        shellPaths.clear();
    }

    // Adds a process in the folder "home" with exactly these bytes as command line. Returns its pid.
    int AddProcess(const std::string& cmdline) {
        const int pid = ++lastPid;
        proc->Add({.pid = pid, .ppid = 1, .exe = "/opt/app/program", .cmdline = cmdline});
        proc->AddLink(pid, "cwd", folder.Path("home"));
        return pid;
    }

    // Writes a user file and returns its path.
    std::string AddFile(const std::string& name) const { return folder.Write("home/" + name, "content"); }

    // A command line as in /proc: a zero byte after each argument.
    static std::string Arguments(const std::vector<std::string>& arguments) {
        std::string cmdline;
        for (const std::string& argument : arguments) {
            cmdline += argument + '\0';
        }
        return cmdline;
    }

    TemporaryDirectory folder;
    std::string tool;
    std::unique_ptr<ProcTree> proc;
    int lastPid = 500;
};
