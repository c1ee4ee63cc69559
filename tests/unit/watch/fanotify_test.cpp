#include <sys/stat.h>

#include <filesystem>

#include "tests/unit/watch/fanotify_fixture.h"

namespace {

using namespace TestSupport;
using testing::Contains;
using testing::ElementsAre;

using Fanotify = FanotifyFixture;

ino_t InodeOf(const std::string& path) {
    struct stat attributes {};
    EXPECT_EQ(stat(path.c_str(), &attributes), 0) << path;
    return attributes.st_ino;
}

TEST_F(Fanotify, ReportsReadOnlyClosesOfMarkedFiles) {
    const std::string file = dir_.Write("file", "x");
    const std::string other = dir_.Write("other", "x");
    Init();
    ASSERT_EQ(Mark(file), 0);
    Start();
    ReadElsewhere(other);
    ReadElsewhere(file);
    ASSERT_TRUE(AwaitSeen(1));
    EXPECT_THAT(SeenPaths(), ElementsAre(file));
    EXPECT_EQ(seen.masks, static_cast<unsigned int>(FAN_CLOSE_NOWRITE));
}

TEST_F(Fanotify, IgnoresClosesByThisProcess) {
    const std::string file = dir_.Write("file", "x");
    seen.lookAt = file;
    Init();
    ASSERT_EQ(Mark(file), 0);
    Start();
    for (size_t i = 1; i <= 3; ++i) {
        FileText(file);
        ReadElsewhere(file);
        ASSERT_TRUE(AwaitSeen(i));
    }
    // A report of one of those closes would have come before this one.
    ReadElsewhere(file);
    ASSERT_TRUE(AwaitSeen(4));
    EXPECT_EQ(SeenPaths().size(), 4U);
}

TEST_F(Fanotify, ReportsAFileUnderTheFirstMarkedPath) {
    const std::string file = dir_.Write("real/file", "x");
    std::filesystem::create_symlink("real", dir_.Path("link"));
    std::filesystem::create_hard_link(file, dir_.Path("hard"));
    Init();
    ASSERT_EQ(Mark(dir_.Path("link/file")), 0);
    ASSERT_EQ(Mark(file), 0);
    ASSERT_EQ(Mark(dir_.Path("hard")), 0);
    Start();
    size_t count = 0;
    for (const std::string& path : {file, dir_.Path("link/file"), dir_.Path("hard")}) {
        ReadElsewhere(path);
        ASSERT_TRUE(AwaitSeen(++count));
        EXPECT_EQ(SeenPaths().back(), dir_.Path("link/file"));
    }
    EXPECT_EQ(SeenPaths().size(), count);
}

TEST_F(Fanotify, ReportsHostileNamesUnchanged) {
    const std::vector<std::string> names = {"\xff\xfe", "a\nb", std::string(255, 'n'), "%s%n", " "};
    Init();
    for (const std::string& name : names) {
        ASSERT_EQ(Mark(dir_.Write(name, "x")), 0);
    }
    Start();
    for (size_t i = 0; i < names.size(); ++i) {
        ReadElsewhere(dir_.Path(names[i]));
        ASSERT_TRUE(AwaitSeen(i + 1));
        EXPECT_EQ(SeenPaths().back(), dir_.Path(names[i]));
    }
}

TEST_F(Fanotify, ReportsAndMarksAFileThatReplacesAMarkedOne) {
    const std::string file = dir_.Write("file", "x");
    const std::string missing = dir_.Path("missing");
    Init();
    ASSERT_EQ(Mark(file), 0);
    EXPECT_EQ(Mark(missing), -1);
    Start();
    std::filesystem::rename(dir_.Write("new", "x"), file);
    // No other process has opened the file.
    ASSERT_TRUE(AwaitSeen(2));
    dir_.Write("missing", "x");
    ASSERT_TRUE(AwaitSeen(4));
    ReadElsewhere(missing);
    ReadElsewhere(file);
    ASSERT_TRUE(AwaitSeen(6));
    EXPECT_THAT(SeenPaths(), ElementsAre(file, missing, file, missing, missing, file));
}

TEST_F(Fanotify, DoesNotReportAFileThatStaysInItsPlace) {
    Init();
    ASSERT_EQ(Mark(dir_.Write("file", "x")), 0);
    EXPECT_EQ(Mark(dir_.Path("missing")), -1);
    Start();
    const auto end = Host::Clock::Now() + std::chrono::seconds(3);
    ASSERT_TRUE(AwaitInMovedTime([&] { return Host::Clock::Now() >= end; }));
    EXPECT_THAT(SeenPaths(), testing::IsEmpty());
}

TEST_F(Fanotify, ReportsAFileThatGotTheInodeNumberOfItsPredecessor) {
    const std::string file = dir_.Write("file", "x");
    const ino_t inode = InodeOf(file);
    Init();
    ASSERT_EQ(Mark(file), 0);
    Start();
    std::filesystem::remove(file);
    dir_.Write("file", "x");
    if (InodeOf(file) != inode) {
        GTEST_SKIP() << "this file system did not reuse the inode number";
    }
    EXPECT_TRUE(AwaitInMovedTime([] { return !SeenPaths().empty(); }));
}

TEST_F(Fanotify, AFileThatLeftItsPathIsNoLongerMarked) {
    const std::string file = dir_.Write("file", "x");
    const std::string kept = dir_.Write("kept", "x");
    const std::string left = dir_.Path("left");
    Init();
    ASSERT_EQ(Mark(file), 0);
    ASSERT_EQ(Mark(kept), 0);
    Start();
    std::filesystem::rename(file, left);
    ASSERT_TRUE(AwaitInMovedTime([&] { return testing::Value(SeenPaths(), Contains(kept)); }));
    const size_t before = SeenPaths().size();
    ReadElsewhere(left);
    ReadElsewhere(kept);
    ASSERT_TRUE(AwaitSeen(before + 1));
    EXPECT_EQ(SeenPaths().back(), kept);
    EXPECT_THAT(SeenPaths(), testing::Not(Contains(left)));
}

TEST_F(Fanotify, ReportsTheLastOfManyCloses) {
    const std::string file = dir_.Write("file", "x");
    const std::string last = dir_.Write("last", "x");
    Init();
    ASSERT_EQ(Mark(file), 0);
    ASSERT_EQ(Mark(last), 0);
    Start();
    for (int i = 0; i < 300; ++i) {
        ReadElsewhere(file);
    }
    ReadElsewhere(last);
    EXPECT_TRUE(Await([&] { return testing::Value(SeenPaths(), Contains(last)); }));
}

TEST_F(Fanotify, RejectsInvalidGroups) {
    EXPECT_EQ(InitFanotifyEvent(nullptr, Record), -1);
    FANOTIFY_EVENT unknown{-1, Record};
    int running = 1;
    FanotifyLoopArgs args{&unknown, &running, nullptr};
    EXPECT_EQ(FanotifyAddWatch(nullptr, "/", FAN_CLOSE_NOWRITE), -1);
    EXPECT_EQ(FanotifyAddWatch(&unknown, "/", FAN_CLOSE_NOWRITE), -1);
    EXPECT_EQ(FanotifyLoop(nullptr), nullptr);
    EXPECT_EQ(FanotifyLoop(&args), nullptr);
    Init();
    EXPECT_EQ(FanotifyAddWatch(&event_, nullptr, FAN_CLOSE_NOWRITE), -1);
    EXPECT_EQ(FanotifyAddWatch(&event_, "/", 0), -1);
    // Closed before the loop began.
    close(event_.fd);
    args.event = &event_;
    EXPECT_EQ(FanotifyLoop(&args), nullptr);
}

}  // namespace
