#include <fcntl.h>
#include <gtest/gtest.h>
#include <linux/fs.h>
#include <sys/ioctl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <climits>
#include <filesystem>
#include <memory>

#include "shellfile/shell_baseline.h"
#include "tests/fakes/fake_agent.h"
#include "tests/support/ext4_volume.h"
#include "tests/support/failing_calls.h"
#include "tests/support/temporary_directory.h"

namespace {

int LowestFreeDescriptor() {
    const int fd = open("/dev/null", O_RDONLY | O_CLOEXEC);
    close(fd);
    return fd;
}

// Adds flags to those that the file system sets by itself. Returns the sum.
int AddFlags(const std::string& path, int added) {
    const int fd = open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK);
    int flags = 0;
    EXPECT_EQ(ioctl(fd, FS_IOC_GETFLAGS, &flags), 0);
    flags |= added;
    EXPECT_EQ(ioctl(fd, FS_IOC_SETFLAGS, &flags), 0);
    close(fd);
    return flags;
}

class FileFlags : public testing::Test {
protected:
    void SetUp() override { Fake::ResetAgent(); }
    void TearDown() override {
        FailingCalls::AnswerFlags(std::nullopt);
        EXPECT_TRUE(Fake::TheAgent().log.empty());
    }

    TemporaryDirectory folder;
};

class FileFlagsOfAVolume : public FileFlags {
protected:
    void SetUp() override {
        FileFlags::SetUp();
        if (!MayMakeVolume()) {
            GTEST_SKIP() << "needs the right to mount (root) and loop devices";
        }
        volume = std::make_unique<Ext4Volume>();
    }

    std::unique_ptr<Ext4Volume> volume;
};

TEST_F(FileFlagsOfAVolume, AreThoseThatWereSet) {
    const int own = AddFlags(volume->Write("plain", "text"), 0);
    EXPECT_EQ(GetFileExt2Flags(volume->Path("plain")), own);
    for (const int flags :
         {FS_IMMUTABLE_FL, FS_APPEND_FL, FS_NODUMP_FL, FS_NOATIME_FL, FS_IMMUTABLE_FL | FS_APPEND_FL | FS_NODUMP_FL}) {
        const std::string path = volume->Write("file-" + std::to_string(flags), "text");
        AddFlags(path, flags);
        EXPECT_EQ(GetFileExt2Flags(path), own | flags);
    }
}

TEST_F(FileFlagsOfAVolume, AreThoseOfTheFileBehindALink) {
    const std::string file = volume->Write("file", "text");
    const int flags = AddFlags(file, FS_NODUMP_FL);
    std::filesystem::create_symlink(file, folder.Path("link"));
    EXPECT_EQ(GetFileExt2Flags(folder.Path("link")), flags);
}

TEST_F(FileFlagsOfAVolume, AreThereForADirectoryToo) {
    std::filesystem::create_directories(volume->Path("directory"));
    const int flags = AddFlags(volume->Path("directory"), FS_NODUMP_FL);
    EXPECT_EQ(GetFileExt2Flags(volume->Path("directory")), flags);
}

TEST_F(FileFlags, CannotBeReadOnAFileSystemWithoutThem) {
    const int descriptor = LowestFreeDescriptor();
    EXPECT_EQ(GetFileExt2Flags("/proc/version"), -1);
    EXPECT_EQ(GetFileExt2Flags("/dev/null"), -1);
    EXPECT_EQ(LowestFreeDescriptor(), descriptor);
}

TEST_F(FileFlags, CannotBeReadIfTheFileCannotBeOpened) {
    std::filesystem::create_symlink("gone", folder.Path("dangling"));
    FailingCalls::AnswerFlags(0);
    for (const std::string& path :
         {std::string(), folder.Path("gone"), folder.Path("dangling"), std::string("/proc/version/x")}) {
        EXPECT_EQ(GetFileExt2Flags(path), -1) << path;
    }
}

TEST_F(FileFlags, DoNotWaitForTheWriterOfAFifo) {
    ASSERT_EQ(mkfifo(folder.Path("fifo").c_str(), 0600), 0);
    EXPECT_EQ(GetFileExt2Flags(folder.Path("fifo")), -1);
}

TEST_F(FileFlags, AreAllThirtyTwoBits) {
    const std::string file = folder.Write("file", "text");
    const int descriptor = LowestFreeDescriptor();
    const struct {
        uint32_t kernel;
        int flags;
    } cases[] = {{0, 0},
                 {0x10, 0x10},
                 {0x7fffffff, INT_MAX},
                 {0x80000000, INT_MIN},
                 {0x80000010, INT_MIN + 0x10},
                 {0xa5a5a5a5, -1515870811},
                 {0xfffffffe, -2},
                 {0xffffffff, -1}};
    for (const auto& row : cases) {
        FailingCalls::AnswerFlags(row.kernel);
        EXPECT_EQ(GetFileExt2Flags(file), row.flags) << std::hex << row.kernel;
    }
    EXPECT_EQ(LowestFreeDescriptor(), descriptor);
}

}  // namespace
