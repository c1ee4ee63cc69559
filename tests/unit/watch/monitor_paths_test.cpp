#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <string>
#include <vector>

#include "tests/unit/watch/monitor_stage.h"

namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using TestSupport::Listener;
using TestSupport::Stage;

TEST(MonitorPaths, AFileBehindALinkIsWatchedUnderTheLinksName) {
    Stage stage;
    stage.Write("real/dash");
    stage.MakeDirectory("bin");
    stage.Link("../real/dash", "bin/sh");
    ASSERT_TRUE(stage.Watch("bin/sh"));
    chmod(stage.Path("real/dash").c_str(), 0700);
    EXPECT_THAT(stage.Reported(), ElementsAre("1 bin/sh attribute oaccess=33188 access=33216"));
    stage.Write("real/dash", "other");
    EXPECT_THAT(stage.Reported(), ElementsAre("2 bin/sh"));
    stage.Write("real/new");
    stage.Reported();
    stage.Move("real/new", "real/dash");
    stage.Write("real/dash", "third");
    EXPECT_THAT(stage.Reported(), ElementsAre("4 real/new -> bin/sh", "2 bin/sh"));
    stage.Remove("real/dash");
    EXPECT_THAT(stage.Reported(), ElementsAre("3 bin/sh"));
    stage.Write("real/dash");
    EXPECT_THAT(stage.Reported(), ElementsAre("2 bin/sh"));
}

TEST(MonitorPaths, ALinkThatIsReplacedIsReportedAndFollowed) {
    Stage stage;
    stage.Write("first");
    stage.Write("second");
    stage.Link("first", "sh");
    ASSERT_TRUE(stage.Watch("sh"));
    stage.Link("second", "new");
    stage.Move("new", "sh");
    EXPECT_THAT(stage.Reported(), ElementsAre("4 new -> sh"));
    stage.Write("second", "other");
    EXPECT_THAT(stage.Reported(), ElementsAre("2 sh"));
    stage.Write("first", "other");
    EXPECT_THAT(stage.Reported(), IsEmpty());
}

TEST(MonitorPaths, AChangeOfAFileWithTwoNamesIsReportedOnce) {
    Stage stage;
    stage.Write("usr/bin/bash");
    stage.Link("usr/bin", "bin");
    for (const char* path : {"bin", "bin/bash", "usr/bin", "usr/bin/bash"}) {
        ASSERT_TRUE(stage.Watch(path));
    }
    stage.Write("usr/bin/bash", "other");
    EXPECT_THAT(stage.Reported(), ElementsAre("2 bin/bash"));
    chmod(stage.Path("bin/bash").c_str(), 0700);
    EXPECT_THAT(stage.Reported(), ElementsAre("1 bin/bash attribute oaccess=33188 access=33216"));
    stage.Write("usr/bin/new");
    stage.Reported();
    stage.Move("usr/bin/new", "usr/bin/bash");
    EXPECT_THAT(stage.Reported(), ElementsAre("4 bin/new -> bin/bash"));
    stage.Remove("bin/bash");
    EXPECT_THAT(stage.Reported(), ElementsAre("3 bin/bash"));
}

TEST(MonitorPaths, ALinkToAWatchedFileDoesNotHideItsOwnName) {
    Stage stage;
    stage.Write("dash");
    stage.Link("dash", "a-sh");
    ASSERT_TRUE(stage.Watch("a-sh"));
    ASSERT_TRUE(stage.Watch("dash"));
    stage.Write("dash", "other");
    EXPECT_THAT(stage.Reported(), ElementsAre("2 dash"));
    stage.Remove("dash");
    EXPECT_THAT(stage.Reported(), ElementsAre("3 dash"));
}

TEST(MonitorPaths, HardLinksAreReportedUnderTheUsedName) {
    Stage stage;
    stage.Write("a");
    std::filesystem::create_hard_link(stage.Path("a"), stage.Path("b"));
    ASSERT_TRUE(stage.Watch("a"));
    ASSERT_TRUE(stage.Watch("b"));
    stage.Write("b", "other");
    EXPECT_THAT(stage.Reported(), ElementsAre("2 b"));
    stage.Write("a", "third");
    EXPECT_THAT(stage.Reported(), ElementsAre("2 a"));
    // The lower link count is not reported as a change of the other name.
    stage.Remove("a");
    EXPECT_THAT(stage.Reported(), ElementsAre("3 a"));
    chmod(stage.Path("b").c_str(), 0700);
    EXPECT_THAT(stage.Reported(), ElementsAre("1 b attribute oaccess=33188 access=33216"));
}

TEST(MonitorPaths, AReplacedHardLinkDoesNotAffectTheOther) {
    Stage stage;
    stage.Write("a");
    std::filesystem::create_hard_link(stage.Path("a"), stage.Path("b"));
    stage.Write("new");
    ASSERT_TRUE(stage.Watch("a"));
    ASSERT_TRUE(stage.Watch("b"));
    stage.Move("new", "a");
    EXPECT_THAT(stage.Reported(), ElementsAre("4 new -> a"));
}

