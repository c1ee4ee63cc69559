// The socket on which the kernel reports forks and execs.
#pragma once

#include <cstdint>
#include <string>

#include "host/processes/connector_message.h"

struct mnl_socket;

namespace Host {

// One thread at a time.
class ProcessConnector {
public:
    ProcessConnector() = default;
    ~ProcessConnector();
    ProcessConnector(const ProcessConnector&) = delete;
    ProcessConnector& operator=(const ProcessConnector&) = delete;

    // Opens the socket and asks the kernel for events; returns once the kernel has agreed, at most half a second later.
    // Empty on success, otherwise a sentence that says why no events will come. REQUIRES: not open.
    std::string Open();

    // Tells the kernel that nobody listens here any more. Nothing happens if it is not open.
    void Close();

    // Readable when events wait. REQUIRES: open.
    int Descriptor() const;

    // The address of the socket, by which netlink messages are sent to it. REQUIRES: open.
    uint32_t Address() const;

    struct Received {
        unsigned int losses = 0;  // times the kernel said that it has dropped events
        int error = 0;            // errno of a failure after which nothing more will come, otherwise 0
    };

    // Appends what waits in the socket, a bounded number of datagrams, to batch. Does not wait. REQUIRES: open.
    Received Receive(ConnectorBatch& batch);

private:
    std::string Prepare();
    std::string AwaitAck(uint32_t number);
    bool Send(uint32_t operation, uint32_t ack);

    mnl_socket* socket_ = nullptr;
    bool asked_ = false;  // the kernel may count this socket as a listener
};

}  // namespace Host
