// A fanotify group whose loop runs on a thread of the test, with a clock that the test moves.
#pragma once

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/fanotify.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "agent/monitor.h"
#include "tests/support/emulation.h"
#include "tests/support/temporary_directory.h"
#include "tests/unit/watch/moved_time.h"

namespace TestSupport {

using namespace TavUtils::Monitor;

// Filled by the callback, which has no context argument.
struct Seen {
    std::mutex mutex;
    std::vector<std::string> paths;
    unsigned int masks = 0;
    std::string lookAt;  // the callback opens and closes this
};
inline Seen seen;

inline void Record(long, const char* path, unsigned int mask) {
    std::string lookAt;
    {
        const std::lock_guard lock(seen.mutex);
        seen.paths.emplace_back(path);
        seen.masks |= mask;
        lookAt = seen.lookAt;
    }
    if (!lookAt.empty()) {
        close(open(lookAt.c_str(), O_RDONLY | O_CLOEXEC));
    }
}

inline std::vector<std::string> SeenPaths() {
    const std::lock_guard lock(seen.mutex);
    return seen.paths;
}

inline bool AwaitSeen(size_t count) {
    return Await([&] { return SeenPaths().size() >= count; });
}

// Another process reads the file.
inline void ReadElsewhere(const std::string& path) {
    const pid_t pid = fork();
    if (pid == 0) {
        const int fd = open(path.c_str(), O_RDONLY);
        _exit(fd >= 0 && close(fd) == 0 ? 0 : 1);
    }
    int status = -1;
    waitpid(pid, &status, 0);
    EXPECT_EQ(status, 0) << path;
}

class FanotifyFixture : public testing::Test {
protected:
    void SetUp() override {
        if (geteuid() != 0) {
            GTEST_SKIP() << "fanotify needs CAP_SYS_ADMIN";
        }
        if (runsEmulated) {
            GTEST_SKIP() << "the emulator knows no fanotify";
        }
        const std::lock_guard lock(seen.mutex);
        seen.paths.clear();
        seen.masks = 0;
        seen.lookAt.clear();
    }

    void TearDown() override {
        if (thread_.joinable()) {
            Stop();
        }
    }

    void Init() { ASSERT_EQ(InitFanotifyEvent(&event_, Record), 0); }

    int Mark(const std::string& path) { return FanotifyAddWatch(&event_, path.c_str(), FAN_CLOSE_NOWRITE); }

    void Start() {
        std::atomic_ref(running_).store(1);
        isOver_ = false;
        descriptor_ = event_.fd;
        thread_ = std::thread([this] {
            EXPECT_EQ(FanotifyLoop(&args_), nullptr);
            isOver_ = true;
        });
    }

    // Stops the loop as the owner of a group does.
    void Stop() {
        std::atomic_ref(running_).store(0);
        close(descriptor_);
        AwaitEnd();
        close(event_.fd);
    }

    void AwaitEnd() {
        EXPECT_TRUE(AwaitInMovedTime([this] { return isOver_.load(); }));
        thread_.join();
    }

    TemporaryDirectory dir_;
    FANOTIFY_EVENT event_{-1, nullptr};
    int running_ = 0;
    FanotifyLoopArgs args_{&event_, &running_, nullptr};
    int descriptor_ = -1;
    std::atomic<bool> isOver_ = false;
    std::thread thread_;
};

}  // namespace TestSupport
