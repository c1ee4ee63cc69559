#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include "alarm/command_attribution.h"
#include "attribution_fixture.h"
#include "tests/support/child_process.h"

namespace {

using std::chrono::microseconds;
using std::chrono::milliseconds;
using std::chrono::nanoseconds;
using Pauses = std::vector<nanoseconds>;

constexpr char untouched[] = "untouched";

class ScriptArgument : public AttributionTest {
protected:
    // The source path found for this command line, or untouched.
    std::string Find(const std::string& cmdline) { return FindOf(AddProcess(cmdline)); }

    static std::string FindOf(long pid) {
        RshellAlarmInfo record;
        record.sourcePath = untouched;
        const bool found = FindScriptArgument(record, pid);
        EXPECT_EQ(found, record.sourcePath != untouched);
        return record.sourcePath;
    }

    // The pauses for so many bytes, blocks and rejected words.
    static Pauses Cost(size_t bytes, size_t blocks, size_t rejectedWords) {
        Pauses pauses(bytes + blocks, milliseconds(1));
        pauses.insert(pauses.end(), rejectedWords, microseconds(500));
        return pauses;
    }
};

// Uses the host's own /proc. The test's working directory is that of its processes.
class ScriptArgumentOfARealProcess : public testing::Test {
protected:
    void SetUp() override {
        Fake::ResetAgent();
        TimeRecorder::Reset();
        std::filesystem::current_path(folder.Path());
    }

    void TearDown() override { std::filesystem::current_path(before); }

