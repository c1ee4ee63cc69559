#include "inspect/socket_table.h"

#include <mutex>

#include "inspect_fixture.h"
#include "table_text.h"

namespace {

using namespace std::string_literals;
using std::chrono::milliseconds;
using std::chrono::seconds;

constexpr unsigned long inode = 5000;
constexpr long since = 500;
constexpr milliseconds linePause{5};

const SocketInfo abnormal{.type = tcpTable,
                          .inode = inode,
                          .state = tcpEstablished,
                          .localIp = 1,
                          .remoteIp = 2,
                          .localPort = 40001,
                          .remotePort = 4444,
                          .firstSeen = since};

SocketInfo With(const SocketInfo& base, unsigned int state) {
    SocketInfo info = base;
    info.state = state;
    return info;
}

TEST(AbnormalSocket, IsAnySocketThatIsNotTcp) {
    for (const int type : {2, 3, 5, 6, 7, 8}) {
        EXPECT_TRUE(IsAbnormalSocket({.type = type, .state = stateOfOtherTables})) << type;
        EXPECT_TRUE(IsAbnormalSocket({.type = type, .state = 10, .localIp = 1, .remoteIp = 1, .localPort = 22}))
            << type;
    }
}

TEST(AbnormalSocket, IsATcpSocketConnectedOrConnectingToAnotherAddress) {
    for (const int type : {tcpTable, tcp6Table}) {
        for (unsigned int state = 0; state <= 12; ++state) {
            SocketInfo info = With(abnormal, state);
            info.type = type;
            EXPECT_EQ(IsAbnormalSocket(info), state >= 1 && state <= 3) << state;
        }
    }
}

TEST(AbnormalSocket, IsNoneWithoutAPeerOrWithItsOwnAddressAsPeerOrOnTheSshPort) {
    for (const int type : {tcpTable, tcp6Table}) {
        SocketInfo info = abnormal;
        info.type = type;
        EXPECT_TRUE(IsAbnormalSocket(info));
        info.remoteIp = 0;
        EXPECT_FALSE(IsAbnormalSocket(info)) << "no peer";
        info = abnormal;
        info.localIp = info.remoteIp;
        EXPECT_FALSE(IsAbnormalSocket(info)) << "its own address";
        info = abnormal;
        info.localPort = 22;
        EXPECT_FALSE(IsAbnormalSocket(info)) << "SSH service";
        info.localPort = 23;
        EXPECT_TRUE(IsAbnormalSocket(info));
        info.remotePort = 22;
        EXPECT_TRUE(IsAbnormalSocket(info)) << "to another host's SSH service";
    }
}

TEST(AbnormalSocket, MayBeOnLoopback) {
    SocketInfo info = abnormal;
    info.localIp = Ipv4("127.0.0.1");
    info.remoteIp = Ipv4("127.0.0.1");
    EXPECT_FALSE(IsAbnormalSocket(info));
    info.remoteIp = Ipv4("127.0.0.2");
    EXPECT_TRUE(IsAbnormalSocket(info));
}

TEST(AbnormalSocket, DoesNotListen) {
    EXPECT_FALSE(IsAbnormalSocket({.type = tcpTable, .state = tcpListen, .localPort = 4444}));
}

TEST(SocketRecord, BeginsAsATcpSocketWithoutAddresses) {
    const SocketInfo info;
    EXPECT_EQ(info.type, tcpTable);
    EXPECT_EQ(info.inode, 0UL);
    EXPECT_EQ(info.state, 0U);
    EXPECT_EQ(info.localIp, 0UL);
    EXPECT_EQ(info.remoteIp, 0UL);
    EXPECT_EQ(info.localPort, 0);
    EXPECT_EQ(info.remotePort, 0);
    EXPECT_EQ(info.firstSeen, 0);
}

class SocketTable : public ProcInspectTest {
protected:
    void SetUp() override {
        ProcInspectTest::SetUp();
        // The time of the last refresh is kept from test to test.
        static int test = 0;
        TimeRecorder::Advance(seconds(++test * 10000));
        HaveTcp({.inode = "7"});
    }

    // Sets the table that the next refresh reads.
    void HaveTcp(const TableLine& line) { proc->AddFile("net/tcp", line.Text()); }

    // Adds a known socket.
    static void Know(const SocketInfo& info) { socketTable[info.inode] = info; }

    // A refresh pauses per line, and SetUp writes one.
    static bool HasRefreshed() { return !TimeRecorder::Pauses().empty(); }

