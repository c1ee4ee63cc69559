#include "shellfile/shell_copy.h"

#include <sys/stat.h>
#include <unistd.h>

#include "shellfile_fixture.h"
#include "tests/support/proc_tree.h"

namespace {

class ShellCopy : public ShellFileTest {
protected:
    void SetUp() override {
        ShellFileTest::SetUp();
        shell = folder.Write("shells/sh", "the content of a shell");
        InitShellsHashSize({shell});
        Fake::TheAgent().log.clear();
    }

    // Sends the exec event of a process that runs the program.
    void Exec(const std::string& program, const std::string& cmdline = std::string("tool\0-i\0", 8)) {
        if (!MayMount()) {
            GTEST_SKIP() << "needs the right to mount (CAP_SYS_ADMIN)";
        }
        proc_event event{};
        event.what = decltype(event.what)::PROC_EVENT_EXEC;
        event.event_data.exec.process_pid = 4242;
        ProcTree tree;
        tree.Add({.pid = 4242, .ppid = 1, .exe = program, .cmdline = cmdline});
        ShellExecCallback(&event);
    }

    std::string shell;
};

TEST_F(ShellCopy, IsReportedWithTheShellThatItEquals) {
    const std::string copy = folder.Write("tool", "the content of a shell");
    Exec(copy);
    ASSERT_EQ(Contents().size(), 1U);
    EXPECT_EQ(Contents()[0].Dump(), R"({"path":")" + shell + R"(","operationType":"copy","command":"tool -i",)" +
                                        R"("relatedPath":")" + copy + R"("})");
    EXPECT_EQ(Fake::TheAgent().LogTexts(LOG_LEVEL_DETAIL), std::vector<std::string>{"[fileOperationType=7]"});
}

TEST_F(ShellCopy, IsReportedIfItIsAHardLink) {
    const std::string link = folder.Path("link");
    ASSERT_EQ(::link(shell.c_str(), link.c_str()), 0);
    Exec(link);
    ASSERT_EQ(Contents().size(), 1U);
    EXPECT_EQ(Contents()[0]["relatedPath"], link);
}

TEST_F(ShellCopy, IsReportedOnceWithinTheHour) {
    const std::string copy = folder.Write("tool", "the content of a shell");
    Exec(copy);
    Exec(copy);
    EXPECT_EQ(Contents().size(), 1U);
}

TEST_F(ShellCopy, IsNotAFileOfTheSameSizeWithOtherContent) {
    Exec(folder.Write("tool", "the content of a shelf"));
    EXPECT_TRUE(Contents().empty());
    EXPECT_TRUE(Fake::TheAgent().log.empty());
}

TEST_F(ShellCopy, IsNotAListedShellEvenAfterAChange) {
    folder.Write("shells/sh", "another content, of any length");
    Exec(shell);
    EXPECT_TRUE(Contents().empty());
}

TEST_F(ShellCopy, CommandIsCutAtACharacter) {
    const std::string copy = folder.Write("tool", "the content of a shell");
    Exec(copy, std::string(511, 'a') + "\xC3\xA9" + "b");
    ASSERT_EQ(Contents().size(), 1U);
    EXPECT_EQ(Contents()[0]["command"], std::string(511, 'a'));
}

TEST_F(ShellCopy, IsNotReportedWithoutACommandLine) {
    Exec(folder.Write("tool", "the content of a shell"), "");
    EXPECT_TRUE(Contents().empty());
}

TEST_F(ShellCopy, IsNotReportedIfTheProcessOrItsProgramIsGone) {
    Exec("");
    Exec(folder.Path("removed"));
    EXPECT_TRUE(Contents().empty());
    EXPECT_TRUE(Fake::TheAgent().log.empty());
}

TEST_F(ShellCopy, LogsThatAProgramOfAShellsSizeCannotBeRead) {
    // A directory has a size and no digest.
    const std::string directory = folder.Path("directory");
    ASSERT_TRUE(std::filesystem::create_directory(directory));
    struct stat info {};
    ASSERT_EQ(stat(directory.c_str(), &info), 0);
    folder.Write("shells/sh", std::string(static_cast<size_t>(info.st_size), 's'));
    InitShellsHashSize({shell});
    Fake::TheAgent().log.clear();
    Exec(directory);
    EXPECT_TRUE(Contents().empty());
    EXPECT_EQ(Fake::TheAgent().LogTexts(LOG_LEVEL_ERROR),
              std::vector<std::string>{"Failed to get file hash.[path=" + directory + "]"});
}

TEST_F(ShellCopy, IgnoresOtherEventsAndLogsANullEvent) {
    proc_event event{};
    for (const auto what : {decltype(event.what)::PROC_EVENT_FORK, decltype(event.what)::PROC_EVENT_EXIT}) {
        event.what = what;
        ShellExecCallback(&event);
    }
    EXPECT_TRUE(Fake::TheAgent().log.empty());
    ShellExecCallback(nullptr);
    EXPECT_EQ(Fake::TheAgent().LogTexts(LOG_LEVEL_ERROR), std::vector<std::string>{"The process event is null."});
}

}  // namespace
