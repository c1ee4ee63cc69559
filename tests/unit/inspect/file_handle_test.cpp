#include "frame/file_handle.h"

#include <fcntl.h>
#include <gtest/gtest.h>

#include <cerrno>

namespace {

TEST(FileDescriptor, IsClosedAtTheEnd) {
    int fd = -1;
    {
        const FileDescriptor file(open("/dev/null", O_RDONLY | O_CLOEXEC));
        fd = file.Get();
        ASSERT_NE(fcntl(fd, F_GETFD), -1);
    }
    EXPECT_EQ(fcntl(fd, F_GETFD), -1);
}

TEST(FileDescriptor, LeavesTheErrorOfAFailedOpenUnchanged) {
    errno = 0;
    { const FileDescriptor file(open("/nowhere", O_RDONLY | O_CLOEXEC)); }
    EXPECT_EQ(errno, ENOENT);
}

}  // namespace
