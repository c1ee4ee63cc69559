#include "agent/process_utils.h"

#include <gtest/gtest.h>
#include <sys/prctl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <climits>
#include <cstring>
#include <filesystem>
#include <string>
#include <thread>

#include "tests/support/child_process.h"
#include "tests/support/emulation.h"
#include "tests/support/temporary_directory.h"

namespace {

using ProcessUtils::GetExePath;
using ProcessUtils::GetProcessCmdline;
using ProcessUtils::GetProcStatus;
using ProcessUtils::PROC_STATUS;
using ProcessUtils::ProcStatus;
using ServiceTests::ChildProcess;

std::string Real(const std::string& path) {
    return std::filesystem::canonical(path).string();
}

TEST(GetExePath, ReturnsTheProgram) {
    std::string path = "before";
    EXPECT_TRUE(GetExePath(getpid(), path));
    EXPECT_EQ(path, Real("/proc/self/exe"));
    const ChildProcess cat("/bin/cat", {"cat"});
    EXPECT_TRUE(GetExePath(cat.Pid(), path));
    EXPECT_EQ(path, Real("/bin/cat"));
}

TEST(GetExePath, ReturnsLongAndOddPathsAndMarksARemovedFile) {
    const TemporaryDirectory dir;
    std::string folder = dir.Path(std::string(250, 'x'));
    for (int i = 0; i < 6; ++i) {
        std::filesystem::create_directory(folder);
        folder += "/" + std::string(250, 'y');
    }
    std::filesystem::create_directory(folder);
    const std::string program = folder + "/odd \xff\n name";
    std::filesystem::copy_file("/bin/cat", program);
    const std::string real = Real(program);
    const ChildProcess cat(program, {"cat"});
    std::string path;
    EXPECT_TRUE(GetExePath(cat.Pid(), path));
    EXPECT_EQ(path, real);
    std::filesystem::remove(program);
    EXPECT_TRUE(GetExePath(cat.Pid(), path));
    EXPECT_EQ(path, real + " (deleted)");
}

TEST(GetProcessCmdline, SeparatesArgumentsByBlanks) {
    struct Case {
        std::vector<std::string> arguments;
        std::string cmdline;
    };
    const Case cases[] = {
        {{"cat"}, "cat"},
        {{"cat", "-"}, "cat -"},
        {{"cat", "-", "-"}, "cat - -"},
        {{"a b ", "-"}, "a b  -"},
        {{"\xff\xfe\n\x01", "-"}, "\xff\xfe\n\x01 -"},
        {{"", "-"}, " -"},
        {{"blank at the end "}, "blank at the end "},
        {{""}, ""},
    };
    for (const Case& c : cases) {
        const ChildProcess cat("/bin/cat", c.arguments);
        EXPECT_EQ(GetProcessCmdline(cat.Pid()), c.cmdline);
    }
}

TEST(GetProcessCmdline, DropsEmptyArgumentsAtTheEnd) {
    const ChildProcess shell("/bin/sh", {"sh", "-c", "read line", "name", "", "middle", "", ""});
    EXPECT_EQ(GetProcessCmdline(shell.Pid()), "sh -c read line name  middle");
}

TEST(GetProcessCmdline, ReadsLongLinesUpToTwoMebibytes) {
    if (runsEmulated) {
        GTEST_SKIP() << "the emulator keeps the limit of the stack, which bounds the arguments, as it is";
    }
    constexpr size_t limit = 2 * 1024 * 1024;
    for (const size_t pieces : {size_t{10}, size_t{30}}) {
        std::vector<std::string> arguments{"sh", "-c", "read line"};
        std::string expected = "sh -c read line";
        for (size_t i = 0; i < pieces; ++i) {
            arguments.push_back(std::string(100000, static_cast<char>('a' + i % 26)));
            expected += " " + arguments.back();
        }
        const ChildProcess shell("/bin/sh", arguments);
        const std::string cmdline = GetProcessCmdline(shell.Pid());
        EXPECT_EQ(cmdline.size(), std::min(expected.size(), limit));
        EXPECT_TRUE(cmdline == expected.substr(0, limit));
    }
}

TEST(GetProcStatus, ReadsTheMainFields) {
    ProcStatus status{};
    ASSERT_NE(GetProcStatus(getpid(), PROC_STATUS, status), 0);
    EXPECT_EQ(status.pid, getpid());
    EXPECT_EQ(status.tgid, getpid());
    EXPECT_EQ(status.ppid, getppid());
    uid_t uids[3];
    gid_t gids[3];
    ASSERT_EQ(getresuid(&uids[0], &uids[1], &uids[2]), 0);
    ASSERT_EQ(getresgid(&gids[0], &gids[1], &gids[2]), 0);
    for (size_t i = 0; i < 3; ++i) {
        EXPECT_EQ(status.uids[i], uids[i]);
        EXPECT_EQ(status.gids[i], gids[i]);
    }
    EXPECT_EQ(status.uids[3], uids[1]);
    EXPECT_EQ(status.gids[3], gids[1]);

    const ChildProcess cat("/bin/cat", {"other name"});
    ASSERT_NE(GetProcStatus(cat.Pid(), PROC_STATUS, status), 0);
    EXPECT_EQ(status.ppid, getpid());
    EXPECT_STREQ(status.name, "cat");
    EXPECT_EQ(status.tracerPid, 0);
}

TEST(GetProcStatus, DistinguishesAThreadFromItsProcess) {
    int thread = 0;
    ProcStatus status{};
    int result = 0;
    std::thread([&] {
        thread = gettid();
        result = GetProcStatus(thread, PROC_STATUS, status);
    }).join();
    EXPECT_NE(result, 0);
    EXPECT_EQ(status.pid, thread);
    EXPECT_EQ(status.tgid, getpid());
    EXPECT_NE(status.pid, status.tgid);
}

TEST(GetProcStatus, ANameCannotImitateOtherFields) {
    char kept[16];
    ASSERT_EQ(prctl(PR_GET_NAME, kept), 0);
    struct Case {
        const char* name;
        const char* expected;
    };
    // The kernel escapes newline and backslash in two bytes each.
    const Case cases[] = {
        {"a\nPPid:\t1\nx", "a\\nPPid:\t1\\nx"},
        {"\n\n\n\n\n\n\n", "\\n\\n\\n\\n\\n\\n\\n"},
        {"back\\slash", "back\\\\slash"},
        {"\t tab", "\t tab"},
        {"\xff\xfe\x01", "\xff\xfe\x01"},
        {"Uid:\t7 7 7 7", "Uid:\t7 7 7 7"},
        {"", ""},
    };
    for (const Case& c : cases) {
        ASSERT_EQ(prctl(PR_SET_NAME, c.name), 0);
        ProcStatus status{};
        std::memset(status.name, '#', sizeof(status.name));
        const int result = GetProcStatus(gettid(), PROC_STATUS, status);
        prctl(PR_SET_NAME, kept);
        EXPECT_NE(result, 0) << c.name;
        EXPECT_STREQ(status.name, c.expected);
        EXPECT_EQ(status.ppid, getppid()) << c.name;
        EXPECT_EQ(status.uids[0], getuid()) << c.name;
    }
}

TEST(GetProcStatus, WritesNothingAfterItsFields) {
    ProcStatus status{};
    std::memset(status.reserved, 7, sizeof(status.reserved));
    ASSERT_NE(GetProcStatus(getpid(), PROC_STATUS, status), 0);
    for (const uint8_t byte : status.reserved) {
        ASSERT_EQ(byte, 7);
    }
}

TEST(ProcessUtils, AZombieHasOnlyAStatus) {
    ChildProcess cat("/bin/cat", {"cat"});
    cat.End();
    std::string path = "before";
    EXPECT_FALSE(GetExePath(cat.Pid(), path));
    EXPECT_EQ(path, "");
    EXPECT_EQ(GetProcessCmdline(cat.Pid()), "");
    ProcStatus status{};
    EXPECT_NE(GetProcStatus(cat.Pid(), PROC_STATUS, status), 0);
    EXPECT_EQ(status.ppid, getpid());
}

TEST(ProcessUtils, FailsForAProcessThatHasEnded) {
    ChildProcess cat("/bin/cat", {"cat"});
    const int gone = cat.Pid();
    cat.End();
    cat.Collect();
    for (const int pid : {gone, 0, -1, INT_MIN, INT_MAX}) {
        std::string path = "before";
        EXPECT_FALSE(GetExePath(pid, path)) << pid;
        EXPECT_EQ(path, "") << pid;
        EXPECT_EQ(GetProcessCmdline(pid), "") << pid;
        ProcStatus status{};
        std::memset(&status, 7, sizeof(status));
        const ProcStatus before = status;
        EXPECT_EQ(GetProcStatus(pid, PROC_STATUS, status), 0) << pid;
        EXPECT_EQ(std::memcmp(&status, &before, sizeof(status)), 0) << pid;
    }
}

TEST(GetProcStatus, AcceptsOneSelector) {
    for (const unsigned int selector : {0U, 1U, 3U, 0xFFFFFFFFU}) {
        ProcStatus status{};
        EXPECT_EQ(GetProcStatus(getpid(), selector, status), 0) << selector;
        EXPECT_EQ(status.pid, 0) << selector;
    }
}

}  // namespace
