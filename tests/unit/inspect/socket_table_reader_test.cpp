#include "inspect/socket_table_reader.h"

#include <algorithm>
#include <map>

#include "inspect_fixture.h"
#include "table_text.h"

namespace {

using std::chrono::microseconds;
using std::chrono::milliseconds;
using std::chrono::seconds;

using SocketMap = std::map<unsigned long, SocketInfo>;

constexpr milliseconds linePause{5};
constexpr milliseconds tablePause{1};
constexpr microseconds entryPause{200};

const char* const tables[] = {"net/tcp",  "net/udp",     "net/raw",      "net/tcp6",
                              "net/udp6", "net/udplite", "net/udplite6", "net/sctp/assocs"};

std::string LineFor(int type, const std::string& inode) {
    if (type == 8) {
        return SctpLine(inode);
    }
    const bool ipv6 = type == 4 || type == 5 || type == 7;
    return TableLine{.local = ipv6 ? "2001:db8::1" : "10.0.0.1",
                     .localPort = 1000 + type,
                     .remote = ipv6 ? "2001:db8::2" : "10.0.0.2",
                     .remotePort = 2000 + type,
                     .state = 7,
                     .inode = inode}
        .Text();
}

std::string HeaderFor(int type) {
    return type == 8 ? sctpHeader : tableHeader;
}

class SocketTableReader : public ProcInspectTest {
protected:
    void Have(int type, const std::string& text) { proc->AddFile(tables[type - 1], text); }

    void HaveOneInEach() {
        for (int type = 1; type <= 8; ++type) {
            Have(type, HeaderFor(type) + LineFor(type, std::to_string(type * 100)));
        }
    }

    static std::vector<std::string> NewSocketLog() { return Fake::TheAgent().LogTexts(LOG_LEVEL_DETAIL); }

    static long TimesCut() {
        const std::vector<std::string> log = Fake::TheAgent().LogTexts(LOG_LEVEL_LIFECYCLE);
        return std::count(log.begin(), log.end(), "Socket tables exceed.[maxSocketNum=50000]");
    }

