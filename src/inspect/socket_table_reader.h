// The paced read of the kernel's socket tables.
#pragma once

#include <map>

#include "inspect/socket_table.h"

// Reads all tables and swaps the result in as socketTable, partial if the module is being stopped. A socket that known
// has with the same state, addresses and peer keeps its firstSeen; any other gets the time at the end of the read.
// At most 50,000 sockets, and one more for each table that is left. Called by RefreshSocketTable alone.
void ReadSocketTables(const std::map<unsigned long, SocketInfo>& known);
