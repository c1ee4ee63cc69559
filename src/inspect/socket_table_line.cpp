#include "inspect/socket_table_line.h"

#include <arpa/inet.h>

#include <sstream>

#include "agent/bounds_checked.h"
#include "frame/log.h"

static constexpr char logSource[] = "detect_shell";

static constexpr size_t addressSize = 1024;

// A word holds only the last digits of an IPv6 address. Only its last 32 bits are used, so that hosts with words of 32
// and of 64 bits get the same result.
static unsigned long LastWord(unsigned long address) {
    const unsigned long last = address & 0xFFFFFFFFUL;
    return last == 0 && address != 0 ? 1 : last;
}

// True if the two addresses of a line differ: the fields after its number, hexadecimal digits up to a colon.
static bool AddressesDiffer(const std::string& line) {
    std::istringstream fields(line);
    std::string number;
    std::string local;
    std::string remote;
    fields >> number >> local >> remote;
    return local.substr(0, local.find(':')) != remote.substr(0, remote.find(':'));
}

static void ReduceAddresses(const std::string& line, SocketInfo& info) {
    for (unsigned long* const address : {&info.localIp, &info.remoteIp}) {
        *address = LastWord(*address);
    }
    if (info.localIp != 0 && info.localIp == info.remoteIp && AddressesDiffer(line)) {
        info.localIp = info.remoteIp == 1 ? 2 : 1;
    }
}

// Takes the state as it is in the line. Returns false if the line has too few fields.
static bool ParseInternetLine(const std::string& line, SocketInfo& info) {
    unsigned int localPort{};
    unsigned int remotePort{};
    if (sscanf_s(line.c_str(), "%*s%lx:%x%lx:%x%x%*s%*s%*x%*x%*x%lu", &info.localIp, &localPort, &info.remoteIp,
                 &remotePort, &info.state, &info.inode) != 6) {
        return false;
    }
    ReduceAddresses(line, info);
    info.localPort = static_cast<int>(localPort);
    info.remotePort = static_cast<int>(remotePort);
    return true;
}

// Returns false and logs a line if the text is not an IPv4 address.
static bool ParseAddress(const char* text, unsigned long& address) {
    in_addr parsed{};
    if (inet_aton(text, &parsed) == 0) {
        MODULE_LOG(normalLog, LOG_LEVEL_DETAIL, "get hex addr failed.\n");
        return false;
    }
    address = parsed.s_addr;
    return true;
}

// As above; a line of this table has no state.
static bool ParseSctpLine(const std::string& line, SocketInfo& info) {
    char local[addressSize] = {};
    char remote[addressSize] = {};
    if (sscanf_s(line.c_str(), "%*s%*s%*s%*s%*s%*s%*s%*s%*s%*s%lu%d%d%s%*[^*]*%s", &info.inode, &info.localPort,
                 &info.remotePort, local, sizeof(local), remote, sizeof(remote)) != 5) {
        return false;
    }
    return ParseAddress(local, info.localIp) && ParseAddress(remote, info.remoteIp);
}

std::optional<SocketInfo> ParseSocketLine(const std::string& line, int type) {
    SocketInfo info;
    const bool isParsed = type == sctpTable ? ParseSctpLine(line, info) : ParseInternetLine(line, info);
    if (!isParsed || info.inode == 0) {
        return std::nullopt;
    }
    ModifySockStateByType(info, type, info.state);
    return info;
}

void ModifySockStateByType(SocketInfo& info, int type, unsigned int state) {
    info.type = type;
    info.state = type == tcpTable || type == tcp6Table ? state : stateOfOtherTables;
}
