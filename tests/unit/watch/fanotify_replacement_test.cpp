#include <unistd.h>

#include <chrono>
#include <filesystem>

#include "tests/unit/watch/fanotify_fixture.h"

namespace {

using namespace TestSupport;
using std::chrono::milliseconds;
using testing::Contains;

// No other process reads a file here: only the replacement itself makes the loop report the path. The clock stands
// still where the test does not move it.
class FanotifyReplacement : public FanotifyFixture {
protected:
    bool AwaitReport(const std::string& path) {
        return Await([&] { return testing::Value(SeenPaths(), Contains(path)); });
    }

    void StartWith(const std::string& path) {
        Init();
        Mark(path);
        Start();
        ASSERT_TRUE(MovedClock::AwaitWaiting());
        EXPECT_TRUE(SeenPaths().empty());
    }
};

TEST_F(FanotifyReplacement, IsReportedAtOnceAfterARename) {
    const std::string file = dir_.Write("file", "x");
    StartWith(file);
    std::filesystem::rename(dir_.Write("new", "x"), file);
    EXPECT_TRUE(AwaitReport(file));
    EXPECT_EQ(seen.masks, static_cast<unsigned int>(FAN_CLOSE_NOWRITE));
    // The file monitor has nothing to wait for after three seconds, so only a loop that sleeps makes time pass.
    const auto end = Host::Clock::Now() + std::chrono::seconds(4);
    EXPECT_TRUE(AwaitInMovedTime([&] { return Host::Clock::Now() >= end; }));
}

TEST_F(FanotifyReplacement, IsReportedAtOnceIfAFileIsMadeAgain) {
    const std::string file = dir_.Write("file", "x");
    StartWith(file);
    // The new file often gets the same inode number.
    std::filesystem::remove(file);
    dir_.Write("file", "x");
    EXPECT_TRUE(AwaitReport(file));
}

TEST_F(FanotifyReplacement, IsReportedAtOnceIfAMissingFileIsMade) {
    StartWith(dir_.Path("directory/file"));
    dir_.Write("directory/file", "x");
    EXPECT_TRUE(AwaitReport(dir_.Path("directory/file")));
}

TEST_F(FanotifyReplacement, IsReportedAtOnceUnderTheMarkedLink) {
    dir_.Write("first/file", "x");
    const std::string target = dir_.Write("second/file", "x");
    std::filesystem::create_symlink("first", dir_.Path("link"));
    StartWith(dir_.Path("link/file"));
    std::filesystem::create_symlink("second", dir_.Path("other"));
    std::filesystem::rename(dir_.Path("other"), dir_.Path("link"));
    EXPECT_TRUE(AwaitReport(dir_.Path("link/file")));
    std::filesystem::rename(dir_.Write("new", "x"), target);
    EXPECT_TRUE(AwaitSeen(2));
}

TEST_F(FanotifyReplacement, IsReportedWithinASecondIfThePathCannotBeMonitored) {
    const std::filesystem::path before = std::filesystem::current_path();
    std::filesystem::current_path(dir_.Path());
    dir_.Write("file", "x");
    StartWith("file");
    std::filesystem::rename(dir_.Write("new", "x"), dir_.Path("file"));
    const auto begin = Host::Clock::Now();
    EXPECT_TRUE(AwaitInMovedTime([] { return testing::Value(SeenPaths(), Contains("file")); }));
    EXPECT_LE(Host::Clock::Now() - begin, milliseconds(1100));
    std::filesystem::current_path(before);
}

TEST_F(FanotifyReplacement, IsNotAWriteToTheSameFile) {
    const std::string file = dir_.Write("file", "x");
    StartWith(file);
    dir_.Write("file", "more");
    std::filesystem::permissions(file, std::filesystem::perms::owner_all);
    ReadElsewhere(file);
    ASSERT_TRUE(AwaitSeen(1));
    EXPECT_EQ(SeenPaths().size(), 1U);
}

}  // namespace
