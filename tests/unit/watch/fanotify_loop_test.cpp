#include <sys/resource.h>

#include <chrono>
#include <filesystem>

#include "agent/threads.h"
#include "tests/unit/watch/fanotify_fixture.h"

namespace {

using namespace TestSupport;
using std::chrono::milliseconds;

using FanotifyLoopThread = FanotifyFixture;
using FanotifyLoopDeathTest = FanotifyFixture;

// The contract allows half a second. The loop waits that long for its owner's close.
TEST_F(FanotifyLoopThread, EndsWithinHalfASecond) {
    struct Case {
        const char* name;
        bool isFlagCleared;
        bool isClosed;
    };
    for (const Case& c : {Case{"flag", true, false}, Case{"descriptor", false, true}, Case{"both", true, true}}) {
        SCOPED_TRACE(c.name);
        Init();
        ASSERT_EQ(Mark(dir_.Write("file", "x")), 0);
        Start();
        ASSERT_TRUE(MovedClock::AwaitWaiting());
        const auto begin = Host::Clock::Now();
        if (c.isFlagCleared) {
            std::atomic_ref(running_).store(0);
        }
        if (c.isClosed) {
            close(descriptor_);
        }
        AwaitEnd();
        EXPECT_LT(Host::Clock::Now() - begin, milliseconds(500));
        // Without a close, the record keeps the descriptor that the owner has to close.
        EXPECT_EQ(event_.fd, c.isClosed ? -1 : descriptor_);
        close(event_.fd);
    }
}

// The clock does not move at all.
TEST_F(FanotifyLoopThread, EndsAtOnceIfItsThreadIsWaitedFor) {
    Init();
    ASSERT_EQ(Mark(dir_.Write("file", "x")), 0);
    std::atomic_ref(running_).store(1);
    const int owners = event_.fd;
    const unsigned long thread = CreateHipsThreadEx(FanotifyLoop, &args_, 256 * 1024, "fanotify-test");
    ASSERT_NE(thread, 0U);
    ASSERT_TRUE(MovedClock::AwaitWaiting());
    std::atomic_ref(running_).store(0);
    close(owners);
    EXPECT_EQ(StopHipsThreadEx(thread), 0);
    EXPECT_EQ(event_.fd, -1);
}

TEST_F(FanotifyLoopThread, LeavesAReusedDescriptorNumberAlone) {
    for (int i = 0; i < 10; ++i) {
        Init();
        ASSERT_EQ(Mark(dir_.Write("file", "x")), 0);
        Start();
        // Another group gets the number, which is the hardest case to notice.
        const bool isGroup = i % 2 == 0;
        std::atomic_ref(running_).store(isGroup ? 1 : 0);
        close(descriptor_);
        const int reused =
            isGroup ? fanotify_init(FAN_CLASS_NOTIF | FAN_CLOEXEC, O_RDONLY) : open("/dev/null", O_RDONLY | O_CLOEXEC);
        ASSERT_EQ(reused, descriptor_);
        AwaitEnd();
        EXPECT_EQ(event_.fd, -1);
        close(event_.fd);
        EXPECT_GE(fcntl(reused, F_GETFD), 0) << "closed by somebody else";
        close(reused);
    }
}

TEST_F(FanotifyLoopThread, LeavesNothingOpen) {
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

int OpenDescriptors() {
    int count = 0;
    for (int fd = 0; fd < 256; ++fd) {
        count += fcntl(fd, F_GETFD) >= 0 ? 1 : 0;
    }
    return count;
}

// Exits with 0 if nothing is left of a group after its thread was refused and its owner has closed it.
[[noreturn]] void LoseTheThread(const std::string& path) {
    const int before = OpenDescriptors();
    FANOTIFY_EVENT event{-1, nullptr};
    int running = 1;
    FanotifyLoopArgs args{&event, &running, nullptr};
    if (InitFanotifyEvent(&event, Record) != 0 || FanotifyAddWatch(&event, path.c_str(), FAN_CLOSE_NOWRITE) != 0) {
        _exit(2);
    }
    const rlimit none{0, 0};
    constexpr uid_t nobody = 65534;
    if (setrlimit(RLIMIT_NPROC, &none) != 0 || setresuid(nobody, nobody, nobody) != 0) {
        _exit(3);
    }
    if (CreateHipsThreadEx(FanotifyLoop, &args, 256 * 1024, "fanotify-test") != 0) {
        _exit(4);
    }
    close(event.fd);
    _exit(OpenDescriptors() == before ? 0 : 1);
}

TEST_F(FanotifyLoopDeathTest, NothingIsLeftOfAGroupWithoutAThread) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    EXPECT_EXIT(LoseTheThread(dir_.Write("file", "x")), testing::ExitedWithCode(0),
                "cannot start thread fanotify-test");
}

TEST_F(FanotifyLoopThread, SleepsWhileNothingIsRead) {
    Init();
    ASSERT_EQ(Mark(dir_.Write("file", "x")), 0);
    Start();
    for (int i = 0; i < 3; ++i) {
        ASSERT_TRUE(MovedClock::AwaitWaiting());
        // The interval at which it checks the flag.
        ASSERT_EQ(MovedClock::NearestDeadline() - Host::Clock::Now(), milliseconds(100));
        MovedClock::Advance(milliseconds(100));
    }
}

}  // namespace
