// The count of descriptors of all snapshots starts at 0 when the module is loaded.
#include <unistd.h>

#include "inspect/process_snapshot.h"
#include "inspect_fixture.h"
#include "tests/support/emulation.h"

namespace {

constexpr int pid = 4242;
constexpr std::chrono::microseconds manyDescriptorsPause{400};

class ProcessSnapshotCount : public ProcInspectTest {
protected:
    void AddDescriptors(int from, int to) {
        for (int fd = from; fd < to; ++fd) {
            proc->AddDescriptor(pid, fd, "/dev/null");
        }
    }

    static size_t ManyDescriptorsPauses() {
        TimeRecorder::Reset();
        ProcInfo info;
        GetProcInfo(pid, info);
        return CountOf(TimeRecorder::Pauses(), manyDescriptorsPause);
    }

    // Runs in a new program. Returns 0 if the pause comes at the two hundredth descriptor only.
    int RunInFreshProgram() {
        AddDescriptors(0, 99);
        const size_t withNinetyNine = ManyDescriptorsPauses();
        AddDescriptors(99, 100);
        const size_t withOneHundredNinetyNine = ManyDescriptorsPauses();
        std::filesystem::remove_all(proc->Folder() / std::to_string(pid) / "fd");
        std::filesystem::create_directory(proc->Folder() / std::to_string(pid) / "fd");
        AddDescriptors(0, 1);
        const size_t withTwoHundred = ManyDescriptorsPauses();
        proc.reset();
        return withNinetyNine == 0 && withOneHundredNinetyNine == 0 && withTwoHundred == 1 ? 0 : 1;
    }
};

TEST_F(ProcessSnapshotCount, StartsAtZero) {
    if (runsEmulated) {
        GTEST_SKIP() << startsNoProgram;
    }
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    proc->Add({.pid = pid, .ppid = 77, .exe = "/usr/bin/bash"});
    EXPECT_EXIT(_exit(RunInFreshProgram()), testing::ExitedWithCode(0), "");
}

}  // namespace
