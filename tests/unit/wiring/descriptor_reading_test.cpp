// Descriptors in a fake /proc: devices, names and numbers that this host need not have.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>

#include "tests/support/proc_tree.h"
#include "tests/support/temporary_directory.h"
#include "wiring/host_processes.h"

namespace Host {
namespace {

constexpr int readPid = 4000;

class DescriptorReading : public testing::Test {
protected:
    void SetUp() override {
        if (!MayMount()) {
            GTEST_SKIP() << "needs the right to mount";
        }
        proc_.emplace();
        proc_->Add({.pid = readPid, .ppid = 300, .exe = "/usr/bin/sh"});
    }

    // Makes a node and gives it to the process as the descriptor.
    void Hold(int number, mode_t type, unsigned int major, unsigned int minor) {
        const std::string path = nodes_.Path(std::to_string(number));
        ASSERT_EQ(mknod(path.c_str(), type | 0600, makedev(major, minor)), 0);
        proc_->AddDescriptor(readPid, number, path);
    }

    void HoldFile(const std::string& name) { proc_->AddDescriptorEntry(readPid, name, nodes_.Write("file", "")); }

    // The only descriptor of the process.
    static HeldDescriptor OnlyOne() {
        const std::optional<HostProcess> process = ReadHostProcess(readPid);
        return process && process->descriptors.size() == 1 ? process->descriptors[0] : HeldDescriptor{};
    }

    static std::vector<int> Numbers() {
        const HostProcess process = ReadHostProcess(readPid).value();
        std::vector<int> numbers;
        for (const HeldDescriptor& descriptor : process.descriptors) {
            numbers.push_back(descriptor.number);
        }
        return numbers;
    }

    TemporaryDirectory nodes_;
    std::optional<ProcTree> proc_;
};

TEST_F(DescriptorReading, KnowsADeviceByTypeAndNumbers) {
    const struct {
        mode_t type;
        unsigned int major, minor;
        DescriptorKind kind;
        std::optional<unsigned int> terminal;
    } rows[] = {
        {S_IFCHR, 1, 2, DescriptorKind::other, {}},
        {S_IFCHR, 3, 7, DescriptorKind::other, {}},
        {S_IFCHR, 4, 2, DescriptorKind::terminal, {}},
        {S_IFCHR, 5, 0, DescriptorKind::terminal, {}},
        {S_IFCHR, 5, 2, DescriptorKind::terminalMultiplexer, {}},
        {S_IFCHR, 5, 3, DescriptorKind::terminal, {}},
        {S_IFCHR, 6, 0, DescriptorKind::other, {}},
        {S_IFCHR, 135, 0, DescriptorKind::other, {}},
        {S_IFCHR, 136, 0, DescriptorKind::terminal, 0},
        {S_IFCHR, 137, 3, DescriptorKind::terminal, 259},
        {S_IFCHR, 143, 255, DescriptorKind::terminal, 2047},
        {S_IFCHR, 144, 0, DescriptorKind::other, {}},
        {S_IFBLK, 136, 0, DescriptorKind::other, {}},
        {S_IFREG, 0, 0, DescriptorKind::other, {}},
        {S_IFIFO, 0, 0, DescriptorKind::pipe, {}},
        {S_IFSOCK, 0, 0, DescriptorKind::socket, {}},
    };
    for (size_t i = 0; i < std::size(rows); ++i) {
        Hold(static_cast<int>(i), rows[i].type, rows[i].major, rows[i].minor);
    }
    const std::optional<HostProcess> process = ReadHostProcess(readPid);
    ASSERT_TRUE(process);
    ASSERT_EQ(process->descriptors.size(), std::size(rows));
    for (size_t i = 0; i < std::size(rows); ++i) {
        EXPECT_EQ(process->descriptors[i].kind, rows[i].kind) << rows[i].major << ":" << rows[i].minor;
        EXPECT_EQ(process->descriptors[i].terminal, rows[i].terminal) << rows[i].major << ":" << rows[i].minor;
    }
}

TEST_F(DescriptorReading, FindsTheNumberOfAMasterInFdinfo) {
    Hold(3, S_IFCHR, 5, 2);
    proc_->AddFile(readPid, "fdinfo/3", "pos:\t0\nflags:\t02\ntty-index:\t19\n");
    EXPECT_EQ(OnlyOne().terminal, 19U);
}

TEST_F(DescriptorReading, FindsNoNumberOfAnythingButAMasterInFdinfo) {
    Hold(3, S_IFIFO, 0, 0);
    proc_->AddFile(readPid, "fdinfo/3", "tty-index:\t19\n");
    EXPECT_EQ(OnlyOne().terminal, std::nullopt);
}

TEST_F(DescriptorReading, IdentifiesAnObjectByDeviceAndInode) {
    HoldFile("3");
    struct stat file {};
    ASSERT_EQ(stat(nodes_.Path("file").c_str(), &file), 0);
    EXPECT_EQ(OnlyOne().object, (ObjectId{file.st_dev, file.st_ino}));
    EXPECT_EQ(OnlyOne().link, nodes_.Path("file"));
}

TEST_F(DescriptorReading, OmitsEntriesThatAreNotNumbers) {
    for (const char* name : {"0", "3", "3x", "x", "99999999999"}) {
        HoldFile(name);
    }
    EXPECT_EQ(Numbers(), (std::vector<int>{0, 3}));
}

TEST_F(DescriptorReading, OmitsADescriptorWithoutAnObject) {
    HoldFile("3");
    proc_->AddDescriptor(readPid, 4, "pipe:[1]");
    EXPECT_EQ(Numbers(), (std::vector<int>{3}));
}

TEST_F(DescriptorReading, SortsByNumber) {
    for (const char* name : {"7", "1", "10", "4", "12", "0", "9", "2", "11", "3", "8", "5"}) {
        HoldFile(name);
    }
    EXPECT_EQ(Numbers(), (std::vector<int>{0, 1, 2, 3, 4, 5, 7, 8, 9, 10, 11, 12}));
}

TEST_F(DescriptorReading, FailsForAProcessWithoutReadableDescriptors) {
    proc_->Add({.pid = readPid + 1, .ppid = 1, .exe = "/usr/bin/sh", .hasDescriptors = false});
    EXPECT_FALSE(ReadHostProcess(readPid + 1));
}

TEST_F(DescriptorReading, FailsForAProcessWithoutAStatus) {
    proc_->Add({.pid = readPid + 1, .ppid = 1, .exe = "/usr/bin/sh", .hasStatus = false});
    EXPECT_FALSE(ReadHostProcess(readPid + 1));
}

TEST_F(DescriptorReading, ReadsEveryReadableProcessByItsPid) {
    proc_->Add({.pid = 300, .ppid = 1, .exe = "/usr/bin/relay", .cmdline = std::string("relay\0-v\0", 9)});
    proc_->Add({.pid = 301, .ppid = 1, .exe = "/usr/bin/relay", .hasDescriptors = false});
    proc_->AddFile("stat", "");
    const std::map<int, HostProcess> processes = ReadHostProcesses();
    ASSERT_EQ(processes.size(), 2U);
    EXPECT_EQ(processes.at(300).pid, 300);
    EXPECT_EQ(processes.at(300).ppid, 1);
    EXPECT_EQ(processes.at(300).name, "relay");
    EXPECT_EQ(processes.at(300).cmdline, "relay -v");
    EXPECT_EQ(processes.at(readPid).ppid, 300);
}

}  // namespace
}  // namespace Host
