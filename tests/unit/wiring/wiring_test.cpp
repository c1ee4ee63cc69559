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
    AddProcess(processes, 10, "bash", {Pipe(0, 1), File(1, "/f"), Pipe(2, 1), Pipe(5, 3), Pipe(6, 2)});
    const auto wiring = TraceWiring(10, processes, {});
    ASSERT_TRUE(wiring);
    EXPECT_FALSE(wiring->otherEnd);
    ASSERT_EQ(wiring->wires.size(), 3U);
    EXPECT_EQ(wiring->wires[0].numbers, (std::vector<int>{0, 2}));
    EXPECT_EQ(wiring->wires[1].link, "/f");
    EXPECT_EQ(wiring->wires[2].numbers, (std::vector<int>{5}));
}

TEST(Wiring, FollowsTwoRelaysToTheConnection) {
    Processes processes;
    AddProcess(processes, 10, "bash", {Pipe(0, 1)});
    AddProcess(processes, 11, "near", {Pipe(0, 2), Pipe(1, 1)});
    AddProcess(processes, 12, "far", {Socket(0, 9), Pipe(1, 2)});
    const auto wiring = TraceWiring(10, processes, {{9, Foreign()}});
    const WiredProcess& near = wiring->wires.at(0).sharers.at(0);
    EXPECT_EQ(near.pid, 11);
    EXPECT_EQ(near.name, "near");
    EXPECT_EQ(near.cmdline, "near -x");
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
    EXPECT_TRUE(wiring->wires[1].sharers[0].wires.empty());
}

TEST(Wiring, ListsForeignSharersFirstAndCountsThoseBeyondTheLimit) {
    Processes processes;
    AddProcess(processes, 10, "bash", {Pipe(0, 1)});
    AddProcess(processes, 11, "server", {Socket(0, 8), Pipe(1, 1)});
    for (int pid = 12; pid < 31; ++pid) {
        AddProcess(processes, pid, "idle", {Pipe(1, 1)});
    }
    AddProcess(processes, 31, "relay", {Socket(0, 9), Pipe(1, 1)});
    Connection local = Foreign();
    local.foreign = false;
    const auto wiring = TraceWiring(10, processes, {{8, local}, {9, Foreign()}});
    const Wire& wire = wiring->wires.at(0);
    ASSERT_EQ(wire.sharers.size(), 8U);
    EXPECT_EQ(wire.sharers[0].pid, 31);
    EXPECT_EQ(wire.sharers[1].pid, 11);
    EXPECT_EQ(wire.untold, 13U);
}

TEST(Wiring, DoesNotListTheSharersOfAFile) {
    Processes processes;
    AddProcess(processes, 10, "bash", {File(0, "/f")});
    AddProcess(processes, 11, "other", {File(0, "/f")});
    const auto wiring = TraceWiring(10, processes, {});
    EXPECT_TRUE(wiring->wires.at(0).sharers.empty());
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

TEST(Wiring, SeparatesAPipeAndASocketWithTheSameInode) {
    Processes processes;
    AddProcess(processes, 10, "bash", {Pipe(0, 9)});
    AddProcess(processes, 11, "other", {Socket(0, 9)});
    const auto wiring = TraceWiring(10, processes, {{9, Foreign()}});
    EXPECT_TRUE(wiring->wires.at(0).sharers.empty());
    EXPECT_FALSE(wiring->wires[0].connection);
}

TEST(Wiring, SeparatesWiresWithTheSameInodeOnTwoDevices) {
    Processes processes;
    AddProcess(processes, 10, "bash", {Pipe(0, 9), Socket(1, 9)});
    const auto wiring = TraceWiring(10, processes, {});
    EXPECT_EQ(wiring->wires.size(), 2U);
}

}  // namespace
}  // namespace Host
