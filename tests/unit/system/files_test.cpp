#include "agent/files.h"

#include <gtest/gtest.h>
#include <libgen.h>
#include <sys/stat.h>
#include <unistd.h>

#include <set>
#include <string>

#include "tests/support/temporary_directory.h"

namespace {

using namespace TavUtils::FileAttribute;
using TavUtils::FileOperation::ParseShellsFile;

TEST(GetBasename, AgreesWithTheCLibrary) {
    for (const char* path : {"", "/", "//", "///", "a", "a/", "a//", "/a", "/a/", "/usr/lib", "/usr//lib//", ".", "..",
                             "a/.", "/usr/bin/\xff\n x", " "}) {
        std::string copy = path;
        EXPECT_EQ(GetBasename(path), std::string(basename(copy.data()))) << path;
    }
}

TEST(GetRealLink, ReturnsTheTargetUnresolved) {
    const TemporaryDirectory dir;
    const std::string longTarget(4000, 'x');
    for (const std::string& target : {std::string("relative/../target"), std::string("\xff\n"), longTarget,
                                      std::string(255, 'y'), std::string(256, 'y'), std::string(257, 'y')}) {
        const std::string link = dir.Path("link");
        ASSERT_EQ(symlink(target.c_str(), link.c_str()), 0);
        EXPECT_EQ(GetRealLink(link), target);
        ASSERT_EQ(unlink(link.c_str()), 0);
    }
}

TEST(GetRealLink, IsEmptyForAnythingButALink) {
    const TemporaryDirectory dir;
    const std::string file = dir.Write("file", "");
    ASSERT_EQ(symlink("target", dir.Path("link").c_str()), 0);
    for (const std::string& path :
         {std::string(), file, dir.Path("missing"), dir.Path("link") + std::string("\0x", 2)}) {
        EXPECT_EQ(GetRealLink(path), "") << path;
    }
}

TEST(GetRealPath, ResolvesAllLinks) {
    const TemporaryDirectory dir;
    const std::string file = GetRealPath(dir.Write("file", ""));
    ASSERT_EQ(GetBasename(file), "file");
    ASSERT_EQ(symlink("file", dir.Path("first").c_str()), 0);
    ASSERT_EQ(symlink(dir.Path("first").c_str(), dir.Path("second").c_str()), 0);
    EXPECT_EQ(GetRealPath(dir.Path("second")), file);
    EXPECT_EQ(GetRealPath(dir.Path(".//./second")), file);
    EXPECT_EQ(GetRealPath("/.."), "/");
}

TEST(GetRealPath, IsEmptyOnFailure) {
    const TemporaryDirectory dir;
    const std::string file = dir.Write("file", "");
    ASSERT_EQ(symlink("loop", dir.Path("loop").c_str()), 0);
    for (const std::string& path : {std::string(), dir.Path("missing"), dir.Path("loop"), file + "/x",
                                    file + std::string("\0x", 2), "/" + std::string(10000, 'x')}) {
        EXPECT_EQ(GetRealPath(path), "") << path;
    }
}

TEST(StModeString, AgreesWithLs) {
    struct Case {
        unsigned int mode;
        const char* text;
    };
    const Case cases[] = {
        {S_IFREG | 0755, "-rwxr-xr-x"},  {S_IFREG | 0640, "-rw-r-----"},  {S_IFREG | 04755, "-rwsr-xr-x"},
        {S_IFREG | 04644, "-rwSr--r--"}, {S_IFREG | 02755, "-rwxr-sr-x"}, {S_IFREG | 02745, "-rwxr-Sr-x"},
        {S_IFDIR | 01777, "drwxrwxrwt"}, {S_IFDIR | 01776, "drwxrwxrwT"}, {S_IFLNK | 0777, "lrwxrwxrwx"},
        {S_IFCHR | 0666, "crw-rw-rw-"},  {S_IFBLK | 0660, "brw-rw----"},  {S_IFIFO | 0600, "prw-------"},
        {S_IFSOCK | 0777, "srwxrwxrwx"}, {S_IFREG, "----------"},         {0, "?---------"},
        {S_IFREG | 07777, "-rwsrwsrwt"}, {S_IFREG | 07000, "---S--S--T"}, {0xFFFFFFFFU, "?rwsrwsrwt"},
    };
    for (const Case& c : cases) {
        EXPECT_EQ(StModeString(c.mode), c.text) << c.mode;
    }
}

TEST(IsTemporaryFile, RecognisesFilesOfEditorsAndPackageManagers) {
    for (const char* name :
         {"bash~", ".bash.swp", ".bash.swx", ".bash.swo", "bash.tmp", "bash.dpkg-new", "bash.dpkg-tmp", "bash;5f3a9c01",
          "bash;5F3A9C01", "sedAb3xYz", "sed000000", ".#bash", "#bash#", "4913", "5036"}) {
        EXPECT_TRUE(IsTemporaryFile(name)) << name;
        EXPECT_TRUE(IsTemporaryFile(std::string("/usr/bin/") + name)) << name;
    }
}

TEST(IsTemporaryFile, RejectsOtherNames) {
    for (const char* path : {"",
                             "/",
                             "/usr/bin/bash",
                             "sed",
                             "sedan",
                             "sed12345",
                             "sed1234567",
                             "sed-12345",
                             "xsed123456",
                             "bash.swap",
                             "swp",
                             "tmp",
                             "bash;5f3a9c0",
                             "bash;5f3a9c011",
                             "bash;5f3a9cxx",
                             ";5f3a9c01",
                             "#bash",
                             "bash#",
                             "#",
                             "##",
                             ".#",
                             "4914",
                             "04913",
                             "49130",
                             "bash.dpkg-old",
                             "~bash",
                             "/tmp.tmp/bash",
                             "/home~/bash",
                             "/sed123456/bash",
                             "\xff\xfe"}) {
        EXPECT_FALSE(IsTemporaryFile(path)) << path;
    }
}

TEST(ParseShellsFile, ReadsOneAbsolutePathPerLine) {
    struct Case {
        std::string content;
        std::set<std::string> shells;
    };
    const Case cases[] = {
        {"", {}},
        {"\n\n\n", {}},
        {"# a comment\n/bin/sh\n/bin/bash\n", {"/bin/sh", "/bin/bash"}},
        {"/bin/sh", {"/bin/sh"}},
        {"/bin/sh\r\n/bin/bash\r\n", {"/bin/sh", "/bin/bash"}},
        {" \t/bin/sh \t\n", {"/bin/sh"}},
        {"/bin/sh # the first\n/bin/bash#the second\n", {"/bin/sh", "/bin/bash"}},
        {"bin/sh\n./sh\nsh /bin/sh\n/bin/bash\n", {"/bin/bash"}},
        {"  # /bin/sh\n#\n", {}},
        {std::string("/bin/sh\0x\n/bin/bash\n", 20), {"/bin/bash"}},
        {"/bin/\xff\xfe\n", {"/bin/\xff\xfe"}},
        {"/bin/sh\n/bin/sh\n", {"/bin/sh"}},
    };
    const TemporaryDirectory dir;
    for (const Case& c : cases) {
        std::set<std::string> shells;
        EXPECT_TRUE(ParseShellsFile(shells, dir.Write("shells", c.content))) << c.content;
        EXPECT_EQ(shells, c.shells) << c.content;
    }
}

TEST(ParseShellsFile, AddsToTheSet) {
    const TemporaryDirectory dir;
    std::set<std::string> shells{"/bin/sh"};
    EXPECT_TRUE(ParseShellsFile(shells, dir.Write("shells", "/bin/bash\n")));
    EXPECT_EQ(shells, (std::set<std::string>{"/bin/sh", "/bin/bash"}));
}

TEST(ParseShellsFile, AddsNothingFromAnUnreadableFile) {
    const TemporaryDirectory dir;
    ASSERT_EQ(mkfifo(dir.Path("fifo").c_str(), 0600), 0);
    for (const std::string& path : {std::string(), dir.Path("missing"), dir.Path("fifo"), dir.Path("")}) {
        std::set<std::string> shells{"/bin/sh"};
        EXPECT_FALSE(ParseShellsFile(shells, path)) << path;
        EXPECT_EQ(shells.size(), 1U);
    }
}

TEST(ParseShellsFile, EndsAtTheLastWholeLineWithinTheLimit) {
    constexpr size_t limit = 1024 * 1024;
    const TemporaryDirectory dir;
    std::string content = "/bin/first\n";
    content += std::string(limit - content.size() - 8, '#') + "\n/bin/second\n/bin/third\n";
    std::set<std::string> shells;
    EXPECT_TRUE(ParseShellsFile(shells, dir.Write("shells", content)));
    EXPECT_EQ(shells, (std::set<std::string>{"/bin/first"}));
}

}  // namespace
