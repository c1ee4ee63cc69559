#include "alarm/command_paths.h"

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include "frame/settings.h"
#include "tests/fakes/fake_agent.h"
#include "tests/support/proc_tree.h"

namespace {

class CommandPaths : public testing::Test {
protected:
    void SetUp() override {
        Fake::ResetAgent();
        shellPaths.clear();
    }

    void TearDown() override { shellPaths.clear(); }

    std::string Directory(const std::string& name) const { return folder.Path(name); }

    static void SetPath(const std::string& path) { Fake::TheAgent().environment["PATH"] = path; }

    TemporaryDirectory folder;
};

TEST_F(CommandPaths, ListEveryRegularFileOfThatNameOnPath) {
    const std::string first = folder.Write("one/tool", "1");
    const std::string second = folder.Write("two/tool", "2");
    folder.Write("three/other", "3");
    std::filesystem::create_directories(Directory("four/tool"));
    SetPath(Directory("one") + ":" + Directory("missing") + "::" + Directory("two") + ":" + Directory("three") + ":" +
            Directory("four"));
    EXPECT_EQ(CmdPaths("tool"), (std::set<std::string>{first, second}));
}

TEST_F(CommandPaths, ListAFileOnceForARepeatedDirectoryAndForLinks) {
    const std::string file = folder.Write("one/tool", "1");
    std::filesystem::create_directories(Directory("two"));
    std::filesystem::create_symlink(file, Directory("two") + "/tool");
    SetPath(Directory("one") + ":" + Directory("one") + ":" + Directory("two"));
    EXPECT_EQ(CmdPaths("tool"), std::set<std::string>{file});
}

TEST_F(CommandPaths, ListAFileOnceForADirectoryUnderTwoNames) {
    const std::string file = folder.Write("one/tool", "1");
    std::filesystem::create_symlink("one", Directory("two"));
    SetPath(Directory("two") + ":" + Directory("one") + "/:" + Directory("one") + "/.");
    EXPECT_EQ(CmdPaths("tool"), std::set<std::string>{file});
}

TEST_F(CommandPaths, ListTwoHardLinksSeparately) {
    const std::string first = folder.Write("one/tool", "1");
    std::filesystem::create_directories(Directory("two"));
    std::filesystem::create_hard_link(first, Directory("two/tool"));
    SetPath(Directory("one") + ":" + Directory("two"));
    EXPECT_EQ(CmdPaths("tool"), (std::set<std::string>{first, Directory("two/tool")}));
}

TEST_F(CommandPaths, OmitEverythingButRegularFiles) {
    for (const char* name : {"fifo", "dangling", "device", "loop"}) {
        std::filesystem::create_directories(Directory(name));
    }
    ASSERT_EQ(mkfifo(Directory("fifo/tool").c_str(), 0700), 0);
    std::filesystem::create_symlink("gone", Directory("dangling/tool"));
    std::filesystem::create_symlink("/dev/null", Directory("device/tool"));
    std::filesystem::create_symlink("tool", Directory("loop/tool"));
    // It need not be executable.
    const std::string file = folder.Write("last/tool", "1");
    SetPath(Directory("fifo") + ":" + Directory("dangling") + ":" + Directory("device") + ":" + Directory("loop") +
            ":" + Directory("last"));
    EXPECT_EQ(CmdPaths("tool"), std::set<std::string>{file});
}

// An empty entry would lead to the root.
TEST_F(CommandPaths, SkipEmptyEntriesOfPath) {
    const std::string file = folder.Write("tool", "1");
    SetPath(":" + Directory("missing"));
    EXPECT_TRUE(CmdPaths(file.substr(1)).empty());
}

TEST_F(CommandPaths, AreEmptyForAnEmptyCommandOrWithoutPath) {
    EXPECT_TRUE(CmdPaths("tool").empty());
    SetPath("");
    EXPECT_TRUE(CmdPaths("tool").empty());
    SetPath(":::");
    EXPECT_TRUE(CmdPaths("tool").empty());
    folder.Write("one/tool", "1");
    SetPath(Directory("one"));
    EXPECT_TRUE(CmdPaths("").empty());
    EXPECT_FALSE(CmdPaths("tool").empty());
}

using CommonCommand = CommandPaths;

TEST_F(CommonCommand, IsAnyProgramWithTheNameOfAToolOnPath) {
    folder.Write("bin/ls", "1");
    SetPath(Directory("missing") + "::" + Directory("bin"));
    for (const std::string& path : {Directory("bin/ls"), std::string("/opt/app/ls"), std::string("/gone/ls"),
                                    std::string("ls"), std::string("./ls"), std::string("/opt/ls/")}) {
        EXPECT_TRUE(IsCommonCommand(path.c_str())) << path;
    }
    for (const char* path : {"/opt/app/lsx", "/opt/app/l", "/opt/app/LS", "/ls/app", " ls", "ls "}) {
        EXPECT_FALSE(IsCommonCommand(path)) << path;
    }
}

TEST_F(CommonCommand, IsSearchedPastEntriesWithoutSuchARegularFile) {
    std::filesystem::create_directories(Directory("one/tool"));
    std::filesystem::create_directories(Directory("two"));
    std::filesystem::create_symlink("gone", Directory("two/tool"));
    std::filesystem::create_directories(Directory("three"));
    ASSERT_EQ(mkfifo(Directory("three/tool").c_str(), 0700), 0);
    const std::string useless = Directory("one") + ":" + Directory("two") + ":" + Directory("three");
    SetPath(useless);
    EXPECT_FALSE(IsCommonCommand("/opt/tool"));
    std::filesystem::create_directories(Directory("four"));
    std::filesystem::create_symlink(folder.Write("other", "1"), Directory("four/tool"));
    SetPath(useless + ":" + Directory("four"));
    EXPECT_TRUE(IsCommonCommand("/opt/tool"));
}

TEST_F(CommonCommand, IsAListedShellIndependentlyOfPath) {
    shellPaths = {"/opt/own-shell", "/usr/local/bin/yum", "/", ""};
    EXPECT_TRUE(IsCommonCommand("/opt/own-shell"));
    SetPath(Directory("missing"));
    EXPECT_TRUE(IsCommonCommand("/opt/own-shell"));
    // The list of shells precedes all tests of the name.
    EXPECT_TRUE(IsCommonCommand("/usr/local/bin/yum"));
    EXPECT_TRUE(IsCommonCommand("/"));
    EXPECT_TRUE(IsCommonCommand(""));
    for (const char* path : {"/opt//own-shell", "/opt/own-shell2", "/opt/own", "own-shell", "/home/own-shell"}) {
        EXPECT_FALSE(IsCommonCommand(path)) << path;
    }
}

TEST_F(CommonCommand, IsNeverYum) {
    folder.Write("bin/yum", "1");
    folder.Write("bin/yum2", "1");
    SetPath(Directory("bin"));
    for (const std::string& path : {Directory("bin/yum"), std::string("/usr/local/bin/yum"), std::string("yum")}) {
        EXPECT_FALSE(IsCommonCommand(path.c_str())) << path;
    }
    EXPECT_TRUE(IsCommonCommand(Directory("bin/yum2").c_str()));
}

TEST_F(CommonCommand, IsNeverAPathWithoutAName) {
    SetPath(Directory("bin"));
    folder.Write("bin/tool", "1");
    EXPECT_FALSE(IsCommonCommand(nullptr));
    for (const char* path : {"", "/", "//", ".", "./", "/opt/.", "..", "/opt/.."}) {
        EXPECT_FALSE(IsCommonCommand(path)) << path;
    }
}

TEST_F(CommonCommand, IsAnInterpreterWithOrWithoutAVersion) {
    const struct {
        const char* name;
        bool common;
    } cases[] = {
        {"perl", true},        {"python", true},   {"java", true},    {"php", true},       {"lua", true},
        {"netcat", true},      {"nc", true},       {"ncat", true},    {"perl5.36", true},  {"python3", true},
        {"python2.7", true},   {"python9x", true}, {"php8.2", true},  {"lua5.4", true},    {"nc0", true},
        {"ncat7", true},       {"java17", true},   {"netcat1", true}, {"python_x", false}, {"pythonista", false},
        {"nctool", false},     {"ncat.", false},   {"javac", false},  {"perl-5", false},   {"php-fpm8.2", false},
        {"luajit", false},     {"ncatx", false},   {"n", false},      {"pytho", false},    {"Python3", false},
        {"3python", false},    {"ruby", false},    {"python/", true}, {"python:", false},  {"xnc", false},
        {"python\xb2", false},
    };
    for (const auto& row : cases) {
        EXPECT_EQ(IsCommonCommand((std::string("/opt/app/") + row.name).c_str()), row.common) << row.name;
    }
    SetPath(Directory("missing"));
    for (const auto& row : cases) {
        EXPECT_EQ(IsCommonCommand((std::string("/opt/app/") + row.name).c_str()), row.common) << row.name;
    }
}

}  // namespace
