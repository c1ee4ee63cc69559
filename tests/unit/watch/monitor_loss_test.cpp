#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <functional>
#include <string>
#include <vector>

#include "host/watch/known_files.h"
#include "tests/unit/watch/monitor_support.h"

namespace {

using testing::Contains;
using testing::HasSubstr;
using TestSupport::Cork;
using TestSupport::Fence;
using TestSupport::Listener;

// More events than the kernel queues for one reader.
void Flood(const std::string& one, const std::string& other) {
    int limit = 0;
    std::ifstream("/proc/sys/fs/inotify/max_queued_events") >> limit;
    ASSERT_GT(limit, 0);
    for (int i = 0; i < limit / 4 + 100; ++i) {
        std::filesystem::rename(one, other);
        std::filesystem::rename(other, one);
    }
}

// Changes made while events are lost, and their reports.
const struct {
    const char* name;
    int operation;
    const char* detail;
} lostChanges[] = {{"written", 2, ""},
                   {"same-size", 2, ""},
                   {"chmoded", 1, " attribute oaccess=33188 access=33216"},
                   {"linked", 1, " attribute olink=1 link=2"},
                   {"deleted", 3, ""},
                   {"replaced", 6, ""},
                   {"made", 2, ""}};

void MakeFiles(const TemporaryDirectory& dir) {
    for (const auto& change : lostChanges) {
        std::filesystem::remove(dir.Path(change.name));
        if (std::string(change.name) != "made") {
            dir.Write(change.name, "content");
        }
    }
    dir.Write("new", "content");
    std::filesystem::remove(dir.Path("other"));
    dir.Write("untouched", "content");
}

void ChangeFiles(const TemporaryDirectory& dir) {
    dir.Write("written", "longer content");
    const auto time = std::filesystem::last_write_time(dir.Path("same-size"));
    dir.Write("same-size", "CONTENT");
    std::filesystem::last_write_time(dir.Path("same-size"), time);
    chmod(dir.Path("chmoded").c_str(), 0700);
    std::filesystem::create_hard_link(dir.Path("linked"), dir.Path("other"));
    std::filesystem::remove(dir.Path("deleted"));
    std::filesystem::rename(dir.Path("new"), dir.Path("replaced"));
    dir.Write("made", "content");
}

TEST(MonitorLoss, ReportsChangesMadeDuringALoss) {
    const TemporaryDirectory dir;
    const TemporaryDirectory noise;
    const std::string noisy = noise.Write("one", "");
    for (const bool isFileWatched : {true, false}) {
        MakeFiles(dir);
        Listener listener;
        Listener ofNoise;
        ASSERT_TRUE(ofNoise.Watch(noise.Path()));
        for (const auto& change : lostChanges) {
            ASSERT_TRUE(!isFileWatched || listener.Watch(dir.Path(change.name)));
        }
        ASSERT_TRUE(isFileWatched || listener.Watch(dir.Path()));
        testing::internal::CaptureStderr();
        {
            Cork cork;
            Flood(noisy, noise.Path("two"));
            ChangeFiles(dir);
            cork.Pull();
            EXPECT_TRUE(listener.AwaitCount(std::size(lostChanges)));
        }
        EXPECT_THAT(testing::internal::GetCapturedStderr(), HasSubstr("the kernel dropped file events"));
        const std::vector<std::string> reported = listener.Take();
        for (const auto& change : lostChanges) {
            const std::string line = std::to_string(change.operation) + " " + dir.Path(change.name) + change.detail;
            EXPECT_THAT(reported, Contains(line).Times(1));
        }
        EXPECT_THAT(reported, Not(Contains(HasSubstr("untouched"))));
    }
}

// Reports that begin with that operation.
size_t CountOf(char operation, const std::vector<std::string>& reported) {
    return static_cast<size_t>(
        std::ranges::count(reported, operation, [](const std::string& report) { return report.front(); }));
}

// A watched directory with more entries than the monitor knows.
class MonitorLossOfALargeDirectory : public testing::Test {
protected:
    static constexpr size_t known = Host::KnownFiles::mostEntries;
    static constexpr size_t unknown = 200;

    void SetUp() override {
        for (size_t i = 0; i < known + unknown; ++i) {
            dir_.Write(Name(i), "x");
        }
        ASSERT_TRUE(ofNoise_.Watch(noise_.Path()));
        ASSERT_TRUE(listener_.Watch(dir_.Path()));
    }

    static std::string Name(size_t number) { return "f" + std::to_string(number); }

    // The reports of changes whose events are lost, at least that many.
    std::vector<std::string> ReportsAfterLosing(const std::function<void()>& makeChanges, size_t count) {
        Fence fence;
        {
            Cork cork;
            Flood(noisy_, noise_.Path("two"));
            makeChanges();
            cork.Pull();
            EXPECT_TRUE(listener_.AwaitCount(count));
        }
        EXPECT_TRUE(fence.Pass());
        return listener_.Take();
    }

    const TemporaryDirectory dir_;
    const TemporaryDirectory noise_;
    const std::string noisy_ = noise_.Write("one", "");
    Listener listener_;
    Listener ofNoise_;
};

TEST_F(MonitorLossOfALargeDirectory, ComparesItsKnownEntries) {
    // Which names are known depends on the order of the listing.
    constexpr size_t removed = 50;
    // New entries come first in some listings, and fill them.
    constexpr size_t added = 1000;
    const std::vector<std::string> reported = ReportsAfterLosing(
        [&] {
            for (size_t i = 0; i < added; ++i) {
                dir_.Write("new" + std::to_string(i), "x");
            }
            for (size_t i = 0; i < known + unknown; ++i) {
                if (i < removed) {
                    std::filesystem::remove(dir_.Path(Name(i)));
                } else {
                    chmod(dir_.Path(Name(i)).c_str(), 0700);
                }
            }
        },
        known);
    EXPECT_EQ(reported.size(), known);
    EXPECT_LE(CountOf('3', reported), removed);
    EXPECT_EQ(CountOf('1', reported), known - CountOf('3', reported));
}

TEST_F(MonitorLossOfALargeDirectory, DoesNotReportUnknownEntriesAsNew) {
    constexpr size_t removed = 400;
    const std::vector<std::string> reported = ReportsAfterLosing(
        [&] {
            for (size_t i = 0; i < removed; ++i) {
                std::filesystem::remove(dir_.Path(Name(i)));
            }
        },
        removed - unknown);
    EXPECT_EQ(CountOf('3', reported), reported.size());
}

TEST(MonitorLoss, TheMonitorContinues) {
    TemporaryDirectory dir;
    TemporaryDirectory noise;
    const std::string noisy = noise.Write("one", "");
    const std::string file = dir.Write("file", "content");
    Listener listener;
    Listener ofNoise;
    ASSERT_TRUE(listener.Watch(file));
    ASSERT_TRUE(ofNoise.Watch(noise.Path()));
    {
        Cork cork;
        Flood(noisy, noise.Path("two"));
        dir.Write("new", "content");
        std::filesystem::rename(dir.Path("new"), file);
        cork.Pull();
        ASSERT_TRUE(listener.AwaitCount(1));
    }
    EXPECT_THAT(listener.Take(), testing::ElementsAre("6 " + file));
    dir.Write("file", "other");
    ASSERT_TRUE(listener.AwaitCount(1));
    EXPECT_THAT(listener.Take(), testing::ElementsAre("2 " + file));
}

}  // namespace
