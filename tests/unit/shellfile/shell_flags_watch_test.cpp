#include "shellfile/shell_flags_watch.h"

#include <fcntl.h>
#include <linux/fs.h>
#include <sys/fanotify.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include "shellfile_fixture.h"
#include "tests/support/ext4_volume.h"
#include "tests/support/failing_calls.h"

namespace {

using std::chrono::microseconds;
using std::chrono::milliseconds;
using std::chrono::nanoseconds;
using testing::ElementsAre;

class ShellFlags : public ShellFileTest {
protected:
    void SetUp() override {
        ShellFileTest::SetUp();
        shell = folder.Write("sh", "a shell");
        InitShellsHashSize({shell});
        Fake::TheAgent().log.clear();
    }

    void TearDown() override {
        FailingCalls::AnswerFlags(std::nullopt);
        ShellFileTest::TearDown();
    }

    // The kernel answers these flags for any file, whatever the file system.
    static void SetFlags(uint32_t flags) { FailingCalls::AnswerFlags(flags); }

    void TakeBaseline(uint32_t flags) const {
        SetFlags(flags);
        TakeFlagsBaseline();
    }

    void Close(unsigned int mask = FAN_CLOSE_NOWRITE) const { ChattrFanotifyCallback(0, shell.c_str(), mask); }

    // "from to" of each event, in order.
    static std::vector<std::string> Changes() {
        std::vector<std::string> changes;
        for (const EventJson& content : Contents()) {
            const EventJson attribute = content["attribute"][0];
            EXPECT_EQ(attribute["type"], "ext2_flag");
            changes.push_back(attribute["from"].Text() + " " + attribute["to"].Text());
        }
        return changes;
    }

    std::string shell;
};

TEST_F(ShellFlags, AreReportedAtTheCloseThatFollowsAChange) {
    TakeBaseline(0);
    SetFlags(FS_IMMUTABLE_FL);
    Close();
    ASSERT_EQ(Contents().size(), 1U);
    EXPECT_EQ(Contents()[0].Dump(), R"({"path":")" + shell + R"(","operationType":"attribute",)" +
                                        R"("attribute":[{"type":"ext2_flag","from":"0","to":"16"}]})");
    EXPECT_EQ(Fake::TheAgent().LogTexts(LOG_LEVEL_DETAIL), std::vector<std::string>{"ext2_flag2"});
    EXPECT_EQ(TimeRecorder::Pauses(), (std::vector<nanoseconds>{milliseconds(10), microseconds(100)}));
}

TEST_F(ShellFlags, AreReportedAsSignedNumbers) {
    TakeBaseline(0x80000010);
    SetFlags(0x7fffffff);
    Close();
    SetFlags(0xfffffffe);
    Close();
    EXPECT_THAT(Changes(), ElementsAre("-2147483632 2147483647", "2147483647 -2"));
}

TEST_F(ShellFlags, MoveTheBaselineWithEachReport) {
    TakeBaseline(0);
    SetFlags(0x10);
    Close();
    Close();
    SetFlags(0);
    Close();
    EXPECT_THAT(Changes(), ElementsAre("0 16", "16 0"));
}

TEST_F(ShellFlags, AreNotReportedIfTheyHaveNotChanged) {
    TakeBaseline(0x10);
    Close();
    EXPECT_TRUE(Contents().empty());
    EXPECT_TRUE(Fake::TheAgent().log.empty());
    EXPECT_EQ(TimeRecorder::Pauses(), std::vector<nanoseconds>{microseconds(100)});
}

TEST_F(ShellFlags, BecomeTheBaselineAtTheFirstCloseIfTheStartCouldNotReadThem) {
    std::filesystem::remove(shell);
    TakeBaseline(0);
    folder.Write("sh", "a shell");
    SetFlags(0x10);
    Close();
    EXPECT_TRUE(Contents().empty());
    EXPECT_EQ(Fake::TheAgent().LogTexts(LOG_LEVEL_DETAIL), std::vector<std::string>{"old attr init failed.[attr=-1]"});
    SetFlags(0x20);
    Close();
    EXPECT_THAT(Changes(), ElementsAre("16 32"));
}

TEST_F(ShellFlags, KeepTheirBaselineWhileTheyCannotBeRead) {
    TakeBaseline(0x10);
    std::filesystem::rename(shell, shell + ".away");
    Close();
    std::filesystem::rename(shell + ".away", shell);
    Close();
    EXPECT_TRUE(Contents().empty());
    EXPECT_TRUE(Fake::TheAgent().log.empty());
    SetFlags(0x20);
    Close();
    EXPECT_THAT(Changes(), ElementsAre("16 32"));
}

TEST_F(ShellFlags, AreNotComparedForOtherEventsOrPaths) {
    const std::string other = folder.Write("other", "no shell");
    TakeBaseline(0);
    SetFlags(0x10);
    Close(FAN_CLOSE_WRITE);
    for (const std::string& path : {std::string(), other}) {
        ChattrFanotifyCallback(0, path.c_str(), FAN_CLOSE_NOWRITE);
    }
    EXPECT_EQ(TimeRecorder::Pauses(), std::vector<nanoseconds>(3, microseconds(100)));
    ChattrFanotifyCallback(0, nullptr, FAN_CLOSE_NOWRITE);
    EXPECT_EQ(TimeRecorder::Pauses().size(), 3U) << "an event without a path costs nothing";
    EXPECT_TRUE(Contents().empty());
    EXPECT_TRUE(Fake::TheAgent().log.empty());
}

TEST_F(ShellFlags, AreComparedForAnyMaskThatHasTheClose) {
    TakeBaseline(0);
    SetFlags(0x10);
    Close(FAN_CLOSE_NOWRITE | FAN_CLOSE_WRITE | FAN_OPEN);
    EXPECT_THAT(Changes(), ElementsAre("0 16"));
}

TEST_F(ShellFlags, AreNotComparedForAPathWithoutABaselineOrThatIsNoShell) {
    TakeBaseline(0);
    const std::string added = folder.Write("added", "a shell");
    InitShellsHashSize({added});
    Fake::TheAgent().log.clear();
    for (const uint32_t flags : {0x10U, 0x20U}) {
        SetFlags(flags);
        Close();
        ChattrFanotifyCallback(0, added.c_str(), FAN_CLOSE_NOWRITE);
    }
    EXPECT_TRUE(Contents().empty());
    EXPECT_TRUE(Fake::TheAgent().log.empty());
}

TEST_F(ShellFlags, AreReadFromTheFile) {
    if (!MayMakeVolume()) {
        GTEST_SKIP() << "needs the right to mount (root) and loop devices";
    }
    const Ext4Volume volume;
    shell = volume.Write("sh", "a shell");
    InitShellsHashSize({shell});
    TakeFlagsBaseline();
    const int before = GetFileExt2Flags(shell);
    const int fd = open(shell.c_str(), O_RDONLY | O_CLOEXEC);
    int flags = before | FS_NODUMP_FL;
    ASSERT_EQ(ioctl(fd, FS_IOC_SETFLAGS, &flags), 0);
    close(fd);
    Close();
    EXPECT_THAT(Changes(), ElementsAre(std::to_string(before) + " " + std::to_string(flags)));
}

}  // namespace
