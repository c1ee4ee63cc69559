// The queues of an internet socket, as the tables of /proc/net show them.
#pragma once

#include <optional>
#include <string>

struct SocketQueues {
    unsigned long unsent = 0;  // bytes sent and not acknowledged, or not yet sent
    unsigned long unread = 0;  // bytes received and not read
};

// Returns the queues on a line of table type (1 to 8), if it is the line of this socket. SCTP has no queues in its
// table; they are returned as 0. Any thread.
std::optional<SocketQueues> ParseSocketQueues(const std::string& line, int type, unsigned long inode);

// Searches the tables for the socket. Empty if it is in none of them, or if the module is being stopped. Reads at most
// 50,000 lines. Sleeps 0.5 ms per table looked at. Any thread, with no lock held.
std::optional<SocketQueues> FindSocketQueues(unsigned long inode);
