// Paths into file systems that are mounted and unmounted.
#include <sched.h>
#include <sys/mount.h>
#include <sys/stat.h>

#include <functional>
#include <memory>
#include <thread>

#include "tests/unit/watch/monitor_stage.h"

namespace {

using testing::ElementsAre;
using TestSupport::Stage;

// Runs the test on its own thread in its own mount namespace, which the monitor's thread inherits.
void InMountNamespace(const std::function<void()>& test) {
    std::thread([&] {
        ASSERT_EQ(unshare(CLONE_NEWNS), 0);
        ASSERT_EQ(mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr), 0);
        test();
    }).join();
}

class Mounted {
public:
    Mounted(const std::string& source, const std::string& path, const char* type, unsigned long flags,
            const std::string& options)
        : path_(path) {
        EXPECT_EQ(mount(source.c_str(), path.c_str(), type, flags, options.c_str()), 0) << path;
    }
    ~Mounted() { umount2(path_.c_str(), MNT_DETACH); }
    Mounted(const Mounted&) = delete;
    Mounted& operator=(const Mounted&) = delete;

private:
    std::string path_;
};

TEST(MonitorMounts, AFileOfALowerLayerIsWatchedThroughItsCopyUp) {
    if (geteuid() != 0) {
        GTEST_SKIP() << "file systems are mounted: root";
    }
    InMountNamespace([] {
        Stage stage;
        stage.MakeDirectory("m");
        const Mounted layers("tmpfs", stage.Path("m"), "tmpfs", 0, "");
        stage.Write("m/lower/written");
        stage.Write("m/lower/chmoded");
        stage.Write("m/lower/removed");
        for (const char* name : {"m/upper", "m/work", "m/all"}) {
            stage.MakeDirectory(name);
        }
        const Mounted overlay("overlay", stage.Path("m/all"), "overlay", 0,
                              "lowerdir=" + stage.Path("m/lower") + ",upperdir=" + stage.Path("m/upper") +
                                  ",workdir=" + stage.Path("m/work"));
        for (const char* name : {"m/all", "m/all/written", "m/all/chmoded", "m/all/removed"}) {
            ASSERT_TRUE(stage.Watch(name));
        }
        stage.Write("m/all/written", "other");
        EXPECT_THAT(stage.Reported(), ElementsAre("2 m/all/written"));
        chmod(stage.Path("m/all/chmoded").c_str(), 0700);
        EXPECT_THAT(stage.Reported(), ElementsAre("1 m/all/chmoded attribute oaccess=33188 access=33216"));
        stage.Remove("m/all/removed");
        EXPECT_THAT(stage.Reported(), ElementsAre("3 m/all/removed"));
        stage.Write("m/all/written", "third");
        EXPECT_THAT(stage.Reported(), ElementsAre("2 m/all/written"));
    });
}

TEST(MonitorMounts, AFileSystemThatGoesAndComesBackIsWatchedAgain) {
    if (geteuid() != 0) {
        GTEST_SKIP() << "file systems are mounted: root";
    }
    InMountNamespace([] {
        Stage stage;
        stage.Write("real/shell");
        stage.MakeDirectory("m");
        auto mounted = std::make_unique<Mounted>(stage.Path("real"), stage.Path("m"), nullptr, MS_BIND, "");
        ASSERT_TRUE(stage.Watch("m/shell"));
        mounted.reset();
        EXPECT_THAT(stage.Reported(), ElementsAre("3 m/shell"));
        mounted = std::make_unique<Mounted>(stage.Path("real"), stage.Path("m"), nullptr, MS_BIND, "");
        EXPECT_THAT(stage.Reported(), ElementsAre("6 m/shell"));
        stage.Write("real/shell", "other");
        EXPECT_THAT(stage.Reported(), ElementsAre("2 m/shell"));
    });
}

TEST(MonitorMounts, AFileMountedOverAnotherIsReported) {
    if (geteuid() != 0) {
        GTEST_SKIP() << "file systems are mounted: root";
    }
    InMountNamespace([] {
        Stage stage;
        stage.Write("shell");
        stage.Write("evil");
        ASSERT_TRUE(stage.Watch("shell"));
        const Mounted mounted(stage.Path("evil"), stage.Path("shell"), nullptr, MS_BIND, "");
        EXPECT_THAT(stage.Reported(), ElementsAre("6 shell"));
    });
}

}  // namespace
