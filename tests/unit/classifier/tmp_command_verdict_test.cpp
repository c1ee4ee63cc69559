#include "tmp_command_fixture.h"

namespace {

using namespace std::chrono_literals;

class TmpCommandVerdict : public TmpCommandTest {
protected:
    void SetUp() override {
        TmpCommandTest::SetUp();
        if (!IsSkipped()) {
            AddReader(parent);
        }
    }

    static bool Judge(const std::string& cmdline = "ls -l") {
        TPROC_INFO last = Command(lastPid, 20 * second);
        last.cmdline = cmdline;
        return RaiseTmpCommandAlarm(parent, last);
    }

    // The parent reads its socket at the probes marked '1' and waits elsewhere at the others.
    void ReadAtProbes(const std::string& pattern) {
        AtEachProbe([this, pattern](size_t probe) { Block(parent, pattern.at(probe) == '1' ? reading : elsewhere); });
    }

    static bool HasEvent() { return !Fake::TheAgent().events.empty(); }
};

TEST_F(TmpCommandVerdict, ReportsTheLastCommandAndItsParent) {
    const std::string program = folder.Write("tool", "a program");
    std::filesystem::create_symlink("/srv", tree->Folder() / std::to_string(parent) / "cwd");
    TPROC_INFO last = Command(lastPid, 20 * second);
    last.path = program;
    EXPECT_TRUE(RaiseTmpCommandAlarm(parent, last));
    const std::string inode = std::to_string(SocketOf(parent).inode);
    // sha256 of "a program"
    const std::string hash = "d69ea8cda2433733c1ce02de65da8f48e6a3dbba6bb18876a2062908e54ef7cb";
    EXPECT_EQ(
        Fake::TheAgent().events,
        std::vector<std::string>{
            R"({"eventType":"reverse-shell","eventTime":"2024-02-03T04:05:06.789Z","eventContent":{"pid":602,"path":")" +
            program +
            R"(","ppid":500,"parentPath":"/opt/app/server","cmdline":"() ls -l","parentCmdline":"(/srv) server --go",)"
            R"("inode":")" +
            inode + R"(","sourcePath":")" + program + R"(","hash":")" + hash +
            R"(","localIp":"198.51.113.3","localPort":40001,"remoteIp":"203.0.113.7","remotePort":4444}})"});
    EXPECT_EQ(Details(),
              (std::vector<std::string>{"ppid write char num.[ppid=500 charNum=4]", "found type 6 rshell.[pid=602]"}));
}

TEST_F(TmpCommandVerdict, ReportsTheScriptOfTheParentIfTheCommandsProgramIsGone) {
    const std::string script = folder.Write("script", "ls");
    tree->AddDescriptor(parent, 255, script);
    TPROC_INFO last = Command(lastPid, 20 * second);
    last.path = folder.Path("removed");
    EXPECT_TRUE(RaiseTmpCommandAlarm(parent, last));
    ASSERT_TRUE(HasEvent());
    EXPECT_NE(Fake::TheAgent().events[0].find(R"("sourcePath":")" + script + R"(",)"), std::string::npos);
}

TEST_F(TmpCommandVerdict, RequiresTwoPositiveProbesInARowAmongFive) {
    for (unsigned int bits = 0; bits < 32; ++bits) {
        std::string pattern;
        for (unsigned int probe = 0; probe < 5; ++probe) {
            pattern += (bits >> probe & 1U) != 0 ? '1' : '0';
        }
        BeginAfresh();
        SocketOf(parent).firstSeen = Now();
        ReadAtProbes(pattern);
        const size_t pair = pattern.find("11");
        const bool found = pair != std::string::npos;
        EXPECT_EQ(Judge(), found) << pattern;
        EXPECT_EQ(HasEvent(), found) << pattern;
        EXPECT_EQ(CountProbes(), found ? pair + 2 : 5) << pattern;
    }
}

