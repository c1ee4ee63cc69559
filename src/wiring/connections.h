// The connections of the host, by socket.
#pragma once

#include <map>
#include <string>

namespace Host {

struct Connection {
    std::string protocol;  // "tcp", "tcp6" or "udp"
    std::string local;     // ADDRESS:PORT
    std::string remote;
    bool foreign;  // the period scan takes the peer for another host
};

// By socket inode, including sockets without a peer. Reads the tables of the agent's network namespace. Any thread.
std::map<unsigned long, Connection> ReadConnections();

}  // namespace Host
