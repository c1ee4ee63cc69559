#include "shellfile/shell_watch.h"

#include <fcntl.h>
#include <sys/fanotify.h>

#include <map>
#include <utility>

#include "shellfile/shell_copy.h"
#include "shellfile/shell_file_callback.h"
#include "shellfile/shell_flags_watch.h"
#include "shellfile_fixture.h"
#include "tests/support/failing_calls.h"

namespace {

using testing::AllOf;
using testing::Contains;
using testing::Each;
using testing::ElementsAre;
using testing::Not;
using testing::SizeIs;
using Rule = TavUtils::Monitor::FileWatchRule;

class ShellWatch : public ShellFileTest {
protected:
    void TearDown() override {
        FailingCalls::FailAllocation(0);
        FailingCalls::AnswerFlags(std::nullopt);
        Fake::TheAgent().atEachCall = nullptr;
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

    static bool IsOpen(int fd) { return fcntl(fd, F_GETFD) != -1; }

    static int Running() {
        return *static_cast<TavUtils::Monitor::FanotifyLoopArgs*>(Fake::TheAgent().threads.at(0).argument)->running;
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
    EXPECT_TRUE(Fake::TheAgent().callbacks.empty());
    EXPECT_TRUE(Fake::TheAgent().threads.empty());
    EXPECT_EQ(shellEventStarted, 0);
}

TEST_F(ShellWatch, AcceptsReportsFromTheEndOfTheStartToTheEndOfTheStop) {
    std::vector<int> states;
    Fake::TheAgent().atEachCall = [&](const std::string&) { states.push_back(shellEventStarted); };
    StartShellEvent({folder.Write("sh", "a shell")});
    EXPECT_THAT(states, AllOf(SizeIs(6), Each(0))) << "a digest, two rules, the callback, the group, the thread";
    states.clear();
    StopShellEvent();
    EXPECT_THAT(states, AllOf(SizeIs(5), Each(1)));
}

TEST_F(ShellWatch, TakesTheBaselineOfTheFlagsAtEachStartBeforeItListens) {
    const std::string shell = folder.Write("sh", "a shell");
    for (const uint32_t flags : {0x10U, 0x20U}) {
        FailingCalls::AnswerFlags(flags);
        Fake::TheAgent().atEachCall = [](const std::string& call) {
            if (call.starts_with("watch ")) {
                FailingCalls::AnswerFlags(0x40);
            }
        };
        StartShellEvent({shell});
        Fake::TheAgent().atEachCall = nullptr;
        Fake::TheAgent().events.clear();
        ChattrFanotifyCallback(0, shell.c_str(), FAN_CLOSE_NOWRITE);
        ASSERT_EQ(Contents().size(), 1U);
        EXPECT_EQ(Contents()[0]["attribute"][0]["from"], std::to_string(flags));
        EXPECT_EQ(Contents()[0]["attribute"][0]["to"], "64");
        StopShellEvent();
    }
}

TEST_F(ShellWatch, ClosesTheGroupBeforeItWaitsForTheLoop) {
    StartShellEvent({"/bin/sh"});
    const int fd = Fake::TheAgent().fanotifyDescriptor;
    EXPECT_TRUE(IsOpen(fd));
    bool isOpenAtTheWait = true;
    Fake::TheAgent().atEachCall = [&](const std::string& call) {
        isOpenAtTheWait = call == "await thread" ? IsOpen(fd) : isOpenAtTheWait;
    };
    StopShellEvent();
    EXPECT_FALSE(isOpenAtTheWait);
}

TEST_F(ShellWatch, ClosesTheDescriptorThatTheLoopLeaves) {
    const int left = open("/dev/null", O_RDONLY | O_CLOEXEC);
    Fake::TheAgent().descriptorLeftByLoop = left;
    StartShellEvent({"/bin/sh"});
    StopShellEvent();
    EXPECT_FALSE(IsOpen(left));
}

TEST_F(ShellWatch, RunsTheLoopFromBeforeItsThreadStartsUntilBeforeItIsAwaited) {
    std::map<std::string, int> running;
    Fake::TheAgent().atEachCall = [&](const std::string& call) {
        if (call.ends_with("thread") || call.starts_with("thread")) {
            running[call] = Running();
        }
    };
    StartShellEvent({"/bin/sh"});
    StopShellEvent();
    EXPECT_THAT(running, ElementsAre(std::pair("await thread", 0), std::pair("thread ChattrShellThread", 1)));
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
    EXPECT_THAT(Fake::TheAgent().journal, Not(Contains("unwatch /bin")));
}

TEST_F(ShellWatch, StartsWithoutFanotify) {
    Fake::TheAgent().refuseFanotify = true;
    EXPECT_EQ(StartShellEvent({"/bin/sh"}), 1);
    EXPECT_EQ(Fake::TheAgent().callbacks.size(), 1U);
    EXPECT_EQ(shellEventStarted, 1);
    StopShellEvent();
    EXPECT_THAT(Fake::TheAgent().journal, Not(Contains("log shell file system attr thread stop!\n")));
}

TEST_F(ShellWatch, StartsWithoutMemoryForTheGroup) {
    Fake::TheAgent().atEachCall = [](const std::string& call) {
        if (call == "add callback") {
            FailingCalls::FailAllocation(1);
        }
    };
    EXPECT_EQ(StartShellEvent({"/shells/sh"}), 1);
    EXPECT_THAT(Fake::TheAgent().journal, ElementsAre("watch /shells", "watch /shells/sh", "add callback"));
    EXPECT_EQ(shellEventStarted, 1);
}

TEST_F(ShellWatch, StartsWithoutTheThread) {
    Fake::TheAgent().refuseThreads = true;
    EXPECT_EQ(StartShellEvent({"/bin/sh"}), 1);
    EXPECT_THAT(Fake::TheAgent().LogTexts(LOG_LEVEL_ERROR), ElementsAre("Start fanotify pool thread failed."));
    EXPECT_EQ(shellEventStarted, 1);
    const int fd = Fake::TheAgent().fanotifyDescriptor;
    Fake::TheAgent().journal.clear();
    StopShellEvent();
    EXPECT_THAT(Fake::TheAgent().journal,
                AllOf(Contains("log shell file system attr thread stop!\n"), Not(Contains("await thread"))));
    EXPECT_FALSE(IsOpen(fd));
}

TEST_F(ShellWatch, ReplacesAGroupWithoutAThreadOnASecondStart) {
    Fake::TheAgent().refuseThreads = true;
    StartShellEvent({"/bin/sh"});
    const int first = Fake::TheAgent().fanotifyDescriptor;
    Fake::TheAgent().refuseThreads = false;
    Fake::TheAgent().atEachCall = [&](const std::string& call) {
        EXPECT_FALSE(call == "fanotify" && IsOpen(first)) << "the second group is opened before the first is closed";
    };
    StartShellEvent({"/bin/sh"});
    EXPECT_EQ(Fake::TheAgent().threads.size(), 1U);
}

TEST_F(ShellWatch, KeepsItsThreadAndDropsItsRulesOnASecondStart) {
    StartShellEvent({"/shells/sh"});
    StartShellEvent({"/shells/sh"});
    EXPECT_EQ(Fake::TheAgent().threads.size(), 1U);
    EXPECT_EQ(Fake::TheAgent().callbacks.size(), 2U);
    Fake::TheAgent().journal.clear();
    StopShellEvent();
    StopShellEvent();
    EXPECT_THAT(Fake::TheAgent().journal,
                ElementsAre("await thread", "log shell file system attr thread stop!\n", "remove callback",
                            "unwatch /shells", "unwatch /shells/sh", "remove callback"));
}

TEST_F(ShellWatch, StopsWithoutALogLineIfItNeverStarted) {
    StopShellEvent();
    EXPECT_THAT(Fake::TheAgent().journal, ElementsAre("remove callback"));
}

}  // namespace
