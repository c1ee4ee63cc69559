// The text of a connection table, in one piece and in two.

#include <arpa/inet.h>

#include <algorithm>
#include <string>
#include <string_view>
#include <vector>

#include "host/processes/proc_net_table.h"
#include "tests/fuzz/fuzz_target.h"

namespace {

using Host::Connection;
using Host::TableFamily;

constexpr size_t limit = 3;

bool IsSame(const Connection& one, const Connection& other) {
    return one.localIp == other.localIp && one.remoteIp == other.remoteIp && one.localPort == other.localPort &&
           one.remotePort == other.remotePort && one.state == other.state && one.inode == other.inode;
}

bool IsAddress(const std::string& text, TableFamily family) {
    in6_addr address{};
    return inet_pton(family == TableFamily::ipv4 ? AF_INET : AF_INET6, text.c_str(), &address) == 1;
}

std::vector<Connection> Parsed(std::string_view text, TableFamily family, size_t& consumed) {
    std::vector<Connection> records;
    consumed = Host::ParseProcNetTable(text, family, records, Host::maxTableRecords, nullptr);
    return records;
}

// Parses the table in two pieces, as after a read that ends anywhere: the rest of the first piece precedes the second.
std::vector<Connection> ParsedInTwo(std::string_view text, TableFamily family) {
    size_t consumed = 0;
    std::vector<Connection> records = Parsed(text.substr(0, text.size() / 2), family, consumed);
    const std::vector<Connection> rest = Parsed(text.substr(consumed), family, consumed);
    records.insert(records.end(), rest.begin(), rest.end());
    return records;
}

void Check(std::string_view text, TableFamily family) {
    size_t consumed = 0;
    const std::vector<Connection> records = Parsed(text, family, consumed);
    Require(consumed == text.rfind('\n') + 1, "exactly the whole lines are consumed");
    Require(records.size() <= static_cast<size_t>(std::count(text.begin(), text.end(), '\n')),
            "a line is at most one record");
    for (const Connection& record : records) {
        Require(IsAddress(record.localIp, family) && IsAddress(record.remoteIp, family), "a record has two addresses");
    }
    const std::vector<Connection> inTwo = ParsedInTwo(text, family);
    Require(std::equal(records.begin(), records.end(), inTwo.begin(), inTwo.end(), IsSame),
            "a table in two pieces has the same records");

    std::vector<Connection> few;
    Host::ParseProcNetTable(text, family, few, limit, nullptr);
    Require(few.size() == std::min(limit, records.size()), "the limit holds, and no fewer records are read");
}

}  // namespace

int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const std::string text = TextOf(data, size);
    Check(text, TableFamily::ipv4);
    Check(text, TableFamily::ipv6);
    return 0;
}
