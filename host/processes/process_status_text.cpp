#include "host/processes/process_status_text.h"

#include <algorithm>
#include <charconv>
#include <utility>

namespace Host {

namespace {

template <typename Number>
bool ParseNumber(std::string_view& text, Number& number) {
    const size_t begin = text.find_first_not_of(" \t");
    if (begin == std::string_view::npos) {
        return false;
    }
    const char* end = text.data() + text.size();
    const auto result = std::from_chars(text.data() + begin, end, number);
    if (result.ec != std::errc()) {
        return false;
    }
    text.remove_prefix(static_cast<size_t>(result.ptr - text.data()));
    return true;
}

bool ParseIds(std::string_view text, std::array<uint32_t, 4>& ids) {
    return std::all_of(ids.begin(), ids.end(), [&text](uint32_t& id) { return ParseNumber(text, id); });
}

std::string_view WithoutTab(std::string_view text) {
    text.remove_prefix(!text.empty() && text.front() == '\t' ? 1 : 0);
    return text;
}

// False if the line of a known field is malformed.
bool ParseLine(std::string_view key, std::string_view value, ProcessStatus& status) {
    if (key == "Name") {
        status.name = WithoutTab(value);
        return true;
    }
    if (key == "Tgid") {
        return ParseNumber(value, status.tgid);
    }
    if (key == "Pid") {
        return ParseNumber(value, status.pid);
    }
    if (key == "PPid") {
        return ParseNumber(value, status.ppid);
    }
    if (key == "TracerPid") {
        return ParseNumber(value, status.tracerPid);
    }
    if (key == "Uid") {
        return ParseIds(value, status.uids);
    }
    if (key == "Gid") {
        return ParseIds(value, status.gids);
    }
    return true;
}

}  // namespace

std::optional<ProcessStatus> ParseProcessStatus(std::string_view text) {
    ProcessStatus status;
    bool hasPid = false;
    bool hasParent = false;
    for (size_t end = text.find('\n'); end != std::string_view::npos; end = text.find('\n')) {
        const std::string_view line = text.substr(0, end);
        text.remove_prefix(end + 1);
        const size_t colon = line.find(':');
        if (colon == std::string_view::npos) {
            continue;
        }
        const std::string_view key = line.substr(0, colon);
        if (!ParseLine(key, line.substr(colon + 1), status)) {
            return std::nullopt;
        }
        hasPid = hasPid || key == "Pid";
        hasParent = hasParent || key == "PPid";
        if (key == "Gid") {
            break;
        }
    }
    return hasPid && hasParent ? std::optional(std::move(status)) : std::nullopt;
}

}  // namespace Host
