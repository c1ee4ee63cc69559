// One line of a socket table of /proc/net.
#pragma once

#include <optional>
#include <string>

#include "inspect/socket_table.h"

// Returns the socket on a line of table type (1 to 8), with firstSeen 0. Empty for a line without a socket, such as the
// table's header, and for a socket that no process holds any more (inode 0). Any thread.
//
// An IPv6 address is reduced to one word: its last 32 bits, or 1 if these are 0 and the address is not. The unspecified
// address is 0. An IPv4 address mapped into IPv6 becomes that IPv4 address. The two addresses of a line never become
// equal if they differ: if only the bits that are cut off differ, localIp is changed to 1 or 2.
std::optional<SocketInfo> ParseSocketLine(const std::string& line, int type);

// Sets type and state. Tables other than those of TCP have no TCP state; their sockets get 11.
void ModifySockStateByType(SocketInfo& info, int type, unsigned int state);
