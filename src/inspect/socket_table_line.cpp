#include "inspect/socket_table_line.h"

#include <arpa/inet.h>

#include <vector>

#include "agent/bounds_checked.h"
#include "agent/strings.h"
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
    const std::vector<std::string> fields = TavUtils::StringProcess::StrSplit(line, " ", false);
    return fields.size() > 2 && fields[1].substr(0, fields[1].find(':')) != fields[2].substr(0, fields[2].find(':'));
}

static void ReduceAddresses(const std::string& line, SocketInfo& info) {
    info.localIp = LastWord(info.localIp);
    info.remoteIp = LastWord(info.remoteIp);
    if (info.localIp != 0 && info.localIp == info.remoteIp && AddressesDiffer(line)) {
        info.localIp = info.remoteIp == 1 ? 2 : 1;
    }
}

static std::optional<SocketInfo> ParseInternetLine(const std::string& line, int type) {
    SocketInfo info;
    unsigned int localPort = 0;
    unsigned int remotePort = 0;
    unsigned int state = 0;
    if (sscanf_s(line.c_str(), "%*s%lx:%x%lx:%x%x%*s%*s%*x%*x%*x%lu", &info.localIp, &localPort, &info.remoteIp,
                 &remotePort, &state, &info.inode) != 6) {
        return std::nullopt;
    }
    info.localPort = static_cast<int>(localPort);
    info.remotePort = static_cast<int>(remotePort);
    ReduceAddresses(line, info);
    ModifySockStateByType(info, type, state);
    return info;
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

static std::optional<SocketInfo> ParseSctpLine(const std::string& line) {
    SocketInfo info;
    char local[addressSize] = {};
    char remote[addressSize] = {};
    if (sscanf_s(line.c_str(), "%*s%*s%*s%*s%*s%*s%*s%*s%*s%*s%lu%d%d%s%*[^*]*%s", &info.inode, &info.localPort,
                 &info.remotePort, local, sizeof(local), remote, sizeof(remote)) != 5) {
        return std::nullopt;
    }
    if (!ParseAddress(local, info.localIp) || !ParseAddress(remote, info.remoteIp)) {
        return std::nullopt;
    }
    ModifySockStateByType(info, sctpTable, 0);
    return info;
}

std::optional<SocketInfo> ParseSocketLine(const std::string& line, int type) {
    if (line.empty()) {
        return std::nullopt;
    }
    std::optional<SocketInfo> info = type == sctpTable ? ParseSctpLine(line) : ParseInternetLine(line, type);
    if (info && info->inode == 0) {
        return std::nullopt;
    }
    return info;
}

void ModifySockStateByType(SocketInfo& info, int type, unsigned int state) {
    info.type = type;
    info.state = type == tcpTable || type == tcp6Table ? state : stateOfOtherTables;
}
