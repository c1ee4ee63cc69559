#include <filesystem>

#include "tests/unit/watch/fanotify_fixture.h"

namespace {

using namespace TestSupport;
using testing::Contains;
using testing::ElementsAre;

using Fanotify = FanotifyFixture;

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

TEST_F(Fanotify, MarksAFileThatReplacesAMarkedOne) {
    const std::string file = dir_.Write("file", "x");
    const std::string missing = dir_.Path("missing");
    Init();
    ASSERT_EQ(Mark(file), 0);
    EXPECT_EQ(Mark(missing), -1);
    Start();
    std::filesystem::rename(dir_.Write("new", "x"), file);
    dir_.Write("missing", "x");
    for (const std::string& path : {file, missing}) {
        EXPECT_TRUE(AwaitInMovedTime([&] {
            ReadElsewhere(path);
            return testing::Value(SeenPaths(), Contains(path));
        }));
    }
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
