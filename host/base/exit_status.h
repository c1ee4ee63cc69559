// What the agent's exit status says.
#pragma once

namespace Host {

enum ExitStatus : int {
    EXIT_DONE = 0,
    EXIT_FAILED = 1,     // the module or a step of the start failed, or something essential is missing
    EXIT_WRONG_USE = 2,  // the command line or the configuration is wrong
};

}  // namespace Host