    static std::string LogOf(const SocketInfo& info) {
        return "[newSocketinode=" + std::to_string(info.inode) + " localPort=" + std::to_string(info.localPort) +
               " remotePort=" + std::to_string(info.remotePort) + "]";
    }
};

TEST_F(SocketTableReader, ReadsEveryTable) {
    HaveOneInEach();
    ReadSocketTables({});
    ASSERT_EQ(socketTable.size(), 8U);
    for (int type = 1; type <= 8; ++type) {
        const SocketInfo& info = socketTable[static_cast<unsigned long>(type) * 100];
        EXPECT_EQ(info.type, type);
        EXPECT_EQ(info.inode, static_cast<unsigned long>(type) * 100);
        EXPECT_EQ(info.state, type == 1 || type == 4 ? 7U : stateOfOtherTables) << type;
        EXPECT_EQ(info.localPort, type == 8 ? 40000 : 1000 + type);
        EXPECT_EQ(info.remotePort, type == 8 ? 5000 : 2000 + type);
    }
}

TEST_F(SocketTableReader, SleepsPerLineTableAndEntry) {
    HaveOneInEach();
    ReadSocketTables({});
    PauseList expected;
    for (int type = 1; type <= 8; ++type) {
        expected = expected + Repeated(2, linePause) + Repeated(1, tablePause);
    }
    EXPECT_EQ(TimeRecorder::Pauses(), expected + Repeated(8, entryPause));
}

TEST_F(SocketTableReader, ClosesATableBeforeThePauseThatFollowsIt) {
    Have(1, LineFor(1, "100"));
    const int open = OpenDescriptors();
    std::vector<int> during;
    TimeRecorder::AtEachPause([&during](size_t) { during.push_back(OpenDescriptors()); });
    ReadSocketTables({});
    EXPECT_EQ(during, (std::vector<int>{open + 1, open, open})) << "of a line, of the table, of an entry";
}

TEST_F(SocketTableReader, SleepsForKnownEntriesAndLinesWithoutASocketToo) {
    Have(1, tableHeader + LineFor(1, "0") + LineFor(1, "100") + "\n");
    ReadSocketTables({});
    const SocketMap known = socketTable;
    TimeRecorder::Reset();
    ReadSocketTables(known);
    EXPECT_EQ(TimeRecorder::Pauses(), Repeated(4, linePause) + Repeated(1, tablePause) + Repeated(1, entryPause));
}

TEST_F(SocketTableReader, SkipsTablesThatTheKernelDoesNotHave) {
    Have(7, LineFor(7, "700"));
    ReadSocketTables({});
    EXPECT_EQ(socketTable.size(), 1U);
    EXPECT_EQ(TimeRecorder::Pauses(), Repeated(1, linePause) + Repeated(1, tablePause) + Repeated(1, entryPause))
        << "only for the table that opens";
}

TEST_F(SocketTableReader, ReadsTheOtherTablesWithoutSctp) {
    HaveOneInEach();
    std::filesystem::remove_all(proc->Folder() / "net/sctp");
    ReadSocketTables({});
    EXPECT_EQ(socketTable.size(), 7U);
    EXPECT_FALSE(socketTable.contains(800));
}

TEST_F(SocketTableReader, KeepsNothingOfTheOldTable) {
    socketTable[5] = {.inode = 5};
    ReadSocketTables({});
    EXPECT_TRUE(socketTable.empty());
    EXPECT_TRUE(TimeRecorder::Pauses().empty());
    EXPECT_TRUE(Log().empty());
}

TEST_F(SocketTableReader, LogsANewSocketWhenItIsFoundAndWhenItGetsItsTime) {
    Have(1, LineFor(1, "200") + LineFor(1, "100"));
    ReadSocketTables({});
    const std::string one = LogOf(socketTable[200]);
    const std::string other = LogOf(socketTable[100]);
    EXPECT_EQ(one, "[newSocketinode=200 localPort=1001 remotePort=2001]");
    EXPECT_EQ(NewSocketLog(), (std::vector<std::string>{one, other, other, one})) << "as read, then in inode order";
    EXPECT_EQ(Log()[0].source, "detect_shell");
    EXPECT_EQ(Log()[0].channel, "NormalLog");
}

TEST_F(SocketTableReader, SetsTheTimeOfNewSocketsToTheEndOfTheRead) {
    std::string text;
    for (int i = 1; i <= 6000; ++i) {
        text += LineFor(1, std::to_string(i));
    }
    Have(1, text);
    Have(2, LineFor(2, "7000"));
    const time_t start = time(nullptr);
    ReadSocketTables({});
    // 6001 lines of 5 ms. The pauses of the entries, more than a second, come after the time is taken.
    ASSERT_EQ(socketTable.size(), 6001U);
    for (const auto& [inode, info] : socketTable) {
        ASSERT_EQ(info.firstSeen, start + 30) << inode;
    }
    EXPECT_EQ(time(nullptr), start + 31);
}

TEST_F(SocketTableReader, KeepsTheTimeOfAnUnchangedSocket) {
    HaveOneInEach();
    ReadSocketTables({});
    const SocketMap known = socketTable;
    const long first = known.at(100).firstSeen;
    TimeRecorder::Advance(seconds(100));
    Fake::ResetAgent();
    ReadSocketTables(known);
    ASSERT_EQ(socketTable.size(), 8U);
    for (const auto& [inode, info] : socketTable) {
        EXPECT_EQ(info.firstSeen, first) << inode;
    }
    EXPECT_TRUE(Log().empty());
}

TEST_F(SocketTableReader, TreatsAChangedSocketAsNew) {
    const TableLine before{.state = 2};
    const struct {
        const char* what;
        TableLine line;
        bool isNew;
    } cases[] = {
        {"state", {.state = 1}, true},
        {"remote port", {.remotePort = 4445, .state = 2}, true},
        {"remote address", {.remote = "10.0.0.3", .state = 2}, true},
        {"local address", {.local = "10.0.0.3", .state = 2}, true},
        {"local port", {.localPort = 40002, .state = 2}, false},
        {"nothing", before, false},
    };
    Have(1, before.Text());
    ReadSocketTables({});
    const SocketMap known = socketTable;
    const SocketInfo first = known.at(5000);
    for (const auto& row : cases) {
        SCOPED_TRACE(row.what);
        TimeRecorder::Advance(seconds(100));
        Fake::ResetAgent();
        Have(1, row.line.Text());
        ReadSocketTables(known);
        const SocketInfo info = socketTable.at(5000);
        EXPECT_EQ(info.firstSeen > first.firstSeen, row.isNew);
        EXPECT_EQ(info.localPort, row.isNew ? row.line.localPort : first.localPort);
        EXPECT_EQ(info.remotePort, row.line.remotePort);
        EXPECT_EQ(Log().size(), row.isNew ? 2U : 0U);
    }
}

TEST_F(SocketTableReader, KeepsAnEntryThatMovedToAnotherTable) {
    Have(2, LineFor(2, "5000"));
    ReadSocketTables({});
    const SocketMap known = socketTable;
    Have(2, "");
    Have(3, LineFor(2, "5000"));
    ReadSocketTables(known);
    EXPECT_EQ(socketTable.at(5000).type, 2);
}

TEST_F(SocketTableReader, ComparesWithItsArgumentOnly) {
    Have(1, LineFor(1, "100"));
    ReadSocketTables({});
    TimeRecorder::Advance(seconds(100));
    const time_t now = time(nullptr);
    ReadSocketTables({});
    EXPECT_EQ(socketTable.at(100).firstSeen, now);
}

TEST_F(SocketTableReader, KeepsTheLastOfTwoLinesWithOneInode) {
    Have(1, LineFor(1, "100"));
    Have(2, LineFor(2, "100"));
    ReadSocketTables({});
    ASSERT_EQ(socketTable.size(), 1U);
    EXPECT_EQ(socketTable.at(100).type, 2);
}

TEST_F(SocketTableReader, SplitsAnOverlongLine) {
    Have(1, std::string(1023, ' ') + LineFor(1, "100") + LineFor(1, "200"));
    ReadSocketTables({});
    EXPECT_EQ(socketTable.size(), 2U);
    EXPECT_EQ(CountOf(TimeRecorder::Pauses(), linePause), 3U);
}

TEST_F(SocketTableReader, SkipsHostileLines) {
    std::string bytes;
    for (int byte = 0; byte < 256; ++byte) {
        bytes += static_cast<char>(byte);
    }
    Have(1, bytes + "\n" + std::string(5000, 'F') + "\n" + std::string(300, '\0') + "\n" + LineFor(1, "100") +
                LineFor(1, "200").substr(0, 60));
    ReadSocketTables({});
    ASSERT_EQ(socketTable.size(), 1U);
    EXPECT_TRUE(socketTable.contains(100));
}

TEST_F(SocketTableReader, StoresFiftyThousandAndOneSocketsAndOneMoreFromEachLaterTable) {
    std::string text = tableHeader;
    for (int i = 1; i <= 50010; ++i) {
        text += LineFor(1, std::to_string(100000 + i));
    }
    Have(1, text);
    for (int type = 2; type <= 8; ++type) {
        const std::string inode = std::to_string(type);
        Have(type, HeaderFor(type) + LineFor(type, "0") + LineFor(type, inode) + LineFor(type, inode + "0"));
    }
    ReadSocketTables({});
    EXPECT_EQ(socketTable.size(), 50001U + 7U);
    EXPECT_TRUE(socketTable.contains(150001));
    EXPECT_FALSE(socketTable.contains(150002));
    for (unsigned long type = 2; type <= 8; ++type) {
        EXPECT_TRUE(socketTable.contains(type));
        EXPECT_FALSE(socketTable.contains(type * 10));
    }
    EXPECT_EQ(CountOf(TimeRecorder::Pauses(), linePause), 1U + 50001U + 7U * 3U);
    EXPECT_EQ(CountOf(TimeRecorder::Pauses(), tablePause), 8U);
    EXPECT_EQ(CountOf(TimeRecorder::Pauses(), entryPause), 50008U);
    EXPECT_EQ(TimesCut(), 1) << "once per read, although all tables are cut";
}

TEST_F(SocketTableReader, StoresTheFiftyThousandAndFirstSocketFromALaterTable) {
    std::string text;
    for (int i = 1; i <= 50000; ++i) {
        text += LineFor(1, std::to_string(100000 + i));
    }
    Have(1, text + LineFor(1, "0") + LineFor(1, "100001"));
    ReadSocketTables({});
    EXPECT_EQ(socketTable.size(), 50000U);
    EXPECT_EQ(TimesCut(), 0) << "not cut yet";
    Have(2, LineFor(2, "150000") + LineFor(2, "2") + LineFor(2, "3"));
    ReadSocketTables({});
    EXPECT_EQ(socketTable.size(), 50001U);
    EXPECT_EQ(TimesCut(), 1);
    EXPECT_EQ(socketTable.at(150000).type, 2);
    EXPECT_TRUE(socketTable.contains(2));
    EXPECT_FALSE(socketTable.contains(3));
}

TEST_F(SocketTableReader, InstallsAnIncompleteTableIfTheModuleStops) {
    HaveOneInEach();
    Have(1, LineFor(1, "100") + LineFor(1, "101") + LineFor(1, "102") + LineFor(1, "103"));
    const time_t start = time(nullptr);
    StopAtPause(2);
    ReadSocketTables({});
    ASSERT_EQ(socketTable.size(), 2U) << "the line during whose pause the stop came is stored";
    EXPECT_TRUE(socketTable.contains(101));
    EXPECT_EQ(socketTable.at(100).firstSeen, start);
    EXPECT_EQ(TimeRecorder::Pauses(), Repeated(2, linePause) + Repeated(8, tablePause) + Repeated(2, entryPause))
        << "every table is opened";
    const std::vector<std::string> log = NewSocketLog();
    EXPECT_EQ(std::count(log.begin(), log.end(), "thread was stopped by StopModule run.[run=0]"), 8)
        << "and left at its first line";
}

TEST_F(SocketTableReader, InstallsAnEmptyTableIfTheModuleHasStopped) {
    HaveOneInEach();
    socketTable[5] = {.inode = 5};
    moduleRunning = 0;
    ReadSocketTables({});
    EXPECT_TRUE(socketTable.empty());
    EXPECT_EQ(TimeRecorder::Pauses(), Repeated(8, tablePause));
}

}  // namespace
