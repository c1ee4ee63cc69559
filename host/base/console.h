// Messages to the user and exit statuses of the agent's programs.
#pragma once

#include <string>

namespace Host {

enum ExitStatus : int {
    EXIT_DONE = 0,
    EXIT_FAILED = 1,     // the module or a step of the start failed, or something essential is missing
    EXIT_WRONG_USE = 2,  // the command line or the configuration is wrong
};

// Writes one line to standard error, prefixed with the agent's name. Escapes control characters and cuts the line at 16
// KiB. Any thread.
void PrintMessage(const std::string& message);

}  // namespace Host
