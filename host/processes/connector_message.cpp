#include "host/processes/connector_message.h"

#include <libmnl/libmnl.h>
#include <linux/cn_proc.h>
#include <linux/connector.h>

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <limits>

namespace Host {

namespace {

// Newer kernels declare the enumerators outside the record.
using KernelEvent = decltype(proc_event::what);

// Minimum length of a record of that kind; 0 for kinds that are not used.
size_t RequiredLength(const proc_event& record) {
    switch (record.what) {
        case KernelEvent::PROC_EVENT_NONE:
            return offsetof(proc_event, event_data) + sizeof(record.event_data.ack);
        case KernelEvent::PROC_EVENT_FORK:
            return offsetof(proc_event, event_data) + sizeof(record.event_data.fork);
        case KernelEvent::PROC_EVENT_EXEC:
            return offsetof(proc_event, event_data) + sizeof(record.event_data.exec);
        default:
            return 0;
    }
}

// REQUIRES: record is a fork or an exec.
ProcessEvent EventOf(const proc_event& record) {
    ProcessEvent event;
    event.cpu = record.cpu;
    event.timestampNs = record.timestamp_ns;
    if (record.what == KernelEvent::PROC_EVENT_FORK) {
        event.kind = ProcessEvent::Kind::fork;
        event.pid = record.event_data.fork.child_pid;
        event.tgid = record.event_data.fork.child_tgid;
        event.parentPid = record.event_data.fork.parent_pid;
        event.parentTgid = record.event_data.fork.parent_tgid;
    } else {
        event.kind = ProcessEvent::Kind::exec;
        event.pid = record.event_data.exec.process_pid;
        event.tgid = record.event_data.exec.process_tgid;
    }
    return event;
}

// libmnl compares the length as a signed number: a length beyond 2 GiB would pass as small, and the loop would not end.
bool IsWhole(const nlmsghdr* header, int left) {
    return mnl_nlmsg_ok(header, left) && header->nlmsg_len <= static_cast<uint32_t>(left);
}

void ParseMessage(const char* payload, size_t size, ConnectorBatch& batch) {
    cn_msg message;
    if (size < sizeof(message)) {
        return;
    }
    std::memcpy(&message, payload, sizeof(message));
    if (message.id.idx != CN_IDX_PROC || message.id.val != CN_VAL_PROC || message.len > size - sizeof(message)) {
        return;
    }
    // Copied, because the record is not aligned. Cleared first, because older kernels send fewer bytes.
    proc_event record{};
    const size_t length = std::min<size_t>(message.len, sizeof(record));
    std::memcpy(&record, payload + sizeof(message), length);
    const size_t required = RequiredLength(record);
    if (required == 0 || length < required) {
        return;
    }
    if (record.what == KernelEvent::PROC_EVENT_NONE) {
        batch.acks.push_back({message.ack, record.event_data.ack.err});
    } else {
        batch.events.push_back(EventOf(record));
    }
}

}  // namespace

void ParseConnectorDatagram(const void* data, size_t size, ConnectorBatch& batch) {
    int left = static_cast<int>(std::min<size_t>(size, std::numeric_limits<int>::max()));
    for (const auto* header = static_cast<const nlmsghdr*>(data); IsWhole(header, left);
         header = mnl_nlmsg_next(header, &left)) {
        if (header->nlmsg_type == NLMSG_DONE) {
            ParseMessage(static_cast<const char*>(mnl_nlmsg_get_payload(header)), mnl_nlmsg_get_payload_len(header),
                         batch);
        }
    }
}

}  // namespace Host