TEST_F(TmpCommandVerdict, PausesBeforeEachProbe) {
    Block(parent, elsewhere);
    ReadAtProbes("11000");
    EXPECT_TRUE(Judge()) << "the first sample follows the first pause";
}

TEST_F(TmpCommandVerdict, DoesNotResumeAnInterruptedProbePause) {
    Block(parent, elsewhere);
    AtEachProbe([](size_t probe) {
        if (probe < 2) {
            TimeRecorder::InterruptNext(150ms);
        }
    });
    EXPECT_FALSE(Judge());
    EXPECT_EQ(CountProbes(), 5U);
    EXPECT_EQ(CountPauses(150ms), 0U);
}

TEST_F(TmpCommandVerdict, AcceptsReadsOfInternetSocketsOnly) {
    const struct {
        const char* function;
        bool reading;
    } cases[] = {
        {"tcp_recvmsg", true}, {"inet_recvmsg", true}, {"inet6_recvmsg", true}, {"udp_recvmsg", true},
        {"pipe_read", false},  {"do_select", false},   {"do_poll", false},      {"unix_stream_recvmsg", false},
    };
    for (const auto& row : cases) {
        BeginAfresh();
        SocketOf(parent).firstSeen = Now();
        Block(parent, row.function);
        EXPECT_EQ(Judge(), row.reading) << row.function;
    }
}

TEST_F(TmpCommandVerdict, RequiresAProcessThatHasWritten) {
    const struct {
        const char* io;
        const char* count;
        bool written;
    } cases[] = {
        {"rchar: 17\nwchar: 0\n", "0", false},
        {"rchar: 17\n", "0", false},
        {"", "0", false},
        {"wchar: 1\n", "1", true},
        {"rchar: 0\nwchar: 99999999999999999999\nsyscr: 0\n", "2147483647", true},
    };
    for (const auto& row : cases) {
        BeginAfresh();
        SocketOf(parent).firstSeen = Now();
        Write(parent, "io", row.io);
        EXPECT_EQ(Judge(), row.written) << row.io;
        EXPECT_TRUE(HasDetail(std::string("ppid write char num.[ppid=500 charNum=") + row.count + "]")) << row.io;
        EXPECT_EQ(HasEvent(), row.written) << row.io;
    }
}

TEST_F(TmpCommandVerdict, ChecksWrittenBytesOnlyIfTheParentReads) {
    Block(parent, elsewhere);
    EXPECT_FALSE(Judge());
    EXPECT_TRUE(Fake::TheAgent().log.empty());
}

TEST_F(TmpCommandVerdict, RequiresASocketOfAtMost100Seconds) {
    const struct {
        long age;
        bool young;
    } cases[] = {{0, true}, {99, true}, {100, true}, {101, false}, {86400, false}};
    for (const auto& row : cases) {
        BeginAfresh();
        SocketOf(parent).firstSeen = Now() - row.age;
        EXPECT_EQ(Judge(), row.young) << row.age;
    }
}

TEST_F(TmpCommandVerdict, TakesTheSocketsAgeAfterTheProbes) {
    ReadAtProbes("00011");
    SocketOf(parent).firstSeen = Now() - 100;
    EXPECT_FALSE(Judge()) << "too old after one second of probes";
    EXPECT_EQ(CountProbes(), 5U);
}

TEST_F(TmpCommandVerdict, RequiresAConnectionWithAnotherHost) {
    const struct {
        const char* what;
        void (*change)(SocketInfo&);
        bool foreign;
    } cases[] = {
        {"as it is", [](SocketInfo&) {}, true},
        {"listening", [](SocketInfo& socket) { socket.state = tcpListen; }, false},
        {"this host", [](SocketInfo& socket) { socket.remoteIp = socket.localIp; }, false},
        {"no peer", [](SocketInfo& socket) { socket.remoteIp = 0; }, false},
        {"ssh", [](SocketInfo& socket) { socket.localPort = 22; }, false},
    };
    const SocketInfo original = SocketOf(parent);
    for (const auto& row : cases) {
        BeginAfresh();
        SocketInfo changed = original;
        changed.firstSeen = Now();
        row.change(changed);
        socketTable[original.inode] = changed;
        EXPECT_EQ(Judge(), row.foreign) << row.what;
    }
}

