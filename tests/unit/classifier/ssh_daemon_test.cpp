#include "classifier/ssh_daemon.h"

#include "classifier_fixture.h"

namespace {

class SshDaemon : public ClassifierTest {
protected:
    SshDaemon() : program(folder.Write("sshd", "the daemon")) { sshdInodes = {InodeOf(program)}; }

    std::string program;
};

TEST_F(SshDaemon, IsRecognizedByTheInodeOfItsProgram) {
    AddProcess(300, 1, program, "sshd");
    EXPECT_TRUE(IsSshdShell(300));
    EXPECT_EQ(Log(), std::vector<std::string>{"sshd shell"});
}

TEST_F(SshDaemon, IsRecognizedBehindAHardLink) {
    const std::string other = folder.Path("tool");
    std::filesystem::create_hard_link(program, other);
    AddProcess(300, 1, other, "tool");
    EXPECT_TRUE(IsSshdShell(300));
}

TEST_F(SshDaemon, IsNotRecognizedByItsName) {
    AddProcess(300, 1, folder.Write("other/sshd", "an impostor"), "sshd");
    EXPECT_FALSE(IsSshdShell(300));
    EXPECT_TRUE(Log().empty());
}

TEST_F(SshDaemon, IsAssumedIfTheProgramCannotBeRead) {
    proc->Add({.pid = 300, .ppid = 1, .exe = ""});
    EXPECT_TRUE(IsSshdShell(300)) << "no link";
    EXPECT_TRUE(IsSshdShell(301)) << "no process";
    EXPECT_TRUE(Log().empty());
}

TEST_F(SshDaemon, IsNotAssumedIfTheProgramFileIsDeleted) {
    AddProcess(300, 1, program + " (deleted)", "sshd");
    EXPECT_FALSE(IsSshdShell(300));
}

TEST_F(SshDaemon, IsNotRecognizedOnAHostWithoutOne) {
    sshdInodes.clear();
    AddProcess(300, 1, program, "sshd");
    EXPECT_FALSE(IsSshdShell(300));
}

}  // namespace
