#include "host/processes/process_connector.h"

#include <arpa/inet.h>
#include <libmnl/libmnl.h>
#include <linux/cn_proc.h>
#include <linux/connector.h>
#include <linux/filter.h>
#include <sys/random.h>
#include <sys/socket.h>

#include <array>
#include <cerrno>
#include <chrono>
#include <cstring>

#include "host/base/clock.h"

namespace Host {

namespace {

// Newer kernels declare the enumerators outside the record.
using KernelEvent = decltype(proc_event::what);

constexpr std::chrono::milliseconds ackPatience(500);

std::string Failure(const char* what, int error) {
    return std::string(what) + ": " + std::strerror(error);
}

// Holds bursts of thousands of processes per second while the agent itself waits for a processor.
void EnlargeReceiveBuffer(int fd) {
    constexpr int wanted = 64 << 20;
    if (setsockopt(fd, SOL_SOCKET, SO_RCVBUFFORCE, &wanted, sizeof(wanted)) != 0) {
        // Without the right to exceed the system's limit, the kernel grants that limit.
        setsockopt(fd, SOL_SOCKET, SO_RCVBUF, &wanted, sizeof(wanted));
    }
}

// Exits, new sessions, new names and credentials together outnumber forks and execs. Dropped in the kernel, they
// neither fill the receive buffer nor wake the reader.
bool AttachFilter(int fd) {
    constexpr uint32_t whatOffset = sizeof(nlmsghdr) + sizeof(cn_msg) + offsetof(proc_event, what);
    constexpr uint32_t everything = 0xffffffff;
    // The load converts from network to host order, but the kernel writes the field in host order.
    const std::array<sock_filter, 6> program{{
        {BPF_LD | BPF_W | BPF_ABS, 0, 0, whatOffset},
        {BPF_JMP | BPF_JEQ | BPF_K, 3, 0, htonl(KernelEvent::PROC_EVENT_FORK)},
        {BPF_JMP | BPF_JEQ | BPF_K, 2, 0, htonl(KernelEvent::PROC_EVENT_EXEC)},
        {BPF_JMP | BPF_JEQ | BPF_K, 1, 0, htonl(KernelEvent::PROC_EVENT_NONE)},
        {BPF_RET | BPF_K, 0, 0, 0},
        {BPF_RET | BPF_K, 0, 0, everything},
    }};
    const sock_fprog filter{program.size(), const_cast<sock_filter*>(program.data())};
    return setsockopt(fd, SOL_SOCKET, SO_ATTACH_FILTER, &filter, sizeof(filter)) == 0;
}

// Every listener receives the kernel's answers, so this request needs a number of its own.
uint32_t UnlikelyNumber() {
    uint32_t number = 0;
    if (getrandom(&number, sizeof(number), GRND_NONBLOCK) != static_cast<ssize_t>(sizeof(number))) {
        number = static_cast<uint32_t>(Clock::Now().time_since_epoch().count());
    }
    return number;
}

}  // namespace

ProcessConnector::~ProcessConnector() {
    Close();
}

std::string ProcessConnector::Open() {
    std::string why = Prepare();
    if (why.empty()) {
        const uint32_t number = UnlikelyNumber();
        asked_ = Send(PROC_CN_MCAST_LISTEN, number);
        why = asked_ ? AwaitAck(number + 1) : Failure("the kernel rejected the request for process events", errno);
    }
    if (!why.empty()) {
        Close();
    }
    return why;
}

std::string ProcessConnector::Prepare() {
    socket_ = mnl_socket_open2(NETLINK_CONNECTOR, SOCK_CLOEXEC | SOCK_NONBLOCK);
    if (socket_ == nullptr) {
        return Failure("cannot open a connector socket", errno);
    }
    const int fd = mnl_socket_get_fd(socket_);
    EnlargeReceiveBuffer(fd);
    // Before the socket joins the group: events that arrive earlier are not filtered.
    if (!AttachFilter(fd)) {
        return Failure("cannot filter the connector socket", errno);
    }
    if (mnl_socket_bind(socket_, CN_IDX_PROC, MNL_SOCKET_AUTOPID) != 0) {
        return Failure("the kernel does not let this process subscribe to the process connector", errno);
    }
    return {};
}

std::string ProcessConnector::AwaitAck(uint32_t number) {
    const Clock::Time deadline = Clock::Now() + ackPatience;
    pollfd waiting{Descriptor(), POLLIN, 0};
    do {
        ConnectorBatch batch;
        const Received received = Receive(batch);
        if (received.error != 0) {
            return Failure("cannot read the process connector", received.error);
        }
        for (const ConnectorAck& ack : batch.acks) {
            if (ack.number == number) {
                return ack.error == 0
                           ? std::string()
                           : Failure("the kernel refuses to send process events", static_cast<int>(ack.error));
            }
        }
    } while (Clock::Poll({&waiting, 1}, deadline) > 0);
    return "the kernel did not answer the request for process events (it ignores requests from outside the initial PID "
           "and user namespaces or without CAP_NET_ADMIN, and all requests if built without CONFIG_PROC_EVENTS)";
}

bool ProcessConnector::Send(uint32_t operation, uint32_t ack) {
    alignas(nlmsghdr) std::array<char, 128> buffer{};
    nlmsghdr* const header = mnl_nlmsg_put_header(buffer.data());
    header->nlmsg_type = NLMSG_DONE;
    cn_msg message{};
    message.id.idx = CN_IDX_PROC;
    message.id.val = CN_VAL_PROC;
    message.ack = ack;
    message.len = sizeof(operation);
    char* const payload = static_cast<char*>(mnl_nlmsg_put_extra_header(header, sizeof(message) + sizeof(operation)));
    std::memcpy(payload, &message, sizeof(message));
    std::memcpy(payload + sizeof(message), &operation, sizeof(operation));
    return mnl_socket_sendto(socket_, header, header->nlmsg_len) >= 0;
}

void ProcessConnector::Close() {
    if (socket_ == nullptr) {
        return;
    }
    if (asked_) {
        // Older kernels count listeners and do not notice when one closes its socket.
        Send(PROC_CN_MCAST_IGNORE, 0);
        asked_ = false;
    }
    mnl_socket_close(socket_);
    socket_ = nullptr;
}

int ProcessConnector::Descriptor() const {
    return mnl_socket_get_fd(socket_);
}

uint32_t ProcessConnector::Address() const {
    return mnl_socket_get_portid(socket_);
}

ProcessConnector::Received ProcessConnector::Receive(ConnectorBatch& batch) {
    constexpr int datagramsPerCall = 512;
    Received received;
    alignas(nlmsghdr) std::array<char, 8192> buffer;
    for (int i = 0; i < datagramsPerCall; ++i) {
        // libmnl's own receive does not return the sender.
        sockaddr_nl sender{};
        iovec part{buffer.data(), buffer.size()};
        msghdr envelope{};
        envelope.msg_name = &sender;
        envelope.msg_namelen = sizeof(sender);
        envelope.msg_iov = &part;
        envelope.msg_iovlen = 1;
        const ssize_t size = recvmsg(Descriptor(), &envelope, MSG_DONTWAIT);
        if (size >= 0) {
            // Any privileged process can write to this socket; only the kernel has the address 0.
            if (envelope.msg_namelen == sizeof(sender) && sender.nl_pid == 0) {
                ParseConnectorDatagram(buffer.data(), static_cast<size_t>(size), batch);
            }
        } else if (errno == ENOBUFS) {
            ++received.losses;
        } else if (errno == EAGAIN) {
            break;
        } else if (errno != EINTR) {
            received.error = errno;
            break;
        }
    }
    return received;
}

std::string ProbeProcessEvents() {
    ProcessConnector connector;
    return connector.Open();
}

}  // namespace Host
