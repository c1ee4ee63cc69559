// Parses /proc/<pid>/status.
#pragma once

#include <array>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace Host {

// The fields up to the line "Gid". A field whose line is missing is 0 or empty.
struct ProcessStatus {
    int32_t pid = 0;
    int32_t tgid = 0;
    int32_t ppid = 0;
    int32_t tracerPid = 0;
    std::array<uint32_t, 4> uids{};  // real, effective, saved, file system
    std::array<uint32_t, 4> gids{};
    std::string name;  // as the kernel writes it: newline and backslash are escaped in two bytes

    bool operator==(const ProcessStatus&) const = default;
};

// Empty if the pid or the parent's pid is missing, or if a field is malformed. A line without its newline was cut and
// is ignored. Any thread.
std::optional<ProcessStatus> ParseProcessStatus(std::string_view text);

}  // namespace Host
