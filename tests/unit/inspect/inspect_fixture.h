// Fixture for tests of the readers: a fresh fake agent, recorded time, a started module, and a check for leaked
// descriptors.
#pragma once

#include <fcntl.h>
#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <vector>

#include "frame/module_lock.h"
#include "frame/run_state.h"
#include "inspect/socket_table.h"
#include "tests/fakes/fake_agent.h"
#include "tests/support/failing_calls.h"
#include "tests/support/proc_tree.h"
#include "tests/support/time_recorder.h"

using PauseList = std::vector<std::chrono::nanoseconds>;

inline constexpr std::chrono::microseconds halfMillisecond{500};

inline PauseList Repeated(size_t count, std::chrono::nanoseconds length) {
    return PauseList(count, length);
}

inline PauseList operator+(PauseList one, const PauseList& other) {
    one.insert(one.end(), other.begin(), other.end());
    return one;
}

inline size_t CountOf(const PauseList& pauses, std::chrono::nanoseconds length) {
    size_t count = 0;
    for (const std::chrono::nanoseconds pause : pauses) {
        count += pause == length ? 1 : 0;
    }
    return count;
}

class InspectTest : public testing::Test {
protected:
    InspectTest() {
        Fake::ResetAgent();
        TimeRecorder::Reset();
        moduleRunning = 1;
        EXPECT_TRUE(socketTableLock.Init());
        socketTable.clear();
        descriptors_ = OpenDescriptors();
    }

    ~InspectTest() override {
        FailingCalls::FailAllocation(0);
        TimeRecorder::Reset();
        moduleRunning = 0;
        stopBegun = false;
        socketTable.clear();
        socketTableLock.Destroy();
        EXPECT_EQ(OpenDescriptors(), descriptors_) << "a descriptor was left open";
    }

    // Stops the module during its nth sleep from now.
    static void StopAtPause(size_t nth) {
        TimeRecorder::AtEachPause([nth](size_t number) {
            if (number == nth) {
                moduleRunning = 0;
            }
        });
    }

    static std::vector<Fake::LogLine> Log() { return Fake::TheAgent().log; }

    // Expects that this line was logged and no other.
    static void ExpectLogged(LogLevel level, const std::string& source, const std::string& text) {
        ASSERT_EQ(Log().size(), 1U);
        EXPECT_EQ(Log()[0].channel, "NormalLog");
        EXPECT_EQ(Log()[0].level, level);
        EXPECT_EQ(Log()[0].source, source);
        EXPECT_EQ(Log()[0].text, text);
    }

    static int OpenDescriptors() {
        int count = 0;
        for (int fd = 0; fd < 256; ++fd) {
            count += fcntl(fd, F_GETFD) == -1 ? 0 : 1;
        }
        return count;
    }

private:
    int descriptors_ = 0;
};

// As above, with a built tree mounted over /proc.
class ProcInspectTest : public InspectTest {
protected:
    void SetUp() override {
        if (!MayMount()) {
            GTEST_SKIP() << "needs the right to mount a tree over /proc (root)";
        }
        proc = std::make_unique<ProcTree>();
    }

    void TearDown() override { proc.reset(); }

    std::unique_ptr<ProcTree> proc;
};