    bool refreshed = false;
    SocketInfo info{.type = 77};
};

TEST_F(SocketTable, ReturnsACopyOfAnEntry) {
    Know(abnormal);
    EXPECT_TRUE(FindSocketByInode(inode, info));
    EXPECT_EQ(info.remotePort, 4444);
    EXPECT_EQ(info.firstSeen, since);
}

TEST_F(SocketTable, LeavesTheRecordUnchangedIfThereIsNoEntry) {
    EXPECT_FALSE(FindSocketByInode(inode, info));
    EXPECT_EQ(info.type, 77);
    EXPECT_FALSE(HasRefreshed());
}

TEST_F(SocketTable, FindsAListeningSocketWithoutARefresh) {
    Know(With(abnormal, 10));
    EXPECT_TRUE(IsListenInodeByFlag(inode, info, refreshed));
    EXPECT_EQ(info.state, tcpListen);
    EXPECT_FALSE(refreshed);
    EXPECT_FALSE(HasRefreshed());
}

TEST_F(SocketTable, DoesNotRefreshToSeeWhetherAnEstablishedSocketListens) {
    Know(abnormal);
    HaveTcp({.state = tcpListen});
    EXPECT_FALSE(IsListenInodeByFlag(inode, info, refreshed));
    EXPECT_FALSE(refreshed);
    EXPECT_FALSE(HasRefreshed());
}

TEST_F(SocketTable, RefreshesOnceForASocketInAnotherState) {
    for (const unsigned int state : {2U, 3U, 8U, 11U}) {
        socketTable.clear();
        Know(With(abnormal, state));
        HaveTcp({.state = tcpListen});
        TimeRecorder::Advance(seconds(10));
        const size_t before = TimeRecorder::Pauses().size();
        refreshed = false;
        EXPECT_TRUE(IsListenInodeByFlag(inode, info, refreshed)) << state;
        EXPECT_TRUE(refreshed);
        EXPECT_EQ(info.state, tcpListen);
        EXPECT_EQ(TimeRecorder::Pauses().size() - before, 3U) << "one line, one table, one entry";
    }
}

TEST_F(SocketTable, ReportsThatASocketStillDoesNotListen) {
    Know(With(abnormal, 8));
    HaveTcp({.state = 8});
    EXPECT_FALSE(IsListenInodeByFlag(inode, info, refreshed));
    EXPECT_TRUE(refreshed);
    EXPECT_EQ(CountOf(TimeRecorder::Pauses(), linePause), 1U);
}

TEST_F(SocketTable, DoesNotRefreshTwiceForOneFlag) {
    HaveTcp({.state = tcpListen});
    refreshed = true;
    EXPECT_FALSE(IsListenInodeByFlag(inode, info, refreshed));
    EXPECT_FALSE(IsAbnormalInodeByFlag(inode, info, since, refreshed));
    EXPECT_EQ(info.type, 77);
    Know(With(abnormal, 8));
    EXPECT_FALSE(IsListenInodeByFlag(inode, info, refreshed));
    EXPECT_FALSE(IsAbnormalInodeByFlag(inode, info, since, refreshed));
    EXPECT_TRUE(refreshed);
    EXPECT_FALSE(HasRefreshed());
}

TEST_F(SocketTable, RefreshesOnceForAnUnknownSocket) {
    HaveTcp({.inode = "7"});
    EXPECT_FALSE(IsListenInodeByFlag(inode, info, refreshed));
    EXPECT_TRUE(refreshed);
    EXPECT_EQ(info.type, 77);
    EXPECT_FALSE(IsAbnormalInodeByFlag(inode, info, since, refreshed));
    EXPECT_EQ(CountOf(TimeRecorder::Pauses(), linePause), 1U);

    refreshed = false;
    TimeRecorder::Advance(seconds(10));
    EXPECT_FALSE(IsAbnormalInodeByFlag(inode, info, since, refreshed));
    EXPECT_TRUE(refreshed);
    EXPECT_EQ(info.type, 77);
    EXPECT_EQ(CountOf(TimeRecorder::Pauses(), linePause), 2U);
}

TEST_F(SocketTable, DoesNotJudgeAnUnknownSocketByTheCallersRecord) {
    refreshed = true;
    info = With(abnormal, tcpListen);
    EXPECT_FALSE(IsListenInodeByFlag(inode, info, refreshed));
    info = abnormal;
    EXPECT_FALSE(IsAbnormalInodeByFlag(inode, info, since, refreshed));
}

TEST_F(SocketTable, FindsAnAbnormalSocketWithoutARefresh) {
    Know(abnormal);
    EXPECT_TRUE(IsAbnormalInodeByFlag(inode, info, since, refreshed));
    EXPECT_TRUE(IsAbnormalInodeByFlag(inode, info, since - 1, refreshed));
    EXPECT_TRUE(IsAbnormalInodeByFlag(inode, info, -1, refreshed)) << "times are signed";
    EXPECT_EQ(info.remotePort, 4444);
    EXPECT_FALSE(refreshed);
    EXPECT_FALSE(HasRefreshed());
}

TEST_F(SocketTable, DoesNotRefreshForAnEstablishedSocketThatIsTooOld) {
    Know(abnormal);
    HaveTcp({});
    EXPECT_FALSE(IsAbnormalInodeByFlag(inode, info, since + 1, refreshed));
    EXPECT_FALSE(refreshed);
    EXPECT_FALSE(HasRefreshed());
}

TEST_F(SocketTable, DoesNotRefreshForAnEstablishedSocketOfSsh) {
    SocketInfo ssh = abnormal;
    ssh.localPort = 22;
    Know(ssh);
    EXPECT_FALSE(IsAbnormalInodeByFlag(inode, info, since, refreshed));
    EXPECT_FALSE(refreshed);
    EXPECT_FALSE(HasRefreshed());
}

TEST_F(SocketTable, RefreshesForAConnectingSocketThatIsTooOld) {
    Know(With(abnormal, tcpSynSent));
    HaveTcp({});
    EXPECT_TRUE(IsAbnormalInodeByFlag(inode, info, since + 1, refreshed)) << "new again after it was established";
    EXPECT_TRUE(refreshed);
    EXPECT_EQ(info.state, tcpEstablished);
    EXPECT_GT(info.firstSeen, since);
    EXPECT_EQ(CountOf(TimeRecorder::Pauses(), linePause), 1U);
}

TEST_F(SocketTable, FindsAnUnknownAbnormalSocket) {
    HaveTcp({});
    const long now = static_cast<long>(time(nullptr));
    EXPECT_TRUE(IsAbnormalInodeByFlag(inode, info, now, refreshed));
    EXPECT_TRUE(refreshed);
    EXPECT_EQ(info.firstSeen, now);
    refreshed = false;
    EXPECT_FALSE(IsAbnormalInodeByFlag(inode, info, now + 1, refreshed));
    EXPECT_FALSE(refreshed);
}

TEST_F(SocketTable, DoesNotFindAnUnknownSocketThatIsTooOld) {
    HaveTcp({});
    EXPECT_FALSE(IsAbnormalInodeByFlag(inode, info, static_cast<long>(time(nullptr)) + 1, refreshed));
    EXPECT_TRUE(refreshed);
}

TEST_F(SocketTable, IsRefreshedImmediatelyUnlessTheLastRefreshEndedExactlyOneSecondAgo) {
    const struct {
        int secondsLater;
        PauseList pauses;
    } cases[] = {{0, {}}, {1, {seconds(2)}}, {2, {}}, {3, {}}, {1, {seconds(2)}}, {-1, {}}, {100, {}}};
    std::filesystem::remove(proc->Folder() / "net/tcp");
    RefreshSocketTable();
    for (const auto& row : cases) {
        TimeRecorder::Advance(seconds(row.secondsLater));
        const size_t before = TimeRecorder::Pauses().size();
        RefreshSocketTable();
        const PauseList& pauses = TimeRecorder::Pauses();
        EXPECT_EQ(PauseList(pauses.begin() + static_cast<std::ptrdiff_t>(before), pauses.end()), row.pauses)
            << row.secondsLater;
    }
}

TEST_F(SocketTable, CountsTheSecondFromTheEndOfTheLastRefresh) {
    std::string text;
    for (int line = 0; line < 200; ++line) {
        text += tableHeader;
    }
    proc->AddFile("net/tcp", text);
    RefreshSocketTable();
    EXPECT_EQ(TimeRecorder::Slept(), seconds(1) + milliseconds(1));
    RefreshSocketTable();
    EXPECT_EQ(CountOf(TimeRecorder::Pauses(), seconds(2)), 0U) << "it began one second ago but ended just now";
    TimeRecorder::Advance(seconds(1));
    RefreshSocketTable();
    EXPECT_EQ(CountOf(TimeRecorder::Pauses(), seconds(2)), 1U);
}

TEST_F(SocketTable, SleepsPerLineTableAndEntryOfARefresh) {
    proc->AddFile("net/tcp", tableHeader + TableLine{}.Text());
    RefreshSocketTable();
    EXPECT_EQ(TimeRecorder::Pauses(),
              Repeated(2, linePause) + Repeated(1, milliseconds(1)) + Repeated(1, std::chrono::microseconds(200)));
}

TEST_F(SocketTable, ComparesARefreshWithThePreviousOne) {
    HaveTcp({.state = tcpSynSent});
    RefreshSocketTable();
    const time_t first = time(nullptr);
    ASSERT_TRUE(FindSocketByInode(inode, info));
    EXPECT_EQ(info.firstSeen, first);

    TimeRecorder::Advance(seconds(10));
    RefreshSocketTable();
    ASSERT_TRUE(FindSocketByInode(inode, info));
    EXPECT_EQ(info.firstSeen, first) << "the same connection";

    TimeRecorder::Advance(seconds(10));
    HaveTcp({.state = tcpEstablished});
    RefreshSocketTable();
    ASSERT_TRUE(FindSocketByInode(inode, info));
    EXPECT_EQ(info.firstSeen, first + 20) << "established now";

    proc->AddFile("net/tcp", "");
    RefreshSocketTable();
    EXPECT_FALSE(FindSocketByInode(inode, info)) << "closed";
    HaveTcp({.state = tcpEstablished});
    TimeRecorder::Advance(seconds(10));
    RefreshSocketTable();
    ASSERT_TRUE(FindSocketByInode(inode, info));
    EXPECT_EQ(info.firstSeen, first + 30) << "another socket with this inode";
}

TEST_F(SocketTable, OutlivesAStopOfTheModule) {
    Know(abnormal);
    moduleRunning = 0;
    socketTableLock.Destroy();
    moduleRunning = 1;
    ASSERT_TRUE(socketTableLock.Init());
    EXPECT_TRUE(FindSocketByInode(inode, info));
}

}  // namespace
