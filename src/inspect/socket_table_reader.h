// The paced read of the kernel's socket tables.
#pragma once

#include <map>

#include "inspect/socket_table.h"

// The tables in order of their numbers, from 1.
inline constexpr const char* socketTableFiles[] = {
    "/proc/net/tcp",  "/proc/net/udp",     "/proc/net/raw",      "/proc/net/tcp6",
    "/proc/net/udp6", "/proc/net/udplite", "/proc/net/udplite6", "/proc/net/sctp/assocs",
};

// Reads all tables and makes the result the new socketTable; it is incomplete if the module is being stopped. A socket
// that is in known with the same state, addresses and remote port keeps that entry; any other gets the time at the end
// of the read as firstSeen. Once there are more than 50,000 sockets, the rest of the table and all but the first socket
// of each later table are ignored, and one line is logged. Called by RefreshSocketTable only.
void ReadSocketTables(const std::map<unsigned long, SocketInfo>& known);
