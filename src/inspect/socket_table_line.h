// One line of a socket table of /proc/net.
#pragma once

#include <optional>
#include <string>

#include "inspect/socket_table.h"

// The socket that a line of table type (1 to 8) tells, with firstSeen 0. Nothing for a line that is none, such as the
// table's header, and for a socket that no process holds any more (inode 0). Any thread.
//
// An address of IPv6 is reduced to one word: 0 for the unspecified address, non-zero and the same on every read for any
// other, its last 32 bits where these are not 0. So a peer that is an IPv4 address mapped into IPv6 reads as that IPv4
// address. Two addresses that differ never give the same words in one line: where only bits that are cut off tell them
// apart, localIp is made another one.
std::optional<SocketInfo> ParseSocketLine(const std::string& line, int type);

// Sets type, and state to the given one for the TCP tables and to 11 for all others, which have no TCP state.
void ModifySockStateByType(SocketInfo& info, int type, unsigned int state);
