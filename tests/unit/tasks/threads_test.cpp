#include "agent/threads.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <pthread.h>
#include <sys/resource.h>
#include <unistd.h>

#include <array>
#include <atomic>
#include <limits>
#include <set>
#include <stdexcept>
#include <thread>
#include <vector>

#include "tests/support/await_condition.h"
#include "tests/support/emulation.h"

namespace {

using TestSupport::Await;
using TestSupport::ThreadsNamed;

constexpr unsigned int ordinaryStack = 256 * 1024;

struct Observed {
    std::string name;
    size_t stackSize = 0;
};

void* Observe(void* argument) {
    auto& observed = *static_cast<Observed*>(argument);
    std::array<char, 16> name{};
    pthread_getname_np(pthread_self(), name.data(), name.size());
    observed.name = name.data();
    pthread_attr_t attributes;
    pthread_getattr_np(pthread_self(), &attributes);
    pthread_attr_getstacksize(&attributes, &observed.stackSize);
    pthread_attr_destroy(&attributes);
    return nullptr;
}

void* Raise(void* argument) {
    ++*static_cast<std::atomic<int>*>(argument);
    return nullptr;
}

TEST(Threads, RunWithTheirNameAndStack) {
    struct Row {
        const char* name;
        unsigned int stackBytes;
        const char* seenName;
    };
    const Row rows[] = {
        {"worker", ordinaryStack, "worker"},
        {"", ordinaryStack, ""},
        {"0123456789abcdefgh", 1 << 20, "0123456789abcde"},
        {"unaligned", ordinaryStack + 1, "unaligned"},
        {"no-stack", 0, "no-stack"},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        Observed observed;
        const unsigned long handle = CreateHipsThreadEx(Observe, &observed, row.stackBytes, row.name);
        ASSERT_NE(handle, 0UL);
        EXPECT_EQ(StopHipsThreadEx(handle), 0);
        if (*row.name != '\0') {
            EXPECT_EQ(observed.name, row.seenName);
        }
        EXPECT_GE(observed.stackSize, row.stackBytes);
    }
}

TEST(Threads, StopWaitsForTheEndAndReleasesTheHandle) {
    std::atomic<int> runs = 0;
    const unsigned long handle = CreateHipsThreadEx(Raise, &runs, ordinaryStack, "stopped");
    ASSERT_NE(handle, 0UL);
    EXPECT_EQ(StopHipsThreadEx(handle), 0);
    EXPECT_EQ(runs, 1);
    EXPECT_NE(StopHipsThreadEx(handle), 0);
    EXPECT_TRUE(Await([] { return ThreadsNamed("stopped") == 0; }));
}

TEST(Threads, RejectsUnknownHandles) {
    for (const unsigned long handle : {0UL, std::numeric_limits<unsigned long>::max()}) {
        EXPECT_NE(StopHipsThreadEx(handle), 0);
    }
}

TEST(Threads, RejectsAMissingEntry) {
    EXPECT_EQ(CreateHipsThreadEx(nullptr, nullptr, ordinaryStack, "no-entry"), 0UL);
}

struct SelfStop {
    std::atomic<unsigned long> handle = 0;
    std::atomic<int> result = 0;
};

void* StopItself(void* argument) {
    auto& self = *static_cast<SelfStop*>(argument);
    if (Await([&] { return self.handle != 0; })) {
        self.result = StopHipsThreadEx(self.handle);
    }
    return nullptr;
}

TEST(Threads, AThreadCannotWaitForItselfAndKeepsItsHandle) {
    SelfStop self;
    self.handle = CreateHipsThreadEx(StopItself, &self, ordinaryStack, "self-stop");
    ASSERT_NE(self.handle, 0UL);
    EXPECT_TRUE(Await([&] { return self.result != 0; }));
    EXPECT_EQ(StopHipsThreadEx(self.handle), 0);
}

void* ThrowError(void*) {
    throw std::runtime_error("bang");
}

void* ThrowNumber(void*) {
    throw 7;
}

TEST(Threads, AnExceptionEndsOnlyItsThread) {
    struct Row {
        void* (*entry)(void*);
        const char* logged;
    };
    for (const Row& row : {Row{ThrowError, "bang"}, Row{ThrowNumber, "unknown exception"}}) {
        testing::internal::CaptureStderr();
        const unsigned long handle = CreateHipsThreadEx(row.entry, nullptr, ordinaryStack, "thread-bang");
        EXPECT_EQ(StopHipsThreadEx(handle), 0);
        const std::string log = testing::internal::GetCapturedStderr();
        EXPECT_THAT(log, testing::HasSubstr("thread-bang"));
        EXPECT_THAT(log, testing::HasSubstr(row.logged));
    }
}

TEST(Threads, ManyMayStartAndStopAtOnce) {
    std::atomic<int> runs = 0;
    std::atomic<int> failures = 0;
    std::vector<std::thread> callers;
    for (int i = 0; i < 4; ++i) {
        callers.emplace_back([&] {
            for (int round = 0; round < 50; ++round) {
                const unsigned long handle = CreateHipsThreadEx(Raise, &runs, ordinaryStack, "many");
                failures += handle == 0 || StopHipsThreadEx(handle) != 0 ? 1 : 0;
            }
        });
    }
    for (std::thread& caller : callers) {
        caller.join();
    }
    EXPECT_EQ(runs, 200);
    EXPECT_EQ(failures, 0);
}

TEST(Threads, OnlyOneOfTwoStopsOfAThreadSucceeds) {
    for (int i = 0; i < 50; ++i) {
        std::atomic<int> runs = 0;
        const unsigned long handle = CreateHipsThreadEx(Raise, &runs, ordinaryStack, "two-stops");
        int otherResult = 0;
        std::thread other([&] { otherResult = StopHipsThreadEx(handle); });
        const int result = StopHipsThreadEx(handle);
        other.join();
        EXPECT_NE(result == 0, otherResult == 0);
        EXPECT_EQ(runs, 1);
    }
}

// Exits with 0 if the thread was refused because the system grants none.
[[noreturn]] void StartWithoutThreads() {
    const rlimit none{0, 0};
    constexpr uid_t nobody = 65534;
    if (setrlimit(RLIMIT_NPROC, &none) != 0 || setresuid(nobody, nobody, nobody) != 0) {
        _exit(2);
    }
    std::atomic<int> runs = 0;
    _exit(CreateHipsThreadEx(Raise, &runs, ordinaryStack, "no-thread") == 0 && runs == 0 ? 0 : 1);
}

TEST(ThreadsDeathTest, ReturnsZeroWithoutAThread) {
    if (geteuid() != 0) {
        GTEST_SKIP() << "becoming a user without processes needs CAP_SETUID";
    }
    if (runsEmulated) {
        GTEST_SKIP() << startsNoProgram;
    }
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    EXPECT_EXIT(StartWithoutThreads(), testing::ExitedWithCode(0), "no-thread");
}

}  // namespace
