#include "alarm/reverse_shell_alarm.h"

#include "alarm/alarm_history.h"
#include "tests/support/instant_scan_fixture.h"

namespace {

using std::chrono::microseconds;
using std::chrono::milliseconds;
using namespace std::string_literals;

// A private program 300 under a shell 200 and a foreign connection with inode 51: its alarm passes all checks.
class ReverseShellAlarm : public InstantScanTest {
protected:
    void SetUp() override {
        InstantScanTest::SetUp();
        if (IsSkipped()) {
            return;
        }
        program = folder.Write("private", "a private program");
        AddProcess(300, 200, program, "private -i");
        AddProcess(200, 100, shell, "bash");
        proc->AddDescriptor(200, 0, "/dev/null");
    }

    // The process as AddRshellAlarmFanotify receives it.
    ProcInfo Private() const {
        ProcInfo info;
        info.pid = 300;
        info.ppid = 200;
        info.path = program;
        info.cmdline = "private -i";
        return info;
    }

    // True if the alarm gives an event. Earlier alarms are forgotten before each call.
    bool Reports(const SocketInfo& sock) {
        ForgetAlarms();
        Fake::TheAgent().events.clear();
        AddRshellAlarm(300, sock, sock.inode);
        return !Events().empty();
    }

    bool ReportsInHand(const SocketInfo& sock) {
        ForgetAlarms();
        Fake::TheAgent().events.clear();
        AddRshellAlarmFanotify(200, Private(), sock, sock.inode);
        return !Events().empty();
    }

    void GiveDescriptors(int pid, int count) {
        std::filesystem::remove_all(proc->Folder() / std::to_string(pid) / "fd");
        std::filesystem::create_directory(proc->Folder() / std::to_string(pid) / "fd");
        for (int fd = 0; fd < count; ++fd) {
            proc->AddDescriptor(pid, fd, "/nowhere");
        }
    }

