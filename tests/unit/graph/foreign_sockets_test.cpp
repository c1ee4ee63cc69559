#include "graph_fixture.h"

namespace {

using ForeignSockets = GraphTest;

TEST_F(ForeignSockets, LogsThatTheHostHasNoConnection) {
    EXPECT_FALSE(detector.CollectForeinSocket());
    ASSERT_EQ(Fake::TheAgent().log.size(), 1U);
    EXPECT_EQ(Fake::TheAgent().log[0].text, "No valid connections.");
    EXPECT_EQ(Fake::TheAgent().log[0].channel, "NormalLog");
    EXPECT_EQ(Fake::TheAgent().log[0].source, "reverse_shell_detector");
    EXPECT_EQ(Fake::TheAgent().log[0].level, LOG_LEVEL_DETAIL);
}

TEST_F(ForeignSockets, IgnoresLoopbackAndListeningEntriesSilently) {
    Fake::TheAgent().tcp = {Connection(11, "127.0.0.1"), Connection(12, "0.0.0.0")};
    Fake::TheAgent().tcp6 = {Connection(13, "::")};
    EXPECT_FALSE(detector.CollectForeinSocket());
    EXPECT_TRUE(detector.foreignSockets.empty());
    EXPECT_TRUE(Fake::TheAgent().log.empty());
}

TEST_F(ForeignSockets, CountsEveryOtherPeerAsForeign) {
    for (const char* peer : {"127.0.0.2", "::1", "10.0.0.1", "198.51.100.3", "::ffff:127.0.0.1", "127.0.0.1 ", ""}) {
        Fake::TheAgent().tcp = {Connection(21, peer)};
        EXPECT_TRUE(detector.CollectForeinSocket()) << peer;
        EXPECT_EQ(detector.foreignSockets.count(21), 1U) << peer;
    }
}

TEST_F(ForeignSockets, CountsAConnectionInAnyState) {
    auto closing = Connection(31);
    closing.state = 8;
    Fake::TheAgent().tcp = {closing};
    EXPECT_TRUE(detector.CollectForeinSocket());
}

TEST_F(ForeignSockets, LogsEveryKeptConnection) {
    Fake::TheAgent().tcp = {Connection(41)};
    detector.CollectForeinSocket();
    EXPECT_EQ(Fake::TheAgent().LogTexts(LOG_LEVEL_DETAIL),
              std::vector<std::string>{"Details of netStat.[localIp=198.51.100.3, localPort=40001, "
                                       "remoteIp=192.0.2.7, remotePort=4444, state=1, inode=41]"});
}

TEST_F(ForeignSockets, KeepsTheFirstOfTwoRecordsWithOneInodeAndLogsBoth) {
    Fake::TheAgent().tcp = {Connection(51, "192.0.2.1")};
    Fake::TheAgent().udp = {Connection(51, "192.0.2.2")};
    Fake::TheAgent().tcp6 = {Connection(51, "192.0.2.3")};
    EXPECT_TRUE(detector.CollectForeinSocket());
    EXPECT_EQ(detector.foreignSockets.at(51).remoteIp, "192.0.2.1");
    EXPECT_EQ(Fake::TheAgent().log.size(), 3U);
}

TEST_F(ForeignSockets, KeepsTheFirstRecordWithoutAnInode) {
    Fake::TheAgent().tcp = {Connection(0, "192.0.2.1"), Connection(0, "192.0.2.2")};
    EXPECT_TRUE(detector.CollectForeinSocket());
    ASSERT_EQ(detector.foreignSockets.size(), 1U);
    EXPECT_EQ(detector.foreignSockets.at(0).remoteIp, "192.0.2.1");
}

TEST_F(ForeignSockets, ReadsTcpThenUdpThenTcp6AndNothingElse) {
    Fake::TheAgent().udp = {Connection(61)};
    EXPECT_TRUE(detector.CollectForeinSocket());
    EXPECT_EQ(detector.foreignSockets.count(61), 1U);
    std::vector<std::string> reads;
    for (const std::string& call : Fake::TheAgent().journal) {
        if (call.starts_with("read ")) {
            reads.push_back(call);
        }
    }
    EXPECT_EQ(reads, (std::vector<std::string>{"read tcp", "read udp", "read tcp6"}));
}

TEST_F(ForeignSockets, StartsFromAnEmptyMapEachTime) {
    Fake::TheAgent().tcp = {Connection(71)};
    EXPECT_TRUE(detector.CollectForeinSocket());
    Fake::TheAgent().tcp = {Connection(72)};
    EXPECT_TRUE(detector.CollectForeinSocket());
    EXPECT_EQ(detector.foreignSockets.count(71), 0U);
    Fake::TheAgent().tcp.clear();
    EXPECT_FALSE(detector.CollectForeinSocket());
    EXPECT_TRUE(detector.foreignSockets.empty());
}

}  // namespace
