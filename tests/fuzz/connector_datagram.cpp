// A datagram from the kernel's process connector.

#include <linux/connector.h>
#include <linux/netlink.h>

#include <cstring>
#include <vector>

#include "host/processes/connector_message.h"
#include "tests/fuzz/fuzz_target.h"

int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    // A copy: aligned, and exactly as long as the input, so that the address sanitizer detects a read past the end.
    std::vector<uint8_t> datagram(data, data + size);
    Host::ConnectorBatch batch;
    Host::ParseConnectorDatagram(datagram.data(), datagram.size(), batch);
    Require((batch.events.size() + batch.acks.size()) * (sizeof(nlmsghdr) + sizeof(cn_msg)) <= size,
            "a record has its headers");
    for (const Host::ProcessEvent& event : batch.events) {
        const bool isFork = event.kind == Host::ProcessEvent::Kind::fork;
        Require(isFork || event.kind == Host::ProcessEvent::Kind::exec, "only forks and execs are returned");
        Require(isFork || (event.parentPid == 0 && event.parentTgid == 0), "an exec has no parent");
    }
    return 0;
}
