// How the agent's programs answer whoever called them: messages and the exit status.
#pragma once

#include <string>

namespace Host {

enum ExitStatus : int {
    EXIT_DONE = 0,
    EXIT_FAILED = 1,     // the module or a step of the start failed, or something essential is missing
    EXIT_WRONG_USE = 2,  // the command line or the configuration is wrong
};

// Writes one line to standard error, with the agent's name in front. Control characters are escaped, and what exceeds
// 16 KiB is cut. Any thread.
void PrintMessage(const std::string& message);

}  // namespace Host
