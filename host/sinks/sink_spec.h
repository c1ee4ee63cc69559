// One sink of the configuration.
#pragma once

#include <string>

namespace Host {

enum class SinkType { standardOutput, file };

struct SinkSpec {
    SinkType type = SinkType::standardOutput;
    std::string path;  // of a file, absolute

    bool operator==(const SinkSpec&) const = default;
};

}  // namespace Host
