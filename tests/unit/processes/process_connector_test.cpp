#include "host/processes/process_connector.h"

#include <gtest/gtest.h>
#include <linux/cn_proc.h>
#include <linux/connector.h>
#include <linux/netlink.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstring>
#include <random>
#include <string>
#include <thread>
#include <vector>

#include "host/processes/connector_message.h"
#include "tests/support/await_condition.h"
#include "tests/unit/processes/process_event_support.h"

namespace {

using Host::ConnectorBatch;
using Host::ProcessConnector;
using Host::ProcessEvent;
using TestSupport::Await;
using TestSupport::MissingForProcessEvents;
using TestSupport::SpawnTrue;

// Newer kernels declare the enumerators outside the record.
using KernelEvent = decltype(proc_event::what);

proc_event ForkEvent(pid_t child) {
    proc_event event{};
    event.what = KernelEvent::PROC_EVENT_FORK;
    event.cpu = 4;
    event.timestamp_ns = 5;
    event.event_data.fork.parent_pid = 10;
    event.event_data.fork.parent_tgid = 11;
    event.event_data.fork.child_pid = child;
    event.event_data.fork.child_tgid = child + 1;
    return event;
}

// Headers of a message of the connector.
struct Shape {
    uint16_t type = NLMSG_DONE;
    uint32_t idx = CN_IDX_PROC;
    uint32_t val = CN_VAL_PROC;
    uint32_t ack = 0;
    size_t payload = sizeof(proc_event);  // bytes of the record that are present
    int claimedBeyond = 0;                // how many more the connector's header announces
};

std::string Message(proc_event event, const Shape& shape = {}) {
    cn_msg inner{};
    inner.id.idx = shape.idx;
    inner.id.val = shape.val;
    inner.ack = shape.ack;
    inner.len = static_cast<uint16_t>(static_cast<int>(shape.payload) + shape.claimedBeyond);
    nlmsghdr outer{};
    outer.nlmsg_type = shape.type;
    outer.nlmsg_len = static_cast<uint32_t>(sizeof(outer) + sizeof(inner) + shape.payload);
    std::string text(reinterpret_cast<const char*>(&outer), sizeof(outer));
    text.append(reinterpret_cast<const char*>(&inner), sizeof(inner));
    text.append(reinterpret_cast<const char*>(&event), shape.payload);
    return text;
}

ConnectorBatch Parse(const std::string& datagram) {
    // A copy of exact size, so that the sanitizers report a read beyond it.
    std::vector<char> copy(datagram.begin(), datagram.end());
    ConnectorBatch batch;
    Host::ParseConnectorDatagram(copy.data(), copy.size(), batch);
    return batch;
}

TEST(ConnectorMessage, ReadsTheRecord) {
    const ConnectorBatch batch = Parse(Message(ForkEvent(42)));
    ASSERT_EQ(batch.events.size(), 1U);
    EXPECT_EQ(batch.events[0].kind, ProcessEvent::Kind::fork);
    EXPECT_EQ(batch.events[0].cpu, 4U);
    EXPECT_EQ(batch.events[0].timestampNs, 5U);
    EXPECT_EQ(batch.events[0].parentPid, 10);
    EXPECT_EQ(batch.events[0].parentTgid, 11);
    EXPECT_EQ(batch.events[0].pid, 42);
    EXPECT_EQ(batch.events[0].tgid, 43);
}

TEST(ConnectorMessage, KeepsTheOrderOfMessagesInADatagram) {
    proc_event exec{};
    exec.what = KernelEvent::PROC_EVENT_EXEC;
    exec.event_data.exec.process_pid = 43;
    exec.event_data.exec.process_tgid = 44;
    proc_event ack{};
    ack.event_data.ack.err = 1;
    Shape ackShape;
    ackShape.ack = 99;
    const ConnectorBatch batch = Parse(Message(ForkEvent(42)) + Message(exec) + Message(ack, ackShape));
    ASSERT_EQ(batch.events.size(), 2U);
    EXPECT_EQ(batch.events[0].pid, 42);
    EXPECT_EQ(batch.events[1].kind, ProcessEvent::Kind::exec);
    EXPECT_EQ(batch.events[1].pid, 43);
    EXPECT_EQ(batch.events[1].tgid, 44);
    EXPECT_EQ(batch.events[1].parentPid, 0);
    ASSERT_EQ(batch.acks.size(), 1U);
    EXPECT_EQ(batch.acks[0].number, 99U);
    EXPECT_EQ(batch.acks[0].error, 1U);
}

TEST(ConnectorMessage, SkipsForeignAndCutMessages) {
    proc_event exit{};
    exit.what = KernelEvent::PROC_EVENT_EXIT;
    proc_event unknown{};
    unknown.what = static_cast<decltype(unknown.what)>(0x7fffffff);
    Shape otherType;
    otherType.type = NLMSG_ERROR;
    Shape otherConnector;
    otherConnector.idx = CN_IDX_PROC + 1;
    Shape otherValue;
    otherValue.val = CN_VAL_PROC + 1;
    Shape claimsMore;
    claimsMore.claimedBeyond = 1;
    Shape claimsMost;
    claimsMost.claimedBeyond = 65535 - static_cast<int>(sizeof(proc_event));
    Shape halfFork;
    halfFork.payload = 31;
    Shape empty;
    empty.payload = 0;
    const std::string rows[] = {
        Message(exit),
        Message(unknown),
        Message(ForkEvent(1), otherType),
        Message(ForkEvent(1), otherConnector),
        Message(ForkEvent(1), otherValue),
        Message(ForkEvent(1), claimsMore),
        Message(ForkEvent(1), claimsMost),
        Message(ForkEvent(1), halfFork),
        Message(ForkEvent(1), empty),
    };
    for (size_t i = 0; i < std::size(rows); ++i) {
        SCOPED_TRACE(i);
        EXPECT_TRUE(Parse(rows[i]).events.empty());
        EXPECT_TRUE(Parse(rows[i]).acks.empty());
    }
}

TEST(ConnectorMessage, ReadsNothingFromADatagramCutAnywhere) {
    const std::string whole = Message(ForkEvent(42));
    for (size_t length = 0; length < whole.size(); ++length) {
        EXPECT_TRUE(Parse(whole.substr(0, length)).events.empty()) << length;
    }
}

TEST(ConnectorMessage, SurvivesALengthBeyondTheDatagram) {
    for (const uint32_t length : {0U, 1U, 15U, 0x7fffffffU, 0xffffffffU}) {
        std::string datagram = Message(ForkEvent(42));
        std::memcpy(datagram.data(), &length, sizeof(length));
        EXPECT_TRUE(Parse(datagram).events.empty()) << length;
    }
}

TEST(ConnectorMessage, SurvivesRandomDamage) {
    std::mt19937 random(815);
    for (int round = 0; round < 20000; ++round) {
        std::string datagram = Message(ForkEvent(42)) + Message(ForkEvent(43));
        for (int i = 0; i < 4; ++i) {
            datagram[random() % datagram.size()] = static_cast<char>(random() % 256);
        }
        EXPECT_LE(Parse(datagram).events.size(), 2U);
    }
}

class ProcessConnectorTest : public testing::Test {
protected:
    void SetUp() override {
        const std::string missing = MissingForProcessEvents();
        if (!missing.empty()) {
            GTEST_SKIP() << missing;
        }
        ASSERT_EQ(connector_.Open(), "");
    }

