// The agent's command line.
#pragma once

#include <optional>
#include <string>
#include <vector>

namespace Host {

enum class Command { run, scan, check, explain, demo };

struct Options {
    Command command = Command::run;
    std::optional<std::string> configFile;
    std::optional<std::string> moduleFile;
    int pid = 0;                             // to explain
    bool dot = false;                        // the graph of it alone
    std::vector<std::string> demoArguments;  // as they stand; orlim-demo reads them
};

// Either options, or the status to leave with and what to print before: output on standard output, error on standard
// error.
struct ParsedOptions {
    std::optional<Options> options;
    int exitStatus = 0;
    std::string output;
    std::string error;
};

ParsedOptions ParseOptions(int argc, const char* const* argv);

}  // namespace Host
