#include "alarm/command_paths.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include "tests/fakes/fake_agent.h"
#include "tests/support/proc_tree.h"

namespace {

class CommandPaths : public testing::Test {
protected:
    void SetUp() override { Fake::ResetAgent(); }

    std::string Directory(const std::string& name) const { return folder.Path(name); }

    static void SetPath(const std::string& path) { Fake::TheAgent().environment["PATH"] = path; }

    TemporaryDirectory folder;
};

TEST_F(CommandPaths, AreThoseOfEveryRegularFileOfThatNameOnPath) {
    const std::string first = folder.Write("one/tool", "1");
    const std::string second = folder.Write("two/tool", "2");
    folder.Write("three/other", "3");
    std::filesystem::create_directories(Directory("four/tool"));
    SetPath(Directory("one") + ":" + Directory("missing") + "::" + Directory("two") + ":" + Directory("three") + ":" +
            Directory("four"));
    EXPECT_EQ(CmdPaths("tool"), (std::set<std::string>{first, second}));
}

TEST_F(CommandPaths, GiveOneElementForADirectoryNamedTwiceAndForTwoLinksToOneFile) {
    const std::string file = folder.Write("one/tool", "1");
    std::filesystem::create_directories(Directory("two"));
    std::filesystem::create_symlink(file, Directory("two") + "/tool");
    SetPath(Directory("one") + ":" + Directory("one") + ":" + Directory("two"));
    EXPECT_EQ(CmdPaths("tool"), std::set<std::string>{file});
}

TEST_F(CommandPaths, AreNoneForAnEmptyCommandOrWithoutPath) {
    EXPECT_TRUE(CmdPaths("tool").empty());
    folder.Write("one/tool", "1");
    SetPath(Directory("one"));
    EXPECT_TRUE(CmdPaths("").empty());
}

}  // namespace
