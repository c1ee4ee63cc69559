#include "inspect/socket_queue.h"

#include "inspect_fixture.h"
#include "table_text.h"

namespace {

TEST(SocketQueues, AreThoseOfTheLineWithTheInode) {
    const std::string line = TableLine{.inode = "5000", .queues = "0000A1B0:0000000F"}.Text();
    for (const int type : {1, 2, 3, 4, 5, 6, 7}) {
        const std::optional<SocketQueues> queues = ParseSocketQueues(line, type, 5000);
        ASSERT_TRUE(queues) << type;
        EXPECT_EQ(queues->unsent, 0xA1B0UL);
        EXPECT_EQ(queues->unread, 0xFUL);
    }
}

TEST(SocketQueues, AreNoneInALineOfSctp) {
    const std::optional<SocketQueues> queues = ParseSocketQueues(SctpLine("5000"), 8, 5000);
    ASSERT_TRUE(queues);
    EXPECT_EQ(queues->unsent, 0UL);
    EXPECT_EQ(queues->unread, 0UL);
}

TEST(SocketQueues, AreMissingInOtherLines) {
    const std::string line = TableLine{.inode = "5000"}.Text();
    EXPECT_FALSE(ParseSocketQueues(line, 1, 500));
    EXPECT_FALSE(ParseSocketQueues(line, 1, 50000));
    EXPECT_FALSE(ParseSocketQueues(TableLine{.inode = "0"}.Text(), 1, 0)) << "no process holds it";
    EXPECT_FALSE(ParseSocketQueues(tableHeader, 1, 5000));
    EXPECT_FALSE(ParseSocketQueues("", 1, 5000));
    EXPECT_FALSE(ParseSocketQueues(TableLine{.inode = "5000", .queues = "x:y"}.Text(), 1, 5000));
}

class SocketQueueSearch : public ProcInspectTest {};

TEST_F(SocketQueueSearch, LooksInEveryTableAndPausesForEach) {
    const struct {
        const char* table;
        size_t place;
    } cases[] = {{"net/tcp", 1}, {"net/raw", 2}, {"net/tcp6", 3}, {"net/sctp/assocs", 4}};
    proc->AddFile("net/tcp", tableHeader + TableLine{.inode = "71001"}.Text() + TableLine{.inode = "1001"}.Text());
    proc->AddFile("net/raw", tableHeader + TableLine{.inode = "1002"}.Text());
    proc->AddFile("net/tcp6", TableLine{.local = "::1", .remote = "::2", .inode = "1003"}.Text());
    proc->AddFile("net/sctp/assocs", sctpHeader + SctpLine("1004"));
    unsigned long inode = 1000;
    for (const auto& row : cases) {
        TimeRecorder::Reset();
        EXPECT_TRUE(FindSocketQueues(++inode)) << row.table;
        EXPECT_EQ(TimeRecorder::Pauses(), Repeated(row.place, halfMillisecond)) << row.table;
    }
    TimeRecorder::Reset();
    EXPECT_FALSE(FindSocketQueues(100)) << "part of other numbers";
    EXPECT_EQ(TimeRecorder::Pauses(), Repeated(4, halfMillisecond));
    EXPECT_TRUE(Log().empty());
}

TEST_F(SocketQueueSearch, ReadsFiftyThousandLinesAtMost) {
    std::string text = tableHeader;
    const std::string other = TableLine{.inode = "7"}.Text();
    for (int line = 2; line < 50000; ++line) {
        text += other;
    }
    const std::string last = TableLine{.inode = "5000"}.Text();
    proc->AddFile("net/tcp", text + last);
    EXPECT_TRUE(FindSocketQueues(5000));
    proc->AddFile("net/tcp", text + other + last);
    EXPECT_FALSE(FindSocketQueues(5000));
}

TEST_F(SocketQueueSearch, EndsWhenTheModuleIsStopped) {
    proc->AddFile("net/tcp", TableLine{.inode = "5000"}.Text());
    moduleRunning = 0;
    stopBegun = true;
    EXPECT_FALSE(FindSocketQueues(5000));
    ExpectLogged(LOG_LEVEL_DETAIL, "detect_shell", "thread was stopped by StopModule run.[run=0]");
}

}  // namespace
