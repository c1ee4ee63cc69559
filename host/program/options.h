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
    int pid = 0;                             // explain: the process
    bool dot = false;                        // explain: print only the wiring, as a graph
    std::vector<std::string> demoArguments;  // passed to orlim-demo unchanged
};

// Either options, or the exit status and the texts to print first: output to standard output, error to standard error.
struct ParsedOptions {
    std::optional<Options> options;
    int exitStatus = 0;
    std::string output;
    std::string error;
};

ParsedOptions ParseOptions(int argc, const char* const* argv);

}  // namespace Host
