// The kernel's text of a connection table, /proc/net/tcp and its kin.
#pragma once

#include <cstddef>
#include <string_view>
#include <vector>

#include "agent/net_stat.h"

namespace Host {

// AF_INET or AF_INET6: which addresses the table holds.
enum class TableFamily { ipv4, ipv6 };

// Most records that one reading appends; what a host has beyond is left out, so that no number of sockets exhausts the
// agent's memory.
inline constexpr size_t maxTableRecords = size_t{1} << 20;

// Appends one record per well-formed line of text and returns how many bytes it has consumed. Whatever follows the last
// line end is an unfinished line and stays unconsumed. The header counts as malformed. Ends early once stop, which may
// be null, reads true, or once records holds limit records. Any thread.
size_t ParseProcNetTable(std::string_view text, TableFamily family, std::vector<TavUtils::NetStat::NETSTAT>& records,
                         size_t limit, const bool* stop);

// Appends the records of the table at path. False, with records as they were, if it cannot be read. stop may be null;
// once it reads true the reading ends early. Any thread.
bool ReadProcNetTable(const char* path, TableFamily family, std::vector<TavUtils::NetStat::NETSTAT>& records,
                      const bool* stop);

}  // namespace Host
