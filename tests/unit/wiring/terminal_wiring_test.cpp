#include <gtest/gtest.h>

#include "tests/support/wiring_fixture.h"
#include "wiring/wiring.h"

namespace Host {
namespace {

// All masters are the same device node, so that only the terminal's number tells them apart.
HeldDescriptor Master(int number, std::optional<unsigned int> terminal) {
    return {.number = number,
            .kind = DescriptorKind::terminalMultiplexer,
            .object = {4, 2},
            .link = "/dev/ptmx",
            .terminal = terminal};
}

HeldDescriptor Slave(int number, std::optional<unsigned int> terminal) {
    return {.number = number,
            .kind = DescriptorKind::terminal,
            .object = {4, 6},
            .link = "/dev/pts/3",
            .terminal = terminal};
}

TEST(TerminalWiring, LeadsFromASlaveToTheHoldersOfItsMaster) {
    Processes processes;
    AddProcess(processes, 10, "bash", {Slave(0, 3)});
    AddProcess(processes, 11, "relay", {Master(0, 3), Socket(3, 9)});
    AddProcess(processes, 12, "other", {Master(0, 4)});
    AddProcess(processes, 13, "vi", {Slave(0, 3)});
    const auto wiring = TraceWiring(10, processes, {{9, Foreign()}});
    ASSERT_EQ(wiring->wires.at(0).sharers.size(), 1U);
    const WiredProcess& relay = wiring->wires[0].sharers[0];
    EXPECT_EQ(relay.pid, 11);
    EXPECT_TRUE(relay.otherEnd);
    EXPECT_TRUE(relay.wires.at(0).connection);
}

TEST(TerminalWiring, LeadsFromAMasterToTheHoldersOfItsSlave) {
    Processes processes;
    AddProcess(processes, 10, "relay", {Master(0, 3)});
    AddProcess(processes, 11, "relay", {Master(0, 3)});
    AddProcess(processes, 12, "bash", {Slave(0, 3)});
    const auto wiring = TraceWiring(10, processes, {});
    ASSERT_EQ(wiring->wires.at(0).sharers.size(), 1U);
    EXPECT_EQ(wiring->wires[0].sharers[0].pid, 12);
}

TEST(TerminalWiring, EndsAtATerminalWhoseMasterNobodyHolds) {
    Processes processes;
    AddProcess(processes, 10, "bash", {Slave(0, 3)});
    AddProcess(processes, 11, "vi", {Slave(0, 3)});
    const auto wiring = TraceWiring(10, processes, {});
    EXPECT_TRUE(wiring->wires.at(0).sharers.empty());
}

TEST(TerminalWiring, DoesNotJoinTerminalsWithoutANumber) {
    Processes processes;
    AddProcess(processes, 10, "login", {Slave(0, {})});
    AddProcess(processes, 11, "relay", {Master(0, {})});
    const auto wiring = TraceWiring(10, processes, {});
    EXPECT_TRUE(wiring->wires.at(0).sharers.empty());
}

TEST(TerminalWiring, ListsTwoMastersOfOneDeviceApart) {
    Processes processes;
    AddProcess(processes, 10, "relay", {Master(0, 3), Master(1, 4)});
    const auto wiring = TraceWiring(10, processes, {});
    EXPECT_EQ(wiring->wires.size(), 2U);
}

}  // namespace
}  // namespace Host
