// A line of a socket table in /proc/net, read as a line of each table.

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "agent/strings.h"
#include "inspect/socket_table_line.h"
#include "tests/fakes/fake_agent.h"
#include "tests/fuzz/fuzz_target.h"

namespace {

constexpr int lastInternetTable = 7;
constexpr unsigned long largestWord = 0xFFFFFFFFUL;

bool operator==(const SocketInfo& one, const SocketInfo& other) {
    return one.type == other.type && one.inode == other.inode && one.state == other.state &&
           one.localIp == other.localIp && one.remoteIp == other.remoteIp && one.localPort == other.localPort &&
           one.remotePort == other.remotePort && one.firstSeen == other.firstSeen;
}

// The digits of the address in a field of exactly the kernel's form, "0100007F:1F90" or with four such words. Empty for
// any other text.
std::string_view AddressOfKernelsField(std::string_view field) {
    const size_t colon = field.find(':');
    const bool sized = (colon == 8 || colon == 32) && field.size() == colon + 5;
    if (!sized || field.find_first_not_of("0123456789ABCDEF:") != std::string_view::npos ||
        field.find(':', colon + 1) != std::string_view::npos) {
        return {};
    }
    return field.substr(0, colon);
}

bool IsUnspecified(std::string_view address) {
    return address.find_first_not_of('0') == std::string_view::npos;
}

void CheckAddresses(const std::string& line, const SocketInfo& info) {
    if (line.find_first_of("\t\n\v\f\r") < line.find_last_not_of("\t\n\v\f\r")) {
        return;  // the parser also splits fields at white space other than spaces
    }
    const std::vector<std::string> fields = TavUtils::StringProcess::StrSplit(line, " ", false);
    if (fields.size() < 3) {
        return;
    }
    const std::string_view local = AddressOfKernelsField(fields[1]);
    const std::string_view remote = AddressOfKernelsField(fields[2]);
    if (local.empty() || local.size() != remote.size()) {
        return;
    }
    Require((info.localIp == info.remoteIp) == (local == remote), "the two words are equal if the addresses are");
    Require((info.localIp == 0) == IsUnspecified(local), "only the unspecified local address is 0");
    Require((info.remoteIp == 0) == IsUnspecified(remote), "only the unspecified remote address is 0");
    Require(info.localPort >= 0 && info.localPort <= 0xFFFF && info.remotePort >= 0 && info.remotePort <= 0xFFFF,
            "a port of four digits is within 16 bits");
}

void CheckSocket(const std::string& line, int type, const SocketInfo& info) {
    Require(info.inode != 0, "a socket has an inode");
    Require(info.type == type, "a socket is of its table's type");
    Require(type == tcpTable || type == tcp6Table || info.state == stateOfOtherTables, "only TCP has a state");
    Require(info.localIp <= largestWord && info.remoteIp <= largestWord, "an address has 32 bits");
    Require(info.firstSeen == 0, "a line has no time");
    if (type <= lastInternetTable) {
        CheckAddresses(line, info);
    }
}

}  // namespace

int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    Fake::ResetAgent();
    const std::string line = TerminatedTextOf(data, size);
    for (int type = 1; type <= sctpTable; ++type) {
        const std::optional<SocketInfo> info = ParseSocketLine(line, type);
        const std::optional<SocketInfo> again = ParseSocketLine(line, type);
        Require(info.has_value() == again.has_value() && (!info || *info == *again),
                "reading a line twice gives the same socket");
        if (info) {
            CheckSocket(line, type, *info);
        }
    }
    return 0;
}