    std::string program;
};

TEST_F(ReverseShellAlarm, ContainsTheProcessItsParentAndTheConnection) {
    SetWorkingDirectory(300, "/tmp");
    SetWorkingDirectory(200, "/srv");
    AddRshellAlarm(300, ForeignConnection(51), 51);
    const auto content = Content();
    EXPECT_EQ(content["pid"], 300);
    EXPECT_EQ(content["path"], program);
    EXPECT_EQ(content["ppid"], 200);
    EXPECT_EQ(content["parentPath"], shell);
    EXPECT_EQ(content["cmdline"], "(/tmp) private -i");
    EXPECT_EQ(content["parentCmdline"], "(/srv) bash");
    EXPECT_EQ(content["inode"], "51");
    EXPECT_EQ(content["sourcePath"], program);
    EXPECT_EQ(content["hash"].Text().size(), 64U);
    EXPECT_EQ(content["localIp"], "198.51.100.3");
    EXPECT_EQ(content["localPort"], 40001);
    EXPECT_EQ(content["remoteIp"], "192.0.2.7");
    EXPECT_EQ(content["remotePort"], 4444);
}

TEST_F(ReverseShellAlarm, DoesNotReadAGivenProcessAgain) {
    Remove(300);
    AddRshellAlarmFanotify(200, Private(), ForeignConnection(51), 51);
    const auto content = Content();
    EXPECT_EQ(content["pid"], 300);
    EXPECT_EQ(content["ppid"], 200);
    EXPECT_EQ(content["parentPath"], shell);
    EXPECT_EQ(content["cmdline"], "() private -i") << "the directory of an ended process is empty";
}

TEST_F(ReverseShellAlarm, ContainsTheGivenInode) {
    AddRshellAlarm(300, ForeignConnection(51), 4294967295UL);
    EXPECT_EQ(Content()["inode"], "4294967295");
}

TEST_F(ReverseShellAlarm, IsNotRaisedForAConnectionOfTheHostToItself) {
    SocketInfo own = LoopbackConnection(51);
    EXPECT_FALSE(Reports(own));
    EXPECT_FALSE(ReportsInHand(own));
    for (const int type : {tcp6Table, 2, 8}) {
        own.type = type;
        EXPECT_FALSE(Reports(own)) << type;
    }
    EXPECT_FALSE(IsRepeatedAlarm("bash,300,4444")) << "dropped before the key is stored";
    own.type = rawTable;
    EXPECT_TRUE(Reports(own)) << "AddRshellAlarm excepts raw sockets";
    EXPECT_FALSE(ReportsInHand(own)) << "AddRshellAlarmFanotify does not";
}

TEST_F(ReverseShellAlarm, IsNotDroppedAsASelfConnectionWithoutAddresses) {
    SocketInfo sock = ForeignConnection(51);
    sock.localIp = sock.remoteIp = 0;
    EXPECT_FALSE(Reports(sock));
    EXPECT_TRUE(IsRepeatedAlarm("51")) << "the last check drops it";
    EXPECT_FALSE(ReportsInHand(sock));
    EXPECT_TRUE(IsRepeatedAlarm("51")) << "the last check drops it";
}

TEST_F(ReverseShellAlarm, IsDroppedIfTheProcessOrItsParentCannotBeRead) {
    Remove(200);
    EXPECT_FALSE(Reports(ForeignConnection(51))) << "parent";
    EXPECT_FALSE(ReportsInHand(ForeignConnection(51))) << "parent";
    AddProcess(200, 100, shell, "bash");
    proc->AddDescriptor(200, 0, "/dev/null");
    EXPECT_TRUE(Reports(ForeignConnection(51)));
    Remove(300);
    EXPECT_FALSE(Reports(ForeignConnection(51))) << "process";
    EXPECT_FALSE(IsRepeatedAlarm("bash,300,4444")) << "dropped before the key is stored";
    EXPECT_TRUE(Log().empty());
}

TEST_F(ReverseShellAlarm, IsRaisedOncePerParentProcessAndPort) {
    AddRshellAlarm(300, ForeignConnection(51), 51);
    AddRshellAlarm(300, ForeignConnection(52), 52);
    EXPECT_EQ(Events().size(), 1U);
    SocketInfo otherPort = ForeignConnection(53);
    otherPort.remotePort = 4445;
    AddRshellAlarm(300, otherPort, 53);
    EXPECT_EQ(Events().size(), 2U);
    EXPECT_TRUE(Log().empty()) << "a repeat is not logged";
}

TEST_F(ReverseShellAlarm, UsesDifferentHistoryKeysPerFunction) {
    AddRshellAlarm(300, ForeignConnection(51), 51);
    EXPECT_TRUE(IsRepeatedAlarm("bash,300,4444"));
    EXPECT_FALSE(IsRepeatedAlarm("300,bash,4444"));
    ForgetAlarms();
    AddRshellAlarmFanotify(200, Private(), ForeignConnection(52), 52);
    EXPECT_TRUE(IsRepeatedAlarm("300,bash,4444"));
    EXPECT_FALSE(IsRepeatedAlarm("bash,300,4444"));
}

TEST_F(ReverseShellAlarm, IsRaisedAgainForANewProcessWithANewSocket) {
    AddProcess(301, 200, program, "private -i");
    AddRshellAlarm(300, ForeignConnection(51), 51);
    AddRshellAlarm(301, ForeignConnection(52), 52);
    EXPECT_EQ(Events().size(), 2U);
}

TEST_F(ReverseShellAlarm, IsRaisedOncePerSocketForAllItsHolders) {
    AddProcess(301, 200, program, "private -i");
    AddRshellAlarm(300, ForeignConnection(51), 51);
    AddRshellAlarm(301, ForeignConnection(51), 51);
    ASSERT_EQ(Events().size(), 1U);
    EXPECT_EQ(Content()["pid"], 300);
    ProcInfo third = Private();
    third.pid = 302;
    AddRshellAlarmFanotify(200, third, ForeignConnection(51), 51);
    EXPECT_EQ(Events().size(), 1U);
}

TEST_F(ReverseShellAlarm, IsRaisedAgainAfterAnHour) {
    AddRshellAlarm(300, ForeignConnection(51), 51);
    TimeRecorder::Advance(std::chrono::seconds(3500));
    AddRshellAlarm(300, ForeignConnection(51), 51);
    EXPECT_EQ(Events().size(), 1U);
    TimeRecorder::Advance(std::chrono::seconds(200));
    AddRshellAlarm(300, ForeignConnection(51), 51);
    EXPECT_EQ(Events().size(), 2U);
}

TEST_F(ReverseShellAlarm, IsNotRaisedForABusinessCommandOverTcp) {
    Remove(300);
    AddProcess(300, 200, program, "private -c id");
    EXPECT_FALSE(Reports(ForeignConnection(51)));
    EXPECT_EQ(Log(), std::vector<std::string>{"proc has busniess cmdline.[proc=300]"});
    EXPECT_EQ(Fake::TheAgent().log[0].source, "detect_shell");
    EXPECT_TRUE(IsRepeatedAlarm("bash,300,4444")) << "its key is stored";
    EXPECT_FALSE(IsRepeatedAlarm("51")) << "its socket is not stored";

    SocketInfo other = ForeignConnection(51);
    other.type = tcp6Table;
    EXPECT_TRUE(Reports(other)) << "only TCP over IPv4 is excepted";
    EXPECT_TRUE(ReportsInHand(ForeignConnection(51))) << "callers of AddRshellAlarmFanotify check this themselves";
}

TEST_F(ReverseShellAlarm, RequiresBothPorts) {
    SocketInfo sock = ForeignConnection(51);
    sock.localPort = 0;
    EXPECT_FALSE(Reports(sock));
    sock = ForeignConnection(51);
    sock.remotePort = 0;
    EXPECT_FALSE(Reports(sock));
    sock = RawSocket(51);
    sock.remotePort = 0;
    EXPECT_FALSE(ReportsInHand(sock));
    EXPECT_FALSE(IsRepeatedAlarm("51")) << "its socket is not stored";
}

TEST_F(ReverseShellAlarm, RequiresAParentWithOneTo401Descriptors) {
    struct Case {
        int descriptors;
        bool reported;
    };
    for (const Case& row : {Case{0, false}, Case{1, true}, Case{401, true}, Case{402, false}}) {
        GiveDescriptors(200, row.descriptors);
        EXPECT_EQ(Reports(ForeignConnection(51)), row.reported) << row.descriptors;
        EXPECT_EQ(ReportsInHand(ForeignConnection(51)), row.reported) << row.descriptors;
    }
    std::filesystem::remove_all(proc->Folder() / "200" / "fd");
    EXPECT_FALSE(Reports(ForeignConnection(51))) << "no descriptors to count";
}

TEST_F(ReverseShellAlarm, CountsOnlyTheParentsDescriptors) {
    GiveDescriptors(300, 402);
    EXPECT_TRUE(Reports(ForeignConnection(51)));
    GiveDescriptors(300, 0);
    EXPECT_TRUE(Reports(ForeignConnection(51)));
}

TEST_F(ReverseShellAlarm, KeepsTheKeyOfAFindingThatIsDroppedLater) {
    GiveDescriptors(200, 402);
    AddRshellAlarm(300, ForeignConnection(51), 51);
    GiveDescriptors(200, 1);
    AddRshellAlarm(300, ForeignConnection(51), 51);
    EXPECT_TRUE(Events().empty());
    EXPECT_FALSE(IsRepeatedAlarm("51")) << "dropped before the socket is stored";
}

TEST_F(ReverseShellAlarm, IsNotRaisedForAWhitelistedProcessOrParent) {
    ReplaceWhitelist({"private"});
    EXPECT_FALSE(Reports(ForeignConnection(51)));
    ReplaceWhitelist({"bas"});
    EXPECT_FALSE(ReportsInHand(ForeignConnection(51)));
    EXPECT_FALSE(IsRepeatedAlarm("51"));
    ReplaceWhitelist({"rivate", "(/"});
    EXPECT_TRUE(Reports(ForeignConnection(51)));
}

// The parent is not checked if the process is whitelisted.
TEST_F(ReverseShellAlarm, ChecksTheWhitelistForTheProcessBeforeItsParent) {
    const auto asked = [this](const std::string& exempt) {
        ReplaceWhitelist({exempt});
        ForgetAlarms();
        const size_t mark = TimeRecorder::Pauses().size();
        ProcInfo own = Private();
        own.cmdline = "b";
        AddRshellAlarmFanotify(200, own, ForeignConnection(51), 51);
        return std::ranges::count(PausesSince(mark), milliseconds(10));
    };
    const auto both = asked("bash");
    EXPECT_EQ(asked("b"), both - 1);
    EXPECT_TRUE(Events().empty());
}

// Each check of the whitelist pauses for 10 ms, so the pauses show whether it was made.
TEST_F(ReverseShellAlarm, ChecksTheWhitelistAfterPortsAndDescriptors) {
    const auto pauses = [this](const SocketInfo& info) {
        ForgetAlarms();
        const size_t mark = TimeRecorder::Pauses().size();
        AddRshellAlarmFanotify(200, Private(), info, info.inode);
        return std::ranges::count(PausesSince(mark), milliseconds(10));
    };
    SocketInfo sock = ForeignConnection(51);
    const auto all = pauses(sock);
    sock.remotePort = 0;
    EXPECT_EQ(pauses(sock), all - 2);
    GiveDescriptors(200, 402);
    EXPECT_EQ(pauses(ForeignConnection(51)), all - 2);
}

TEST_F(ReverseShellAlarm, IsNotSentForAPeerWithoutAnAddressOrA16BitPort) {
    SocketInfo sock = ForeignConnection(51);
    sock.remoteIp = 0;
    EXPECT_FALSE(Reports(sock));
    EXPECT_EQ(TimeRecorder::Pauses().back(), milliseconds(1)) << "the pause is taken nevertheless";
    EXPECT_TRUE(IsRepeatedAlarm("51")) << "the socket is stored";
    sock = ForeignConnection(51);
    sock.remotePort = 65536;
    EXPECT_FALSE(Reports(sock));
    EXPECT_EQ(TimeRecorder::Pauses().back(), milliseconds(1));
    sock.remotePort = 65537;
    sock.localPort = 131072;
    EXPECT_TRUE(Reports(sock));
    EXPECT_EQ(Content()["remotePort"], 1);
    EXPECT_EQ(Content()["localPort"], 0);
}

TEST_F(ReverseShellAlarm, PausesAMillisecondAfterSending) {
    EXPECT_TRUE(Reports(ForeignConnection(51)));
    EXPECT_EQ(TimeRecorder::Pauses().back(), milliseconds(1));
    GiveDescriptors(200, 0);
    EXPECT_FALSE(Reports(ForeignConnection(51)));
    EXPECT_EQ(TimeRecorder::Pauses().back(), microseconds(100)) << "no such pause if it is dropped earlier";
}

TEST_F(ReverseShellAlarm, ContainsTheScriptOfTheProcessOrElseOfItsParent) {
    const std::string script = folder.Write("script", "own");
    const std::string parentScript = folder.Write("parentScript", "parent's");
    ProcInfo own = Private();
    own.path = "";  // only the script is left as its source
    proc->AddDescriptor(200, 255, parentScript);
    AddRshellAlarmFanotify(200, own, ForeignConnection(51), 51);
    EXPECT_EQ(Content()["sourcePath"], parentScript);
    EXPECT_EQ(Content()["hash"], "");

    Fake::TheAgent().events.clear();
    ForgetAlarms();
    proc->AddDescriptor(300, 255, script);
    AddRshellAlarmFanotify(200, own, ForeignConnection(51), 51);
    EXPECT_EQ(Content()["sourcePath"], script);
}

// The script is that of the process's ppid, which may differ from the given parent.
TEST_F(ReverseShellAlarm, ContainsTheScriptOfTheProcessesOwnParent) {
    const std::string script = folder.Write("script", "text");
    AddProcess(250, 100, shell, "bash");
    proc->AddDescriptor(250, 255, script);
    ProcInfo own = Private();
    own.path = "";
    own.ppid = 250;
    AddRshellAlarmFanotify(200, own, ForeignConnection(51), 51);
    EXPECT_EQ(Content()["sourcePath"], script);
    EXPECT_EQ(Content()["ppid"], 200);
}

TEST_F(ReverseShellAlarm, HashesTheParentsCommandLineWithoutItsDirectory) {
    SetWorkingDirectory(200, "/srv");
    Remove(300);
    AddProcess(300, 200, shell, "bash");
    Remove(200);
    AddProcess(200, 100, shell, "bash -i");
    proc->AddDescriptor(200, 0, "/dev/null");
    SetWorkingDirectory(200, "/srv");
    EXPECT_TRUE(Reports(ForeignConnection(51)));
    EXPECT_EQ(Content()["parentCmdline"], "(/srv) bash -i");
    EXPECT_EQ(Content()["sourcePath"], "bash -i");
}

// GetProcInfo fails for init.
TEST_F(ReverseShellAlarm, IsDroppedForAProcessUnderInit) {
    AddProcess(1, 0, "/sbin/init", "init");
    proc->AddDescriptor(1, 0, "/dev/null");
    Remove(300);
    AddProcess(300, 1, program, "private -i");
    EXPECT_FALSE(Reports(ForeignConnection(51)));
    AddRshellAlarmFanotify(1, Private(), ForeignConnection(52), 52);
    EXPECT_TRUE(Events().empty());
}

TEST_F(ReverseShellAlarm, IsOneValidLineForHostileCommandLines) {
    const std::string hostile =
        "private\0\"\\\n\r\x1b[31m\xff\xfe\xc3\0'\"}],\"pid\":1,\n"s + std::string(100000, 'A') + "\0"s;
    proc->AddFile(300, "cmdline", hostile);
    proc->AddFile(200, "cmdline", hostile);
    AddRshellAlarm(300, ForeignConnection(51), 51);
    const auto content = Content();
    EXPECT_EQ(Events().at(0).find('\n'), std::string::npos);
    EXPECT_EQ(content.Size(), 13U);
    const std::string kept =
        "() private \"\\\n\r\x1b[31m\uFFFD\uFFFD\uFFFD '\"}],\"pid\":1,\n" + std::string(100000, 'A');
    EXPECT_EQ(content["cmdline"], kept);
    EXPECT_EQ(content["parentCmdline"], kept);
}

// The search of the source may take seconds. This line ends it.
TEST_F(ReverseShellAlarm, ContainsTheWorkingDirectoryAfterTheSearchOfTheSource) {
    SetWorkingDirectory(300, "/tmp");
    Fake::TheAgent().atEachCall = [this](const std::string& call) {
        if (call == "log cmdline is not enough to get hash") {
            std::filesystem::remove(proc->Folder() / "300" / "cwd");
            SetWorkingDirectory(300, "/srv");
        }
    };
    ProcInfo own = Private();
    own.path = shell;
    AddRshellAlarmFanotify(200, own, ForeignConnection(51), 51);
    EXPECT_EQ(Content()["cmdline"], "(/srv) private -i");
}

TEST_F(ReverseShellAlarm, SearchesTheSourceOnlyForANewSocket) {
    ProcInfo own = Private();
    own.path = shell;
    AddRshellAlarmFanotify(200, own, ForeignConnection(51), 51);
    EXPECT_TRUE(HasLogged("cmdline is not enough to get hash"));
    own.pid = 301;
    AddRshellAlarmFanotify(200, own, ForeignConnection(51), 51);
    EXPECT_EQ(Log().size(), 1U);
}

}  // namespace
