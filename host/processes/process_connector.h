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

    // Opens the socket and requests events. Returns once the kernel has agreed, after half a second at most. Empty on
    // success, otherwise the reason as a sentence without its full stop. REQUIRES: not open.
    std::string Open();

    // Ends the request and closes the socket. Does nothing if it is not open.
    void Close();

    // Readable when events wait. REQUIRES: open.
    int Descriptor() const;

    // The netlink address of the socket. REQUIRES: open.
    uint32_t Address() const;

    struct Received {
        unsigned int losses = 0;  // times the kernel reported dropped events
        int error = 0;            // errno of a failure that ends the stream, otherwise 0
    };

    // Appends a bounded number of the waiting datagrams to batch. Does not wait. REQUIRES: open.
    Received Receive(ConnectorBatch& batch);

private:
    std::string Prepare();
    std::string AwaitAck(uint32_t number);
    bool Send(uint32_t operation, uint32_t ack);

    mnl_socket* socket_ = nullptr;
    bool asked_ = false;  // the kernel may count this socket as a listener
};

}  // namespace Host
