#include "wiring/wiring.h"

#include <gtest/gtest.h>

#include "tests/support/wiring_fixture.h"

namespace Host {
namespace {

TEST(Wiring, IsEmptyForAnUnknownProcess) {
    EXPECT_FALSE(TraceWiring(5, {}, {}));
}

TEST(Wiring, ListsTheRootsFirstSixDescriptorsByObject) {
    Processes processes;
    AddProcess(processes, 10, "bash", {Pipe(0, 1), File(1, "/f"), Pipe(2, 1), Pipe(6, 2)});
    const auto wiring = TraceWiring(10, processes, {});
    ASSERT_TRUE(wiring);
    ASSERT_EQ(wiring->wires.size(), 2U);
    EXPECT_EQ(wiring->wires[0].numbers, (std::vector<int>{0, 2}));
    EXPECT_EQ(wiring->wires[1].link, "/f");
}

TEST(Wiring, FollowsTwoRelaysToTheConnection) {
    Processes processes;
    AddProcess(processes, 10, "bash", {Pipe(0, 1)});
    AddProcess(processes, 11, "near", {Pipe(0, 2), Pipe(1, 1)});
    AddProcess(processes, 12, "far", {Socket(0, 9), Pipe(1, 2)});
    const auto wiring = TraceWiring(10, processes, {{9, Foreign()}});
    const WiredProcess& near = wiring->wires.at(0).sharers.at(0);
    EXPECT_EQ(near.pid, 11);
    EXPECT_EQ(near.numbers, (std::vector<int>{1}));
    ASSERT_EQ(near.wires.size(), 1U) << "the pipe that led to it is not repeated";
    const WiredProcess& far = near.wires[0].sharers.at(0);
    EXPECT_EQ(far.pid, 12);
    ASSERT_EQ(far.wires.size(), 1U);
    ASSERT_TRUE(far.wires[0].connection);
    EXPECT_TRUE(far.wires[0].connection->foreign);
}

TEST(Wiring, ListsARingOnce) {
    Processes processes;
    AddProcess(processes, 10, "bash", {Pipe(0, 1), Pipe(1, 2)});
    AddProcess(processes, 11, "relay", {Pipe(0, 2), Pipe(1, 1)});
    const auto wiring = TraceWiring(10, processes, {});
    ASSERT_EQ(wiring->wires.size(), 2U);
    const WiredProcess& first = wiring->wires[0].sharers.at(0);
    EXPECT_FALSE(first.toldAbove);
    ASSERT_EQ(first.wires.size(), 1U);
    EXPECT_EQ(first.wires[0].toldAt, 10);
    EXPECT_TRUE(first.wires[0].sharers.empty());
    EXPECT_TRUE(wiring->wires[1].sharers.at(0).toldAbove);
}

TEST(Wiring, ListsForeignSharersFirstAndCountsThoseBeyondTheLimit) {
    Processes processes;
    AddProcess(processes, 10, "bash", {Pipe(0, 1)});
    for (int pid = 11; pid < 31; ++pid) {
        AddProcess(processes, pid, "idle", {Pipe(1, 1)});
    }
    AddProcess(processes, 31, "relay", {Socket(0, 9), Pipe(1, 1)});
    const auto wiring = TraceWiring(10, processes, {{9, Foreign()}});
    const Wire& wire = wiring->wires.at(0);
    EXPECT_EQ(wire.sharers.at(0).pid, 31);
    EXPECT_EQ(wire.sharers.size() + wire.untold, 21U);
    EXPECT_GT(wire.untold, 0U);
}

TEST(Wiring, EndsAChainAfterSixProcesses) {
    Processes processes;
    for (int i = 0; i < 12; ++i) {
        const auto output = static_cast<ino_t>(i);
        AddProcess(processes, 10 + i, "link", {Pipe(0, output + 1), Pipe(1, output)});
    }
    const auto wiring = TraceWiring(10, processes, {});
    const WiredProcess* last = &*wiring;
    int depth = 0;
    while (!last->wires.empty() && !last->wires[0].sharers.empty()) {
        last = &last->wires[0].sharers[0];
        ++depth;
    }
    EXPECT_EQ(depth, 6);
}

TEST(Wiring, FollowsATerminalToItsOtherSide) {
    Processes processes;
    const HeldDescriptor slave{
        .number = 0, .kind = DescriptorKind::terminal, .object = {4, 6}, .link = "/dev/pts/3", .terminal = 3};
    HeldDescriptor master = slave;
    master.kind = DescriptorKind::terminalMultiplexer;
    master.object = {4, 2};
    HeldDescriptor otherMaster = master;
    otherMaster.terminal = 4;
    AddProcess(processes, 10, "bash", {slave});
    AddProcess(processes, 11, "relay", {master, Socket(3, 9)});
    AddProcess(processes, 12, "other", {otherMaster});
    const auto wiring = TraceWiring(10, processes, {{9, Foreign()}});
    ASSERT_EQ(wiring->wires.at(0).sharers.size(), 1U);
    const WiredProcess& relay = wiring->wires[0].sharers[0];
    EXPECT_EQ(relay.pid, 11);
    EXPECT_TRUE(relay.otherEnd);
    EXPECT_TRUE(relay.wires.at(0).connection);
}

TEST(Wiring, SeparatesAPipeAndASocketWithTheSameInode) {
    Processes processes;
    AddProcess(processes, 10, "bash", {Pipe(0, 9)});
    AddProcess(processes, 11, "other", {Socket(0, 9)});
    const auto wiring = TraceWiring(10, processes, {{9, Foreign()}});
    EXPECT_TRUE(wiring->wires.at(0).sharers.empty());
    EXPECT_FALSE(wiring->wires[0].connection);
}

}  // namespace
}  // namespace Host
