// Parses the kernel's connection tables: /proc/net/tcp, tcp6, udp.
#pragma once

#include <cstddef>
#include <functional>
#include <string>
#include <string_view>
#include <vector>

namespace Host {

// The addresses of the table: AF_INET or AF_INET6.
enum class TableFamily { ipv4, ipv6 };

// Maximum number of connections per reading. Further ones are ignored, with a line in the log, so that no number of
// sockets exhausts the agent's memory.
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

// Appends one record per well-formed line of text and returns the number of bytes consumed. An unfinished last line is
// not consumed. The header counts as malformed. Ends early if stop, which may be null, becomes true, or when records
// holds limit records. Any thread.
size_t ParseProcNetTable(std::string_view text, TableFamily family, std::vector<Connection>& records, size_t limit,
                         const bool* stop);

// Calls take for each connection of the table at path, in order. False if the table cannot be read; take may have been
// called before. Ends early if stop, which may be null, becomes true. Any thread.
bool ReadProcNetTable(const char* path, TableFamily family, const std::function<void(Connection&&)>& take,
                      const bool* stop);

}  // namespace Host
