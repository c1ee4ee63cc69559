// Parses datagrams of the kernel's process connector.
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

#include "host/processes/process_events.h"

namespace Host {

// The kernel's answer to a request of any listener. Every listener receives it.
struct ConnectorAck {
    uint32_t number;  // the request's ack number plus 1: the only field that every kernel returns
    uint32_t error;   // errno, 0 for success
};

struct ConnectorBatch {
    std::vector<ProcessEvent> events;  // fork and exec, in the kernel's order
    std::vector<ConnectorAck> acks;
};

// Appends the events and answers of one datagram to batch. Skips messages that are cut, from another connector or of
// another kind. REQUIRES: data is aligned for nlmsghdr. Any thread.
void ParseConnectorDatagram(const void* data, size_t size, ConnectorBatch& batch);

}  // namespace Host
