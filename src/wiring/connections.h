// The connections of the host by the socket that has them.
#pragma once

#include <map>
#include <string>

namespace Host {

struct Connection {
    std::string protocol;  // "tcp", "tcp6" or "udp"
    std::string local;     // ADDRESS:PORT
    std::string remote;
    bool foreign = false;  // the peer is an address of another host, as the period scan sees it
};

// By socket inode, sockets without a peer included. Reads the tables of the agent's network namespace. Any thread.
std::map<unsigned long, Connection> ReadConnections();

}  // namespace Host