TEST(MonitorPaths, ADirectoryThatIsRemovedAndRecreatedIsWatchedAgain) {
    Stage stage;
    stage.Write("one/two/shell");
    ASSERT_TRUE(stage.Watch("one/two"));
    ASSERT_TRUE(stage.Watch("one/two/shell"));
    for (int i = 0; i < 3; ++i) {
        stage.Remove("one");
        EXPECT_THAT(stage.Reported(), ElementsAre("3 one/two/shell", "3 one/two"));
        stage.MakeDirectory("one/two");
        EXPECT_THAT(stage.Reported(), IsEmpty());
        stage.Write("one/two/shell");
        EXPECT_THAT(stage.Reported(), ElementsAre("2 one/two/shell"));
        chmod(stage.Path("one/two/shell").c_str(), 0700);
        EXPECT_THAT(stage.Reported(), ElementsAre("1 one/two/shell attribute oaccess=33188 access=33216"));
    }
}

TEST(MonitorPaths, ADirectoryThatIsMovedAndComesBackIsWatchedAgain) {
    Stage stage;
    stage.Write("one/two/shell");
    ASSERT_TRUE(stage.Watch("one/two/shell"));
    for (int i = 0; i < 3; ++i) {
        stage.Move("one", "elsewhere");
        EXPECT_THAT(stage.Reported(), ElementsAre("5 one/two/shell"));
        stage.Write("elsewhere/two/shell", "unseen");
        EXPECT_THAT(stage.Reported(), IsEmpty());
        stage.Move("elsewhere", "one");
        EXPECT_THAT(stage.Reported(), ElementsAre("6 one/two/shell"));
        stage.Write("one/two/shell");
        EXPECT_THAT(stage.Reported(), ElementsAre("2 one/two/shell"));
    }
}

TEST(MonitorPaths, ADirectoryThatComesBackWithItsFileInItIsReported) {
    Stage stage;
    stage.Write("one/shell");
    ASSERT_TRUE(stage.Watch("one/shell"));
    stage.Remove("one");
    stage.Reported();
    stage.Write("one/shell");
    EXPECT_THAT(stage.Reported(), ElementsAre("2 one/shell"));
}

TEST(MonitorPaths, ALinkOnThePathThatLeadsElsewhereIsReported) {
    Stage stage;
    stage.Write("good/shell");
    stage.Write("evil/shell");
    stage.Link("good", "bin");
    ASSERT_TRUE(stage.Watch("bin/shell"));
    stage.Link("evil", "new");
    stage.Move("new", "bin");
    EXPECT_THAT(stage.Reported(), ElementsAre("6 bin/shell"));
    stage.Write("evil/shell", "other");
    EXPECT_THAT(stage.Reported(), ElementsAre("2 bin/shell"));
    stage.Write("good/shell", "other");
    EXPECT_THAT(stage.Reported(), IsEmpty());
}

TEST(MonitorPaths, AMissingPathIsReportedOnceItExists) {
    Stage stage;
    ASSERT_TRUE(stage.Watch("not/there/yet"));
    stage.Write("not/there/other");
    EXPECT_THAT(stage.Reported(), IsEmpty());
    stage.Write("not/there/yet");
    EXPECT_THAT(stage.Reported(), ElementsAre("2 not/there/yet"));
    stage.Remove("not/there/yet");
    EXPECT_THAT(stage.Reported(), ElementsAre("3 not/there/yet"));
}

TEST(MonitorPaths, AnUnreachablePathIsReportedOnceItExists) {
    Stage stage;
    stage.Link("loop", "loop");
    stage.Write("file");
    ASSERT_TRUE(stage.Watch("loop/shell"));
    ASSERT_TRUE(stage.Watch("file/shell"));
    stage.Remove("loop");
    stage.Remove("file");
    stage.Reported();
    stage.Write("loop/shell");
    stage.Write("file/shell");
    EXPECT_THAT(stage.Reported(), testing::UnorderedElementsAre("2 loop/shell", "2 file/shell"));
}

TEST(MonitorPaths, TheEmptyPathIsTheRoot) {
    Stage stage;
    Listener root;
    ASSERT_TRUE(root.Watch(""));
    if (geteuid() != 0) {
        GTEST_SKIP() << "only root writes to the root directory";
    }
    const std::string path = "/orlim-test-" + std::to_string(getpid());
    WriteFile(path, "x");
    unlink(path.c_str());
    stage.Reported();
    EXPECT_THAT(root.Take(), testing::Contains("3 " + path));
}

TEST(MonitorPaths, TheRemovalOfASubdirectoryIsReportedOnce) {
    Stage stage;
    stage.MakeDirectory("one/two");
    ASSERT_TRUE(stage.Watch("one"));
    ASSERT_TRUE(stage.Watch("one/two"));
    stage.Remove("one/two");
    EXPECT_THAT(stage.Reported(), ElementsAre("3 one/two"));
    stage.MakeDirectory("one/two");
    stage.Reported();
    stage.Move("one/two", "one/three");
    EXPECT_THAT(stage.Reported(), ElementsAre("4 one/two -> one/three"));
}

}  // namespace
