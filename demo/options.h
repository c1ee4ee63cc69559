// The demonstration's command line.
#pragma once

#include <optional>
#include <string>
#include <vector>

namespace Host {

struct DemoOptions {
    std::vector<std::string> only;  // names of scenarios; empty for all
    bool list = false;              // list the scenarios and exit
    bool json = false;              // print one JSON text and nothing else
    std::optional<std::string> moduleFile;
};

// Either options, or the exit status and the texts to print first: output to standard output, error to standard error.
struct ParsedDemoOptions {
    std::optional<DemoOptions> options;
    int exitStatus = 0;
    std::string output;
    std::string error;
};

ParsedDemoOptions ParseDemoOptions(int argc, const char* const* argv);

}  // namespace Host