TEST_F(TmpCommandVerdict, ReadsTheSocketTableForANewSocket) {
    const unsigned long inode = SocketOf(parent).inode;
    socketTable.clear();
    tree->AddFile("net/tcp", "   0: 037133C6:9C41 077100CB:115C 01 00000000:00000000 00:00000000 00000000  0 0 " +
                                 std::to_string(inode) + " 1\n");
    EXPECT_TRUE(Judge());
    EXPECT_TRUE(HasEvent());
    EXPECT_EQ(socketTable.at(inode).remotePort, 4444);
}

TEST_F(TmpCommandVerdict, RejectsAnUnknownSocket) {
    socketTable.clear();
    EXPECT_FALSE(Judge());
    EXPECT_FALSE(HasDetail("found type 6 rshell.[pid=602]"));
}

TEST_F(TmpCommandVerdict, ExemptsALastCommandThatRunsAFile) {
    const std::string script = folder.Write("script", "echo");
    for (const std::string& cmdline :
         {"sh " + script, "sh " + script + " -v", std::string("sh -c ls"), std::string("sh -x ls"), "cat " + script}) {
        EXPECT_FALSE(Judge(cmdline)) << cmdline;
        EXPECT_EQ(CountProbes(), 0U) << cmdline;
    }
    EXPECT_TRUE(Judge("cat -n " + script)) << "only the second word counts";
}

TEST_F(TmpCommandVerdict, ExemptsTheSshDaemon) {
    const std::string daemon = folder.Write("sshd", "a program");
    End(parent);
    AddReader(parent + 1);
    tree->Add({.pid = parent, .ppid = 1, .exe = daemon});
    sshdInodes = {Inode("sshd")};
    EXPECT_FALSE(Judge());
    EXPECT_EQ(CountProbes(), 0U);
    EXPECT_EQ(Details(), std::vector<std::string>{"sshd shell"});
}

TEST_F(TmpCommandVerdict, ExemptsAParentThatIsGone) {
    End(parent);
    EXPECT_FALSE(Judge());
    EXPECT_EQ(CountProbes(), 0U);
}

TEST_F(TmpCommandVerdict, ExemptsAWhitelistedParent) {
    for (const char* entry : {"server --go", "server", "serv"}) {
        ReplaceWhitelist({entry});
        EXPECT_FALSE(Judge()) << entry;
        EXPECT_EQ(CountProbes(), 0U) << entry;
    }
    ReplaceWhitelist({"server --goes", "--go", "other"});
    EXPECT_TRUE(Judge());
}

TEST_F(TmpCommandVerdict, IsTrueForAWhitelistedCommandWithoutAnEvent) {
    ReplaceWhitelist({"ls"});
    EXPECT_TRUE(Judge());
    EXPECT_FALSE(HasEvent());
}

TEST_F(TmpCommandVerdict, EndsTheProbesAtAStop) {
    Block(parent, elsewhere);
    AtEachProbe([](size_t probe) {
        if (probe == 1) {
            moduleRunning = 0;
        }
    });
    EXPECT_FALSE(Judge());
    EXPECT_EQ(CountProbes(), 2U);
}

TEST_F(TmpCommandVerdict, IsFalseForAParentThatEndsBetweenProbes) {
    AtEachProbe([this](size_t probe) {
        if (probe == 1) {
            End(parent);
        }
    });
    EXPECT_FALSE(Judge());
    EXPECT_EQ(CountProbes(), 5U);
    EXPECT_FALSE(HasEvent());
}

}  // namespace
