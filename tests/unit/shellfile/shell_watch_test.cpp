#include "shellfile/shell_watch.h"

#include <fcntl.h>
#include <sys/fanotify.h>

#include "shellfile/shell_copy.h"
#include "shellfile/shell_file_callback.h"
#include "shellfile/shell_flags_watch.h"
#include "shellfile_fixture.h"
#include "tests/support/failing_calls.h"

namespace {

using testing::ElementsAre;
using Rule = TavUtils::Monitor::FileWatchRule;

class ShellWatch : public ShellFileTest {
protected:
    void TearDown() override {
        FailingCalls::FailAllocation(0);
        StopShellEvent();
        ShellFileTest::TearDown();
    }

    static std::vector<std::string> WatchedPaths() {
        std::vector<std::string> paths;
        for (const Rule& rule : Fake::TheAgent().rules) {
            paths.push_back(rule.path);
        }
        return paths;
    }

    static int GroupDescriptor() {
        return static_cast<TavUtils::Monitor::FanotifyLoopArgs*>(Fake::TheAgent().threads.at(0).argument)->event->fd;
    }
};

TEST_F(ShellWatch, WatchesEachShellAndEachDirectoryOnce) {
    EXPECT_EQ(StartShellEvent({"/bin/sh", "/bin/bash"}), 1);
    EXPECT_THAT(WatchedPaths(), ElementsAre("/bin", "/bin/bash", "/bin/sh"));
}

TEST_F(ShellWatch, DoesNotMonitorAPathWithoutADirectory) {
    StartShellEvent({"sh", "/sh"});
    EXPECT_THAT(WatchedPaths(), ElementsAre("", "/sh"));
    EXPECT_THAT(Fake::TheAgent().fanotifyMarks,
                ElementsAre(Fake::FanotifyMark{"/sh", FAN_CLOSE_NOWRITE}, Fake::FanotifyMark{"sh", FAN_CLOSE_NOWRITE}));
}

TEST_F(ShellWatch, RequestsTheChangesThatItReports) {
    StartShellEvent({"/bin/sh"});
    for (const Rule& rule : Fake::TheAgent().rules) {
        for (const bool on : {rule.onAttribute, rule.onModify, rule.onDelete, rule.onMove, rule.onMovedFrom,
                              rule.onMovedTo, rule.onReplace}) {
            EXPECT_TRUE(on);
        }
        for (const bool on : {rule.onCreate, rule.onOpen, rule.onRead}) {
            EXPECT_FALSE(on);
        }
        EXPECT_EQ(rule.callback, Fake::TheAgent().rules.front().callback) << "one callback serves all";
    }
}

TEST_F(ShellWatch, ReportsReachTheGateThroughTheRules) {
    StartShellEvent({"/shells/sh"});
    (*Fake::TheAgent().rules.at(0).callback)(0, "/shells/sh", nullptr, false, 3, "");
    EXPECT_EQ(Contents().size(), 1U);
}

TEST_F(ShellWatch, StartsAndStopsItsListenersInOrder) {
    StartShellEvent({"/shells/sh"});
    EXPECT_THAT(Fake::TheAgent().journal, ElementsAre("watch /shells", "watch /shells/sh", "add callback", "fanotify",
                                                      "thread ChattrShellThread"));
    EXPECT_THAT(Fake::TheAgent().callbacks, ElementsAre(ShellExecCallback));
    EXPECT_EQ(Fake::TheAgent().threads.at(0).stackBytes, 2000000U);
    EXPECT_EQ(Fake::TheAgent().fanotifyCallback, ChattrFanotifyCallback);
    EXPECT_EQ(shellEventStarted, 1);
    Fake::TheAgent().journal.clear();
    StopShellEvent();
    EXPECT_THAT(Fake::TheAgent().journal, ElementsAre("await thread", "log shell file system attr thread stop!\n",
                                                      "remove callback", "unwatch /shells", "unwatch /shells/sh"));
    EXPECT_TRUE(Fake::TheAgent().rules.empty());
    EXPECT_EQ(shellEventStarted, 0);
}

TEST_F(ShellWatch, ClosesTheGroupBeforeItWaitsForTheLoop) {
    StartShellEvent({"/bin/sh"});
    const int fd = GroupDescriptor();
    EXPECT_NE(fcntl(fd, F_GETFD), -1);
    StopShellEvent();
    EXPECT_EQ(fcntl(fd, F_GETFD), -1);
}

TEST_F(ShellWatch, StartsWithoutShells) {
    EXPECT_EQ(StartShellEvent({}), 1);
    EXPECT_TRUE(Fake::TheAgent().rules.empty());
    EXPECT_TRUE(Fake::TheAgent().fanotifyMarks.empty());
    EXPECT_EQ(Fake::TheAgent().callbacks.size(), 1U);
    EXPECT_EQ(Fake::TheAgent().threads.size(), 1U);
}

TEST_F(ShellWatch, DropsRefusedRules) {
    Fake::TheAgent().refusedWatches = {"/bin"};
    StartShellEvent({"/bin/sh"});
    EXPECT_THAT(WatchedPaths(), ElementsAre("/bin/sh"));
    Fake::TheAgent().journal.clear();
    StopShellEvent();
    EXPECT_THAT(Fake::TheAgent().journal, testing::Not(testing::Contains("unwatch /bin")));
}

TEST_F(ShellWatch, StartsWithoutFanotify) {
    Fake::TheAgent().refuseFanotify = true;
    EXPECT_EQ(StartShellEvent({"/bin/sh"}), 1);
    EXPECT_EQ(Fake::TheAgent().callbacks.size(), 1U);
    EXPECT_EQ(shellEventStarted, 1);
    StopShellEvent();
    EXPECT_THAT(Fake::TheAgent().journal, testing::Not(testing::Contains("log shell file system attr thread stop!\n")));
}

TEST_F(ShellWatch, StartsWithoutTheThread) {
    Fake::TheAgent().refuseThreads = true;
    EXPECT_EQ(StartShellEvent({"/bin/sh"}), 1);
    EXPECT_THAT(Fake::TheAgent().LogTexts(LOG_LEVEL_ERROR), ElementsAre("Start fanotify pool thread failed."));
    Fake::TheAgent().journal.clear();
    StopShellEvent();
    EXPECT_THAT(Fake::TheAgent().journal, testing::Contains("log shell file system attr thread stop!\n"));
}

TEST_F(ShellWatch, KeepsItsThreadOnASecondStart) {
    StartShellEvent({"/bin/sh"});
    StartShellEvent({"/bin/sh"});
    EXPECT_EQ(Fake::TheAgent().threads.size(), 1U);
    EXPECT_EQ(Fake::TheAgent().callbacks.size(), 2U);
}

TEST_F(ShellWatch, StopsWithoutALogLineIfItNeverStarted) {
    StopShellEvent();
    EXPECT_THAT(Fake::TheAgent().journal, ElementsAre("remove callback"));
}

}  // namespace
