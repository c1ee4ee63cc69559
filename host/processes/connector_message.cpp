#include "host/processes/connector_message.h"

#include <libmnl/libmnl.h>
#include <linux/connector.h>

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <limits>

namespace Host {

namespace {

// Least length of a record of that kind; 0 for kinds that nobody here wants.
size_t RequiredLength(const proc_event& event) {
    switch (event.what) {
        case proc_event::PROC_EVENT_NONE:
            return offsetof(proc_event, event_data) + sizeof(event.event_data.ack);
        case proc_event::PROC_EVENT_FORK:
            return offsetof(proc_event, event_data) + sizeof(event.event_data.fork);
        case proc_event::PROC_EVENT_EXEC:
            return offsetof(proc_event, event_data) + sizeof(event.event_data.exec);
        default:
            return 0;
    }
}

// libmnl compares the length as a signed number: one beyond 2 GiB passes for small, and the walk would not end.
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
    // Copied, because the record lies unaligned behind its header; cleared first, because older kernels send less.
    proc_event event{};
    const size_t length = std::min<size_t>(message.len, sizeof(event));
    std::memcpy(&event, payload + sizeof(message), length);
    const size_t required = RequiredLength(event);
    if (required == 0 || length < required) {
        return;
    }
    if (event.what == proc_event::PROC_EVENT_NONE) {
        batch.acks.push_back({message.ack, event.event_data.ack.err});
    } else {
        batch.events.push_back(event);
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
