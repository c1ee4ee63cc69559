// What the tests of command attribution share: a built tree over /proc, a folder of the user's files, and a "PATH" that
// holds one tool, "ls".
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

    // A process in the folder "home" with this command line, byte by byte; its pid.
    int AddProcess(const std::string& cmdline) {
        const int pid = ++lastPid;
        proc->Add({.pid = pid, .ppid = 1, .exe = "/opt/app/program", .cmdline = cmdline});
        proc->AddLink(pid, "cwd", folder.Path("home"));
        return pid;
    }

    // Writes a file of the user's and returns its path.
    std::string AddFile(const std::string& name) const { return folder.Write("home/" + name, "content"); }

    // A command line as the kernel gives it: a zero byte behind each argument.
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
