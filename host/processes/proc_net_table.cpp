#include "host/processes/proc_net_table.h"

#include <arpa/inet.h>
#include <fcntl.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <charconv>
#include <cstdint>
#include <cstring>
#include <iterator>
#include <string>
#include <utility>

#include "host/base/descriptor.h"
#include "host/base/log.h"

namespace Host {

namespace {

// Parses the whole field as one unsigned number.
template <typename Number>
bool ParseNumber(std::string_view field, int base, Number& number) {
    const char* const end = field.data() + field.size();
    const auto [rest, error] = std::from_chars(field.data(), end, number, base);
    return error == std::errc() && rest == end;
}

std::string_view TakeField(std::string_view& line) {
    const size_t start = line.find_first_not_of(' ');
    if (start == std::string_view::npos) {
        line = {};
        return {};
    }
    line.remove_prefix(start);
    const std::string_view field = line.substr(0, line.find(' '));
    line.remove_prefix(field.size());
    return field;
}

// "0100007F:1F90": words of eight hexadecimal digits, then the port. The kernel prints each word of the
// address as a number in host order, so the parsed words hold the address in network order again.
bool ParseEndpoint(std::string_view field, TableFamily family, std::string& ip, unsigned short& port) {
    constexpr size_t wordDigits = 8;
    constexpr size_t portDigits = 4;
    std::array<uint32_t, 4> words{};
    const size_t wordCount = family == TableFamily::ipv4 ? 1 : words.size();
    const size_t addressDigits = wordCount * wordDigits;
    if (field.size() != addressDigits + 1 + portDigits || field[addressDigits] != ':') {
        return false;
    }
    for (size_t i = 0; i < wordCount; ++i) {
        if (!ParseNumber(field.substr(i * wordDigits, wordDigits), 16, words[i])) {
            return false;
        }
    }
    if (!ParseNumber(field.substr(addressDigits + 1), 16, port)) {
        return false;
    }
    std::array<char, INET6_ADDRSTRLEN> text;
    if (inet_ntop(family == TableFamily::ipv4 ? AF_INET : AF_INET6, words.data(), text.data(), text.size()) ==
        nullptr) {
        return false;
    }
    ip = text.data();
    return true;
}

// "0: local remote state queues timer retransmits uid timeout inode ...". Malformed lines leave a record half filled.
bool ParseLine(std::string_view line, TableFamily family, Connection& record) {
    std::string_view slot = TakeField(line);
    uint64_t slotNumber = 0;
    if (slot.empty() || slot.back() != ':' || !ParseNumber(slot.substr(0, slot.size() - 1), 10, slotNumber)) {
        return false;
    }
    if (!ParseEndpoint(TakeField(line), family, record.localIp, record.localPort) ||
        !ParseEndpoint(TakeField(line), family, record.remoteIp, record.remotePort)) {
        return false;
    }
    const std::string_view state = TakeField(line);
    if (state.size() != 2 || !ParseNumber(state, 16, record.state)) {
        return false;
    }
    constexpr int fieldsBetween = 5;
    for (int i = 0; i < fieldsBetween; ++i) {
        TakeField(line);
    }
    return ParseNumber(TakeField(line), 10, record.inode);
}

bool Stopped(const bool* stop) {
    // Another thread sets the flag, so the compiler must not move the read out of the loop.
    return stop != nullptr && std::atomic_ref<bool>(*const_cast<bool*>(stop)).load(std::memory_order_relaxed);
}

void WarnOfCutTable(const char* path) {
    static LogPacer pacer;
    if (pacer.MayLog()) {
        LogWarning("%s lists more than %zu connections; the others are ignored", path, maxTableRecords);
    }
}

}  // namespace

size_t ParseProcNetTable(std::string_view text, TableFamily family, std::vector<Connection>& records, size_t limit,
                         const bool* stop) {
    constexpr unsigned int linesBetweenLooks = 256;
    unsigned int lines = 0;
    size_t position = 0;
    while (records.size() < limit) {
        if (lines++ % linesBetweenLooks == 0 && Stopped(stop)) {
            break;
        }
        const size_t end = text.find('\n', position);
        if (end == std::string_view::npos) {
            break;
        }
        Connection record{};
        if (ParseLine(text.substr(position, end - position), family, record)) {
            records.push_back(std::move(record));
        }
        position = end + 1;
    }
    return position;
}

bool ReadProcNetTable(const char* path, TableFamily family, const std::function<void(Connection&&)>& take,
                      const bool* stop) {
    const Descriptor file(open(path, O_RDONLY | O_CLOEXEC));
    if (!file.IsOpen()) {
        return false;
    }
    // Reads in pieces: on a busy host the text is several times as large as the records.
    std::string buffer(size_t{1} << 16, '\0');
    std::vector<Connection> records;
    size_t left = maxTableRecords;
    size_t filled = 0;
    while (!Stopped(stop)) {
        const ssize_t count = file.Read(buffer.data() + filled, buffer.size() - filled);
        if (count <= 0) {
            return count == 0;
        }
        filled += static_cast<size_t>(count);
        records.clear();
        const size_t consumed = ParseProcNetTable(std::string_view(buffer.data(), filled), family, records, left, stop);
        std::for_each(std::make_move_iterator(records.begin()), std::make_move_iterator(records.end()), take);
        left -= records.size();
        if (left == 0) {
            WarnOfCutTable(path);
            break;
        }
        filled -= consumed;
        std::memmove(buffer.data(), buffer.data() + consumed, filled);
        if (filled == buffer.size()) {
            // No table has a line as long as the buffer. Its start is dropped; the rest will be malformed.
            filled = 0;
        }
    }
    return true;
}

}  // namespace Host
