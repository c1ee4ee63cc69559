#include "alarm/attack_source.h"

#include "tests/support/instant_scan_fixture.h"

namespace {

// SHA-256 of "a shell", "private" and "bash -i".
constexpr char shellDigest[] = "1b7870670d635a5541c6399eed069e0c84564c0471c0fa6ecc2201ee42f726bf";
constexpr char privateDigest[] = "715dc8493c36579a5b116995100f635e3572fdf8703e708ef1a08d943b36774e";
constexpr char bashInteractiveDigest[] = "e564f904a4818450bdfa3e90c8e0994f092e77ea3fede886fae128f138cbd3e5";

class AttackSource : public InstantScanTest {
protected:
    AttackSource() : privateProgram(folder.Write("private", "private")), script(folder.Write("script", "text")) {}

    // A shell 300 under a shell 200, both without a script.
    RshellAlarmInfo ShellUnderShell() {
        AddShell(300, 200);
        AddShell(200, 100);
        RshellAlarmInfo record;
        record.pid = 300;
        record.path = shell;
        record.cmdline = "bash -i";
        record.ppid = 200;
        record.parentPath = shell;
        record.parentCmdline = "bash -i";
        record.sourcePath = "what came in";
        return record;
    }

    void ReplaceProcess(int pid, int ppid, const std::string& words) {
        Remove(pid);
        AddShell(pid, ppid, words);
    }

    static void Expect(RshellAlarmInfo record, const std::string& sourcePath, const std::string& hash) {
        FindAttackSource(record);
        EXPECT_EQ(record.sourcePath, sourcePath);
        EXPECT_EQ(record.hash, hash);
    }

    std::string privateProgram;
    std::string script;
};

TEST_F(AttackSource, IsUnchangedForAProcessWithoutAProgram) {
    RshellAlarmInfo record = ShellUnderShell();
    record.path = "";
    record.parentPath = privateProgram;
    Expect(record, "what came in", "");
}

TEST_F(AttackSource, IsUnchangedForAProgramThatCannotBeHashed) {
    RshellAlarmInfo record = ShellUnderShell();
    record.path = privateProgram + " (deleted)";
    record.parentPath = privateProgram;
    Expect(record, "what came in", "");
    record.path = folder.Path("");
    Expect(record, "what came in", "");
}

TEST_F(AttackSource, IsTheProgramIfItIsNoCommonCommand) {
    RshellAlarmInfo record = ShellUnderShell();
    record.path = privateProgram;
    record.ppid = 1;
    Expect(record, privateProgram, privateDigest);
}

TEST_F(AttackSource, IsUnchangedForAShellUnderInit) {
    RshellAlarmInfo record = ShellUnderShell();
    record.ppid = 1;
    record.parentPath = privateProgram;
    Expect(record, "what came in", "");
    record.sourcePath = "";
    Expect(record, "", "");
}

TEST_F(AttackSource, IsAPrivateParentWithTheHashOfTheShell) {
    RshellAlarmInfo record = ShellUnderShell();
    record.parentPath = privateProgram;
    Expect(record, privateProgram, shellDigest);
}

TEST_F(AttackSource, IsEmptyForAParentWithoutAProgram) {
    RshellAlarmInfo record = ShellUnderShell();
    record.parentPath = "";
    Expect(record, "", shellDigest);
}

TEST_F(AttackSource, IsTheParentsScriptWithTheHashOfTheShell) {
    const RshellAlarmInfo record = ShellUnderShell();
    ReplaceProcess(200, 100, "bash " + script);
    ReplaceProcess(300, 200, "bash " + privateProgram);
    Expect(record, script, shellDigest);
}

TEST_F(AttackSource, IsTheProcessesOwnScriptIfTheParentHasNone) {
    const RshellAlarmInfo record = ShellUnderShell();
    ReplaceProcess(300, 200, "bash " + script);
    Expect(record, script, shellDigest);
}

TEST_F(AttackSource, IsTheParentsCommandLineIfTheArgumentIsACommonCommand) {
    const RshellAlarmInfo record = ShellUnderShell();
    ReplaceProcess(200, 100, "bash " + shell);
    Expect(record, "bash -i", bashInteractiveDigest);
}

TEST_F(AttackSource, IsTheParentsCommandLineWithItsOwnHash) {
    Expect(ShellUnderShell(), "bash -i", bashInteractiveDigest);
    EXPECT_TRUE(Log().empty());
}

TEST_F(AttackSource, IsUnchangedIfTheParentsCommandLineIsOneWord) {
    for (const char* words : {"bash", " bash  ", ""}) {
        Remove(300);
        Remove(200);
        Fake::TheAgent().log.clear();
        RshellAlarmInfo record = ShellUnderShell();
        record.parentCmdline = words;
        Expect(record, "what came in", shellDigest);
        EXPECT_EQ(Log(), std::vector<std::string>{"cmdline is not enough to get hash"}) << words;
    }
}

TEST_F(AttackSource, HashesEveryByteOfTheParentsCommandLine) {
    RshellAlarmInfo record = ShellUnderShell();
    record.parentCmdline = std::string("a \0b", 4);
    Expect(record, record.parentCmdline, "9486d3a0d9a7030390da0c8c8fda9c33aec548e3a0f0558c07aaf5b23c5190da");
}

}  // namespace
