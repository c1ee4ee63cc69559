// The kernel's text of a connection table: /proc/net/tcp, tcp6, udp.
#pragma once

#include <cstddef>
#include <functional>
#include <string>
#include <string_view>
#include <vector>

namespace Host {

// AF_INET or AF_INET6: which addresses the table holds.
enum class TableFamily { ipv4, ipv6 };

// Most connections of one reading; the rest is omitted, so that no number of sockets exhausts the agent's memory.
inline constexpr size_t maxTableRecords = size_t{1} << 20;

// One line of a table.
struct Connection {
    std::string localIp;   // as inet_ntop writes it
    std::string remoteIp;  // likewise
    unsigned short localPort = 0;
    unsigned short remotePort = 0;
    unsigned char state = 0;  // as the table gives it
    unsigned long inode = 0;
};

// Appends one record per well-formed line of text and returns how many bytes it has consumed. Bytes after the last line
// end are an unfinished line and stay unconsumed. The header counts as malformed. Ends early once stop, which may be
// null, reads true, or once records holds limit records. Any thread.
size_t ParseProcNetTable(std::string_view text, TableFamily family, std::vector<Connection>& records, size_t limit,
                         const bool* stop);

// Calls take for each connection of the table at path, in the table's order. False if the table cannot be read; some
// may have been taken before. stop may be null; once it reads true the reading ends early. Any thread.
bool ReadProcNetTable(const char* path, TableFamily family, const std::function<void(Connection&&)>& take,
                      const bool* stop);

}  // namespace Host