    TemporaryDirectory folder;
    std::filesystem::path before = std::filesystem::current_path();
};

int LowestFreeDescriptor() {
    const int fd = open("/dev/null", O_RDONLY | O_CLOEXEC);
    close(fd);
    return fd;
}

TEST_F(ScriptArgument, IsTheFirstArgumentThatNamesAFile) {
    const std::string script = AddFile("a.py");
    AddFile("b.py");
    EXPECT_EQ(Find(Arguments({"python", "-u", "./a.py", "./b.py"})), script);
    EXPECT_EQ(Find(Arguments({"python", "a.py"})), script);
    EXPECT_EQ(Find(Arguments({"python", script})), script);
    EXPECT_EQ(Find(Arguments({"python", "../home/a.py"})), script);
}

TEST_F(ScriptArgument, IsNeverTheProgramItself) {
    const std::string script = AddFile("a.py");
    EXPECT_EQ(Find(Arguments({script})), untouched);
    EXPECT_EQ(Find(Arguments({script, "-u"})), untouched);
    EXPECT_EQ(Find(Arguments({script, "-u", script})), script);
}

TEST_F(ScriptArgument, IsResolvedThroughLinks) {
    const std::string script = AddFile("a.py");
    std::filesystem::create_symlink("a.py", folder.Path("home/link"));
    EXPECT_EQ(Find(Arguments({"python", "link"})), script);
}

TEST_F(ScriptArgument, IsNeverAnythingButARegularFile) {
    const std::string script = AddFile("a.py");
    std::filesystem::create_directories(folder.Path("home/directory"));
    std::filesystem::create_symlink("gone", folder.Path("home/dangling"));
    std::filesystem::create_symlink("loop", folder.Path("home/loop"));
    ASSERT_EQ(mkfifo(folder.Path("home/fifo").c_str(), 0600), 0);
    const std::string words[] = {"directory",
                                 ".",
                                 "/",
                                 "dangling",
                                 "loop",
                                 "fifo",
                                 "/dev/null",
                                 "-",
                                 "a.py/",
                                 "a.py/.",
                                 std::string(300, 'x'),
                                 std::string(3000, '/') + "x"};
    for (const std::string& word : words) {
        EXPECT_EQ(Find(Arguments({"python", word})), untouched) << word;
        EXPECT_EQ(Find(Arguments({"python", word, "a.py"})), script) << word;
    }
}

TEST_F(ScriptArgument, IsMissingIfTheFirstFileIsACommonCommand) {
    AddFile("a.py");
    EXPECT_EQ(Find(Arguments({"env", tool, "a.py"})), untouched);
    // The name alone decides.
    AddFile("ls");
    EXPECT_EQ(Find(Arguments({"env", "ls", "a.py"})), untouched);
    AddFile("python3");
    EXPECT_EQ(Find(Arguments({"env", "python3", "a.py"})), untouched);
}

TEST_F(ScriptArgument, IsJudgedByTheResolvedPath) {
    std::filesystem::create_symlink(tool, folder.Path("home/report"));
    EXPECT_EQ(Find(Arguments({"env", "report"})), untouched);
    const std::string script = AddFile("a.py");
    std::filesystem::create_directories(folder.Path("home/sub"));
    std::filesystem::create_symlink(script, folder.Path("home/sub/ls"));
    EXPECT_EQ(Find(Arguments({"env", "sub/ls"})), script);
}

TEST_F(ScriptArgument, IsMissingIfTheFirstFileIsAShell) {
    const std::string shell = AddFile("private-shell");
    EXPECT_EQ(Find(Arguments({"env", shell})), shell);
    shellPaths.insert(shell);
    EXPECT_EQ(Find(Arguments({"env", shell})), untouched);
}

TEST_F(ScriptArgument, MayHoldAnyByte) {
    std::string every;
    for (int byte = 1; byte < 256; ++byte) {
        if (byte != '/' && byte != ' ') {
            every += static_cast<char>(byte);
        }
    }
    const std::string names[] = {"a\nb", "\n", "\x01", "\x80\xff",           "\x7f\x1b[31m",   "%s%n",
                                 "a\\b", "\t", "a:b",  every.substr(0, 120), every.substr(120)};
    for (const std::string& name : names) {
        const std::string file = AddFile(name);
        EXPECT_EQ(Find(Arguments({"python", "-u", name, "-x"})), file) << testing::PrintToString(name);
    }
}

TEST_F(ScriptArgument, IsSplitAtBlanks) {
    AddFile("a b");
    EXPECT_EQ(Find(Arguments({"python", "a b"})), untouched);
    const std::string second = AddFile("b");
    EXPECT_EQ(Find(Arguments({"python", "a b"})), second);
    const std::string first = AddFile("a");
    EXPECT_EQ(Find(Arguments({"python", "a b"})), first);
    EXPECT_EQ(Find(Arguments({"python", "  a   c  "})), first);
    EXPECT_EQ(Find(Arguments({"python a"})), first);
}

TEST_F(ScriptArgument, IsNotSplitIfItIsUnterminated) {
    const std::string file = AddFile("a b");
    AddFile("a");
    EXPECT_EQ(Find(Arguments({"python"}) + "a b"), file);
    EXPECT_EQ(Find(Arguments({"python"}) + "a c"), untouched);
    // One word, not two.
    EXPECT_EQ(Find("python a"), untouched);
    EXPECT_EQ(Find(std::string("python\0 a", 9)), untouched);
}

TEST_F(ScriptArgument, IsNeverEmpty) {
    const std::string script = AddFile("a.py");
    EXPECT_EQ(Find(Arguments({"python", "", "", "a.py"})), script);
    EXPECT_EQ(Find(Arguments({"python", " ", "   ", "a.py", ""})), script);
    // The first word is the program.
    EXPECT_EQ(Find(Arguments({"", "", "a.py"})), untouched);
    EXPECT_EQ(Find(Arguments({"", " ", "python", "a.py"})), script);
}

TEST_F(ScriptArgument, RequiresTwoWords) {
    for (const std::string& cmdline :
         {std::string(), std::string(1, '\0'), std::string(5000, '\0'), Arguments({" "}), Arguments({"python"}),
          Arguments({"python", ""}), Arguments({"python", " "}), std::string("python")}) {
        TimeRecorder::Reset();
        EXPECT_EQ(Find(cmdline), untouched) << testing::PrintToString(cmdline.substr(0, 20));
        EXPECT_EQ(TimeRecorder::Pauses(), Cost(cmdline.size(), (cmdline.size() + 4095) / 4096, 0));
    }
}

TEST_F(ScriptArgument, IsFoundAcrossTheEndsOfBlocks) {
    const std::string name = "script.py";
    const std::string script = AddFile(name);
    // The word after a filling of this size lies before, across or after the end of the first or second block.
    for (const size_t block : {4096U, 8192U}) {
        for (size_t filling = block - name.size() - 2; filling <= block + 1; ++filling) {
            const std::string start = "python" + std::string(1, '\0') + std::string(filling - 8, 'x') + '\0';
            ASSERT_EQ(start.size(), filling);
            EXPECT_EQ(Find(start + name + '\0'), script) << filling;
            EXPECT_EQ(Find(start + name), script) << filling;
        }
    }
}

TEST_F(ScriptArgument, IsFoundAfterAWordOfManyBlocks) {
    const std::string script = AddFile("a.py");
    EXPECT_EQ(Find(Arguments({"python", std::string(100000, 'x'), "a.py"})), script);
    EXPECT_EQ(Find(std::string(20000, 'x') + '\0' + "a.py"), script);
}

// The whole command line is read even if the module is not running: a cut one would name another source.
TEST_F(ScriptArgument, IsFoundInALaterBlockAfterAStop) {
    const std::string script = AddFile("a.py");
    const int pid = AddProcess(Arguments({"python", std::string(20000, 'x'), "a.py"}));
    TimeRecorder::AtEachPause([](size_t) { moduleRunning = 0; });
    EXPECT_EQ(FindOf(pid), script);
}

TEST_F(ScriptArgument, PausesPerByteBlockAndRejectedWord) {
    AddFile("a.py");
    const std::string start = Arguments({"python"});
    const struct {
        std::string cmdline;
        size_t blocks;
        size_t rejectedWords;
    } cases[] = {
        {Arguments({"python", "a.py"}), 1, 0},
        {Arguments({"python", "-u", "a.py", "-v"}), 1, 1},
        {Arguments({"python", "-u", "-v"}), 1, 2},
        {Arguments({"python", "-u -v", "", "-w"}), 1, 3},
        {Arguments({"python", tool}), 1, 0},
        {start + std::string(4095 - start.size(), 'x'), 1, 1},
        {start + std::string(4096 - start.size(), 'x'), 1, 1},
        {start + std::string(4097 - start.size(), 'x'), 2, 1},
        {start + std::string(9000 - start.size(), 'x') + '\0', 3, 1},
    };
    for (const auto& row : cases) {
        TimeRecorder::Reset();
        Find(row.cmdline);
        EXPECT_EQ(TimeRecorder::Pauses(), Cost(row.cmdline.size(), row.blocks, row.rejectedWords));
    }
}

TEST_F(ScriptArgument, IsMissingForAProcessThatIsGone) {
    EXPECT_EQ(FindOf(499), untouched);
    EXPECT_TRUE(TimeRecorder::Pauses().empty());
    EXPECT_TRUE(Fake::TheAgent().log.empty());
}

TEST_F(ScriptArgument, StaysRelativeForAProcessWithoutAWorkingDirectory) {
    const std::string script = AddFile("a.py");
    proc->Add({.pid = 499, .ppid = 1, .exe = "/opt/app/program", .cmdline = Arguments({"python", "no-file", script})});
    EXPECT_EQ(FindOf(499), script);
    proc->Add({.pid = 498, .ppid = 1, .exe = "/opt/app/program", .cmdline = Arguments({"python", "a.py"})});
    EXPECT_EQ(FindOf(498), untouched);
}

TEST_F(ScriptArgument, IsMissingWithALogLineIfMemoryIsShort) {
    AddFile("a.py");
    const int pid = AddProcess(Arguments({"python", "a.py"}));
    const int descriptor = LowestFreeDescriptor();
    FailingCalls::FailAllocation(1);
    EXPECT_EQ(FindOf(pid), untouched);
    ASSERT_EQ(Fake::TheAgent().log.size(), 1U);
    const Fake::LogLine& line = Fake::TheAgent().log.front();
    EXPECT_EQ(line.text, "Alloc buf memory failed.");
    EXPECT_EQ(line.level, LOG_LEVEL_ERROR);
    EXPECT_EQ(line.channel, "NormalLog");
    EXPECT_TRUE(TimeRecorder::Pauses().empty());
    EXPECT_EQ(LowestFreeDescriptor(), descriptor);
}

TEST_F(ScriptArgument, NeedsNoMemoryForAProcessThatIsGone) {
    FailingCalls::FailAllocation(1);
    EXPECT_EQ(FindOf(498), untouched);
    FailingCalls::FailAllocation(0);
    EXPECT_TRUE(Fake::TheAgent().log.empty());
}

TEST_F(ScriptArgument, LeavesNoDescriptorAndNoLogLine) {
    AddFile("a.py");
    const int descriptor = LowestFreeDescriptor();
    Find(Arguments({"python", "-u", "a.py"}));
    Find(Arguments({"python"}));
    EXPECT_EQ(LowestFreeDescriptor(), descriptor);
    EXPECT_TRUE(Fake::TheAgent().log.empty());
}

TEST_F(ScriptArgumentOfARealProcess, IsResolvedAgainstItsWorkingDirectory) {
    const std::string script = folder.Write("a b.sh", "read line\n");
    const std::string plain = folder.Write("a.sh", "read line\n");
    const ServiceTests::ChildProcess shell("/bin/sh", {"sh", "-u", "./a.sh", "b.sh"});
    RshellAlarmInfo record;
    EXPECT_TRUE(FindScriptArgument(record, shell.Pid()));
    EXPECT_EQ(record.sourcePath, plain);
    const ServiceTests::ChildProcess other("/bin/sh", {"sh", script});
    EXPECT_FALSE(FindScriptArgument(record, other.Pid()));
}

}  // namespace