    // Receives until the exec of that process arrives.
    bool ReceiveUntilExecOf(pid_t pid) {
        return Await([&] {
            EXPECT_EQ(connector_.Receive(batch_).error, 0);
            return std::any_of(batch_.events.begin(), batch_.events.end(), [&](const ProcessEvent& each) {
                return each.kind == ProcessEvent::Kind::exec && each.tgid == pid;
            });
        });
    }

    ProcessConnector connector_;
    ConnectorBatch batch_;
};

TEST_F(ProcessConnectorTest, ReceivesOnlyForksExecsAndAnswers) {
    // The filter lets answers to other listeners pass as well.
    ProcessConnector other;
    ASSERT_EQ(other.Open(), "");
    const pid_t pid = SpawnTrue();
    bool execSeen = false;
    size_t exits = 0;
    // The first process also ends: its exit would arrive before the second exec.
    const pid_t later = SpawnTrue();
    EXPECT_TRUE(Await([&] {
        std::vector<char> datagram(8192);
        const ssize_t size = recv(connector_.Descriptor(), datagram.data(), datagram.size(), MSG_DONTWAIT);
        constexpr size_t offset = sizeof(nlmsghdr) + sizeof(cn_msg);
        if (size < static_cast<ssize_t>(offset + sizeof(uint32_t))) {
            return false;
        }
        proc_event event{};
        std::memcpy(&event, datagram.data() + offset, std::min(sizeof(event), static_cast<size_t>(size) - offset));
        exits += event.what != KernelEvent::PROC_EVENT_FORK && event.what != KernelEvent::PROC_EVENT_EXEC &&
                         event.what != KernelEvent::PROC_EVENT_NONE
                     ? 1
                     : 0;
        execSeen =
            execSeen || (event.what == KernelEvent::PROC_EVENT_EXEC && event.event_data.exec.process_tgid == pid);
        return event.what == KernelEvent::PROC_EVENT_EXEC && event.event_data.exec.process_tgid == later;
    }));
    EXPECT_TRUE(execSeen);
    EXPECT_EQ(exits, 0U);
}

TEST_F(ProcessConnectorTest, IgnoresMessagesOfOtherProcesses) {
    constexpr pid_t forged = 0x7ffffff1;
    const int sender = socket(AF_NETLINK, SOCK_DGRAM | SOCK_CLOEXEC, NETLINK_CONNECTOR);
    ASSERT_GE(sender, 0);
    sockaddr_nl address{};
    address.nl_family = AF_NETLINK;
    address.nl_pid = connector_.Address();
    const std::string message = Message(ForkEvent(forged));
    EXPECT_EQ(sendto(sender, message.data(), message.size(), 0, reinterpret_cast<sockaddr*>(&address), sizeof(address)),
              static_cast<ssize_t>(message.size()));
    close(sender);
    ASSERT_TRUE(ReceiveUntilExecOf(SpawnTrue()));
    for (const ProcessEvent& event : batch_.events) {
        EXPECT_NE(event.pid, forged);
    }
}

TEST_F(ProcessConnectorTest, ReportsLossesAndContinuesToRead) {
    // The smallest buffer that the kernel grants holds only a few events.
    constexpr int least = 1;
    ASSERT_EQ(setsockopt(connector_.Descriptor(), SOL_SOCKET, SO_RCVBUF, &least, sizeof(least)), 0);
    for (int i = 0; i < 30; ++i) {
        SpawnTrue();
    }
    EXPECT_GE(connector_.Receive(batch_).losses, 1U);
    // On a busy host, events of other processes would fill so small a buffer at once.
    constexpr int ample = 1 << 20;
    ASSERT_EQ(setsockopt(connector_.Descriptor(), SOL_SOCKET, SO_RCVBUFFORCE, &ample, sizeof(ample)), 0);
    EXPECT_TRUE(ReceiveUntilExecOf(SpawnTrue()));
}

TEST_F(ProcessConnectorTest, OpensAgainAfterClosing) {
    connector_.Close();
    connector_.Close();
    ASSERT_EQ(connector_.Open(), "");
    EXPECT_TRUE(ReceiveUntilExecOf(SpawnTrue()));
}

}  // namespace
