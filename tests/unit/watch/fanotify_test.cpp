#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/fanotify.h>
#include <sys/stat.h>
#include <time.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <filesystem>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "agent/monitor.h"
#include "tests/support/await_condition.h"
#include "tests/support/child_process.h"
#include "tests/support/emulation.h"
#include "tests/support/temporary_directory.h"

namespace {

using namespace TavUtils::Monitor;
using std::chrono::milliseconds;
using std::chrono::steady_clock;
using testing::Contains;
using testing::ElementsAre;
using testing::Not;
using TestSupport::Await;

// What the callback, which carries no context, leaves behind.
struct Seen {
    std::mutex mutex;
    std::vector<std::string> paths;
    unsigned int masks = 0;
    std::string lookAt;  // the callback opens and closes this
};
Seen seen;

void Record(long, const char* path, unsigned int mask) {
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

std::vector<std::string> SeenPaths() {
    const std::lock_guard lock(seen.mutex);
    return seen.paths;
}

bool AwaitSeen(size_t count) {
    return Await([&] { return SeenPaths().size() >= count; });
}

// Another process reads the file.
void ReadElsewhere(const std::string& path) {
    const pid_t pid = fork();
    if (pid == 0) {
        const int fd = open(path.c_str(), O_RDONLY);
        _exit(fd >= 0 && close(fd) == 0 ? 0 : 1);
    }
    int status = -1;
    waitpid(pid, &status, 0);
    EXPECT_EQ(status, 0) << path;
}

class Fanotify : public testing::Test {
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

    // As the owner of a group does it.
    void Stop() {
        std::atomic_ref(running_).store(0);
        close(descriptor_);
        thread_.join();
        close(event_.fd);
    }

    TemporaryDirectory dir_;
    FANOTIFY_EVENT event_{-1, nullptr};
    int running_ = 0;
    FanotifyLoopArgs args_{&event_, &running_, nullptr};
    int descriptor_ = -1;
    std::atomic<bool> isOver_ = false;
    std::thread thread_;
};

TEST_F(Fanotify, ReadOnlyClosesOfMarkedFilesAreTold) {
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

TEST_F(Fanotify, ClosesOfThisProcessAreNotTold) {
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
    // What a look had caused would have been told before this.
    ReadElsewhere(file);
    ASSERT_TRUE(AwaitSeen(4));
    EXPECT_EQ(SeenPaths().size(), 4U);
}

TEST_F(Fanotify, AFileIsToldUnderThePathThatWasMarked) {
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

TEST_F(Fanotify, HostileNamesAreToldAsTheyAre) {
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

TEST_F(Fanotify, AFileThatReplacesAMarkedOneIsMarked) {
    const std::string file = dir_.Write("file", "x");
    const std::string missing = dir_.Path("missing");
    Init();
    ASSERT_EQ(Mark(file), 0);
    EXPECT_EQ(Mark(missing), -1);
    Start();
    std::filesystem::rename(dir_.Write("new", "x"), file);
    dir_.Write("missing", "x");
    for (const std::string& path : {file, missing}) {
        EXPECT_TRUE(Await([&] {
            ReadElsewhere(path);
            return testing::Value(SeenPaths(), Contains(path));
        }));
    }
}

TEST_F(Fanotify, ManyClosesAreAllLookedAt) {
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

TEST_F(Fanotify, TheLoopEndsPromptly) {
    struct Case {
        const char* name;
        bool isFlagCleared;
        bool isClosed;
    };
    for (const Case& c : {Case{"flag", true, false}, Case{"descriptor", false, true}, Case{"both", true, true}}) {
        SCOPED_TRACE(c.name);
        // On a busy machine a thread may come late to its end, but not each time.
        constexpr milliseconds limit(700);
        steady_clock::duration took = limit;
        for (int attempt = 0; attempt < 10 && took >= limit; ++attempt) {
            Init();
            ASSERT_EQ(Mark(dir_.Write("file", "x")), 0);
            Start();
            const auto begin = steady_clock::now();
            if (c.isFlagCleared) {
                std::atomic_ref(running_).store(0);
            }
            if (c.isClosed) {
                close(descriptor_);
            }
            thread_.join();
            took = steady_clock::now() - begin;
            // The record says what the owner still has to close.
            EXPECT_EQ(event_.fd, c.isClosed ? -1 : descriptor_);
            close(event_.fd);
        }
        EXPECT_LT(took, limit);
    }
}

TEST_F(Fanotify, ANumberThatIsUsedAgainAtOnceIsLeftAlone) {
    for (int i = 0; i < 10; ++i) {
        Init();
        ASSERT_EQ(Mark(dir_.Write("file", "x")), 0);
        Start();
        // Another group gets the number: the hardest case to tell.
        const bool isGroup = i % 2 == 0;
        std::atomic_ref(running_).store(isGroup ? 1 : 0);
        close(descriptor_);
        const int reused =
            isGroup ? fanotify_init(FAN_CLASS_NOTIF | FAN_CLOEXEC, O_RDONLY) : open("/dev/null", O_RDONLY | O_CLOEXEC);
        ASSERT_EQ(reused, descriptor_);
        thread_.join();
        EXPECT_EQ(event_.fd, -1);
        close(event_.fd);
        EXPECT_GE(fcntl(reused, F_GETFD), 0) << "closed by somebody else";
        close(reused);
    }
}

TEST_F(Fanotify, NothingIsLeftOpen) {
    const auto count = [] {
        const std::filesystem::directory_iterator begin("/proc/self/fd");
        return std::distance(begin, std::filesystem::directory_iterator());
    };
    const auto before = count();
    for (int i = 0; i < 5; ++i) {
        Init();
        ASSERT_EQ(Mark(dir_.Write("file", "x")), 0);
        Start();
        ReadElsewhere(dir_.Path("file"));
        ASSERT_TRUE(AwaitSeen(static_cast<size_t>(i) + 1));
        Stop();
        EXPECT_EQ(count(), before);
    }
}

TEST_F(Fanotify, TheLoopSleepsWhileNothingIsRead) {
    Init();
    ASSERT_EQ(Mark(dir_.Write("file", "x")), 0);
    const auto cpu = [] {
        timespec time{};
        clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &time);
        return std::chrono::seconds(time.tv_sec) + std::chrono::nanoseconds(time.tv_nsec);
    };
    const auto before = cpu();
    Start();
    std::this_thread::sleep_for(milliseconds(500));
    EXPECT_LT(cpu() - before, milliseconds(100));
}

TEST_F(Fanotify, WhatIsNoGroupIsRefused) {
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
