#include "shellfile/shell_flags_watch.h"

#include <fcntl.h>
#include <linux/fs.h>
#include <sys/fanotify.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include "shellfile_fixture.h"

namespace {

using std::chrono::microseconds;
using std::chrono::milliseconds;
using std::chrono::nanoseconds;

class ShellFlags : public ShellFileTest {
protected:
    void SetUp() override {
        ShellFileTest::SetUp();
        shell = folder.Write("sh", "a shell");
        InitShellsHashSize({shell});
        before = GetFileExt2Flags(shell);
        if (before == -1 || !SetFlag(true) || !SetFlag(false)) {
            GTEST_SKIP() << "needs a temporary directory on a file system with flags";
        }
        Fake::TheAgent().log.clear();
    }

    // The flag that excludes a file from backups needs no right to change.
    bool SetFlag(bool on) const {
        const int fd = open(shell.c_str(), O_RDONLY | O_CLOEXEC);
        int flags = on ? before | FS_NODUMP_FL : before & ~FS_NODUMP_FL;
        const bool done = fd != -1 && ioctl(fd, FS_IOC_SETFLAGS, &flags) == 0;
        close(fd);
        return done;
    }

    void Close(unsigned int mask = FAN_CLOSE_NOWRITE) const { ChattrFanotifyCallback(0, shell.c_str(), mask); }

    std::string shell;
    int before = 0;
};

TEST_F(ShellFlags, AreReportedAtTheCloseThatFollowsAChange) {
    TakeFlagsBaseline();
    SetFlag(true);
    Close();
    ASSERT_EQ(Contents().size(), 1U);
    EXPECT_EQ(Contents()[0].Dump(), R"({"path":")" + shell + R"(","operationType":"attribute",)" +
                                        R"("attribute":[{"type":"ext2_flag","from":")" + std::to_string(before) +
                                        R"(","to":")" + std::to_string(before | FS_NODUMP_FL) + R"("}]})");
    EXPECT_EQ(Fake::TheAgent().LogTexts(LOG_LEVEL_DETAIL), std::vector<std::string>{"ext2_flag2"});
    EXPECT_EQ(TimeRecorder::Pauses(), (std::vector<nanoseconds>{milliseconds(10), microseconds(100)}));
}

TEST_F(ShellFlags, MoveTheBaselineWithEachReport) {
    TakeFlagsBaseline();
    SetFlag(true);
    Close();
    Close();
    SetFlag(false);
    Close();
    ASSERT_EQ(Contents().size(), 2U);
    EXPECT_EQ(Contents()[1]["attribute"][0]["to"], std::to_string(before));
}

TEST_F(ShellFlags, AreNotReportedIfTheyHaveNotChanged) {
    TakeFlagsBaseline();
    Close();
    EXPECT_TRUE(Contents().empty());
    EXPECT_TRUE(Fake::TheAgent().log.empty());
    EXPECT_EQ(TimeRecorder::Pauses(), std::vector<nanoseconds>{microseconds(100)});
}

TEST_F(ShellFlags, BecomeTheBaselineAtTheFirstCloseIfTheStartCouldNotReadThem) {
    std::filesystem::remove(shell);
    TakeFlagsBaseline();
    folder.Write("sh", "a shell");
    SetFlag(true);
    Close();
    EXPECT_TRUE(Contents().empty());
    EXPECT_EQ(Fake::TheAgent().LogTexts(LOG_LEVEL_DETAIL), std::vector<std::string>{"old attr init failed.[attr=-1]"});
    SetFlag(false);
    Close();
    EXPECT_EQ(Contents().size(), 1U);
}

TEST_F(ShellFlags, KeepTheirBaselineWhileTheyCannotBeRead) {
    TakeFlagsBaseline();
    std::filesystem::rename(shell, shell + ".away");
    Close();
    std::filesystem::rename(shell + ".away", shell);
    Close();
    EXPECT_TRUE(Contents().empty());
    SetFlag(true);
    Close();
    EXPECT_EQ(Contents().at(0)["attribute"][0]["from"], std::to_string(before));
}

TEST_F(ShellFlags, AreNotComparedForOtherEventsOrPaths) {
    TakeFlagsBaseline();
    SetFlag(true);
    Close(FAN_CLOSE_WRITE);
    ChattrFanotifyCallback(0, "", FAN_CLOSE_NOWRITE);
    ChattrFanotifyCallback(0, "/bin/ls", FAN_CLOSE_NOWRITE);
    EXPECT_EQ(TimeRecorder::Pauses(), std::vector<nanoseconds>(3, microseconds(100)));
    ChattrFanotifyCallback(0, nullptr, FAN_CLOSE_NOWRITE);
    EXPECT_EQ(TimeRecorder::Pauses().size(), 3U) << "an event without a path costs nothing";
    EXPECT_TRUE(Contents().empty());
}

}  // namespace
