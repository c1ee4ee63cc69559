#include "shellfile/shell_baseline.h"

#include <gtest/gtest.h>

#include "tests/support/temporary_directory.h"

namespace {

TEST(ShellBaseline, FindsACopyOfAShellUnderAnotherName) {
    const TemporaryDirectory folder;
    InitShellsHashSize({folder.Write("sh", "a shell")});
    EXPECT_TRUE(IsShellByHash(folder.Write("tool", "a shell")));
    EXPECT_FALSE(IsShellByHash(folder.Write("other", "a shelf")));
}

}  // namespace
