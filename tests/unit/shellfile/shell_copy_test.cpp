#include "shellfile/shell_copy.h"

#include <sys/stat.h>
#include <unistd.h>

#include <memory>

#include "access_watch.h"
#include "shellfile_fixture.h"
#include "tests/support/proc_tree.h"

namespace {

using Kind = decltype(proc_event::what);

class ShellCopy : public ShellFileTest {
protected:
    void SetUp() override {
        ShellFileTest::SetUp();
        if (!MayMount()) {
            GTEST_SKIP() << "needs the right to mount (CAP_SYS_ADMIN)";
        }
        shell = folder.Write("shells/sh", "the content of a shell");
        InitShellsHashSize({shell});
        Fake::TheAgent().log.clear();
    }

    void SetUpProcess(const std::string& program, const std::string& cmdline) {
        tree = std::make_unique<ProcTree>();
        tree->Add({.pid = 4242, .ppid = 1, .exe = program, .cmdline = cmdline});
    }

    static void Send(decltype(proc_event::what) what) {
        proc_event event{};
        event.what = what;
        event.event_data.exec.process_pid = 4242;
        event.event_data.exec.process_tgid = 4243;
        ShellExecCallback(&event);
    }

    // Sends the exec event of a process that runs the program.
    void Exec(const std::string& program, const std::string& cmdline = std::string("tool\0-i\0", 8)) {
        SetUpProcess(program, cmdline);
        Send(Kind::PROC_EVENT_EXEC);
        tree.reset();
    }

    std::unique_ptr<ProcTree> tree;
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

TEST_F(ShellCopy, IsReportedOncePerPath) {
    Exec(folder.Write("first", "the content of a shell"));
    Exec(folder.Write("second", "the content of a shell"));
    ASSERT_EQ(Contents().size(), 2U);
    EXPECT_EQ(Contents()[1]["relatedPath"], folder.Path("second"));
}

TEST_F(ShellCopy, IsNotReadIfItsSizeIsNotThatOfAShell) {
    const std::string sameSize = folder.Write("same-size", "the content of a shelf");
    const std::string otherSize = folder.Write("other-size", "the content of a shell, and more");
    const AccessWatch read(sameSize);
    const AccessWatch unread(otherSize);
    Exec(sameSize);
    Exec(otherSize);
    EXPECT_TRUE(read.SawAccess());
    EXPECT_FALSE(unread.SawAccess());
}

TEST_F(ShellCopy, IsNotAListedShell) {
    const AccessWatch unread(shell);
    Exec(shell);
    EXPECT_TRUE(Contents().empty());
    EXPECT_FALSE(unread.SawAccess());
}

TEST_F(ShellCopy, IsNotAListedShellEvenAfterAChange) {
    folder.Write("shells/sh", "another content, of any length");
    Exec(shell);
    EXPECT_TRUE(Contents().empty());
}

TEST_F(ShellCopy, CommandIsCutTo512Bytes) {
    const struct {
        std::string command;
        std::string reported;
    } cases[] = {
        {std::string(512, 'a'), std::string(512, 'a')},
        {std::string(513, 'a'), std::string(512, 'a')},
        {std::string(510, 'a') + "\xC3\xA9", std::string(510, 'a') + "\xC3\xA9"},
        {std::string(511, 'a') + "\xC3\xA9", std::string(511, 'a')},
    };
    for (const auto& row : cases) {
        Fake::TheAgent().events.clear();
        Exec(folder.Write("tool" + std::to_string(&row - cases), "the content of a shell"), row.command);
        ASSERT_EQ(Contents().size(), 1U);
        EXPECT_EQ(Contents()[0]["command"], row.reported);
    }
}

TEST_F(ShellCopy, IsNotReportedWithoutACommandLine) {
    const std::string copy = folder.Write("tool", "the content of a shell");
    Exec(copy, "");
    EXPECT_TRUE(Contents().empty());
    Exec(copy);
    EXPECT_EQ(Contents().size(), 1U) << "an exec that is not reported is not remembered either";
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

TEST_F(ShellCopy, IgnoresOtherEventsThanExec) {
    SetUpProcess(folder.Write("tool", "the content of a shell"), "tool");
    for (const Kind what : {Kind::PROC_EVENT_FORK, Kind::PROC_EVENT_EXIT, Kind::PROC_EVENT_UID, Kind{}}) {
        Send(what);
    }
    EXPECT_TRUE(Contents().empty());
    Send(Kind::PROC_EVENT_EXEC);
    EXPECT_EQ(Contents().size(), 1U);
}

TEST_F(ShellCopy, LogsANullEvent) {
    ShellExecCallback(nullptr);
    EXPECT_EQ(Fake::TheAgent().LogTexts(LOG_LEVEL_ERROR), std::vector<std::string>{"The process event is null."});
}

}  // namespace
