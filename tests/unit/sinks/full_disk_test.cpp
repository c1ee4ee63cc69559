#include <gtest/gtest.h>
#include <sched.h>
#include <sys/mount.h>

#include <cerrno>
#include <cstring>
#include <filesystem>
#include <functional>
#include <string>
#include <thread>

#include "host/sinks/file_sink.h"
#include "tests/support/temporary_directory.h"

namespace {

constexpr size_t diskBytes = 65536;
constexpr size_t fillerBytes = diskBytes - 4096;
const std::string longLine(6000, 'a');  // longer than the page that the filler leaves free

// A disk of 64 KiB with one page free. Only the test's thread sees it, and it disappears with that thread.
class FullDisk : public testing::Test {
protected:
    void OnFullDisk(const std::function<void(const std::string& disk)>& body) {
        const TemporaryDirectory directory;
        std::string missingRight;
        testing::internal::CaptureStderr();
        std::thread([&] {
            if (::unshare(CLONE_NEWNS) != 0 || ::mount("none", "/", nullptr, MS_REC | MS_PRIVATE, nullptr) != 0 ||
                ::mount("tmpfs", directory.Path().c_str(), "tmpfs", 0, "size=64k") != 0) {
                missingRight = std::string("CAP_SYS_ADMIN (mount in a namespace): ") + std::strerror(errno);
                return;
            }
            WriteFile(directory.Path("filler"), std::string(fillerBytes, 'f'));
            body(directory.Path());
        }).join();
        log_ = testing::internal::GetCapturedStderr();
        if (!missingRight.empty()) {
            GTEST_SKIP() << "needs " << missingRight;
        }
    }

    std::string log_;
};

TEST_F(FullDisk, CompletesACutLineOnceThereIsRoom) {
    OnFullDisk([](const std::string& disk) {
        Host::FileSink sink(disk + "/events");
        sink.Write("{1}");
        sink.Write(longLine);
        ASSERT_GT(FileText(disk + "/events").size(), 4U) << "nothing was cut";
        ASSERT_LT(FileText(disk + "/events").size(), 6000U) << "the disk was not full";
        sink.Write("{2}");
        EXPECT_TRUE(sink.Retry());
        std::filesystem::remove(disk + "/filler");
        EXPECT_FALSE(sink.Retry());
        EXPECT_EQ(FileText(disk + "/events"), "{1}\n" + longLine + "\n{2}\n");
        EXPECT_EQ(sink.Finish(), 0U);
    });
}

TEST_F(FullDisk, CompletesACutLineAfterReopen) {
    OnFullDisk([](const std::string& disk) {
        Host::FileSink sink(disk + "/events");
        sink.Write(longLine);
        std::filesystem::remove(disk + "/filler");
        sink.Reopen();
        EXPECT_EQ(FileText(disk + "/events"), longLine + "\n");
    });
}

TEST_F(FullDisk, WritesACutLineAgainToANewFile) {
    OnFullDisk([](const std::string& disk) {
        Host::FileSink sink(disk + "/events");
        sink.Write(longLine);
        std::filesystem::remove(disk + "/filler");
        std::filesystem::rename(disk + "/events", disk + "/events.1");
        sink.Write("{2}");
        EXPECT_EQ(FileText(disk + "/events"), longLine + "\n{2}\n");
    });
}

TEST_F(FullDisk, WritesACutLineAgainAfterTheFileIsTruncated) {
    OnFullDisk([](const std::string& disk) {
        Host::FileSink sink(disk + "/events");
        sink.Write(longLine);
        std::filesystem::remove(disk + "/filler");
        std::filesystem::resize_file(disk + "/events", 0);
        sink.Write("{2}");
        EXPECT_EQ(FileText(disk + "/events"), longLine + "\n{2}\n");
    });
}

TEST_F(FullDisk, EndsACutLineIfTheFileChangedSince) {
    OnFullDisk([](const std::string& disk) {
        Host::FileSink sink(disk + "/events");
        sink.Write(longLine);
        std::filesystem::resize_file(disk + "/events", 100);
        std::filesystem::remove(disk + "/filler");
        sink.Write("{2}");
        EXPECT_EQ(FileText(disk + "/events"), std::string(100, 'a') + "\n" + longLine + "\n{2}\n");
    });
}

TEST_F(FullDisk, LogsTheStartAndTheEndOfAFailureOnce) {
    OnFullDisk([](const std::string& disk) {
        Host::FileSink sink(disk + "/events");
        for (int i = 0; i < 5; ++i) {
            sink.Write(longLine);
        }
        std::filesystem::remove(disk + "/filler");
        EXPECT_FALSE(sink.Retry());
    });
    if (!IsSkipped()) {
        EXPECT_EQ(std::count(log_.begin(), log_.end(), '\n'), 2) << log_;
        EXPECT_NE(log_.find("No space left on device"), std::string::npos) << log_;
        EXPECT_NE(log_.find("again; 5 delayed events were written, 0 were lost"), std::string::npos) << log_;
    }
}

}  // namespace
