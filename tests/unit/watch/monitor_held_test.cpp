// Reports while other processes hold files open, and while the monitor lacks descriptors.
#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <filesystem>
#include <map>
#include <string>
#include <vector>

#include "host/base/descriptor.h"
#include "host/base/log.h"
#include "host/watch/file_state.h"
#include "host/watch/path_walk.h"
#include "tests/unit/watch/monitor_stage.h"

namespace {

using Host::Descriptor;
using testing::ElementsAre;
using testing::IsEmpty;
using TestSupport::Stage;

// Holds a path open, so that the kernel does not report its removal.
Descriptor KeepOpen(const std::string& path) {
    Descriptor kept(open(path.c_str(), O_PATH | O_NOFOLLOW | O_CLOEXEC));
    EXPECT_TRUE(kept.IsOpen()) << path;
    return kept;
}

TEST(MonitorHeldPaths, ADirectoryThatIsRecreatedIsWatchedAgain) {
    for (const bool isDirectoryWatched : {false, true}) {
        Stage stage;
        stage.Write("one/two/shell");
        ASSERT_TRUE(!isDirectoryWatched || stage.Watch("one/two"));
        ASSERT_TRUE(stage.Watch("one/two/shell"));
        const Descriptor one = KeepOpen(stage.Path("one"));
        const Descriptor two = KeepOpen(stage.Path("one/two"));
        std::filesystem::remove(stage.Path("one/two/shell"));
        EXPECT_THAT(stage.Reported(), ElementsAre("3 one/two/shell"));
        stage.Remove("one");
        EXPECT_EQ(stage.Reported(),
                  isDirectoryWatched ? std::vector<std::string>{"3 one/two"} : std::vector<std::string>());
        stage.MakeDirectory("one/two");
        EXPECT_THAT(stage.Reported(), IsEmpty());
        stage.Write("one/two/shell");
        EXPECT_THAT(stage.Reported(), ElementsAre("2 one/two/shell"));
        chmod(stage.Path("one/two/shell").c_str(), 0700);
        EXPECT_THAT(stage.Reported(), ElementsAre("1 one/two/shell attribute oaccess=33188 access=33216"));
    }
}

TEST(MonitorHeldPaths, ADirectoryThatIsReplacedByAMoveIsFollowed) {
    Stage stage;
    stage.MakeDirectory("one");
    ASSERT_TRUE(stage.Watch("one"));
    ASSERT_TRUE(stage.Watch("one/shell"));
    const Descriptor one = KeepOpen(stage.Path("one"));
    stage.Write("new/shell");
    stage.Reported();
    stage.Move("new", "one");
    EXPECT_THAT(stage.Reported(), testing::UnorderedElementsAre("6 one", "2 one/shell"));
    chmod(stage.Path("one/shell").c_str(), 0700);
    EXPECT_THAT(stage.Reported(), ElementsAre("1 one/shell attribute oaccess=33188 access=33216"));
}

TEST(MonitorPaths, TheRemovalOfALinkIsReportedOnce) {
    Stage stage;
    stage.Write("real/shell");
    stage.Link("real", "bin");
    stage.Link("real/shell", "sh");
    ASSERT_TRUE(stage.Watch("bin"));
    ASSERT_TRUE(stage.Watch("bin/shell"));
    ASSERT_TRUE(stage.Watch("sh"));
    stage.Remove("sh");
    EXPECT_THAT(stage.Reported(), ElementsAre("3 sh"));
    stage.Remove("bin");
    EXPECT_THAT(stage.Reported(), testing::UnorderedElementsAre("3 bin", "3 bin/shell"));
}

TEST(MonitorHeldPaths, ALinkOnThePathThatLeadsElsewhereIsReported) {
    for (const bool hasOtherName : {false, true}) {
        Stage stage;
        stage.Write("good/shell");
        stage.Write("evil/shell");
        stage.Link("good", "bin");
        ASSERT_TRUE(stage.Watch("bin/shell"));
        const Descriptor link = KeepOpen(stage.Path("bin"));
        if (hasOtherName) {
            ASSERT_EQ(::link(stage.Path("bin").c_str(), stage.Path("other").c_str()), 0);
        }
        stage.Link("evil", "new");
        stage.Move("new", "bin");
        EXPECT_THAT(stage.Reported(), ElementsAre("6 bin/shell"));
        stage.Write("evil/shell", "other");
        EXPECT_THAT(stage.Reported(), ElementsAre("2 bin/shell"));
    }
}

// Limits this process to that many further descriptors. The undefined-behaviour sanitizer opens a pipe when it first
// meets a type with virtual functions, and ends the program if it cannot. So use matchers only afterwards, and the log
// before.
class FewDescriptors {
public:
    explicit FewDescriptors(rlim_t count) {
        LogInfo("leaving %lu descriptors", static_cast<unsigned long>(count));
        getrlimit(RLIMIT_NOFILE, &before_);
        const Descriptor lowest(open("/", O_PATH | O_CLOEXEC));
        const rlimit few{static_cast<rlim_t>(lowest.Get()) + count, before_.rlim_max};
        EXPECT_EQ(setrlimit(RLIMIT_NOFILE, &few), 0);
    }
    ~FewDescriptors() { setrlimit(RLIMIT_NOFILE, &before_); }
    FewDescriptors(const FewDescriptors&) = delete;
    FewDescriptors& operator=(const FewDescriptors&) = delete;

private:
    rlimit before_{};
};

TEST(MonitorShortage, APathThatCannotBeLookedUpIsNotReportedAsMissing) {
    for (const rlim_t count : {0, 1, 2, 3, 4}) {
        Stage stage;
        stage.Write("one/shell");
        ASSERT_TRUE(stage.Watch("one"));
        ASSERT_TRUE(stage.Watch("one/shell"));
        std::vector<std::string> reported;
        {
            TestSupport::Cork cork;
            const FewDescriptors few(count);
            stage.Move("one", "two");
            stage.Move("two", "one");
            cork.Pull();
            reported = stage.Reported();
        }
        // The event of the directory's own name needs no look-up.
        EXPECT_THAT(reported, ElementsAre("6 one")) << count;
        chmod(stage.Path("one/shell").c_str(), 0700);
        EXPECT_THAT(stage.Reported(), ElementsAre("1 one/shell attribute oaccess=33188 access=33216")) << count;
    }
}

TEST(MonitorShortage, ReportsLaterAfterAFailedLookUp) {
    Stage stage;
    stage.Write("one/shell");
    ASSERT_TRUE(stage.Watch("one/shell"));
    std::vector<std::string> reported;
    {
        const FewDescriptors few(2);
        stage.Move("one", "two");
        reported = stage.Reported();
    }
    EXPECT_THAT(reported, IsEmpty());
    MovedClock::Advance(std::chrono::seconds(1));
    EXPECT_THAT(stage.Reported(), ElementsAre("3 one/shell"));
}

TEST(MonitorShortage, DoesNotRepeatAReportOfTheName) {
    Stage stage;
    stage.Write("one/shell");
    stage.Write("one/other");
    ASSERT_TRUE(stage.Watch("one/shell"));
    std::vector<std::string> reported;
    {
        const FewDescriptors few(2);
        stage.Move("one/other", "one/shell");
        reported = stage.Reported();
    }
    EXPECT_THAT(reported, ElementsAre("4 one/other -> one/shell"));
    // The new file is watched after the retry.
    MovedClock::Advance(std::chrono::seconds(1));
    EXPECT_THAT(stage.Reported(), IsEmpty());
    chmod(stage.Path("one/shell").c_str(), 0700);
    EXPECT_THAT(stage.Reported(), ElementsAre("1 one/shell attribute oaccess=33188 access=33216"));
}

TEST(MonitorShortage, RejectsAPathOfTooManyNames) {
    Stage stage;
    std::string path = "x";
    for (size_t names = 1; names < Host::mostSteps; ++names) {
        path = "a/" + path;
    }
    EXPECT_FALSE(stage.Watch(path));
    EXPECT_TRUE(stage.Watch(path.substr(100)));
}

TEST(MonitorShortage, ListsEntriesWithOneDescriptor) {
    const TemporaryDirectory dir;
    dir.Write("one", "x");
    std::map<std::string, Host::FileState> entries;
    {
        const FewDescriptors few(1);
        EXPECT_EQ(Host::ListDirectory(dir.Path(), 4, entries), 0);
    }
    EXPECT_EQ(entries.size(), 1U);
    const FewDescriptors none(0);
    EXPECT_TRUE(Host::IsShortage(Host::ListDirectory(dir.Path(), 4, entries)));
}

}  // namespace
