// The demonstration's command line.
#pragma once

#include <optional>
#include <string>
#include <vector>

namespace Host {

struct DemoOptions {
    std::vector<std::string> only;  // names of wirings; empty for all
    bool list = false;              // list the wirings and leave
    bool json = false;              // print nothing but one JSON text
    std::optional<std::string> moduleFile;
};

// Either options, or the status to leave with and the texts to print before: output on standard output, error on
// standard error.
struct ParsedDemoOptions {
    std::optional<DemoOptions> options;
    int exitStatus = 0;
    std::string output;
    std::string error;
};

ParsedDemoOptions ParseDemoOptions(int argc, const char* const* argv);

}  // namespace Host
